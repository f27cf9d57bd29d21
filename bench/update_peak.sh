#!/usr/bin/env bash
# Peak memory of helion-host for one updatePortal of a 64 MiB package, with an empty signature
# (the check fails) or a valid one (the check passes, extraction then fails: the bytes are no
# zip), and the longest line the host logged.
#   bench/update_peak.sh [BUILD_DIR] empty|signed
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$source_dir/build/release}
kind=${2:-empty}
scratch=$(mktemp -d)
host_pid=
cleanup() {
    if [ -n "$host_pid" ]; then kill "$host_pid" 2>/dev/null || true; fi
    rm -rf "$scratch"
}
trap cleanup EXIT

head -c 67108864 /dev/urandom >"$scratch/pkg.zip"
: >"$scratch/empty.sig"
openssl dgst -sha256 -sign "$source_dir/keys/dev-portal-private.pem" -out "$scratch/pkg.sig" \
    "$scratch/pkg.zip"
signature=$scratch/empty.sig
[ "$kind" = signed ] && signature=$scratch/pkg.sig

mkdir -m 700 "$scratch/run"
"$build/host/helion-host" --module "$build/test-bundle/lib/libHelionPromote.so" \
    --listen "unix:$scratch/run/s.sock" --log-file "$scratch/host.log" 2>"$scratch/host.err" &
host_pid=$!
for _ in $(seq 100); do [ -S "$scratch/run/s.sock" ] && break; sleep 0.1; done
"$build/tools/helion-promote" --connect "unix:$scratch/run/s.sock" --force update-portal \
    --zip "$scratch/pkg.zip" --sig "$signature" --dir update-peak || true
grep VmHWM "/proc/$host_pid/status"
kill "$host_pid"
wait "$host_pid" || true
host_pid=
echo "longest log line: $(awk '{ if (length($0) > m) m = length($0) } END { print m }' \
    "$scratch/host.log" "$scratch/host.err") bytes"
