#!/usr/bin/python3
"""End-to-end benchmark of a portal update and of the RPC path, against what they compete with.

Run after a build (scripts/bench.sh builds Release and runs this):

    /usr/bin/python3 bench/e2e_bench.py --build-dir build/bench

1. Generates a portal tree (text assets that compress well beside images and fonts that do not,
   nested directories), packs it with helion-portal and signs it with the development key.
2. At each size asked for (by default the base package and four times it), alternates round by
   round, in a rotating order, an update through helion-host and helion-promote with the
   pipelines an administrator would script instead: openssl dgst -verify, then rm -rf and one
   of unzip, bsdtar and 7z. Reports median wall and CPU times, each ratio, every side's peak
   resident memory (the host's over the package) and how the update's time grows with size.
3. Measures IsRpcStatusNormal round trips per second through helion-host and through a bare
   Thrift server configured the same way with an empty handler, with 1 and 8 clients.

Everything runs on Unix sockets in a scratch directory, every child is bounded in time and is
ended before the script exits.
"""
import argparse
import datetime
import json
import math
import os
import random
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import threading
import time

MIB = 1024 * 1024
CALL_TIMEOUT = 300
START_TIMEOUT = 30
PORTAL_DIR = "bench-portal"

# Targets the figures are judged against.
TARGET_UPDATE_RATIO = 0.85  # of the fastest peer
TARGET_GROWTH_PER_DOUBLING = 0.10  # time per package byte, from one size to the next
TARGET_RPC_RATIO = 0.9
TARGET_RSS_SLACK_MIB = 16
PEER_TOOLS = ("openssl", "unzip", "bsdtar", "7z")

TEXT_KINDS = ("css", "js", "json", "html")
BINARY_KINDS = ("png", "jpg", "woff2", "ttf")
DIR_NAMES = ("assets", "img", "fonts", "js", "css", "i18n", "vendor", "modules", "static")
WORDS = ("function", "return", "const", "portal", "display", "margin", "padding", "color",
         "#1f2a44", "width", "height", "var", "let", "=>", "{", "}", "(", ")", ";", "\n", "  ",
         "\"name\"", ":", ",", "div", "class", "button", "0px", "auto", "flex", "grid", "true",
         "false", "null", "this", "props", "state", "async", "await", "import")


def log(text):
    print(text, flush=True)


def text_asset(rng, size, kind):
    head = {"html": "<!DOCTYPE html>\n", "json": "{\n"}.get(kind, "/* portal */\n")
    # Six characters a word on average, a few extra so one pass is enough.
    body = " ".join(rng.choices(WORDS, k=size // 5 + 16))
    return (head + body)[:size].encode()


def write_tree(root, total_bytes, files, seed):
    """About total_bytes in files: 40% of the bytes in the quarter that are images and fonts."""
    rng = random.Random(seed)
    binary_files = files // 4
    text_files = files - binary_files
    binary_avg = total_bytes * 2 // 5 // max(binary_files, 1)
    text_avg = total_bytes * 3 // 5 // max(text_files, 1)
    # About twenty files a directory, as in a real bundle, in directories one to four deep.
    dirs = [[rng.choice(DIR_NAMES) + str(rng.randrange(3)) for _ in range(rng.randint(1, 4))]
            for _ in range(max(files // 20, 1))]
    written = 0
    for i in range(files):
        binary = i % 4 == 3
        avg = binary_avg if binary else text_avg
        size = avg // 10 + rng.randrange(avg * 18 // 10 + 1)
        parts = rng.choice(dirs)
        kind = rng.choice(BINARY_KINDS if binary else TEXT_KINDS)
        path = os.path.join(root, *parts, "f%d.%s" % (i, kind))
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as out:
            out.write(rng.randbytes(size) if binary else text_asset(rng, size, kind))
        written += size
    return written


def run(args, **kwargs):
    return subprocess.run(args, capture_output=True, text=True, timeout=CALL_TIMEOUT, **kwargs)


def checked(args, **kwargs):
    result = run(args, **kwargs)
    if result.returncode != 0:
        raise RuntimeError("%s failed (%d):\n%s%s" % (" ".join(args), result.returncode,
                                                      result.stdout, result.stderr))
    return result


def make_package(paths, work, mib, files, seed):
    """The package and its signature, reused while the parameters stay the same."""
    package = os.path.join(work, "portal-%dm-%d.zip" % (mib, files))
    signature = package + ".sig"
    marker = package + ".json"
    wanted = {"mib": mib, "files": files, "seed": seed, "layout": 2}
    try:
        with open(marker) as found:
            if json.load(found) == wanted and os.path.exists(signature):
                log("reusing %s" % package)
                return package, signature
    except (OSError, ValueError):
        pass
    tree = os.path.join(work, "tree")
    shutil.rmtree(tree, ignore_errors=True)
    log("generating %d files, about %d MiB, in %s" % (files, mib, tree))
    write_tree(tree, mib * MIB, files, seed)
    checked([paths["portal"], "pack", tree, "-o", package])
    checked([paths["portal"], "sign", "--key", paths["private_key"], package, "-o", signature])
    shutil.rmtree(tree, ignore_errors=True)
    with open(marker, "w") as out:
        json.dump(wanted, out)
    return package, signature


class Server:
    """A child server on a Unix socket; ready when its log says so."""

    def __init__(self, name, args, ready_pattern, log_path):
        self.name = name
        self.args = args
        self.ready = re.compile(ready_pattern)
        self.log_path = log_path
        self.process = None

    def start(self):
        with open(self.log_path, "wb") as out:
            self.process = subprocess.Popen(self.args, stdout=out, stderr=out,
                                            stdin=subprocess.DEVNULL, start_new_session=True)
        deadline = time.monotonic() + START_TIMEOUT
        while time.monotonic() < deadline:
            if self.ready.search(self.log()):
                return self
            if self.process.poll() is not None:
                raise RuntimeError("%s exited with %d:\n%s" % (self.name, self.process.returncode,
                                                               self.log()))
            time.sleep(0.05)
        raise RuntimeError("%s did not come up:\n%s" % (self.name, self.log()))

    def log(self):
        with open(self.log_path, encoding="utf-8", errors="replace") as found:
            return found.read()

    def status(self, field):
        """A /proc/<pid>/status figure in KiB."""
        with open("/proc/%d/status" % self.process.pid) as found:
            for line in found:
                if line.startswith(field + ":"):
                    return int(line.split()[1])
        raise RuntimeError("no %s for %s" % (field, self.name))

    def cpu_seconds(self):
        """User and system time the server has used so far."""
        with open("/proc/%d/stat" % self.process.pid) as found:
            fields = found.read().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def stop(self):
        if self.process is None or self.process.poll() is not None:
            return
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(timeout=START_TIMEOUT)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


def timed(args):
    """Wall seconds, standard output and the child's own resource usage (its peak RSS and CPU
    time, which subprocess.run does not give per child)."""
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        start = time.perf_counter()
        child = subprocess.Popen(args, stdout=out, stderr=err, stdin=subprocess.DEVNULL)
        timer = threading.Timer(CALL_TIMEOUT, child.kill)
        timer.start()
        _, status, usage = os.wait4(child.pid, 0)
        elapsed = time.perf_counter() - start
        timer.cancel()
        child.returncode = os.waitstatus_to_exitcode(status)
        out.seek(0)
        err.seek(0)
        stdout, stderr = out.read().decode(errors="replace"), err.read().decode(errors="replace")
    if child.returncode != 0:
        raise RuntimeError("%s failed (%d):\n%s%s" % (" ".join(args), child.returncode, stdout,
                                                      stderr))
    return elapsed, stdout, usage


def cpu_of(usage):
    return usage.ru_utime + usage.ru_stime


def tree_listing(root):
    listing = {}
    for base, _, names in os.walk(root):
        for name in names:
            path = os.path.join(base, name)
            listing[os.path.relpath(path, root)] = os.path.getsize(path)
    return listing


def link_portal_root(portal_root, target):
    """Makes the bench module's compiled-in portal root a link to target (say, on tmpfs), so that
    the figures show the work of both sides rather than the disk's."""
    if os.path.islink(portal_root):
        os.unlink(portal_root)
    elif os.path.isdir(portal_root):
        # Only the benchmark writes below the bench bundle.
        shutil.rmtree(portal_root)
    os.makedirs(os.path.dirname(portal_root), exist_ok=True)
    os.makedirs(target, exist_ok=True)
    os.symlink(target, portal_root)


# Host log lines that open each phase of an update, and the one that ends the last.
PHASE_MARKS = (("verify", "updatePortal start"), ("remove", "is exists, will remove"),
               ("extract", "create dir:"), (None, "updatePortal success"))
STAMP = re.compile(r"^(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}) ")


def phases_from_log(text):
    """Seconds per phase of every update in the host's log, from the lines' timestamps."""
    updates, current = [], None
    for line in text.splitlines():
        stamp = STAMP.match(line)
        if not stamp:
            continue
        at = datetime.datetime.strptime(stamp.group(1), "%Y-%m-%d %H:%M:%S.%f").timestamp()
        for index, (_, mark) in enumerate(PHASE_MARKS):
            if mark in line:
                if index == 0:
                    current = {}
                    updates.append(current)
                if current is not None:
                    current[index] = at
    phases = []
    for marks in updates:
        if len(marks) == len(PHASE_MARKS):
            phases.append({PHASE_MARKS[i][0]: marks[i + 1] - marks[i]
                           for i in range(len(PHASE_MARKS) - 1)})
    return phases


def median_phases(rounds):
    if not rounds:
        return {}
    return {name: statistics.median(r[name] for r in rounds) for name in rounds[0]}


def peer_pipelines(paths, package, signature, work):
    """What an administrator scripts by hand instead: verify, then replace the directory with
    one of the extractors at hand. The steps run one by one (as "a && b && c" would) so that
    each is timed; each peer extracts into a directory of its own."""
    verify = ["openssl", "dgst", "-sha256", "-verify", paths["public_key"], "-signature",
              signature, package]
    peers = {}
    for name, extract in (
            ("unzip", lambda d: [["unzip", "-qo", package, "-d", d]]),
            ("bsdtar", lambda d: [["mkdir", d], ["bsdtar", "-xf", package, "-C", d]]),
            ("7z", lambda d: [["7z", "x", "-y", "-bso0", "-bsp0", "-o" + d, package]])):
        target = os.path.join(work, "peer-" + name)
        peers[name] = {"dir": target, "steps": [("verify", [verify]),
                                                ("remove", [["rm", "-rf", target]]),
                                                ("extract", extract(target))]}
    return peers


def bench_update(paths, sockets, work, package, signature, rounds):
    """Alternates the update with every peer pipeline, rotating the order each round, on a host
    started for this package alone (its VmHWM is then this package's)."""
    socket = os.path.join(sockets, "host.sock")
    host = Server("helion-host",
                  [paths["host"], "--module", paths["module"], "--listen", "unix:" + socket,
                   "--workers", "8"],
                  r"serving RPC on", os.path.join(sockets, "host-update.log"))
    module_dir = os.path.join(paths["portal_root"], PORTAL_DIR)
    update = [paths["promote"], "--connect", "unix:" + socket, "update-portal", "--zip", package,
              "--sig", signature, "--dir", PORTAL_DIR]
    peers = peer_pipelines(paths, package, signature, work)
    sides = {name: {"times": [], "cpu": [], "phases": [], "peak_kib": 0} for name in peers}
    sides["module"] = {"times": [], "cpu": [], "peak_kib": 0}
    try:
        host.start()
        rss_start = host.status("VmHWM")

        def module_round(record):
            cpu_before = host.cpu_seconds()
            elapsed, result, usage = timed(update)
            if json.loads(result).get("code") != 0:
                raise RuntimeError("updatePortal answered " + result)
            if record:
                side = sides["module"]
                side["times"].append(elapsed)
                side["cpu"].append(host.cpu_seconds() - cpu_before + cpu_of(usage))

        def peer_round(name, record):
            phases, cpu, peak = {}, 0.0, 0
            for phase, commands in peers[name]["steps"]:
                phases[phase] = 0.0
                for args in commands:
                    elapsed, _, usage = timed(args)
                    phases[phase] += elapsed
                    cpu += cpu_of(usage)
                    peak = max(peak, usage.ru_maxrss)
            if record:
                side = sides[name]
                side["times"].append(sum(phases.values()))
                side["cpu"].append(cpu)
                side["phases"].append(phases)
                side["peak_kib"] = max(side["peak_kib"], peak)

        steps = [lambda record: module_round(record)] + [
            (lambda record, name=name: peer_round(name, record)) for name in peers]
        # One unmeasured round each: page cache and first-touch costs land here.
        for step in steps:
            step(False)
        for i in range(rounds):
            for step in steps[i % len(steps):] + steps[:i % len(steps)]:
                step(True)
        sides["module"]["peak_kib"] = host.status("VmHWM")
        sides["module"]["phases"] = phases_from_log(host.log())[1:]
        listing = tree_listing(module_dir)
        same = {name: tree_listing(peer["dir"]) == listing for name, peer in peers.items()}
    finally:
        host.stop()
        for peer in peers.values():
            shutil.rmtree(peer["dir"], ignore_errors=True)
        shutil.rmtree(module_dir, ignore_errors=True)
    for side in sides.values():
        side["median"] = statistics.median(side["times"])
        side["cpu_median"] = statistics.median(side["cpu"])
        side["phase_medians"] = median_phases(side["phases"])
    return {"sides": sides, "host_hwm_start_kib": rss_start, "same_tree": same}


def load(paths, server, socket, clients, seconds):
    """Calls per second, and the server's CPU microseconds per call: on a busy machine the rate
    follows the scheduler, the CPU cost follows the code."""
    cpu_before = server.cpu_seconds()
    result = checked([paths["rpc_load"], "--connect", "unix:" + socket, "--clients", str(clients),
                      "--seconds", str(seconds)])
    cpu = server.cpu_seconds() - cpu_before
    figures = json.loads(result.stdout)
    return figures["calls_per_second"], cpu * 1e6 / max(figures["calls"], 1)


def bench_rpc(paths, work, seconds, rounds, workers):
    host_socket = os.path.join(work, "host-rpc.sock")
    bare_socket = os.path.join(work, "bare.sock")
    host = Server("helion-host",
                  [paths["host"], "--module", paths["module"], "--listen", "unix:" + host_socket,
                   "--workers", str(workers)],
                  r"serving RPC on", os.path.join(work, "host-rpc.log"))
    bare = Server("bare server",
                  [paths["bare_server"], "--listen", "unix:" + bare_socket,
                   "--workers", str(workers)],
                  r"serving on", os.path.join(work, "bare.log"))
    figures = {}
    try:
        host.start()
        bare.start()
        for clients in (1, 8):
            host_rates, bare_rates, host_cpu, bare_cpu = [], [], [], []
            for i in range(rounds):
                pairs = [(host, host_socket, host_rates, host_cpu),
                         (bare, bare_socket, bare_rates, bare_cpu)]
                for server, socket, rates, cpu in (pairs if i % 2 == 0 else pairs[::-1]):
                    rate, cost = load(paths, server, socket, clients, seconds)
                    rates.append(rate)
                    cpu.append(cost)
            figures[clients] = {
                "host": statistics.median(host_rates),
                "bare": statistics.median(bare_rates),
                "host_cpu_us_per_call": statistics.median(host_cpu),
                "bare_cpu_us_per_call": statistics.median(bare_cpu),
                "host_rounds": host_rates,
                "bare_rounds": bare_rates,
            }
    finally:
        host.stop()
        bare.stop()
    return figures


def verdict(ok):
    return "met" if ok else "MISSED"


def report_updates(updates, rounds, tmpfs):
    log("update, median of %d%s; CPU is user + system of every process involved:" % (
        rounds, ", on tmpfs" if tmpfs else ""))
    for u in updates:
        sides = u["sides"]
        module = sides["module"]
        peers = [name for name in sides if name != "module"]
        fastest = min(peers, key=lambda name: sides[name]["median"])
        package_mib = u["package_bytes"] / MIB
        log("  %.1f MiB package, %d files:" % (package_mib, u["files"]))
        log("    %-8s %8s %8s %8s %8s  %9s  %s" % ("side", "wall s", "CPU s", "ratio", "CPU rat.",
                                                   "peak MiB", "rounds"))
        for name in ["module"] + peers:
            side = sides[name]
            side["ratio"] = module["median"] / side["median"]
            log("    %-8s %8.3f %8.3f %8.2f %8.2f  %9.1f  %s" % (
                name, side["median"], side["cpu_median"], side["ratio"],
                module["cpu_median"] / side["cpu_median"], side["peak_kib"] / 1024,
                " ".join("%.3f" % t for t in side["times"])))
        for phase in ("verify", "remove", "extract"):
            log("    %-8s " % phase + "  ".join(
                "%s %.3f" % (name, sides[name]["phase_medians"].get(phase, float("nan")))
                for name in ["module"] + peers))
        u["fastest_peer"] = fastest
        log("    module / fastest peer (%s) %.2f (target <= %.2f: %s)" % (
            fastest, sides[fastest]["ratio"], TARGET_UPDATE_RATIO,
            verdict(sides[fastest]["ratio"] <= TARGET_UPDATE_RATIO)))
        over = module["peak_kib"] / 1024 - package_mib
        log("    host peak RSS (VmHWM) %.1f MiB: package + %.1f MiB, %.1f MiB before the "
            "updates (target <= package + %d: %s)" % (
                module["peak_kib"] / 1024, over, u["host_hwm_start_kib"] / 1024,
                TARGET_RSS_SLACK_MIB, verdict(over <= TARGET_RSS_SLACK_MIB)))
        log("    trees identical to the module's: %s" % ", ".join(
            "%s %s" % (name, "yes" if same else "NO") for name, same in u["same_tree"].items()))
    for small, large in zip(updates, updates[1:]):
        doublings = math.log2(large["package_bytes"] / small["package_bytes"])
        per_byte = ((large["sides"]["module"]["median"] / large["package_bytes"]) /
                    (small["sides"]["module"]["median"] / small["package_bytes"]))
        growth = per_byte ** (1 / doublings) - 1
        log("  module time per byte, %.1f to %.1f MiB: %+.1f%% per doubling (target <= %+.0f%%: "
            "%s)" % (small["package_bytes"] / MIB, large["package_bytes"] / MIB, growth * 100,
                     TARGET_GROWTH_PER_DOUBLING * 100,
                     verdict(growth <= TARGET_GROWTH_PER_DOUBLING)))


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build-dir", default=os.path.join(here, "..", "build", "bench"))
    parser.add_argument("--work-dir", help="scratch directory (default: BUILD/bench-work)")
    parser.add_argument("--rounds", type=int, default=5, help="update rounds of each kind")
    # 94 MiB of files make a package of about 53 MiB.
    parser.add_argument("--mib", type=int, default=94, help="package size before compression")
    parser.add_argument("--files", type=int, default=3135)
    parser.add_argument("--scales", default="1,4",
                        help="package sizes to run, as multiples of --mib and --files")
    parser.add_argument("--seed", type=int, default=2216)
    parser.add_argument("--rpc-seconds", type=float, default=2.0)
    parser.add_argument("--rpc-rounds", type=int, default=5)
    parser.add_argument("--workers", type=int, default=8, help="worker pool of both servers")
    parser.add_argument("--tmpfs", action="store_true",
                        help="extract on tmpfs (the portal root becomes a link there), so that "
                             "disk noise does not drown the difference")
    parser.add_argument("--skip-update", action="store_true")
    parser.add_argument("--skip-rpc", action="store_true")
    parser.add_argument("--json", help="also write the figures to this file")
    options = parser.parse_args()
    if not 1 <= options.rounds <= 50 or not 1 <= options.rpc_rounds <= 20:
        parser.error("rounds out of range")

    build = os.path.abspath(options.build_dir)
    with open(os.path.join(build, "bench", "bench_paths.json")) as found:
        paths = json.load(found)
    scales = [int(scale) for scale in options.scales.split(",")]
    for tool in PEER_TOOLS:
        if shutil.which(tool) is None:
            parser.error(tool + " is needed for the comparison pipelines (scripts/bench.sh "
                         "installs them)")
    work = os.path.abspath(options.work_dir or os.path.join(build, "bench-work"))
    os.makedirs(work, exist_ok=True)
    # Sockets live in a private directory of their own: paths below the build tree can be long.
    sockets = tempfile.mkdtemp(prefix="helion-bench-", dir="/dev/shm" if options.tmpfs else None)

    figures = {"date": datetime.date.today().isoformat(), "nproc": os.cpu_count()}
    log("nproc %d, %s" % (os.cpu_count(), figures["date"]))
    try:
        if not options.skip_update:
            target_dir = work
            if options.tmpfs:
                target_dir = os.path.join(sockets, "targets")
                link_portal_root(paths["portal_root"], os.path.join(target_dir, "app"))
            log("update targets below %s" % ("tmpfs " + target_dir if options.tmpfs
                                              else paths["portal_root"] + " and " + work))
            figures["update"] = []
            try:
                for scale in scales:
                    package, signature = make_package(paths, work, options.mib * scale,
                                                      options.files * scale, options.seed)
                    size = os.path.getsize(package)
                    log("package %s: %.1f MiB, %d files" % (package, size / MIB,
                                                             options.files * scale))
                    update = bench_update(paths, sockets, target_dir, package, signature,
                                          options.rounds)
                    update["package_bytes"] = size
                    update["files"] = options.files * scale
                    figures["update"].append(update)
            finally:
                if os.path.islink(paths["portal_root"]):
                    os.unlink(paths["portal_root"])
        if not options.skip_rpc:
            figures["rpc"] = bench_rpc(paths, sockets, options.rpc_seconds, options.rpc_rounds,
                                       options.workers)
    finally:
        shutil.rmtree(sockets, ignore_errors=True)

    log("")
    if "update" in figures:
        report_updates(figures["update"], options.rounds, options.tmpfs)
    if "rpc" in figures:
        log("IsRpcStatusNormal round trips/s, median of %d x %.1f s:" % (options.rpc_rounds,
                                                                       options.rpc_seconds))
        for clients, r in figures["rpc"].items():
            r["ratio"] = r["host"] / r["bare"]
            log("  %d client%s: helion-host %8.0f  bare %8.0f  ratio %.2f (target >= %.1f: %s)" % (
                clients, "" if clients == 1 else "s", r["host"], r["bare"], r["ratio"],
                TARGET_RPC_RATIO, verdict(r["ratio"] >= TARGET_RPC_RATIO)))
            log("             server CPU per call: helion-host %.1f us  bare %.1f us" % (
                r["host_cpu_us_per_call"], r["bare_cpu_us_per_call"]))
    if options.json:
        with open(options.json, "w") as out:
            json.dump(figures, out, indent=2)
    return 0


if __name__ == "__main__":
    sys.exit(main())
