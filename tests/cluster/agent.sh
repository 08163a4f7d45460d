#!/usr/bin/env bash
# Tries the resource agent by itself, without a cluster: what it starts, finds, refuses and stops, and what it says then.
#   agent.sh PACKAGED_ROOT    into which the packages were unpacked
set -euo pipefail
root=$1
skip() { echo "$*"; exit 77; }
fail() { echo "FAILED: $*" >&2; exit 1; }

[ -d "$root" ] || skip "there are no packages"
[ "$(id -u)" = 0 ] || skip "only root can start a service as another user"
for tool in ocf-tester xmllint shellcheck python3; do command -v $tool >/dev/null || skip "$tool is not installed"; done
# Disks and processes of its own, which end with this process.
if [ -z "${INSIDE-}" ]; then
  unshare --mount --pid --fork true 2>/dev/null || skip "namespaces are not to be had here"
  INSIDE=1 exec unshare --mount --pid --fork --kill-child --mount-proc "$0" "$@"
fi

work=$(mktemp -d)
chmod 755 "$work"
mkdir "$work/bin" "$work/notes"
user=nobody uid=$(id -u nobody)

# Where that user may read them.
agent=$work/bin/root tarvex=$work/bin/tarvex
cp "$root/usr/lib/ocf/resource.d/tarvex/root" "$agent"
cp -r "$root/usr" "$work/usr"
printf '#!/bin/sh\nLD_LIBRARY_PATH=%s exec %s/usr/bin/tarvex "$@"\n' \
  "$(dirname "$(find "$work/usr/lib" -name libtarvex.so.0)")" "$work" >"$tarvex"
chmod +x "$tarvex"

processes() { # of the services here, by what their command line names
  local line
  for line in /proc/[0-9]*/cmdline; do
    if [[ $({ tr '\0' ' ' <"$line"; } 2>/dev/null) == *"--root $work/"*" serve "* ]]; then basename "${line%/cmdline}"; fi
  done
}
trap 'umount -l "$work/disk" 2>/dev/null || true; rm -rf "$work"' EXIT

# The cluster's property is a file here. An empty name of a file is a cluster that does not answer.
cat >"$work/bin/crm_attribute" <<'S'
#!/bin/sh
[ -n "$PROPERTY" ] || { echo "no cluster"; exit 102; }
while [ $# -gt 1 ]; do [ "$1" != --update ] || { echo "$2" >"$PROPERTY"; exit; }; shift; done
cat "$PROPERTY" 2>/dev/null || echo 0
S
printf '#!/bin/sh\nexec cat >"%s/syslog"\n' "$work" >"$work/bin/logger"
chmod +x "$work"/bin/*
export PATH=$work/bin:$PATH HA_RSCTMP=$work/notes PROPERTY=$work/property OCF_ROOT=/usr/lib/ocf
export OCF_RESOURCE_INSTANCE=shop OCF_RESKEY_user=$user OCF_RESKEY_binary=$tarvex OCF_RESKEY_log=$work/log
export OCF_RESKEY_patience=2 OCF_RESKEY_CRM_meta_timeout=20000 OCF_RESKEY_CRM_meta_interval=5000
unset OCF_CHECK_LEVEL HA_LOGFILE HA_LOGFACILITY

make_tree() { # ROOT
  mkdir -m 700 "$1"
  chown "$user:" "$1"
  "$tarvex" --root "$1" init >/dev/null
  "$tarvex" --root "$1" user add taro >/dev/null
}
tree="$work/a tree"
make_tree "$tree"
export OCF_RESKEY_root=$tree

# expect CODE WORDS ACTION [NAME=VALUE...]: the agent ends like that and says the words.
expect() {
  local code=$1 words=$2 action=$3 ended=0
  shift 3
  env "$@" "$agent" "$action" >"$work/said" 2>&1 || ended=$?
  [ $ended = "$code" ] || { cat "$work/said"; fail "$action $* ended with $ended, not with $code"; }
  [ -z "$words" ] || grep -qF -- "$words" "$work/said" || { cat "$work/said"; fail "$action $* does not say: $words"; }
}
one_service() { [ "$(processes | wc -l)" = 1 ] || fail "not one service: $(processes)"; }
no_service() { [ -z "$(processes)" ] || fail "a service was left: $(processes)"; }

echo "== shellcheck and ocf-tester"
shellcheck "$agent"
ocf-tester -n shop -o root="$tree" "$agent" >"$work/tester" || { cat "$work/tester"; fail "ocf-tester"; }
no_service
expect 3 '' promote

echo "== what it starts"
secret=1 expect 0 '' start OCF_RESKEY_environment="TZ=Asia/Tokyo ODD=\$(id>$work/evil);*'\"" OCF_RESKEY_options="--every 3"
one_service
service=$(processes)
[ "$(stat -c %u "/proc/$service")" = "$uid" ] || fail "it runs as another user"
[ "$(ps -o sid= -p "$service" | tr -d ' ')" = "$service" ] || fail "it has no session of its own"
[ "$(readlink "/proc/$service/cwd")" = / ] || fail "it keeps a folder from being unmounted"
environment=$(tr '\0' '\n' <"/proc/$service/environ")
grep -qx 'TZ=Asia/Tokyo' <<<"$environment" || fail "it has no TZ: $environment"
grep -qxF "ODD=\$(id>$work/evil);*'\"" <<<"$environment" || fail "an odd value was changed: $environment"
if grep -qE '^(OCF_|secret)' <<<"$environment"; then fail "it inherits the cluster's environment: $environment"; fi
[ ! -e "$work/evil" ] || fail "a value was run as a command"
[[ $(tr '\0' ' ' <"/proc/$service/cmdline") == *" serve --log-format plain --every 3 " ]] || fail "it has no options"
grep -q "serving" "$work/log" || fail "it has no log"
[ "$(stat -c %a "$work/log")" = 600 ] || fail "others may read its log"
flock -n "$work/notes/tarvex-root-shop.lock" true || fail "it holds the agent's lock"
expect 0 '' start # again
one_service
expect 0 '' monitor
expect 0 '' stop
no_service
expect 7 '' monitor
expect 0 '' stop # again
expect 0 '' start OCF_RESKEY_log=syslog
expect 0 '' stop
grep -q serving "$work/syslog" || fail "nothing went to the syslog"

echo "== the journal"
mkdir -p /run/systemd/journal
mount -t tmpfs tmpfs /run/systemd/journal
expect 0 '' start OCF_RESKEY_log=
expect 0 '' stop
[ -s "$work/syslog" ] || fail "without a journal the syslog is not taken"
python3 - "$work/journal" <<'P' &
import os, socket, sys
receiver = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
receiver.bind('/run/systemd/journal/socket')
os.chmod('/run/systemd/journal/socket', 0o666)
open(sys.argv[1], 'wb').write(receiver.recv(65536))
P
for ((i = 0; i < 100; ++i)); do [ ! -S /run/systemd/journal/socket ] || break; sleep 0.1; done
expect 0 '' start OCF_RESKEY_log=
wait $!
grep -aq '^MESSAGE=serving' "$work/journal" || fail "the journal gets no entry: $(cat "$work/journal")"
kill -STOP "$(processes)" # what it would say to a journal that is gone
rm /run/systemd/journal/socket
expect 0 '' stop
grep -q 'stopped' "$work/notes/tarvex-root-shop.said" || fail "without the journal its words are lost"

echo "== what it refuses"
expect 6 "root is no absolute path: 'tree'" start OCF_RESKEY_root=tree
expect 6 "root is no absolute path: ''" validate-all OCF_RESKEY_root=
expect 5 "there is no folder $work/none: is its file system mounted?" start OCF_RESKEY_root="$work/none"
mkdir "$work/empty" "$work/other" "$work/foreign"
expect 5 "$work/empty is empty: is its file system mounted?" start OCF_RESKEY_root="$work/empty"
touch "$work/other/file"
expect 5 "$work/other holds no data tree" start OCF_RESKEY_root="$work/other"
[ "$(find "$work/empty" "$work/other" -printf %f,)" = empty,other,file, ] || fail "a refused folder was changed"
touch "$work/foreign/host.def"
expect 5 "$work/foreign belongs to root, and the service would run as $user" start OCF_RESKEY_root="$work/foreign"
expect 5 "nothing is mounted on $work" start OCF_RESKEY_mountpoint="$work"
expect 5 "there is no user nobody2" start OCF_RESKEY_user=nobody2
expect 5 "there is no program /none" start OCF_RESKEY_binary=/none
for word in TZ =x 1A=b 'A-B=c'; do expect 6 "environment: '$word' is not NAME=VALUE" start OCF_RESKEY_environment="A=b $word"; done
expect 6 "log is neither" start OCF_RESKEY_log=here
expect 6 "patience is no number" start OCF_RESKEY_patience=long
expect 6 "a tree is served once" start OCF_RESKEY_CRM_meta_clone=0
chmod g+w "$tree"
expect 1 "the service has ended: " start
grep -q "chmod go-w" "$work/said" || fail "the reason is not the service's"
chmod g-w "$tree"
no_service

echo "== what a mailbox does is no reason to move"
echo secret | "$tarvex" --root "$tree" profile add taro me@example.org --popserver 127.0.0.1 --popport 1 --popuser me \
  --password-stdin --timer 60 >/dev/null
"$tarvex" --root "$tree" forward add me@example.org phone@example.net >/dev/null
for _ in 1 2 3; do "$tarvex" --root "$tree" run --now >/dev/null 2>&1 || true; done
expect 0 '' start
expect 0 'TARVEX CRITICAL - user0/from0 fails since' monitor OCF_CHECK_LEVEL=10
for depth in 0 10 20; do expect 0 '' monitor OCF_CHECK_LEVEL=$depth; done
if grep -q CRITICAL "$work/said"; then fail "the same complaint is logged again"; fi

echo "== how it is found"
rm "$work/notes/tarvex-root-shop.pid" # by its lock
expect 0 '' monitor
expect 0 '' start
one_service
expect 0 '' stop
no_service
setpriv --reuid "$user" --clear-groups "$tarvex" --root "$tree" serve >/dev/null 2>&1 & # started by hand
by_hand=$!
for ((i = 0; i < 100; ++i)); do ! "$agent" monitor >/dev/null 2>&1 || break; sleep 0.1; done
expect 0 '' monitor
kill $by_hand
wait $by_hand || true

sleep 1000 & # what no note may have stopped
stranger=$!
began=$(cut -d' ' -f22 /proc/$stranger/stat)
for note in "$stranger" "$stranger $((began - 1))" "$stranger 0" "-1 $began" "$stranger x" "1 1" "" "\$(id) 1" "99999999 1"; do
  echo "$note" >"$work/notes/tarvex-root-shop.pid"
  expect 7 '' monitor
  expect 0 '' stop
done
for note in "$stranger serve" "-1 serve" "1 serve" "x" ""; do # of the tree's user, or of another node
  echo "$note" >"$tree/.tarvex.lock"
  expect 7 '' monitor
  expect 0 '' stop
done
make_tree "$work/other tree"
setpriv --reuid "$user" --clear-groups "$tarvex" --root "$work/other tree" serve >/dev/null 2>&1 &
other=$!
for ((i = 0; i < 100; ++i)); do ! "$tarvex" --root "$work/other tree" health --service >/dev/null || break; sleep 0.1; done
echo "$other serve" >"$tree/.tarvex.lock" # a service of the same user, which has another lock
expect 7 '' monitor
expect 0 '' stop
kill $other || fail "the service of another tree was stopped"
wait $other || true
kill -0 $stranger || fail "a note has killed a stranger"
kill $stranger

echo "== a service that is frozen, killed, or does not end"
expect 0 '' start
service=$(processes)
kill -STOP "$service"
expect 1 'the service does not answer' monitor
expect 0 '' stop
no_service
expect 0 '' start
kill -KILL "$(processes)"
for ((i = 0; i < 100; ++i)); do [ -n "$(processes)" ] || break; sleep 0.1; done
expect 7 '' monitor
mv "$tree" "$tree.away"
mkdir -m 700 "$tree"
expect 5 'is empty' start
rmdir "$tree"
mv "$tree.away" "$tree"
expect 0 '' start
mv "$tree" "$tree.away"
expect 1 'there is no folder' monitor
mv "$tree.away" "$tree"
expect 0 '' stop

cat >"$work/deaf" <<S
#!/bin/bash
[ "\$3" = serve ] || exit 2 # it never answers
trap '' TERM
sleep 1000 &
while :; do wait; done
S
chmod +x "$work/deaf"
timeout -s KILL 3 env OCF_RESKEY_binary="$work/deaf" OCF_RESKEY_generation=none "$agent" start >/dev/null 2>&1 || true # as the cluster does
one_service
since=$(date +%s)
expect 0 '' stop OCF_RESKEY_binary="$work/deaf" OCF_RESKEY_CRM_meta_timeout=8000
took=$(($(date +%s) - since))
((took >= 3 && took <= 8)) || fail "a service that does not end was killed after $took s"
grep -q 'has not ended within 4 s: killed' "$work/said" || fail "nothing is said of it"
no_service
if pgrep -u "$user" -x sleep >/dev/null; then fail "a child of the service was left"; fi

echo "== starts that are killed, and two at once"
for delay in 0.01 0.03 0.05 0.07 0.1 0.15 0.2; do
  timeout -s KILL $delay "$agent" start >/dev/null 2>&1 || true
  expect 0 '' stop
  no_service
done
"$agent" start >"$work/first" 2>&1 & first=$!
expect 0 '' start
wait $first || fail "of two starts at once one failed: $(cat "$work/first")"
one_service
expect 0 '' stop

echo "== old copies"
generation() { "$tarvex" --root "$tree" generation; }
rm -f "$PROPERTY"
expect 0 '' start
known=$(cat "$PROPERTY")
[ "$known" = "$(generation)" ] || fail "the cluster does not know the generation: $known"
expect 0 '' stop
expect 0 '' start
[ "$(cat "$PROPERTY")" = $((known + 1)) ] || fail "the cluster does not learn the next generation"
expect 0 '' stop
echo $((known + 5)) >"$PROPERTY"
expect 5 "old copy (generation $((known + 1)), known $((known + 5))); to use it: tarvex --root $tree accept --expect-generation $((known + 5)) --" start
no_service
"$tarvex" --root "$tree" accept --expect-generation $((known + 5)) --skip >/dev/null 2>&1
expect 0 '' start
[ "$(cat "$PROPERTY")" -gt $((known + 5)) ] || fail "the number was not raised"
expect 0 '' stop
echo $((known + 50)) >"$PROPERTY"
expect 0 '' start OCF_RESKEY_generation=none
expect 0 '' start # it runs
[ "$(cat "$PROPERTY")" = $((known + 50)) ] || fail "the number was lowered"
expect 0 '' stop
echo many >"$PROPERTY"
expect 6 'is no number: many' start
expect 1 'the cluster does not tell tarvex-generation-shop: no cluster' start PROPERTY=
no_service
rm "$PROPERTY"

echo "== a full disk"
mkdir "$work/disk"
mount -t tmpfs -o size=2M tmpfs "$work/disk"
make_tree "$work/disk/tree"
export OCF_RESKEY_root=$work/disk/tree OCF_RESKEY_mountpoint=$work/disk
expect 0 '' start
fill() { dd if=/dev/zero of="$1/fill" bs=4096 oflag=append conv=notrunc status=none 2>/dev/null || true; }
fill "$work/disk"
expect 0 '' monitor
expect 0 '' monitor OCF_CHECK_LEVEL=10
expect 1 'No space left on device' monitor OCF_CHECK_LEVEL=20
expect 0 '' stop
fill "$work/disk"
expect 1 'No space left on device' start
no_service
rm "$work/disk/fill"
expect 0 '' start
expect 0 '' monitor OCF_CHECK_LEVEL=20
expect 0 '' stop
[ ! -e "$work/disk/tree/.tarvex/write-check" ] || fail "the check of the disk leaves its file"
export OCF_RESKEY_root=$tree OCF_RESKEY_mountpoint=
mount -t tmpfs -o size=4k tmpfs "$work/notes"
fill "$work/notes"
expect 1 'cannot be written: is its disk full?' start
no_service
umount "$work/notes"
echo "the agent does what it says"
