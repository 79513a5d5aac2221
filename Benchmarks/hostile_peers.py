#!/usr/bin/env python3
"""What hostile peers of the same user cost a service, measured from outside.

Starts the IPC test peer (`IPCPeer serve NAME`) of a build under the usual descriptor limit of
1,024 and attacks it three ways, one after the other, each against a fresh peer:

  idle     1,100 connections that send nothing: the peer's CPU time over 5 s (it should sleep)
  headers  200 connections that each announce a 256 MiB message and send 100 bytes of it:
           the peer's resident and virtual memory afterwards
  garbage  connections that send bytes that are no messages, for 10 s: how many there were,
           and how many bytes the peer wrote to its log (standard error) meanwhile

After each attack it says whether the peer still answers a new client (a connect that is
accepted). Usage: Benchmarks/hostile_peers.py BUILD_DIR [idle|headers|garbage ...]
"""

import hashlib
import os
import resource
import socket
import struct
import subprocess
import sys
import tempfile
import time

NAME = "hostile-bench"
FRAME_MAGIC = 0x5A43
REPLY_WANTED = 1


def socket_path(runtime_dir, name):
    stem = "".join(c if c.isalnum() or c in "._-" else "_" for c in name[:32])
    if not stem or stem[0] == ".":
        stem = "_" + stem
    digest = hashlib.sha256(name.encode()).hexdigest()[:32]
    return os.path.join(runtime_dir, "zon-ports", f"{stem}-{digest}.sock")


def cpu_seconds(pid):
    with open(f"/proc/{pid}/stat") as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    ticks = os.sysconf("SC_CLK_TCK")
    return (int(fields[11]) + int(fields[12])) / ticks


def status_kib(pid, field):
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            if line.startswith(field + ":"):
                return int(line.split()[1])
    return 0


def connect(path, timeout=5.0):
    # A blocking connect bounded by the send timeout, as the library's own: a full queue of new
    # connections is waited out for that long instead of failing at once.
    client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    seconds = int(timeout)
    client.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO,
                      struct.pack("ll", seconds, int((timeout - seconds) * 1e6)))
    client.connect(path)
    client.settimeout(timeout)
    return client


class Peer:
    def __init__(self, build_dir):
        self.runtime = tempfile.mkdtemp(prefix="zon-hostile-")
        os.chmod(self.runtime, 0o700)
        env = dict(os.environ, XDG_RUNTIME_DIR=self.runtime, ZON_LOG_STDERR="1")
        self.log = tempfile.TemporaryFile()
        peer = os.path.join(build_dir, "Tests", "support", "IPCPeer")
        self.process = subprocess.Popen(
            [peer, "serve", NAME], env=env, stdout=subprocess.PIPE, stderr=self.log,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (1024, 1024)))
        if self.process.stdout.readline().strip() != b"ready":
            raise SystemExit("the peer did not start")
        self.path = socket_path(self.runtime, NAME)

    def log_bytes(self):
        return os.fstat(self.log.fileno()).st_size

    def answers(self):
        try:
            probe = connect(self.path, timeout=6.0)
            probe.close()
            return "yes"
        except OSError as error:
            return f"no ({error})"

    def stop(self):
        self.process.kill()
        self.process.wait()
        subprocess.run(["rm", "-rf", self.runtime])


def attack_idle(peer):
    held = []
    for _ in range(1100):
        try:
            held.append(connect(peer.path))
        except OSError:
            break
    before = cpu_seconds(peer.process.pid)
    time.sleep(5)
    spent = cpu_seconds(peer.process.pid) - before
    print(f"idle: {len(held)} connections held; peer CPU {spent:.2f} s in 5 s; "
          f"answers a new client: {peer.answers()}")
    for connection in held:
        connection.close()


def attack_headers(peer):
    frame = struct.pack("=IIiHH", 256 << 20, 1, 0, REPLY_WANTED, FRAME_MAGIC) + b"x" * 100
    held = []
    for _ in range(200):
        connection = connect(peer.path)
        connection.sendall(frame)
        held.append(connection)
    time.sleep(1)
    pid = peer.process.pid
    print(f"headers: 200 stalled 256 MiB messages; peer VmRSS {status_kib(pid, 'VmRSS') // 1024} MiB, "
          f"VmSize {status_kib(pid, 'VmSize') // 1024} MiB; answers a new client: {peer.answers()}")
    for connection in held:
        connection.close()


def attack_garbage(peer):
    start_log = peer.log_bytes()
    count = 0
    deadline = time.monotonic() + 10
    while time.monotonic() < deadline:
        try:
            connection = connect(peer.path, timeout=1.0)
            connection.sendall(b"\xab" * 32)
            connection.close()
            count += 1
        except OSError:
            pass
    time.sleep(1.5)  # a summary of the flood comes with the next line, or at exit
    print(f"garbage: {count} connections in 10 s; peer log grew by {peer.log_bytes() - start_log} bytes; "
          f"answers a new client: {peer.answers()}")


def main():
    if len(sys.argv) < 2:
        raise SystemExit(__doc__)
    build_dir = sys.argv[1]
    attacks = sys.argv[2:] or ["idle", "headers", "garbage"]
    for name in attacks:
        peer = Peer(build_dir)
        try:
            {"idle": attack_idle, "headers": attack_headers, "garbage": attack_garbage}[name](peer)
        finally:
            peer.stop()


if __name__ == "__main__":
    main()
