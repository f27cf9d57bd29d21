"""The wire contract through a second Thrift implementation (python3-thrift, stubs from the same
IDL) over the multiplexed binary protocol; load_driver.py drives the portal methods this way."""
import json
import sys
import unittest

from hostfixture import PY_GEN_DIR, SharedHostTestCase, envelope

sys.path.insert(0, PY_GEN_DIR)

from thrift.protocol import TBinaryProtocol, TMultiplexedProtocol  # noqa: E402
from thrift.Thrift import TApplicationException, TMessageType  # noqa: E402
from thrift.transport import TSocket, TTransport  # noqa: E402

from helion_promote import SdpPromoteService  # noqa: E402


class Client:
    def __init__(self, socket_path, service="SdpPromoteService"):
        socket = TSocket.TSocket(unix_socket=socket_path)
        socket.setTimeout(60000)
        self.transport = TTransport.TBufferedTransport(socket)
        self.protocol = TMultiplexedProtocol.TMultiplexedProtocol(
            TBinaryProtocol.TBinaryProtocol(self.transport), service)
        self.service = SdpPromoteService.Client(self.protocol)
        self.transport.open()

    def close(self):
        self.transport.close()


class WireContract(SharedHostTestCase):
    def setUp(self):
        super().setUp()
        self.client = Client(self.host.socket)
        self.addCleanup(self.client.close)
        self.service = self.client.service

    def test_process_data_and_boolean_methods(self):
        # i64 on the wire: a pid beyond 32 bits must arrive whole, not wrapped negative.
        for pid, expected in ((2**40, (12, "not support impl", [(0, "", "")])),
                              (-1, (10, "invalid pid", [])), (None, (12, "not support impl", []))):
            data = (self.service.getAllProcessData() if pid is None
                    else self.service.getProcessData(pid))
            self.assertEqual((data.code, data.message,
                              [(p.pid, p.procName, p.procPath) for p in data.processInfo]),
                             expected)
        for method in (self.service.IsRpcStatusNormal, self.service.StartDiagnosisTool,
                       self.service.reLaunchTool):
            self.assertIs(method(), True)

    def test_requests_of_a_few_kilobytes_get_their_answer(self):
        # Paths of thousands of bytes are legal: the server's string limit must let them through.
        deep = "/nonexistent" + "/dir" * 1000
        for method, code, message in ((self.service.copyPortalDir, 7, "source file not exist"),
                                      (self.service.updatePortal, 1, "verify signature error")):
            with self.subTest(method=method.__name__):
                answer = method(json.dumps({"srcDir": deep, "srcZip": deep + ".zip",
                                            "signFile": deep + ".sig", "portalDir": "p"}))
                self.assertEqual(answer, envelope(code, message))

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


if __name__ == "__main__":
    unittest.main()
