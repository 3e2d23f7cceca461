#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan) and runs each for a
# while from its checked-in corpus. Any crash, sanitizer report, leak or
# time-out fails the stage. Prints the executions of every target.
#   scripts/ci-fuzz.sh [SECONDS_PER_TARGET] [TARGET...]     (default 60, all)
# The targets are those of fuzz/targets.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  mapfile -t targets < <(grep -E '^[A-Za-z0-9_]' fuzz/targets.txt | awk '{print $1}')
fi

# clang 14 and its fuzzer runtime, only when missing.
scripts/bootstrap.sh clang libclang-rt-14-dev

build=build-fuzz
cmake -S . -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
  -DSENSOR_FUZZ=ON -DSENSOR_BUILD_TESTS=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j2 --target "${targets[@]}"

export ASAN_OPTIONS=detect_leaks=1:halt_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
status=0
summary=()
for t in "${targets[@]}"; do
  # The checked-in seeds stay as they are; what the run finds goes to a
  # scratch corpus beside the build.
  work="$build/corpus/$t"
  mkdir -p "$work" "$build/artifacts/$t"
  dict=()
  if [ -f "fuzz/dict/$t.dict" ]; then dict=(-dict="fuzz/dict/$t.dict"); fi
  log="$build/$t.log"
  echo "== $t: ${seconds}s"
  if "$build/fuzz/$t" "$work" "fuzz/corpus/$t" "${dict[@]}" -max_total_time="$seconds" \
      -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
      -artifact_prefix="$build/artifacts/$t/" >"$log" 2>&1; then
    result=ok
  else
    result=FAILED
    status=1
    grep -E "ERROR|runtime error|SUMMARY|Test unit written|artifact" "$log" | head -20 || true
  fi
  execs=$(grep -Eo 'stat::number_of_executed_units: *[0-9]+' "$log" | grep -Eo '[0-9]+$' || echo "?")
  rate=$(grep -Eo 'stat::average_exec_per_sec: *[0-9]+' "$log" | grep -Eo '[0-9]+$' || echo "?")
  summary+=("$t: $execs executions ($rate/s), $result")
done
echo "== fuzz summary"
printf '%s\n' "${summary[@]}"
exit $status
