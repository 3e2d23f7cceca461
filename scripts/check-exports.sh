#!/usr/bin/env bash
# libsensor.so exports its entry points and nothing else: every defined
# dynamic symbol must be named in the list, and every plain name in the list
# must be exported (a stale list checks nothing).
#   check-exports.sh libsensor.so exported-symbols.txt
set -euo pipefail
lib=${1:?usage: check-exports.sh LIB LIST}; list=${2:?usage: check-exports.sh LIB LIST}
# Names without arguments or ABI tags: the same on 32- and 64-bit targets.
names=$(nm -D --defined-only -C "$lib" | cut -d' ' -f3- |
        sed -E 's/\[abi:[a-z0-9]+\]//g; s/\(.*$//; s/ +$//' | LC_ALL=C sort -u)
allowed=$(grep -vE '^(#|$)' "$list")
bad=0
while IFS= read -r name; do
  ok=0
  while IFS= read -r entry; do
    if [[ $entry == *'*' ]]; then [[ $name == "${entry%\*}"* ]] && { ok=1; break; }
    elif [[ $name == "$entry" ]]; then ok=1; break; fi
  done <<<"$allowed"
  [ $ok -eq 1 ] || { echo "exported but not an entry point: $name"; bad=1; }
done <<<"$names"
while IFS= read -r entry; do
  [[ $entry == *'*' ]] && continue
  grep -qxF "$entry" <<<"$names" || { echo "listed but not exported: $entry"; bad=1; }
done <<<"$allowed"
[ $bad -eq 0 ] && echo "exports: $(wc -l <<<"$names") names, all listed entry points"
exit $bad
