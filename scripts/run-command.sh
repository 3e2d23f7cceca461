#!/usr/bin/env bash
# Runs a command and compares its output (both streams) and exit status with
# the expected transcript.
#   run-command.sh EXPECTED COMMAND [ARGS...]
# SENSORCTL_UPDATE=1 writes the transcript instead of comparing (review it!).
set -uo pipefail
expected=$1; shift
actual=$(mktemp /tmp/sensorctl-command-XXXXXX)
trap 'rm -f "$actual"' EXIT
"$@" > "$actual" 2>&1
echo "exit $?" >> "$actual"
if [ "${SENSORCTL_UPDATE:-}" = 1 ]; then
  cp "$actual" "$expected"; echo "wrote $expected"; exit 0
fi
diff -u "$expected" "$actual"
