# Sourced by the test scripts: long, chatty steps write into a log file and show only what
# a person reads (a failure's end, a phase's summary).

# quiet_step LOG COMMAND...: runs the command with its output in LOG; on failure prints
# the last lines of LOG and returns the command's status.
quiet_step() {
    local log=$1
    shift
    mkdir -p "$(dirname "$log")"
    if "$@" >"$log" 2>&1; then
        return 0
    else
        local rc=$?
        echo "FAILED: $* (last lines of $log):"
        tail -n 60 "$log" | sed 's/^/  /'
        return $rc
    fi
}

# quiet_ctest LOG COMMAND...: runs a ctest command line (ctest itself, or behind a runner
# such as setarch) with its output in LOG and prints the summary, the tests not run or
# skipped, and every failing test's output.
quiet_ctest() {
    local log=$1
    shift
    local rc=0
    "$@" --output-on-failure >"$log" 2>&1 || rc=$?
    if [ $rc -ne 0 ]; then
        # Failing tests' output comes with --output-on-failure; show the whole log, without
        # the lines of tests that passed.
        grep -vE '^ *[0-9]+/[0-9]+ Test +#[0-9]+: .* Passed ' "$log" || true
    else
        grep -E 'tests passed|Total Test time|\*\*\*Skipped|Not Run|Disabled' "$log" || true
    fi
    echo "  (ctest log: $log)"
    return $rc
}
