#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "board_sim/transport.h"

namespace board_sim {

namespace {

constexpr size_t kMaxDatagram = 65536;

class UdpTransport : public Transport {
  public:
    UdpTransport(int fd, const sockaddr_in &local) : fd_(fd), local_(local), buf_(kMaxDatagram) {}
    ~UdpTransport() override { close(fd_); }
    UdpTransport(const UdpTransport &) = delete;
    UdpTransport &operator=(const UdpTransport &) = delete;

    int fd() const override { return fd_; }

    // One datagram per readiness: the wait is level-triggered, so a board with more waiting
    // is reported ready again, in turn with the others, and no read ends in EAGAIN.
    void receive(const FrameSink &sink) override {
        sockaddr_in from{};
        socklen_t from_len = sizeof from;
        const ssize_t n = recvfrom(fd_, buf_.data(), buf_.size(), 0,
                                   reinterpret_cast<sockaddr *>(&from), &from_len);
        if (n < 0) return;  // EAGAIN, or an ICMP error of an earlier send
        sink(buf_.data(), static_cast<size_t>(n), from);
    }

    bool send(const uint8_t *frame, size_t n, const sockaddr_in &to) override {
        return sendto(fd_, frame, n, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to) ==
               static_cast<ssize_t>(n);
    }

    std::string name() const override { return "udp " + format_address(local_); }

  private:
    int fd_;
    sockaddr_in local_;
    std::vector<uint8_t> buf_;
};

}  // namespace

std::string format_address(const sockaddr_in &a) {
    char ip[INET_ADDRSTRLEN] = "?";
    inet_ntop(AF_INET, &a.sin_addr, ip, sizeof ip);
    return std::string(ip) + ":" + std::to_string(ntohs(a.sin_port));
}

bool parse_address(const std::string &text, sockaddr_in *out) {
    size_t colon = text.rfind(':');
    if (colon == std::string::npos) return false;
    std::string ip = text.substr(0, colon);
    std::string port = text.substr(colon + 1);
    char *end = nullptr;
    errno = 0;
    unsigned long p = std::strtoul(port.c_str(), &end, 10);
    if (port.empty() || *end != 0 || errno != 0 || p == 0 || p > 65535) return false;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(p));
    if (inet_pton(AF_INET, ip.c_str(), &a.sin_addr) != 1) return false;
    *out = a;
    return true;
}

std::unique_ptr<Transport> open_udp(const sockaddr_in &local, std::string *error) {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *error = std::string("socket: ") + strerror(errno);
        return nullptr;
    }
    int one = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0 ||
        bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) != 0) {
        *error = "bind " + format_address(local) + ": " + strerror(errno);
        close(fd);
        return nullptr;
    }
    return std::make_unique<UdpTransport>(fd, local);
}

}  // namespace board_sim
