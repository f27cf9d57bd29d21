#!/usr/bin/env bash
# Builds the Debian packages helion-promote and helion-promote-dev into build/package/ (or
# $HELION_PACKAGE_DIR). Every argument goes to CMake's configure step, for example
#   scripts/package.sh -DHELION_PORTAL_PUBLIC_KEY=/secure/portal-public.pem
# The development key is refused unless -DHELION_ALLOW_DEV_KEY=ON is given as well.
set -euo pipefail
cd "$(dirname "$0")/.."
source_dir="$PWD"
out="${HELION_PACKAGE_DIR:-$source_dir/build/package}"
build="$out/build"

scripts/install-deps.sh  # help2man, dpkg-dev, file and lintian among the rest

launcher=()
if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

# Debian's hardening flags (stack protector, fortify, full RELRO with immediate binding); CMake
# takes them from the environment into a fresh cache. The packaged files are stripped and no
# debug-symbol package is made, so no debug information is compiled.
export DEB_BUILD_MAINT_OPTIONS=hardening=+all DEB_CXXFLAGS_MAINT_STRIP=-g
CXXFLAGS="$(dpkg-buildflags --get CPPFLAGS) $(dpkg-buildflags --get CXXFLAGS)"
LDFLAGS="$(dpkg-buildflags --get LDFLAGS)"
export CXXFLAGS LDFLAGS

# A fresh cache each time: a key or an allowance given to an earlier run must not linger.
rm -f "$build/CMakeCache.txt" "$out"/*.deb
cmake -S "$source_dir" -B "$build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DHELION_PACKAGING=ON -DHELION_BUILD_TESTS=OFF -DHELION_BUILD_BENCH=OFF \
    -DHELION_WARNINGS_AS_ERRORS=ON "${launcher[@]}" "$@"
cmake --build "$build" -j "$(nproc)"
(cd "$build" && cpack -B "$out")
rm -rf "$out/_CPack_Packages"
ls "$out"/*.deb
