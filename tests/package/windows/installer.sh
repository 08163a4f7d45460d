#!/usr/bin/env bash
# Makes the installer, and as that of a former version; installs, replaces one by the other with a tree in use, and removes, all
# without a question; looks each time at files, registry and the service.
#   installer.sh CPACK BUILD_FOLDER SOURCE_FOLDER LAUNCHER...
set -euo pipefail
fail() { echo "$*" >&2; exit 1; }

if [ -z "${WINEPREFIX-}" ]; then
  cpack=$1 build=$2
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  for version in "" 0.0.9; do
    "$cpack" --config "$build/CPackConfig.cmake" -G NSIS -B "$work/${version:-new}" ${version:+-R $version} >"$work/log" 2>&1 ||
      { cat "$work/log"; exit 1; }
  done
  "${@:4}" --script "$0" "$work" "$3"
  localedef -i ja_JP -f UTF-8 "$work/ja_JP.UTF-8"
  LOCPATH=$work TARVEX_WINE_LOCALE=ja_JP.UTF-8 "${@:4}" --script "$0" "$work" "$3" japanese
  exit
fi

work=$1 source=$2
drive=$WINEPREFIX/drive_c
program="$drive/Program Files/Tarvex" data=$drive/ProgramData/Tarvex menu="$drive/ProgramData/Microsoft/Windows/Start Menu/Programs/Tarvex"
apps='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\Tarvex'
entry='HKLM\System\CurrentControlSet\Services\Tarvex'
events='HKLM\System\CurrentControlSet\Services\EventLog\Application\Tarvex'

quietly() { timeout 120 wine "$@" >"$work/said" 2>&1 || { cat "$work/said" >&2; fail "failed: $*"; }; }
tarvex() { timeout 60 wine "$program/bin/tarvex.exe" "$@"; }
value() { wine reg query "$1" /v "$2" 2>/dev/null | tr -d '\r' | sed -n 's/^ .* REG_[A-Z_]*    //p'; }
is() { [ "$2" = "$3" ] || fail "$1: '$2' and not '$3'"; }
has_no() { ! wine reg query "$1" >/dev/null 2>&1 || fail "left in the registry: $1"; }
files() { (cd "$program" && find . -type f -printf '%P\n' | sort); }
installer() { ls "$work/$1"/tarvex-*-win32.exe; }

users_files=(README.txt bin/Tarvex.dll bin/tarvex.exe uninstall.exe
  docs/{alerts,console,deliverability,files,forwarding,host,network,setup,stunnel,text-mail,tls,tokens}.md share/tarvex/mail-servers
  share/locale/ja/LC_MESSAGES/tarvex.mo
  licences/{Asio,Boost,CLI11,GCC-runtime,OpenSSL,SQLite,libqrencode,mingw-w64,nlohmann-json}.txt)
consoles_files=(bin/tarvex-console.exe bin/qrencode.dll)
developers_files=(lib/Tarvex.def lib/libTarvex.dll.a $(cd "$source" && ls include/tarvex/*))
holds() { diff <(printf '%s\n' "$@" | sort) <(files) >&2 || fail "other files are installed"; }
console() { # its status line for the first page
  (exec 3<>/dev/tcp/127.0.0.1/8480 && printf 'GET /login HTTP/1.1\r\nHost: localhost\r\n\r\n' >&3 && head -n 1 <&3) 2>/dev/null || true
}
runs() { tarvex service status | grep runs >/dev/null || fail "the service does not run"; }
knows_taro() { tarvex user list | grep taro >/dev/null || fail "the data are gone"; }

uninstall() { # a copy of it goes on after its end; what it removes last is its entry
  quietly "$program/uninstall.exe" /S "$@"
  local deadline=$((SECONDS + 60))
  while wine reg query "$apps" >/dev/null 2>&1; do
    [ $SECONDS -lt $deadline ] || fail "the uninstaller does not end"
    sleep 0.2
  done
}

if [ "${3-}" = japanese ]; then
  quietly "$(installer new)" /S /NOSERVICE
  [ -e "$menu/メールボックスの設定.lnk" ] || fail "the start menu is not in Japanese: $(ls "$menu")"
  has_no "$entry"
  uninstall
  [ ! -e "$menu" ] && [ ! -e "$program" ] || fail "something is left"
  exit
fi

# The former version, with what developers want.
quietly "$(installer 0.0.9)" /S /DEVELOPMENT
holds "${users_files[@]}" "${consoles_files[@]}" "${developers_files[@]}"
is version "$(value "$apps" DisplayVersion)" 0.0.9
is publisher "$(value "$apps" Publisher)" "The Tarvex project"
[ $(($(value "$apps" EstimatedSize))) -gt 5000 ] || fail "the size is wrong"
is account "$(value "$entry" ObjectName)" 'NT SERVICE\Tarvex'
is start "$(value "$entry" Start)" 0x2
is image "$(value "$entry" ImagePath)" \
  '"C:\Program Files\Tarvex\bin\tarvex.exe" serve --service --root "C:\ProgramData\Tarvex" --console tarvex-console'
is "console's account" "$(value "${entry}Console" ObjectName)" 'NT SERVICE\TarvexConsole'
is "console's image" "$(value "${entry}Console" ImagePath)" '"C:\Program Files\Tarvex\bin\tarvex-console.exe" --service'
is page "$(console | tr -d '\r')" 'HTTP/1.1 200 OK'
is texts "$(value "$events" EventMessageFile)" 'C:\Program Files\Tarvex\bin\tarvex.exe'
is shortcuts "$(ls "$menu" | sort | tr '\n' ,)" \
  'First login to the console.lnk,Set up a mailbox.lnk,Tarvex console.url,Tarvex documents.lnk,Tarvex read-me.lnk,Tarvex status.lnk,Uninstall Tarvex.lnk,'
for name in 'First login to the console' 'Set up a mailbox' 'Tarvex status'; do  # ask for an administrator's rights
  flags=$(od -An -tu1 -j21 -N1 "$menu/$name.lnk")
  [ $((flags & 32)) != 0 ] || fail "$name: not as an administrator"
done
runs
tarvex user add taro >/dev/null
knows_taro

# The next one, without them: the former's uninstaller has taken them away. The service ran and does again.
quietly reg delete 'HKLM\Software\Tarvex' /v Development /f
process() { tarvex service status | sed -n 's/.*process \([0-9]*\).*/\1/p'; }
former=$(process)
quietly "$(installer new)" /S
holds "${users_files[@]}" "${consoles_files[@]}"
is page "$(console | tr -d '\r')" 'HTTP/1.1 200 OK'
[ "$(value "$apps" DisplayVersion)" != 0.0.9 ] || fail "the version is the former one"
runs
[ "$(process)" != "$former" ] || fail "the service of the former version runs on"
knows_taro

# One that was stopped stays so, and one without a console.
tarvex service stop >/dev/null
is page "$(console)" ''
quietly "$(installer new)" /S /NOCONSOLE
holds "${users_files[@]}"
has_no "${entry}Console"
quietly "$(installer new)" /S
holds "${users_files[@]}"
! tarvex service status >/dev/null || fail "a stopped service was started"
tarvex service start >/dev/null

# Removed with the data kept, and found again.
uninstall
[ ! -e "$program" ] || fail "files are left: $(files)"
has_no "$entry" && has_no "${entry}Console" && has_no "$events" && has_no 'HKLM\Software\Tarvex'
[ ! -e "$menu" ] || fail "the start menu has entries"
[ -e "$data/host.def" ] || fail "the data are gone"
quietly "$(installer new)" /S
runs
knows_taro

# And with the data.
uninstall /PURGE
[ ! -e "$data" ] || fail "the data stay"
has_no "$entry"
