// The seam between the boards and the wire. A transport delivers whole request frames with
// the address to answer, and sends frames back. UDP is one datagram per frame; a stream
// transport (a pty) cuts frames out of its byte stream and ignores the address.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace board_sim {

using FrameSink = std::function<void(const uint8_t *frame, size_t n, const sockaddr_in &from)>;

class Transport {
  public:
    virtual ~Transport() = default;
    virtual int fd() const = 0;
    // Called when fd() is readable; hands every complete frame to `sink`.
    virtual void receive(const FrameSink &sink) = 0;
    virtual bool send(const uint8_t *frame, size_t n, const sockaddr_in &to) = 0;
    virtual std::string name() const = 0;
    // Bursts of noise written before replies (serial transports only).
    virtual uint64_t noise_bursts() const { return 0; }
};

struct SerialOptions {
    bool split = false;    // write each reply in random pieces with short pauses
    double noise_pct = 0;  // percentage of replies preceded by 1..8 noise bytes
    uint32_t seed = 1;
};

// Binds ip:port with address reuse, as the library's channel sockets do, so the library's
// own socket on the same port may coexist. Returns null with `error` set on failure.
std::unique_ptr<Transport> open_udp(const sockaddr_in &local, std::string *error);

// A serial board's line: a new pseudo-terminal whose slave is reachable through the
// symbolic link `link` (replaced if it exists, removed when the transport goes).
std::unique_ptr<Transport> open_pty(const std::string &link, const SerialOptions &options,
                                    std::string *error);

std::string format_address(const sockaddr_in &a);

// "IP:PORT" into an IPv4 address; false on anything else.
bool parse_address(const std::string &text, sockaddr_in *out);

}  // namespace board_sim
