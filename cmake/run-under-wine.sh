#!/bin/sh
# run-under-wine.sh FOLDER PROGRAM [ARGUMENTS]: runs a Windows program by the wine of that folder.
#
# The service processes that the first program starts inherit its streams, and whoever reads those would wait for them. So
# they are started here, on /dev/null, and kept for a while.
wine=$1/wine wineserver=$1/wineserver
shift
unset DISPLAY WAYLAND_DISPLAY
export LC_ALL="${TARVEX_WINE_LOCALE:-C.UTF-8}"
if ! "$wineserver" -k0 2>/dev/null; then
  (
    flock 9 # several tests may start at once
    "$wineserver" -k0 2>/dev/null || {
      "$wineserver" -p300
      "$wine" cmd /c exit
    } </dev/null >/dev/null 2>&1 9>&-
  ) 9>"${TMPDIR:-/tmp}/tarvex-wine-$(id -u).lock"
fi
exec "$wine" "$@"
