#!/usr/bin/python3
"""Mutation testing: plants one fault at a time in the product's sources (a comparison flipped,
&& and || swapped, a call statement deleted, a returned true/false inverted), rebuilds, runs the
tests of the mutated folder and counts the mutant as caught when a test fails or the run times
out. The sample is fixed: candidates are ranked by a hash of seed, file, line text and kind, so
an unchanged line yields the same mutants on any commit.

  scripts/mutate.py [--tree DIR] [--build DIR] [--seed S] [--per-folder N] [--timeout SEC]
                    [--list] [--only REGEX]

  --tree DIR       the checkout to mutate (default: this one), e.g. a `git worktree` of an
                   older commit
  --build DIR      build directory of its own (default: DIR/build/mutate), built incrementally
  --per-folder N   mutants per product folder (default 7; seven folders)
  --timeout SEC    limit for one mutant's test run (default 240); a hang counts as caught
  --list           print the sample and stop
  --only REGEX     run only the sampled mutants whose "file:line kind" matches

Sources are restored byte for byte after each mutant, on Ctrl-C too; a run killed harder leaves
BUILD/mutant-backup, which the next run restores first. One run per tree at a time: run it in a
worktree of its own, never in a tree others are building.
"""
import argparse
import hashlib
import os
import re
import signal
import subprocess
import sys
import time

parser = argparse.ArgumentParser(
    description=__doc__.split("\n\n")[0], formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("--tree")
parser.add_argument("--build")
parser.add_argument("--seed", default="helion")
parser.add_argument("--per-folder", type=int, default=7)
parser.add_argument("--timeout", type=int, default=240)
parser.add_argument("--list", action="store_true")
parser.add_argument("--only")
args = parser.parse_args()
HERE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
tree = os.path.abspath(args.tree or HERE)
build = os.path.abspath(args.build or os.path.join(tree, "build", "mutate"))

# The ctest labels that exercise each folder; packaging and load are never run here.
FOLDERS = {
    "SdpPromote": "portal|process|faults|foundation",
    "process": "process|faults",
    "io": "portal|regressions",
    "http": "foundation|regressions",
    "common": "foundation|process",
    "host": "host|e2e|faults",
    "tools": "host|e2e",
}
CMP = {"==": "!=", "!=": "==", "<": ">=", ">": "<=", "<=": ">", ">=": "<"}
CMP_RE = re.compile(r" (==|!=|<=|>=|<|>) ")
LOGIC_RE = re.compile(r" (&&|\|\|) ")
RET_RE = re.compile(r"\breturn (true|false);")
CALL_RE = re.compile(r"^(\s*)(?!(?:return|if|while|for|switch|case|delete|throw|else)\b)"
                     r"[A-Za-z_][\w:]*(?:(?:\.|->)[A-Za-z_]\w*)*\(.*\);\s*$")


def code_part(line):
    """The line with string and char literals blanked and any // comment cut."""
    out, quote, i = [], None, 0
    while i < len(line):
        c = line[i]
        if quote:
            out.append(" ")
            if c == "\\":
                out.append(" ")
                i += 1
            elif c == quote:
                quote = None
        elif c in "\"'":
            quote = c
            out.append(" ")
        elif line.startswith("//", i):
            break
        else:
            out.append(c)
        i += 1
    return "".join(out)


def candidates(path):
    rel = os.path.relpath(path, tree)
    with open(path, encoding="utf-8", errors="surrogateescape") as handle:
        lines = handle.read().split("\n")
    seen = {}
    for number, line in enumerate(lines, 1):
        stripped = line.strip()
        if not stripped or stripped.startswith(("#", "//", "*", "/*")):
            continue
        code = code_part(line)
        found = []
        for match in CMP_RE.finditer(code):
            found.append(("cmp", match.start(1), match.group(1), CMP[match.group(1)]))
        for match in LOGIC_RE.finditer(code):
            op = match.group(1)
            found.append(("logic", match.start(1), op, "||" if op == "&&" else "&&"))
        for match in RET_RE.finditer(code):
            value = match.group(1)
            found.append(("return", match.start(1), value, "false" if value == "true" else "true"))
        call = CALL_RE.match(code)
        if call and code.count("(") == code.count(")") and " = " not in code.split("(")[0]:
            found.append(("call", len(call.group(1)), line[len(call.group(1)):], ""))
        for kind, column, old, new in found:
            key = (stripped, kind, old)
            seen[key] = seen.get(key, 0) + 1
            ident = "|".join([args.seed, rel, stripped, kind, old, str(seen[key])])
            rank = hashlib.sha1(ident.encode("utf-8", "surrogateescape")).hexdigest()
            yield {"rank": rank, "file": rel, "line": number, "column": column, "kind": kind,
                   "old": old, "new": new}


def sample():
    files = subprocess.run(["git", "-C", tree, "ls-files", *FOLDERS], check=True,
                           capture_output=True, text=True).stdout.split()
    chosen = []
    for folder in FOLDERS:
        pool = [m for f in files if f.startswith(folder + "/") and f.endswith((".cpp", ".h"))
                for m in candidates(os.path.join(tree, f))]
        # Round robin over the kinds, best rank first, so no kind crowds out the others.
        kinds = [sorted((m for m in pool if m["kind"] == kind), key=lambda m: m["rank"])
                 for kind in ("cmp", "logic", "return", "call")]
        picked = []
        while len(picked) < args.per_folder and any(kinds):
            picked += [kind.pop(0) for kind in kinds if kind][:args.per_folder - len(picked)]
        for mutant in sorted(picked, key=lambda m: (m["file"], m["line"])):
            mutant["labels"] = FOLDERS[folder]
            chosen.append(mutant)
    return chosen


def describe(m):
    what = {"cmp": "%s -> %s", "logic": "%s -> %s", "return": "return %s -> %s"}
    text = what[m["kind"]] % (m["old"], m["new"]) if m["kind"] != "call" else \
        "delete `%s`" % m["old"].strip()
    return "%s:%d %s: %s" % (m["file"], m["line"], m["kind"], text)


backup_path = os.path.join(build, "mutant-backup")


def restore_backup():
    if os.path.exists(backup_path):
        with open(backup_path, "rb") as handle:
            target, _, content = handle.read().partition(b"\0")
        with open(target.decode(), "wb") as handle:
            handle.write(content)
        os.remove(backup_path)


def plant(m):
    path = os.path.join(tree, m["file"])
    with open(path, "rb") as handle:
        original = handle.read()
    with open(backup_path, "wb") as handle:
        handle.write(path.encode() + b"\0" + original)
    lines = original.split(b"\n")
    line = lines[m["line"] - 1]
    start = m["column"]
    old, new = m["old"].encode("utf-8", "surrogateescape"), m["new"].encode()
    assert line[start:start + len(old)] == old, describe(m)
    lines[m["line"] - 1] = line[:start] + new + line[start + len(old):]
    with open(path, "wb") as handle:
        handle.write(b"\n".join(lines))


def run(command, limit, **kwargs):
    """Runs in its own process group; returns the exit code, or None when it ran out of time."""
    process = subprocess.Popen(command, start_new_session=True, **kwargs)
    try:
        return process.wait(timeout=limit)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        return None
    except BaseException:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        raise


def build_all(log):
    with open(log, "w") as out:
        return run(["cmake", "--build", build, "-j2"], 1800, stdout=out, stderr=subprocess.STDOUT)


def ctest(labels, excluded, log, extra=()):
    command = ["ctest", "--test-dir", build, "-j2", "-L", "^(%s)$" % labels,
               "-LE", "^(packaging|load)$", "--output-on-failure", *extra]
    if excluded:
        command += ["-E", "^(%s)$" % "|".join(map(re.escape, excluded))]
    with open(log, "w") as out:
        return run(command, args.timeout, stdout=out, stderr=subprocess.STDOUT)


def main():
    mutants = sample()
    if args.only:
        mutants = [m for m in mutants if re.search(args.only, describe(m))]
    if args.list:
        for m in mutants:
            print(describe(m))
        return 0

    os.makedirs(build, exist_ok=True)
    restore_backup()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(130))
    configure = ["cmake", "-S", tree, "-B", build, "-DCMAKE_BUILD_TYPE=Release",
                 "-DHELION_WARNINGS_AS_ERRORS=OFF", "-DHELION_BUILD_BENCH=OFF",
                 "-DHELION_BUILD_FUZZ=OFF", "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache",
                 "-DCMAKE_C_COMPILER_LAUNCHER=ccache"]
    subprocess.run(configure, check=True, stdout=subprocess.DEVNULL)
    if build_all(os.path.join(build, "mutate-build.log")) != 0:
        sys.exit("mutate: the unmutated tree does not build; see %s/mutate-build.log" % build)

    # Tests that already fail unmutated (say, for want of privileges) say nothing about mutants.
    every = "|".join(sorted(set("|".join(FOLDERS.values()).split("|"))))
    ctest(every, [], os.path.join(build, "mutate-baseline.log"))
    failing = []
    with open(os.path.join(build, "mutate-baseline.log")) as handle:
        for line in handle:
            hit = re.match(r"\s*\d+ - (\S+) \(", line)
            if hit:
                failing.append(hit.group(1))
    if failing:
        print("mutate: failing before any mutant, left out: " + ", ".join(failing))

    caught, survivors, skipped = [], [], []
    started = time.time()
    for index, m in enumerate(mutants, 1):
        name = describe(m)
        log = os.path.join(build, "mutant-%02d.log" % index)
        try:
            plant(m)
            if build_all(log) != 0:
                skipped.append(name)
                verdict = "does not compile, skipped"
            else:
                status = ctest(m["labels"], failing, log, ["--stop-on-failure"])
                if status == 0:
                    survivors.append(name)
                    verdict = "SURVIVED"
                else:
                    caught.append(name)
                    verdict = "caught" if status is not None else "caught (timed out)"
        finally:
            restore_backup()
        print("[%2d/%d %4.0fs] %s: %s" % (index, len(mutants), time.time() - started, name,
                                           verdict), flush=True)
    build_all(os.path.join(build, "mutate-build.log"))

    total = len(caught) + len(survivors)
    print("\nmutate: %d of %d mutants caught (%.0f%%), %d did not compile" %
          (len(caught), total, 100.0 * len(caught) / max(total, 1), len(skipped)))
    for name in survivors:
        print("  survived: " + name)
    return 0


try:
    sys.exit(main())
except KeyboardInterrupt:
    sys.exit(130)
finally:
    if not args.list:
        restore_backup()
