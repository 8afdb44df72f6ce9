// The seam between the boards and the wire. A transport delivers whole request frames with
// the address to answer, and sends frames back. UDP is one datagram per frame; a stream
// transport (a pty) would cut frames out of its byte stream and ignore the address.
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
};

// Binds ip:port with address reuse, as the library's channel sockets do, so the library's
// own socket on the same port may coexist. Returns null with `error` set on failure.
std::unique_ptr<Transport> open_udp(const sockaddr_in &local, std::string *error);

std::string format_address(const sockaddr_in &a);

// "IP:PORT" into an IPv4 address; false on anything else.
bool parse_address(const std::string &text, sockaddr_in *out);

}  // namespace board_sim
