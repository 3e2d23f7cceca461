#!/usr/bin/env bash
# The main job: install what is missing, build, and start the simulated
# camera's guided tour on a fresh copy of the sample device tree.
#   scripts/demo.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
scripts/bootstrap.sh
cmake -S . -B "$build" >/dev/null
cmake --build "$build" -j"$(nproc)" --target sensorctl
exec "$build/tools/sensorctl/sensorctl" demo
