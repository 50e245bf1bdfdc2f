#!/usr/bin/env bash
# Builds the MP3 scan fuzz target with clang, libFuzzer and AddressSanitizer
# in its own build folder and runs it.
#   bench/fuzz/run-mp3-fuzz.sh [seconds] [jobs]
# Defaults: 600 seconds, 1 job, inputs up to 64 KiB, 1 s per input at most.
# Crashes and hangs land in build-fuzz/crashes/; the corpus grows in
# build-fuzz/corpus/container_mp3/.
# Each finding, once fixed, becomes a case in tests/data (see its README.md).
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
seconds="${1:-600}"
jobs="${2:-1}"
build="$root/build-fuzz"
corpus="$build/corpus/container_mp3"
mkdir -p "$corpus" "$build/crashes"

CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link,address" \
  -DFOLIVOX_FUZZ=ON -DFOLIVOX_BUILD_TESTS=OFF -DFOLIVOX_BUILD_BENCH=ON >/dev/null
cmake --build "$build" -j2 --target fuzz_container_mp3

# Seeds: short real MP3s from ffmpeg (MPEG 1, 2 and 2.5, CBR and VBR, tags).
if command -v ffmpeg >/dev/null && [ -z "$(ls -A "$corpus")" ]; then
  for spec in "44100 -b:a 32k" "22050 -b:a 16k" "8000 -b:a 8k" "44100 -q:a 4 -write_id3v1 1"; do
    read -r rate rest <<<"$spec"
    # shellcheck disable=SC2086
    ffmpeg -hide_banner -loglevel error -y -f lavfi -i "sine=duration=0.5:sample_rate=$rate" -ac 1 \
      -c:a libmp3lame $rest -metadata title=seed "$corpus/seed-$rate-$RANDOM.mp3" || true
  done
fi

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
args=("$corpus" -max_total_time="$seconds" -max_len=65536 -timeout=1 -artifact_prefix="$build/crashes/"
  -print_final_stats=1)
if [ "$jobs" -gt 1 ]; then
  cd "$build"
  args+=(-jobs="$jobs" -workers="$jobs")
fi
"$build/bin/fuzz_container_mp3" "${args[@]}"
