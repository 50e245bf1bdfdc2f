#!/usr/bin/env bash
# Stops `folivox build` the hard ways, at many moments of a build, and counts
# what each stop leaves behind. Not part of CI: it takes several minutes.
#
#   bench/fault/build-campaign.sh [BUILD_DIR] [MOMENTS]
#
# Each round starts a build of three MP3 sources into an M4B (import, parallel
# encode, join, tags, fast start, put in place), with or without an older
# book already at the output, and stops it with SIGKILL, SIGINT, SIGTERM or
# SIGHUP. The moments are MOMENTS random delays spread over a whole build
# (default 24) and, for the closing steps, named fault points where the
# command signals itself (FOLIVOX_FAULT_SIGNAL). After each stop:
#   - stray processes: ffmpeg or mp4 tools of the campaign still alive 1 s later;
#   - leftovers: FolivoxWork entries and .folivox-* files beside the output
#     that are still there after the next build ran (its sweep);
#   - changed: an older book that a stopped build (not a finished one) changed;
#   - broken: an output file that ffmpeg cannot decode without errors or that
#     mutagen cannot read;
#   - partial: an output left by a stopped build where there was none before
#     (a whole new book that was in place before a kill is counted apart);
#   - status: an exit status other than 0 (finished first), 130 (cancelled)
#     or death by SIGKILL.
# With root, the temporary folder is a tmpfs of its own, so that the finished
# book crosses volumes on its way to the output (the locked incoming copy).
set -u
BUILD_DIR=${1:-build}
MOMENTS=${2:-24}
SOURCE_SECONDS=${SOURCE_SECONDS:-60}
BIN=$(cd "$BUILD_DIR/bin" && pwd)/folivox
PY=/usr/bin/python3
[ -x "$BIN" ] || { echo "no folivox at $BIN (build it first)" >&2; exit 2; }
$PY -c 'import mutagen' 2>/dev/null || { echo "needs mutagen: apt-get install python3-mutagen" >&2; exit 2; }

ROOT=$(mktemp -d /tmp/folivox-campaign-XXXXXX)
export FOLIVOX_HOME=$ROOT/home FOLIVOX_TOOLS_DIR=$(dirname "$BIN") TMPDIR=$ROOT/tmp
mkdir -p "$TMPDIR" "$FOLIVOX_HOME" "$ROOT/src" "$ROOT/out" "$ROOT/logs"
CROSS=no
if [ "$(id -u)" = 0 ] && mount -t tmpfs -o size=512m tmpfs "$TMPDIR" 2>/dev/null; then
    CROSS=yes
fi
kill_strays() { # by id: every process whose command line names the campaign's folder
    local pid
    for pid in $(pgrep -f "$ROOT"); do kill -KILL "$pid" 2>/dev/null; done
}
cleanup() {
    kill_strays
    [ "$CROSS" = yes ] && umount -l "$TMPDIR"
    rm -rf "$ROOT"
}
trap cleanup EXIT

for i in 0 1 2; do
    ffmpeg -v error -y -f lavfi -i "sine=f=$((300 + 60 * i)):d=$SOURCE_SECONDS" -c:a libmp3lame -b:a 64k "$ROOT/src/$i.mp3"
done
ffmpeg -v error -y -f lavfi -i "sine=f=500:d=1" -c:a libmp3lame -b:a 64k "$ROOT/sweeper.mp3"
ffmpeg -v error -y -f lavfi -i "sine=f=200:d=20" -c:a aac -b:a 64k -f ipod "$ROOT/old.m4b"
OLD_MD5=$(md5sum < "$ROOT/old.m4b")

build_args() { # output log
    echo build "$ROOT/src" -o "$1" -f -j 2 --bitrate 64 --quiet --log "$2" --title Campaign
}

# One whole build, timed, to spread the moments over.
start=$(date +%s%N)
"$BIN" $(build_args "$ROOT/out/timing.m4b" "$ROOT/logs/timing.log") || { echo "the timing build failed" >&2; exit 1; }
BUILD_MS=$(( ($(date +%s%N) - start) / 1000000 ))
rm -f "$ROOT/out/timing.m4b"

decodes() { # file -> 0 when ffmpeg decodes it cleanly and mutagen reads it
    local err
    err=$(ffmpeg -nostdin -v error -i "$1" -f null - 2>&1) || return 1
    [ -z "$err" ] || return 1
    $PY - "$1" <<'PY' || return 1
import sys, mutagen
f = mutagen.File(sys.argv[1])
sys.exit(0 if f is not None and f.info.length > 0 else 1)
PY
}

complete_book() { # file -> 0 when it is the whole new book (decodes, full length)
    decodes "$1" || return 1
    $PY - "$1" "$((SOURCE_SECONDS * 3))" <<'PY'
import sys, mutagen
f = mutagen.File(sys.argv[1])
sys.exit(0 if abs(f.info.length - float(sys.argv[2])) < 1.0 else 1)
PY
}

strays() { # live ffmpeg/mp4 tool processes of this campaign
    local n=0 pid
    for pid in $(pgrep -f "$ROOT"); do
        case "$(cat /proc/$pid/comm 2>/dev/null)" in
            ffmpeg|mp4tags|mp4art|mp4chaps) n=$((n + 1)) ;;
        esac
    done
    echo $n
}

declare -A COUNT
for k in rounds strays leftovers changed broken partial status finished cancelled killed placed; do COUNT[$k]=0; done
declare -A BYSIG
ROUND=0

one_round() { # how(delay ms | point) signal preexisting
    local how=$1 sig=$2 pre=$3 out=$ROOT/out/book.m4b log=$ROOT/logs/round-$ROUND.log rc
    rm -f "$out"
    [ "$pre" = yes ] && cp "$ROOT/old.m4b" "$out"
    if [[ $how =~ ^[0-9]+$ ]]; then
        "$BIN" $(build_args "$out" "$log") >/dev/null 2>&1 &
        local pid=$!
        sleep "$(awk -v ms="$how" 'BEGIN { printf "%.3f", ms / 1000 }')"
        kill -s "$sig" "$pid" 2>/dev/null
        wait "$pid"; rc=$?
    else
        FOLIVOX_FAULT_SIGNAL="$how:$sig" "$BIN" $(build_args "$out" "$log") >/dev/null 2>&1 &
        wait $!; rc=$?
    fi
    sleep 1
    local s; s=$(strays)
    local bad=""
    COUNT[strays]=$((COUNT[strays] + s)); [ "$s" -gt 0 ] && { bad+=" strays=$s"; kill_strays; }
    case $rc in
        0) COUNT[finished]=$((COUNT[finished] + 1)) ;;
        130) COUNT[cancelled]=$((COUNT[cancelled] + 1)) ;;
        137) COUNT[killed]=$((COUNT[killed] + 1)) ;;
        *) COUNT[status]=$((COUNT[status] + 1)); bad+=" status=$rc" ;;
    esac
    # A stop after the new book was in place may leave it there: that is the
    # finished build. Anything else at the output of a stopped build is not.
    if [ "$pre" = yes ] && [ "$rc" != 0 ] && [ "$(md5sum < "$out" 2>/dev/null)" != "$OLD_MD5" ]; then
        if complete_book "$out"; then
            COUNT[placed]=$((COUNT[placed] + 1)); bad+=" (new book in place before the stop)"
        else
            COUNT[changed]=$((COUNT[changed] + 1)); bad+=" changed"
        fi
    fi
    if [ "$pre" = no ] && [ "$rc" != 0 ] && [ -e "$out" ]; then
        if complete_book "$out"; then
            COUNT[placed]=$((COUNT[placed] + 1)); bad+=" (new book in place before the stop)"
        else
            COUNT[partial]=$((COUNT[partial] + 1)); bad+=" partial"
        fi
    fi
    if [ -e "$out" ] && ! decodes "$out"; then
        COUNT[broken]=$((COUNT[broken] + 1)); bad+=" broken"
    fi
    # The next run sweeps what the stopped one could not remove.
    "$BIN" build "$ROOT/sweeper.mp3" -o "$ROOT/out/sweeper.m4b" --quiet --log "$ROOT/logs/sweep-$ROUND.log" >/dev/null 2>&1
    rm -f "$ROOT/out/sweeper.m4b"
    local left
    left=$( (ls -A "$TMPDIR/FolivoxWork" 2>/dev/null; ls -A "$ROOT/out" | grep '^\.folivox') | wc -l)
    COUNT[leftovers]=$((COUNT[leftovers] + left)); [ "$left" -gt 0 ] && bad+=" leftovers=$left"
    rm -rf "${TMPDIR:?}/FolivoxWork"/* "$ROOT"/out/.folivox-* 2>/dev/null
    COUNT[rounds]=$((COUNT[rounds] + 1))
    BYSIG[$sig]=$(( ${BYSIG[$sig]:-0} + 1 ))
    printf '%4d  %-26s %-4s pre=%-3s rc=%-3s%s\n' "$ROUND" "$how" "$sig" "$pre" "$rc" "$bad"
    ROUND=$((ROUND + 1))
}

echo "folivox build campaign: one build takes ${BUILD_MS} ms; cross-volume put: $CROSS; $ROOT"
POINTS=(relocate.moovWritten relocate.piece relocate.synced export.outputPlaced)
[ "$CROSS" = yes ] && POINTS+=(export.incoming.piece export.incoming.complete)
for ((m = 0; m < MOMENTS; m++)); do
    delay=$(( RANDOM * 32768 + RANDOM ))
    delay=$(( delay % (BUILD_MS * 11 / 10 + 1) ))
    for sig in KILL INT TERM HUP; do
        for pre in yes no; do one_round "$delay" "$sig" "$pre"; done
    done
done
for point in "${POINTS[@]}"; do
    for sig in KILL INT TERM HUP; do
        for pre in yes no; do one_round "$point" "$sig" "$pre"; done
    done
done

echo
echo "| rounds | finished (0) | cancelled (130) | killed (137) | other status | stray processes | leftovers after next run | older book changed | broken outputs | partial outputs | killed after the book was in place |"
echo "|---|---|---|---|---|---|---|---|---|---|---|"
echo "| ${COUNT[rounds]} | ${COUNT[finished]} | ${COUNT[cancelled]} | ${COUNT[killed]} | ${COUNT[status]} | ${COUNT[strays]} | ${COUNT[leftovers]} | ${COUNT[changed]} | ${COUNT[broken]} | ${COUNT[partial]} | ${COUNT[placed]} |"
echo "signals: KILL=${BYSIG[KILL]:-0} INT=${BYSIG[INT]:-0} TERM=${BYSIG[TERM]:-0} HUP=${BYSIG[HUP]:-0}"
[ $((COUNT[strays] + COUNT[leftovers] + COUNT[changed] + COUNT[broken] + COUNT[partial] + COUNT[status])) -eq 0 ]
