#!/usr/bin/env bash
# Runs end-to-end tests with every helion-host they start under valgrind memcheck: any memory error
# or definite/indirect leak in the host (and the module it loads) fails the run.
#
#   scripts/valgrind-e2e.sh [CTEST_REGEX]     default: the RPC, CLI and host fault tests
#
# Builds the release preset (or uses the build tree in $HELION_BUILD_DIR, built already); the
# tests are taken from ctest, so they run with the same command and environment as there, except
# that the fixture starts a valgrind wrapper instead of the host.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
# The comment block above, without its marks, is the help text.
usage() { sed -n '2,/^[^#]/{/^#/s/^# \{0,1\}//p}' "scripts/${0##*/}"; }

tests='^(host\.test_wire_python|host\.test_promote_cli|faults\.host)$'
case "${1:-}" in
    -h | --help) usage; exit 0 ;;
    -*) echo "valgrind-e2e.sh: unknown argument '$1'" >&2; usage >&2; exit 2 ;;
    ?*) tests=$1 ;;
esac
if [ $# -gt 1 ]; then
    echo "valgrind-e2e.sh: one CTEST_REGEX at most" >&2
    exit 2
fi

build=${HELION_BUILD_DIR:-}
if [ -z "$build" ]; then
    scripts/install-deps.sh
    cmake --preset release >/dev/null
    cmake --build --preset release
    build=$root/build/release
fi

work=$(mktemp -d /tmp/helion-valgrind-XXXXXX)
trap 'rm -rf "$work"' EXIT

real_host=$build/host/helion-host
[ -x "$real_host" ] || { echo "valgrind-e2e: no helion-host in $build" >&2; exit 1; }
cat >"$work/helion-host" <<EOF
#!/bin/sh
exec valgrind --quiet --leak-check=full --show-leak-kinds=definite,indirect \\
    --errors-for-leak-kinds=definite,indirect \\
    --error-exitcode=99 --log-file="$work/memcheck-%p.log" "$real_host" "\$@"
EOF
chmod +x "$work/helion-host"

ctest --test-dir "$build" --show-only=json-v1 -R "$tests" >"$work/tests.json"

# Each selected test, as ctest would run it, with HELION_HOST pointing at the wrapper.
/usr/bin/python3 - "$work" <<'EOF'
import json
import os
import subprocess
import sys

work = sys.argv[1]
with open(os.path.join(work, "tests.json")) as handle:
    tests = json.load(handle)["tests"]
if not tests:
    sys.exit("valgrind-e2e: no test matched")
failed = []
for test in tests:
    env = dict(os.environ)
    cwd = None
    for prop in test.get("properties", []):
        if prop["name"] == "ENVIRONMENT":
            env.update(item.split("=", 1) for item in prop["value"])
        elif prop["name"] == "WORKING_DIRECTORY":
            cwd = prop["value"]
    env["HELION_HOST"] = os.path.join(work, "helion-host")
    print("== %s (under valgrind)" % test["name"], flush=True)
    if subprocess.run(test["command"], env=env, cwd=cwd).returncode != 0:
        failed.append(test["name"])
if failed:
    sys.exit("valgrind-e2e: failed: " + ", ".join(failed))
EOF

# A host that exited 99 already failed its test; this also catches reports from hosts whose exit
# status a test did not look at.
reports=0
for log in "$work"/memcheck-*.log; do
    [ -e "$log" ] || continue
    if [ -s "$log" ]; then
        echo "valgrind report ($log):" >&2
        cat "$log" >&2
        reports=1
    fi
done
if [ $reports -ne 0 ]; then
    exit 1
fi
echo "valgrind-e2e: no memory errors or leaks in $(ls "$work"/memcheck-*.log 2>/dev/null | wc -l) host runs"
