#!/usr/bin/env bash
# Counts the outcomes of the last scripts/ctest-run.sh in BUILD_DIR from its
# JUnit record: a test that skipped itself (GTEST_SKIP) or did not run is
# skipped, not passed.
#   scripts/ctest-counts.sh BUILD_DIR     prints "N passed, N failed, N skipped"
set -euo pipefail
junit="$1/Testing/ctest-junit.xml"
if [ ! -f "$junit" ]; then
  echo "ctest-counts: no $junit (run scripts/ctest-run.sh first)" >&2
  exit 1
fi
# One <testcase ... status="run|fail|notrun|disabled"> per test.
statuses=$(grep -o '<testcase [^>]*' "$junit" | grep -o 'status="[a-z]*"' || true)
passed=$(grep -c '"run"' <<<"$statuses" || true)
failed=$(grep -c '"fail"' <<<"$statuses" || true)
skipped=$(grep -cE '"(notrun|disabled)"' <<<"$statuses" || true)
echo "${passed} passed, ${failed} failed, ${skipped} skipped"
