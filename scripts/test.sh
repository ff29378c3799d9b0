#!/usr/bin/env bash
# Builds and runs the whole test suite: a Release build, a Debug build under AddressSanitizer and
# UndefinedBehaviorSanitizer, a ThreadSanitizer build of the operation tests, and a short fuzz run.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
jobs=$(nproc)

echo "== Release build"
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DCINEDNG_BENCH=ON >/dev/null
cmake --build build/release -j"$jobs"
(cd build/release && ctest --output-on-failure -j"$jobs")

echo "== Debug build with AddressSanitizer and UndefinedBehaviorSanitizer"
cmake -S . -B build/asan -DCMAKE_BUILD_TYPE=Debug -DCINEDNG_SANITIZE=ON >/dev/null
cmake --build build/asan -j"$jobs"
(cd build/asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure -j"$jobs")

if [ -d tests/ops ]; then
  echo "== ThreadSanitizer build of the operation tests"
  cmake -S . -B build/tsan -DCMAKE_BUILD_TYPE=Debug -DCINEDNG_TSAN=ON >/dev/null
  cmake --build build/tsan -j"$jobs" --target tests_ops
  (cd build/tsan && TSAN_OPTIONS=halt_on_error=1 ctest --output-on-failure -j"$jobs" -L ops)
fi

if [ -f fuzz/run.sh ]; then
  echo "== Short fuzz run"
  FUZZ_SECONDS="${FUZZ_SECONDS:-60}" bash fuzz/run.sh
fi
echo "== All test stages passed"
