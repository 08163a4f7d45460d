#!/usr/bin/env bash
# windows-parts.sh FOLDER: puts into FOLDER, each once, what the Windows build needs and Debian has no package for.
#
#   openssl/   OpenSSL for 32-bit Windows, static, cross-compiled from Debian's source package
#   sqlite/    SQLite, likewise
#   qrencode/  libqrencode, as a DLL of its own
#   headers/   the header-only libraries of this system that the host and the tests need, apart from its other headers
#   wine/      the 32-bit wine, taken out of Debian's packages. They are not installed: a system's libraries can only be
#              had for both architectures in the very same version, which half-updated mirrors do not allow.
#
# Needs no root. The packages' signatures are checked. A part that has changed here gets a new number.
set -euo pipefail
folder=$(mkdir -p "$1" && cd "$1" && pwd)
openssl_number=5
sqlite_number=2
qrencode_number=3
wine_number=2

say() { printf '%s\n' "== $*"; }
has() { [ "$(cat "$folder/$1/.complete" 2>/dev/null || true)" = "$2" ]; }

# mirror_of SUITE: from where this system has it.
mirror_of() {
  apt-get indextargets --format '$(RELEASE) $(REPO_URI)' 'Created-By: Packages' | sed -n "s/^$1 //p" | head -n 1
}

# private_apt ARCHITECTURE SUITES COMMAND...: apt-get with lists and states of its own, as if nothing were installed.
private_apt() {
  local architecture=$1 suites=$2 state=$folder/apt-$1; shift 2
  local key=/usr/share/keyrings/debian-archive-keyring.gpg suite site
  mkdir -p "$state/lists/partial" "$state/archives/partial"
  : >"$state/status"
  for suite in $suites; do
    site=$(mirror_of "$suite")
    printf '%s [signed-by=%s] %s %s main\n' deb $key "$site" "$suite" deb-src $key "$site" "$suite"
  done >"$state/sources.list"
  if [ "$architecture" = source ]; then sed -i '/^deb /d' "$state/sources.list"; architecture=amd64
  else sed -i '/^deb-src /d' "$state/sources.list"
  fi
  apt-get -qq -o APT::Architecture="$architecture" -o APT::Architectures="$architecture" \
    -o Dir::Etc::sourcelist="$state/sources.list" -o Dir::Etc::sourceparts=/dev/null \
    -o Dir::Etc::preferences=/dev/null -o Dir::Etc::preferencesparts=/dev/null -o Dir::State::status="$state/status" \
    -o Dir::State::lists="$state/lists" -o Dir::State::extended_states="$state/extended_states" \
    -o Dir::Cache::archives="$state/archives" -o Dir::Cache::pkgcache= -o Dir::Cache::srcpkgcache= \
    -o APT::Sandbox::User="$(id -un)" "$@"
}

fetch_source() { # PACKAGE SUITES; into the current folder
  rm -rf -- *
  private_apt source "$2" update || return 1
  # Of this one Debian's own changes are not needed, and not every mirror has them.
  if [ "$1" = qrencode ]; then private_apt source "$2" source --tar-only "$1" && tar xf "$1"_*.orig.tar.*
  else private_apt source "$2" source "$1"
  fi
}

# No path of this machine gets into the library, nothing that it could load or read at run time, and none of the protocols
# and ciphers that no mail server needs.
build_openssl() { # TARGET
  patch -R -p1 <debian/patches/pic.patch # asks for what only ELF has
  ./Configure mingw --cross-compile-prefix=i686-w64-mingw32- --prefix=/openssl --openssldir=/openssl --libdir=lib \
    no-shared no-tests no-engine no-dso no-module no-legacy no-async no-autoload-config no-pinshared no-ui-console \
    no-ssl3 no-dtls no-comp no-cmp no-cms no-ct no-ocsp no-rfc3779 no-srp no-ts \
    no-aria no-bf no-camellia no-cast no-des no-dsa no-ec2m no-gost no-idea no-md4 no-mdc2 no-ocb no-rc2 no-rc4 no-rmd160 \
    no-seed no-siphash no-siv no-sm2 no-sm3 no-sm4 no-whirlpool -O2 -D_WIN32_WINNT=0x0601 -D__MINGW_USE_VC2005_COMPAT
  make -j"$(nproc)" build_libs
  make install_dev DESTDIR="$1/unpacked"
  mv "$1"/unpacked/openssl/* "$1"
  rm -r "$1/unpacked"
  cp LICENSE.txt "$1"
}

# In one file, without what could load code at run time.
build_sqlite() { # TARGET
  ./configure
  make sqlite3.c
  i686-w64-mingw32-gcc-posix -c -O2 -D_WIN32_WINNT=0x0601 -D__MINGW_USE_VC2005_COMPAT -DSQLITE_OMIT_LOAD_EXTENSION \
    -DSQLITE_DQS=0 -DSQLITE_ENABLE_FTS5 sqlite3.c
  mkdir "$1/include" "$1/lib"
  i686-w64-mingw32-gcc-ar-posix crs "$1/lib/libsqlite3.a" sqlite3.o
  cp sqlite3.h "$1/include"
}

# A DLL, as whoever uses it may put another one in its place.
build_qrencode() { # TARGET
  ./configure --host=i686-w64-mingw32 --without-tools --disable-static --enable-shared
  mkdir "$1/include" "$1/lib" "$1/bin"
  i686-w64-mingw32-gcc-posix -shared -O2 -DHAVE_CONFIG_H -DSTATIC_IN_RELEASE=static -I. -s -static \
    qrencode.c qrinput.c bitstream.c qrspec.c rsecc.c split.c mask.c mqrspec.c mmask.c -Wl,--exclude-libs,ALL \
    -o "$1/bin/qrencode.dll" -Wl,--out-implib,"$1/lib/libqrencode.dll.a"
  cp qrencode.h "$1/include"
  cp COPYING "$1"
}

make_library() { # PACKAGE NUMBER: a library of Debian's, by build_PACKAGE
  say "building $1 for Windows, once, in $folder/${1%3}"
  local build=$folder/$1-build target=$folder/${1%3}
  rm -rf "$build" "$target"
  mkdir -p "$build" "$target"
  cd "$build"
  # Mirrors do not always carry the latest security update's sources.
  fetch_source "$1" "bookworm bookworm-updates bookworm-security" >"$build.log" 2>&1 ||
    fetch_source "$1" "bookworm bookworm-updates" >"$build.log" 2>&1 || { cat "$build.log"; return 1; }
  cd "$1"-*/
  export -f build_openssl build_sqlite build_qrencode
  bash -euc 'build_"$1" "$2"' bash "${1%3}" "$target" >"$build.log" 2>&1 || { tail -50 "$build.log"; return 1; }
  echo "$2" >"$target/.complete"
  cd "$folder"
  rm -rf "$build" "$build.log" apt-source
}

make_wine() {
  say "unpacking wine, once, in $folder/wine"
  local target=$folder/wine suites="bookworm bookworm-updates" archive link program
  if [ -x "$target/bin/wineserver" ]; then "$target/bin/wineserver" -k || true; fi
  rm -rf "$target"
  mkdir -p "$target"
  cd "$target"
  private_apt i386 "$suites" update
  private_apt i386 "$suites" install -y --download-only --no-install-recommends wine32 wine </dev/null
  for archive in "$folder"/apt-i386/archives/*.deb; do dpkg-deb -x "$archive" .; done
  rm -rf "$folder/apt-i386" usr/share/doc usr/share/man etc

  # The programs look for their loader and for each other here.
  for program in wine wineserver32; do
    patchelf --set-interpreter "$target/lib/ld-linux.so.2" usr/lib/wine/$program
  done
  ln -sf wineserver32 usr/lib/wine/wineserver
  # The package's install script would mark this one as a part of wine.
  local zlib=usr/i686-w64-mingw32/lib/zlib1.dll
  {
    head -c 64 $zlib
    printf 'Wine builtin DLL\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0'
    tail -c +97 $zlib
  } >usr/lib/i386-linux-gnu/wine/i386-windows/zlib1.dll

  mkdir bin
  cat >bin/wine <<'W'
#!/bin/sh
# The 32-bit wine of the folder above, without a display; its prefix is beside it.
wine=$(dirname "$(dirname "$(readlink -f "$0")")")
export LD_LIBRARY_PATH="$wine/lib/i386-linux-gnu:$wine/usr/lib/i386-linux-gnu"
export WINEPREFIX="${WINEPREFIX:-$wine-prefix}" WINEARCH=win32 WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"
exec "$wine/usr/lib/wine/$(basename "$0")" "$@"
W
  chmod 755 bin/wine
  ln -s wine bin/wineserver
  say "making wine's prefix, once, in $folder/wine-prefix"
  rm -rf "$folder/wine-prefix"
  bin/wine wineboot -i </dev/null >/dev/null 2>&1
  bin/wineserver -w
  [ -f "$folder/wine-prefix/system.reg" ] || { echo "wine's prefix could not be made" >&2; return 1; }
  echo "$wine_number" >"$target/.complete"
}

exec 9>"$folder/.lock"
flock 9
mkdir -p "$folder/headers"
ln -sfn /usr/include/asio /usr/include/asio.hpp /usr/include/CLI /usr/include/nlohmann /usr/include/boost "$folder/headers/"
has openssl $openssl_number || (make_library openssl $openssl_number)
has sqlite $sqlite_number || (make_library sqlite3 $sqlite_number)
has qrencode $qrencode_number || (make_library qrencode $qrencode_number)
has wine $wine_number || (make_wine 9>&-)
