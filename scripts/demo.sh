#!/usr/bin/env bash
# Builds the library and its host programs, then shows them at work on a simulated chassis
# inside a private network namespace (lo and an "eth0" veth pair up), so every frame stays
# on this machine. The transcript is printed; nothing is left running.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
dir=build/demo
echo "== Building the library and the host programs into $dir/tools/ (a few minutes the first time)"
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTRANSFER_BUILD_TESTS=OFF >/dev/null
# The build's own progress lines ("[ 42%] Building ..."), so a first build is not silent.
cmake --build "$dir" -j"$(nproc)" --target transfer_tool mcu_upgrade board_sim isp_sim_pty \
    example_host
exec tests/support/netns_run.sh bash scripts/demo-chassis.sh "$dir"
