#!/usr/bin/env bash
# Installs the project into a fresh folder, builds the example against it, with find_package and with pkg-config, and a host in
# C; runs all three on a data tree that the installed command made.
#   installed.sh CMAKE BUILD_FOLDER EXAMPLES_FOLDER COMPILER
set -euo pipefail
cmake=$1 build=$2 examples=$3 compiler=$4
command -v pkg-config >/dev/null || { echo "pkg-config is not installed"; exit 77; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*" >&2; exit 1; }

"$cmake" --install "$build" --prefix "$work/prefix" >/dev/null
libraries=$(dirname "$(find "$work/prefix" -name libtarvex.so)")
export LD_LIBRARY_PATH=$libraries
export PKG_CONFIG_PATH=$libraries/pkgconfig

"$cmake" -S "$examples" -B "$work/example" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
"$cmake" --build "$work/example" >/dev/null
if "$cmake" -S "$examples" -B "$work/refused" -DCMAKE_PREFIX_PATH=/nonexistent -DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF \
  -DCMAKE_CXX_COMPILER="$compiler" >/dev/null 2>&1; then fail "found another package than the installed one"; fi

read -ra flags <<<"$(pkg-config --cflags --libs 'tarvex >= 0.1')"
"$compiler" -std=c++20 "$examples/host.cpp" -o "$work/host" "${flags[@]}"
"$compiler" -x c "$(dirname "$0")/../whole/c_host/main.c" -o "$work/c_host" "${flags[@]}"
pkg-config --exists 'tarvex >= 99' && fail "pkg-config takes any version"

# A server that nobody listens for: the run fails at once, and says so in its log.
tarvex() { "$work/prefix/bin/tarvex" --root "$work/tree" "$@" >/dev/null; }
tarvex init
tarvex user add taro
echo secret | tarvex profile add taro me@example.org --popserver 127.0.0.1 --popport 1 --popuser me --password-stdin \
  --timer always --lasttime never
tarvex forward add me@example.org phone@example.net
log=$work/tree/user0/from0/profile.log
"$work/c_host" "$work/tree" | grep -q '^started 1$' || fail "the host in C started nothing"
grep -q 'End Operation' "$log" || fail "the host in C ran nothing"

for host in "$work/example/host" "$work/host"; do
  rm -f "$log"
  "$host" "$work/tree" >"$work/output" &
  pid=$!
  for ((tenths = 0; tenths < 300; ++tenths)); do
    grep -q 'End Operation' "$log" 2>/dev/null && break
    sleep 0.1
  done
  "$host" "$work/tree" 2>/dev/null && fail "two hosts at once" || [ $? = 75 ] || fail "$host does not see the other one"
  tarvex user set taro --status on >/dev/null 2>&1 && fail "the command changed the tree of $host"
  kill -INT $pid || true
  wait $pid || fail "$host ended with an error"
  grep -q 'End Operation' "$log" || fail "$host ran nothing"
  grep -q stopped "$work/output" || fail "$host was not stopped by the signal"
done
