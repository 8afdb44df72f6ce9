#!/usr/bin/env bash
# Builds and runs the benchmarks inside a private network namespace (lo and an "eth0"
# veth pair up) against the board simulator, prints the table of ratios beside their
# targets, writes build/bench/results.json and draws build/bench/latency.png and
# build/bench/scaling.png. Extra arguments go to transfer_bench (for instance
# --log-level info, --seconds 3, --only engine_seq,pingpong).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh libmodbus-dev gnuplot-nox

out=build/bench
cmake -S . -B "$out" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTRANSFER_BUILD_TESTS=OFF \
    -DTRANSFER_BUILD_TOOLS=ON -DTRANSFER_BUILD_BENCH=ON >/dev/null
cmake --build "$out" -j2 --target transfer_bench board_sim
rm -rf "$out/data" "$out/runs" "$out"/engine*.log
status=0
tests/support/netns_run.sh "$out/bench/transfer_bench" --board-sim \
    "$out/tools/board_sim/board_sim" --out "$out" "$@" || status=$?
if [ "$status" = 77 ]; then
    echo "benchmarks skipped: no private network namespace here" >&2
    exit 77
fi
if [ -s "$out/data/scaling.dat" ] || [ -s "$out/data/lat_engine.dat" ]; then
    gnuplot -e "dir='$out'" bench/plots.gp && echo "plots: $out/latency.png $out/scaling.png"
fi
exit "$status"
