#!/usr/bin/env bash
# Builds the library and runs the soak inside a private network namespace: requests across
# UDP, serial and receiving-card targets of a simulated chassis with injected faults.
#   scripts/soak.sh                       100,000 requests, 10 % faults
#   scripts/soak.sh --requests 2000000    a long one (any soak option, see --help)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
dir=build/soak
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" -j"$(nproc)" --target soak board_sim
TRANSFER_BINARY_DIR=$PWD/$dir exec tests/support/netns_run.sh "$dir/tests/reliability/soak" "$@"
