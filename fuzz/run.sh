#!/usr/bin/env bash
# Builds the libFuzzer targets (the TIFF parser and DNG tag reader; the in-memory decoding of a whole
# frame) with AddressSanitizer and UndefinedBehaviorSanitizer, and runs each for ${FUZZ_SECONDS:-60}
# seconds. The sample frames and a few
# frames made by the frame builder (big-endian, sub-IFDs, every field type) are the starting corpus
# (in build/fuzz/corpus, where the fuzzer also keeps the inputs it finds).
# A crash, a sanitizer report or a leak stops the run with a non-zero exit and leaves the input that
# caused it in build/fuzz/artifacts/.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/fuzz
seconds="${FUZZ_SECONDS:-60}"

cmake -S . -B "$build" \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_FLAGS="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer" \
  -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer" \
  -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
  -DCINEDNG_FUZZ=ON -DCINEDNG_TESTS=OFF -DCINEDNG_BENCH=OFF -DCINEDNG_ASSERT_THROWS=ON \
  -DCINEDNG_PARTS="core;tiff;exr;color;raw;host" >/dev/null
cmake --build "$build" -j"$(nproc)" --target fuzz_readAllTags fuzz_decodeFrame make_corpus

corpus="$build/corpus"
artifacts="$build/artifacts"
mkdir -p "$corpus" "$artifacts"
samples="$(pwd)/../shared/samples"
if compgen -G "$samples/*.dng" >/dev/null; then
  cp -f "$samples"/*.dng "$corpus"/
else
  echo "fuzz/run.sh: no sample frames at $samples"
fi
"$build/fuzz/make_corpus" "$corpus"

for target in fuzz_readAllTags fuzz_decodeFrame; do
  echo "== $target for ${seconds}s"
  "$build/fuzz/$target" \
    -max_total_time="$seconds" -max_len=16384 -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$artifacts/" -print_final_stats=1 "$corpus"
done
