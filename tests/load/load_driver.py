#!/usr/bin/python3
"""Concurrent clients against helion-host over the test module, every answer checked exactly.

Fails on a failed or lost call, a host that dies, or host descriptors or memory that grow between
a warm-up round and the end. The diagnosis tool methods stay out: outside a PID namespace they
would kill whatever runs under its name. Longer: HELION_LOAD_SECONDS=120 ctest -R load.host -V
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

from hostfixture import DEV_PRIVATE_KEY, PORTAL_ROOT, SAMPLE_PORTAL, Host, portal  # noqa: E402
from test_wire_python import Client  # noqa: E402

SUCCESS = {"code": 0, "message": "successful", "data": ""}


def process_answer(data):
    return data.code, data.message, [(p.pid, p.procName, p.procPath) for p in data.processInfo]


class Caller:
    """One caller with its own connection (re-opened every 25 calls) and portal directories."""

    def __init__(self, index, host, package, bad_signature):
        self.random, self.socket = random.Random(index), host.socket
        self.dir = "load-%d-%d" % (os.getpid(), index)
        update = {"srcZip": package, "portalDir": self.dir, "signFile": package + ".sig"}
        bad = dict(update, portalDir=self.dir + "-bad", signFile=bad_signature)
        self.checks = [
            (lambda s: s.IsRpcStatusNormal(), True),
            (lambda s: process_answer(s.getProcessData(-1)), (10, "invalid pid", [])),
            (lambda s: process_answer(s.getProcessData(os.getpid())),
             (12, "not support impl", [(0, "", "")])),
            (lambda s: process_answer(s.getAllProcessData()), (12, "not support impl", [])),
            (lambda s: json.loads(s.delPortalDir(json.dumps({"portalDirs": [self.dir + "-x"]}))),
             SUCCESS),
            (lambda s: json.loads(s.updatePortal(json.dumps(bad))),
             {"code": 1, "message": "verify signature error", "data": ""}),
            (lambda s: (json.loads(s.updatePortal(json.dumps(update))),
                        os.path.isfile(os.path.join(PORTAL_ROOT, self.dir, "index.html"))),
             (SUCCESS, True)),
        ]
        self.calls, self.failures = 0, []

    def run(self, deadline):
        client = None
        while time.monotonic() < deadline:
            try:
                if client is None or self.calls % 25 == 0:
                    client = client.close() if client else None
                    client = Client(self.socket)
                call, expected = self.random.choice(self.checks)
                answer = call(client.service)
            except Exception as error:  # a lost call: transport error, timeout, exception reply
                answer, expected = repr(error), "an answer"
                client = client.close() if client else None
            self.calls += 1
            if answer != expected:
                self.failures.append("expected %r, got %r" % (expected, answer))
        if client:
            client.close()


def sample(pid):
    """(open descriptors, resident kB) of a process once its descriptor count holds still."""
    last = None
    for _ in range(25):
        with open("/proc/%d/status" % pid) as status:
            rss = next(int(line.split()[1]) for line in status if line.startswith("VmRSS:"))
        current = (len(os.listdir("/proc/%d/fd" % pid)), rss)
        if last and current[0] == last[0]:
            return current
        last = current
        time.sleep(0.2)
    return last


def run_round(callers, seconds):
    """Runs every caller for seconds; returns how many did not finish in time."""
    deadline = time.monotonic() + seconds
    threads = [threading.Thread(target=c.run, args=(deadline,), daemon=True) for c in callers]
    [thread.start() for thread in threads]
    [thread.join(timeout=max(0, deadline + 120 - time.monotonic())) for thread in threads]
    return sum(thread.is_alive() for thread in threads)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--clients", type=int, default=32)
    parser.add_argument("--duration", type=float,
                        default=float(os.environ.get("HELION_LOAD_SECONDS", "5")))
    args = parser.parse_args()

    work = tempfile.mkdtemp(prefix="helion-load-")
    host = Host(work, extra=("--workers", str(args.clients)))
    host.args[host.args.index("--log-level") + 1] = "info"  # debug lines would be the bottleneck
    callers = []
    try:
        package, bad_signature = os.path.join(work, "portal.zip"), os.path.join(work, "bad.sig")
        for command in (("pack", SAMPLE_PORTAL, "-o", package),
                        ("sign", "--key", DEV_PRIVATE_KEY, package)):
            result = portal(*command)
            if result.returncode != 0:
                raise SystemExit("helion-portal %s failed: %s" % (command[0], result.stderr))
        with open(bad_signature, "wb") as handle:
            handle.write(random.Random(1).randbytes(256))

        host.start()
        callers = [Caller(i, host, package, bad_signature) for i in range(args.clients)]
        stuck = run_round(callers, 2.0)
        warm, warm_calls = sample(host.process.pid), sum(c.calls for c in callers)
        stuck += run_round(callers, args.duration)
        end = sample(host.process.pid)
        with open("/proc/%d/maps" % host.process.pid) as maps:
            sanitized = "libasan" in maps.read()  # its allocator keeps freed memory
        failures = [failure for caller in callers for failure in caller.failures]
        print("%d clients, %.0f s: %d calls, %d failed, %d stuck; fds %d -> %d, VmRSS %d -> %d kB"
              % (args.clients, args.duration, sum(c.calls for c in callers) - warm_calls,
                 len(failures), stuck, warm[0], end[0], warm[1], end[1]))
        print("\n".join(failures[:10]))
        status = host.stop()
        problems = [text for text, bad in (
            ("failed or lost calls", failures or stuck),
            ("descriptors grew", end[0] > warm[0] + 2),
            ("resident memory grew", not sanitized and end[1] > warm[1] + 8192),
            ("host stopped with %s" % status, status != 0)) if bad]
        if problems:
            print(host.log()[-4000:])
            raise SystemExit("load: " + ", ".join(problems))
    finally:
        host.reap()
        for caller in callers:
            shutil.rmtree(os.path.join(PORTAL_ROOT, caller.dir), ignore_errors=True)
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
