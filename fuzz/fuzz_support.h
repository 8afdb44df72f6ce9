// Shared pieces of the fuzz targets: a reader over the input bytes, a small chassis loaded
// into the engine without opening any endpoint, and requests that wait on label lists so
// that replies can match them. Used by the libFuzzer programs and by the regression
// replay of tests/security, so nothing here depends on libFuzzer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "transfer_server.h"

namespace fuzz {

// Consumes the input from its front; past the end every read yields 0.
class Input {
  public:
    Input(const uint8_t *data, size_t size) : p_(data), n_(size) {}
    uint8_t byte() {
        if (n_ == 0) return 0;
        --n_;
        return *p_++;
    }
    uint16_t le16() {
        const uint16_t lo = byte();
        return static_cast<uint16_t>(lo | (byte() << 8));
    }
    const uint8_t *rest() const { return p_; }
    size_t left() const { return n_; }

  private:
    const uint8_t *p_;
    size_t n_;
};

// The chassis of the harnesses (five channels, no endpoint opened):
//   0 slot 100 FPGA UDP, 1 slot 100 MCU UART, 2 slot 100 report REPORT_UDP,
//   3 slot 100 sender-card UDP (PACKET_SENDER, 4 ports of 8 receiving cards),
//   4 slot 101 MCU UART.
constexpr int32_t kVideoUdp = 0;
constexpr int32_t kMainUart = 1;
constexpr int32_t kSenderUdp = 3;
constexpr int32_t kBackplaneUart = 4;
constexpr uint32_t kPorts = 4;
constexpr uint32_t kCards = 8;

// Loads the chassis, its label lists, receiving-card structures and the report queue on
// the first call; later calls do nothing. Aborts when the set-up fails.
void load_chassis();

// Drops every queued report.
void drain_reports();

// Requests waiting for their replies. A request is listed on its channel's label list,
// or on a receiving card's list; end() takes them off again, checks what the receive
// paths stored and frees them.
class Requests {
  public:
    Requests() = default;
    Requests(const Requests &) = delete;
    Requests &operator=(const Requests &) = delete;
    ~Requests() { end(); }
    void add(uint16_t lable, send_lable_manage_t *p_list);
    void end();

  private:
    struct Entry {
        packet_data_t *p;
        send_lable_manage_t *p_list;
    };
    std::vector<Entry> entries_;
};

// The label list of receiving card `card` behind port `port` of the sender channel.
send_lable_manage_t *card_list(uint32_t port, uint32_t card);

// Aborts with a message: an invariant of the code under test does not hold.
[[noreturn]] void fail(const char *what);

}  // namespace fuzz
