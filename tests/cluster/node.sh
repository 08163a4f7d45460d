#!/bin/bash
# The first process of a cluster node, in namespaces of its own: gives it its disk, then Corosync and Pacemaker.
#   node.sh NAME DISK
set -eu
hostname "$1"
disk=$2
mkdir -p "$disk"/{pacemaker/{cib,pengine,cores,blackbox},corosync,log/{pacemaker,corosync}}
mount --bind "$disk/pacemaker" /var/lib/pacemaker
mount --bind "$disk/corosync" /var/lib/corosync
mount --bind "$disk/log" /var/log
for memory in /run /dev/shm /etc/corosync; do mount -t tmpfs -o mode=755 memory $memory; done
chmod 1777 /dev/shm
mkdir -p /run/crm /run/resource-agents /run/lock
chown -R hacluster:haclient /var/lib/pacemaker /var/log/pacemaker /run/crm
cp /srv/corosync.conf /etc/corosync/
until ip -brief addr show e78 2>/dev/null | grep -q 10.78 && ip -brief addr show e77 | grep -q 10.77; do sleep 0.05; done
ip link set lo up
corosync -f &
for ((i = 0; i < 100; ++i)); do ! corosync-cfgtool -s >/dev/null 2>&1 || break; sleep 0.1; done
PCMK_logfile=/var/log/pacemaker/pacemaker.log PCMK_ipc_type=shared-mem pacemakerd &
set +e
wait -n
echo "a daemon has ended: $?"
sleep infinity # a node that is on, but no member
