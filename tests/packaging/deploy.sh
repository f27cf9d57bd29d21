#!/usr/bin/env bash
# The Debian packages built (never with the development key unless allowed), linted, used by a
# host project, then deployed as an operator does in a Debian 12 root booted by systemd-nspawn
# (cached in $HELION_DEPLOY_CACHE, keyed by its contents; each run uses an overlay of it).
# Usage: deploy.sh SOURCE_DIR WORK HANGING_FS
set -euo pipefail
src=$1 work=$2 hanging_fs=$3
cache=${HELION_DEPLOY_CACHE:-/var/cache/helion-deploy-test}
skip() { echo "SKIP: cannot boot a container: $*" >&2; exit 77; }
die() { echo "FAIL: $*" >&2; exit 1; }
failures=0
check() {  # check WHAT COMMAND...: counts a failure and goes on, so that one run shows them all
    "${@:2}" || { echo "FAIL: $1" >&2; failures=$((failures + 1)); }
}
package() { HELION_PACKAGE_DIR="$1" "$src/scripts/package.sh" "${@:2}" >"$1.log" 2>&1; }

rm -rf "$work" && mkdir -p "$work"/{upper,scratch,root,dev}
cp "$src/keys/dev-portal-public.pem" "$work/copied-key.pem"
! package "$work/refused" -DHELION_PORTAL_PUBLIC_KEY="$work/copied-key.pem" &&
    grep -q "HELION_ALLOW_DEV_KEY=ON" "$work/refused.log" || die "the development key, copied, is not refused saying why"
package "$work/deb" -DHELION_ALLOW_DEV_KEY=ON || die "package build: $(tail -n 40 "$work/deb.log")"
rm -rf "$work/deb/build"  # nothing from the build tree may stand in for what the packages carry
lintian --fail-on error "$work"/deb/*.deb || die "lintian errors"
for deb in "$work"/deb/*.deb; do dpkg-deb -x "$deb" "$work/dev"; done
openssl pkey -pubin -in "$src/keys/dev-portal-public.pem" -outform DER | sha256sum | cut -d' ' -f1 |
    cmp - "$(find "$work/dev" -name HelionPromote.fingerprint)" || die "fingerprint"
cmake -DPREFIX="$work/dev/usr" -DWORK_DIR="$work/consumer" -DSOURCE_DIR="$src/tests/consumer" \
    -DGENERATOR="Unix Makefiles" -DCXX="${CXX:-c++}" -DCONFIG=Release -P "$src/tests/consumer/RunConsumer.cmake"

[ "$(id -u)" -eq 0 ] && [ -c /dev/fuse ] || skip "needs root and /dev/fuse"
command -v debootstrap >/dev/null && command -v systemd-nspawn >/dev/null || skip "no debootstrap or systemd-nspawn"
# Debian's sources as this machine has them; other repositories would need their keys.
sources=$(grep -lsE 'debian\.org' /etc/apt/sources.list /etc/apt/sources.list.d/*) || [ -n "$sources" ] ||
    skip "no Debian apt sources"
mirror=$(cat $sources | grep -oE 'https?://[^ ]*debian\.org/debian/?( |$)' | head -n1 | tr -d ' ')
include=systemd,systemd-sysv,dbus,procps,libfuse3-3,util-linux
base="$cache/root-$(cat $sources <(echo "bookworm $include $mirror") | sha256sum | cut -c1-16)"
if [ ! -e "$base/.complete" ]; then
    echo "building the cached root $base (once)"
    mkdir -p "$cache" && rm -rf "$cache"/root-*
    { timeout 1200 debootstrap --variant=minbase --include="$include" bookworm "$base" "$mirror" &&
        rm -f "$base/etc/apt/sources.list" && cp $sources "$base/etc/apt/sources.list.d/" &&
        timeout 600 chroot "$base" apt-get update -qq; } >"$cache/build.log" 2>&1 ||
        { tail -n 20 "$cache/build.log"; rm -rf "$base"; skip "no Debian 12 root (see $cache/build.log)"; }
    touch "$base/.complete"
fi

nspawn="" init=""
cleanup() {  # on any exit: the container stopped (orderly, else killed), the overlay unmounted
    [ -z "$nspawn" ] || { kill -TERM "$nspawn" && timeout 30 tail --pid="$nspawn" -f /dev/null; } 2>/dev/null ||
        { kill -KILL "$init" && timeout 10 tail --pid="$nspawn" -f /dev/null; } 2>/dev/null
    umount "$work/root" 2>/dev/null || umount -l "$work/root" 2>/dev/null || true
}
trap cleanup EXIT
mount -t overlay overlay -o "lowerdir=$base,upperdir=$work/upper,workdir=$work/scratch" "$work/root" || skip "no overlay mount"
mkdir "$work/root/debs" && cp "$work"/deb/helion-promote_*.deb "$work/root/debs/"
install -m 0755 "$hanging_fs" "$work/root/usr/local/bin/hanging_fs"
cp "$src/keys"/dev-portal-* "$work/root/root/"
systemd-nspawn --boot --register=no --keep-unit -q -D "$work/root" -M "helion-deploy-$$" --bind=/dev/fuse \
    >"$work/console.log" 2>&1 </dev/null &
nspawn=$!
ct() { timeout 120 nsenter -t "$init" -a env -i PATH=/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root "$@"; }
for _ in $(seq 150); do  # until its manager answers at all, then until it has booted
    init=$(pgrep -P "$nspawn" -x systemd) && state=$(ct systemctl is-system-running --wait 2>/dev/null || true)
    [ -n "${state:-}" ] && break
    kill -0 "$nspawn" 2>/dev/null || skip "systemd-nspawn --boot failed: $(tail -n 5 "$work/console.log")"
    sleep 0.2
done
[ "${state:-}" = running ] || [ "${state:-}" = degraded ] || skip "the container did not boot (${state:-})"

unit=helion-host.service app=/Library/corvid/SDP/Helion.app/Contents/Resources/app
main_pid() { ct systemctl show -p MainPID --value $unit; }
ping() { ct helion-promote --timeout 60 ping >/dev/null; }
in_journal() { ct journalctl -q -u $unit "${@:2}" | grep -q -- "$1"; }
install_deb() { ct sh -c "DEBIAN_FRONTEND=noninteractive apt-get $*" >>"$work/apt.log" 2>&1; }

ct mkdir -p "${app%/app}"  # the bundle is the client application's
install_deb install -y -q /debs/helion-promote_*.deb || die "apt-get install: $(tail -n 20 "$work/apt.log")"
check "installation enables and starts the socket" ct sh -c 'systemctl is-enabled -q helion-host.socket &&
    systemctl is-active -q helion-host.socket'
check "nothing runs before the first call" test "$(main_pid)" = 0
check "the key's fingerprint beside the module" ct sh -c 'helion-portal fingerprint --pub /root/dev-portal-public.pem |
    cmp - /usr/lib/*/helion-promote/HelionPromote.fingerprint'
check "man pages" ct sh -c 'for p in helion-host helion-promote helion-portal; do
    gzip -dc /usr/share/man/man1/$p.1.gz | grep -q "^\.TH" || exit 1; done'
check "first call answered" ping
check "Type=notify" test "$(ct systemctl show -p Type --value $unit)" = notify
check "status line" test "$(ct systemctl show -p StatusText --value $unit)" = "Serving RPC on unix:/run/helion/promote.sock"

# A portal packed from private and world-writable files, read by a user other than root.
ct sh -euc 'cd /root; umask 077; mkdir -p p/css; echo "<html>deployed</html>" >p/index.html
    echo "body{}" >p/css/site.css; chmod 0666 p/css/site.css; helion-portal pack p -o p.zip >/dev/null
    helion-portal sign --key dev-portal-private.pem p.zip -o p.zip.sig >/dev/null
    cp p.zip bad.zip; printf x | dd of=bad.zip bs=1 seek=40 conv=notrunc 2>/dev/null'
check "signed portal installed" ct helion-promote update-portal --zip /root/p.zip --sig /root/p.zip.sig --dir web >/dev/null
check "a user reads every installed file" ct sh -c "find $app/web -type f | grep -q . &&
    find $app/web -type f -exec setpriv --reuid=nobody --regid=nogroup --clear-groups cat {} + >/dev/null"
check "installed modes are 0644 and 0755" test -z "$(ct find $app \( -type f ! -perm 0644 \) -o \( -type d ! -perm 0755 \))"
check "tampered package refused, portal kept" test "$(ct helion-promote update-portal --zip /root/bad.zip --sig /root/p.zip.sig --dir web >/dev/null; echo $?; ct cat $app/web/index.html)" = \
    "$(printf '1\n<html>deployed</html>')"
check "refusal at warning priority" in_journal "verify signature error" -p warning
check "no timestamp of the host's own" test -z "$(ct journalctl -q -u $unit -o cat | grep -E '^[0-9]{4}-[0-9]{2}-[0-9]{2} ')"

before=$(main_pid)
check "reload keeps the host" test "$(ct systemctl reload $unit && main_pid)" = "$before"
ct systemctl restart --no-block $unit
check "a call during the restart is answered" ping
check "restart made a new host" test "$(main_pid)" != "$before"

# Every worker (and the queue) stuck in a file system that never answers. A shorter watchdog
# interval than the unit's keeps the wait short.
ct sh -c "mkdir -p /srv/hang /etc/systemd/system/$unit.d && printf '[Service]\nWatchdogSec=6s\n' \
    >/etc/systemd/system/$unit.d/test.conf && systemctl daemon-reload && systemctl restart $unit"
ct sh -c 'setsid hanging_fs /srv/hang >/dev/null 2>&1 </dev/null &'
timeout 10 sh -c "until nsenter -t $init -m test -f /srv/hang/p.zip; do sleep 0.1; done"
wedged=$(main_pid) since=$(ct date +%s)
ct sh -c 'for i in $(seq 16); do setsid timeout 120 helion-promote update-portal --zip /srv/hang/p.zip \
    --sig /root/p.zip.sig --dir wedge >/dev/null 2>&1 </dev/null & done'
for _ in $(seq 36); do in_journal "Watchdog timeout" --since "@$since" && break; sleep 1; done  # 6 s and a margin
check "the watchdog caught the wedged host within 36 s" in_journal "Watchdog timeout" --since "@$since"
# The stuck threads may end now, and the old process with them.
ct sh -c "pkill -x hanging_fs; rm -r /etc/systemd/system/$unit.d && systemctl daemon-reload"
check "a new host serves" test "$(ping && main_pid || echo "$wedged")" != "$wedged"

# An upgrade: the same package one version higher, its module changed.
dpkg-deb -R "$work"/root/debs/helion-promote_*.deb "$work/upgrade"
module=$(cd "$work/upgrade" && find usr -name libHelionPromote.so)
printf 'upgrade' >>"$work/upgrade/$module"
sed -i 's/^Version: .*/&+1/' "$work/upgrade/DEBIAN/control"
dpkg-deb --root-owner-group -b "$work/upgrade" "$work/root/debs/upgrade.deb" >/dev/null
ping && before=$(main_pid)
install_deb install -y -q /debs/upgrade.deb || die "upgrade: $(tail -n 20 "$work/apt.log")"
after=$(main_pid)
check "upgrade restarts the host" test "$after" != "$before" -a "$after" != 0
check "the new module is loaded" test "$(ct sh -c "sha256sum </proc/$after/map_files/\$(awk '/libHelionPromote/ {print \$1; exit}' /proc/$after/maps)")" = \
    "$(sha256sum <"$work/upgrade/$module")"

score=$(ct systemd-analyze security $unit | sed -n 's/.*Overall exposure level for .*: \([0-9.]*\).*/\1/p')
check "exposure at most 3.0" awk -v s="$score" 'BEGIN { print "exposure: " s; exit !(s != "" && s <= 3.0) }'

install_deb remove -y -q helion-promote
check "removal stops the host and the socket" test -z "$(ct pgrep -x helion-host)" -a \
    "$(ct systemctl is-active helion-host.socket)" != active
install_deb purge -y -q helion-promote
check "purge leaves no unit, enablement, socket or runtime directory" \
    test -z "$(ct sh -c "ls -d /run/helion; find /etc/systemd /usr/lib/systemd -name 'helion-host*'" 2>/dev/null)"

[ "$failures" -eq 0 ] || die "$failures check(s) failed (container console: $work/console.log)"
echo "deployed, used, upgraded and purged in a booted Debian 12"
