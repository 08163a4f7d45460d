#!/usr/bin/env bash
# npm_packages.sh FOLDER FROM: puts into FOLDER what FROM/package.json names, for tests alone. The sums in package-lock.json
# are checked, and nothing of the packages is run here. Does nothing when they are there.
set -euo pipefail
folder=$1 from=$2
cmp -s "$from/package-lock.json" "$folder/package-lock.json" && [ -e "$folder/fetched" ] && exit
command -v npm >/dev/null || { echo "npm is not installed" >&2; exit 1; }
rm -rf "$folder"
mkdir -p "$folder"
cp "$from"/package{,-lock}.json "$folder"
npm ci --prefix "$folder" --ignore-scripts --no-audit --no-fund --loglevel=error >/dev/null
touch "$folder/fetched"
