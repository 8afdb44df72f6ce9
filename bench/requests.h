// Request descriptors and raw request frames used by the cases.
#pragma once

#include <cstdint>
#include <vector>

#include "transfer_server.h"

namespace bench {

constexpr uint32_t kReadAddr = 0x100;
constexpr uint32_t kReadLen = 4;

// An acknowledged read of kReadLen bytes from the FPGA of a sub-card slot.
inline transfer_op_t fpga_read(uint32_t slot, uint32_t timeout_ms = 2000) {
    transfer_op_t op{};
    op.e_mode = FPGA;
    op.n_slot = slot;
    op.n_timeout = timeout_ms;
    op.n_no_ack = EN_REQUEST_ACK;
    op.e_code = FRAME_READ;
    op.n_read_len = kReadLen;
    op.e_type = BODY_ADDRESS;
    op.st_addr_param.n_addr = kReadAddr;
    op.st_addr_param.n_device_type = DEVICE_FPGA;
    return op;
}

// The same read from the main card's MCU (serial chassis).
inline transfer_op_t mcu_read(uint32_t timeout_ms = 2000) {
    transfer_op_t op = fpga_read(100, timeout_ms);
    op.e_mode = MCU;
    op.st_addr_param.n_device_type = DEVICE_MCU;
    return op;
}

// The frame the engine puts on the wire for fpga_read: 10-byte frame header, request
// header with "acknowledge, read, address body", the address body, the byte-sum checksum.
inline std::vector<uint8_t> read_frame(uint16_t label, uint8_t device_type = DEVICE_FPGA) {
    std::vector<uint8_t> f(32, 0);
    auto le16 = [&f](size_t at, uint16_t v) {
        f[at] = static_cast<uint8_t>(v);
        f[at + 1] = static_cast<uint8_t>(v >> 8);
    };
    le16(0, 0xBB55);
    f[5] = FRAME_SLOT;
    le16(6, label);
    le16(8, static_cast<uint16_t>(f.size() - 10));
    f[10] = 0x40;  // acknowledgement asked, read, address body
    f[11] = device_type;
    for (int i = 0; i < 4; ++i)
        f[22 + i] = static_cast<uint8_t>(kReadAddr >> (8 * i));
    le16(26, kReadLen);
    uint16_t sum = 0;
    for (size_t i = 0; i + 2 < f.size(); ++i)
        sum = static_cast<uint16_t>(sum + f[i]);
    le16(30, sum);
    return f;
}

}  // namespace bench
