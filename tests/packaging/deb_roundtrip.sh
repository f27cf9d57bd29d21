#!/usr/bin/env bash
# Builds the Debian packages over a bundle in WORK, unpacks them into a scratch root, installs a
# signed portal through the unpacked host and client, then builds a host project against the
# unpacked development package. Usage: deb_roundtrip.sh SOURCE_DIR WORK
set -euo pipefail
src=$1 work=$2
rm -rf "$work" && mkdir -p "$work"
fail() { echo "FAIL: $*" >&2; exit 1; }
package() { HELION_PACKAGE_DIR="$1" "$src/scripts/package.sh" "${@:2}" >"$1.log" 2>&1; }

# The development key is refused by content, wherever the file lives.
cp "$src/keys/dev-portal-public.pem" "$work/copied-key.pem"
if package "$work/refused" -DHELION_PORTAL_PUBLIC_KEY="$work/copied-key.pem"; then
    fail "a package with the development key was built without HELION_ALLOW_DEV_KEY"
fi
grep -q "HELION_ALLOW_DEV_KEY=ON" "$work/refused.log" || fail "refusal does not say why"

resources="$work/bundle/Resources"
package "$work/deb" -DHELION_ALLOW_DEV_KEY=ON -DHELION_RESOURCES_DIR="$resources" ||
    { tail -40 "$work/deb.log"; fail "package build"; }
# Nothing from the build tree may stand in for what the packages carry.
rm -rf "$work/deb/build"
if command -v lintian >/dev/null; then
    lintian --fail-on error "$work"/deb/*.deb || fail "lintian errors"
fi

root="$work/root"
for deb in "$work"/deb/*.deb; do dpkg-deb -x "$deb" "$root"; done
bin="$root/usr/bin"
moduledir=$(dirname "$(find "$root/usr/lib" -name libHelionPromote.so)")
key="$src/keys/dev-portal-public.pem"
openssl pkey -pubin -in "$key" -outform DER | sha256sum | cut -d' ' -f1 |
    cmp - "$moduledir/HelionPromote.fingerprint" || fail "fingerprint"
env -u LD_LIBRARY_PATH "$bin/helion-portal" fingerprint --pub "$key" |
    cmp - "$moduledir/HelionPromote.fingerprint" || fail "helion-portal fingerprint"
for page in helion-host helion-promote helion-portal; do
    gzip -dc "$root/usr/share/man/man1/$page.1.gz" | grep -q "^\.TH" || fail "man page $page"
done
for unit in helion-host.service helion-host.socket; do
    [ -s "$root/usr/lib/systemd/system/$unit" ] || fail "unit $unit"
done
for doc in helion-promote helion-promote-dev; do
    [ -s "$root/usr/share/doc/$doc/copyright" ] && gzip -t "$root/usr/share/doc/$doc/changelog.Debian.gz" ||
        fail "documentation of $doc"
done

# The unpacked host finds the unpacked module by itself.
mkdir -m 700 "$work/run"
endpoint="unix:$work/run/promote.sock"
env -u LD_LIBRARY_PATH "$bin/helion-host" --listen "$endpoint" --log-level info >"$work/host.log" 2>&1 &
host=$!
trap 'kill $host 2>/dev/null || true' EXIT
for _ in $(seq 100); do
    env -u LD_LIBRARY_PATH "$bin/helion-promote" --connect "$endpoint" ping >/dev/null 2>&1 && break
    sleep 0.1
done
mkdir -p "$work/portal/css"
echo "<html>deployed</html>" >"$work/portal/index.html"
echo "body{}" >"$work/portal/css/site.css"
env -u LD_LIBRARY_PATH "$bin/helion-portal" pack "$work/portal" -o "$work/portal.zip"
env -u LD_LIBRARY_PATH "$bin/helion-portal" sign --key "$src/keys/dev-portal-private.pem" \
    "$work/portal.zip" -o "$work/portal.zip.sig"
env -u LD_LIBRARY_PATH "$bin/helion-promote" --connect "$endpoint" update-portal \
    --zip "$work/portal.zip" --sig "$work/portal.zip.sig" --dir web || { cat "$work/host.log"; fail "update"; }
diff -r "$work/portal" "$resources/app/web" || fail "installed portal differs"
grep -q "$moduledir/libHelionPromote.so" "$work/host.log" || fail "host did not load the packaged module"

cmake -DPREFIX="$root/usr" -DWORK_DIR="$work/consumer" -DSOURCE_DIR="$src/tests/consumer" \
    -DGENERATOR="Unix Makefiles" -DCXX="${CXX:-c++}" -DCONFIG=Release \
    -P "$src/tests/consumer/RunConsumer.cmake"
echo "packages built, unpacked and used"
