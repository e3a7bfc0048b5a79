#!/usr/bin/env bash
# Installs the usual tools that bench/compare.sh measures the checker against
# (hashdeep is needed by nothing else, so it stays out of scripts/install-deps.sh
# and the test lane). Idempotent: prints nothing when all are there.
set -euo pipefail

packages=(coreutils rhash hashdeep openssl libengine-gost-openssl time)

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
        echo "bench/install-deps: missing packages (${missing[*]}) and no sudo to install them" >&2
        exit 1
    fi
    sudo=(sudo)
fi
echo "bench/install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
