#!/usr/bin/env bash
# Builds the container fuzz target with clang, libFuzzer and AddressSanitizer
# in its own build folder and runs it.
#   bench/fuzz/run-container-fuzz.sh [seconds] [jobs]
# Defaults: 600 seconds, 1 job. Crashes land in build-fuzz/crashes/; the
# corpus grows in build-fuzz/corpus/container_mp4/.
# Each finding, once fixed, becomes a case in tests/data (see its README.md).
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
seconds="${1:-600}"
jobs="${2:-1}"
build="$root/build-fuzz"
corpus="$build/corpus/container_mp4"
mkdir -p "$corpus" "$build/crashes"

CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link,address" \
  -DFOLIVOX_FUZZ=ON -DFOLIVOX_BUILD_TESTS=OFF -DFOLIVOX_BUILD_BENCH=ON >/dev/null
cmake --build "$build" -j2 --target fuzz_container_mp4

# Seeds: small real files from ffmpeg when it is there.
if command -v ffmpeg >/dev/null && [ -z "$(ls -A "$corpus")" ]; then
  for flags in "" "-movflags +faststart"; do
    # shellcheck disable=SC2086
    ffmpeg -hide_banner -loglevel error -y -f lavfi -i sine=duration=0.2 -c:a aac -b:a 32k $flags -f ipod \
      "$corpus/seed$RANDOM.m4a" || true
  done
fi

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
args=("$corpus" -max_total_time="$seconds" -max_len=65536 -artifact_prefix="$build/crashes/" -print_final_stats=1)
if [ "$jobs" -gt 1 ]; then
  # Parallel workers write fuzz-N.log into the current folder: keep them in the build folder.
  cd "$build"
  args+=(-jobs="$jobs" -workers="$jobs")
fi
"$build/bin/fuzz_container_mp4" "${args[@]}"
