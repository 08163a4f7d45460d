#!/usr/bin/env -S python3 -B
"""Three cluster nodes with fencing serve four trees by the packaged agent, and lose what machines lose: a node, its wits, its
link, its disk, the power. Every message must arrive, from one node at a time, and soon again from another.

    nodes.py PACKAGED_ROOT [EVENT...]    into which the packages were unpacked; the events (kill_node, lose_fencing), or all
"""

import os
import pathlib
import shutil
import signal
import subprocess
import sys
import time

from lab import DISKS, LAB, NODES, OUTSIDE, Failed, Lab, enter, require, run
from mail import Mail

TREES = ('tree1', 'tree2', 'tree3', 'tree4')
EVENTS = ('kill_node', 'kill_service', 'freeze_node', 'freeze_service', 'cut_node', 'move', 'lose_fencing', 'fill_disk',
          'old_copy', 'lose_power')
SOON = 15  # seconds until a tree is served by another node

COROSYNC = '''totem {{
  version: 2
  cluster_name: lab
  transport: knet
  crypto_cipher: none
  crypto_hash: none
  token: 3000
}}
nodelist {{
{nodes}}}
quorum {{
  provider: corosync_votequorum
}}
logging {{
  to_logfile: yes
  logfile: /var/log/corosync/corosync.log
  to_syslog: no
}}
'''

CONFIGURATION = '''property stonith-enabled=true no-quorum-policy=stop placement-strategy=balanced dc-deadtime=5s
rsc_defaults resource-stickiness=100 migration-threshold=3
primitive switch stonith:fence_switch params pcmk_host_list="n1 n2 n3"
'''

TREE = '''primitive {tree}-fs ocf:heartbeat:Filesystem \\
    params device=/srv/disks/{tree} directory=/srv/tarvex/{tree} fstype=none options=bind \\
    op start interval=0 timeout=60s op stop interval=0 timeout=60s op monitor interval=20s timeout=40s
primitive {tree} ocf:tarvex:root \\
    params root=/srv/tarvex/{tree}/tree mountpoint=/srv/tarvex/{tree} user=nobody binary=/srv/tarvex.sh \\
    options="--every 1" log=/var/log/{tree} utilization mailboxes=1 \\
    op start interval=0 timeout=60s op stop interval=0 timeout=40s op monitor interval=5s timeout=20s
group {tree}-all {tree}-fs {tree}
'''


def wait_for(what, condition, seconds):
    deadline = time.monotonic() + seconds
    while not (result := condition()):
        require(time.monotonic() < deadline, f'not within {seconds} s: {what}')
        time.sleep(0.1)
    return result


class Cluster:
    def __init__(self, packaged_root):
        self.lab = Lab(packaged_root)
        self.nodes = self.lab.nodes
        self.rows = []      # of the table: event, its moment, who delivered, seconds, remark
        self.stopped = set()  # trees that are not to be served
        self._make_program(packaged_root)
        self._make_trees()
        self._configure()
        self.mail = Mail(OUTSIDE, TREES, 0.4)
        for node in self.nodes.values():
            node.on()
        wait_for('all is served', self.is_well, 90)

    def _make_program(self, packaged_root):
        shutil.copytree(packaged_root / 'usr', LAB / 'usr', symlinks=True)
        library = next((LAB / 'usr/lib').glob('*/libtarvex.so.0')).parent
        self.tarvex = LAB / 'tarvex.sh'
        self.tarvex.write_text(f'#!/bin/sh\nLD_LIBRARY_PATH={library} exec {LAB}/usr/bin/tarvex "$@"\n')
        self.tarvex.chmod(0o755)

    def _make_trees(self):
        for tree in TREES:
            root = DISKS / tree / 'tree'
            root.mkdir(parents=True, mode=0o700)
            (LAB / 'tarvex' / tree).mkdir(parents=True)
            shutil.chown(root, 'nobody')
            words = [self.tarvex, '--root', root]
            run(*words, 'init')
            run(*words, 'user', 'add', 'taro')
            run(*words, 'profile', 'add', 'taro', f'{tree}@example.org', '--popserver', OUTSIDE, '--popuser', tree,
                '--smtpserver', OUTSIDE, '--timer', '0', '--deletemail', '1', '--plain', '--password-stdin', input='secret\n')
            run(*words, 'forward', 'add', f'{tree}@example.org', 'phone@example.net')

    def _configure(self):
        nodes = ''.join(f'  node {{\n    ring0_addr: 10.77.0.{n[1:]}\n    name: {n}\n    nodeid: {n[1:]}\n  }}\n' for n in NODES)
        (LAB / 'corosync.conf').write_text(COROSYNC.format(nodes=nodes))
        (LAB / 'lab.crm').write_text(CONFIGURATION + ''.join(f'node {i}: n{i} utilization mailboxes=4\n' for i in (1, 2, 3)) +
                                     ''.join(TREE.format(tree=tree) for tree in TREES))
        cib = LAB / 'cib.xml'
        run('cibadmin', '--empty', stdout=cib.open('w'))
        run('crm', 'configure', 'load', 'update', LAB / 'lab.crm', env=os.environ | {'CIB_file': str(cib)})
        for node in self.nodes.values():
            folder = node.disk / 'pacemaker/cib'
            folder.mkdir(parents=True)
            shutil.copy(cib, folder)

    # ---- looking

    def any_node(self):
        return next(name for name, node in self.nodes.items() if node.is_on())

    def node_of(self, tree):
        """The node that delivered last."""
        last = self.mail.last(tree)
        return next(name for name, node in self.nodes.items() if node.address == last.peer)

    def is_well(self):
        """All nodes are members, and every tree has delivered within two seconds."""
        now = time.monotonic()
        lasts = [self.mail.last(tree) for tree in TREES if tree not in self.stopped]
        if not all(last and now - last.time < 2 for last in lasts):
            return False
        return all(node.is_on() for node in self.nodes.values()) and self.lab.nodes_online(self.any_node()) == len(NODES)

    def trees_of(self, node):
        return [tree for tree in TREES if tree not in self.stopped and self.node_of(tree) == node]

    def crowded(self):
        """The node with most trees."""
        return max(NODES, key=lambda node: len(self.trees_of(node)))

    def await_delivery(self, trees, since, peers, seconds):
        """Until each tree has delivered, from one of the nodes, what was made since then; how long the last one took."""
        addresses = [self.nodes[peer].address for peer in peers]

        def first():
            found = [self.mail.first(tree, since, addresses) for tree in trees]
            return found if all(found) else None

        return max(delivery.time for delivery in wait_for(f'{", ".join(trees)} from {" or ".join(peers)}', first, seconds)) - since

    def log(self, event, since, trees, seconds, remark=''):
        self.rows.append((event, since, trees, seconds, remark))
        print(f'{time.monotonic() - self.began:6.1f} {event}: {len(trees)} trees, {seconds:.1f} s {remark}', flush=True)

    # ---- what happens

    def lose(self, event, harm, remark=''):
        """A node is lost with its trees: others must serve them, and it never again beside them."""
        victim = self.crowded()
        trees = self.trees_of(victim)
        others = [node for node in NODES if node != victim]
        since = time.monotonic()
        harm(self.nodes[victim])
        seconds = self.await_delivery(trees, since, others, 60)
        self.require_one_at_a_time(trees, victim, since)
        self.log(event, since, trees, seconds, remark)
        require(seconds <= SOON, f'{event}: {seconds:.1f} s')
        wait_for(f'{event}: all is well again', self.is_well, 60)
        self.require_one_at_a_time(trees, victim, since)

    def require_one_at_a_time(self, trees, old, since):
        for tree in trees:
            after = [d.peer for d in self.mail.deliveries if d.box == tree and d.time > since]
            first = next(i for i, peer in enumerate(after) if peer != self.nodes[old].address)
            require(self.nodes[old].address not in after[first:], f'{tree} was served by two nodes')

    def kill_service(self):
        tree = 'tree1'
        node = self.node_of(tree)
        since = time.monotonic()
        os.kill(self.nodes[node].service(tree), signal.SIGKILL)
        self.log('service killed', since, [tree], self.await_delivery([tree], since, NODES, SOON), 'started again')

    def freeze_service(self):
        tree = 'tree2'
        service = self.nodes[self.node_of(tree)].service(tree)
        since = time.monotonic()
        os.kill(service, signal.SIGSTOP)
        self.log('service frozen', since, [tree], self.await_delivery([tree], since, NODES, 2 * SOON), 'started again')

    def move(self):
        tree = 'tree3'
        old = self.node_of(tree)
        new = next(node for node in NODES if node != old)
        self.nodes[old].do('crm_resource', '--move', '--resource', f'{tree}-all', '--node', new)
        since = self.mail.last(tree).time
        self.await_delivery([tree], since, [new], SOON)
        times = [d.time for d in self.mail.deliveries if d.box == tree and d.time >= since]
        gap = max(b - a for a, b in zip(times, times[1:]))
        self.log('planned move', since, [tree], gap, 'longest gap between deliveries')
        self.require_one_at_a_time([tree], old, since)
        self.nodes[old].do('crm_resource', '--clear', '--resource', f'{tree}-all')

    def lose_fencing(self):
        """A node that is cut off and cannot be fenced: it stops its trees itself, and nobody else may start them."""
        victim = self.crowded()
        trees = self.trees_of(victim)
        others = [node for node in NODES if node != victim]
        self.lab.switch_answers = False
        since = time.monotonic()
        self.nodes[victim].cut()
        wait_for('the node that is cut off stops its trees',
                 lambda: not any(self.nodes[victim].service(tree) for tree in trees), 30)
        stopped = time.monotonic() - since
        time.sleep(max(0, 2 * SOON - stopped))  # there is no event to wait for: that nothing happens is what is tested
        for node in others:
            require(not any(self.nodes[node].service(tree) for tree in trees), f'{node} serves a tree of a node not fenced')
        addresses = [self.nodes[node].address for node in others]
        require(not any(self.mail.first(tree, since, addresses) for tree in trees), 'a survivor delivers without fencing')
        self.lab.switch_answers = True
        again = time.monotonic()
        seconds = self.await_delivery(trees, since, others, 60)
        self.log('fence device dead', since, trees, seconds,
                 f'its own node stops them after {stopped:.1f} s; nobody starts them until the device is back '
                 f'({seconds - (again - since):.1f} s later)')
        wait_for('all is well again', self.is_well, 60)
        self.require_one_at_a_time(trees, victim, since)

    def fill_disk(self):
        """The disk of a node, with its logs and its copy of the configuration. Its trees are served on."""
        victim = self.crowded()
        trees = self.trees_of(victim)
        since = time.monotonic()
        subprocess.run(['dd', 'if=/dev/zero', f'of={self.nodes[victim].disk}/fill', 'bs=4096'], stderr=subprocess.DEVNULL)
        seconds = self.await_delivery(trees, since, NODES, SOON)
        time.sleep(6)  # a monitor
        (self.nodes[victim].disk / 'fill').unlink()
        self.await_delivery(trees, time.monotonic(), NODES, 2 * SOON)
        self.log('disk of a node full', since, trees, seconds, 'served on')

    def old_copy(self):
        tree = 'tree4'
        disk = DISKS / tree
        node = self.any_node()

        def told():
            return self.nodes[node].do('crm_mon', '--one-shot', '--group-by-node', '--inactive').stdout

        def serving():
            return any(self.nodes[name].service(tree) for name in NODES)

        def stop_and_start(exchange):
            self.nodes[node].do('crm_resource', '--resource', f'{tree}-all', '--meta', '--set-parameter', 'target-role',
                                '--parameter-value', 'Stopped')
            wait_for('the tree is stopped', lambda: not serving(), SOON)
            exchange()
            self.nodes[node].do('crm_resource', '--resource', f'{tree}-all', '--meta', '--delete-parameter', 'target-role')

        # A copy of now; the tree is started once more, and then the copy takes its place.
        since = time.monotonic()
        self.stopped.add(tree)
        stop_and_start(lambda: run('cp', '-a', disk / 'tree', disk / 'old'))
        self.await_delivery([tree], time.monotonic(), NODES, SOON)

        def exchange():
            (disk / 'tree').rename(disk / 'new')
            (disk / 'old').rename(disk / 'tree')

        stop_and_start(exchange)
        def refusals():
            lines = [line for line in told().splitlines() if 'old copy (' in line]
            return lines if len(lines) == len(NODES) else None

        reasons = wait_for('every node refuses the old copy', refusals, SOON)
        require(not serving(), 'an old copy is served')
        require(all('accept --expect-generation' in line for line in reasons), f'it is not said what to type: {reasons}')

        def put_back():
            (disk / 'tree').rename(disk / 'old')
            (disk / 'new').rename(disk / 'tree')

        stop_and_start(put_back)
        self.nodes[node].do('crm_resource', '--cleanup', '--resource', tree)
        back = time.monotonic()
        seconds = self.await_delivery([tree], back, NODES, SOON)
        self.stopped.discard(tree)
        self.log('old copy put in place', since, [tree], seconds, 'refused on every node; seconds after the new one was put back')

    def lose_power(self):
        since = time.monotonic()
        for node in self.nodes.values():
            node.off()
        for node in self.nodes.values():
            node.on()
        self.log('power loss of all', since, TREES, self.await_delivery(TREES, since, NODES, 90), 'from cold')
        wait_for('all is well again', self.is_well, 60)

    # ---- the sum

    def settle(self):
        self.mail.grows = False
        wait_for('all that was made arrives', lambda: set(self.mail.made) <= set(self.mail.times()), 30)

    def table(self):
        times = self.mail.times()
        ends = [row[1] for row in self.rows[1:]] + [float('inf')]
        print(f'\n| {"event":22} | trees | seconds | made | arrived | twice | |\n|---|---|---|---|---|---|---|')
        for (event, since, trees, seconds, remark), end in zip(self.rows, ends):
            made = [name for name, moment in self.mail.made.items() if since <= moment < end]
            twice = sum(times[name] > 1 for name in made)
            print(f'| {event:22} | {len(trees)} | {seconds:.1f} | {len(made)} | {sum(name in times for name in made)} | {twice} '
                  f'| {remark} |')
        lost = [name for name in self.mail.made if name not in times]
        twice = [name for name in self.mail.made if times[name] > 1]
        print(f'\nmade {len(self.mail.made)}, arrived {len(times)}, lost {len(lost)}, twice {len(twice)} {twice}; '
              f'largest run {self.mail.largest_run}; fenced {len(self.lab.fenced)} times; {time.monotonic() - self.began:.0f} s')
        return lost, twice

    def kill_node(self):
        self.lose('node killed', lambda node: node.off())

    def freeze_node(self):
        self.lose('node frozen', lambda node: node.freeze())

    def cut_node(self):
        self.lose('node cut off', lambda node: node.cut())

    def run(self, events):
        self.began = time.monotonic()
        for event in events or EVENTS:
            getattr(self, event)()
        self.settle()
        lost, twice = self.table()
        require(not lost, f'lost: {lost}')
        # Of each event that kills a service in the middle, what one run had in hand.
        require(len(twice) <= self.mail.largest_run * len(self.rows), f'twice: {twice}')


def show_logs():
    """The last words of every node, for whoever has to find out."""
    for log in sorted([*LAB.glob('nodes/*.log'), *LAB.glob('nodes/*/log/*.log'), *LAB.glob('nodes/*/log/*/*.log')]):
        print(f'---- {log}')
        print(''.join(line for line in log.read_text(errors='replace').splitlines(keepends=True)
                      if any(word in line for word in ('error', 'warning', 'notice', 'daemon')))[-6000:])
    print(subprocess.run(['ps', 'axf', '-o', 'pid,stat,args'], capture_output=True, text=True).stdout[-4000:])


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    for missing, words in ((not root.is_dir(), 'there are no packages'), (os.getuid() != 0, 'only root can make nodes')):
        if missing:
            print(words)
            sys.exit(77)
    for tool in ('corosync', 'pacemakerd', 'crm', 'ip'):
        if not shutil.which(tool):
            print(f'{tool} is not installed')
            sys.exit(77)
    enter()
    try:
        Cluster(root).run(sys.argv[2:])
    except Failed as failure:
        print(f'FAILED: {failure}')
        show_logs()
        sys.exit(1)


if __name__ == '__main__':
    main()
