"""helion-host as a process: lifecycle, signals, logs, HTTP, endpoints, errors (the service manager:
faults.host and packaging.deploy)."""
import grp
import os
import re
import shutil
import signal
import socket
import stat
import subprocess
import time
import unittest

from hostfixture import HOST, START_TIMEOUT, Host, HostTestCase, promote, tree, wait_for, write_tree

GUID = "7c9e6679-7425-40de-944b-e07fc1f90ae7"


def mode(path):
    return stat.S_IMODE(os.lstat(path).st_mode)


class Journeys(HostTestCase):
    def failed_start(self, expected, status=1, program=HOST, **kwargs):
        host = Host(self.tmp, **kwargs)
        host.args[0] = program
        self.addCleanup(host.reap)
        host.launch()
        self.assertEqual(host.process.wait(timeout=START_TIMEOUT), status, host.log())
        errors = [ln for ln in host.log().splitlines() if ln.startswith("helion-host: error:")]
        if status == 1:
            self.assertEqual(len(errors), 1, host.log())
            self.assertIn(expected, errors[0])
            # Every start-up check runs before the module is driven.
            self.assertNotIn("module will load finished", host.log())
        return errors

    def test_one_run_logs_notifies_answers_http_and_unloads_in_order(self):
        self.addCleanup(os.umask, os.umask(0))  # what the host creates is private by itself
        logs = os.path.join(self.tmp, "logs")
        path = os.path.join(logs, "host.log")
        # Each long event logs its topic twice: 12 KB of lines, rotated at 1 KiB, two files kept.
        host = self.start_host(
            extra=("--http", "127.0.0.1:0", "--log-file", path, "--log-max-size", "1KiB",
                   "--log-max-files", "2", "--event", "portal.changed=main", "--event", "t2=a=b")
            + ("--event", "t" * 500 + "=x") * 12)
        self.assertEqual(mode(host.socket), 0o600)
        port = int(re.search(r"serving HTTP on [^:]+:(\d+)", host.log()).group(1))
        body = os.path.join(write_tree(self.tmp, {"body": b"x" * (2 << 20)}), "body")
        for args, expected in (((), "Service Unavailable\n503"),  # methods: the router's tests
                               (("-X", "POST", "--data-binary", "@" + body), "413")):
            with self.subTest(args=args):
                self.assertTrue(subprocess.run(
                    ["curl", "-sS", "--max-time", "30", "-w", "\n%{http_code}", *args,
                     "http://127.0.0.1:%d/api/update" % port],
                    capture_output=True, text=True, timeout=60).stdout.endswith(expected))
        wait_for(lambda: host.log().count("receviced event") == 14, "the events")
        os.rename(path, path + ".moved")
        host.process.send_signal(signal.SIGHUP)
        wait_for(lambda: os.path.exists(path), "a reopened log file")
        self.assertEqual(promote(host.endpoint, "ping").returncode, 0)
        self.assertEqual(host.stop(), 0)
        self.assertFalse(os.path.exists(host.socket), "the socket file outlived the host")
        lines = ["module GUID: " + GUID, "module priority: 0",
                 '"name":"HelionPromote","version":"2.2.16.1"', "module routes (0): []",
                 GUID + " module will load finished", "moduleDidLoadFinished",
                 "receviced event: [portal.changed]", "receviced event: [t2]",
                 "moduleWillUnloadFinished", "moduleDidUnloadFinished"]
        positions = [host.log().find(line) for line in lines]
        self.assertEqual(positions, sorted(p for p in positions if p >= 0), host.log())
        self.assertEqual(sorted(os.listdir(logs)),
                         ["host.1.log", "host.2.log", "host.log", "host.log.moved"])
        self.assertEqual({mode(os.path.join(logs, name)) for name in os.listdir(logs)}, {0o600})
        self.assertIn(b"moduleDidUnloadFinished", tree(logs)["host.log"])

    def test_endpoints_private_paths_and_sockets_left_behind(self):
        env = dict(os.environ, XDG_RUNTIME_DIR=self.tmp)
        directory = os.path.join(self.tmp, "helion")
        os.mkdir(directory, 0o755)  # a link to a private one too: test_host_library
        self.failed_start("must be owned by this user with mode 0700", listen="", env=env)
        os.chmod(directory, 0o700)
        group = next(g for g in grp.getgrall() if g.gr_gid != os.getgid())
        host = self.start_host(listen="", env=env, extra=("--socket-group", group.gr_name))
        self.assertEqual(host.endpoint, "unix:" + os.path.join(directory, "promote.sock"))
        self.assertEqual((mode(host.endpoint[5:]), os.stat(host.endpoint[5:]).st_gid),
                         (0o660, group.gr_gid))
        self.assertEqual(host.stop(signal.SIGINT), 0)
        self.assertRegex(self.start_host(listen="tcp:127.0.0.1:0").endpoint,
                         r"^tcp:127\.0\.0\.1:\d+$")  # the fixture pinged it

        first = self.start_host()  # a dead host's socket: faults.host
        self.failed_start("already listening")
        self.assertEqual(promote(first.endpoint, "ping").returncode, 0)
        first.stop()
        write_tree(self.tmp, {"promote.sock": b"keep me"})
        self.failed_start("is not a socket")
        self.assertEqual(tree(self.tmp)["promote.sock"], b"keep me")

    def test_start_up_and_usage_errors(self):
        self.start_host(module=None).stop()  # this tree's program finds this tree's module
        copy = os.path.join(self.tmp, "bin", "helion-host")
        os.makedirs(os.path.dirname(copy))
        shutil.copy2(HOST, copy)
        fake = os.path.join(write_tree(self.tmp, {"fake.so": b"not an ELF file\n"}), "fake.so")
        taken = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(taken.close)
        busy = "tcp:127.0.0.1:%d" % taken.getsockname()[1]
        for expected, kwargs in (
                ("does not exist", dict(module=os.path.join(self.tmp, "absent.so"))),
                ("cannot load module", dict(module=fake)),
                ("export CreateInstance", dict(module=os.environ["HELION_LOGGER_LIBRARY"])),
                ("no module found", dict(module=None, program=copy)),
                ("cannot listen on " + busy, dict(listen=busy)),
                ("cannot listen for HTTP", dict(extra=("--http", busy[4:]))),
                ("non-loopback", dict(listen="tcp:0.0.0.0:0")),
                ("non-loopback", dict(extra=("--http", "0.0.0.0:0")))):
            with self.subTest(expected):
                errors = self.failed_start(expected, **kwargs)
                if "program" in kwargs:  # a copy elsewhere does not look into this build tree
                    self.assertNotIn(os.path.dirname(os.path.dirname(HOST)), errors[0])
        for extra in (("--log-level", "loud"), ("--workers", "0"), ("--event", "=x"),
                      ("--listen", "tcp:127.0.0.1:99999"), ("--listen", "pipe:x"),
                      ("--socket-group", "no-such-group"), ("--log-max-size", "lots"),
                      ("--request-timeout", "0")):
            with self.subTest(extra=extra):
                self.failed_start(None, status=2, extra=extra)


if __name__ == "__main__":
    unittest.main()
