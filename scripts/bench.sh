#!/usr/bin/env bash
# Builds the Release configuration in build/bench (or $HELION_BENCH_BUILD_DIR) and runs the micro
# benchmarks and the end-to-end benchmark. Arguments after "--" go to bench/e2e_bench.py.
#   scripts/bench.sh                 everything
#   scripts/bench.sh --micro-only    micro benchmarks only
#   scripts/bench.sh --e2e-only -- --rounds 3
set -euo pipefail
cd "$(dirname "$0")/.."
# The comment block above, without its marks, is the help text.
usage() { sed -n '2,/^[^#]/{/^#/s/^# \{0,1\}//p}' "scripts/${0##*/}"; }

build="${HELION_BENCH_BUILD_DIR:-$PWD/build/bench}"
jobs="${HELION_BENCH_JOBS:-2}"
micro=1
e2e=1
while [ $# -gt 0 ]; do
    case "$1" in
        --micro-only) e2e=0 ;;
        --e2e-only) micro=0 ;;
        --) shift; break ;;
        -h | --help) usage; exit 0 ;;
        *) echo "bench.sh: unknown argument '$1'" >&2; usage >&2; exit 2 ;;
    esac
    shift
done

if [ "$e2e" = 1 ]; then
    # The tools the update is compared with: an administrator's unzip, bsdtar and 7z.
    missing=()
    for pair in openssl:openssl unzip:unzip bsdtar:libarchive-tools 7z:p7zip-full; do
        command -v "${pair%%:*}" >/dev/null || missing+=("${pair#*:}")
    done
    if [ ${#missing[@]} -gt 0 ]; then
        apt-get -o DPkg::Lock::Timeout=600 install -y "${missing[@]}"
    fi
fi

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DHELION_BUILD_BENCH=ON -DHELION_BUILD_TOOLS=ON
cmake --build "$build" -j "$jobs" --target helion_bench_all

echo "nproc $(nproc), $(date -I)"
if [ "$micro" = 1 ]; then
    "$build/bench/helion_micro_bench" --benchmark_min_time=0.2
fi
if [ "$e2e" = 1 ]; then
    # Debian's interpreter: the one on PATH may be another.
    /usr/bin/python3 bench/e2e_bench.py --build-dir "$build" "$@"
fi
