#!/usr/bin/env bash
# Installs, upgrades, removes and purges the packages with dpkg, in a small system of its own: a copy, in memory, of the
# essential packages of this one and of what ours depend on. The maintainer scripts do there what they do for everybody.
#   maintainer-scripts.sh FOLDER    into which make.sh has put the packages
set -euo pipefail
folder=$1 stage=${2-start}
fail() { echo "$*" >&2; exit 1; }
skip() { echo "$*"; exit 77; }

# The packages that dpkg calls essential, those named, and what they depend on, as far as installed here.
closure() { # NAME...
  dpkg-query -W -f '${Package}\t${Essential}\t${Provides}\t${Pre-Depends}, ${Depends}\n' | awk -F '\t' -v wanted="$*" '
    function names(list) { gsub(/\([^)]*\)|:any|[,|]/, " ", list); return list }
    { needs[$1] = needs[$1] " " names($4)
      provider[$1] = provider[$1] " " $1
      count = split(names($3), provided, " ")
      for (i = 1; i <= count; ++i) provider[provided[i]] = provider[provided[i]] " " $1
      if ($2 == "yes") wanted = wanted " " $1 }
    END {
      while (wanted != "") {
        count = split(wanted, wants, " "); wanted = ""
        for (i = 1; i <= count; ++i) {
          providers = split(provider[wants[i]], by, " ")
          for (j = 1; j <= providers; ++j)
            if (!(by[j] in taken)) { taken[by[j]]; wanted = wanted needs[by[j]]; print by[j] }
        }
      }
    }'
}

# Nothing here reads a database that apt may be writing but dpkg-query, and the files that are replaced whole.
copy_system() { # FOLDER
  local database=/var/lib/dpkg to=$1 taken package list
  mapfile -t taken < <(closure dpkg passwd "$(dpkg-deb -f "$folder"/tarvex_*.deb Depends)" "$(dpkg-deb -f "$folder"/libtarvex0_*.deb Depends)" \
    "$(dpkg-deb -f "$folder"/tarvex-console_*.deb Depends)")
  list=$(mktemp)
  dpkg-query -L "${taken[@]}" 2>/dev/null | grep -vE '^/(.|usr/share/(doc|man|locale|info|zoneinfo)/.*)$' | sort -u >"$list"
  ls -d /etc/{passwd,group,shadow,gshadow,nsswitch.conf,ld.so.conf,ld.so.conf.d/*,alternatives/*} >>"$list" 2>/dev/null || true
  mkdir -p "$to"/{proc,dev,root,tmp,usr/{bin,sbin,lib,lib32,lib64,libx32}} "$to$database"/{info,triggers,updates}
  for package in bin sbin lib lib32 lib64 libx32; do [ ! -L /$package ] || ln -s usr/$package "$to/$package"; done
  tar -C / -c --no-recursion --ignore-failed-read -P -T "$list" 2>/dev/null | tar -C "$to" -x --keep-directory-symlink 2>/dev/null
  rm "$list"

  printf '%s\n' "${taken[@]}" >"$to/taken"
  dpkg-query -s "${taken[@]}" >"$to$database/status"
  for package in "${taken[@]}"; do
    for list in "$database/info/$package".* "$database/info/$package":*; do [ ! -e "$list" ] || cp "$list" "$to$database/info/"; done
  done
  cp $database/info/format "$to$database/info/"
  : >"$to$database/available"
  for list in $database/triggers/*; do # a path or nothing, and a package
    awk 'NR == FNR { taken[$1]; next } { package = $NF; sub("/.*", "", package) } package in taken' "$to/taken" "$list" \
      >"$to$database/triggers/${list##*/}"
  done
}

case $stage in
start)
  [ -e "$folder/tarvex" ] || skip "there are no packages"
  as_root=()
  if [ "$(id -u)" != 0 ]; then
    sudo -n true 2>/dev/null || skip "only root can install packages"
    as_root=(sudo -n)
  fi
  "${as_root[@]}" unshare --mount true 2>/dev/null || skip "a mount namespace is not to be had here"
  exec "${as_root[@]}" unshare --mount "$0" "$folder" view
  ;;
view)  # all that is mounted ends with this process
  view=$folder/view
  mkdir -p "$view"
  mount -t tmpfs tmpfs "$view"
  copy_system "$view"
  mount --rbind /proc "$view/proc"
  mount --rbind /dev "$view/dev"
  mkdir "$view/packages"
  cp "$folder"/*.deb "$0" "$view/packages"
  rm "$view"/packages/tarvex-cluster_*.deb # it has no scripts, and much that it depends on
  exec chroot "$view" "/packages/$(basename "$0")" /packages inside
  ;;
esac

cd /packages
export HOME=/root DEBIAN_FRONTEND=noninteractive
unset XDG_CONFIG_HOME XDG_DATA_HOME
quietly() { "$@" >log 2>&1 || { cat log; fail "failed: $*"; }; }
kept() { stat -c '%U:%G %a %n' /var/lib/tarvex /var/lib/tarvex/user0 /var/lib/tarvex/user0/userset.def; }

# Whoever has them installed: not here.
dpkg --purge tarvex-console tarvex libtarvex-dev libtarvex0 >log 2>&1 || true
for user in tarvex tarvex-web; do userdel $user >log 2>&1 || true; done
rm -rf /var/lib/tarvex /etc/tarvex /var/lib/man-db/auto-update  # the last: the index of the manual takes long to make

quietly dpkg --install ./*.deb
[ "$(getent passwd tarvex | cut -d: -f6-)" = /var/lib/tarvex:/usr/sbin/nologin ] || fail "the user is not as it should be"
[ "$(getent passwd tarvex-web | cut -d: -f6-)" = /:/usr/sbin/nologin ] || fail "the console's user is not as it should be"
[ "$(stat -c '%U:%G %a' /run/tarvex)" = "tarvex:tarvex-web 2750" ] || fail "the console's way to the service is open to others"
[ "$(stat -c '%U:%G %a' /var/lib/tarvex)" = "tarvex:tarvex 700" ] || fail "the tree is not the service's"

# What the superuser makes belongs to the service.
quietly tarvex init
quietly tarvex user add taro
before=$(kept)
[ "$before" = "tarvex:tarvex 700 /var/lib/tarvex
tarvex:tarvex 700 /var/lib/tarvex/user0
tarvex:tarvex 600 /var/lib/tarvex/user0/userset.def" ] || fail "$before"

quietly dpkg --install ./*.deb
[ "$(kept)" = "$before" ] || fail "an upgrade changes the tree"

# A service that cannot be restarted must not leave a package half installed, nor one that cannot be stopped.
mkdir -p /run/systemd/system stand-in
for command in systemctl deb-systemd-invoke; do
  printf '#!/bin/sh\necho "%s $*" >>/packages/calls\n[ "$1" = daemon-reload ]\n' $command >stand-in/$command
done
chmod +x stand-in/*
PATH=/packages/stand-in:$PATH
quietly dpkg --install ./*.deb
grep -q "^systemctl try-restart tarvex.service tarvex@\*.service$" calls || fail "an upgrade does not restart the services"
grep -q "^systemctl try-restart tarvex-console.service$" calls || fail "an upgrade does not restart the console"
quietly dpkg --remove tarvex-console tarvex
grep -q "^deb-systemd-invoke stop tarvex-console.service$" calls || fail "a removal does not stop the console"
grep -q "^deb-systemd-invoke stop tarvex.service tarvex@\*.service$" calls || fail "a removal does not stop the services"
[ "$(tail -n 1 calls)" = "systemctl daemon-reload" ] || fail "a removal leaves the units known"

[ ! -e /usr/bin/tarvex ] || fail "the command is still there"
[ "$(kept)" = "$before" ] || fail "a removal changes the tree"
quietly dpkg --purge tarvex-console tarvex libtarvex-dev libtarvex0
[ "$(kept)" = "$before" ] || fail "a purge changes the tree"

# Into a foreign root, as those who make images do: nothing happens to this system.
userdel tarvex
userdel tarvex-web
rm -rf /var/lib/tarvex calls
mkdir -p image/var/lib/dpkg/info image/var/lib/dpkg/updates image/etc
touch image/var/lib/dpkg/status image/etc/passwd image/etc/group
quietly dpkg --root=/packages/image --force-script-chrootless --force-depends --install ./*.deb
grep -q '^tarvex:.*:/var/lib/tarvex:/usr/sbin/nologin$' image/etc/passwd || fail "the image does not know the user"
grep -q '^tarvex-web:.*:/:/usr/sbin/nologin$' image/etc/passwd || fail "the image does not know the console's user"
if getent passwd tarvex || [ -e /var/lib/tarvex ] || [ -e calls ]; then fail "an image is not all that was changed"; fi
echo "installed, upgraded, removed, purged"
