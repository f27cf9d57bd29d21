#!/usr/bin/env bash
# Time and peak memory of helion-portal sign and verify on one large file, beside
# `openssl dgst -sha256 -sign` and `-verify` on the same file. The file is made in a scratch
# directory and removed afterwards.
#
#   bench/sign_bench.sh [BUILD_DIR] [MIB]     defaults: build/release, 1024
set -euo pipefail
cd "$(dirname "$0")/.."
case "${1:-}" in
    -h | --help) sed -n '2,/^[^#]/{/^#/s/^# \{0,1\}//p}' "$0"; exit 0 ;;
esac
build=${1:-build/release}
mib=${2:-1024}
portal=$build/tools/helion-portal
[ -x "$portal" ] || { echo "sign_bench: no $portal; build the helion-portal target" >&2; exit 1; }
private=keys/dev-portal-private.pem
public=keys/dev-portal-public.pem

work=$(mktemp -d "${TMPDIR:-/tmp}/helion-sign-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT
head -c "$((mib * 1024 * 1024))" /dev/urandom >"$work/package.zip"
cat "$work/package.zip" >/dev/null # the first run should not pay for the page cache alone

# Prints "<wall seconds> <peak RSS KiB>" of one command.
measure() { /usr/bin/time -f '%e %M' "$@" 2>&1 >/dev/null | tail -n 1; }

printf '%-8s %-26s %10s %14s\n' step program seconds "peak RSS MiB"
for round in 1 2 3; do
    for step in sign verify; do
        if [ "$step" = sign ]; then
            ours=("$portal" sign --key "$private" "$work/package.zip" -o "$work/ours.sig")
            theirs=(openssl dgst -sha256 -sign "$private" -out "$work/openssl.sig" "$work/package.zip")
        else
            ours=("$portal" verify --pub "$public" "$work/package.zip" "$work/ours.sig")
            theirs=(openssl dgst -sha256 -verify "$public" -signature "$work/openssl.sig"
                "$work/package.zip")
        fi
        for who in helion-portal openssl; do
            if [ "$who" = openssl ]; then set -- "${theirs[@]}"; else set -- "${ours[@]}"; fi
            read -r seconds kib < <(measure "$@")
            printf '%-8s %-26s %10s %14s\n' "$step" "$who (round $round)" "$seconds" \
                "$((kib / 1024))"
        done
    done
done
cmp "$work/ours.sig" "$work/openssl.sig" && echo "the two signatures are the same bytes"
