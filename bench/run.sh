#!/usr/bin/env bash
# Called by `./dev bench`, which has built everything: forwarding beside other programs, what a service needs, then the
# single pieces. Options go to forwarding_speed: --quick for fewer rounds. After the word scale, only what services take
# as trees grow; options and sizes go to scale.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../build/bench/bin"

if [ "${1-}" = scale ]; then
  shift
  exec ./scale "$@"
fi
./forwarding_speed "$@"
printf '\nrules_cost\n'
./rules_cost
printf '\nhistory_cost\n'
./history_cost
printf '\npop_tls_speed\n'
./pop_tls_speed
printf '\nservice_size\n'
./service_size
for benchmark in ./*_bench; do
  [ -x "$benchmark" ] || continue
  printf '\n%s\n' "${benchmark#./}"
  "$benchmark"
done
