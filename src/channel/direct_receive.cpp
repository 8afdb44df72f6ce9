// The caller's own receive on its request's channel.
#include "channel/direct_receive.h"

#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "channel/channel_fds.h"
#include "channel/net_datagram.h"
#include "channel/receive_loop.h"
#include "common/log.h"
#include "engine/ending.h"
#include "engine/state.h"

namespace sdk {

namespace {

// Per channel: the wake descriptor of the caller that owns it, -1 when none does. Made at
// start-up and freed at teardown, which waits until no caller is in here (g_n_inside).
std::unique_ptr<std::atomic<int>[]> g_owners;
int32_t g_n_owners = 0;
std::atomic<int> g_n_inside{0};

// Settled: wake descriptors are made on a thread's first wait and, when the thread ends,
// kept for the next thread instead of closed. An ender may still write to a descriptor
// it looked up just before its owner let go; a kept descriptor takes that write as one
// spurious wake-up, where a closed one's number could already belong to another file.
// The number of descriptors is the largest number of threads that waited at once.
struct WakeFds {
    std::mutex lock;
    std::vector<int> kept;
};

WakeFds &wake_fds() {
    static WakeFds *p = new WakeFds;  // never destroyed: threads may end after exit()
    return *p;
}

struct ThreadWake {
    int fd = -1;
    ThreadWake() {
        WakeFds &w = wake_fds();
        std::lock_guard<std::mutex> guard(w.lock);
        if (!w.kept.empty()) {
            fd = w.kept.back();
            w.kept.pop_back();
        }
    }
    ~ThreadWake() {
        if (fd < 0) return;
        WakeFds &w = wake_fds();
        std::lock_guard<std::mutex> guard(w.lock);
        w.kept.push_back(fd);
    }
    ThreadWake(const ThreadWake &) = delete;
    ThreadWake &operator=(const ThreadWake &) = delete;
};

// The calling thread's wake descriptor once it has one (a plain thread-local copy, so
// that looking at it makes nothing).
thread_local int t_own_wake = -1;

// The calling thread's wake descriptor, made (or taken from those kept) on first use.
int thread_wake_fd() {
    static thread_local ThreadWake wake;
    if (wake.fd < 0) wake.fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    t_own_wake = wake.fd;
    return wake.fd;
}

}  // namespace

bool direct_receive_setup(bool b_make) {
    g_owners.reset();
    g_n_owners = 0;
    if (!b_make || g_st_transfer.n_num <= 0) return true;
    g_owners.reset(new (std::nothrow) std::atomic<int>[static_cast<size_t>(g_st_transfer.n_num)]);
    if (!g_owners) return false;
    for (int32_t i = 0; i < g_st_transfer.n_num; ++i)
        g_owners[i].store(-1, std::memory_order_relaxed);
    g_n_owners = g_st_transfer.n_num;
    return true;
}

void direct_receive_drain() {
    while (g_n_inside.load(std::memory_order_seq_cst) != 0)
        sched_yield();
}

ChannelClaim::ChannelClaim(uint32_t n_channel) : n_channel_(n_channel) {
    // Counted in while the hold object lives, so the table stays (direct_receive_drain).
    g_n_inside.fetch_add(1, std::memory_order_seq_cst);
    if (stopping() || !g_owners || n_channel >= static_cast<uint32_t>(g_n_owners)) return;
    const transfer_data_t &ch = g_st_transfer.st_info[n_channel];
    n_sock_ = channel_fd(ch);
    const int n_wake = thread_wake_fd();
    if (!channel_watched(ch, Receiver::kNet) || n_wake < 0) return;
    // The owner's claim and an ender's look at it (wake_direct_receiver) are both
    // read-modify-writes of the same word: whichever comes second sees the first, so a
    // request that ends meanwhile is either seen ended below or wakes the owner.
    int n_free = -1;
    if (!g_owners[n_channel].compare_exchange_strong(n_free, n_wake, std::memory_order_acq_rel))
        return;
    n_wake_ = n_wake;
    receive_pause(Receiver::kNet, n_channel, n_sock_);
}

ChannelClaim::~ChannelClaim() {
    if (n_wake_ >= 0) {
        g_owners[n_channel_].store(-1, std::memory_order_seq_cst);
        receive_resume(Receiver::kNet, n_channel_, n_sock_);
    }
    g_n_inside.fetch_sub(1, std::memory_order_seq_cst);
}

void ChannelClaim::serve_until_released(InFlight *x) {
    if (n_wake_ < 0 || x->rec.p_packet.n_channel_id != n_channel_) return;
    const uint32_t n_channel = n_channel_;
    const int n_sock = n_sock_;
    const int n_wake = n_wake_;
    while (!released(x) && !stopping()) {
        pollfd fds[2] = {{n_sock, POLLIN, 0}, {n_wake, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) continue;
        if ((fds[1].revents & POLLIN) != 0) {
            uint64_t n_count = 0;
            ssize_t ignored = read(n_wake, &n_count, sizeof n_count);
            (void)ignored;
        }
        if ((fds[0].revents & (POLLIN | POLLERR)) != 0) {
            int32_t n_ret = 0;
            serve_datagram(n_channel, &n_ret);
            if (n_ret < 0) TLOGE("recv error");
        }
    }
}

void receive_until_released(InFlight *x) {
    ChannelClaim claim(x->rec.p_packet.n_channel_id);
    claim.serve_until_released(x);
}

void wake_direct_receiver(uint32_t n_channel) {
    if (!g_owners || n_channel >= static_cast<uint32_t>(g_n_owners)) return;
    const int n_wake = g_owners[n_channel].fetch_add(0, std::memory_order_acq_rel);
    // The owner itself ends requests while it serves the channel: it looks at its own
    // request again anyway before it waits, so it needs no wake-up (a write, then a read
    // and another poll, per round trip).
    if (n_wake < 0 || n_wake == t_own_wake) return;
    const uint64_t n_one = 1;
    ssize_t ignored = write(n_wake, &n_one, sizeof n_one);
    (void)ignored;
}

}  // namespace sdk
