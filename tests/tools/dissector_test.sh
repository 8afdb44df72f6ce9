#!/usr/bin/env bash
# dissector_test.sh <transfer.lua>
# Writes a capture of known frames (raw IPv4/UDP records on loopback addresses) and checks
# what tshark with the dissector decodes from each. Exit 77 (skipped) without tshark.
set -euo pipefail
lua=$1
command -v tshark >/dev/null 2>&1 || { echo "skipped: tshark is not installed"; exit 77; }
tmp=$(mktemp -d "${TMPDIR:-/tmp}/transfer-dissector.XXXXXX")
trap 'rm -rf "$tmp"' EXIT

bytes() { for b in "$@"; do printf '%b' "\\x$b"; done; }
le32() { bytes "$(printf %02x $(($1 & 255)))" "$(printf %02x $(($1 >> 8 & 255)))" \
               "$(printf %02x $(($1 >> 16 & 255)))" "$(printf %02x $(($1 >> 24)))"; }
be16() { bytes "$(printf %02x $(($1 >> 8)))" "$(printf %02x $(($1 & 255)))"; }

# Each row: direction (> host to board, < board to host), source port, destination port,
# frame bytes | the fields expected (kind, label, address, card register, card index, data,
# card checksum, checksum, first expert info). The library's channels use the board's port
# on both ends, as most rows do: then the labels tell a reply from a request.
rows=(
  "> 6000 6000 55 BB 00 00 00 01 01 00 16 00 40 00 00 00 00 00 00 00 00 00 00 00 00 10 00 00 04 00 00 00 7C 01|request,1,0x00001000,,,,,right,"
  "< 6000 6000 55 BB 00 00 00 01 01 00 1A 00 40 00 00 00 00 00 00 00 00 00 00 00 00 10 00 00 00 00 04 00 11 22 33 44 2A 02|reply,1,0x00001000,,,11223344,,right,"
  "> 6000 6000 55 BB 00 00 00 01 03 00 1C 00 42 02 01 00 00 00 00 00 00 00 00 00 01 01 05 00 00 00 00 02 00 02 02 00 62 55 39 02|poll,3,,0x02000200,5,,right,right,"
  "< 6000 6000 55 BB 00 00 00 01 03 00 12 00 42 02 01 00 00 00 00 00 00 00 00 00 02 00 01 00 6E 01|poll answer,3,,,,0100,,right,"
  "< 6100 6100 55 BB 00 00 00 01 09 00 1A 00 10 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 04 00 07 00 00 00 4F 01|report,9,0x00000000,,,07000000,,right,"
  "> 40000 6002 55 BB 00 00 00 01 01 00 16 00 40 00 00 00 00 00 00 00 00 00 00 00 00 10 00 00 04 00 00 00 7D 01|request,1,0x00001000,,,,,wrong,Checksum is wrong: 0x017d, computed 0x017c"
  "> 6000 6000 55 BB 00 00 00 01 02 00 1C 00 42 02 01 00 00 00 00 00 00 00 00 00 01 01 05 00 00 00 00 01 00 00 08 00 66 55 3F 02|request,2,,0x00000100,5,,wrong,right,Checksum is wrong: 0x5566, computed 0x5565"
  "> 6000 6000 55 BC 00 00 00 01 01 00 16 00 40 00 00 00 00 00 00 00 00 00 00 00 00 10 00 00 04 00 00 00 7D 01|request,1,0x00001000,,,,,right,Delimiter 0xbc55, not 0xBB55"
)

{
    bytes d4 c3 b2 a1 02 00 04 00; le32 0; le32 0; le32 65535; le32 101   # raw IPv4
    for row in "${rows[@]}"; do
        read -r dir sport dport frame <<<"${row%%|*}"
        ends=(7f 00 00 01 7f 00 00 02)
        [ "$dir" = ">" ] || ends=(7f 00 00 02 7f 00 00 01)
        read -ra f <<<"$frame"
        n=$((28 + ${#f[@]}))
        le32 0; le32 0; le32 "$n"; le32 "$n"
        bytes 45 00; be16 "$n"; bytes 00 00 40 00 40 11 00 00 "${ends[@]}"
        be16 "$sport"; be16 "$dport"; be16 $((n - 20)); bytes 00 00
        bytes "${f[@]}"
    done
} >"$tmp/frames.pcap"

tshark -r "$tmp/frames.pcap" -X "lua_script:$lua" -T fields -E separator=, -E occurrence=f \
    -e transfer.kind -e transfer.label -e transfer.addr -e transfer.card.reg \
    -e transfer.card.index -e transfer.data -e transfer.card.checksum.status \
    -e transfer.checksum.status -e _ws.expert.message \
    2>"$tmp/stderr" >"$tmp/fields" || { cat "$tmp/stderr"; exit 1; }
fail=0
i=0
while IFS= read -r got; do
    want=${rows[$i]#*|}
    [ "$got" = "$want" ] || { echo "frame $((i + 1)): got '$got', want '$want'"; fail=1; }
    i=$((i + 1))
done <"$tmp/fields"
[ "$i" -eq "${#rows[@]}" ] || { echo "tshark decoded $i frames of ${#rows[@]}"; fail=1; }
[ "$fail" -eq 0 ] || cat "$tmp/stderr"
exit "$fail"
