#include "serial_device.h"

#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <vector>

namespace bench {

PtyBoard::PtyBoard() {
    char name[128] = {};
    if (openpty(&master_, &slave_, name, nullptr, nullptr) != 0) {
        master_ = slave_ = -1;
        return;
    }
    termios t{};
    tcgetattr(master_, &t);
    cfmakeraw(&t);
    tcsetattr(master_, TCSANOW, &t);
    slave_path_ = name;
    thread_ = std::thread([this] { run(); });
}

PtyBoard::~PtyBoard() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (master_ >= 0) close(master_);
    if (slave_ >= 0) close(slave_);
}

void PtyBoard::run() {
    std::vector<uint8_t> held;
    uint8_t buf[4096];
    while (!stop_) {
        pollfd p{master_, POLLIN, 0};
        if (poll(&p, 1, 50) <= 0) continue;
        const ssize_t n = read(master_, buf, sizeof(buf));
        if (n <= 0) continue;
        held.insert(held.end(), buf, buf + n);
        size_t at = 0;
        // Request frames begin 0x55 0xBB; the length field counts the bytes after the
        // 10-byte header.
        while (held.size() - at >= 10) {
            if (held[at] != 0x55 || held[at + 1] != 0xBB) {
                ++at;
                continue;
            }
            const size_t len = 10u + (held[at + 8] | (held[at + 9] << 8));
            if (held.size() - at < len) break;
            std::vector<uint8_t> reply = board_.handle(&held[at], len, &stats_);
            if (reply.size() >= 2) {
                reply[0] = 0xBB;  // same bytes, so the byte sum is unchanged
                reply[1] = 0x55;
                if (write(master_, reply.data(), reply.size()) < 0) break;
            }
            at += len;
        }
        held.erase(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(at));
    }
}

}  // namespace bench
