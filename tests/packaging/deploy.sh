#!/usr/bin/env bash
# The packages as an operator deploys them: a Debian 12 root booted by systemd-nspawn, the package
# installed with apt, the socket enabled, portals installed and refused, reload and restart, a
# wedged host restarted by the watchdog, an upgrade, the confinement score, removal and purge.
# Usage: deploy.sh SOURCE_DIR WORK DEB_DIR HANGING_FS
# The debootstrap root is cached under $HELION_DEPLOY_CACHE (default /var/cache/helion-deploy-test),
# keyed by what goes into it; each run works on an overlay of it.
set -euo pipefail
src=$1 work=$2 debs=$3 hanging_fs=$4
cache=${HELION_DEPLOY_CACHE:-/var/cache/helion-deploy-test}
skip() { echo "SKIP: cannot boot a container: $*" >&2; exit 77; }
failures=0
check() {  # check DESCRIPTION COMMAND...: records a failure and goes on, so one run shows them all
    if ! "${@:2}"; then
        echo "FAIL: $1" >&2
        failures=$((failures + 1))
    fi
}
die() { echo "FAIL: $*" >&2; exit 1; }

[ "$(id -u)" -eq 0 ] || skip "not root"
for tool in debootstrap systemd-nspawn nsenter; do
    command -v "$tool" >/dev/null || skip "$tool is missing (scripts/install-deps.sh installs it)"
done
[ -c /dev/fuse ] || skip "no /dev/fuse for the hanging file system"

# Debian's sources as this machine has them, nothing else: other repositories need their keys.
sources=$(grep -lE 'debian\.org|debian-archive-keyring' /etc/apt/sources.list /etc/apt/sources.list.d/* 2>/dev/null || true)
[ -n "$sources" ] || skip "this machine has no Debian apt sources"
mirror=$(cat $sources | grep -oE 'https?://[^ ]*debian\.org/debian/?( |$)' | head -n1 | tr -d ' ')
include=systemd,systemd-sysv,dbus,procps,libfuse3-3,util-linux
cache_key=$(cat $sources <(echo "bookworm $include $mirror") | sha256sum | cut -c1-16)
base="$cache/root-$cache_key"
if [ ! -e "$base/.complete" ]; then
    echo "building the cached root $base (a few minutes, once)"
    mkdir -p "$cache" && rm -rf "$cache"/root-*
    timeout 1200 debootstrap --variant=minbase --include="$include" bookworm "$base" "${mirror:-http://deb.debian.org/debian}" \
        >"$work.debootstrap.log" 2>&1 || { tail -20 "$work.debootstrap.log"; rm -rf "$base"; skip "debootstrap failed"; }
    rm -f "$base"/etc/apt/sources.list && cp $sources "$base/etc/apt/sources.list.d/"
    timeout 600 chroot "$base" apt-get update -qq || { rm -rf "$base"; skip "apt cannot reach Debian's mirrors"; }
    touch "$base/.complete"
fi

# Everything below is undone on any exit: container stopped, overlay unmounted.
rm -rf "$work" && mkdir -p "$work"/{upper,overlay-work,root}
nspawn=""
init=""
cleanup() {
    if [ -n "$nspawn" ] && kill -0 "$nspawn" 2>/dev/null; then
        kill -TERM "$nspawn"  # an orderly shutdown of the container
        for _ in $(seq 60); do kill -0 "$nspawn" 2>/dev/null || break; sleep 0.5; done
        [ -n "$init" ] && kill -KILL "$init" 2>/dev/null  # its PID namespace dies with it
        for _ in $(seq 20); do kill -0 "$nspawn" 2>/dev/null || break; sleep 0.5; done
    fi
    umount "$work/root" 2>/dev/null || umount -l "$work/root" 2>/dev/null || true
}
trap cleanup EXIT
mount -t overlay overlay -o "lowerdir=$base,upperdir=$work/upper,workdir=$work/overlay-work" "$work/root" ||
    skip "cannot mount an overlay"
mkdir -p "$work/root/debs" && cp "$debs"/helion-promote_*.deb "$work/root/debs/"
install -m 0755 "$hanging_fs" "$work/root/usr/local/bin/hanging_fs"
cp "$src/keys/dev-portal-private.pem" "$work/root/root/"

systemd-nspawn --boot --register=no --keep-unit --quiet -D "$work/root" -M "helion-deploy-$$" \
    --bind=/dev/fuse >"$work/console.log" 2>&1 </dev/null &
nspawn=$!
for _ in $(seq 100); do
    init=$(pgrep -P "$nspawn" -x systemd || true)
    [ -n "$init" ] && break
    kill -0 "$nspawn" 2>/dev/null || { tail -20 "$work/console.log"; skip "systemd-nspawn --boot failed"; }
    sleep 0.2
done
[ -n "$init" ] || skip "no init process in the container"
# ct COMMAND...: runs in the container, bounded.
ct() { timeout 120 nsenter -t "$init" -a env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 "$@"; }
state=$(ct systemctl is-system-running --wait || true)
[ "$state" = running ] || [ "$state" = degraded ] || skip "the container did not boot ($state)"

unit=helion-host.service
main_pid() { ct systemctl show -p MainPID --value "$unit"; }
ping() { ct helion-promote --connect unix:/run/helion/promote.sock --timeout 60 ping >/dev/null; }
journal_has() { ct journalctl -q -u "$unit" "${@:2}" | grep -q -- "$1"; }

# Install: apt brings the libraries; the socket is enabled and listening, the host not yet running.
ct mkdir -p /Library/corvid/SDP/Helion.app/Contents/Resources
ct sh -c 'DEBIAN_FRONTEND=noninteractive apt-get install -y -q /debs/helion-promote_*.deb' >"$work/apt.log" 2>&1 ||
    { tail -30 "$work/apt.log"; die "apt-get install"; }
check "installation enables the socket" ct systemctl is-enabled -q helion-host.socket
check "installation starts the socket" ct systemctl is-active -q helion-host.socket
check "nothing runs before the first call" test "$(main_pid)" = 0
ct systemctl enable --now helion-host.socket 2>/dev/null

# The first call starts the host, which says where it serves.
check "first call answered" ping
check "Type=notify" test "$(ct systemctl show -p Type --value $unit)" = notify
check "status line" test "$(ct systemctl show -p StatusText --value $unit)" = \
    "Serving RPC on unix:/run/helion/promote.sock"

# A signed portal, written from sources of odd modes, readable by a user other than root.
app=/Library/corvid/SDP/Helion.app/Contents/Resources/app
ct sh -euc 'umask 077; mkdir -p /root/p/css; echo "<html>deployed</html>" >/root/p/index.html
    echo "body{}" >/root/p/css/site.css; chmod 0666 /root/p/css/site.css; cd /root
    helion-portal pack p -o p.zip && helion-portal sign --key dev-portal-private.pem p.zip -o p.zip.sig' >/dev/null
check "signed portal installed" ct helion-promote update-portal --zip /root/p.zip --sig /root/p.zip.sig --dir web >/dev/null
check "a user reads every installed file" ct sh -c "find $app/web -type f | grep -q . &&
    find $app/web -type f -exec setpriv --reuid=nobody --regid=nogroup --clear-groups cat {} + >/dev/null"
check "installed modes are 0644 and 0755" test -z "$(ct find "$app" \( -type f ! -perm 0644 \) -o \( -type d ! -perm 0755 \))"

# A tampered package is refused, the portal kept, the refusal a warning in the journal.
ct sh -c 'cp /root/p.zip /root/bad.zip && printf x | dd of=/root/bad.zip bs=1 seek=40 conv=notrunc 2>/dev/null'
check "tampered package refused" test "$(ct helion-promote update-portal --zip /root/bad.zip --sig /root/p.zip.sig --dir web >/dev/null; echo $?)" = 1
check "portal kept" ct grep -q deployed "$app/web/index.html"
check "refusal at warning priority" journal_has "verify signature error" -p warning
check "no timestamp of its own in the journal" sh -c "! ct journalctl -q -u $unit -o cat | grep -qE '^[0-9]{4}-[0-9]{2}-[0-9]{2} '"

# Reload keeps the process; a client calling during a restart is answered by the new one.
before=$(main_pid)
check "reload" ct systemctl reload "$unit"
check "reload keeps the host" test "$(main_pid)" = "$before"
ct systemctl restart --no-block "$unit"
check "a call during the restart is answered" ping
check "restart made a new host" test "$(main_pid)" != "$before"

# Every worker stuck in a file system that never answers: the watchdog restarts the host. A
# shorter interval than the unit's keeps the wait short.
ct mkdir -p /etc/systemd/system/$unit.d /srv/hang
ct sh -c "printf '[Service]\nWatchdogSec=6s\n' >/etc/systemd/system/$unit.d/watchdog.conf"
ct systemctl daemon-reload && ct systemctl restart "$unit"
ct sh -c 'setsid hanging_fs /srv/hang >/dev/null 2>&1 </dev/null &'
for _ in $(seq 50); do ct test -f /srv/hang/p.zip && break; sleep 0.1; done
wedged=$(main_pid)
ct sh -c 'for i in $(seq 16); do setsid timeout 120 helion-promote update-portal --zip /srv/hang/p.zip \
    --sig /root/p.zip.sig --dir wedge >/dev/null 2>&1 </dev/null & done'
restarted=no
for _ in $(seq 40); do  # 6 s of watchdog plus a margin, in seconds
    sleep 1
    if journal_has "Watchdog timeout" --since "-60s"; then restarted=yes; break; fi
done
check "the watchdog caught the wedged host" test $restarted = yes
ct pkill -x hanging_fs || true  # lets the stuck threads go, so the old process can end
check "the host serves again" ping
check "a new host serves" test "$(main_pid)" != "$wedged"
ct rm -r /etc/systemd/system/$unit.d && ct systemctl daemon-reload

# An upgrade (the same package, one version higher, its module changed) restarts the running
# host, which then runs the new module.
version=$(dpkg-deb -f "$work"/root/debs/helion-promote_*.deb Version)
dpkg-deb -R "$work"/root/debs/helion-promote_*.deb "$work/upgrade"
module=$(cd "$work/upgrade" && find usr -name libHelionPromote.so)
printf 'upgrade' >>"$work/upgrade/$module"
sed -i "s/^Version: .*/Version: $version+1/" "$work/upgrade/DEBIAN/control"
dpkg-deb --root-owner-group -b "$work/upgrade" "$work/root/debs/upgrade.deb" >/dev/null
ping && before=$(main_pid)
ct sh -c 'DEBIAN_FRONTEND=noninteractive apt-get install -y -q /debs/upgrade.deb' >>"$work/apt.log" 2>&1 || die "upgrade"
after=$(main_pid)
check "upgrade restarts the host" test "$after" != "$before" -a "$after" != 0
loaded=$(ct awk '/libHelionPromote/ {print $1; exit}' /proc/"$after"/maps)
check "the new module is loaded" test "$(ct sha256sum </proc/"$(pgrep -x -P "$init" -n helion-host || echo 0)"/map_files/"$loaded" 2>/dev/null | cut -c1-64)" = \
    "$(sha256sum <"$work/upgrade/$module" | cut -c1-64)"

score=$(ct systemd-analyze security "$unit" 2>/dev/null | sed -n 's/.*Overall exposure level for .*: \([0-9.]*\).*/\1/p')
echo "exposure: $score"
check "exposure at most 3.0" awk -v s="$score" 'BEGIN { exit !(s != "" && s <= 3.0) }'

# Removal stops everything; purge leaves no unit, enablement, socket or runtime directory.
ct apt-get remove -y -q helion-promote >>"$work/apt.log" 2>&1
check "removal stops the host" test -z "$(ct pgrep -x helion-host)"
check "removal stops the socket" sh -c "! ct systemctl is-active -q helion-host.socket"
ct apt-get purge -y -q helion-promote >>"$work/apt.log" 2>&1
check "purge leaves nothing" test -z "$(ct find /etc/systemd /usr/lib/systemd /run/helion -name 'helion-host*' 2>/dev/null; ct ls -d /run/helion 2>/dev/null)"

[ "$failures" -eq 0 ] || die "$failures check(s) failed; container console in $work/console.log"
echo "deployed, used, upgraded and purged in a booted Debian 12"
