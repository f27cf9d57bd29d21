"""helion-host as a process: lifecycle and identity logging, signals and log files, endpoints and
their private paths, start-up errors, the service manager, events and the HTTP listener."""
import grp
import os
import shutil
import signal
import socket
import stat
import subprocess
import time
import unittest

from hostfixture import (HOST, NOT_A_MODULE, START_TIMEOUT, Host, HostTestCase, error_lines,
                         promote)

GUID = "7c9e6679-7425-40de-944b-e07fc1f90ae7"


def mode(path):
    return stat.S_IMODE(os.lstat(path).st_mode)


def wait_for(condition, what):
    deadline = time.monotonic() + START_TIMEOUT
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError("timed out waiting for " + what)
        time.sleep(0.05)


class HostCase(HostTestCase):
    def failed_start(self, expected, status=1, **kwargs):
        host = Host(self.tmp, **kwargs)
        self.addCleanup(host.reap)
        self.assertEqual(host.start(expect_ready=False), status, host.log())
        log = host.log()
        if status == 1:
            self.assertEqual(len(error_lines(log, "helion-host")), 1, log)
            self.assertIn(expected, error_lines(log, "helion-host")[0])
            # Every start-up check runs before the module is driven.
            self.assertNotIn("module will load finished", log)
        return log


class Lifecycle(HostCase):
    def test_stop_signals_unload_the_module_after_identity_and_events(self):
        lines = ["module GUID: " + GUID, "module priority: 0",
                 '"name":"HelionPromote","version":"2.2.16.1"', "module routes (0): []",
                 GUID + " module will load finished", "moduleDidLoadFinished",
                 "receviced event: [portal.changed]", "receviced event: [t2]",
                 "moduleWillUnloadFinished", "moduleDidUnloadFinished"]
        for signum in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(signal=signum):
                host = self.start_host(extra=("--event", "portal.changed=main", "--event", "t2=a=b"))
                self.assertEqual(host.stop(signum), 0)
                log = host.log()
                positions = [log.find(line) for line in lines]
                self.assertEqual(positions, sorted(positions), log)
                self.assertNotIn(-1, positions, log)
                self.assertFalse(os.path.exists(host.socket), "the socket file outlived the host")

    def test_log_file_is_private_rotates_and_is_reopened_on_sighup(self):
        self.addCleanup(os.umask, os.umask(0))
        logs = os.path.join(self.tmp, "logs")
        path = os.path.join(logs, "host.log")
        # Each event logs its topic twice: 12 KB of lines, rotated at 1 KiB, two files kept.
        host = self.start_host(extra=("--log-file", path, "--log-max-size", "1KiB",
                                      "--log-max-files", "2") + ("--event", "t" * 500 + "=x") * 12)
        wait_for(lambda: host.log().count("receviced event") == 12, "the events")
        os.rename(path, path + ".moved")
        host.process.send_signal(signal.SIGHUP)
        wait_for(lambda: os.path.exists(path), "a reopened log file")
        self.assertEqual(promote(host.endpoint, "ping").returncode, 0)
        self.assertEqual(host.stop(), 0)
        self.assertEqual(sorted(os.listdir(logs)),
                         ["host.1.log", "host.2.log", "host.log", "host.log.moved"])
        for name in os.listdir(logs):
            self.assertEqual(mode(os.path.join(logs, name)), 0o600, name)
        with open(path) as handle:
            self.assertIn("moduleDidUnloadFinished", handle.read())

    def test_only_the_program_in_its_build_tree_falls_back_to_the_build_tree_module(self):
        self.start_host(module=None).stop()
        copy = os.path.join(self.tmp, "bin", "helion-host")
        os.makedirs(os.path.dirname(copy))
        shutil.copy2(HOST, copy)
        log = self.failed_start("no module found", module=None, program=copy)
        self.assertNotIn(os.path.dirname(os.path.dirname(HOST)), error_lines(log, "helion-host")[0])


class Endpoints(HostCase):
    def test_default_socket_directory_must_be_a_private_directory(self):
        env = dict(os.environ, XDG_RUNTIME_DIR=self.tmp)
        directory = os.path.join(self.tmp, "helion")
        os.mkdir(os.path.join(self.tmp, "private"), 0o700)
        os.symlink(os.path.join(self.tmp, "private"), directory)
        self.failed_start("must be owned by this user with mode 0700", listen="", env=env)
        os.remove(directory)
        os.mkdir(directory)
        os.chmod(directory, 0o755)
        self.failed_start("must be owned by this user with mode 0700", listen="", env=env)
        os.chmod(directory, 0o700)
        host = self.start_host(listen="", env=env)
        self.assertEqual(host.endpoint, "unix:" + os.path.join(directory, "promote.sock"))
        self.assertEqual(mode(os.path.join(directory, "promote.sock")), 0o600)

    def test_socket_group(self):
        group = next(g for g in grp.getgrall() if g.gr_gid != os.getgid())
        host = self.start_host(extra=("--socket-group", group.gr_name))
        self.assertEqual((mode(host.socket), os.stat(host.socket).st_gid), (0o660, group.gr_gid))

    def test_tcp_loopback_endpoint(self):
        host = self.start_host(listen="tcp:127.0.0.1:0")
        self.assertRegex(host.endpoint, r"^tcp:127\.0\.0\.1:\d+$")
        result = promote(host.endpoint, "ping")
        self.assertEqual((result.returncode, result.stdout.strip()), (0, '{"result":true}'))

    def test_sockets_left_behind(self):
        dead = socket.socket(socket.AF_UNIX)
        dead.bind(os.path.join(self.tmp, "promote.sock"))
        dead.close()
        first = self.start_host()
        self.assertIn("replacing stale socket", first.log())
        self.failed_start("already listening")
        self.assertEqual(promote(first.endpoint, "ping").returncode, 0)
        first.stop()
        with open(first.socket, "w") as handle:
            handle.write("keep me")
        self.failed_start("is not a socket")
        with open(first.socket) as handle:
            self.assertEqual(handle.read(), "keep me")


class StartupErrors(HostCase):
    def test_start_up_errors(self):
        fake = os.path.join(self.tmp, "fake.so")
        with open(fake, "w") as handle:
            handle.write("not an ELF file\n")
        taken = socket.socket()
        taken.bind(("127.0.0.1", 0))
        taken.listen()
        self.addCleanup(taken.close)
        port = taken.getsockname()[1]
        for expected, kwargs in (
                ("does not exist", dict(module=os.path.join(self.tmp, "absent.so"))),
                ("cannot load module", dict(module=fake)),
                ("does not export CreateInstance", dict(module=NOT_A_MODULE)),
                ("cannot listen on tcp:127.0.0.1:%d" % port, dict(listen="tcp:127.0.0.1:%d" % port)),
                ("cannot listen for HTTP", dict(extra=("--http", "127.0.0.1:%d" % port))),
                ("non-loopback", dict(listen="tcp:0.0.0.0:0")),
                ("non-loopback", dict(extra=("--http", "0.0.0.0:0")))):
            with self.subTest(expected):
                self.failed_start(expected, **kwargs)

    def test_malformed_options_are_usage_errors(self):
        for extra in (("--log-level", "loud"), ("--workers", "0"), ("--event", "=x"),
                      ("--listen", "tcp:127.0.0.1:99999"), ("--listen", "pipe:x"),
                      ("--socket-group", "no-such-group"), ("--log-max-size", "lots"),
                      ("--request-timeout", "0")):
            with self.subTest(extra=extra):
                self.failed_start(None, status=2, extra=extra)


class ServiceManager(HostCase):
    def test_readiness_and_stopping_are_notified(self):
        path = os.path.join(self.tmp, "notify")
        notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(notify.close)
        notify.bind(path)
        notify.settimeout(START_TIMEOUT)
        host = self.start_host(env=dict(os.environ, NOTIFY_SOCKET=path))
        self.assertIn("READY=1", notify.recv(4096).decode())
        self.assertEqual(host.stop(), 0)
        self.assertIn("STOPPING=1", notify.recv(4096).decode())

    @unittest.skipUnless(shutil.which("systemd-socket-activate"), "no systemd-socket-activate")
    def test_socket_activation(self):
        path = os.path.join(self.tmp, "activated.sock")
        host = Host(self.tmp, listen="", wrapper=("systemd-socket-activate", "-l", path))
        self.addCleanup(host.reap)
        host.launch()
        wait_for(lambda: os.path.exists(path), "the activation socket")
        result = promote("unix:" + path, "ping")
        self.assertEqual((result.returncode, result.stdout.strip()), (0, '{"result":true}'))
        self.assertIn("serving RPC on unix:" + path, host.log())
        self.assertEqual(host.stop(), 0)


class Http(HostCase):
    def curl(self, port, *args):
        return subprocess.run(
            ["curl", "--silent", "--show-error", "--max-time", "30", "--write-out",
             "\n%{http_code}", *args, "http://127.0.0.1:%d/api/update" % port],
            capture_output=True, text=True, timeout=60).stdout.rsplit("\n", 1)

    def test_module_answers_and_oversized_bodies_are_refused_before_it(self):
        host = self.start_host(extra=("--http", "127.0.0.1:0"))
        body = os.path.join(self.tmp, "body")
        with open(body, "wb") as handle:
            handle.write(b"x" * (2 * 1024 * 1024))
        for args, expected in (((), "503"), (("-X", "POST", "--data", '{"a":1}'), "503"),
                               (("-X", "DELETE"), "503"),
                               (("-X", "POST", "--data-binary", "@" + body), "413")):
            with self.subTest(args=args):
                self.assertEqual(self.curl(host.http_port, *args)[-1], expected)
        self.assertEqual(self.curl(host.http_port)[0], "Service Unavailable")
        self.assertEqual(host.stop(), 0)


if __name__ == "__main__":
    unittest.main()
