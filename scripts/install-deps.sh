#!/usr/bin/env bash
# Installs the Debian 12 packages the build, the tests and the demo need, or
# the packages named as arguments (bench/install-deps.sh names its own).
# Idempotent: when everything is present it does nothing and prints nothing.
set -euo pipefail

packages=("$@")
[[ $# -ne 0 ]] || packages=(
    build-essential cmake ninja-build pkg-config
    libboost-program-options-dev libboost-filesystem-dev libboost-regex-dev libboost-dev
    libboost-date-time-dev
    libssl-dev openssl libengine-gost-openssl
    libtinyxml-dev libexpat1-dev zlib1g-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    g++-mingw-w64-i686 gcc-mingw-w64-x86-64 clang libclang-rt-14-dev
    osslsigncode rhash clang-format ccache
)

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    if [[ "$status" != "installed" ]]; then
        missing+=("$package")
    fi
done

if [[ ${#missing[@]} -eq 0 ]]; then
    exit 0
fi

sudo=()
if [[ $(id -u) -ne 0 ]]; then
    if ! command -v sudo >/dev/null; then
        echo "install-deps: missing packages (${missing[*]}) and no sudo to install them" >&2
        exit 1
    fi
    sudo=(sudo)
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
