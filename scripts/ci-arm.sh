#!/usr/bin/env bash
# CI for the cameras' target, 32-bit ARM hard-float, on a PC: installs what
# is missing, cross-builds the library, the simulated host, the tests and
# sensorctl (warnings are errors), runs the whole ctest suite under qemu-arm
# (record layouts, scheme-file bytes and the installed package included),
# then reports the stripped library's size and dependencies.
#   scripts/ci-arm.sh [BUILD_DIR]      (default build-armhf)
# Exits non-zero, saying why, whenever something could not run: a missing
# toolchain is never a pass.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-armhf}
toolchain=$PWD/cmake/toolchain-armhf.cmake
jobs=$(nproc)

if ! scripts/bootstrap-arm.sh; then
  echo "ci-arm: FAILED: the cross toolchain, qemu-arm or the armhf libraries could not be" \
       "installed (see above); nothing was built or tested" >&2
  exit 1
fi

if [ -f "$build/CMakeCache.txt" ] && ! grep -q '^CMAKE_TOOLCHAIN_FILE:.*toolchain-armhf\.cmake$' "$build/CMakeCache.txt"; then
  echo "ci-arm: FAILED: $build was configured without the ARM toolchain file; use another directory" >&2
  exit 1
fi
cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DSENSOR_WERROR=ON
cmake --build "$build" -j"$jobs"

# The programs under test must be ARM ones, run through the emulator.
for f in "$build/tests/sensor_tests" "$build/tools/sensorctl/sensorctl"; do
  readelf -h "$f" | grep -q 'Machine: *ARM$' || { echo "ci-arm: FAILED: $f is not an ARM program" >&2; exit 1; }
done
count=$(ctest --test-dir "$build" -N | sed -n 's/^Total Tests: //p')
if [ -z "$count" ] || [ "$count" -lt 600 ]; then
  echo "ci-arm: FAILED: only '${count:-no}' tests registered; discovery under qemu-arm failed?" >&2
  exit 1
fi

start=$(date +%s)
# A test that the emulator leaves hanging (its own bound, 120 s) runs once
# more; a failure, or a second hang, fails the stage. See docs/arm.md.
scripts/ctest-run.sh "$build" -j"$jobs" --timeout 300 --repeat after-timeout:2
echo "ci-arm: $count tests passed under qemu-arm in $(( $(date +%s) - start )) s (-j$jobs)"

scripts/arm-size-report.sh "$build/libsensor.so"
