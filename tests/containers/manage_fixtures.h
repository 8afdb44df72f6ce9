// Test helpers: a small channel table, and freeing what the initialisers made (the engine
// never tears its containers down, but LeakSanitizer checks the tests).
#pragma once

#include <cstdlib>
#include <vector>

#include "transfer_manage.h"

namespace test {

template <class List>
void free_nodes(List *list) {
    for (auto *node = list->p_info_head; node != nullptr;) {
        auto *next = node->p_st_next;
        free(node);
        node = next;
    }
}

inline void free_frames(send_queue_t *q) {
    for (; q->st_general.n_len > 0; q->st_general.n_len--) {
        queue_node_t *node = q->p_front;
        q->p_front = node->p_next;
        free(node->p_data);
        free(node);
    }
}

// Channel i has packet code type types[i]; one list per manager unless told otherwise.
struct Config {
    std::vector<transfer_data_t> channels;
    transfer_info_t info{};

    explicit Config(std::vector<packet_code_type> types, uint32_t eths = 0, uint32_t cards = 0,
                    uint32_t lists = 1)
        : channels(types.size()) {
        for (size_t i = 0; i < types.size(); i++) {
            channels[i].e_packet_code_type = types[i];
            channels[i].n_fd = 100 + static_cast<int32_t>(i);
        }
        info.st_info = channels.data();
        info.n_num = static_cast<int32_t>(channels.size());
        info.st_format = {1, lists, 1, lists, eths, cards};
    }
    Config(const Config &) = delete;
    Config &operator=(const Config &) = delete;
    ~Config() {
        for (transfer_data_t &ch : channels) {
            free_nodes(&ch.p_list);
            for (int32_t e = 0; e < ch.p_rvcard_manage.n_max_eth_num; e++) {
                rvcard_eth_queue_manage_t *port = ch.p_rvcard_manage.p_eth_list[e];
                for (int32_t r = 0; r < port->n_max_rvcard_num; r++) {
                    if (port->p_queue[r] != nullptr) free_frames(port->p_queue[r]);
                    free(port->p_queue[r]);
                    if (port->p_list != nullptr) free_nodes(port->p_list[r]);
                    if (port->p_list != nullptr) free(port->p_list[r]);
                }
                free(port->p_queue);
                free(port->p_list);
                free(port);
            }
            free(ch.p_rvcard_manage.p_eth_list);
        }
    }
};

template <class Manager>
void free_manager(Manager *m) {
    for (uint32_t i = 0; i < static_cast<uint32_t>(m->n_list_num); i++) {
        free_nodes(m->p_list[i]);
        free(m->p_list[i]);
    }
    free(m->p_list);
    sem_destroy(&m->sem);
}

inline void free_sender_queues(send_queue_list_t *ql) {
    for (uint32_t i = 0; i < ql->n_num; i++)
        free_frames(&ql->p_queue[i]);
    free(ql->p_queue);
}

}  // namespace test
