#!/usr/bin/env bash
# Called by `./dev bench`, which has built everything: forwarding beside other programs, then the single pieces.
# Options go to forwarding_speed: --quick for fewer rounds.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../build/bench/bin"

./forwarding_speed "$@"
for benchmark in ./*_bench; do
  [ -x "$benchmark" ] || continue
  printf '\n%s\n' "${benchmark#./}"
  "$benchmark"
done
