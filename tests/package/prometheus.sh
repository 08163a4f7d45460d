#!/usr/bin/env bash
# Prometheus understands the figures, and the alerts fire when they should and not else.
#   prometheus.sh TARVEX SOURCE_FOLDER
set -euo pipefail
tarvex=$1 source=$2
command -v promtool >/dev/null || { echo "promtool is not installed"; exit 77; }

work=$(mktemp -d)
service='' prometheus=''
stop() { for process in $service $prometheus; do kill "$process" 2>/dev/null && wait "$process" || true; done; rm -rf "$work"; }
trap stop EXIT
fail() { echo "$*" >&2; exit 1; }
# Waits until a line that fits stands in the file, and prints it.
line() { for _ in {1..200}; do grep -m1 -E "$2" "$1" && return; sleep 0.1; done; cat "$1" >&2; fail "no \"$2\" in $1"; }

cp "$source"/packaging/prometheus/tarvex.rules.yml "$source"/tests/package/alerts.yml "$work"
(cd "$work" && promtool test rules alerts.yml)

# A tree with one profile, whose servers nobody is.
tarvex() { "$tarvex" --root "$work/tree" "$@"; }
tarvex init >"$work/log"
tarvex user add taro >"$work/log"
echo secret | tarvex profile add taro me@example.org --popserver 127.0.0.1 --popport 1 --popuser me --password-stdin \
  --plain --timer always >"$work/log" 2>&1 || { cat "$work/log"; fail "there is no profile"; }
tarvex forward add me@example.org phone@example.net --all-mail >"$work/log" 2>&1 || { cat "$work/log"; fail "no address"; }
tarvex run >"$work/log" 2>&1 && fail "a run without a server went well"

tarvex metrics >"$work/metrics"
said=$(promtool check metrics <"$work/metrics" 2>&1) || fail "promtool: $said"
[ -z "$said" ] || fail "promtool: $said"
grep -q '^tarvex_refusals_total{profile="user0/from0",stage="connect",class="connection"} 1$' "$work/metrics" || fail "no refusal"
for name in $(grep -ohE 'tarvex_[a-z_]+' "$source"/packaging/prometheus/tarvex.{rules.yml,dashboard.json} | sort -u); do
  grep -qE "^$name[{ ]" "$work/metrics" || fail "there is no $name"
done

# A Prometheus that scrapes the service.
"$tarvex" --root "$work/tree" serve --metrics 127.0.0.1:0 >"$work/service" 2>&1 &
service=$!
place=$(line "$work/service" 'serving metrics on ' | sed -E 's|.*http://([^/]*)/.*|\1|')
cat >"$work/prometheus.yml" <<END
global: {scrape_interval: 200ms, evaluation_interval: 200ms}
rule_files: [tarvex.rules.yml]
scrape_configs: [{job_name: tarvex, static_configs: [{targets: ["$place"]}]}]
END
prometheus --config.file="$work/prometheus.yml" --storage.tsdb.path="$work/data" --web.listen-address=127.0.0.1:0 \
  >"$work/prometheus" 2>&1 &
prometheus=$!
server=http://$(line "$work/prometheus" 'msg="Listening on"' | sed -E 's/.*address=([^ ]*).*/\1/')
for _ in {1..200}; do
  found=$(promtool query instant "$server" 'tarvex_tree_refusals_total{stage="connect"}' 2>&1) || true
  [[ $found == *'class="connection"'* ]] && break
  sleep 0.1
done
[[ $found == *'class="connection"'* ]] || fail "Prometheus has no figures: $found"
[[ $(promtool query instant "$server" up) == *'=> 1 '* ]] || fail "Prometheus says that the service is not up"
echo "Prometheus has the figures."
