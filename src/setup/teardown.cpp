// Taking a half-built engine apart: what start-up allocated and opened before a step
// failed. Used by start-up so that a failed attempt leaves the library as if it had never
// been called, and a host can retry (for instance once eth0 is up).
//
// Every container may be only partly built (a step fails half-way); each free tolerates
// NULL pointers and zero counts. No worker thread runs and no request exists while this
// runs, so list nodes hold no requests and nothing is locked.
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "channel/direct_receive.h"
#include "transfer_server.h"
#include "engine/record_cache.h"
#include "engine/state.h"
#include "engine/stats.h"
#include "uart.h"

namespace {

// A dlist with its sentinel (label, monitor and send lists): nodes, sentinel, lock.
template <class List>
void free_dlist(List *p_list) {
    if (p_list == nullptr) return;
    auto *p_node = p_list->p_info_head;
    while (p_node != nullptr) {
        auto *p_next = p_node->p_st_next;
        free(p_node);
        p_node = p_next;
    }
    p_list->p_info_head = nullptr;
    p_list->p_info_end = nullptr;
    pthread_mutex_destroy(&p_list->st_lock);
}

template <class Manager>
void free_manager(Manager *p_manage) {
    if (p_manage->p_list != nullptr) {
        for (uint32_t i = 0; i < static_cast<uint32_t>(p_manage->n_list_num); ++i) {
            free_dlist(p_manage->p_list[i]);
            free(p_manage->p_list[i]);
        }
        free(static_cast<void *>(p_manage->p_list));
    }
    sem_destroy(&p_manage->sem);
    pthread_cond_destroy(&p_manage->st_send_wait_signal);
    pthread_mutex_destroy(&p_manage->st_send_wait_lock);
    pthread_mutex_destroy(&p_manage->st_count_lock);
    memset(static_cast<void *>(p_manage), 0, sizeof(*p_manage));
}

void free_queue_nodes(send_queue_t *p_queue) {
    queue_node_t *p_node = p_queue->st_general.n_len != 0 ? p_queue->p_front : nullptr;
    while (p_node != nullptr) {
        queue_node_t *p_next = p_node->p_next;
        free(p_node->p_data);
        free(p_node);
        p_node = p_next;
    }
    pthread_mutex_destroy(&p_queue->st_lock);
}

void free_port(rvcard_eth_queue_manage_t *p_port) {
    if (p_port == nullptr) return;
    const auto n_cards =
        static_cast<uint32_t>(p_port->n_max_rvcard_num > 0 ? p_port->n_max_rvcard_num : 0);
    for (uint32_t r = 0; r < n_cards; ++r) {
        if (p_port->p_queue != nullptr && p_port->p_queue[r] != nullptr) {
            free_queue_nodes(p_port->p_queue[r]);
            free(p_port->p_queue[r]);
        }
        if (p_port->p_list != nullptr && p_port->p_list[r] != nullptr) {
            free_dlist(p_port->p_list[r]);
            free(p_port->p_list[r]);
        }
    }
    free(static_cast<void *>(p_port->p_queue));
    free(static_cast<void *>(p_port->p_list));
    pthread_mutex_destroy(&p_port->st_lock);
    free(p_port);
}

void free_channel(transfer_data_t *ch) {
    if (ch->n_fd >= 0 && ch->n_type != 0) {
        if (ch->n_type == UART && n_mcu_isp_uart_fd == static_cast<uint32_t>(ch->n_fd))
            n_mcu_isp_uart_fd = static_cast<uint32_t>(-1);
        close(ch->n_fd);
    }
    ch->n_fd = -1;
    free_dlist(&ch->p_list);
    rvcard_send_queue_manage_t &m = ch->p_rvcard_manage;
    if (m.p_eth_list != nullptr) {
        for (int32_t e = 0; e < m.n_max_eth_num; ++e)
            free_port(m.p_eth_list[e]);
        free(static_cast<void *>(m.p_eth_list));
    }
}

}  // namespace

namespace sdk {

void engine_teardown() {
    direct_receive_setup(false);
    // Reports: none can have arrived (no thread ran), but the queue is emptied all the same.
    while (g_st_report_queue.n_len != 0 && sdk_report_queue_pull(&g_st_report_queue) == 0) {
    }
    pthread_mutex_destroy(&g_st_report_queue.st_lock);
    memset(static_cast<void *>(&g_st_report_queue), 0, sizeof(g_st_report_queue));

    if (g_st_sender_queue.p_queue != nullptr) {
        for (uint32_t i = 0; i < g_st_sender_queue.n_num; ++i)
            free_queue_nodes(&g_st_sender_queue.p_queue[i]);
        free(g_st_sender_queue.p_queue);
    }
    memset(static_cast<void *>(&g_st_sender_queue), 0, sizeof(g_st_sender_queue));
    free_manager(&g_st_monitor_manage_list);
    free_manager(&g_st_send_manage_list);

    for (int32_t i = 0; g_st_transfer.st_info != nullptr && i < g_st_transfer.n_num; ++i)
        free_channel(&g_st_transfer.st_info[i]);
    free(g_st_transfer.st_info);
    memset(static_cast<void *>(&g_st_transfer), 0, sizeof(g_st_transfer));
    record_cache_drain();
    stats_free();
}

}  // namespace sdk
