#!/usr/bin/env bash
# Installs what is missing, configures, builds and runs the whole test suite.
#   scripts/test.sh [BUILD_DIR] [extra cmake arguments...]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
shift || true
# libclang-rt-14-dev: the one header two fuzz targets need for the replay of
# their corpus in the suite.
scripts/bootstrap.sh libclang-rt-14-dev
cmake -S . -B "$build" -DSENSOR_WERROR=ON "$@"
cmake --build "$build" -j"$(nproc)"
scripts/ctest-run.sh "$build" -j"$(nproc)"
