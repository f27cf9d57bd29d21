"""Runs helion-host, helion-promote and helion-portal as separate processes, with the paths ctest
sets. Nothing here waits without a deadline; every host started dies with the test process."""
import atexit
import contextlib
import ctypes
import itertools
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

HOST = os.environ["HELION_HOST"]
PROMOTE = os.environ["HELION_PROMOTE"]
PORTAL = os.environ["HELION_PORTAL"]
TEST_MODULE = os.environ["HELION_TEST_MODULE"]
PORTAL_ROOT = os.path.join(os.environ["HELION_TEST_RESOURCES_DIR"], "app")
PY_GEN_DIR = os.environ["HELION_PY_GEN_DIR"]
DEV_PRIVATE_KEY = os.environ["HELION_DEV_PRIVATE_KEY"]
DEV_PUBLIC_KEY = os.environ["HELION_DEV_PUBLIC_KEY"]
SAMPLE_PORTAL = os.environ["HELION_SAMPLE_PORTAL"]
SOURCE_DIR = os.environ["HELION_SOURCE_DIR"]

# Sanitizer builds start slowly; nothing here waits for this long when things work.
START_TIMEOUT = 60

# Once one host failed to answer, the product is broken: the next starts fail at once, not slowly.
_broken = []
_started = []
_names = itertools.count()


def _die_with_parent():
    ctypes.CDLL(None, use_errno=True).prctl(1, signal.SIGKILL)  # PR_SET_PDEATHSIG


def run(*args, env=None, cwd=None):
    return subprocess.run(list(args), capture_output=True, text=True, timeout=START_TIMEOUT,
                          env=env, cwd=cwd)


def promote(endpoint, *args, **kwargs):
    return run(PROMOTE, "--connect", endpoint, *args, **kwargs)


def portal(*args, **kwargs):
    return run(PORTAL, *args, **kwargs)



def wait_for(condition, what):
    deadline = time.monotonic() + START_TIMEOUT
    while not condition():
        assert time.monotonic() < deadline, "timed out waiting for " + what
        time.sleep(0.05)

class Host:
    """One helion-host child process. Its log goes to a file, never a pipe: the diagnosis tool
    it may launch inherits the descriptors and would keep a pipe open."""

    def __init__(self, workdir, module=TEST_MODULE, listen=None, extra=(), env=None):
        self.workdir = workdir
        self.socket = os.path.join(workdir, "promote.sock")
        listen = listen if listen is not None else "unix:" + self.socket
        self.log_path = os.path.join(workdir, "host-%d.log" % id(self))
        self.args = ([HOST, "--log-level", "debug"] + (["--module", module] if module else []) +
                     (["--listen", listen] if listen else []) + list(extra))
        self.env, self.process, self.endpoint = env, None, None

    def launch(self):
        with open(self.log_path, "wb") as log:
            self.process = subprocess.Popen(self.args, stdout=log, stderr=log, env=self.env,
                                            stdin=subprocess.DEVNULL, start_new_session=True,
                                            preexec_fn=_die_with_parent)
        _started.append(self)

    def start(self):
        if _broken:
            raise AssertionError("an earlier host did not answer:\n" + _broken[0])
        self.launch()
        deadline = time.monotonic() + START_TIMEOUT
        while time.monotonic() < deadline:
            text = self.log()
            found = re.search(r"serving RPC on (\S+) with", text)
            if found and ("--http" not in self.args or "serving HTTP on" in text):
                self.endpoint = found.group(1)
                break
            if self.process.poll() is not None:
                raise AssertionError("helion-host exited with %d:\n%s" %
                                     (self.process.returncode, text))
            time.sleep(0.05)
        else:
            raise AssertionError("helion-host did not come up:\n" + self.log())
        try:  # a host that says it serves must answer at once
            answered = promote(self.endpoint, "--timeout", "10", "ping").returncode == 0
        except subprocess.TimeoutExpired:
            answered = False
        if not answered:
            _broken.append(self.log())
            raise AssertionError("helion-host serves but does not answer:\n" + self.log())

    def stop(self, sig=signal.SIGTERM):
        if self.process.poll() is None:
            self.process.send_signal(sig)
        try:
            return self.process.wait(timeout=START_TIMEOUT)
        finally:
            self.reap()

    def reap(self):
        if self.process is None:
            return
        # Whatever the host launched (the diagnosis tool) stays in the host's process group.
        with contextlib.suppress(ProcessLookupError, PermissionError):
            os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait(timeout=START_TIMEOUT)

    def log(self):
        return pathlib.Path(self.log_path).read_text(encoding="utf-8", errors="replace")


atexit.register(lambda: [host.reap() for host in _started])


class HostTestCase(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="helion-e2e-")
        self.addCleanup(shutil.rmtree, self.tmp, ignore_errors=True)

    def start_host(self, **kwargs):
        host = Host(self.tmp, **kwargs)
        self.addCleanup(host.reap)
        host.start()
        return host


class SharedHostTestCase(unittest.TestCase):
    """One host for the whole class, on a socket in a private scratch directory."""

    host_extra = ()

    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.mkdtemp(prefix="helion-e2e-")
        cls.host = Host(cls.tmp, extra=cls.host_extra)
        cls.host.start()  # on failure the host is reaped at exit

    @classmethod
    def tearDownClass(cls):
        status, log = cls.host.stop(), cls.host.log()
        shutil.rmtree(cls.tmp, ignore_errors=True)
        assert status == 0, "helion-host exited with %d:\n%s" % (status, log)

    def setUp(self):
        self.work = tempfile.mkdtemp(prefix="case-", dir=self.tmp)

    def portal_dir(self, label):  # removed from the test portal root afterwards
        name = "e2e-%s-%d-%d" % (label, os.getpid(), next(_names))
        self.addCleanup(shutil.rmtree, os.path.join(PORTAL_ROOT, name), ignore_errors=True)
        return name


def tree(root):
    return {str(path.relative_to(root)): path.read_bytes()
            for path in pathlib.Path(root).rglob("*") if path.is_file()}


def write_tree(root, files):
    for relative, content in files.items():
        path = pathlib.Path(root, relative)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
    return root


def envelope(code, message):
    return json.dumps({"code": code, "message": message, "data": ""}, separators=(",", ":"))
