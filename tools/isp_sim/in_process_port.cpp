// The in-process transport of the simulated bootloader.
#include "isp_sim/in_process_port.h"

#include <mutex>
#include <thread>

namespace isp_sim {

namespace {

std::mutex g_lock;
Bootloader *g_bootloader = nullptr;  // guarded by g_lock
std::chrono::milliseconds g_timeout{100};

}  // namespace

InProcessPort::InProcessPort(Bootloader *bootloader, std::chrono::milliseconds read_timeout) {
    std::lock_guard<std::mutex> guard(g_lock);
    g_bootloader = bootloader;
    g_timeout = read_timeout;
}

InProcessPort::~InProcessPort() {
    std::lock_guard<std::mutex> guard(g_lock);
    g_bootloader = nullptr;
}

int InProcessPort::write(unsigned char *buf, uint16_t len) {
    std::lock_guard<std::mutex> guard(g_lock);
    if (g_bootloader == nullptr || (buf == nullptr && len > 0)) return -1;
    g_bootloader->feed(buf, len);
    return len;
}

int InProcessPort::read(unsigned char *buf, uint16_t len) {
    using Clock = Bootloader::Clock;
    std::unique_lock<std::mutex> guard(g_lock);
    if (g_bootloader == nullptr || (buf == nullptr && len > 0)) return -1;
    const auto deadline = Clock::now() + g_timeout;
    size_t got = 0;
    for (;;) {
        got += g_bootloader->take(buf + got, len - got);
        if (got == len) break;
        const auto now = Clock::now();
        if (now >= deadline) break;
        auto wake = deadline;
        auto due = g_bootloader->next_due();
        if (due && *due < wake) wake = *due;
        // Nothing but time makes answers due here: sleep without the lock.
        guard.unlock();
        std::this_thread::sleep_until(wake);
        guard.lock();
        if (g_bootloader == nullptr) return -1;
    }
    return static_cast<int>(got);
}

}  // namespace isp_sim
