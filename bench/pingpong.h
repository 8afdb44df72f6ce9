// The plain reference of the engine's round trip: a connected UDP socket that sends the
// engine's read frame to a simulated board and waits for the reply of the same label.
#pragma once

#include <cstdint>
#include <vector>

namespace bench {

class UdpPingPong {
  public:
    UdpPingPong() = default;
    ~UdpPingPong();
    UdpPingPong(const UdpPingPong &) = delete;
    UdpPingPong &operator=(const UdpPingPong &) = delete;
    // Connects to the board of sub-card `slot`; `first_label` starts the label sequence.
    // False (with a message on stderr) on failure.
    bool open(int slot, uint16_t first_label = 1);
    // One round trip: true when the reply of the frame's label came within the engine's
    // time-out of the same reads (2 s).
    bool one();

  private:
    int fd_ = -1;
    uint16_t label_ = 1;
    std::vector<uint8_t> rbuf_ = std::vector<uint8_t>(65536);
};

}  // namespace bench
