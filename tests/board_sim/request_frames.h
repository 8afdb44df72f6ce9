// Request frames as the library puts them on the wire, built by hand for the simulator
// tests.
#pragma once

#include <cstdint>
#include <vector>

#include "board_sim/frame.h"
#include "common/bytes.h"

namespace board_sim_test {

struct Target {
    uint8_t device_type = 0;
    uint8_t device_index = 0;
    uint8_t port = 0;   // receiving-card requests
    uint16_t card = 0;  // receiving-card requests
};

inline std::vector<uint8_t> header(uint16_t label, size_t frame_len, uint8_t param, Target t) {
    std::vector<uint8_t> f(frame_len, 0);
    sdk::put_le16(&f[0], 0xBB55);
    f[5] = 1;
    sdk::put_le16(&f[6], label);
    sdk::put_le16(&f[8], static_cast<uint16_t>(frame_len - 10));
    f[10] = param;
    f[11] = t.device_type;
    f[12] = t.device_index;
    return f;
}

// Address (body 0) or TLV (body 1) request; a read asks for `read_len` bytes.
inline std::vector<uint8_t> addr_request(uint16_t label, bool ack, uint8_t body, uint32_t addr,
                                         uint16_t read_len, const std::vector<uint8_t> &wdata,
                                         Target t = {}) {
    bool write = !wdata.empty();
    uint8_t param = static_cast<uint8_t>((ack ? 0x40 : 0) | (write ? 0x20 : 0) | body);
    auto f = header(label, 32 + wdata.size(), param, t);
    board_sim::put_le32(&f[22], addr);
    sdk::put_le16(&f[26], write ? 0 : read_len);
    sdk::put_le16(&f[28], static_cast<uint16_t>(wdata.size()));
    std::copy(wdata.begin(), wdata.end(), f.begin() + 30);
    sdk::put_le16(&f[f.size() - 2], sdk::byte_sum16(f.data(), f.size() - 2));
    return f;
}

inline std::vector<uint8_t> rvcard_request(uint16_t label, bool ack, uint32_t addr,
                                           uint16_t read_len, const std::vector<uint8_t> &wdata,
                                           Target t) {
    bool write = !wdata.empty();
    uint8_t param = static_cast<uint8_t>((ack ? 0x40 : 0) | (write ? 0x20 : 0) | 2);
    t.device_type = 2;
    t.device_index = t.port;
    auto f = header(label, 38 + wdata.size(), param, t);
    f[22] = 1;
    f[23] = t.port;
    sdk::put_le16(&f[24], t.card);
    f[26] = write ? 1 : 0;
    board_sim::put_le32(&f[28], addr);
    sdk::put_le16(&f[32], write ? static_cast<uint16_t>(wdata.size()) : read_len);
    std::copy(wdata.begin(), wdata.end(), f.begin() + 34);
    size_t n = wdata.size();
    sdk::put_le16(&f[34 + n], static_cast<uint16_t>(sdk::byte_sum16(&f[22], 12 + n) + 0x5555));
    sdk::put_le16(&f[36 + n], sdk::byte_sum16(f.data(), 36 + n));
    return f;
}

// The library's polling frame for card `card` behind `port`.
inline std::vector<uint8_t> poll_request(uint16_t label, uint8_t port, uint16_t card) {
    Target t;
    t.port = port;
    t.card = card;
    return rvcard_request(label, true, board_sim::kPollRegister, 2, {}, t);
}

}  // namespace board_sim_test
