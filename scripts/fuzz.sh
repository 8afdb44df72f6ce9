#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, AddressSanitizer + UndefinedBehaviorSanitizer) in
# build/fuzz and runs each for a bounded time, two at a time, starting from its seed
# corpus in fuzz/corpus/<target>/. Fails when any target finds a crash; the crash input
# is left in build/fuzz/artifacts/<target>/ (copy it to fuzz/regressions/<target>/ once
# fixed, so the test suite replays it).
#   scripts/fuzz.sh [SECONDS]      seconds per target (default 60)
set -euo pipefail
cd "$(dirname "$0")/.."
secs=${1:-60}
[[ "$secs" =~ ^[0-9]+$ ]] || { echo "usage: $0 [SECONDS]" >&2; exit 2; }

scripts/install-deps.sh clang libclang-rt-dev

dir=build/fuzz
targets=(uart_cut net_datagram config_load frame_data cmd_parse)
CC=clang CXX=clang++ cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DTRANSFER_BUILD_FUZZ=ON -DTRANSFER_BUILD_TESTS=OFF -DTRANSFER_BUILD_TOOLS=OFF \
    -DTRANSFER_SANITIZE= -DTRANSFER_WERROR=ON >/dev/null
. scripts/quiet.sh
quiet_step "$dir/build.log" cmake --build "$dir" -j2 --target "${targets[@]/#/fuzz_}"

# One target: a scratch corpus grown from the committed seeds (the seeds stay as they
# are), the library's own output closed, and every finding kept under artifacts/.
run_one() {
    local t=$1 work=$dir/work/$1 art=$dir/artifacts/$1
    rm -rf "$work" "$art"
    mkdir -p "$work" "$art"
    if "$dir/fuzz/fuzz_$t" -max_total_time="$secs" -timeout=10 -rss_limit_mb=2048 \
        -close_fd_mask=3 -print_final_stats=1 -artifact_prefix="$art/" \
        "$work" "fuzz/corpus/$t" >"$dir/$t.log" 2>&1; then
        echo "fuzz_$t: ok ($(grep -m1 -o 'stat::number_of_executed_units: *[0-9]*' \
            "$dir/$t.log" | grep -o '[0-9]*$') runs)"
    else
        echo "fuzz_$t: FAILED, see $dir/$t.log and $art/"
        grep -m1 -E 'ERROR|runtime error|invariant' "$dir/$t.log" || true
        return 1
    fi
}

echo "=== fuzzing ${#targets[@]} targets, ${secs} s each, two at a time ==="
status=0
pids=()
for t in "${targets[@]}"; do
    run_one "$t" &
    pids+=($!)
    if [ ${#pids[@]} -eq 2 ]; then
        wait "${pids[0]}" || status=1
        pids=("${pids[1]}")
    fi
done
for p in "${pids[@]}"; do
    wait "$p" || status=1
done
exit $status
