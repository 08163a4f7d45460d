#!/usr/bin/env bash
# Installs, upgrades, removes and purges the packages with dpkg, in a view of this system that forgets what is written:
# the maintainer scripts do there what they do for everybody.
#   maintainer-scripts.sh FOLDER    into which make.sh has put the packages
set -euo pipefail
folder=$1 stage=${2-start}
fail() { echo "$*" >&2; exit 1; }
skip() { echo "$*"; exit 77; }

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
  mkdir "$view/written" "$view/work" "$view/system"
  mount -t overlay overlay -o "lowerdir=/,upperdir=$view/written,workdir=$view/work" "$view/system" || skip "no overlay file system"
  mount --rbind /proc "$view/system/proc"
  mount --rbind /dev "$view/system/dev"
  mkdir "$view/system/packages"
  cp "$folder"/*.deb "$0" "$view/system/packages"
  exec chroot "$view/system" "/packages/$(basename "$0")" /packages inside
  ;;
esac

cd /packages
export HOME=/root DEBIAN_FRONTEND=noninteractive
unset XDG_CONFIG_HOME XDG_DATA_HOME
quietly() { "$@" >log 2>&1 || { cat log; fail "failed: $*"; }; }
kept() { stat -c '%U:%G %a %n' /var/lib/tarvex /var/lib/tarvex/user0 /var/lib/tarvex/user0/userset.def; }

# Whoever has them installed: not here.
dpkg --purge tarvex libtarvex-dev libtarvex0 >log 2>&1 || true
userdel tarvex >log 2>&1 || true
rm -rf /var/lib/tarvex /etc/tarvex /var/lib/man-db/auto-update  # the last: the index of the manual takes long to make

quietly dpkg --install ./*.deb
[ "$(getent passwd tarvex | cut -d: -f6-)" = /var/lib/tarvex:/usr/sbin/nologin ] || fail "the user is not as it should be"
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
quietly dpkg --remove tarvex
grep -q "^deb-systemd-invoke stop tarvex.service tarvex@\*.service$" calls || fail "a removal does not stop the services"
[ "$(tail -n 1 calls)" = "systemctl daemon-reload" ] || fail "a removal leaves the units known"

[ ! -e /usr/bin/tarvex ] || fail "the command is still there"
[ "$(kept)" = "$before" ] || fail "a removal changes the tree"
quietly dpkg --purge tarvex libtarvex-dev libtarvex0
[ "$(kept)" = "$before" ] || fail "a purge changes the tree"

# Into a foreign root, as those who make images do: nothing happens to this system.
userdel tarvex
rm -rf /var/lib/tarvex calls
mkdir -p image/var/lib/dpkg/info image/var/lib/dpkg/updates image/etc
touch image/var/lib/dpkg/status image/etc/passwd image/etc/group
quietly dpkg --root=/packages/image --force-script-chrootless --force-depends --install ./*.deb
grep -q '^tarvex:.*:/var/lib/tarvex:/usr/sbin/nologin$' image/etc/passwd || fail "the image does not know the user"
if getent passwd tarvex || [ -e /var/lib/tarvex ] || [ -e calls ]; then fail "an image is not all that was changed"; fi
echo "installed, upgraded, removed, purged"
