#!/usr/bin/env bash
# fetch.sh FOLDER: what drives a browser in the console's tests, and the rules of accessibility, both from npm. The sums in
# package-lock.json are checked, and nothing of the packages is run here. Does nothing when they are there.
set -euo pipefail
folder=$1
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cmp -s "$here/package-lock.json" "$folder/package-lock.json" && [ -e "$folder/fetched" ] && exit
command -v npm >/dev/null || { echo "npm is not installed" >&2; exit 1; }
rm -rf "$folder"
mkdir -p "$folder"
cp "$here"/package{,-lock}.json "$folder"
npm ci --prefix "$folder" --ignore-scripts --no-audit --no-fund --loglevel=error >/dev/null
touch "$folder/fetched"
