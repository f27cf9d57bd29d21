#!/usr/bin/env bash
# Builds the libFuzzer targets (fuzz preset) and runs them inside fuzz/sandbox.sh: a private mount
# and PID namespace whose every mount is read-only but a tmpfs scratch directory, since archive
# entry names and portal names are joined as they stand, by design.
#
#   scripts/fuzz.sh                 smoke run: a bounded number of runs per target (what CI does)
#   scripts/fuzz.sh --time 600      each target for 600 seconds
#   scripts/fuzz.sh [...] TARGET..  only the named targets
#
# Findings (crash-*, leak-*, timeout-*) and grown corpora land in build/fuzz/findings/<target>/.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
# The comment block above, without its marks, is the help text.
usage() { sed -n '2,/^[^#]/{/^#/s/^# \{0,1\}//p}' "scripts/${0##*/}"; }

all_targets=(fuzz_json_checker fuzz_http_router fuzz_from_json fuzz_signature fuzz_unzip
    fuzz_processor)

budget=(-runs="${HELION_FUZZ_RUNS:-20000}")  # HELION_FUZZ_RUNS: a shorter smoke run
targets=()
while [ $# -gt 0 ]; do
    case "$1" in
        --time)
            [[ "${2:-}" =~ ^[1-9][0-9]*$ ]] ||
                { echo "fuzz.sh: --time needs a number of seconds" >&2; exit 2; }
            budget=(-max_total_time="$2")
            shift
            ;;
        -h | --help) usage; exit 0 ;;
        *)
            [[ " ${all_targets[*]} " == *" $1 "* ]] ||
                { echo "fuzz.sh: unknown argument '$1' (targets: ${all_targets[*]})" >&2; exit 2; }
            targets+=("$1")
            ;;
    esac
    shift
done
# Some kept regressions are large (deep nesting); mutating inputs that long would slow every
# target to a crawl, and the suite replays them whole anyway.
budget+=(-max_len=8192)

[ ${#targets[@]} -gt 0 ] || targets=("${all_targets[@]}")

scripts/install-deps.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "${targets[@]}"

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:suppressions=$root/cmake/ubsan.supp"

# Runs inside the sandbox (cwd is the scratch tmpfs): new corpus units go to corpus/, findings to
# out/; both leave as a tar stream on stdout. The committed seeds and regressions are read-only.
inside='mkdir -p corpus out
status=0
binary=$1
shift
"$binary" -artifact_prefix="$PWD/out/" corpus "$@" >&2 || status=$?
tar -cf - out corpus
exit $status'

failed=0
for target in "${targets[@]}"; do
    name=${target#fuzz_}
    findings="$root/build/fuzz/findings/$target"
    rm -rf "$findings" && mkdir -p "$findings"
    inputs=("$root/fuzz/corpus/$name")
    [ -d "$root/fuzz/regressions/$name" ] && inputs+=("$root/fuzz/regressions/$name")
    echo "== $target (${budget[*]})"
    set +e
    fuzz/sandbox.sh bash -c "$inside" _ "$root/build/fuzz/fuzz/$target" "${budget[@]}" \
        "${inputs[@]}" | tar -C "$findings" -xf -
    status=${PIPESTATUS[0]}
    set -e
    if [ $status -eq 77 ]; then
        echo "fuzz: no sandbox can be made here (needs root); not running" >&2
        exit 1
    elif [ $status -ne 0 ]; then
        echo "!! $target failed; findings in $findings/out" >&2
        failed=1
    fi
done
exit $failed
