#!/usr/bin/env bash
# The hardening measures at CI strength, beyond what the normal suite runs:
#   - 1000 power cuts of a controller saving and resetting (normal build);
#   - 1000 factory resets with flat heap and resident size (normal build),
#     and again under AddressSanitizer with LeakSanitizer's check at exit;
#   - the fault-injection tests under AddressSanitizer + UBSan;
#   - the concurrency stress for 5 s under ThreadSanitizer.
# Builds in the same folders as scripts/test.sh and scripts/sanitize.sh, so a
# CI run that already built them only relinks. Prints every case count.
#   scripts/ci-hardening.sh
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/bootstrap.sh

cuts=${SENSOR_POWER_CUTS:-1000}
cycles=${SENSOR_RESET_CYCLES:-1000}
stress_ms=${SENSOR_STRESS_MS:-5000}
log=$(mktemp)
trap 'rm -f "$log"' EXIT

build() { # dir, extra cmake options...
  local dir=$1
  shift
  cmake -S . -B "$dir" -DSENSOR_WERROR=ON "$@" >/dev/null
  cmake --build "$dir" -j2 --target sensor_tests
}
run() { # what, binary, gtest filter (environment as given)
  echo "== $1"
  "$2" --gtest_filter="$3" --gtest_brief=1 2>&1 | tee -a "$log" | grep -E '^\[ hardening \]|FAILED|ERROR|WARNING: ThreadSanitizer|LeakSanitizer' || true
  return "${PIPESTATUS[0]}"
}

export ASAN_OPTIONS=detect_leaks=1:halt_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1

build build
SENSOR_POWER_CUTS=$cuts run "power cuts ($cuts)" build/tests/sensor_tests 'ControllerPowerCut.*'
SENSOR_RESET_CYCLES=$cycles run "reset cycles ($cycles)" build/tests/sensor_tests 'ResetResources.*'

build build-address -DSENSOR_SANITIZE=address -DCMAKE_BUILD_TYPE=Debug
SENSOR_RESET_CYCLES=$cycles run "reset cycles ($cycles) under LeakSanitizer" \
  build-address/tests/sensor_tests 'ResetResources.*'
run "fault injection under ASan+UBSan" build-address/tests/sensor_tests \
  'IspFault.*:DeviceFileFault.*:FlashFault.*:SchemeLayout.*'

build build-thread -DSENSOR_SANITIZE=thread -DCMAKE_BUILD_TYPE=Debug
SENSOR_STRESS_MS=$stress_ms run "stress ${stress_ms} ms under ThreadSanitizer" \
  build-thread/tests/sensor_tests 'ConcurrencyStress.*'

echo "== hardening summary"
grep -E '^\[ hardening \]' "$log"
