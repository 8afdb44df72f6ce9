#!/usr/bin/env bash
# Builds the library and runs the example host inside a private network namespace
# (lo and an "eth0" veth pair up), so the channels it opens stay on this machine.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build/demo -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTRANSFER_BUILD_TESTS=OFF >/dev/null
cmake --build build/demo -j"$(nproc)" --target example_host
exec tests/support/netns_run.sh build/demo/tools/example_host/example_host \
    config/example_transfer.json config/example_zlog.conf
