#!/usr/bin/env bash
# Stands in for the program in a test of `tarvex run`: the installed service carries the run out.
#   run-by-service.sh LAUNCHER WINE_FOLDER PROGRAM --root ROOT run [OPTIONS]
set -euo pipefail
if [ -z "${WINEPREFIX-}" ]; then exec "$1" "$2" --script "$0" "${@:3}"; fi

program=$1 root=$3
tarvex() { wine "$program" --root "$root" "$@"; }
quietly() { timeout 60 wine "$program" --root "$root" "$@" >/dev/null 2>&1 || { echo "failed: $*" >&2; exit 1; }; }
[ "$2 $4" = "--root run" ] || { echo "no run: $*" >&2; exit 1; }

quietly service install
quietly service start
code=0
tarvex "${@:4}" || code=$?
tarvex service status | grep runs >/dev/null || { echo "the service has ended" >&2; exit 1; }
quietly service stop
quietly service remove
exit $code
