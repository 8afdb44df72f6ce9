// The epoll loop shared by the network and report receive threads.
#include "channel/receive_loop.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <cerrno>
#include <vector>

#include "channel/channel_fds.h"
#include "common/log.h"
#include "engine/state.h"

namespace sdk {

namespace {

constexpr uint32_t kWakeTag = UINT32_MAX;
constexpr useconds_t kErrorPauseUs = 1000;
constexpr int kMaxEvents = 64;

// The epoll descriptor of each receive thread while it runs, -1 otherwise. A caller that
// pauses or resumes a channel holds the lock, so the thread never closes the descriptor
// under it.
int g_epoll[3] = {-1, -1, -1};
std::mutex g_epoll_lock[3];

void watch(Receiver r, uint32_t n_channel, int n_fd, uint32_t n_events) {
    std::lock_guard<std::mutex> lock(g_epoll_lock[static_cast<int>(r)]);
    const int ep = g_epoll[static_cast<int>(r)];
    if (ep < 0) return;
    epoll_event ev{};
    ev.events = n_events;
    ev.data.u32 = n_channel;
    epoll_ctl(ep, EPOLL_CTL_MOD, n_fd, &ev);
}

// Registers the open channels of r and the wake pipe; forgets the previous set.
void rebuild(int ep, Receiver r, std::vector<int> *p_fds) {
    for (int fd : *p_fds)
        epoll_ctl(ep, EPOLL_CTL_DEL, fd, nullptr);
    p_fds->clear();
    auto add = [&](int fd, uint32_t tag) {
        epoll_event ev{};
        ev.events = EPOLLIN;
        ev.data.u32 = tag;
        if (epoll_ctl(ep, EPOLL_CTL_ADD, fd, &ev) == 0) p_fds->push_back(fd);
    };
    for (int32_t i = 0; i < g_st_transfer.n_num; ++i) {
        const transfer_data_t &ch = g_st_transfer.st_info[i];
        if (channel_watched(ch, r)) add(channel_fd(ch), static_cast<uint32_t>(i));
    }
    add(wake_pipe_fd(r), kWakeTag);
}

}  // namespace

void receive_pause(Receiver r, uint32_t n_channel, int n_fd) {
    watch(r, n_channel, n_fd, 0);
}

void receive_resume(Receiver r, uint32_t n_channel, int n_fd) {
    watch(r, n_channel, n_fd, EPOLLIN);
}

void receive_loop(Receiver r, const ReceivePass &pass) {
    const int ep = epoll_create1(EPOLL_CLOEXEC);
    if (ep < 0) {
        TLOGE("select error");
        return;
    }
    {
        std::lock_guard<std::mutex> lock(g_epoll_lock[static_cast<int>(r)]);
        g_epoll[static_cast<int>(r)] = ep;
    }
    std::vector<int> fds;
    std::vector<uint32_t> ready;
    bool b_rebuild = true;
    while (!stopping()) {
        if (b_rebuild) rebuild(ep, r, &fds);
        b_rebuild = false;
        epoll_event ev[kMaxEvents];
        const int n = epoll_wait(ep, ev, kMaxEvents, -1);
        if (n < 0) {
            if (errno == EINTR) continue;
            TLOGE("select error");
            usleep(kErrorPauseUs);
            continue;
        }
        ready.clear();
        for (int k = 0; k < n; ++k) {
            if (ev[k].data.u32 == kWakeTag) {
                wake_pipe_drain(r);
                b_rebuild = true;
            } else {
                ready.push_back(ev[k].data.u32);
            }
        }
        if (stopping()) break;
        if (ready.empty()) continue;
        // Channels are served in index order, as the table lists them.
        std::sort(ready.begin(), ready.end());
        int32_t n_ret = 0;
        for (uint32_t i : ready) {
            if (!pass.serve(i, &n_ret)) break;
        }
        pass.after(n_ret);
    }
    std::lock_guard<std::mutex> lock(g_epoll_lock[static_cast<int>(r)]);
    g_epoll[static_cast<int>(r)] = -1;
    close(ep);
}

}  // namespace sdk
