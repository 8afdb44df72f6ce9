#include "pingpong.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>

#include "chassis.h"
#include "requests.h"

namespace bench {

UdpPingPong::~UdpPingPong() {
    if (fd_ >= 0) close(fd_);
}

bool UdpPingPong::open(int slot, uint16_t first_label) {
    label_ = first_label;
    fd_ = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(board_port(slot)));
    inet_pton(AF_INET, board_ip(slot).c_str(), &to.sin_addr);
    if (fd_ < 0 || connect(fd_, reinterpret_cast<sockaddr *>(&to), sizeof(to)) != 0) {
        perror("bench: ping-pong socket");
        return false;
    }
    return true;
}

bool UdpPingPong::one() {
    const std::vector<uint8_t> f = read_frame(label_++);
    if (send(fd_, f.data(), f.size(), 0) != static_cast<ssize_t>(f.size())) return false;
    pollfd p{fd_, POLLIN, 0};
    if (poll(&p, 1, 2000) != 1) return false;
    const ssize_t n = recv(fd_, rbuf_.data(), rbuf_.size(), 0);
    return n >= 34 && rbuf_[6] == f[6] && rbuf_[7] == f[7];
}

}  // namespace bench
