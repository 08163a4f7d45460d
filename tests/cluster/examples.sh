#!/usr/bin/env bash
# Loads the examples of the package with crmsh and with pcs, each into a file: the cluster's own check has nothing to say
# about them, and its simulation puts the trees where they belong.
#   examples.sh PACKAGED_ROOT    into which the packages were unpacked
set -euo pipefail
root=$1
skip() { echo "$*"; exit 77; }
fail() { echo "FAILED: $*" >&2; exit 1; }

[ -d "$root" ] || skip "there are no packages"
[ "$(id -u)" = 0 ] || skip "only root can put agents where crmsh and pcs look for them"
for tool in crm pcs crm_verify crm_simulate; do command -v $tool >/dev/null || skip "$tool is not installed"; done
[ -e /usr/lib/ocf/resource.d/linbit/drbd ] || skip "DRBD's agent is not installed"
if [ -z "${INSIDE-}" ]; then
  unshare --mount true 2>/dev/null || skip "a mount namespace is not to be had here"
  INSIDE=1 exec unshare --mount "$0" "$@"
fi

work=/run/tarvex-examples # memory, in this mount namespace alone
mount -t tmpfs tmpfs /run
mkdir -p $work/{sbin,ocf}/{new,work} $work/home
mount -t overlay overlay -o lowerdir=/usr/sbin,upperdir=$work/sbin/new,workdir=$work/sbin/work /usr/sbin
mount -t overlay overlay -o lowerdir=/usr/lib/ocf/resource.d,upperdir=$work/ocf/new,workdir=$work/ocf/work /usr/lib/ocf/resource.d
cp -r "$root/usr/lib/ocf/resource.d/tarvex" /usr/lib/ocf/resource.d/
# The words of the real one that the examples use; that needs many packages.
cat >/usr/sbin/fence_sbd <<'S'
#!/bin/sh
cat <<'X'
<?xml version="1.0"?><resource-agent name="fence_sbd" shortdesc="fencing by sbd"><longdesc>fencing by sbd</longdesc><parameters>
<parameter name="devices" required="1"><content type="string"/></parameter><parameter name="port"><content type="string"/></parameter>
</parameters><actions><action name="on"/><action name="off"/><action name="reboot"/><action name="status"/><action name="monitor"/>
<action name="list"/><action name="metadata"/><action name="validate-all"/></actions></resource-agent>
X
S
chmod +x /usr/sbin/fence_sbd
examples=$root/usr/share/doc/tarvex-cluster/examples
cd $work
export HOME=$work/home XDG_CONFIG_HOME=$work/home XDG_CACHE_HOME=$work/home

# empty_cluster NODE...: all of them are there, and sbd has said so.
empty_cluster() {
  local node number=0 nodes='' states=''
  for node in "$@"; do
    number=$((number + 1))
    nodes+="<node id='$number' uname='$node'/>"
    states+="<node_state id='$number' uname='$node' in_ccm='true' crmd='online' join='member' expected='member'>
<transient_attributes id='$number'><instance_attributes id='s$number'>
<nvpair id='s$number-drbd' name='master-shop-drbd' value='$((10000 - number))'/></instance_attributes></transient_attributes>
<lrm id='$number'><lrm_resources/></lrm></node_state>"
  done
  echo "<cib crm_feature_set='3.16.1' validate-with='pacemaker-3.9' epoch='1' num_updates='0' admin_epoch='0' have-quorum='1'>
<configuration><crm_config><cluster_property_set id='cib-bootstrap-options'>
<nvpair id='watchdog' name='have-watchdog' value='true'/></cluster_property_set></crm_config>
<nodes>$nodes</nodes><resources/><constraints/></configuration><status>$states</status></cib>"
}
load() { # EXAMPLE NODE...: by both, into EXAMPLE.crm.xml and EXAMPLE.pcs.xml
  local example=$1
  shift
  empty_cluster "$@" >"$example.crm.xml"
  cp "$example.crm.xml" "$example.pcs.xml"
  CIB_file=$work/$example.crm.xml crm configure load update "$examples/$example.crm" >said 2>&1 || { cat said; fail "$example.crm"; }
  ! grep -qiE 'error|warning' said || { cat said; fail "crmsh has something against $example.crm"; }
  # What the example has done by hand before.
  [ "$example" != drbd-pair ] || CIB_file=$work/$example.pcs.xml crm_attribute --name stonith-watchdog-timeout --update 10s
  PCS="pcs -f $example.pcs.xml" sh "$examples/$example.pcs" >said 2>&1 || { cat said; fail "$example.pcs"; }
  ! grep -v 'Defaults do not apply' said | grep -qiE 'error|warning' || { cat said; fail "pcs has something against $example.pcs"; }
  for by in crm pcs; do
    crm_verify --verbose --xml-file "$example.$by.xml" >said 2>&1 || { cat said; fail "$example.$by is no good configuration"; }
    [ ! -s said ] || { cat said; fail "crm_verify has something against $example.$by"; }
  done
}
# where FILE [OPTION...]: "shop node1" and so on, after the cluster has done all that it wants.
where() {
  local file=$1
  shift
  crm_simulate --xml-file "$file" --simulate --save-output after.xml "$@" >simulated 2>&1 || { cat simulated; fail "simulation of $file"; }
  crm_simulate --xml-file after.xml | awk '/\(ocf:tarvex:root\)/ { for (i = 1; i < NF; ++i) if ($i ~ /ocf:tarvex/) print $(i - 1), $NF }' | sort
}

load drbd-pair node1 node2
for by in crm pcs; do
  [ "$(where drbd-pair.$by.xml)" = "shop node1" ] || { cat simulated; fail "$by: the tree is not where DRBD is primary"; }
  [ "$(where drbd-pair.$by.xml --node-down node1)" = "shop node2" ] || { cat simulated; fail "$by: the tree does not move"; }
  # What is done on the lost node comes first; then one after the other.
  order=$(crm_simulate --xml-file drbd-pair.$by.xml --simulate |
    sed -nE 's/.*Resource action: (shop|shop-fs|shop-drbd)(:[01])? +(start|promote) on node1/\1 \3/p' | tr '\n' ,)
  [ "$order" = "shop-drbd start,shop-drbd promote,shop-fs start,shop start," ] || fail "$by: the order is $order"
done

load three-nodes node1 node2 node3
sizes="shop 9000 club 5000 school 4000 team 3000"
for by in crm pcs; do
  spread=$(where three-nodes.$by.xml)
  echo "$by: $(tr '\n' ',' <<<"$spread")"
  # The largest is alone; no node bears more than the two smallest together.
  most=$(awk -v sizes="$sizes" 'BEGIN { count = split(sizes, s, " "); for (i = 1; i < count; i += 2) size[s[i]] = s[i + 1] }
    { on[$2] += size[$1] } END { for (n in on) if (on[n] > most) most = on[n]; print most }' <<<"$spread")
  [ "$most" = 9000 ] || fail "$by: a node bears $most mailboxes: $spread"
  [ "$(wc -l <<<"$spread")" = 4 ] || fail "$by: not all trees are served: $spread"
  # Without the sizes: by the number of trees alone.
  sed '/placement-strategy/s/balanced/default/' three-nodes.$by.xml >plain.xml
  [ "$(where plain.xml)" != "$spread" ] || fail "$by: the sizes make no difference"
  # A node that is too small gets nothing that it cannot bear.
  sed 's/value="20000"/value="8000"/' three-nodes.$by.xml >small.xml
  where small.xml | grep -q '^shop node' && fail "$by: a tree is where it does not fit"
  lost=$(awk '$1 == "shop" { print $2 }' <<<"$spread")
  where three-nodes.$by.xml --node-down "$lost" >moved
  if grep -q " $lost$" moved || [ "$(wc -l <moved)" != 4 ]; then cat moved; fail "$by: without $lost not all trees are served"; fi
done
echo "the examples are what they say"
