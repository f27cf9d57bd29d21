"""The wire contract checked with a second Thrift implementation: Debian's python3-thrift and stubs
generated from the same IDL, talking to helion-host through the multiplexed binary protocol."""
import json
import os
import sys
import threading
import unittest

from hostfixture import (PORTAL_ROOT, PY_GEN_DIR, SAMPLE_PORTAL, SharedHostTestCase, tree,
                         write_tree)

sys.path.insert(0, PY_GEN_DIR)

from thrift.protocol import TBinaryProtocol, TMultiplexedProtocol  # noqa: E402
from thrift.Thrift import TApplicationException, TMessageType  # noqa: E402
from thrift.transport import TSocket, TTransport  # noqa: E402

from helion_promote import SdpPromoteService  # noqa: E402

SERVICE = "SdpPromoteService"


class Client:
    def __init__(self, socket_path, service=SERVICE):
        socket = TSocket.TSocket(unix_socket=socket_path)
        socket.setTimeout(60000)
        self.transport = TTransport.TBufferedTransport(socket)
        self.protocol = TMultiplexedProtocol.TMultiplexedProtocol(
            TBinaryProtocol.TBinaryProtocol(self.transport), service)
        self.service = SdpPromoteService.Client(self.protocol)
        self.transport.open()

    def close(self):
        self.transport.close()


SUCCESS = {"code": 0, "message": "successful", "data": ""}


class WireContract(SharedHostTestCase):
    def setUp(self):
        super().setUp()
        self.client = Client(self.host.socket)
        self.addCleanup(self.client.close)
        self.service = self.client.service

    def test_portal_methods_exchange_envelopes(self):
        package, signature = self.signed_sample()
        name = self.portal_dir("wire")
        param = '{"srcZip":"%s","portalDir":"%s","signFile":"%s"}' % (package, name, signature)
        self.assertEqual(json.loads(self.service.updatePortal(param)), SUCCESS)
        self.assertEqual(tree(os.path.join(PORTAL_ROOT, name)), tree(SAMPLE_PORTAL))
        source = write_tree(os.path.join(self.work, "extra"), {"theme.css": b"body{}"})
        param = '{"srcDir":"%s","portalDir":"%s"}' % (source, name)
        self.assertEqual(json.loads(self.service.copyPortalDir(param)), SUCCESS)
        self.assertTrue(os.path.isfile(os.path.join(PORTAL_ROOT, name, "theme.css")))
        self.assertEqual(json.loads(self.service.delPortalDir('{"portalDirs":["%s"]}' % name)),
                         SUCCESS)
        self.assertFalse(os.path.exists(os.path.join(PORTAL_ROOT, name)))
        self.assertEqual(json.loads(self.service.updatePortal("")),
                         {"code": 3, "message": "req json error", "data": ""})

    def test_process_data_and_boolean_methods(self):
        # i64 on the wire: a pid beyond 32 bits must arrive whole, not wrapped negative.
        for pid, expected in ((1, (12, "not support impl", [(0, "", "")])),
                              (2**40, (12, "not support impl", [(0, "", "")])),
                              (-1, (10, "invalid pid", [])), (None, (12, "not support impl", []))):
            data = (self.service.getAllProcessData() if pid is None
                    else self.service.getProcessData(pid))
            self.assertEqual((data.code, data.message,
                              [(p.pid, p.procName, p.procPath) for p in data.processInfo]),
                             expected)
        for method in (self.service.IsRpcStatusNormal, self.service.StartDiagnosisTool,
                       self.service.reLaunchTool):
            self.assertIs(method(), True)

    def test_unknown_method_or_service_is_refused_and_the_connection_survives(self):
        protocol = self.client.protocol
        protocol.writeMessageBegin("foo", TMessageType.CALL, 7)
        SdpPromoteService.IsRpcStatusNormal_args().write(protocol)
        protocol.writeMessageEnd()
        protocol.trans.flush()
        _, kind, seqid = protocol.readMessageBegin()
        error = TApplicationException()
        error.read(protocol)
        protocol.readMessageEnd()
        self.assertEqual((kind, seqid, error.type, error.message),
                         (TMessageType.EXCEPTION, 7, TApplicationException.UNKNOWN_METHOD,
                          "Invalid method name: 'foo'"))
        self.assertTrue(self.service.IsRpcStatusNormal())
        stranger = Client(self.host.socket, service="NoSuchService")
        self.addCleanup(stranger.close)
        with self.assertRaises(TApplicationException):
            stranger.service.IsRpcStatusNormal()


class WorkerPool(SharedHostTestCase):
    host_extra = ("--workers", "2")

    def test_more_clients_than_workers_are_all_served(self):
        results = []

        def worker():
            client = Client(self.host.socket)
            try:
                results.extend(client.service.IsRpcStatusNormal() for _ in range(5))
            finally:
                client.close()

        threads = [threading.Thread(target=worker, daemon=True) for _ in range(6)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(timeout=60)
        self.assertEqual(results, [True] * 30)


if __name__ == "__main__":
    unittest.main()
