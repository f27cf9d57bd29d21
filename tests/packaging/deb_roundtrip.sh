#!/usr/bin/env bash
# Builds the Debian packages into WORK/deb, lints and unpacks them into a scratch root, checks
# what they carry, then builds a host project against the unpacked development package (deploy.sh
# installs and runs them). Usage: deb_roundtrip.sh SOURCE_DIR WORK
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

package "$work/deb" -DHELION_ALLOW_DEV_KEY=ON ||
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
for doc in helion-promote helion-promote-dev; do
    [ -s "$root/usr/share/doc/$doc/copyright" ] && gzip -t "$root/usr/share/doc/$doc/changelog.Debian.gz" ||
        fail "documentation of $doc"
done

cmake -DPREFIX="$root/usr" -DWORK_DIR="$work/consumer" -DSOURCE_DIR="$src/tests/consumer" \
    -DGENERATOR="Unix Makefiles" -DCXX="${CXX:-c++}" -DCONFIG=Release \
    -P "$src/tests/consumer/RunConsumer.cmake"
echo "packages built, unpacked and used"
