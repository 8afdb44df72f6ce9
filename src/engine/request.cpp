// The request API: accepts a request, registers it with the engine and waits for its end.
#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <optional>

#include "codec/codec.h"
#include "common/clock.h"
#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "transfer_server.h"
#include "engine/state.h"
#include "engine/request_state.h"
#include "channel/direct_receive.h"
#include "engine/deadlines.h"
#include "engine/ending.h"
#include "engine/inflight.h"
#include "engine/record_cache.h"
#include "engine/send.h"

namespace {

constexpr uint32_t kAllCards = 0xFFFF;
constexpr uint8_t kAllPorts = 0xFF;

struct CardTarget {
    uint32_t n_eth_id = 0;
    uint32_t n_rvcard_id = 0;
    rvcard_eth_queue_manage_t *p_port = nullptr;
};

bool card_request(const transfer_op_t &op) {
    return op.st_addr_param.n_device_type == DEVICE_ETH;
}

// Settled: port and card are checked against the channel's receiving-card structures
// (a channel without them is refused too) before anything is allocated, so a refusal
// leaves nothing to undo.
int32_t card_target(const transfer_op_t &op, uint32_t n_channel, CardTarget *t) {
    t->n_rvcard_id = op.st_control.n_recvcard_id == kAllCards ? 0 : op.st_control.n_recvcard_id;
    t->n_eth_id = op.st_addr_param.n_device_index == kAllPorts ? op.n_broadcast_eth_id
                                                               : op.st_addr_param.n_device_index;
    return sdk_rvcard_port_lookup(&g_st_transfer, n_channel, t->n_eth_id, t->n_rvcard_id,
                                  &t->p_port);
}

void release_record(transfer_op_t *op) {
    packet_data_t *p = op->p_packet_node;
    pthread_cond_destroy(&p->st_wait_signal);
    pthread_mutex_destroy(&p->st_wait_lock);
    pthread_mutex_destroy(&p->p_packet.st_lock);
    sdk::record_give(sdk::inflight_of(p));
    op->p_packet_node = nullptr;
}

// The record of a new request. Settled: nothing of it is zero-filled but its small fields;
// the two 9000-byte buffers are written only as far as a frame or a reply uses them.
sdk::InFlight *new_record() {
    sdk::InFlight *x = sdk::record_take();
    if (x == nullptr) return nullptr;
    packet_data_t *p = &x->rec;
    p->n_port_id = 0;
    p->st_send_data.n_len = 0;
    p->st_recv_data.n_len = 0;
    memset(&p->p_packet, 0, sizeof(p->p_packet));
    p->p_queue_general = nullptr;
    x->n_due_ns = sdk::kNever;
    x->n_heap_index = sdk::kNotListed;
    x->b_monitor_busy = false;
    x->b_labelled = false;
    pthread_mutex_init(&p->st_wait_lock, nullptr);
    pthread_cond_init(&p->st_wait_signal, nullptr);
    pthread_mutex_init(&p->p_packet.st_lock, nullptr);
    return x;
}

// Registers the request: listed for the monitor (with no deadline while it is queued),
// then its frame queued. A channel's frame goes out at once from this thread when the
// channel is free; a card's queue is listed for the sender thread. Once the frame is
// queued the request is accepted. Its label is listed when its frame goes out.
int32_t register_request(sdk::InFlight *x, const CardTarget *card) {
    packet_data_t *p = &x->rec;
    const uint32_t ch = p->p_packet.n_channel_id;
    if (!sdk::deadline_add(x, sdk::kNever)) return sdk::kErrNoMemory;
    if (card == nullptr) {
        send_queue_t *q = &g_st_sender_queue.p_queue[ch];
        p->p_queue_general = &q->st_general;
        const int32_t n_ret = sdk_send_queue_push(q, &p->st_send_data, &p->p_packet);
        if (n_ret != sdk::kOk) {
            sdk::deadline_remove(x);
            return n_ret;
        }
        sdk::send_channel_head(q);
        return sdk::kOk;
    }
    // st_lock keeps the sender off the record until it is listed: the card's queue lives
    // at least as long as this request is not sent (its hold), so listing it here never
    // meets a queue that a fast reply to an earlier frame has freed meanwhile.
    sdk::MutexLock send_lock(&p->p_packet.st_lock);
    send_queue_t **pp_slot = &card->p_port->p_queue[card->n_rvcard_id];
    const int32_t n_ret =
        sdk_rvcard_queue_push(pp_slot, card->p_port, g_st_transfer, &p->st_send_data, &p->p_packet);
    if (n_ret != sdk::kOk) {
        sdk_rvcard_queue_distory(pp_slot, card->p_port);
        sdk::deadline_remove(x);
        return n_ret;
    }
    send_queue_t *q = *pp_slot;
    p->p_queue_general = &q->st_general;
    // Settled: a queue that cannot be listed (memory) is tried again until it is; the
    // frame is never left without a sender.
    while (sdk_send_list_push(&g_st_send_manage_list, q) != sdk::kOk) {
        TLOGE("error code %d", sdk::kErrNoMemory);
        usleep(1000);
    }
    return sdk::kOk;
}

void fill_general(packet_general_data_t *g, const transfer_op_t &op, uint16_t n_lable,
                  uint32_t n_channel, const CardTarget *card) {
    g->st_start_time = sdk::clock_now();
    g->n_timeout = op.n_timeout;
    g->n_reply_times = op.n_reply_times;
    g->n_no_ack = op.n_no_ack;
    g->n_write_wait_time = op.n_write_wait_time;
    g->n_polling_state = op.n_polling_state;
    g->n_polling_time = op.n_polling_time;
    g->n_broadcast_eth_id = op.n_broadcast_eth_id;
    g->n_enable = true;
    g->e_state = PACKET_WAIT_SEND;
    g->n_send_lable = n_lable;
    g->n_reply_num = 0;
    g->n_channel_id = n_channel;
    if (card != nullptr) {
        g->n_recvcard_id = card->n_rvcard_id;
        g->n_eth_id = card->n_eth_id;
    }
}

// Counts a call in while it registers a request, so that sdk_transfer_exit waits for it.
class Registering {
  public:
    Registering() { sdk::g_engine.n_registering.fetch_add(1, std::memory_order_seq_cst); }
    ~Registering() { sdk::g_engine.n_registering.fetch_sub(1, std::memory_order_seq_cst); }
    Registering(const Registering &) = delete;
    Registering &operator=(const Registering &) = delete;
};

// With `hold`, the caller waits at once (sdk_request_run): it takes its channel from the
// receive thread (see ChannelClaim) before the frame can go out.
int32_t request(char *p_wbuf, uint32_t n_wbuflen, transfer_op_t *op,
                std::optional<sdk::ChannelClaim> *hold = nullptr) {
    if (op == nullptr) return sdk::kErrRefused;
    const Registering registering;
    // Settled: a request made while the engine stops is refused, like one for a channel
    // that is not open.
    if (sdk::stopping()) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    int32_t n_ret = sdk_get_transfer_map_id(*op);
    if (n_ret < 0) {
        TLOGE("error code %d", n_ret);
        return n_ret;
    }
    const uint32_t ch = static_cast<uint32_t>(n_ret);
    TLOGD("n_transfer_id %d", n_ret);

    sdk::codec::Staged st;
    n_ret = sdk::codec::stage_request(*op, ch, n_wbuflen, &st);
    if (n_ret < 0) return n_ret;  // logged by the staging

    // Settled: the frame must fit the 9000-byte send buffer; longer ones (up to 65535 and
    // beyond) are refused with -4006 before the record is allocated.
    if (st.n_length > SDK_DATA_BUF_LEN) {
        TLOGE(" max num error code %d", sdk::kErrFrameTooLong);
        return sdk::kErrFrameTooLong;
    }
    // Settled: a channel that is not open (or a table without send queues) would never
    // send the frame; refuse instead of queueing for ever.
    if (ch >= g_st_sender_queue.n_num ||
        sdk::counter_load(&g_st_transfer.st_info[ch].n_state) == CHANNEL_NULL) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    CardTarget card;
    const bool b_card = card_request(*op);
    if (b_card && (n_ret = card_target(*op, ch, &card)) != sdk::kOk) {
        TLOGE("error code %d", n_ret);
        return n_ret;
    }

    sdk::InFlight *x = new_record();
    packet_data_t *p = x != nullptr ? &x->rec : nullptr;
    op->p_packet_node = p;
    if (p == nullptr) {
        TLOGE("error code %d", sdk::kErrNoMemory);
        return sdk::kErrNoMemory;
    }
    n_ret = sdk::codec::assemble_request(&st, reinterpret_cast<uint8_t *>(p_wbuf), n_wbuflen,
                                         &p->st_send_data);
    if (n_ret < 0) {
        TLOGE("error code %d", n_ret);
        release_record(op);
        return n_ret;
    }
    fill_general(&p->p_packet, *op, st.frame.n_lable, ch, b_card ? &card : nullptr);
    if (hold != nullptr) hold->emplace(ch);
    n_ret = register_request(x, b_card ? &card : nullptr);
    if (n_ret != sdk::kOk) {
        // Settled: every registration made so far has been undone; the record goes too.
        TLOGE("error code %d", n_ret);
        release_record(op);
    }
    return n_ret;
}

// Waits under st_wait_lock until the engine has ended the request and let go of it.
packet_state wait_end(packet_data_t *p) {
    while (!sdk::released(sdk::inflight_of(p)))
        pthread_cond_wait(&p->st_wait_signal, &p->st_wait_lock);
    return sdk::state_load(&p->p_packet);
}

// The end of a wait, once the engine has let go of the request: the reply copied out, the
// record freed.
int32_t finish_wait(char *p_rbuf, transfer_op_t *p_st_header, packet_state s0) {
    packet_data_t *p = p_st_header->p_packet_node;
    pthread_mutex_lock(&p->st_wait_lock);
    const packet_state s = wait_end(p);
    int32_t n_ret = sdk::kErrTimeout;
    if (s == PACKET_END) {
        // The receive path never stores more than the buffer holds; the bound is kept here
        // as well so that a caller's 9000-byte buffer is never overrun.
        uint32_t n = p->st_recv_data.n_len;
        if (n > SDK_DATA_BUF_LEN) n = SDK_DATA_BUF_LEN;
        if (n != 0 && p_rbuf != nullptr) {
            memcpy(p_rbuf, p->st_recv_data.arr_buf, n);
            if (s0 == PACKET_END) TLOGD("n_recv_lenf is %d ", n);
        }
        n_ret = static_cast<int32_t>(n);
    } else if (s0 == PACKET_WAIT_TIMEOUT) {
        TLOGD("timeout ");
    } else {
        TLOGE("timeout state %d ", s);
    }
    pthread_mutex_unlock(&p->st_wait_lock);
    release_record(p_st_header);
    if (n_ret == sdk::kErrTimeout) TLOGI("end");
    return n_ret;
}

}  // namespace

extern "C" {

SDK_API int32_t sdk_request(char *p_wbuf, uint32_t n_wbuflen, transfer_op_t *p_st_header) {
    int32_t n_ret = request(p_wbuf, n_wbuflen, p_st_header);
    TLOGD("sdk_request end %d ", n_ret);
    return n_ret;
}

SDK_API int32_t sdk_request_wait(char *p_rbuf, transfer_op_t *p_st_header) {
    TLOGI("start");
    if (p_st_header == nullptr || p_st_header->p_packet_node == nullptr) {
        TLOGD("p_st_header->p_packet_node == NULL ");
        return 0;
    }
    packet_data_t *p = p_st_header->p_packet_node;
    const packet_state s0 = sdk::state_load(&p->p_packet);
    sdk::receive_until_released(sdk::inflight_of(p));
    return finish_wait(p_rbuf, p_st_header, s0);
}

SDK_API int32_t sdk_request_run(char *p_wbuf, uint32_t n_wbuflen, char *p_rbuf,
                                transfer_op_t *p_st_header) {
    // The caller holds its channel before the frame goes out: the reply can only reach
    // this thread, however soon it comes. No host code runs while the hold lasts, so no
    // datagram of the channel waits for a reader longer than this call's own steps.
    std::optional<sdk::ChannelClaim> hold;
    const int32_t n_ret = request(p_wbuf, n_wbuflen, p_st_header, &hold);
    TLOGD("sdk_request end %d ", n_ret);
    if (n_ret != sdk::kOk) return n_ret;
    packet_data_t *p = p_st_header->p_packet_node;
    const packet_state s0 = sdk::state_load(&p->p_packet);
    if (hold) {
        hold->serve_until_released(sdk::inflight_of(p));
        hold.reset();  // before any sleep on the request: others may read the channel now
    }
    return finish_wait(p_rbuf, p_st_header, s0);
}

SDK_API int32_t sdk_request_get_state(transfer_op_t *p_st_header) {
    TLOGI("start!");
    if (p_st_header == nullptr || p_st_header->p_packet_node == nullptr) return sdk::kErrRefused;
    return sdk::state_load(&p_st_header->p_packet_node->p_packet);
}

SDK_API int32_t sdk_request_free(transfer_op_t *p_st_header) {
    if (p_st_header == nullptr) return 0;
    packet_data_t *p = p_st_header->p_packet_node;
    if (p == nullptr) return 0;
    pthread_mutex_lock(&p->st_wait_lock);
    wait_end(p);
    pthread_mutex_unlock(&p->st_wait_lock);
    release_record(p_st_header);
    return 0;
}

}  // extern "C"
