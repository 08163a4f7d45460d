"""Three cluster nodes on one machine, each in namespaces of its own, between two networks, and a power switch that fences.

All of it lives in the namespaces of the process that calls enter(), and ends with that, however it ends.

          10.77.0.0/24 the cluster's own network ----+---------+---------+
                                                     n1        n2        n3    Corosync, Pacemaker, the packaged agent
          10.78.0.0/24 mail and the power switch ----+---------+---------+
          10.78.0.254 POP3, SMTP, the switch
"""

import os
import pathlib
import shutil
import signal
import socketserver
import subprocess
import sys
import threading
import time

HERE = pathlib.Path(__file__).parent
LAB = pathlib.Path('/srv')  # a disk in memory, in the mount namespace of this process
DISKS = LAB / 'disks'       # the shared disk
OUTSIDE = '10.78.0.254'
NODES = ('n1', 'n2', 'n3')
BOOT_SECONDS = 6            # of a machine that was fenced


class Failed(Exception):
    pass


def require(condition, words):
    if not condition:
        raise Failed(words)


def run(*words, check=True, **options):
    words = [str(word) for word in words]
    done = subprocess.run(words, **({'stdout': subprocess.PIPE, 'stderr': subprocess.STDOUT, 'text': True} | options))
    if check and done.returncode != 0:
        raise Failed(f'{" ".join(words)}: {done.returncode}\n{done.stdout}')
    return done


def enter():
    """Starts this program again in namespaces that end with it; exits with 77 where there are none."""
    if os.environ.get('INSIDE'):
        os.nice(-10)  # nodes have processors of their own; a machine that is busy with other things is not what is tested
        return
    unshare = ['unshare', '--mount', '--pid', '--net', '--ipc', '--fork', '--kill-child', '--mount-proc']
    if subprocess.run([*unshare, 'true'], stderr=subprocess.DEVNULL).returncode != 0:
        print('namespaces are not to be had here')
        sys.exit(77)
    os.execvpe('unshare', [*unshare, sys.executable, *sys.argv], os.environ | {'INSIDE': '1'})


def overlay(folder, work):
    for name in ('new', 'work'):
        (work / name).mkdir(parents=True)
    run('mount', '-t', 'overlay', 'overlay', '-o', f'lowerdir={folder},upperdir={work}/new,workdir={work}/work', folder)


def processes_in(space):
    """All of a namespace of processes."""
    found = []
    for entry in pathlib.Path('/proc').glob('[0-9]*'):
        try:
            if os.readlink(entry / 'ns/pid') == space:
                found.append(int(entry.name))
        except OSError:  # it has ended
            pass
    return found


class Node:
    """Its disk is in memory and stays when it is switched off."""

    def __init__(self, name):
        self.name, self.number = name, int(name[1:])
        self.address = f'10.78.0.{self.number}'
        self.disk = LAB / 'nodes' / name
        self.first, self.boots = None, 0
        self.disk.mkdir(parents=True)
        run('mount', '-t', 'tmpfs', '-o', 'size=48M', name, self.disk)

    def is_on(self):
        return self.first is not None and self.first.poll() is None

    def on(self):
        self.boots += 1
        self.first = subprocess.Popen(
            ['unshare', '--mount', '--uts', '--ipc', '--net', '--pid', '--fork', '--kill-child', '--mount-proc',
             'bash', HERE / 'node.sh', self.name, self.disk],
            stdout=open(self.disk.with_suffix(f'.{self.boots}.log'), 'w'), stderr=subprocess.STDOUT, start_new_session=True)
        for net in (77, 78):
            inside, outside = f'e{net}', f's{net}{self.number}'
            # The namespace is there a moment after the process.
            while os.readlink(f'/proc/{self.first.pid}/ns/net') == os.readlink('/proc/self/ns/net'):
                time.sleep(0.01)
            run('ip', 'link', 'add', outside, 'type', 'veth', 'peer', 'name', inside, 'netns', self.first.pid)
            run('ip', 'link', 'set', outside, 'master', f'br{net}', 'up')
            enter = ('nsenter', '--net', '--target', self.first.pid)
            run(*enter, 'ip', 'addr', 'add', f'10.{net}.0.{self.number}/24', 'dev', inside)
            run(*enter, 'ip', 'link', 'set', inside, 'up')

    def init(self):
        """The first process of the node, as this process knows it; None while there is none."""
        try:
            children = pathlib.Path(f'/proc/{self.first.pid}/task/{self.first.pid}/children').read_text().split()
        except OSError:
            return None
        return children[0] if children else None

    def processes(self):
        init = self.init()
        return processes_in(os.readlink(f'/proc/{init}/ns/pid')) if init else []

    def off(self):
        """Without a warning. When this returns, nothing of the node runs any more."""
        if not self.is_on():
            return
        init = int(self.init())
        space = os.readlink(f'/proc/{init}/ns/pid')
        self.first.kill()
        self.first.wait()
        os.waitpid(init, 0)  # it has become a child of ours, and ends when all of its namespace have ended
        require(not processes_in(space), f'{self.name} is off and runs on')
        for net in (77, 78):
            run('ip', 'link', 'delete', f's{net}{self.number}', check=False)

    def freeze(self):
        for process in self.processes():
            os.kill(process, signal.SIGSTOP)

    def cut(self):
        run('ip', 'link', 'set', f's77{self.number}', 'down')

    def do(self, *words, **options):
        """Runs a command on the node."""
        return run('nsenter', '--mount', '--uts', '--ipc', '--net', '--pid', '--target', self.init(), *words, timeout=30, **options)

    def service(self, tree):
        """The process that serves a tree here, or None."""
        for process in self.processes():
            try:
                words = pathlib.Path(f'/proc/{process}/cmdline').read_text().split('\0')
            except OSError:
                continue
            if 'serve' in words and f'/srv/tarvex/{tree}/tree' in words:
                return process
        return None


class Lab:
    def __init__(self, packaged_root):
        os.umask(0o022)
        run('mount', '-t', 'tmpfs', '-o', 'size=256M', 'lab', LAB)
        run('mount', '-t', 'tmpfs', 'run', '/run')
        os.environ['HOME'] = str(LAB)
        DISKS.mkdir()
        run('ip', 'link', 'set', 'lo', 'up')
        for net in (77, 78):
            # An address of its own: else it changes with the nodes that come and go, and the others do not find it.
            run('ip', 'link', 'add', f'br{net}', 'address', f'02:00:00:00:00:{net}', 'type', 'bridge')
            run('ip', 'addr', 'add', f'10.{net}.0.254/24', 'dev', f'br{net}')
            run('ip', 'link', 'set', f'br{net}', 'up')
        overlay('/usr/sbin', LAB / 'sbin')
        run('install', '-m', '755', HERE / 'fence_switch', '/usr/sbin/')
        if not shutil.which('modprobe'):  # the agent of file systems asks for it, whatever it mounts
            os.symlink('/bin/true', '/usr/sbin/modprobe')
        overlay('/usr/lib/ocf/resource.d', LAB / 'ocf')
        run('cp', '-r', packaged_root / 'usr/lib/ocf/resource.d/tarvex', '/usr/lib/ocf/resource.d/')
        self.nodes = {name: Node(name) for name in NODES}
        self.fenced = []  # moment and node
        self.switch_answers = True
        threading.Thread(target=self._switch, daemon=True).start()

    def _switch(self):
        lab = self

        class Request(socketserver.StreamRequestHandler):
            def handle(self):
                action, _, name = self.rfile.readline().decode().strip().partition(' ')
                if not lab.switch_answers:
                    time.sleep(2)
                    return
                node = lab.nodes[name]
                if action in ('off', 'reboot'):
                    node.off()
                    lab.fenced.append((time.monotonic(), name))
                self.wfile.write(b'on\n' if action == 'status' and node.is_on() else b'off\n')
                self.wfile.flush()
                if action == 'reboot':
                    threading.Timer(BOOT_SECONDS, node.on).start()

        socketserver.ThreadingTCPServer.allow_reuse_address = True
        socketserver.ThreadingTCPServer((OUTSIDE, 8000), Request).serve_forever()

    def nodes_online(self, asked):
        """How many the cluster has, by one that is asked."""
        told = self.nodes[asked].do('crm_mon', '--one-shot', '--output-as=xml', check=False).stdout
        return sum('online="true"' in line and 'pending="false"' in line for line in told.splitlines() if '<node name' in line)
