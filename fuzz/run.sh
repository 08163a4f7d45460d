#!/usr/bin/env bash
# Called by `./dev fuzz`, which has built everything: runs every target for so many seconds, as many at once as there are
# processors, and prints a line for each. Fails on a finding. What the fuzzer learns stays in build/fuzz/corpus, inputs
# that fail in build/fuzz/findings, the output of each target in build/fuzz/log.
# usage: fuzz/run.sh SECONDS [TARGET...]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fuzz_one() { # SECONDS TARGET
  local seconds=$1 name=$2 build=build/fuzz failed=0
  local log=$build/log/$name.log findings=$build/findings/$name-
  mkdir -p "$build/corpus/$name" $build/log $build/findings
  rm -f "$findings"*
  "$build/bin/fuzz_$name" -max_total_time="$seconds" -timeout=10 -max_len=16384 -rss_limit_mb=1024 \
    -print_final_stats=1 -artifact_prefix="$findings" "$build/corpus/$name" "fuzz/seeds/$name" >"$log" 2>&1 || failed=1
  local runs coverage result
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  coverage=$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -n 1)
  result=$(find $build/findings -name "$name-*" -printf 'FINDING %p ')
  [ $failed = 0 ] || result=${result:-FAILED, see $log}
  printf '%-20s %9s runs %6s edges  %s\n' "$name" "${runs:-?}" "${coverage:-?}" "${result:-nothing found}"
  return $failed
}
export -f fuzz_one
# Files that are written by the thousand belong into memory.
if [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi

seconds=$1; shift
if [ $# = 0 ]; then
  for seeds in fuzz/seeds/*/; do set -- "$@" "$(basename "$seeds")"; done
fi
printf '%s\n' "$@" | xargs -P "$(nproc)" -I{} bash -c "fuzz_one $seconds {}"
