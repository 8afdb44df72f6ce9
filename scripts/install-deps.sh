#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, when they are missing.
#   scripts/install-deps.sh [PACKAGE...]    also these (for the benchmarks, the fuzzers)
# tshark (the dissector's test) is wanted, not needed: when it cannot be installed the
# test is skipped and nothing fails here.
set -euo pipefail
packages=(cmake g++ make pkg-config libcjson-dev libgtest-dev libgmock-dev iproute2 util-linux
          stm32flash "$@")
optional=(tshark)
# (With a second architecture installed, a plain name can be ambiguous to dpkg.)
installed() {
    dpkg -s "$1" >/dev/null 2>&1 || dpkg -s "$1:$(dpkg --print-architecture)" >/dev/null 2>&1
}
missing=()
for p in "${packages[@]}"; do
    installed "$p" || missing+=("$p")
done
wanted=()
for p in "${optional[@]}"; do
    installed "$p" || wanted+=("$p")
done
[ ${#missing[@]} -gt 0 ] || [ ${#wanted[@]} -gt 0 ] || exit 0
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq || [ ${#missing[@]} -eq 0 ]
if [ ${#missing[@]} -gt 0 ]; then
    echo "installing: ${missing[*]}"
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
if [ ${#wanted[@]} -gt 0 ]; then
    echo "installing: ${wanted[*]}"
    # Packet capture stays root's: no question about non-root capture.
    echo "wireshark-common wireshark-common/install-setuid boolean false" |
        debconf-set-selections 2>/dev/null || true
    apt-get install -y -qq --no-install-recommends "${wanted[@]}" >/dev/null 2>&1 ||
        echo "could not install ${wanted[*]}: the tests that need it are skipped"
fi
