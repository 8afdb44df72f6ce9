#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets to fuzz/corpus/<target>/: a handful of
small, realistic inputs per target (frames, streams, configurations, argument vectors).
Run it again after changing a harness's input layout."""
import json
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def le16(v):
    return struct.pack('<H', v & 0xFFFF)


def frame(lable, param, body, frame_type=1, delim=b'\xbb\x55'):
    """A frame: delimiter, version/priority/check type, frame type, label, length, request
    header B (parameter byte, device type, index, group), body, a two-byte checksum."""
    head_b = bytes([param, 0]) + le16(0) + bytes(8)
    rest = head_b + body
    payload = rest + le16(sum(delim + bytes([0, 0, 0, frame_type]) + le16(lable) + rest))
    return delim + bytes([0, 0, 0, frame_type]) + le16(lable) + le16(len(payload)) + payload


def addr_body(data, addr=0x1000, err=0):
    return struct.pack('<IhH', addr, err, len(data)) + bytes(data)


def card_reply(lable, port, data):
    body = le16(len(data)) + bytes(data)
    head_b = bytes([0x02, 2]) + le16(port) + bytes(8)
    rest = head_b + body + b'\x00\x00'
    return b'\x55\xbb\x00\x00\x00\x01' + le16(lable) + le16(len(rest)) + rest


def write(target, name, data):
    d = os.path.join(HERE, 'corpus', target)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, name), 'wb') as f:
        f.write(data)


def uart_cut():
    # channel selector, request count, labels, chunking seed, stream
    def seed(sel, labels, rng, stream):
        return bytes([sel, len(labels)]) + b''.join(le16(l) for l in labels) + le16(rng) + stream
    reply = frame(0x0102, 0x00, addr_body([1, 2, 3, 4, 5]))
    report = frame(0x0999, 0x10, addr_body([9, 8, 7]))
    write('uart_cut', 'reply_then_report', seed(0, [0x0102], 0x1234, reply + report))
    tlv = frame(0x0007, 0x01, addr_body([0xA1, 0xA2], err=-2))
    write('uart_cut', 'noise_then_tlv', seed(6, [0x0007], 0x0101, b'\x00\x55\x12' + tlv))
    bad_len = b'\xbb\x55\x00\x00\x00\x01\x01\x00' + le16(4133) + bytes(6)
    write('uart_cut', 'length_error_resync', seed(0, [0x0001], 0x7777, bad_len + frame(1, 0, addr_body([6]))))
    write('uart_cut', 'double_bb', seed(0, [3], 0x0203, b'\xbb' + frame(3, 0, addr_body([1]))))
    odd = frame(4, 0x00, addr_body([1]), frame_type=0) + frame(5, 0x02, addr_body([2]))
    write('uart_cut', 'unknown_frame_and_body', seed(0, [4, 5], 0x0909, odd))
    write('uart_cut', 'reports_fill_queue', seed(0, [], 0x0001, report * 6))


def net_datagram():
    # channel selector, card of each of the four ports, request count, (label, list) each
    def seed(sel, cards, reqs, dgram):
        out = bytes([sel]) + bytes(cards) + bytes([len(reqs)])
        for lable, where in reqs:
            out += le16(lable) + bytes([where])
        return out + dgram
    reply = frame(1, 0x40, addr_body([0xDE, 0xAD, 0xBE, 0xEF]))
    write('net_datagram', 'address_reply', seed(0, [0, 0, 0, 0], [(1, 0)], reply))
    # port 1 serves card 5; the request waits on that card's list (0x80 | card << 2 | port)
    write('net_datagram', 'card_reply', seed(1, [0, 5, 0, 0], [(2, 0x80 | (5 << 2) | 1)],
                                              card_reply(2, 1, [1, 2, 3, 4, 5, 6, 7, 8])))
    write('net_datagram', 'sender_plain_reply', seed(1, [0, 0, 0, 0], [(9, 0)],
                                                      frame(9, 0x01, addr_body([7]))))
    short = bytearray(reply)
    short[8] += 1
    write('net_datagram', 'length_mismatch', seed(0, [0, 0, 0, 0], [(1, 0)], bytes(short)))
    write('net_datagram', 'unmatched_label', seed(0, [0, 0, 0, 0], [(3, 0)], reply))


def config_load():
    with open(os.path.join(HERE, '..', 'config', 'example_transfer.json'), 'rb') as f:
        write('config_load', 'example', f.read())
    device = {
        'main_card': {'slot_num': 1, 'type_num': 2, 'min_slot': 100, 'max_slot': 100, 'id_offset': 0},
        'sub_card': {'slot_num': 2, 'type_num': 2, 'min_slot': 1, 'max_slot': 2, 'id_offset': 2},
        'backplane': {'slot_num': 1, 'type_num': 1, 'min_slot': 101, 'max_slot': 101, 'id_offset': 6},
        'report': {'slot_num': 1, 'type_num': 1, 'min_slot': 100, 'max_slot': 100, 'id_offset': 7},
    }
    def ch(off, typ, ip, port, code=None):
        e = {'id_offset': off, 'type': typ, 'ip': ip, 'port': port}
        if code is not None:
            e['packet_code_type'] = code
        return e
    cfg = {
        'device': device,
        'transfer_param': {'send_list_num': 1, 'send_thread_num': 1, 'monitor_list_num': 1,
                           'monitor_thread_num': 1},
        'rvcard_param': {'eth_max': 2, 'rvcard_max': 4},
        'maincards': [{'slot': 100, 'fpga': [ch(0, 1, '127.0.0.2', 6000, 1)],
                       'mcu': [ch(1, 10, 'fuzz-uart', 115200)]}],
        'subcards': [{'slot': 1, 'fpga': [ch(0, 1, '127.0.0.11', 6002)], 'mcu': [ch(1, 100, '127.0.0.12', 6003)]},
                     {'slot': 2, 'mcu': [ch(1, 3, '127.0.0.22', 6002)]}],
        'backplane': [{'slot': 101, 'mcu': [ch(0, 10, '/dev/ttyTRANSFER0', 9600)]}],
        'report': [{'slot': 100, 'fpga': [ch(0, 100, '127.0.0.2', 6001)]}],
    }
    write('config_load', 'all_classes', json.dumps(cfg).encode())
    overlap = {'device': {'main_card': dict(device['main_card']), 'sub_card': dict(device['sub_card'])}}
    overlap['device']['sub_card']['id_offset'] = 1
    write('config_load', 'overlapping_blocks', json.dumps(overlap).encode())
    write('config_load', 'no_device', b'{"maincards": []}')
    write('config_load', 'missing_member', json.dumps(
        {'device': {'main_card': {'slot_num': 1, 'type_num': 2, 'min_slot': 100, 'max_slot': 100}}}).encode())


def frame_data():
    reply = frame(1, 0x00, addr_body([1, 2, 3, 4]))
    write('frame_data', 'extract_reply', b'\x00' + reply)
    read_4 = bytes.fromhex('55BB0000000101001600' '400000000000000000000000' '0010000004000000' '7C01')
    write('frame_data', 'check_worked_example', b'\x01' + read_4)
    fh = struct.pack('<HBBBBHH', 0xBB55, 0, 0, 0, 1, 7, 0)
    rh = struct.pack('<I', 1) + b'\x00' + bytes([0x60, 0]) + le16(0) + bytes(8)
    rb = struct.pack('<I', 0) + struct.pack('<IhH', 0x1000, 0, 0) + bytes(8) + bytes(12)
    write('frame_data', 'assemble_write', b'\x02' + fh + rh + rb + b'\x01' + bytes([1, 2, 3, 4]))
    # transfer_op_t (packed): e_mode, n_mode_id, n_slot, n_reply_times, n_no_ack,
    # n_write_wait_time, n_timeout, n_polling_state, n_polling_time, n_broadcast_eth_id,
    # e_code, n_read_len, e_type, st_addr_param (addr, type, index, group), recvcard id,
    # the pointer; then the channel byte, the data flag and the data.
    op = struct.pack('<iIIIIIIIIBiIiIBBQI', 0, 0, 100, 0, 0, 0, 100, 0, 0, 0, 0, 4, 0,
                     0x1000, 0, 0, 0, 0) + bytes(8)
    write('frame_data', 'build_read', b'\x03' + op + b'\x00\x00')
    op_card = struct.pack('<iIIIIIIIIBiIiIBBQI', 0, 0, 100, 0, 0, 0, 100, 0, 0, 0, 1, 2, 2,
                          0x100, 2, 1, 0, 5) + bytes(8)
    write('frame_data', 'build_card_write', b'\x03' + op_card + b'\x03\x01\xAA\xBB')


def cmd_parse():
    def argv(b_mcu, args):
        return bytes([b_mcu]) + b'\x00'.join(a.encode() for a in args)
    write('cmd_parse', 'read_mcu', argv(0, '-s 101 -R 0x00000001 -L 3 -e 0 -r 0 -E 0 -D 1 -A 0 -d 0x0 0x1 0x0'.split()))
    write('cmd_parse', 'long_forms_help', argv(0, ['--slotid=5', '--file_path', '/tmp/x', '-C', '010', '-h']))
    write('cmd_parse', 'upgrade', argv(1, '-s 5 -m 1 -p /tmp/fw.bin -l 0x100 -t 3000 -v -u -c -b 3'.split()))
    write('cmd_parse', 'upgrade_long', argv(1, ['--n_check', '--n_boot=2', '--n_slot_id', 'x' * 600, '-x', '-s']))


if __name__ == '__main__':
    uart_cut()
    net_datagram()
    config_load()
    frame_data()
    cmd_parse()
