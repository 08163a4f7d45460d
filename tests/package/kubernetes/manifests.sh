#!/usr/bin/env bash
# The manifests for Kubernetes are right by its schemas, and fit the image.
#   manifests.sh SOURCE_FOLDER FOLDER_OF_SCHEMAS
set -euo pipefail
source=$1/packaging/kubernetes schemas=$2
command -v node >/dev/null || { echo "node is not installed"; exit 77; }
[ -e "$schemas/fetched" ] || { echo "Kubernetes's schemas are not there: tests/npm_packages.sh $schemas tests/package/kubernetes"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*" >&2; exit 1; }
check() { node "$(dirname "$0")/check.js" "$schemas" "$@"; }

check "$source"/{tarvex,metrics}.yaml
check "$source"/tarvex.yaml --patch "$source"/metrics-patch.yaml

# It would find what is wrong.
wrong() { # EXPRESSION WORDS: with this change it complains of that
  sed -E "$1" "$source/tarvex.yaml" >"$work/wrong.yaml"
  cmp -s "$source/tarvex.yaml" "$work/wrong.yaml" && fail "nothing is changed by $1"
  check "$work/wrong.yaml" >"$work/said" 2>&1 && fail "$1 is not found"
  grep -qF "$2" "$work/said" || { cat "$work/said"; fail "$1 is found for another reason"; }
}
wrong 's/readOnlyRootFilesystem/readOnlyRootFileSystem/' 'readOnlyRootFileSystem: no such field'
wrong 's/replicas: 1/replicas: one/' '/replicas: type'
wrong 's/podManagementPolicy: Parallel/podManagementPolicy: Sometimes/' '/podManagementPolicy: enum'
wrong 's/^( *)selector:/\1selektor:/' ': required {"missingProperty":"selector"}'

user=$(sed -n 's/^user=\([0-9]*\).*/\1/p' "$1/packaging/container/image.sh")
for key in runAsUser runAsGroup fsGroup; do
  grep -q "^ *$key: $user\$" "$source/tarvex.yaml" || fail "$key is not $user, the user of the image"
done
