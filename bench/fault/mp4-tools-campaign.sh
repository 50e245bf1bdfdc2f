#!/usr/bin/env bash
# Fault campaign for Folivox's mp4 tools (not run in CI).
#
# Builds a ~200 MB audiobook with ffmpeg, then again and again starts
# mp4tags, mp4art or mp4chaps on it and kills the tool with SIGKILL after a
# random number of microseconds, timed to fall inside its run. After each
# kill the book must:
#   - open in ffprobe without an error,
#   - decode with `ffmpeg -v error` without an error, to the same audio,
#   - load in mutagen,
#   - read as exactly the book before the run or the book the run makes
#     (title, comment, covers, QuickTime and Nero chapters),
# and no temporary file may be left beside it. Edits accumulate, so later
# tries work on books whose dead space earlier tries left behind; the book
# with its moov ahead of the media is reset now and then so that its
# whole-file rewrite is hit too.
#
#   bench/fault/mp4-tools-campaign.sh [TRIES] [BUILD_DIR]
#
# TRIES defaults to 80, BUILD_DIR to ./build (the tools in BUILD_DIR/bin). The
# first run of each operation on each layout is not killed: it times the run.
# Prints one table of counts; every column but tries should be 0.
set -u

TRIES=${1:-80}
BUILD=${2:-build}
TOOLS=$(cd "$BUILD/bin" 2>/dev/null && pwd) || { echo "no $BUILD/bin: build mp4tags, mp4art and mp4chaps first" >&2; exit 2; }
for t in mp4tags mp4art mp4chaps; do
    [ -x "$TOOLS/$t" ] || { echo "missing $TOOLS/$t" >&2; exit 2; }
done
for t in ffmpeg ffprobe; do
    command -v "$t" >/dev/null || { echo "missing $t" >&2; exit 2; }
done
PY=""
for p in python3 /usr/bin/python3; do
    if "$p" -c 'import mutagen.mp4' 2>/dev/null; then PY=$p; break; fi
done
[ -n "$PY" ] || { echo "mutagen is not installed (apt-get install python3-mutagen)" >&2; exit 2; }

WORK=$(mktemp -d "${TMPDIR:-/tmp}/mp4-campaign-XXXXXX")
CHILD=""
cleanup() {
    [ -n "$CHILD" ] && kill -9 "$CHILD" 2>/dev/null
    rm -rf "$WORK"
}
trap cleanup EXIT
trap 'exit 130' INT TERM
BOOKS=$WORK/books
mkdir -p "$BOOKS"
# A pipe nobody writes to: `read -t` on it is a sleep without a new process.
mkfifo "$WORK/never"
exec 9<>"$WORK/never"

echo "building the book in $WORK ..." >&2
ffmpeg -v error -y -f lavfi -i "sine=frequency=330:sample_rate=44100:duration=300" -ac 2 -c:a aac -b:a 256k \
    "$WORK/piece.m4a" || exit 1
ffmpeg -v error -y -stream_loop 24 -i "$WORK/piece.m4a" -c copy -f ipod "$WORK/last.m4b" || exit 1
ffmpeg -v error -y -i "$WORK/last.m4b" -c copy -movflags +faststart -f ipod "$WORK/front.m4b" || exit 1
ffmpeg -v error -y -f lavfi -i testsrc=size=300x300 -frames:v 1 "$WORK/small.jpg" || exit 1
ffmpeg -v error -y -f lavfi -i "mandelbrot=size=1400x1400" -frames:v 1 "$WORK/large.png" || exit 1
AUDIO_MD5=$(ffmpeg -v error -i "$WORK/last.m4b" -map 0:a -f md5 - 2>/dev/null)
echo "book: $(stat -c %s "$WORK/last.m4b") bytes, audio $AUDIO_MD5" >&2

# Chapter lists: a short one and one of 300 (the Nero list keeps 255).
printf '00:00:00.000 Opening\n00:30:00.000 Middle\n01:00:00.000 Closing\n' > "$WORK/short.txt"
: > "$WORK/long.txt"
for i in $(seq 0 299); do
    printf '%02d:%02d:%02d.000 Section %d of the long list\n' $((i * 20 / 3600)) $((i * 20 / 60 % 60)) $((i * 20 % 60)) $((i + 1)) >> "$WORK/long.txt"
done

# The state of a book as the readers see it, one JSON line; "ERR:" lines
# when mutagen cannot load it.
cat > "$WORK/fingerprint.py" <<'PYEOF'
import json, subprocess, sys
path = sys.argv[1]
try:
    import mutagen.mp4
    m = mutagen.mp4.MP4(path)
    tags = m.tags or {}
    nero = []
    try:
        nero = [c.title for c in (m.chapters or [])]
    except Exception:
        nero = []
    state = {
        "title": (tags.get("\xa9nam") or [None])[0],
        "comment": (tags.get("\xa9cmt") or [None])[0],
        "covers": [len(c) for c in tags.get("covr", [])],
        "nero": nero,
    }
except Exception as e:
    print("ERR: mutagen: %s" % e)
    sys.exit(0)
probe = subprocess.run(["ffprobe", "-v", "error", "-show_chapters", "-of", "json", path], capture_output=True, text=True)
try:
    state["qt"] = [c.get("tags", {}).get("title") for c in json.loads(probe.stdout).get("chapters", [])]
except Exception:
    state["qt"] = None
print(json.dumps(state, sort_keys=True))
PYEOF

# The state a run of the operation makes from a state.
cat > "$WORK/expect.py" <<'PYEOF'
import json, sys
state = json.loads(sys.argv[1]); op = sys.argv[2]; arg = sys.argv[3]
if op == "title":
    state["title"] = arg
elif op == "comment":
    state["comment"] = arg
elif op == "art-add":
    state["covers"] = state["covers"] + [int(arg)]
elif op == "art-remove":
    state["covers"] = []
elif op == "chaps-import":
    titles = [l.split(" ", 1)[1].rstrip("\n") for l in open(arg, encoding="utf-8") if l.strip()]
    state["qt"] = titles
    state["nero"] = titles[:255]
elif op == "chaps-remove":
    state["qt"] = []
    state["nero"] = []
print(json.dumps(state, sort_keys=True))
PYEOF

fingerprint() { "$PY" "$WORK/fingerprint.py" "$1"; }
now_us() { echo $(( $(date +%s%N) / 1000 )); }

tries=0 unreadable=0 undecodable=0 mutagen_failed=0 neither=0 leftovers=0
killed_old=0 killed_new=0 finished=0
declare -A runtime_us

for layout in last front; do
    cp "$WORK/$layout.m4b" "$BOOKS/$layout.m4b"
done
declare -A state
state[last]=$(fingerprint "$BOOKS/last.m4b")
state[front]=$(fingerprint "$BOOKS/front.m4b")

for n in $(seq 1 "$TRIES"); do
    layout=$([ $((n % 2)) -eq 0 ] && echo front || echo last)
    book=$BOOKS/$layout.m4b
    if [ "$layout" = front ] && [ $((RANDOM % 4)) -eq 0 ]; then
        # Back to a moov ahead of the media with no room around it.
        cp "$WORK/front.m4b" "$book"
        state[front]=$(fingerprint "$book")
    fi
    case $((RANDOM % 7)) in
        0) op=title; arg="Title $n $(head -c $((RANDOM * 3)) /dev/zero | tr '\0' 'x')"; cmd=("$TOOLS/mp4tags" -song "$arg" "$book") ;;
        1) op=comment; arg="Comment $n $(head -c $((RANDOM % 200)) /dev/zero | tr '\0' 'c')"; cmd=("$TOOLS/mp4tags" -comment "$arg" "$book") ;;
        2) img=$([ $((RANDOM % 2)) -eq 0 ] && echo small.jpg || echo large.png)
           op=art-add; arg=$(stat -c %s "$WORK/$img"); cmd=("$TOOLS/mp4art" --add "$WORK/$img" "$book") ;;
        3) op=art-remove; arg=-; cmd=("$TOOLS/mp4art" --remove "$book") ;;
        4|5) list=$([ $((RANDOM % 2)) -eq 0 ] && echo short.txt || echo long.txt)
           cp "$WORK/$list" "${book%.m4b}.chapters.txt"
           op=chaps-import; arg=$WORK/$list; cmd=("$TOOLS/mp4chaps" --import "$book") ;;
        6) op=chaps-remove; arg=-; cmd=("$TOOLS/mp4chaps" --remove "$book") ;;
    esac
    old=${state[$layout]}
    new=$("$PY" "$WORK/expect.py" "$old" "$op" "$arg")

    # Kill at a random moment within the run: between 0.3 and 1.05 times
    # the last complete run of this operation on this layout (the writes
    # come last). The wait is bash's own `read -t`, so no process start
    # blurs it.
    key=$layout-$op
    limit=${runtime_us[$key]:-0}
    start=$(now_us)
    "${cmd[@]}" >/dev/null 2>"$WORK/tool.err" &
    CHILD=$!
    if [ "$limit" -gt 0 ]; then
        delay=$(( limit * 3 / 10 + (RANDOM * 32768 + RANDOM) % (limit * 75 / 100 + 1) ))
        read -r -t "$(printf '%d.%06d' $((delay / 1000000)) $((delay % 1000000)))" -u 9 || true
        kill -9 "$CHILD" 2>/dev/null
    fi
    wait "$CHILD" 2>/dev/null
    status=$?
    CHILD=""
    took=$(( $(now_us) - start ))
    if [ "$status" -eq 0 ]; then
        runtime_us[$key]=$took
    fi
    tries=$((tries + 1))

    problems=""
    if ! ffprobe -v error -show_format -show_streams "$book" >/dev/null 2>"$WORK/probe.err" || [ -s "$WORK/probe.err" ]; then
        unreadable=$((unreadable + 1)); problems+=" unreadable"
    fi
    md5=$(ffmpeg -v error -i "$book" -map 0:a -f md5 - 2>"$WORK/decode.err")
    if [ $? -ne 0 ] || [ -s "$WORK/decode.err" ] || [ "$md5" != "$AUDIO_MD5" ]; then
        undecodable=$((undecodable + 1)); problems+=" undecodable"
    fi
    now=$(fingerprint "$book")
    if [[ $now == ERR:* ]]; then
        mutagen_failed=$((mutagen_failed + 1)); problems+=" mutagen"
    elif [ "$now" = "$old" ] && [ "$now" != "$new" ]; then
        killed_old=$((killed_old + 1))
    elif [ "$now" = "$new" ]; then
        if [ "$status" -eq 0 ]; then finished=$((finished + 1)); else killed_new=$((killed_new + 1)); fi
    else
        neither=$((neither + 1)); problems+=" neither-old-nor-new"
    fi
    if [ "$status" -ne 0 ] && [ "$status" -ne 137 ]; then
        problems+=" tool-failed($status: $(head -c 200 "$WORK/tool.err"))"
    fi
    stray=$(find "$BOOKS" -mindepth 1 -maxdepth 1 ! -name '*.m4b' ! -name '*.chapters.txt' | wc -l)
    if [ "$stray" -ne 0 ]; then
        leftovers=$((leftovers + stray)); problems+=" leftovers"
        find "$BOOKS" -mindepth 1 -maxdepth 1 ! -name '*.m4b' ! -name '*.chapters.txt' -delete
    fi
    [[ $now == ERR:* ]] || state[$layout]=$now
    printf '%3d %-5s %-12s %8dus %s size=%s%s\n' "$n" "$layout" "$op" "$took" \
        "$([ "$status" -eq 137 ] && echo killed || echo "exit=$status")" "$(stat -c %s "$book")" "$problems" >&2
done

echo
printf '| %-6s | %-10s | %-11s | %-16s | %-20s | %-19s |\n' tries unreadable undecodable "mutagen failures" neither-old-nor-new "leftover temp files"
printf '|--------|------------|-------------|------------------|----------------------|---------------------|\n'
printf '| %-6d | %-10d | %-11d | %-16d | %-20d | %-19d |\n' "$tries" "$unreadable" "$undecodable" "$mutagen_failed" "$neither" "$leftovers"
echo
echo "killed before the switch (old book): $killed_old; killed after it (new book): $killed_new; finished before the kill: $finished"
[ $((unreadable + undecodable + mutagen_failed + neither + leftovers)) -eq 0 ]
