"""helion-host as a process: lifecycle and identity logging, signals, endpoints, start-up errors,
events and the HTTP listener."""
import os
import signal
import socket
import stat
import subprocess
import unittest

from hostfixture import (LIFECYCLE_LINES, NOT_A_MODULE, Host, HostTestCase, error_lines, promote)

GUID = "7c9e6679-7425-40de-944b-e07fc1f90ae7"


class Lifecycle(HostTestCase):
    def assert_lifecycle_logged_in_order(self, log):
        positions = []
        for line in LIFECYCLE_LINES:
            self.assertIn(line, log)
            positions.append(log.index(line))
        self.assertEqual(positions, sorted(positions), log)

    def test_sigterm_and_sigint_unload_the_module_and_exit_0(self):
        for signum in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(signal=signum):
                host = self.start_host()
                self.assertEqual(promote(host.endpoint, "ping").returncode, 0)
                self.assertEqual(host.stop(signum), 0)
                log = host.log()
                self.assert_lifecycle_logged_in_order(log)
                self.assertIn("%s module will load finished" % GUID, log)
                self.assertFalse(os.path.exists(host.socket), "the socket file outlived the host")

    def test_identity_is_logged_before_loading(self):
        host = self.start_host()
        log = host.log()
        self.assertIn("module GUID: " + GUID, log)
        self.assertIn("module priority: 0", log)
        self.assertIn('"name":"HelionPromote","version":"2.2.16.1"', log)
        self.assertIn("module routes (0): []", log)
        self.assertLess(log.index("module GUID"), log.index("module will load finished"))

    def test_events_are_delivered_after_load(self):
        host = self.start_host(extra=("--event", "portal.changed=main", "--event", "t2=a=b"))
        # Delivery may still be under way once the host serves; after a clean stop it is done.
        self.assertEqual(host.stop(), 0)
        log = host.log()
        self.assertIn("receviced event: [portal.changed]", log)
        self.assertIn("receviced event: [t2]", log)
        self.assertLess(log.index("moduleDidLoadFinished"), log.index("receviced event"))

    def test_log_file_gets_the_same_lines(self):
        path = os.path.join(self.tmp, "logs", "host.log")
        os.makedirs(os.path.dirname(path))
        host = self.start_host(extra=("--log-file", path))
        self.assertEqual(host.stop(), 0)
        with open(path) as handle:
            self.assert_lifecycle_logged_in_order(handle.read())

    def test_tcp_loopback_endpoint(self):
        host = self.start_host(listen="tcp:127.0.0.1:0")
        self.assertRegex(host.endpoint, r"^tcp:127\.0\.0\.1:\d+$")
        result = promote(host.endpoint, "ping")
        self.assertEqual((result.returncode, result.stdout.strip()), (0, '{"result":true}'))


class DefaultSocket(HostTestCase):
    def test_default_socket_is_private(self):
        env = dict(os.environ, XDG_RUNTIME_DIR=self.tmp)
        host = self.start_host(listen="", env=env)
        path = os.path.join(self.tmp, "helion", "promote.sock")
        self.assertEqual(host.endpoint, "unix:" + path)
        self.assertEqual(stat.S_IMODE(os.stat(os.path.dirname(path)).st_mode), 0o700)
        self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)
        self.assertTrue(stat.S_ISSOCK(os.stat(path).st_mode))

    def test_default_directory_open_to_others_is_refused(self):
        os.makedirs(os.path.join(self.tmp, "helion"), mode=0o755)
        os.chmod(os.path.join(self.tmp, "helion"), 0o755)
        env = dict(os.environ, XDG_RUNTIME_DIR=self.tmp)
        host = Host(self.tmp, listen="", env=env)
        self.addCleanup(host.reap)
        self.assertNotEqual(host.start(expect_ready=False), 0)
        self.assertIn("must be owned by this user with mode 0700", host.log())


class StartupErrors(HostTestCase):
    def failed_start(self, expected, **kwargs):
        host = Host(self.tmp, **kwargs)
        self.addCleanup(host.reap)
        status = host.start(expect_ready=False)
        log = host.log()
        errors = error_lines(log, "helion-host")
        self.assertNotEqual(status, 0, log)
        self.assertGreater(status, 0, "killed by a signal:\n" + log)
        self.assertEqual(len(errors), 1, log)
        self.assertIn(expected, errors[0])
        # Every start-up check runs before the module is driven.
        self.assertNotIn("module will load finished", log)
        return log

    def test_modules_that_cannot_be_driven(self):
        fake = os.path.join(self.tmp, "fake.so")
        with open(fake, "w") as handle:
            handle.write("not an ELF file\n")
        for module, expected in ((os.path.join(self.tmp, "absent.so"), "does not exist"),
                                 (fake, "cannot load module"),
                                 (NOT_A_MODULE, "does not export CreateInstance")):
            with self.subTest(expected):
                self.failed_start(expected, module=module)

    def test_socket_of_a_live_server_is_left_alone(self):
        first = self.start_host()
        self.failed_start("already listening")
        self.assertEqual(promote(first.endpoint, "ping").returncode, 0)

    def test_stale_socket_is_replaced(self):
        path = os.path.join(self.tmp, "promote.sock")
        dead = socket.socket(socket.AF_UNIX)
        dead.bind(path)
        dead.close()
        host = self.start_host()
        self.assertIn("replacing stale socket", host.log())
        self.assertEqual(promote(host.endpoint, "ping").returncode, 0)

    def test_plain_file_at_socket_path_is_not_replaced(self):
        path = os.path.join(self.tmp, "promote.sock")
        with open(path, "w") as handle:
            handle.write("keep me")
        self.failed_start("is not a socket")
        with open(path) as handle:
            self.assertEqual(handle.read(), "keep me")

    def test_taken_ports(self):
        taken = socket.socket()
        taken.bind(("127.0.0.1", 0))
        taken.listen()
        self.addCleanup(taken.close)
        port = taken.getsockname()[1]
        self.failed_start("cannot listen on tcp:127.0.0.1:%d" % port,
                          listen="tcp:127.0.0.1:%d" % port)
        self.failed_start("cannot listen for HTTP", extra=("--http", "127.0.0.1:%d" % port))

    def test_non_loopback_addresses_are_refused(self):
        self.failed_start("non-loopback", listen="tcp:0.0.0.0:0")
        self.failed_start("non-loopback", extra=("--http", "0.0.0.0:0"))

    def test_malformed_options_are_usage_errors(self):
        for extra in (("--log-level", "loud"), ("--workers", "0"), ("--event", "=x"),
                      ("--listen", "tcp:127.0.0.1:99999"), ("--listen", "pipe:x")):
            with self.subTest(extra=extra):
                host = Host(self.tmp, extra=extra)
                self.addCleanup(host.reap)
                self.assertEqual(host.start(expect_ready=False), 2, host.log())


class Http(HostTestCase):
    def curl(self, port, *args):
        return subprocess.run(
            ["curl", "--silent", "--show-error", "--max-time", "30", "--write-out",
             "\n%{http_code}", *args, "http://127.0.0.1:%d/api/update" % port],
            capture_output=True, text=True, timeout=60)

    def test_every_request_gets_the_module_answer(self):
        host = self.start_host(extra=("--http", "127.0.0.1:0"))
        for args in ((), ("-X", "POST", "--data", '{"a":1}'), ("-X", "DELETE")):
            with self.subTest(args=args):
                result = self.curl(host.http_port, *args)
                self.assertEqual(result.stdout.rsplit("\n", 1), ["Service Unavailable", "503"],
                                 result.stderr)

    def test_oversized_body_is_refused_before_the_module(self):
        host = self.start_host(extra=("--http", "127.0.0.1:0"))
        body = os.path.join(self.tmp, "body")
        with open(body, "wb") as handle:
            handle.write(b"x" * (2 * 1024 * 1024))
        result = self.curl(host.http_port, "-X", "POST", "--data-binary", "@" + body)
        self.assertTrue(result.stdout.endswith("413"), result.stdout[-200:] + result.stderr)
        self.assertEqual(self.curl(host.http_port).stdout.rsplit("\n", 1)[1], "503")
        self.assertEqual(host.stop(), 0)


if __name__ == "__main__":
    unittest.main()
