#!/usr/bin/env bash
# The library's rooms depend one way: diag -> keyval -> storage -> config ->
# controller. A file may include headers of its own room and of the rooms
# before it, never of a room after it; host/ headers and system headers are
# open to every room. Prints each include that climbs back up.
#   scripts/check-rooms.sh [SOURCE_DIR]
set -euo pipefail
cd "${1:-$(dirname "$0")/..}"
rooms=(diag keyval storage config controller)
rank() {
  local i
  for i in "${!rooms[@]}"; do
    [ "${rooms[$i]}" = "$1" ] && { echo "$i"; return; }
  done
  echo -1
}
bad=0
files=0
for room in "${rooms[@]}"; do
  mine=$(rank "$room")
  for f in "$room"/*.h "$room"/*.cpp; do
    [ -e "$f" ] || continue
    files=$((files + 1))
    while IFS=: read -r line text; do
      target=$(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([a-z]*\)\/.*/\1/p' <<<"$text")
      [ -n "$target" ] || continue
      theirs=$(rank "$target")
      if [ "$theirs" -gt "$mine" ]; then
        echo "$f:$line: $room includes $target, a room after it: ${text#"${text%%[![:space:]]*}"}"
        bad=1
      fi
    done < <(grep -n '#[[:space:]]*include[[:space:]]*"' "$f" || true)
  done
done
if [ "$files" -eq 0 ]; then
  echo "check-rooms: no library sources found under $PWD" >&2
  exit 2
fi
[ $bad -eq 0 ] && echo "rooms: $files files, every include looks down (${rooms[*]})"
exit $bad
