// The descriptor sets of the receive threads: each watches the opened channels of one type.
#pragma once

#include <sys/select.h>

#include "transfer_server.h"

namespace sdk {

// Settled: unopened channels (negative descriptor) and descriptors that select cannot watch stay
// out of every set.
inline bool channel_watched(const transfer_data_t &ch, json_type_tbl e_type) {
    return ch.n_type == e_type && ch.n_fd >= 0 && ch.n_fd < FD_SETSIZE;
}

// Fills the set with the watched channels of the type; *p_max_fd only ever grows.
inline void channel_fd_set(json_type_tbl e_type, fd_set *p_set, int *p_max_fd) {
    FD_ZERO(p_set);
    for (int32_t i = 0; i < g_st_transfer.n_num; ++i) {
        const transfer_data_t &ch = g_st_transfer.st_info[i];
        if (!channel_watched(ch, e_type)) continue;
        FD_SET(ch.n_fd, p_set);
        if (ch.n_fd > *p_max_fd) *p_max_fd = ch.n_fd;
    }
}

}  // namespace sdk
