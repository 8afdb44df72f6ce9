#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, when they are missing.
#   scripts/install-deps.sh [PACKAGE...]    also these (for the benchmarks, the fuzzers)
set -euo pipefail
packages=(cmake g++ make pkg-config libcjson-dev libgtest-dev libgmock-dev iproute2 util-linux
          stm32flash "$@")
missing=()
for p in "${packages[@]}"; do
    dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "installing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
