#!/usr/bin/env bash
# Runs a scripted sensorctl session and compares its output with the expected
# transcript.
#   run-session.sh SENSORCTL SESSION EXPECTED
# The session may hold a line "#! options: ..." (shell options) and lines
# "#! restart": the camera then stops and a new sensorctl process starts on
# the same (kept) device root, as after a power cycle.
# SENSORCTL_EMULATOR, when set, is the command that runs a cross-built sensorctl.
# Source line numbers in diagnostic headers read "line:N".
# SENSORCTL_UPDATE=1 writes the transcript instead of comparing (review it!).
set -euo pipefail
ctl=$1; session=$2; expected=$3
root=$(mktemp -d /tmp/sensorctl-session-XXXXXX)
work=$(mktemp -d /tmp/sensorctl-parts-XXXXXX)
trap 'rm -rf "$root" "$work"' EXIT

opts=$(sed -n 's/^#! options: //p' "$session" | head -n 1)
awk -v dir="$work" 'BEGIN { n = 0; f = dir "/part0" }
     /^#! restart/ { n++; f = dir "/part" n; next }
     { print > f }' "$session"

actual="$work/actual"
: > "$actual"
n=0
while [ -f "$work/part$n" ]; do
  [ $n -gt 0 ] && echo "#! restart" >> "$actual"
  # shellcheck disable=SC2086
  # Diagnostic headers name source lines; a transcript must not depend on them.
  # The device clock at noon: the light the ISP meters, and with it its
  # day/night state, never depend on when the session runs.
  ${SENSORCTL_EMULATOR:-} "$ctl" shell --root "$root" --keep --clock 12:00 $opts < "$work/part$n" 2>&1 |
    sed -E 's/( fun:[A-Za-z_0-9]+ line:)[0-9]+/\1N/' >> "$actual"
  n=$((n + 1))
done

if [ "${SENSORCTL_UPDATE:-}" = 1 ]; then
  cp "$actual" "$expected"
  echo "wrote $expected"
  exit 0
fi
diff -u "$expected" "$actual"
