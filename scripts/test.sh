#!/usr/bin/env bash
# Installs what is missing, builds the release configuration and runs the whole test suite.
# With --asan the same suite runs under AddressSanitizer + UndefinedBehaviorSanitizer and any
# sanitizer report fails the run, even one from a child process whose exit a test tolerated.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=release
if [ "${1:-}" = "--asan" ]; then
    preset=asan
fi

scripts/install-deps.sh

if [ "$preset" = asan ]; then
    logs="$PWD/build/asan/sanitizer-logs"
    rm -rf "$logs" && mkdir -p "$logs"
    # The asan test preset points the sanitizers' log_path here.
fi

cmake --preset "$preset"
cmake --build --preset "$preset"
ctest --preset "$preset"

if [ "$preset" = asan ] && [ -n "$(ls -A "$logs")" ]; then
    echo "Sanitizer reports:" >&2
    cat "$logs"/* >&2
    exit 1
fi
