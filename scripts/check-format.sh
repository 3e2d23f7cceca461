#!/usr/bin/env bash
# Checks every C and C++ file the repository tracks against its .clang-format
# (clang-format 14, Debian's). Lists the files that differ and how to fix
# them; fails when there is one.
#   scripts/check-format.sh          check
#   scripts/check-format.sh --fix    rewrite the files that differ in place
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/bootstrap.sh clang-format-14 >/dev/null
fmt=clang-format-14
mapfile -t files < <(git ls-files '*.cpp' '*.cc' '*.c' '*.h' '*.hpp')
if [ "${1:-}" = "--fix" ]; then
  "$fmt" -i --style=file "${files[@]}"
  exit 0
fi
bad=()
for f in "${files[@]}"; do
  if ! "$fmt" --style=file --dry-run --Werror "$f" >/dev/null 2>&1; then
    bad+=("$f")
  fi
done
if [ ${#bad[@]} -ne 0 ]; then
  echo "format: ${#bad[@]} of ${#files[@]} files differ from .clang-format ($fmt):"
  printf '  %s\n' "${bad[@]}"
  echo "format: fix with scripts/check-format.sh --fix (or $fmt -i FILE)"
  exit 1
fi
echo "format: all ${#files[@]} files follow .clang-format"
