"""Faults against a running helion-host: errors that escape an operation come back as exception
replies, broken packages and pathological requests get their envelopes, and the host keeps
serving throughout and stops cleanly."""
import json
import os
import socket
import struct
import sys
import unittest

sys.path.insert(0, os.path.join(os.environ["HELION_SOURCE_DIR"], "tests", "host"))

from hostfixture import PORTAL_ROOT, PY_GEN_DIR, SharedHostTestCase, portal  # noqa: E402

sys.path.insert(0, PY_GEN_DIR)

from thrift.protocol import TBinaryProtocol, TMultiplexedProtocol  # noqa: E402
from thrift.Thrift import TApplicationException  # noqa: E402
from thrift.transport import TSocket, TTransport  # noqa: E402

from helion_promote import SdpPromoteService  # noqa: E402

DEV_PRIVATE_KEY = os.environ["HELION_DEV_PRIVATE_KEY"]


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


if __name__ == "__main__":
    unittest.main()
