#!/usr/bin/env bash
# Tries what is in the packages, in the folder into which make.sh unpacked them.
#   packages.sh FOLDER
set -euo pipefail
folder=$1
packages=("$folder"/*.deb)
[ -e "${packages[0]}" ] || { echo "there are no packages"; exit 77; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*" >&2; exit 1; }

[ ${#packages[@]} = 5 ] || fail "not five packages: ${packages[*]}"
root=$work/root
cp -r "$folder/root" "$root"
for package in "${packages[@]}"; do
  case $(dpkg-deb -f "$package" Package) in
    libtarvex0) [[ $(dpkg-deb -f "$package" Depends) == *libssl3* ]] || fail "libtarvex0 does not depend on libssl3" ;;
    tarvex-console)
      depends=$(dpkg-deb -f "$package" Depends)
      [[ $depends == *"tarvex (= "*systemd* && $depends != *sqlite* && $depends != *curl* ]] || fail "tarvex-console depends on $depends"
      ;;
    tarvex-cluster) [[ $(dpkg-deb -f "$package" Depends) == "tarvex (= "*resource-agents* ]] || fail "tarvex-cluster does not depend on tarvex" ;;
    *) [[ $(dpkg-deb -f "$package" Depends) == *"libtarvex0 (= "* ]] || fail "$package does not depend on its library" ;;
  esac
done

for package in "${packages[@]}"; do
  name=$(dpkg-deb -f "$package" Package)
  maintainer=$(dpkg-deb -f "$package" Maintainer)
  zcat "$root/usr/share/doc/$name/changelog.gz" | grep -qF -- "-- $maintainer  " || fail "$name: the changelog has another maintainer"
  grep -qx 'License: none-chosen-yet' "$root/usr/share/doc/$name/copyright" || fail "$name claims a licence"
done

# Every document leads to documents that are there.
documents=$root/usr/share/doc/tarvex
links=0
while IFS=: read -r document link; do
  links=$((links + 1))
  case $link in /*) target=$root$link ;; *) target=$(dirname "$document")/$link ;; esac
  [ -e "$target" ] || fail "${document#"$root"} leads to $link, which is not in the packages"
done < <(grep -roE --include='*.md' '\]\([^) #:]+[)#]' "$documents" | sed -E 's/:\]\((.*)./:\1/')
[ $links -gt 40 ] || fail "only $links links in the documents"
for name in man1/tarvex.1:README.md ja/man1/tarvex.1:README.ja.md; do
  [ -e "$documents/${name#*:}" ] || fail "there is no ${name#*:}"
  zgrep -q "^\.Pa /usr/share/doc/tarvex/${name#*:}$" "$root/usr/share/man/${name%:*}.gz" || fail "the manual does not name ${name#*:}"
done

for name in prometheus/tarvex.{rules.yml,dashboard.json} kubernetes/{tarvex,metrics,metrics-patch}.yaml; do
  [ -s "$documents/$name" ] || fail "there is no $name"
done

[ -x "$root/usr/lib/ocf/resource.d/tarvex/root" ] || fail "there is no resource agent"
for name in drbd-pair.crm drbd-pair.pcs three-nodes.crm three-nodes.pcs; do
  [ -s "$root/usr/share/doc/tarvex-cluster/examples/$name" ] || fail "there is no $name"
done

say() { echo "== $*"; }
LD_LIBRARY_PATH=$(dirname "$(find "$root/usr/lib" -name libtarvex.so.0)")
export LD_LIBRARY_PATH
[[ $(ldd "$root/usr/bin/tarvex") == *"$root/usr/lib"*libtarvex.so.0* ]] || fail "the command uses another library"
TMPDIR=$work "$root/usr/bin/tarvex" demo >"$work/demo" || { cat "$work/demo"; fail "the demo failed"; }
grep -q 'Everything arrived once' "$work/demo" || fail "the demo does not say that all arrived"

for name in usr/bin/tarvex-console usr/lib/systemd/system/{tarvex-console.service,tarvex.service.d/desk.conf} \
  usr/lib/{sysusers,tmpfiles}.d/tarvex-console.conf \
  usr/share/doc/tarvex-console/examples/{nginx.conf,Caddyfile,tcp.conf}; do
  [ -s "$root/$name" ] || fail "there is no /$name"
done
[[ $(LC_ALL=ja_JP.UTF-8 "$root/usr/bin/tarvex-console" --help) == *'Web コンソール'* ]] || fail "the console does not find its texts in Japanese"

for page in {,ja/}man1/tarvex{,-console}.1 {,ja/}man5/tarvex.def.5 {,ja/}man3/libtarvex.3; do
  gzip -t "$root/usr/share/man/$page.gz" || fail "no page $page"
done

[[ $(LC_ALL=ja_JP.UTF-8 "$root/usr/bin/tarvex" --help) == *'使い方: '* ]] || fail "the command does not find its texts in Japanese"
for completion in bash-completion/completions/tarvex{,-console} zsh/vendor-completions/_tarvex{,-console} \
  fish/vendor_completions.d/tarvex{,-console}.fish; do
  [ -s "$root/usr/share/$completion" ] || fail "there is no /usr/share/$completion"
done

grep -q '^gmail.com,' "$root/usr/share/tarvex/mail-servers" || fail "the file of known mail servers is missing"
help=$("$root/usr/bin/tarvex" setup me@icloud.com --smtpserver 127.0.0.1 --smtpport 1 --yes 2>&1) && fail "setup finds POP3 where there is none"
[[ $help == *'there is no POP3'* ]] || fail "the command does not find the file of known mail servers: $help"

if command -v lintian >/dev/null; then
  say lintian
  lintian --allow-root --no-tag-display-limit --fail-on error,warning "${packages[@]}" || fail "lintian has found something"
else
  say "lintian is not installed: not run"
fi

# The units are read in the fresh folder, beside those of the system that they refer to.
if command -v systemd-analyze >/dev/null && [ -d /lib/systemd/system ]; then
  say systemd-analyze
  mkdir -p "$root/bin"
  cp /bin/kill "$root/bin/"
  cp -rn /lib/systemd/system/. "$root/usr/lib/systemd/system"
  # Below the tree of tarvex.service an instance could take the name of one of its users.
  tree=$(sed -n 's/^StateDirectory=//p' "$root"/usr/lib/systemd/system/tarvex.service)
  grep -q "^StateDirectory=$tree/" "$root"/usr/lib/systemd/system/tarvex@.service && fail "the trees of instances are in another tree"
  for unit in tarvex.service tarvex@shop.service tarvex-console.service; do
    systemd-analyze verify --root="$root" --man=no $unit >"$work/verify" 2>&1 || { cat "$work/verify"; fail "$unit is wrong"; }
    grep "tarvex" "$work/verify" && fail "$unit has warnings"
    systemd-analyze security --offline=yes --root="$root" --threshold=15 $unit >"$work/security" ||
      { cat "$work/security"; fail "$unit may do too much"; }
    tail -n 1 "$work/security"
  done
else
  say "systemd is not installed: the units are not checked"
fi
