#!/usr/bin/env bash
# Builds the chapter-file fuzz targets with clang (libFuzzer, AddressSanitizer,
# UndefinedBehaviorSanitizer) and runs each for a while on inputs up to 64 KB,
# counting any input that takes more than a second as a hang.
#
#   bench/fuzz/run-sidecar-fuzz.sh [SECONDS_PER_TARGET] [TARGET...]
#
# SECONDS_PER_TARGET defaults to 600. TARGET names are the file names without
# "_fuzz.cpp" (cue, ffmetadata, mkv_xml, mkv_simple, mp4chaps,
# audacity_labels, simple_text, sniffer); all run when none are given.
# Work goes to $FUZZ_DIR (default build-sidecar-fuzz in the source tree):
# the sanitizer build, a corpus per target, and crash or timeout inputs.
# Each finding, once fixed, becomes a case in tests/data (see its README.md).
# Not part of CI. Uses at most two cores.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "$here/../.." && pwd)"
seconds="${1:-600}"
shift || true
work="${FUZZ_DIR:-$root/build-sidecar-fuzz}"
build="$work/build"
sanitize="-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer"

if [ "$#" -gt 0 ]; then
    targets=("$@")
else
    targets=(cue ffmetadata mkv_xml mkv_simple mp4chaps audacity_labels simple_text sniffer)
fi

# The libraries under test, instrumented for coverage and sanitizers.
cmake -S "$root" -B "$build" -G Ninja \
    -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DFOLIVOX_BUILD_TESTS=OFF -DFOLIVOX_BUILD_BENCH=OFF \
    -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link $sanitize" >/dev/null
cmake --build "$build" -j2 --target folivox_sidecars >/dev/null

qt_cflags="$(pkg-config --cflags Qt6Core)"
qt_libs="$(pkg-config --libs Qt6Core Qt6DBus)"
libs=("$build/src/sidecars/libfolivox_sidecars.a" "$build/src/core/libfolivox_core.a"
      "$build/src/platform/libfolivox_platform.a")

seed() { # dir name content
    mkdir -p "$1"
    printf '%b' "$3" >"$1/$2"
}

write_seeds() { # target corpus-dir
    local d="$2"
    case "$1" in
    cue)
        seed "$d" a 'REM x\nPERFORMER "A"\nTITLE "B"\nFILE "book.mp3" MP3\n  TRACK 01 AUDIO\n    TITLE "One"\n    INDEX 00 00:00:00\n    INDEX 01 00:00:00\n  TRACK 02 AUDIO\n    INDEX 01 01:02:80\n'
        seed "$d" b 'FILE ../x.wav WAVE\r\nTRACK 1 AUDIO\r\nINDEX 01 14400:00:74\r\n' ;;
    ffmetadata)
        seed "$d" a ';FFMETADATA1\ntitle=Book\n[CHAPTER]\nTIMEBASE=1/44100\nSTART=0\nEND=441000\ntitle=One\n[STREAM]\n[CHAPTER]\nSTART=5\n' ;;
    mkv_xml)
        seed "$d" a '<?xml version="1.0"?>\n<Chapters><EditionEntry><ChapterAtom><ChapterTimeStart>00:00:01.5</ChapterTimeStart><ChapterTimeEnd>00:01:00.000000000</ChapterTimeEnd><ChapterDisplay><ChapterString>A &amp; B</ChapterString></ChapterDisplay></ChapterAtom></EditionEntry></Chapters>\n' ;;
    mkv_simple)
        seed "$d" a 'CHAPTER01=00:00:00.000\nCHAPTER01NAME=One\nCHAPTER002=01:00:00.500\n' ;;
    mp4chaps|simple_text)
        seed "$d" a '00:00:00.000 Intro\n0:01:02,5 Two\n12:34.56 Three\n[00:10] Four\n(1:00:00) - Five\n3. 00:40 Six\n# c\n'
        seed "$d" b '00:00 A\r\n01:00 B\u2028240:00:00.000 C\n' ;;
    audacity_labels)
        seed "$d" a '0.000000\t12.500000\tOne\n30.25\t30.25\n1e2\t2e2\tThree\n\\\t100\t200\n' ;;
    sniffer)
        seed "$d" a 'FILE "a.mp3" MP3\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n'
        seed "$d" b ';FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\n'
        seed "$d" c 'CHAPTER01=00:00:00.000\nCHAPTER01NAME=x\n'
        seed "$d" d '0\t1\tA\n' ;;
    esac
}

mkdir -p "$work/bin"
status=0
for t in "${targets[@]}"; do
    src="$here/${t}_fuzz.cpp"
    [ -f "$src" ] || { echo "no such target: $t" >&2; exit 2; }
    bin="$work/bin/${t}_fuzz"
    clang++ -std=c++20 -O1 -g -DQT_NO_KEYWORDS -fPIC -fsanitize=fuzzer $sanitize \
        -I"$root/src" -I"$here" $qt_cflags "$src" "${libs[@]}" $qt_libs -o "$bin"
    corpus="$work/corpus/$t"
    artifacts="$work/artifacts/$t/"
    mkdir -p "$corpus" "$artifacts"
    write_seeds "$t" "$corpus"
    echo "== $t: ${seconds}s"
    start=$(date +%s)
    if "$bin" "$corpus" -max_len=65536 -timeout=1 -max_total_time="$seconds" -rss_limit_mb=2048 \
        -artifact_prefix="$artifacts" -print_final_stats=1 >"$work/$t.log" 2>&1; then
        result="ok"
    else
        result="FAILED (see $work/$t.log and $artifacts)"
        status=1
    fi
    runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$work/$t.log" | grep -o '[0-9]*$' || echo "?")
    echo "   $result after $(( $(date +%s) - start ))s, $runs inputs, corpus $(ls "$corpus" | wc -l) files"
done
exit $status
