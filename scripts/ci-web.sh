#!/usr/bin/env bash
# The web console end to end on a fresh machine: installs what is missing
# (Chromium and Node from Debian, playwright-core from the lock file), builds
# sensorctl, starts `sensorctl serve` on a free loopback port, drives the page
# in headless Chromium, stops the server. Fails on any failure.
#   scripts/ci-web.sh [BUILD_DIR]
# The page's screenshot is left in BUILD_DIR/web-console.png.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$(pwd)
build=${1:-build}

# Without fonts Chromium draws no text: the screenshot needs them.
extra=(chromium fonts-liberation ffmpeg)
command -v node >/dev/null || extra+=(nodejs)
command -v npm >/dev/null || extra+=(npm)
scripts/bootstrap.sh "${extra[@]}"

(cd tests/e2e && PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1 npm ci --no-audit --no-fund)

cmake -S . -B "$build" -DSENSOR_WERROR=ON
cmake --build "$build" -j"$(nproc)" --target sensorctl

# The picture through ffprobe and ffmpeg, which this stage installs.
(cd "$build" && ctest -R '^sensorctl_picture_decodes_in_ffmpeg$' --output-on-failure)

source scripts/serve-e2e.sh
# Scaled waits: the worker runs ten rounds a second, so a day/night switch
# shows within a moment.
serve_start ci-web "$build" \
  --time-scale 0.1
port=$serve_port

status=0
(cd tests/e2e && SENSORCTL_URL="http://127.0.0.1:$port/" SCREENSHOT="$top/$build/web-console.png" \
  timeout 180 node console.e2e.mjs) || status=$?

serve_finish ci-web "$status"
echo "ci-web: passed"
