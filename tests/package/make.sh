#!/usr/bin/env bash
# Makes the packages and unpacks them; FOLDER/tarvex then runs the command in there.
#   make.sh CPACK BUILD_FOLDER FOLDER
set -euo pipefail
cpack=$1 build=$2 folder=$3
rm -rf "$folder"
for tool in dpkg-deb dpkg-shlibdeps; do
  command -v $tool >/dev/null || { echo "$tool is not installed (package dpkg-dev)"; exit 77; }
done

mkdir -p "$folder/root"
"$cpack" --config "$build/CPackConfig.cmake" -B "$folder" >"$folder/log" 2>&1 || { cat "$folder/log"; exit 1; }
rm -rf "$folder/_CPack_Packages"
for package in "$folder"/*.deb; do dpkg-deb -x "$package" "$folder/root"; done
libraries=$(dirname "$(find "$folder/root/usr/lib" -name libtarvex.so.0)")
printf '#!/bin/sh\nLD_LIBRARY_PATH=%s exec %s/root/usr/bin/tarvex "$@"\n' "$libraries" "$folder" >"$folder/tarvex"
chmod +x "$folder/tarvex"
