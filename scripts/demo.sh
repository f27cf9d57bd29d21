#!/usr/bin/env bash
# The main job end to end: build, start the host, install a signed portal, watch a tampered
# package be refused, stop the host. Exits non-zero if any step does not go as shown.
#
#   scripts/demo.sh       (no arguments; HELION_DEMO_BUILD_DIR picks the build directory)
set -euo pipefail
# The comment block above, without its marks, is the help text.
usage() { sed -n '2,/^[^#]/{/^#/s/^# \{0,1\}//p}' "$0"; }

case "${1:-}" in
    "") ;;
    -h | --help) usage; exit 0 ;;
    *) echo "demo.sh: unknown argument '$1'" >&2; usage >&2; exit 2 ;;
esac

repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${HELION_DEMO_BUILD_DIR:-$repo/build/demo}"
resources="$build/demo-bundle/Resources"
portal_root="$resources/app"
run="$build/demo-run"
socket="$run/promote.sock"
host_pid=""

step() { printf '\n==> %s\n' "$*"; }
die() { printf 'demo: FAILED: %s\n' "$*" >&2; exit 1; }

stop_host_on_exit() {
    if [ -n "$host_pid" ] && kill -0 "$host_pid" 2>/dev/null; then
        kill -TERM "$host_pid" 2>/dev/null || true
        wait "$host_pid" 2>/dev/null || true
    fi
}
trap stop_host_on_exit EXIT

step "Installing missing build dependencies"
"$repo/scripts/install-deps.sh"

step "Building (release) into $build"
mkdir -p "$(dirname "$build")"
cd "$repo"
cmake --preset release -B "$build" \
    -DHELION_RESOURCES_DIR="$resources" \
    -DHELION_BUILD_TESTS=OFF -DHELION_BUILD_BENCH=OFF >"$build.configure.log" 2>&1 ||
    { cat "$build.configure.log"; die "configure"; }
cmake --build "$build" -j2 --target helion-host helion-promote helion-portal HelionPromote \
    >"$build.build.log" 2>&1 || { tail -40 "$build.build.log"; die "build"; }
echo "built helion-host, helion-promote, helion-portal and the module (logs: $build.*.log)"

host_bin="$build/host/helion-host"
promote_bin="$build/tools/helion-promote"
portal_bin="$build/tools/helion-portal"
module="$build/SdpPromote/libHelionPromote.so"
promote() { "$promote_bin" --connect "unix:$socket" "$@"; }

step "Starting helion-host on unix:$socket"
rm -rf "$run" "$resources"
mkdir -p "$run"
chmod 700 "$run"
"$host_bin" --module "$module" --listen "unix:$socket" --log-file "$run/host.log" \
    2>"$run/host.stderr" &
host_pid=$!
for _ in $(seq 1 100); do
    if promote ping >/dev/null 2>&1; then break; fi
    kill -0 "$host_pid" 2>/dev/null || { cat "$run/host.stderr"; die "helion-host exited"; }
    sleep 0.1
done
promote ping || die "the host does not answer"

step "Packing and signing the sample portal (development key)"
"$portal_bin" pack "$repo/tools/sample-portal" -o "$run/portal.zip"
"$portal_bin" sign --key "$repo/keys/dev-portal-private.pem" "$run/portal.zip"
"$portal_bin" verify --pub "$repo/keys/dev-portal-public.pem" "$run/portal.zip" "$run/portal.zip.sig"

step "Installing it: helion-promote update-portal --dir demo"
promote update-portal --zip "$run/portal.zip" --sig "$run/portal.zip.sig" --dir demo ||
    die "update-portal did not succeed"

step "Installed tree below $portal_root"
(cd "$portal_root" && find demo -type f | sort | while read -r file; do
    printf '  %-28s %6s bytes\n' "$file" "$(stat -c %s "$file")"
done)
before="$(cd "$portal_root" && find demo -type f -exec sha256sum {} + | sort)"

step "A tampered copy is refused"
cp "$run/portal.zip" "$run/tampered.zip"
printf 'X' | dd of="$run/tampered.zip" bs=1 seek=100 conv=notrunc status=none
set +e
promote update-portal --zip "$run/tampered.zip" --sig "$run/portal.zip.sig" --dir demo
status=$?
set -e
[ "$status" -eq 1 ] || die "the tampered package gave exit status $status, expected 1"
after="$(cd "$portal_root" && find demo -type f -exec sha256sum {} + | sort)"
[ "$before" = "$after" ] || die "the installed portal changed"
echo "exit status 1; the installed portal is unchanged"

step "The host's log"
sed -e 's/^/  /' "$run/host.log"

step "Stopping the host (SIGTERM)"
kill -TERM "$host_pid"
set +e
wait "$host_pid"
status=$?
set -e
host_pid=""
[ "$status" -eq 0 ] || die "helion-host exited with $status"
for line in moduleWillUnloadFinished moduleDidUnloadFinished; do
    grep -q "$line" "$run/host.log" || die "no '$line' in the host log"
done
tail -n 4 "$run/host.log" | sed -e 's/^/  /'
echo "helion-host exited with status 0"

printf '\ndemo: OK\n'
