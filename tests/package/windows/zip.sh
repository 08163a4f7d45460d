#!/usr/bin/env bash
# Makes the zip and unpacks it: it holds what it should, both hosts of its README build as that says, and they run what the
# command in there has set up.
#   zip.sh CPACK BUILD_FOLDER SOURCE_FOLDER LAUNCHER...
set -euo pipefail
cpack=$1 build=$2 source=$3
shift 3
launcher=("$@")

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*" >&2; exit 1; }

"$cpack" --config "$build/CPackConfig.cmake" -G ZIP -B "$work" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
cd "$work"
cmake -E tar xf tarvex-*-win32.zip
cd tarvex-*-win32

expected=(README.txt bin/Tarvex.dll bin/tarvex.exe bin/tarvex-console.exe bin/qrencode.dll lib/Tarvex.def lib/libTarvex.dll.a
  docs/{alerts,console,deliverability,files,forwarding,host,network,setup,stunnel,text-mail,tls,tokens}.md share/tarvex/mail-servers
  share/locale/ja/LC_MESSAGES/tarvex.mo
  licences/{Asio,Boost,CLI11,GCC-runtime,OpenSSL,SQLite,libqrencode,mingw-w64,nlohmann-json}.txt)
diff <({ printf '%s\n' "${expected[@]}"; (cd "$source" && ls include/tarvex/*); } | sort) <(find . -type f -printf '%P\n' | sort) ||
  fail "the zip holds other files"
grep -qv $'\r$' README.txt && fail "the README has lines that do not end as on Windows"

# A server that nobody listens for: a run fails at once, and says so in its log.
tarvex() { "${launcher[@]}" bin/tarvex.exe --root tree "$@" >/dev/null; }
tarvex init
tarvex user add taro
echo secret | tarvex profile add taro me@example.org --popserver 127.0.0.1 --popport 1 --popuser me --password-stdin \
  --timer always --lasttime never
tarvex forward add me@example.org phone@example.net

tr -d '\r' <README.txt >readme
log=tree/user0/from0/profile.log
for language in c cpp; do
  sed -n "/^\`\`\`$language\$/,/^\`\`\`\$/{/^\`\`\`/!p}" readme | sed 's/"C:.*tarvex"/"tree"/' >host.$language
  command=$(grep "^i686-w64-mingw32-.* host\.$language " readme) || fail "the README does not say how to build the host in $language"
  rm -f bin/host.exe $log
  sh -c "$command"
  "${launcher[@]}" bin/host.exe || fail "the host in $language ended with an error"
  grep -q 'End Operation' $log || fail "the host in $language ran nothing"
done
