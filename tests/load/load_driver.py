#!/usr/bin/python3
"""Concurrent clients against helion-host over the test module, with a mix of every method.

Each client has its own connection (re-opened every few calls), its own portal directories and
its own source directory, and checks every answer exactly. The host's open descriptors and
resident memory are sampled while no client is connected: once after a warm-up round and once at
the end. The run fails on any failed or lost call, a host that dies, or descriptors or memory that
grow between the two samples.

The paths of the host, the module and the tools come from the environment ctest sets, so a
longer run goes through ctest too:

    ctest --test-dir build/release -R load.host -V                            the short run
    HELION_LOAD_SECONDS=120 ctest --test-dir build/release -R load.host -V    two minutes
"""
import argparse
import json
import os
import random
import shutil
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.join(os.environ["HELION_SOURCE_DIR"], "tests", "host"))

from hostfixture import (DEV_PRIVATE_KEY, PORTAL_ROOT, PY_GEN_DIR, SAMPLE_PORTAL,  # noqa: E402
                         Host, portal)

sys.path.insert(0, PY_GEN_DIR)

from thrift.protocol import TBinaryProtocol, TMultiplexedProtocol  # noqa: E402
from thrift.transport import TSocket, TTransport  # noqa: E402

from helion_promote import SdpPromoteService  # noqa: E402

SUCCESS = {"code": 0, "message": "successful", "data": ""}
BAD_SIGNATURE = {"code": 1, "message": "verify signature error", "data": ""}
# Relative weights of the calls in the mix.
MIX = [("ping", 30), ("process", 15), ("all_processes", 10), ("delete_absent", 15),
       ("update_bad", 12), ("update_good", 8), ("copy", 8), ("tool", 2)]


class Connection:
    def __init__(self, socket_path):
        socket = TSocket.TSocket(unix_socket=socket_path)
        socket.setTimeout(120000)
        self.transport = TTransport.TBufferedTransport(socket)
        protocol = TMultiplexedProtocol.TMultiplexedProtocol(
            TBinaryProtocol.TBinaryProtocol(self.transport), "SdpPromoteService")
        self.service = SdpPromoteService.Client(protocol)
        self.transport.open()

    def close(self):
        self.transport.close()


class Client:
    """One simulated caller; counts its calls and keeps the first failures."""

    def __init__(self, index, socket_path, work, package, signature, bad_signature, args):
        self.index = index
        self.socket_path = socket_path
        self.random = random.Random(index)
        self.args = args
        self.portal_dir = "load-%d-%d" % (os.getpid(), index)
        self.source = os.path.join(work, "source-%d" % index)
        self.good = json.dumps({"srcZip": package, "portalDir": self.portal_dir,
                                "signFile": signature})
        self.bad = json.dumps({"srcZip": package, "portalDir": self.portal_dir + "-bad",
                               "signFile": bad_signature})
        self.calls = 0
        self.failures = []
        self.kinds = [kind for kind, weight in MIX for _ in range(weight)]

    def run(self, deadline):
        connection = None
        try:
            while time.monotonic() < deadline:
                if connection is None or self.calls % self.args.reconnect_every == 0:
                    if connection is not None:
                        connection.close()
                    connection = Connection(self.socket_path)
                kind = self.random.choice(self.kinds)
                try:
                    problem = getattr(self, "call_" + kind)(connection.service)
                except Exception as error:  # a lost call: transport error, timeout, exception reply
                    problem = "%s raised %r" % (kind, error)
                    connection.close()
                    connection = None
                self.calls += 1
                if problem:
                    self.failures.append(problem)
        finally:
            if connection is not None:
                connection.close()

    def call_ping(self, service):
        return None if service.IsRpcStatusNormal() is True else "ping did not answer true"

    def call_process(self, service):
        pid = self.random.choice([1, os.getpid(), -self.index - 1])
        data = service.getProcessData(pid)
        expected = (10, "invalid pid") if pid < 0 else (12, "not support impl")
        return None if (data.code, data.message) == expected else "getProcessData: %r" % data

    def call_all_processes(self, service):
        data = service.getAllProcessData()
        good = (data.code, data.message, data.processInfo) == (12, "not support impl", [])
        return None if good else "getAllProcessData: %r" % data

    def call_delete_absent(self, service):
        text = service.delPortalDir(json.dumps({"portalDirs": [self.portal_dir + "-absent"]}))
        return None if json.loads(text) == SUCCESS else "delPortalDir: " + text

    def call_update_bad(self, service):
        text = service.updatePortal(self.bad)
        return None if json.loads(text) == BAD_SIGNATURE else "updatePortal (bad): " + text

    def call_update_good(self, service):
        text = service.updatePortal(self.good)
        if json.loads(text) != SUCCESS:
            return "updatePortal (good): " + text
        if not os.path.isfile(os.path.join(PORTAL_ROOT, self.portal_dir, "index.html")):
            return "updatePortal (good): index.html missing"
        return None

    def call_copy(self, service):
        os.makedirs(self.source, exist_ok=True)
        for name in ("theme.css", "skip.js"):
            with open(os.path.join(self.source, name), "w") as handle:
                handle.write(name)
        request = json.dumps({"srcDir": self.source, "portalDir": self.portal_dir + "-copy"})
        text = service.copyPortalDir(request)
        if json.loads(text) != SUCCESS:
            return "copyPortalDir: " + text
        if os.path.exists(self.source):
            return "copyPortalDir left its source"
        return None

    def call_tool(self, service):
        answer = (service.StartDiagnosisTool if self.random.random() < 0.5
                  else service.reLaunchTool)()
        return None if answer is True else "tool call answered %r" % answer


def sample(pid):
    """(open descriptors, resident kB, what the descriptors point at) of a process."""
    targets = []
    for fd in os.listdir("/proc/%d/fd" % pid):
        try:
            targets.append(os.readlink("/proc/%d/fd/%s" % (pid, fd)))
        except OSError:
            pass
    with open("/proc/%d/status" % pid) as status:
        rss = next(int(line.split()[1]) for line in status if line.startswith("VmRSS:"))
    return len(targets), rss, sorted(targets)


def settled_sample(pid):
    """A sample once the host has noticed every closed connection: the descriptor count holds
    still for a moment (or five seconds have passed)."""
    last = sample(pid)
    deadline = time.monotonic() + 5
    while time.monotonic() < deadline:
        time.sleep(0.2)
        current = sample(pid)
        if current[0] == last[0]:
            return current
        last = current
    return last


def sanitized(pid):
    with open("/proc/%d/maps" % pid) as maps:
        return "libasan" in maps.read()


def run_round(clients, seconds):
    deadline = time.monotonic() + seconds
    threads = [threading.Thread(target=client.run, args=(deadline,)) for client in clients]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(timeout=seconds + 300)
    return [thread for thread in threads if thread.is_alive()]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--clients", type=int, default=32)
    parser.add_argument("--warmup", type=float, default=2.0, help="seconds before the first sample")
    parser.add_argument("--duration", type=float,
                        default=float(os.environ.get("HELION_LOAD_SECONDS", "5")),
                        help="seconds of measured load (default: $HELION_LOAD_SECONDS or 5)")
    parser.add_argument("--reconnect-every", type=int, default=25)
    parser.add_argument("--fd-tolerance", type=int, default=2)
    parser.add_argument("--rss-tolerance-kb", type=int, default=8192)
    parser.add_argument("-v", "--verbose", action="store_true")
    args = parser.parse_args()

    work = tempfile.mkdtemp(prefix="helion-load-")
    host = Host(work, extra=("--workers", str(args.clients)))
    # Debug lines for every call would make the log the bottleneck.
    host.args[host.args.index("--log-level") + 1] = "info"
    clients = []
    try:
        package = os.path.join(work, "portal.zip")
        for command in (("pack", SAMPLE_PORTAL, "-o", package),
                        ("sign", "--key", DEV_PRIVATE_KEY, package)):
            result = portal(*command)
            if result.returncode != 0:
                raise SystemExit("helion-portal %s failed: %s" % (command[0], result.stderr))
        bad_signature = os.path.join(work, "bad.sig")
        with open(bad_signature, "wb") as handle:
            handle.write(random.Random(1).randbytes(256))

        host.start()
        pid = host.process.pid
        clients = [Client(i, host.socket, work, package, package + ".sig", bad_signature, args)
                   for i in range(args.clients)]

        stuck = run_round(clients, args.warmup)
        warm_calls = sum(client.calls for client in clients)
        warm = settled_sample(pid)
        started = time.monotonic()
        stuck += run_round(clients, args.duration)
        elapsed = time.monotonic() - started
        end = settled_sample(pid)
        calls = sum(client.calls for client in clients) - warm_calls
        failures = [failure for client in clients for failure in client.failures]
        alive = host.process.poll() is None

        print("clients %d, measured %.1f s: %d calls (%.0f/s), %d failed, %d clients stuck"
              % (args.clients, elapsed, calls, calls / elapsed, len(failures), len(stuck)))
        print("host fds %d -> %d, VmRSS %d kB -> %d kB" % (warm[0], end[0], warm[1], end[1]))
        for failure in failures[:10]:
            print("  " + failure)

        problems = []
        if failures or stuck:
            problems.append("failed or lost calls")
        if not alive:
            problems.append("host exited with %s" % host.process.returncode)
        if end[0] > warm[0] + args.fd_tolerance:
            problems.append("descriptors grew")
        if args.verbose or end[0] != warm[0]:
            print("host descriptors after warm-up: %s\nat the end: %s" % (warm[2], end[2]))
        if sanitized(pid):
            print("sanitized host: its allocator keeps freed memory, resident size not judged")
        elif end[1] > warm[1] + args.rss_tolerance_kb:
            problems.append("resident memory grew")
        status = host.stop()
        if status != 0:
            problems.append("host stopped with %d" % status)
        if problems:
            if args.verbose:
                print(host.log()[-4000:])
            raise SystemExit("load: " + ", ".join(problems))
    finally:
        host.reap()
        for client in clients:
            shutil.rmtree(os.path.join(PORTAL_ROOT, client.portal_dir), ignore_errors=True)
            shutil.rmtree(os.path.join(PORTAL_ROOT, client.portal_dir + "-copy"),
                          ignore_errors=True)
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
