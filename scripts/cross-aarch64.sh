#!/usr/bin/env bash
# Cross-builds the library, the host tools and the test suite for AArch64 with Debian's
# cross compiler and the arm64 multiarch packages, then runs the tests under qemu-aarch64.
#   scripts/cross-aarch64.sh [ctest arguments...]
# Run as root on Debian bookworm (it installs what it needs). Build directory: build/aarch64.
set -euo pipefail
cd "$(dirname "$0")/.."

host_packages=(cmake make pkg-config gcc-aarch64-linux-gnu g++-aarch64-linux-gnu qemu-user
               iproute2 util-linux)
target_packages=(libcjson-dev:arm64 libgtest-dev:arm64 libgmock-dev:arm64)

if ! dpkg --print-foreign-architectures | grep -qx arm64; then
    echo "adding the arm64 architecture to dpkg"
    dpkg --add-architecture arm64
    fresh_arch=1
fi
missing=()
for p in "${host_packages[@]}" "${target_packages[@]}"; do
    dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ] || [ -n "${fresh_arch:-}" ]; then
    echo "installing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    # Where the cross toolchain or the arm64 packages cannot be had, the run is skipped
    # (exit 77), not passed.
    if ! apt-get -o DPkg::Lock::Timeout=600 update -qq ||
        ! apt-get -o DPkg::Lock::Timeout=600 install -y -qq --no-install-recommends \
            "${missing[@]}" >/dev/null; then
        echo "SKIPPED: cannot install the AArch64 cross toolchain and arm64 packages" >&2
        exit 77
    fi
fi

dir=build/aarch64
cmake -S . -B "$dir" -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTRANSFER_WERROR=ON >/dev/null
. scripts/quiet.sh
echo "building into $dir (progress in $dir/build.log)"
quiet_step "$dir/build.log" cmake --build "$dir" -j"$(nproc)"

# Without a binfmt handler for AArch64 programs, an emulated test cannot start another
# AArch64 program (only the test program itself runs under qemu-aarch64). Left out then:
spawning=(
    setup_startup_netns_test               # starts board_sim
    isp_isp_pty_test                       # starts stm32flash
    reliability_fault_injection_netns_test # starts board_sim
    reliability_soak                       # the soak program, started by netns_run.sh
    tools_programs_test                    # starts the host programs and simulators
    tools_transfer_tool_netns_test         # starts transfer_tool and board_sim
)
exclude=()
if ! grep -qs '^enabled' /proc/sys/fs/binfmt_misc/qemu-aarch64; then
    exclude=(-E "^($(IFS='|'; echo "${spawning[*]}"))\$")
    echo "no binfmt handler for AArch64 programs: not running ${spawning[*]}"
fi
# qemu-user's termios translation knows no 4000000 baud.
export TRANSFER_TEST_MAX_BAUD=3500000
echo "not tried (emulator limit): serial rates above 3.5 Mbaud"
quiet_ctest "$dir/ctest.log" ctest --test-dir "$dir" -j"$(nproc)" "${exclude[@]}" "$@"
