#!/usr/bin/env bash
# What others read in the image: how it is run and checked, as whom, where its data is, what it is; and how large it is.
#   inspect.sh IMAGE_FILE
set -euo pipefail
image=$1
[ -e "$image" ] || { echo "there is no image"; exit 77; }
command -v skopeo >/dev/null || { echo "skopeo is not installed"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*" >&2; exit 1; }

skopeo inspect --config --raw "docker-archive:$image" >"$work/config"
is() { # QUERY VALUE
  local found
  found=$(jq -c "$1" "$work/config")
  [ "$found" = "$2" ] || fail "$1 is $found, not $2"
}
is .config.User '"10001:10001"'
is .config.Volumes '{"/data":{}}'
is .config.Entrypoint '["/usr/bin/tini","-s","--","/usr/bin/tarvex","--root","/data/tree"]'
is .config.Cmd '["serve"]'
is .config.StopSignal '"SIGTERM"'
is .config.Healthcheck.Test '["CMD","/usr/bin/tarvex","--root","/data/tree","health"]'
is '.config.Labels | keys' "[$(printf '"org.opencontainers.image.%s",' created description revision title version | sed 's/,$//')]"
is '.created == .config.Labels["org.opencontainers.image.created"]' true

tar -xf "$image" -C "$work"
layer=$(jq -r '.[0].Layers[0]' "$work/manifest.json")
size=$(gzip -nc "$work/$layer" | wc -c)
[ "$size" -lt 17000000 ] || fail "the image takes $size bytes in a registry"
tar -tvf "$work/$layer" >"$work/files"
grep -E '^-..[sS]|^-.....[sS]' "$work/files" && fail "a program changes its user"
grep -E ' (\./)?(usr/)?bin/(ba|da)?sh$' "$work/files" && fail "there is a shell"
awk '$1 ~ /^[-d].......w/ && $6 !~ /^(\.\/)?tmp\/$/' "$work/files" | grep . && fail "everybody may write there"
awk '$2 != "0/0"' "$work/files" | grep -vE ' 10001/10001 .* (\./)?data/$' && fail "other users own something"
for library in libssl3 libc6 ca-certificates tzdata; do
  tar -xOf "$work/$layer" --wildcards "*var/lib/dpkg/status.d/$library" | grep -q '^Version: [0-9]' || fail "$library is not noted"
done
echo "$size bytes in a registry, $(wc -l <"$work/files") files"
