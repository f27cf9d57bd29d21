#!/usr/bin/env bash
# Builds the libFuzzer targets (fuzz preset) and runs them inside a sandbox: a private mount and
# PID namespace whose every mount is read-only but a tmpfs scratch directory, since archive entry
# names and portal names are joined as they stand, by design.
#
#   scripts/fuzz.sh                 smoke run: a bounded number of runs per target (what CI does)
#   scripts/fuzz.sh --time 600      each target for 600 seconds
#   scripts/fuzz.sh [...] TARGET..  only the named targets
#
# Findings (crash-*, leak-*, timeout-*) and grown corpora land in build/fuzz/findings/<target>/.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

budget=(-runs=20000)
if [ "${1:-}" = "--time" ]; then
    budget=(-max_total_time="$2")
    shift 2
fi

all_targets=(fuzz_json_checker fuzz_http_router)
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=("${all_targets[@]}")

scripts/install-deps.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "${targets[@]}"

if ! unshare --mount --pid --fork --mount-proc true 2>/dev/null; then
    echo "fuzz: cannot create a private mount and PID namespace here (needs root); not running" >&2
    exit 1
fi

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:suppressions=$root/cmake/ubsan.supp"

# Runs inside the namespace: scratch tmpfs, everything else read-only, then the fuzzer; the
# findings leave as a tar stream on stdout.
sandboxed_run() {
    local binary=$1 corpus=$2 regressions=$3
    shift 3
    local scratch=/tmp/helion-fuzz
    mkdir -p "$scratch"
    mount --make-rprivate /
    mount -t tmpfs -o size=1g tmpfs "$scratch"
    mkdir -p "$scratch/Resources/app" "$scratch/corpus" "$scratch/out"
    cp -r "$corpus"/. "$scratch/corpus/"
    awk '{print $2}' /proc/self/mounts | sort -r | while read -r mountpoint; do
        [ "$mountpoint" = "$scratch" ] && continue
        mount -o remount,bind,ro "$mountpoint" 2>/dev/null || true
    done
    local status=0
    (cd "$scratch" && "$binary" "$@" -artifact_prefix="$scratch/out/" "$scratch/corpus" \
        ${regressions:+"$regressions"} >&2) || status=$?
    tar -C "$scratch" -cf - out corpus
    return $status
}

failed=0
for target in "${targets[@]}"; do
    name=${target#fuzz_}
    findings="$root/build/fuzz/findings/$target"
    rm -rf "$findings" && mkdir -p "$findings"
    regressions="$root/fuzz/regressions/$name"
    [ -d "$regressions" ] || regressions=""
    echo "== $target (${budget[*]})"
    if ! unshare --mount --pid --fork --mount-proc bash -c "$(declare -f sandboxed_run); sandboxed_run \"\$@\"" _ \
            "$root/build/fuzz/fuzz/$target" "$root/fuzz/corpus/$name" "$regressions" "${budget[@]}" \
            | tar -C "$findings" -xf -; then
        echo "!! $target failed; findings in $findings/out" >&2
        failed=1
    fi
done
exit $failed
