#!/usr/bin/env bash
# The mutation check: puts each fault of scripts/mutants.txt into src/, one at a time,
# rebuilds, runs the plain test suite (without the soak) and reports which test caught it.
#   scripts/mutate.sh                 every mutant
#   scripts/mutate.sh engine codec    only the mutants of these units
#   scripts/mutate.sh --only ID...    only these mutants
#   scripts/mutate.sh --list          the mutants, without running anything
#   scripts/mutate.sh --check         that every mutant applies (its text is found once)
# The tests of the mutant's unit run first and the rest after, each stopping at the first
# failure, with a time limit per test (MUTATE_TEST_TIMEOUT, default 30 s; a test that runs
# out counts as a kill and says so). The tree is restored whatever happens. The table is
# printed and written to build/mutate/report.txt (and report.tsv).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
list=scripts/mutants.txt
build=build/mutate
timeout_s=${MUTATE_TEST_TIMEOUT:-30}

usage() { sed -n '2,11p' "$0" | sed 's/^# \{0,1\}//'; }

mode=run
only=()
units=()
while [ $# -gt 0 ]; do
    case $1 in
        -h | --help) usage; exit 0 ;;
        --list) mode=list ;;
        --check) mode=check ;;
        --only) shift; while [ $# -gt 0 ] && [[ $1 != -* ]]; do only+=("$1"); shift; done; continue ;;
        -*) echo "mutate.sh: unknown option $1" >&2; usage >&2; exit 2 ;;
        *) units+=("$1") ;;
    esac
    shift
done

command -v python3 >/dev/null || scripts/install-deps.sh python3

# The tests that look at each unit first (a regex of ctest names).
declare -A first=(
    [engine]='^(engine_|setup_startup|channel_receive|reliability_fault)'
    [codec]='^(codec_|security_fuzz|engine_)'
    [channel]='^(channel_|engine_|setup_startup)'
    [setup]='^(setup_)'
    [containers]='^(containers_|engine_)'
    [cli]='^(cli_|tools_)'
    [isp]='^(isp_|tools_programs)'
    [mio]='^(mio_sdfile|security_file)'
    [uart]='^(uart_|channel_receive)'
    [log]='^(sdk_log|zlog)'
)

# Applies (or checks) one mutant: python prints the file it changed.
mutant() {  # mutant apply|check|describe ID
    python3 - "$@" "$list" <<'EOF'
import sys
action, mid, path = sys.argv[1], sys.argv[2], sys.argv[3]
blocks, cur = [], None
for line in open(path):
    line = line.rstrip('\n')
    if line.startswith('@ '):
        ident, unit, src = line[2:].split()
        cur = dict(id=ident, unit=unit, file='src/' + src, what='', old=[], new=[])
        blocks.append(cur)
    elif cur is None or not line or line.startswith('##'):
        continue
    elif line.startswith('# '):
        cur['what'] = line[2:]
    elif line.startswith('- '):
        cur['old'].append(line[2:])
    elif line.startswith('+ '):
        cur['new'].append(line[2:])
if action == 'ids':
    for b in blocks: print(b['id'], b['unit'])
    sys.exit(0)
b = next((b for b in blocks if b['id'] == mid), None)
if b is None: sys.exit('no mutant ' + mid)
if action == 'describe':
    print(b['unit'] + '\t' + b['file'] + '\t' + b['what']); sys.exit(0)
text = open(b['file']).read()
old = '\n'.join(b['old']) + '\n'
if text.count(old) != 1:
    sys.exit('%s: its text occurs %d times in %s' % (mid, text.count(old), b['file']))
if action == 'apply':
    new = '\n'.join(b['new']) + ('\n' if b['new'] else '')
    open(b['file'], 'w').write(text.replace(old, new))
print(b['file'])
EOF
}

mapfile -t all < <(mutant ids - | awk '{print $1" "$2}')
selected=()
for entry in "${all[@]}"; do
    id=${entry% *}
    unit=${entry#* }
    if [ ${#only[@]} -gt 0 ]; then
        [[ " ${only[*]} " == *" $id "* ]] || continue
    elif [ ${#units[@]} -gt 0 ]; then
        [[ " ${units[*]} " == *" $unit "* ]] || continue
    fi
    selected+=("$id")
done
[ ${#selected[@]} -gt 0 ] || { echo "mutate.sh: no mutant selected" >&2; exit 2; }

if [ $mode = list ]; then
    for id in "${selected[@]}"; do printf '%-28s %s\n' "$id" "$(mutant describe "$id" | tr '\t' ' ')"; done
    exit 0
fi
bad=0
for id in "${selected[@]}"; do mutant check "$id" >/dev/null || bad=1; done
[ $bad = 0 ] || { echo "mutate.sh: the list does not apply to this tree" >&2; exit 1; }
[ $mode = check ] && { echo "${#selected[@]} mutants apply"; exit 0; }

git diff --quiet -- src || { echo "mutate.sh: src/ has changes of its own; commit or stash them" >&2; exit 2; }
backup=$(mktemp -d)
restore() {
    for f in "$backup"/*; do [ -e "$f" ] && cp "$f" "$root/src/$(basename "$f" | tr '%' '/')"; done
    rm -rf "$backup"
    git -C "$root" diff --quiet -- src || git -C "$root" checkout -- src
}
trap restore EXIT
trap 'exit 130' INT TERM

scripts/install-deps.sh >/dev/null
mkdir -p "$build"
log=$build/build.log
echo "building the unmutated tree into $build (progress in $log)"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_LINK_DEPENDS_NO_SHARED=ON >"$log"
cmake --build "$build" -j"$(nproc)" >>"$log" 2>&1 || { echo "the unmutated tree does not build" >&2; exit 1; }

# Runs a set of tests; prints the first failing test's name, or nothing.
run_tests() {  # run_tests ctest-args...
    ctest --test-dir "$build" -j"$(nproc)" -LE soak --timeout "$timeout_s" --stop-on-failure \
        "$@" >"$build/ctest.log" 2>&1 && return 0
    # The first test to fail, in the order they ended (others may be cut short after it).
    local failed
    failed=$(sed -n 's/^.*Test *#[0-9]*: \([^ ]*\) [.]*\**\(Failed\|Timeout\|Exception[^ ]*\|Exit code [0-9]*\).*$/\1 (\2)/p' \
        "$build/ctest.log" | head -1)
    echo "${failed:-ctest failed}"
}

report=$build/report.txt
tsv=$build/report.tsv
: >"$tsv"
killed=0; survived=0; broken=0
start=$(date +%s)
printf '%-28s %-10s %s\n' mutant unit result | tee "$report"
for id in "${selected[@]}"; do
    IFS=$'\t' read -r unit file what < <(mutant describe "$id")
    cp -p "$file" "$backup/$(echo "${file#src/}" | tr '/' '%')"
    mutant apply "$id" >/dev/null
    result=""
    if ! cmake --build "$build" -j"$(nproc)" >>"$log" 2>&1; then
        result="build error (a list bug)"
        broken=$((broken + 1))
    else
        regex=${first[$unit]:-.}
        result=$(run_tests -R "$regex")
        [ -n "$result" ] || result=$(run_tests -E "$regex")
        if [ -n "$result" ]; then
            killed=$((killed + 1))
            case $result in *Timeout*) result="killed by $result (time-out counts as a kill)" ;; *) result="killed by $result" ;; esac
        else
            survived=$((survived + 1))
            result="SURVIVED"
        fi
    fi
    # A plain copy: the restored file is newer than the mutant's object, so the next build
    # compiles it again (a copy keeping the old time would leave the mutant in the library).
    cp "$backup/$(echo "${file#src/}" | tr '/' '%')" "$file"
    rm -f "$backup/$(echo "${file#src/}" | tr '/' '%')"
    printf '%-28s %-10s %s\n' "$id" "$unit" "$result" | tee -a "$report"
    printf '%s\t%s\t%s\t%s\n' "$id" "$unit" "$result" "$what" >>"$tsv"
done
cmake --build "$build" -j"$(nproc)" >>"$log" 2>&1 || true  # back to the unmutated build
total=$((killed + survived))
rate=$([ $total -gt 0 ] && awk "BEGIN{printf \"%.1f\", 100*$killed/$total}" || echo 0)
summary="killed $killed of $total ($rate %), $broken build errors, $(($(date +%s) - start)) s"
echo "$summary" | tee -a "$report"
echo "report: $report ($tsv)"
