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
extra=(chromium fonts-liberation)
command -v node >/dev/null || extra+=(nodejs)
command -v npm >/dev/null || extra+=(npm)
scripts/bootstrap.sh "${extra[@]}"

(cd tests/e2e && PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1 npm ci --no-audit --no-fund)

cmake -S . -B "$build" -DSENSOR_WERROR=ON
cmake --build "$build" -j"$(nproc)" --target sensorctl

log=$(mktemp /tmp/sensorctl-serve-XXXXXX.log)
pid=""
stop_server() {
  if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then
    kill -TERM "$pid"
    for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
    kill -0 "$pid" 2>/dev/null && kill -KILL "$pid"
  fi
  if [ -n "$pid" ]; then wait "$pid" 2>/dev/null || true; fi
  pid=""
}
cleanup() {
  stop_server
  rm -f "$log"
}
trap cleanup EXIT

# Scaled waits: the worker runs ten rounds a second, so a day/night switch
# shows within a moment.
SENSORCTL_DATA="$top/data/device" "$build/tools/sensorctl/sensorctl" serve --port 0 \
  --time-scale 0.1 >"$log" 2>&1 &
pid=$!
port=""
for _ in $(seq 300); do
  port=$(sed -n 's|.*listening on http://127\.0\.0\.1:\([0-9]*\)/.*|\1|p' "$log" | head -n1)
  [ -n "$port" ] && break
  kill -0 "$pid" 2>/dev/null || { cat "$log"; echo "ci-web: the server ended at start" >&2; exit 1; }
  sleep 0.1
done
if [ -z "$port" ]; then
  cat "$log"
  echo "ci-web: the server did not announce its port" >&2
  exit 1
fi
echo "ci-web: sensorctl serve on 127.0.0.1:$port"

status=0
(cd tests/e2e && SENSORCTL_URL="http://127.0.0.1:$port/" SCREENSHOT="$top/$build/web-console.png" \
  timeout 180 node console.e2e.mjs) || status=$?

# The server must end cleanly on SIGTERM too.
kill -TERM "$pid"
server_status=0
for _ in $(seq 100); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
if kill -0 "$pid" 2>/dev/null; then
  echo "ci-web: the server did not stop on SIGTERM" >&2
  server_status=1
else
  wait "$pid" || server_status=$?
  pid=""
fi
if [ "$status" -ne 0 ] || [ "$server_status" -ne 0 ]; then
  echo "ci-web: FAILED (e2e $status, server $server_status); the server's last output:" >&2
  tail -n 40 "$log" >&2
  exit 1
fi
echo "ci-web: passed"
