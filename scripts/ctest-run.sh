#!/usr/bin/env bash
# Runs ctest with the given arguments; when tests fail, repeats what each
# failing test reported (its assertion lines and the watchdog's) at the very
# end, where a log cut to its last lines still shows why. Every run leaves a
# JUnit record of each test's outcome in BUILD_DIR/Testing/ctest-junit.xml
# (scripts/ctest-counts.sh counts it).
#   scripts/ctest-run.sh BUILD_DIR [ctest arguments...]
set -uo pipefail
build=$1
shift
junit="$(cd "$build" && pwd)/Testing/ctest-junit.xml"
mkdir -p "$(dirname "$junit")"
rm -f "$junit"
if ctest --test-dir "$build" --output-on-failure --output-junit "$junit" "$@"; then
    exit 0
fi
log="$build/Testing/Temporary/LastTest.log"
echo
echo "=== why the failing tests failed (from $log)"
if [ -f "$log" ]; then
    grep -E -A3 ': Failure$|^watchdog:|^(ERROR|WARNING): [A-Za-z]*Sanitizer|runtime error:|^\\[  FAILED  \\] [A-Z]' "$log" | head -n 120
fi
exit 1
