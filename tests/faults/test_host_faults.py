"""Faults against a running helion-host: errors that escape an operation come back as exception
replies, broken packages and pathological requests get their envelopes, hostile local callers
(descriptor exhaustion, floods of idle or slow connections) do not stop it serving, and it stops
cleanly. Runs in a private PID namespace: it starts the diagnosis tool."""
import json
import os
import resource
import signal
import socket
import stat
import struct
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.environ["HELION_SOURCE_DIR"], "tests", "host"))

from hostfixture import (PORTAL_ROOT, PY_GEN_DIR, HostTestCase, SharedHostTestCase,  # noqa: E402
                         portal, promote)

sys.path.insert(0, PY_GEN_DIR)

from thrift.protocol import TBinaryProtocol, TMultiplexedProtocol  # noqa: E402
from thrift.Thrift import TApplicationException  # noqa: E402
from thrift.transport import TSocket, TTransport  # noqa: E402

from helion_promote import SdpPromoteService  # noqa: E402

DEV_PRIVATE_KEY = os.environ["HELION_DEV_PRIVATE_KEY"]
TOOL = os.path.join(os.environ["HELION_TEST_RESOURCES_DIR"], "bin", "HelionDiagnosisTool")


def resident_kb(pid):
    with open("/proc/%d/status" % pid) as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS:"))


class HostFaults(SharedHostTestCase):
    def setUp(self):
        super().setUp()
        socket = TSocket.TSocket(unix_socket=self.host.socket)
        socket.setTimeout(60000)
        self.transport = TTransport.TBufferedTransport(socket)
        protocol = TMultiplexedProtocol.TMultiplexedProtocol(
            TBinaryProtocol.TBinaryProtocol(self.transport), "SdpPromoteService")
        self.service = SdpPromoteService.Client(protocol)
        self.transport.open()
        self.addCleanup(self.transport.close)

    def code(self, text):
        return json.loads(text)["code"]

    def expect_exception_reply(self, call, text):
        with self.assertRaises(TApplicationException) as raised:
            call()
        self.assertIn(text, raised.exception.message)
        # Same connection, next call: the host is still there.
        self.assertIs(self.service.IsRpcStatusNormal(), True)

    def test_errors_escaping_operations_are_exception_replies(self):
        plain = os.path.join(self.work, "plain.css")
        with open(plain, "w") as handle:
            handle.write("plain")
        name = self.portal_dir("escape")
        self.expect_exception_reply(
            lambda: self.service.copyPortalDir(json.dumps({"srcDir": plain, "portalDir": name})),
            "Not a directory")
        self.assertTrue(os.path.isfile(plain))

        doomed = self.portal_dir("doomed")
        os.makedirs(os.path.join(PORTAL_ROOT, doomed))
        self.expect_exception_reply(
            lambda: self.service.delPortalDir(json.dumps({"portalDirs": [doomed, "n" * 300]})),
            "File name too long")
        self.assertFalse(os.path.exists(os.path.join(PORTAL_ROOT, doomed)))

    def test_broken_signed_packages_get_their_envelopes(self):
        package, _ = self.signed_sample()
        with open(package, "rb") as handle:
            whole = handle.read()
        name = self.portal_dir("broken")
        for label, data, expected in (("truncated", whole[: len(whole) // 2], 2),
                                      ("empty", b"", 2)):
            with self.subTest(label):
                path = os.path.join(self.work, label + ".zip")
                with open(path, "wb") as handle:
                    handle.write(data)
                signed = portal("sign", "--key", DEV_PRIVATE_KEY, path)
                self.assertEqual(signed.returncode, 0, signed.stderr)
                request = json.dumps({"srcZip": path, "portalDir": name, "signFile": path + ".sig"})
                self.assertEqual(self.code(self.service.updatePortal(request)), expected)
        self.assertIs(self.service.IsRpcStatusNormal(), True)

    def test_announced_lengths_are_not_taken_on_trust(self):
        # A call header whose method name claims almost 2 GB, and nothing after it. The host
        # must drop the connection at once instead of sizing a buffer for it and waiting.
        before = resident_kb(self.host.process.pid)
        raw = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        raw.settimeout(20)
        raw.connect(self.host.socket)
        raw.sendall(struct.pack(">Ii", 0x80010001, 0x7FFFFFF0) + b"Sdp")
        try:
            self.assertEqual(raw.recv(1), b"")
        finally:
            raw.close()
        self.assertLess(resident_kb(self.host.process.pid) - before, 64 * 1024)
        self.assertIs(self.service.IsRpcStatusNormal(), True)

    def test_pathological_requests_are_answered(self):
        deep = "[" * (1 << 20)
        self.assertEqual(self.code(self.service.updatePortal(deep)), 3)
        self.assertEqual(self.code(self.service.delPortalDir(deep + "]" * (1 << 20))), 0)
        self.assertEqual(self.code(self.service.copyPortalDir("\x00" * 1000)), 3)
        huge_list = json.dumps({"portalDirs": ["absent-%d" % i for i in range(20000)]})
        self.assertEqual(self.code(self.service.delPortalDir(huge_list)), 0)
        self.assertIs(self.service.IsRpcStatusNormal(), True)


def connect(path, count):
    connections = []
    for _ in range(count):
        client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        client.settimeout(5)
        client.connect(path)
        connections.append(client)
    return connections


def closed_by_peer(connection):
    try:
        return connection.recv(1) == b""
    except (socket.timeout, ConnectionResetError):
        return False


class HostileCallers(HostTestCase):
    def fds(self, host):
        return os.listdir("/proc/%d/fd" % host.process.pid)

    def test_descriptors_are_private_and_a_killed_host_leaves_nothing_behind(self):
        os.makedirs(os.path.dirname(TOOL), exist_ok=True)
        with open(TOOL, "w") as handle:
            handle.write("#!/bin/sh\nexec sleep 60\n")
        os.chmod(TOOL, 0o755)
        self.addCleanup(os.remove, TOOL)
        host = self.start_host(extra=("--http", "127.0.0.1:0", "--log-file",
                                      os.path.join(self.tmp, "host.log")))
        self.addCleanup(lambda clients: [c.close() for c in clients], connect(host.socket, 3))
        time.sleep(0.2)
        for fd in self.fds(host):
            with open("/proc/%d/fdinfo/%s" % (host.process.pid, fd)) as info:
                flags = next(int(line.split()[1], 8) for line in info if line.startswith("flags:"))
            self.assertTrue(int(fd) < 3 or flags & os.O_CLOEXEC,
                            "%s: %s" % (fd, os.readlink("/proc/%d/fd/%s" % (host.process.pid, fd))))
        self.assertEqual(promote(host.endpoint, "start-diagnosis-tool").returncode, 0)
        os.kill(host.process.pid, signal.SIGKILL)
        host.process.wait(timeout=20)
        self.start_host()

    def test_descriptor_exhaustion_and_connection_floods_do_not_stop_serving(self):
        host = self.start_host(extra=("--workers", "2"))
        soft, hard = resource.prlimit(host.process.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(host.process.pid, resource.RLIMIT_NOFILE, (len(self.fds(host)) + 2, hard))
        flood = connect(host.socket, 6)
        time.sleep(1)
        self.assertIn("accept() failed: Too many open files", host.log())
        for connection in flood:
            connection.close()
        resource.prlimit(host.process.pid, resource.RLIMIT_NOFILE, (soft, hard))
        # Two workers and a queue of eight: the eleventh connection and later ones are closed.
        flood = connect(host.socket, 14)
        self.assertEqual([closed_by_peer(c) for c in flood[10:]], [True] * 4)
        for connection in flood:
            connection.close()
        self.assertEqual(promote(host.endpoint, "ping").returncode, 0)
        self.assertIn("accepting connections again", host.log())
        self.assertEqual(host.stop(), 0)

    def test_slow_clients_are_dropped_at_the_request_deadline(self):
        host = self.start_host(extra=("--workers", "1", "--request-timeout", "2"))
        slow = connect(host.socket, 1)[0]
        self.addCleanup(slow.close)
        slow.settimeout(1)
        # A call header announcing a 100-byte method name, then one byte of it a second.
        slow.sendall(struct.pack(">Ii", 0x80010001, 100))
        started = time.monotonic()
        while time.monotonic() - started < 10 and not closed_by_peer(slow):
            slow.sendall(b"a")
        self.assertLess(time.monotonic() - started, 10, "a slow client held the worker")
        self.assertIn("its request took longer than 2000 ms", host.log())
        self.assertEqual(promote(host.endpoint, "ping").returncode, 0)


if __name__ == "__main__":
    unittest.main()
