#!/usr/bin/env bash
# The ONVIF services of `sensorctl serve` end to end on a fresh machine, with
# third-party ONVIF clients: installs what is missing (Node from Debian, the
# npm `onvif` client from the lock file, Debian's python3-zeep and
# python3-lxml), builds sensorctl and the tests, starts `sensorctl serve` with
# ONVIF credentials on a free loopback port, drives it with the npm client
# (tests/e2e/onvif.e2e.mjs) and with zeep built from the official WSDLs, every
# answer validated against the official schemas
# (tests/conformance/onvif_zeep.py; the standards at ../shared/onvif or
# ONVIF_REFERENCE), then with ONVIF's published Imaging conformance cases
# (tests/conformance/imaging_cases.py) against the same
# server, stops the server, then runs the load test at CI length
# (16 clients, ONVIF_LOAD_SECONDS, default 20). Fails on any failure.
#   scripts/ci-onvif.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
top=$(pwd)
build=${1:-build}

extra=(libssl-dev python3-zeep python3-lxml)
command -v node >/dev/null || extra+=(nodejs)
command -v npm >/dev/null || extra+=(npm)
scripts/bootstrap.sh "${extra[@]}"

(cd tests/e2e && PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1 npm ci --no-audit --no-fund)

cmake -S . -B "$build" -DSENSOR_WERROR=ON
cmake --build "$build" -j"$(nproc)" --target sensorctl sensor_tests

user=admin
# A fresh password each run: nothing in the tree knows it.
password="e2e-$(od -An -N9 -tx1 /dev/urandom | tr -d ' \n')"

source scripts/serve-e2e.sh
# A camera with a motorised lens, so that focus moves reach the ISP.
serve_start ci-onvif "$build" \
  --time-scale 0.1 --detail "(sensor=IMX327)(lens=motor)(max_scheme=4)(isInfrared=1)" \
  --onvif-user "$user" --onvif-password "$password" --user "viewer:$password-v:User"
port=$serve_port

status=0
(cd tests/e2e && SENSORCTL_URL="http://127.0.0.1:$port/" ONVIF_USER="$user" \
  ONVIF_PASSWORD="$password" ONVIF_VIEWER_PASSWORD="$password-v" timeout 180 node onvif.e2e.mjs) ||
  status=$?

# Debian's python3-zeep lives beside the system's python3. A skip (77: zeep
# or lxml missing) proves nothing here, so any status but 0 fails.
if [ "$status" -eq 0 ]; then
  timeout 300 /usr/bin/python3 tests/conformance/onvif_zeep.py \
    --url "http://127.0.0.1:$port" --user "$user" --password "$password" || status=$?
fi
# ONVIF's Imaging conformance cases, all against this server.
if [ "$status" -eq 0 ]; then
  timeout 600 /usr/bin/python3 tests/conformance/imaging_cases.py \
    --url "http://127.0.0.1:$port" --user "$user" --password "$password" || status=$?
fi

serve_finish ci-onvif "$status"
echo "ci-onvif: the ONVIF clients passed"

# ONVIF's Base device conformance cases for discovery and security, each
# against a serve of its own (unicast Probes to 127.0.0.1 only); here too a
# skip fails.
timeout 600 /usr/bin/python3 tests/conformance/discovery_security_cases.py \
  --sensorctl "$build/tools/sensorctl/sensorctl"
echo "ci-onvif: ONVIF's Base discovery and security conformance cases passed"

# The load test at CI length; the ordinary suite runs it for a few seconds.
load_log=$(mktemp /tmp/onvif-load-XXXXXX.log)
load_status=0
ONVIF_LOAD_SECONDS=${ONVIF_LOAD_SECONDS:-20} timeout 300 "$build/tests/sensor_tests" \
  --gtest_filter='OnvifLoad.*' --gtest_color=no >"$load_log" 2>&1 ||
  load_status=$?
grep -E '^onvif load:|Failure|beside|answered|FAILED|PASSED|OK \]' "$load_log" | head -n 40
# A test that skipped (no ONVIF in this build) proves nothing.
if [ "$load_status" -ne 0 ] || ! grep -q '^\[  PASSED  \] 1 test' "$load_log" ||
   grep -q 'SKIPPED' "$load_log"; then
  rm -f "$load_log"
  echo "ci-onvif: the load test FAILED" >&2
  exit 1
fi
rm -f "$load_log"
echo "ci-onvif: passed"
