#!/usr/bin/env bash
# Builds the library and runs the whole test suite: a plain build, AddressSanitizer with
# UndefinedBehaviorSanitizer, ThreadSanitizer, every fuzz target for a bounded time, then
# the AArch64 cross build with its tests under qemu (scripts/cross-aarch64.sh). A Release
# build (library, tools and tests at -O3) is only compiled: the optimiser's extra
# warnings show there. Warnings are errors in every build made here (TRANSFER_WERROR).
#   scripts/test.sh                  plain, release, address, thread, fuzz and aarch64
#   scripts/test.sh plain thread     only these
# FUZZ_SECONDS sets the time per fuzz target (default 45).
# Compiler output goes to build/test-<variant>/build.log, each phase's ctest output to
# ctest.log beside it: the screen shows failures and each phase's summary.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/quiet.sh
scripts/install-deps.sh

jobs=$(nproc)
variants=("$@")
[ ${#variants[@]} -gt 0 ] || variants=(plain release address thread fuzz aarch64)

status=0
for v in "${variants[@]}"; do
    case $v in
        fuzz)
            echo "=== fuzz targets ==="
            scripts/fuzz.sh "${FUZZ_SECONDS:-45}" || status=1
            continue
            ;;
        aarch64)
            echo "=== AArch64 cross build under qemu ==="
            rc=0
            scripts/cross-aarch64.sh || rc=$?
            if [ $rc -eq 77 ]; then
                echo "aarch64: skipped (see above)"
            elif [ $rc -ne 0 ]; then
                status=1
            fi
            continue
            ;;
        release)
            echo "=== release build (compiled, not run) ==="
            quiet_step build/test-release/configure.log cmake -S . -B build/test-release \
                -DCMAKE_BUILD_TYPE=Release -DTRANSFER_WERROR=ON &&
                quiet_step build/test-release/build.log cmake --build build/test-release \
                    -j"$jobs" && echo "release: built" || status=1
            continue
            ;;
        plain | address | thread) ;;
        *)
            echo "unknown variant $v (plain, release, address, thread, fuzz, aarch64)" >&2
            exit 2
            ;;
    esac
    dir=build/test-$v
    san=""
    [ "$v" = plain ] || san=$v
    echo "=== $v build ==="
    if ! quiet_step "$dir/configure.log" cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DTRANSFER_SANITIZE="$san" -DTRANSFER_WERROR=ON ||
        ! quiet_step "$dir/build.log" cmake --build "$dir" -j"$jobs"; then
        status=1
        continue
    fi
    echo "=== $v tests ==="
    # TSan needs the fixed memory layout that a high mmap randomisation breaks.
    runner=()
    [ "$v" = thread ] && command -v setarch >/dev/null && runner=(setarch "$(uname -m)" -R)
    quiet_ctest "$dir/ctest.log" "${runner[@]}" ctest --test-dir "$dir" -j"$jobs" --timeout 600 || status=1
done
exit $status
