// Shared pieces of the fuzz targets: a reader over the input bytes, a small chassis loaded
// into the engine without opening any endpoint, and requests that wait on label lists so
// that replies can match them. Used by the libFuzzer programs and by the regression
// replay of tests/security, so nothing here depends on libFuzzer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "transfer_server.h"

namespace fuzz {

// Consumes the input from its front (p, n: the bytes left); past the end every read
// yields 0.
struct Input {
    const uint8_t *p;
    size_t n;
    uint8_t byte() { return n != 0 ? (--n, *p++) : 0; }
    uint16_t le16() {
        const uint16_t lo = byte();
        return static_cast<uint16_t>(lo | (byte() << 8));
    }
};

// A copy of the bytes in an allocation of exactly their size, so a read past them is caught.
inline std::unique_ptr<uint8_t[]> exact(const void *p, size_t n) {
    std::unique_ptr<uint8_t[]> b(new uint8_t[n != 0 ? n : 1]);
    if (n != 0) memcpy(b.get(), p, n);
    return b;
}

// The chassis of the harnesses (five channels, no endpoint opened):
//   0 slot 100 FPGA UDP, 1 slot 100 MCU UART, 2 slot 100 report REPORT_UDP,
//   3 slot 100 sender-card UDP (PACKET_SENDER, 4 ports of 8 receiving cards),
//   4 slot 101 MCU UART.
constexpr int32_t kVideoUdp = 0, kMainUart = 1, kSenderUdp = 3, kBackplaneUart = 4;
constexpr uint32_t kPorts = 4, kCards = 8;

// Loads the chassis, its label lists, receiving-card structures and the report queue on
// the first call; later calls do nothing. Aborts when the set-up fails.
void load_chassis();

// Requests waiting for their replies, each listed on its channel's label list or on a
// receiving card's list (card_list). The destructor takes them off again, checks what the
// receive paths stored and frees them.
struct Requests {
    ~Requests();
    void add(uint16_t lable, send_lable_manage_t *p_list);
    std::vector<std::pair<packet_data_t *, send_lable_manage_t *>> entries;
};

// The label list of receiving card `card` behind port `port` of the sender channel.
send_lable_manage_t *card_list(uint32_t port, uint32_t card);

// Aborts with a message: an invariant of the code under test does not hold.
[[noreturn]] void fail(const char *what);

}  // namespace fuzz
