#!/usr/bin/env bash
# Installs the Debian 12 packages the build, the tests and the tools need; only what is missing.
set -euo pipefail

packages=(
    build-essential cmake pkg-config git
    thrift-compiler libthrift-dev python3-thrift python3-six
    librttr-dev rapidjson-dev libspdlog-dev libfmt-dev libcli11-dev
    libboost-dev libboost-filesystem-dev libboost-system-dev
    libminizip-dev zlib1g-dev libssl-dev openssl
    libgtest-dev libgmock-dev libbenchmark-dev
    clang libclang-rt-14-dev
    valgrind curl unzip procps util-linux
    help2man dpkg-dev file lintian
    libsystemd-dev systemd
    libfuse3-dev fuse3 debootstrap systemd-container
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "Installing: ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
    sudo_cmd=(sudo)
fi
"${sudo_cmd[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
