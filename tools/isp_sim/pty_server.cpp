// The pseudo-terminal transport of the simulated bootloader.
#include "isp_sim/pty_server.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>

namespace isp_sim {

namespace {

constexpr int kParentCheckMs = 200;

void close_fd(int *fd) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
}

}  // namespace

PtyServer::PtyServer(Config cfg) : bootloader_(std::move(cfg)) {}

PtyServer::~PtyServer() {
    stop();
    close_fd(&master_);
    close_fd(&slave_);
    close_fd(&wake_pipe_[0]);
    close_fd(&wake_pipe_[1]);
}

bool PtyServer::open() {
    char name[PATH_MAX] = {};
    if (openpty(&master_, &slave_, name, nullptr, nullptr) != 0) return false;
    // Raw slave: no echo, no line editing, no CR/LF translation of the binary protocol.
    termios tio{};
    if (tcgetattr(slave_, &tio) != 0) return false;
    cfmakeraw(&tio);
    if (tcsetattr(slave_, TCSANOW, &tio) != 0) return false;
    if (pipe2(wake_pipe_, O_CLOEXEC | O_NONBLOCK) != 0) return false;
    fcntl(master_, F_SETFD, FD_CLOEXEC);
    fcntl(slave_, F_SETFD, FD_CLOEXEC);
    fcntl(master_, F_SETFL, fcntl(master_, F_GETFL) | O_NONBLOCK);
    slave_path_ = name;
    return true;
}

void PtyServer::wake() {
    if (wake_pipe_[1] >= 0) {
        const char b = 1;
        ssize_t r = write(wake_pipe_[1], &b, 1);
        (void)r;  // a full pipe already holds a wake-up
    }
}

void PtyServer::request_dump() {
    dump_ = true;
    wake();
}

void PtyServer::request_stop() {
    stop_ = true;
    wake();
}

void PtyServer::stop() {
    request_stop();
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

void PtyServer::start() {
    stop_ = false;
    thread_ = std::thread([this] { run(); });
}

void PtyServer::dump() {
    if (dump_path_.empty()) return;
    bool ok;
    {
        std::lock_guard<std::mutex> guard(lock_);
        ok = bootloader_.dump_flash(dump_path_);
    }
    printf(ok ? "dumped %s\n" : "cannot dump to %s\n", dump_path_.c_str());
    fflush(stdout);
}

void PtyServer::run() {
    std::vector<uint8_t> pending;  // answer bytes due but not yet taken by the pty
    uint8_t buf[4096];
    while (!stop_) {
        int timeout = parent_ != 0 ? kParentCheckMs : -1;
        {
            std::lock_guard<std::mutex> guard(lock_);
            auto due = bootloader_.next_due();
            if (due) {
                auto ms =
                    std::chrono::ceil<std::chrono::milliseconds>(*due - Bootloader::Clock::now())
                        .count();
                if (ms < 0) ms = 0;
                if (timeout < 0 || ms < timeout) timeout = static_cast<int>(ms);
            }
        }
        pollfd fds[2] = {{master_, static_cast<short>(POLLIN | (pending.empty() ? 0 : POLLOUT)), 0},
                         {wake_pipe_[0], POLLIN, 0}};
        int n = poll(fds, 2, timeout);
        if (n < 0 && errno != EINTR) break;
        if (parent_ != 0 && getppid() != parent_) break;
        if (n > 0 && (fds[1].revents & POLLIN)) {
            while (read(wake_pipe_[0], buf, sizeof(buf)) > 0) {
            }
        }
        if (dump_.exchange(false)) dump();
        if (n > 0 && (fds[0].revents & POLLIN)) {
            ssize_t got = read(master_, buf, sizeof(buf));
            if (got > 0) {
                std::lock_guard<std::mutex> guard(lock_);
                bootloader_.feed(buf, static_cast<size_t>(got));
            }
        }
        {
            std::lock_guard<std::mutex> guard(lock_);
            size_t got;
            while ((got = bootloader_.take(buf, sizeof(buf))) > 0) {
                pending.insert(pending.end(), buf, buf + got);
            }
        }
        if (!pending.empty()) {
            // The master is non-blocking: a client that stops reading cannot wedge the
            // server, the rest waits for POLLOUT.
            ssize_t put = write(master_, pending.data(), pending.size());
            if (put > 0) pending.erase(pending.begin(), pending.begin() + put);
        }
    }
    dump();
}

std::vector<uint8_t> PtyServer::flash() const {
    std::lock_guard<std::mutex> guard(lock_);
    return bootloader_.flash();
}

std::vector<uint8_t> PtyServer::received() const {
    std::lock_guard<std::mutex> guard(lock_);
    return bootloader_.received();
}

std::vector<WriteRecord> PtyServer::writes() const {
    std::lock_guard<std::mutex> guard(lock_);
    return bootloader_.writes();
}

Stats PtyServer::stats() const {
    std::lock_guard<std::mutex> guard(lock_);
    return bootloader_.stats();
}

}  // namespace isp_sim
