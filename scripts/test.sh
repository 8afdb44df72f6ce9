#!/usr/bin/env bash
# Builds the library and runs the whole test suite: a plain build, then AddressSanitizer
# with UndefinedBehaviorSanitizer, then ThreadSanitizer.
#   scripts/test.sh            all three
#   scripts/test.sh plain      only the plain build (likewise: address, thread)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

jobs=$(nproc)
variants=("$@")
[ ${#variants[@]} -gt 0 ] || variants=(plain address thread)

status=0
for v in "${variants[@]}"; do
    dir=build/test-$v
    san=""
    [ "$v" = plain ] || san=$v
    echo "=== $v build ==="
    cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTRANSFER_SANITIZE="$san" >/dev/null
    cmake --build "$dir" -j"$jobs"
    echo "=== $v tests ==="
    # TSan needs the fixed memory layout that a high mmap randomisation breaks.
    runner=()
    [ "$v" = thread ] && command -v setarch >/dev/null && runner=(setarch "$(uname -m)" -R)
    if ! "${runner[@]}" ctest --test-dir "$dir" --output-on-failure -j"$jobs" --timeout 600; then
        status=1
    fi
done
exit $status
