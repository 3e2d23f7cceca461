#!/usr/bin/env bash
# Builds Release and runs the benchmarks: every figure beside its floor, the
# ratios from the same run, the ONVIF imaging service over loopback beside a
# SOAP echo, the heap after start-up and the stripped library.
#   scripts/bench.sh [BUILD_DIR] [extra sensor_bench arguments...]
# SENSOR_BENCH_REPETITIONS (default 5) sets the repetitions whose medians are
# compared; SENSOR_BENCH_IDLE_SECONDS (default 8) the idle worker's measure.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-bench}
shift || true
scripts/bootstrap.sh
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DSENSOR_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" --target sensor sensorsim sensor_bench sensor_heap >/dev/null
# The ONVIF benchmark needs sensorctl's ONVIF services (cpp-httplib, libcrypto).
onvif_bench=0
if cmake --build "$build" -j"$(nproc)" --target onvif_bench >/dev/null 2>&1; then onvif_bench=1; fi
# So does the WS-Discovery benchmark (its discovery service).
discovery_bench=0
if cmake --build "$build" -j"$(nproc)" --target discovery_bench >/dev/null 2>&1; then discovery_bench=1; fi

reps=${SENSOR_BENCH_REPETITIONS:-5}
echo "== sensor_bench ($reps repetitions, medians) on $(nproc) cores, $(uname -r)"
"$build/bench/sensor_bench" --benchmark_repetitions="$reps" \
  --benchmark_report_aggregates_only=true "$@"

if [ "$onvif_bench" -eq 1 ]; then
  echo
  echo "== onvif_bench ($reps repetitions, medians): the imaging service over loopback vs a SOAP echo"
  "$build/bench/onvif_bench" --benchmark_repetitions="$reps" --benchmark_report_aggregates_only=true
fi

if [ "$discovery_bench" -eq 1 ]; then
  echo
  echo "== discovery_bench ($reps repetitions, medians): a Probe over loopback UDP vs a UDP echo"
  "$build/bench/discovery_bench" --benchmark_repetitions="$reps" --benchmark_report_aggregates_only=true
fi

echo
echo "== sensor_heap"
"$build/bench/sensor_heap"

echo
lib=$(readlink -f "$build/libsensor.so")
stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
strip --strip-all -o "$stripped" "$lib"
echo "== libsensor.so: $(stat -c %s "$lib") bytes as built, $(stat -c %s "$stripped") bytes stripped"
