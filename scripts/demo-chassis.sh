#!/usr/bin/env bash
# The demo proper, run by scripts/demo.sh inside a private network namespace:
#   demo-chassis.sh BUILD_DIR
# Starts a simulated chassis (board_sim: main card, three sub cards with a sender card and
# its receiving cards, the backplane MCU on a serial pty, report channels; isp_sim_pty: an
# MCU bootloader on a pty) and drives it with transfer_tool and mcu_upgrade. Every command
# is shown as it can be typed from the project root (inside such a namespace, with the
# simulators running).
set -uo pipefail
build=$(cd "${1:?build directory}" && pwd)
cd "$(dirname "$0")/.."
rel=${build#"$PWD"/}  # the build directory as seen from the project root
work=/tmp/transfer-demo
rm -rf "$work"
mkdir -p "$work"
export TRANSFER_CONFIG=config/demo_transfer.json
export TRANSFER_ZLOG_CONFIG=config/demo_zlog.conf
tool=$build/tools/transfer_tool/transfer_tool
upgrade=$build/tools/mcu_upgrade/mcu_upgrade
pids=()
cleanup() {
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null; done
    wait 2>/dev/null
}
trap cleanup EXIT

step() { printf '\n== %s\n' "$*"; }
show() { local text="$*"; printf '$ %s\n' "${text//"$build"/$rel}"; }
# Shows a command (leading NAME=VALUE words are its environment), runs it, and shows its
# exit status when it is not 0.
run() {
    show "$@"
    env "$@"
    local status=$?
    [ $status -eq 0 ] || printf '(exit status %d)\n' "$status"
    return 0
}
wait_for_line() {  # file, text
    for _ in $(seq 100); do
        grep -q "$2" "$1" 2>/dev/null && return 0
        sleep 0.05
    done
    echo "demo: $1 never said \"$2\"" >&2
    exit 1
}

step "Simulated chassis on loopback (board_sim)"
show mkdir -p "$work"
show export TRANSFER_CONFIG=$TRANSFER_CONFIG TRANSFER_ZLOG_CONFIG=$TRANSFER_ZLOG_CONFIG
sim=("$build/tools/board_sim/board_sim"
    --udp 127.0.0.2:6000 --udp 127.0.0.3:6000
    --udp 127.0.1.1:6000 --udp 127.0.2.1:6000
    --udp 127.0.1.3:6000 --udp 127.0.2.3:6000
    --pty "$work/backplane" --serial-split --serial-noise 20
    --report 127.0.0.2:6100:6100:400 --serial-report "$work/backplane:600" --trace)
show "${sim[@]}" ">$work/board_sim.out &"
"${sim[@]}" >"$work/board_sim.out" &
pids+=($!)
wait_for_line "$work/board_sim.out" ready
cat <<TEXT
main card (slot 100): FPGA 127.0.0.2, MCU 127.0.0.3, report channel 127.0.0.2:6100
sub card 1: sender card (FPGA 127.0.1.1, receiving cards behind it), MCU 127.0.2.1
sub card 2: configured, but no board answers (127.0.1.2 / 127.0.2.2)
sub card 3: FPGA 127.0.1.3, MCU 127.0.2.3
backplane (slot 101): MCU on the serial line $work/backplane (replies in pieces, noise)
configuration: $TRANSFER_CONFIG, log: $work/transfer.log
board_sim traces every request it receives in $work/board_sim.out
TEXT

step "Write and read back a main-card FPGA register"
run "$tool" -s 100 -D 0 -R 0x1000 -E 1 -L 4 -d 0x12 0x34 0x56 0x78
run "$tool" -s 100 -D 0 -R 0x1000 -E 0 -L 4

step "An MCU register of sub card 3, three reads in a row"
run "$tool" -s 3 -D 1 -R 0x20 -E 1 -L 2 -d 0xbe 0xef
run "$tool" -s 3 -D 1 -R 0x20 -E 0 -L 2 -C 3

step "The backplane MCU over its serial line"
run "$tool" -s 101 -D 1 -R 0x0040 -E 1 -L 3 -d 0x01 0x02 0x03
run "$tool" -s 101 -D 1 -R 0x0040 -E 0 -L 3

step "Receiving card 3 behind port 0 of the sender card: write without acknowledgement, confirmed by polling, then read"
seen=$(wc -l <"$work/board_sim.out")
run "$tool" -s 1 -D 0 -B 2 -e 0 -r 3 -R 0x44 -E 1 -A 1 -L 2 -d 0xca 0xfe
echo "what the sender card saw meanwhile (board_sim --trace):"
tail -n +$((seen + 1)) "$work/board_sim.out" | grep '127.0.1.1:6000' | sed 's/^/  /'
run "$tool" -s 1 -D 0 -B 2 -e 0 -r 3 -R 0x44 -E 0 -L 2

step "A board that does not answer: 200 ms per attempt, one retransmission"
run TRANSFER_TIMEOUT_MS=200 TRANSFER_RETRIES=1 "$tool" -s 2 -D 1 -R 0x10 -E 0 -L 4

step "Reports from the main card's report channel and from the backplane's serial line"
run TRANSFER_REPORT_WAIT_MS=1500 "$tool" -s 100 -D 0 -R 0x1000 -E 0 -L 4

step "Firmware upgrade of an MCU through its serial bootloader (isp_sim_pty): write, read back, start"
head -c 49152 /dev/urandom >"$work/firmware.bin"
isp_cmd=("$build/tools/isp_sim/isp_sim_pty" --dump "$work/flash.bin" --exit-with-parent)
show "${isp_cmd[@]}" ">$work/isp_sim.out &   # its first line is the device"
"${isp_cmd[@]}" >"$work/isp_sim.out" 2>&1 &
isp=$!
pids+=($isp)
wait_for_line "$work/isp_sim.out" /dev/
device=$(head -n1 "$work/isp_sim.out")
run "$upgrade" -p "$work/firmware.bin" -g 0 "$device"
kill -USR1 "$isp"
wait_for_line "$work/isp_sim.out" dumped
if cmp -s -n 49152 "$work/firmware.bin" "$work/flash.bin"; then
    echo "the simulated flash holds the image"
else
    echo "the simulated flash differs from the image"
fi
echo "A bootloader whose flash spoils a byte once it is written: the verify names it"
isp_cmd=("$build/tools/isp_sim/isp_sim_pty" --corrupt-at 0x08001234 --exit-with-parent)
show "${isp_cmd[@]}" ">$work/isp_sim2.out &"
"${isp_cmd[@]}" >"$work/isp_sim2.out" 2>&1 &
pids+=($!)
wait_for_line "$work/isp_sim2.out" /dev/
run "$upgrade" -p "$work/firmware.bin" "$(head -n1 "$work/isp_sim2.out")"

step "A board check in one process: a batch file, one result line per request, then the channel counters"
run "$tool" -f config/demo_batch.txt --stats

step "What the boards saw"
kill "${pids[0]}"
wait "${pids[0]}" 2>/dev/null
tail -n1 "$work/board_sim.out"
echo "library log: $(wc -l <"$work/transfer.log") lines in $work/transfer.log"
echo "To type the commands above yourself: start a shell in such a namespace from the project"
echo "root (tests/support/netns_run.sh bash), then the mkdir, the export, board_sim and the tools."
