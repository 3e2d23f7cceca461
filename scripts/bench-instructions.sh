#!/usr/bin/env bash
# Counts the instructions of one start-up (init + uinit) and of one replay of
# the work it is prescribed (its four parses with the library's untracked
# parse, two prints, decisions and ISP calls), under callgrind. Unlike the
# timings of scripts/bench.sh, the counts do not move with the machine's load;
# they leave out what instructions do not show (system calls' kernel time,
# cache misses).
#   scripts/bench-instructions.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-bench}
scripts/bootstrap.sh valgrind
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DSENSOR_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" --target sensor sensorsim sensor_bench >/dev/null

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

# Instructions per run of one side: callgrind collects only inside the
# function that makes its fixed runs.
count() {
  local name=$1 function=$2
  valgrind --tool=callgrind --callgrind-out-file="$out/$name.out" \
    --toggle-collect="*$function*" \
    "$build/bench/sensor_bench" --benchmark_filter="^instructions/$name/" \
    >"$out/$name.stdout" 2>"$out/$name.stderr"
  local runs collected
  runs=$(awk '/^instructions\//{print $NF; exit}' "$out/$name.stdout")
  collected=$(sed -n 's/.*Collected : \([0-9]*\).*/\1/p' "$out/$name.stderr")
  if [ -z "$runs" ] || [ -z "$collected" ] || [ "$collected" -eq 0 ]; then
    echo "bench-instructions: no count for $name" >&2
    cat "$out/$name.stderr" >&2
    exit 1
  fi
  echo $((collected / runs))
}

startup=$(count init_uinit instructionsOfStartUps)
replay=$(count init_replay_untracked instructionsOfReplays)
echo "instructions per start-up (init + uinit):              $startup"
echo "instructions per replay of its prescribed work:        $replay"
awk -v s="$startup" -v r="$replay" 'BEGIN { printf "start-up / prescribed work:                          %.3f\n", s / r }'
