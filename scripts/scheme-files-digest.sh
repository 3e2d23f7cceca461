#!/usr/bin/env bash
# Runs a sensorctl session on a fresh device root and prints the name, size
# and SHA-256 of every file it left under config_file/ (scheme files and the
# version stamp), so that two targets can be compared byte for byte.
#   scheme-files-digest.sh SENSORCTL SESSION [EXPECTED]
# With EXPECTED, compares with it and, on a difference, decodes the files.
# SENSORCTL_EMULATOR, when set, is the command that runs a cross-built sensorctl.
# SENSORCTL_UPDATE=1 writes EXPECTED instead of comparing.
set -euo pipefail
ctl=$1; session=$2; expected=${3:-}
root=$(mktemp -d /tmp/scheme-files-XXXXXX)
trap 'rm -rf "$root"' EXIT

# shellcheck disable=SC2086
${SENSORCTL_EMULATOR:-} "$ctl" shell --root "$root" --keep < "$session" > "$root/transcript" 2>&1 || {
  cat "$root/transcript"; echo "scheme-files-digest: the session failed" >&2; exit 1; }
dir="$root/mnt/mtd/code/config_file"
digest=$(cd "$dir" && for f in $(ls | LC_ALL=C sort); do
  printf '%s %s %s\n' "$f" "$(stat -c %s "$f")" "$(sha256sum < "$f" | cut -d' ' -f1)"
done)

if [ -z "$expected" ]; then echo "$digest"; exit 0; fi
if [ "${SENSORCTL_UPDATE:-}" = 1 ]; then
  echo "$digest" > "$expected"; echo "wrote $expected"; exit 0
fi
if ! diff -u "$expected" - <<<"$digest"; then
  for f in "$dir"/sensor*.cfg; do
    echo "== $(basename "$f")"
    # shellcheck disable=SC2086
    ${SENSORCTL_EMULATOR:-} "$ctl" dump "$f" || true
  done
  exit 1
fi
echo "scheme files: $(wc -l <<<"$digest") files as expected"
