#include "support/pty.h"

#include <dirent.h>
#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace sdk::test {

PtyPair::PtyPair() {
    char name[256] = "";
    if (openpty(&master_, &slave_, name, nullptr, nullptr) != 0)
        throw std::runtime_error("openpty failed");
    path_ = name;
}

PtyPair::~PtyPair() {
    close(slave_);
    close(master_);
}

termios PtyPair::slave_attrs() const {
    termios tio{};
    if (tcgetattr(slave_, &tio) != 0) throw std::runtime_error("tcgetattr on the slave failed");
    return tio;
}

void PtyPair::send(const std::vector<uint8_t> &bytes) const {
    for (size_t done = 0; done < bytes.size();) {
        ssize_t n = write(master_, bytes.data() + done, bytes.size() - done);
        if (n <= 0 && errno != EINTR) throw std::runtime_error("write on the pty master failed");
        done += n > 0 ? static_cast<size_t>(n) : 0;
    }
}

std::vector<uint8_t> PtyPair::receive(size_t n, int timeout_ms) const {
    std::vector<uint8_t> out;
    uint8_t buf[4096];
    while (out.size() < n && wait_readable(master_, timeout_ms)) {
        ssize_t got = read(master_, buf, std::min(n - out.size(), sizeof(buf)));
        if (got <= 0 && errno != EINTR) break;
        if (got > 0) out.insert(out.end(), buf, buf + got);
    }
    return out;
}

void PtyPair::drain() const {
    uint8_t buf[4096];
    while (wait_readable(master_, 0) && read(master_, buf, sizeof(buf)) > 0) {
    }
}

bool wait_readable(int fd, int timeout_ms) {
    pollfd p{fd, POLLIN, 0};
    int r;
    do {
        r = poll(&p, 1, timeout_ms);
    } while (r < 0 && errno == EINTR);
    return r > 0 && (p.revents & POLLIN) != 0;
}

int open_fd_count() {
    DIR *d = opendir("/proc/self/fd");
    if (d == nullptr) return -1;
    int n = -1;  // the directory's own descriptor
    while (dirent *e = readdir(d))
        n += e->d_name[0] != '.';
    closedir(d);
    return n;
}

}  // namespace sdk::test
