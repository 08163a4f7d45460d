#!/usr/bin/env bash
# Runs a Windows program by the wine of FOLDER, in a prefix and under a wineserver of its own.
#   run-under-wine.sh FOLDER PROGRAM [ARGUMENTS]
#   run-under-wine.sh FOLDER --script SCRIPT [ARGUMENTS]: a script of this system, whose `wine` uses one such prefix again and
#                                                        again; $WINEPREFIX is the prefix
#
# A program whose wineserver ends hangs for ever. So no two programs share a server, and a program that has lost its server is
# started again, once. The prefix is a copy of the prepared one, by hard links: 0.1 s and 2 MB; the server with its services
# takes half a second of processor time.
set -euo pipefail
bin=$1
shift
prepared=$(dirname "$(dirname "$bin")")/wine-prefix
copies=$prepared-copies
unset DISPLAY WAYLAND_DISPLAY
export LC_ALL="${TARVEX_WINE_LOCALE:-C.UTF-8}"

make_prefix() { # what wine writes into is copied
  mkdir -p "$copies"
  rm -rf "$1"
  cp -al "$prepared" "$1"
  rm -rf "$1"/*.reg "$1/drive_c/users"
  cp -p "$prepared"/*.reg "$1"
  cp -a "$prepared/drive_c/users" "$1/drive_c"
}

processes_in() { { grep -lsxzF "WINEPREFIX=$1" /proc/[0-9]*/environ || true; } | cut -d / -f 3; }

remove_prefix() {
  local processes
  while processes=$(processes_in "$1") && [ -n "$processes" ]; do # some would outlive their server
    # shellcheck disable=SC2086
    kill -9 $processes 2>/dev/null || true
  done
  rm -rf "$1"
}

remove_old_prefixes() { # of launchers that were killed; a prefix is named after its launcher
  local prefix
  for prefix in "$copies"/[0-9]*; do
    kill -0 "${prefix##*/}" 2>/dev/null || remove_prefix "$prefix"
  done
}

# run PREFIX PROGRAM [ARGUMENTS]: false when the server ends first; sets `status` to that of the one which ends first.
run() {
  local prefix=$1 server program ended
  shift
  WINEPREFIX=$prefix "$bin/wineserver" -f -p </dev/null &>"$prefix/wineserver.log" &
  server=$!
  until WINEPREFIX=$prefix "$bin/wineserver" -k0 2>/dev/null || ! kill -0 $server 2>/dev/null; do sleep 0.02; done
  if [ "$1" = --script ]; then WINEPREFIX=$prefix PATH=$bin:$PATH "${@:2}" <&0 &
  else WINEPREFIX=$prefix "$bin/wine" "$@" <&0 &
  fi
  program=$!
  status=0
  wait -n -p ended $server $program || status=$?
  [ "$ended" = $program ]
}

prefix=$copies/$$
trap 'exec 2>/dev/null; remove_prefix "$prefix"' EXIT # bash would say that the server was killed
trap 'exit 143' HUP INT TERM
remove_old_prefixes
for attempt in first second; do
  make_prefix "$prefix"
  if run "$prefix" "$@"; then exit $status; fi
  echo "run-under-wine: $*: the wineserver of the $attempt attempt has ended before the program, with $status" >&2
  sed 's/^/run-under-wine: /' "$prefix/wineserver.log" >&2
  remove_prefix "$prefix" 2>/dev/null
done
exit 1
