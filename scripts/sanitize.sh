#!/usr/bin/env bash
# Builds and runs the whole suite under a sanitizer; any report fails it.
#   scripts/sanitize.sh address   AddressSanitizer + UndefinedBehaviorSanitizer
#   scripts/sanitize.sh thread    ThreadSanitizer
set -euo pipefail
cd "$(dirname "$0")/.."
kind=${1:?usage: sanitize.sh address|thread}
build=build-$kind
scripts/bootstrap.sh
cmake -S . -B "$build" -DSENSOR_WERROR=ON -DSENSOR_SANITIZE="$kind" -DCMAKE_BUILD_TYPE=Debug
cmake --build "$build" -j"$(nproc)"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:halt_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
scripts/ctest-run.sh "$build" -j"$(nproc)"
