// The descriptor sets of the receive threads: each watches the opened channels of one type,
// and a wake pipe through which the host side makes it look at the channel table again.
#pragma once

#include <sys/select.h>

#include "channel/transport.h"
#include "transfer_server.h"

namespace sdk {

// A channel's descriptor is published with an atomic store when a channel opens while the
// workers run (a start-up retry); the receive threads read it with this load.
inline int channel_fd(const transfer_data_t &ch) {
    return __atomic_load_n(&ch.n_fd, __ATOMIC_ACQUIRE);
}

// The channel is open and read by receive thread r. Settled: unopened channels (negative
// descriptor) and descriptors that select cannot watch stay out of every set.
inline bool channel_watched(const transfer_data_t &ch, Receiver r) {
    const Transport *t = transport_of(ch.n_type);
    const int n_fd = channel_fd(ch);
    return t != nullptr && t->receiver == r && n_fd >= 0 && n_fd < FD_SETSIZE;
}

// The channel is watched and select found it readable.
inline bool channel_ready(const transfer_data_t &ch, Receiver r, const fd_set &set) {
    return channel_watched(ch, r) && FD_ISSET(channel_fd(ch), &set);
}

// Fills the set with the channels the receiver watches; *p_max_fd only ever grows.
inline void channel_fd_set(Receiver r, fd_set *p_set, int *p_max_fd) {
    FD_ZERO(p_set);
    for (int32_t i = 0; i < g_st_transfer.n_num; ++i) {
        const transfer_data_t &ch = g_st_transfer.st_info[i];
        if (!channel_watched(ch, r)) continue;
        const int n_fd = channel_fd(ch);
        FD_SET(n_fd, p_set);
        if (n_fd > *p_max_fd) *p_max_fd = n_fd;
    }
}

// Puts the thread's wake pipe into its set (made on first use).
void wake_pipe_add(Receiver r, fd_set *p_set, int *p_max_fd);
// True, and the pipe drained, when select found the thread's wake pipe readable.
bool wake_pipe_taken(Receiver r, const fd_set &set);
// Makes the thread's select or epoll wait return so that it builds its set again, or sees
// that the engine stops.
void wake_receiver(Receiver r);
// The read end of the thread's wake pipe (-1 when it could not be made), and its draining.
int wake_pipe_fd(Receiver r);
void wake_pipe_drain(Receiver r);

}  // namespace sdk
