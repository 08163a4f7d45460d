#!/usr/bin/env bash
# fetch.sh FOLDER: makes FOLDER a small root directory with the mail servers that cannot be installed beside Postfix and
# Dovecot: Exim, OpenSMTPD and Solid POP3, taken out of Debian's packages, with the libraries that they load. Paths and
# accounts are compiled into them, so the tests run them in copies of it, by chroot.
#
# Does nothing when the folder is complete. Only apt-get update needs root or sudo. Packages' signatures are checked.
set -euo pipefail
number=1 # of what is made here; a change of this script counts it up
folder=$(mkdir -p "$1" && cd "$1" && pwd)
servers="usr/sbin/exim4 usr/sbin/smtpd usr/sbin/solid-pop3d"

say() { printf '%s\n' "== $*"; }

# download PACKAGE...: these, and what they need and this system lacks. Nothing is installed or removed.
download() {
  apt-get install -qq -y --download-only --reinstall --no-install-recommends -o Debug::NoLocking=true \
    -o Dir::Cache::archives="$PWD/archives" -o APT::Sandbox::User="$(id -un)" "$@" </dev/null
}

# Each of the three conflicts with the others or with what is installed.
download_all() {
  mkdir -p archives/partial
  download exim4-daemon-light exim4-base exim4-config && download opensmtpd && download solid-pop3d
}

update() {
  if [ "$(id -u)" = 0 ]; then apt-get -qq update
  else sudo apt-get -qq update
  fi
}

# With their paths, a line each.
libraries() { # MULTIARCH NAME
  LD_LIBRARY_PATH=$PWD/usr/lib/$1:$PWD/lib/$1 ldd $servers | sed -nE 's,^\t(.* => )?(/[^ ]*) .*,\2,p' | sort -u
}

# From the packages, else from this system; and PAM's module that lets everybody in.
copy_libraries() { # MULTIARCH NAME
  local file
  for file in $(libraries "$1"); do
    file=${file#"$PWD"}
    mkdir -p ".${file%/*}"
    [ -e ".$file" ] || cp -L "$file" ".$file"
  done
  mkdir -p "lib/$1/security"
  cp "/usr/lib/$1/security/pam_permit.so" "lib/$1/security/"
}

write_settings() {
  local account id=900
  mkdir -p etc/pam.d dev run tmp var/mail var/log/exim4 var/spool/exim4 home
  mkdir -p -m 711 var/spool/smtpd
  ln -s ../run var/run
  grep -E '^(root|mail|uucp|nobody):' /etc/passwd >etc/passwd
  grep -E '^(root|mail|uucp|nogroup):' /etc/group >etc/group
  for account in opensmtpd opensmtpq Debian-exim spop3d; do
    id=$((id + 1))
    echo "$account:x:$id:$id::/home/$account:/bin/false" >>etc/passwd
    echo "$account:x:$id:" >>etc/group
  done
  echo '127.0.0.1 localhost' >etc/hosts
  echo 'smtp 25/tcp' >etc/services
  echo 'relay.example.test' >etc/mailname
  printf 'auth required pam_permit.so\naccount required pam_permit.so\n' >etc/pam.d/solid-pop3d
}

make() {
  local archive
  cd "$folder"
  rm -rf -- *
  download_all >log 2>&1 || { update >>log 2>&1 && download_all >>log 2>&1; } ||
    { cat log; echo "cannot download Exim, OpenSMTPD and Solid POP3" >&2; return 1; }
  for archive in archives/*.deb; do dpkg-deb -x "$archive" .; done
  rm -rf archives log usr/share
  chmod u-s usr/sbin/exim4
  write_settings
  copy_libraries "$(g++ -print-multiarch)"
  echo $number >.complete
}

exec 9>"$folder.lock"
flock 9
[ "$(cat "$folder/.complete" 2>/dev/null || true)" = $number ] && exit
say "unpacking Exim, OpenSMTPD and Solid POP3, once, in $folder"
make
