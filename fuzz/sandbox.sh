#!/usr/bin/env bash
# Runs a command inside a private mount and PID namespace where every mount is read-only except a
# fresh tmpfs at /tmp/helion-fuzz (the working directory), since archive entry names and portal
# names are joined as they stand and a fuzzed input may name any path.
#
#   fuzz/sandbox.sh COMMAND [ARGS...]
#
# The directories of the sanitizers' log_path (if set) stay writable, so that reports still
# reach the suite's log folder. Exits 77 when no namespace can be made here (not root).
set -euo pipefail

scratch=$(<"$(dirname "$0")/scratch.path")

if [ "${1:-}" != "--inside" ]; then
    if ! unshare --mount --pid --fork --mount-proc true 2>/dev/null; then
        echo "sandbox: cannot create a private mount and PID namespace here (needs root); skipped" >&2
        exit 77
    fi
    exec unshare --mount --pid --fork --mount-proc "$0" --inside "$@"
fi
shift

mount --make-rprivate /
mkdir -p "$scratch"
mount -t tmpfs -o size=1g,mode=0700 tmpfs "$scratch"
mkdir -p "$scratch/Resources/app"

keep=("$scratch")
for options in "${ASAN_OPTIONS:-}" "${UBSAN_OPTIONS:-}" "${LSAN_OPTIONS:-}"; do
    path=$(tr ':' '\n' <<<"$options" | sed -n 's/^log_path=//p' | tail -n 1)
    if [ -n "$path" ] && [ -d "$(dirname "$path")" ]; then
        dir=$(realpath "$(dirname "$path")")
        mount --bind "$dir" "$dir"
        keep+=("$dir")
    fi
done

# Innermost mounts first, so that a parent's remount does not hide a child.
awk '{print $2}' /proc/self/mounts | sort -r -u | while read -r mountpoint; do
    for kept in "${keep[@]}"; do
        [ "$mountpoint" = "$kept" ] && continue 2
    done
    mount -o remount,bind,ro "$mountpoint" 2>/dev/null || true
done

cd "$scratch"
exec "$@"
