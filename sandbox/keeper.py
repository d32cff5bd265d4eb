#!/usr/bin/env python3
"""Keeps the processes of one sandbox, and ends them with the sandbox.

usage: keeper.py DIR PARENT_PID

Reads "start NAME", "stop NAME" and "end" from DIR/control; a service is the
program DIR/services/NAME/run, its output goes to DIR/services/NAME/log and its
process id to DIR/services/NAME/pid while it lives. When the parent ends, however
it ends, everything below the keeper is killed, DIR/at_end is run and DIR removed.
As child subreaper it also owns what commands on the clients leave behind.
"""
import ctypes
import os
import random
import select
import shutil
import signal
import socket
import subprocess
import sys
import time

PR_SET_CHILD_SUBREAPER = 36


def descendants(root):
    """Living processes below root, children before grandchildren."""
    children = {}
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{name}/stat", "rb") as file:
                state, parent = file.read().rpartition(b")")[2].split()[:2]
        except OSError:
            continue
        if state != b"Z":
            children.setdefault(int(parent), []).append(int(name))
    found = list(children.get(root, []))
    for pid in found:
        found.extend(children.get(pid, []))
    return found


def kill_all(root):
    """Until nothing is left: a process may fork while it is being killed."""
    end = time.monotonic() + 5
    while (left := descendants(root)) and time.monotonic() < end:
        for pid in left:
            send(pid, signal.SIGKILL)
        time.sleep(0.01)


def send(pid, number):
    try:
        os.kill(pid, number)
    except OSError:
        pass


def reserve_net():
    """A net of loopback addresses and a port that no other sandbox has: who listens
    on its first address owns it. Fails too where a program holds the port everywhere."""
    while True:
        net, port = f"127.{random.randint(1, 250)}.{random.randint(0, 200)}", random.randint(20000, 29999)
        try:
            return net, port, socket.create_server((net + ".1", port))
        except OSError:
            continue


class Keeper:
    def __init__(self, directory):
        self.directory = directory
        self.running = {}

    def path(self, name, file):
        return os.path.join(self.directory, "services", name, file)

    def start(self, name):
        if name in self.running.values():
            return
        with open(self.path(name, "log"), "ab") as log:
            child = subprocess.Popen([self.path(name, "run")], stdin=subprocess.DEVNULL, stdout=log,
                                     stderr=log, start_new_session=True, cwd=self.directory)
        self.running[child.pid] = name
        with open(self.path(name, "pid"), "w") as file:
            file.write(f"{child.pid}\n")

    def stop(self, name):
        """The service and its sessions, at once."""
        for pid in [pid for pid, other in self.running.items() if other == name]:
            for one in [pid] + descendants(pid):
                send(one, signal.SIGKILL)
            os.waitpid(pid, 0)
            self.gone(pid)

    def gone(self, pid):
        name = self.running.pop(pid, None)
        if name:
            os.unlink(self.path(name, "pid"))

    def reap(self):
        while True:
            try:
                pid, _ = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return
            if pid == 0:
                return
            self.gone(pid)

    def end(self):
        # The database server cleans its shared memory up when told to quit.
        for pid, name in self.running.items():
            if name == "postgres":
                send(pid, signal.SIGQUIT)
        end = time.monotonic() + 2
        while "postgres" in self.running.values() and time.monotonic() < end:
            self.reap()
            time.sleep(0.01)
        kill_all(os.getpid())
        signal.set_wakeup_fd(-1)
        subprocess.run([os.path.join(self.directory, "at_end")], stdin=subprocess.DEVNULL,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
        # Last of all: who took the sandbox down waits for this.
        shutil.rmtree(self.directory, ignore_errors=True)


def main():
    directory, parent = sys.argv[1], int(sys.argv[2])
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    keeper = Keeper(directory)
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGCHLD):
        signal.signal(number, lambda *_: None)
    wake_read, wake_write = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
    signal.set_wakeup_fd(wake_write)
    # Read and write, so that end of file never comes.
    control = os.open(os.path.join(directory, "control"), os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC)
    try:
        watched = os.pidfd_open(parent)
    except ProcessLookupError:
        keeper.end()
        return
    poll = select.poll()
    for fd in (wake_read, control, watched):
        poll.register(fd, select.POLLIN)
    net, port, _lock = reserve_net()
    for name, text in (("net", f"{net} {port}"), ("keeper.pid", str(os.getpid()))):
        with open(os.path.join(directory, name), "w") as file:
            file.write(text + "\n")
    pending = b""
    while True:
        ready = {fd for fd, _ in poll.poll()}
        if wake_read in ready:
            numbers = os.read(wake_read, 4096)
            keeper.reap()
            if any(number != signal.SIGCHLD for number in numbers):
                break
        if watched in ready:
            break
        if control in ready:
            *lines, pending = (pending + os.read(control, 65536)).split(b"\n")
            for line in lines:
                verb, _, name = line.decode().partition(" ")
                if verb == "start":
                    keeper.start(name)
                elif verb == "stop":
                    keeper.stop(name)
                elif verb == "end":
                    keeper.end()
                    return
    keeper.end()


main()
