// The flow rule: one request in flight per channel; per card; and one acknowledged or
// polled request per Ethernet port. Busy counters are 1 when free.
#include <semaphore.h>

#include "common/log.h"
#include "common/result.h"
#include "transfer_server.h"
#include "engine/state.h"
#include "engine/request_state.h"

namespace {

constexpr int32_t kBusy = CHANNEL_BUSY;

rvcard_eth_queue_manage_t *port_of(const queue_general_data_t *g) {
    return g_st_transfer.st_info[g->n_channel_id].p_rvcard_manage.p_eth_list[g->n_eth_id];
}

}  // namespace

extern "C" {

SDK_API int32_t sdk_transfer_channel_check(send_queue_t *p_queue) {
    const queue_general_data_t &g = p_queue->st_general;
    if (g.e_packet_code_type != PACKET_RECV) {
        return sdk::counter_load(&g_st_transfer.st_info[g.n_channel_id].n_state) == CHANNEL_OK
                   ? sdk::kOk
                   : sdk::kErrRefused;
    }
    if (p_queue->p_eth_node == nullptr) {
        LOGE(LOG_DEVICE, "error code %d", sdk::kErrPortRecord);
        return sdk::kErrPortRecord;
    }
    if (sdk::counter_load(&g.n_recv_state) >= kBusy) return sdk::kErrRefused;
    if (sdk::counter_load(&p_queue->p_eth_node->n_recv_state) >= kBusy) return sdk::kErrRefused;
    return sdk::kOk;
}

SDK_API int32_t sdk_transfer_channel_state_update(queue_general_data_t *p_general,
                                                  packet_general_data_t *p_packet,
                                                  uint32_t b_used) {
    const int32_t n_step = b_used == 2 ? 1 : -1;
    if (p_general->e_packet_code_type != PACKET_RECV) {
        sdk::counter_add(&g_st_transfer.st_info[p_general->n_channel_id].n_state, n_step);
        if (n_step < 0) sem_post(&g_st_send_manage_list.sem);
        return sdk::kOk;
    }
    rvcard_eth_queue_manage_t *p_port = port_of(p_general);
    const uint32_t n_card = p_general->n_recvcard_id;
    if (n_step > 0)
        __atomic_store_n(&p_port->n_eth_rvcard_id, static_cast<int32_t>(n_card), __ATOMIC_RELEASE);
    if (sdk::holds_port(p_packet)) sdk::counter_add(&p_port->n_recv_state, n_step);
    sdk::counter_add(&p_general->n_recv_state, n_step);
    if (n_step < 0) {
        TLOGI("ethid %d rvcard %d", p_general->n_eth_id, n_card);
        // Settled: the request drops its hold on the card's queue exactly once, here; the
        // queue goes when nothing else holds it. p_general is not touched afterwards.
        sdk_rvcard_queue_release(&p_port->p_queue[n_card], p_port);
        sem_post(&g_st_send_manage_list.sem);
    }
    return sdk::kOk;
}

}  // extern "C"
