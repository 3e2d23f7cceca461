#!/usr/bin/env bash
# Runs a command and compares its output (both streams) and exit status with
# the expected transcript. An expected file named *.xml is a document the
# command prints: the output alone is compared, and the command must succeed.
#   run-command.sh EXPECTED COMMAND [ARGS...]
# SENSORCTL_UPDATE=1 writes the transcript instead of comparing (review it!).
set -uo pipefail
expected=$1; shift
actual=$(mktemp /tmp/sensorctl-command-XXXXXX)
trap 'rm -f "$actual"' EXIT
"$@" > "$actual" 2>&1
status=$?
case "$expected" in
  *.xml)
    if [ $status -ne 0 ]; then
      cat "$actual"; echo "run-command: exit $status" >&2; exit 1
    fi ;;
  *) echo "exit $status" >> "$actual" ;;
esac
if [ "${SENSORCTL_UPDATE:-}" = 1 ]; then
  cp "$actual" "$expected"; echo "wrote $expected"; exit 0
fi
diff -u "$expected" "$actual"
