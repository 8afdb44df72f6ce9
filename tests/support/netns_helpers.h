// Small socket helpers for the tests that run in their own network namespace (lo up, an
// "eth0" veth up). Boards are simulated on 127.0.0.x.
#pragma once

#include <arpa/inet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "support/wait.h"
#include "transfer_server.h"

namespace sdk::test {

inline sock_addr_t endpoint(const std::string &ip, uint32_t port) {
    sock_addr_t a{};
    strncpy(a.p_ip, ip.c_str(), sizeof(a.p_ip) - 1);
    a.n_port = port;
    return a;
}

inline sockaddr_in inet(const std::string &ip, uint16_t port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    inet_pton(AF_INET, ip.c_str(), &a.sin_addr);
    return a;
}

inline std::string text_of(const sockaddr_in &a) {
    char ip[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &a.sin_addr, ip, sizeof(ip));
    return std::string(ip) + ":" + std::to_string(ntohs(a.sin_port));
}

// A UDP socket bound to ip:port (-1 when it cannot be bound); reuse lets a simulated
// board share its port number with the library's channels.
inline int udp_socket(const std::string &ip, uint16_t port, bool reuse = true) {
    int fd = socket(AF_INET, SOCK_DGRAM, 0), on = 1;
    if (reuse) setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in a = inet(ip, port);
    if (bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof(a)) == 0) return fd;
    close(fd);
    return -1;
}

inline uint16_t local_port(int fd) {
    sockaddr_in a{};
    socklen_t len = sizeof(a);
    getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len);
    return ntohs(a.sin_port);
}

// The connected peer as "ip:port", "" when none.
inline std::string peer_of(int fd) {
    sockaddr_in a{};
    socklen_t len = sizeof(a);
    return getpeername(fd, reinterpret_cast<sockaddr *>(&a), &len) == 0 ? text_of(a) : "";
}

inline void send_to(int fd, const std::string &text, const std::string &ip, uint16_t port) {
    sockaddr_in a = inet(ip, port);
    sendto(fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr *>(&a), sizeof(a));
}

// The next datagram within timeout_ms, with its sender as "ip:port"; "" when none came.
inline std::string recv_text(int fd, int timeout_ms = 1000, std::string *from = nullptr) {
    pollfd p{fd, POLLIN, 0};
    char buf[2048];
    sockaddr_in a{};
    socklen_t len = sizeof(a);
    ssize_t n = poll(&p, 1, timeout_ms) > 0
                    ? recvfrom(fd, buf, sizeof(buf), 0, reinterpret_cast<sockaddr *>(&a), &len)
                    : -1;
    if (n < 0) return "";
    if (from != nullptr) *from = text_of(a);
    return std::string(buf, static_cast<size_t>(n));
}

// Brings a link up or down (root inside the namespace); when bringing it up, waits until
// it is running again.
inline bool set_link(const char *name, bool up) {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq ifr{};
    strncpy(ifr.ifr_name, name, IFNAMSIZ - 1);
    auto flags = [&] { return ioctl(fd, SIOCGIFFLAGS, &ifr) == 0 ? ifr.ifr_flags : 0; };
    ifr.ifr_flags = static_cast<short>(up ? (flags() | IFF_UP) : (flags() & ~IFF_UP));
    bool ok = ioctl(fd, SIOCSIFFLAGS, &ifr) == 0 &&
              (!up || wait_until([&] { return (flags() & IFF_RUNNING) != 0; }));
    close(fd);
    return ok;
}

// These tests take ports, bring eth0 down and up: only inside the private namespace that
// tests/support/netns_run.sh makes (ctest runs them there), never on a real host network.
inline bool in_private_netns() {
    const char *v = getenv("TRANSFER_IN_NETNS");
    return v != nullptr && std::string(v) == "1";
}

#define SKIP_OUTSIDE_PRIVATE_NETNS() \
    if (!::sdk::test::in_private_netns()) GTEST_SKIP() << "run through tests/support/netns_run.sh"

}  // namespace sdk::test
