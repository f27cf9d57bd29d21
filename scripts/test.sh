#!/usr/bin/env bash
# Installs what is missing, builds the release configuration and runs the whole test suite.
# With --asan the same suite runs under AddressSanitizer + UndefinedBehaviorSanitizer and any
# sanitizer report fails the run, even one from a child process whose exit a test tolerated.
#
#   scripts/test.sh [--asan]
set -euo pipefail
cd "$(dirname "$0")/.."
# The comment block above, without its marks, is the help text.
usage() { sed -n '2,/^[^#]/{/^#/s/^# \{0,1\}//p}' "scripts/${0##*/}"; }

preset=release
for arg in "$@"; do
    case "$arg" in
        --asan) preset=asan ;;
        -h | --help) usage; exit 0 ;;
        *) echo "test.sh: unknown argument '$arg'" >&2; usage >&2; exit 2 ;;
    esac
done

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
