// The end of a request on its reply: the receive paths (network and serial) take the
// request's label, then hand the reply over here, which stores it and ends the request at
// once (the monitor is not involved), sending the channel's next frame.
#include "engine/stats.h"
#include "engine/reply.h"

#include <pthread.h>

#include <cstring>

#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "engine/ending.h"
#include "engine/request_state.h"
#include "engine/send.h"
#include "engine/state.h"
#include "transfer_server.h"

namespace sdk {

// Settled: copying the reply and ending the request exclude each other, and exclude a
// sender that has not yet let go of the record, through st_wait_lock and st_lock. A
// request whose label a reply has taken is ended by that reply (a time-out that comes
// meanwhile finds the label gone and leaves it), so the record is alive here.
void deliver_reply(packet_data_t *p, const Reply &r, bool b_card_device) {
    InFlight *x = inflight_of(p);
    send_queue_t *p_next = nullptr;
    {
        MutexLock wait_lock(&p->st_wait_lock);
        MutexLock send_lock(&p->p_packet.st_lock);
        x->b_labelled = false;  // its label has just been taken
        // Late: its time-out ended it while the reply was on its way.
        if (state_final(state_load(&p->p_packet))) {
            count(p->p_packet.n_channel_id, Count::kUnmatched);
            return;
        }
        count(p->p_packet.n_channel_id, Count::kMatched);
        if (b_card_device == r.b_card_body) {
            memcpy(p->st_recv_data.arr_buf, r.p_data, r.n_len);
            p->st_recv_data.n_len = r.n_len;
        }
        state_store(&p->p_packet, PACKET_RECV_DONE);
        // A write without acknowledgement that got a reply all the same ends after its
        // write-wait, by the monitor; any other request ends now.
        if (expects_reply(&p->p_packet) || polled(&p->p_packet))
            end_locked(x, PACKET_END, Why::kDone, &p_next);
    }
    if (p_next != nullptr) send_channel_head(p_next);
}

send_lable_manage_t *lable_list_of(packet_code_type e_type, uint32_t n_eth_id, uint32_t n_rvcard_id,
                                   uint32_t n_transfer_id) {
    if (g_st_transfer.st_info == nullptr ||
        n_transfer_id >= static_cast<uint32_t>(g_st_transfer.n_num)) {
        return nullptr;
    }
    if (e_type == PACKET_VIDEO || e_type == PACKET_SENDER) {
        return &g_st_transfer.st_info[n_transfer_id].p_list;
    }
    if (e_type != PACKET_RECV) return nullptr;
    rvcard_eth_queue_manage_t *p_port = nullptr;
    if (sdk_rvcard_port_lookup(&g_st_transfer, n_transfer_id, n_eth_id, n_rvcard_id, &p_port) !=
        kOk) {
        return nullptr;
    }
    return p_port->p_list[n_rvcard_id];
}

}  // namespace sdk

extern "C" {

SDK_API int32_t sdk_get_member_form_lable(packet_code_type e_type, uint32_t n_eth_id,
                                          uint32_t n_rvcard_id, send_lable_list_t *p_packet,
                                          uint32_t n_lable, uint32_t n_transfer_id) {
    if (e_type != PACKET_VIDEO && e_type != PACKET_SENDER && e_type != PACKET_RECV) {
        TLOGE("unkonw transfer channel type");
        return sdk::kErrNoLabel;
    }
    send_lable_manage_t *p_list = sdk::lable_list_of(e_type, n_eth_id, n_rvcard_id, n_transfer_id);
    if (p_list == nullptr) return sdk::kErrNoLabel;
    // The walk and the removal are one critical section of the list.
    int32_t n_ret = sdk_lable_list_take(p_list, n_lable, p_packet);
    if (n_ret != sdk::kOk && n_ret != sdk::kErrNoLabel) TLOGE("error code %d", n_ret);
    return n_ret;
}

}  // extern "C"
