// The network receive thread: takes the boards' replies off the UDP channels and hands
// each to the request that waits for its label.
#include <pthread.h>
#include <semaphore.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/bytes.h"
#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "transfer_server.h"
#include "channel/channel_fds.h"
#include "channel/receive_loop.h"
#include "engine/state.h"
#include "codec/codec.h"
#include "channel/net_datagram.h"
#include "engine/reply.h"
#include "engine/stats.h"
#include "engine/request_state.h"

namespace {

constexpr uint32_t kRecvBufLen = 65535;
constexpr uint32_t kMinFrame = 10;

using sdk::Reply;

// Checks the frame and finds the reply in it; a negative code ends the pass, a positive
// one only stops it with the running result (unknown frame or body type).
int32_t parse(const uint8_t *b, uint32_t n, Reply *r) {
    if (n < kMinFrame) {
        TLOGE(" max num error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    const uint32_t n_frame_len = sdk::codec::length_field(b) + 10u;
    if (n_frame_len != n) {
        TLOGE(" %d %d error code %d", n_frame_len, n, sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    if (sdk::codec::frame_type(b) != FRAME_SLOT) {
        TLOGE("UNKNOW FRAME_SLOT");
        return 1;
    }
    // Settled: a frame too short to hold its parameter byte (10 bytes, length 0) has no
    // body kind; it is handled as an unknown body kind, as on the serial path, instead of
    // reading a byte that this datagram did not bring.
    if (n <= sdk::frame::kOffParam) {
        TLOGE("UNKNOW BODY TYPE");
        return 1;
    }
    const uint8_t n_kind = sdk::codec::body_kind(b);
    // Settled: the reply is taken only when it lies inside the received bytes and fits
    // the 9000-byte receive buffer; otherwise the frame is malformed.
    if (n_kind == BODY_ADDRESS || n_kind == BODY_TLV || n_kind == BODY_RECVCARD) {
        const bool b_card = n_kind == BODY_RECVCARD;
        const sdk::codec::BodyView v =
            b_card ? sdk::codec::card_body(b, n) : sdk::codec::addr_body(b, n);
        // (An address or TLV reply hands over its error code and length too: 4 bytes more.)
        if (v.status != sdk::codec::Body::kOk || (!b_card && v.n_data + 4u > SDK_DATA_BUF_LEN)) {
            TLOGE(" max num error code %d", sdk::kErrRefused);
            return sdk::kErrRefused;
        }
        *r = b_card ? Reply{v.data, v.n_data, true} : Reply{v.err_code, v.n_data + 4u, false};
        return sdk::kOk;
    }
    TLOGE("UNKNOW BODY TYPE");
    return 1;
}

int32_t match(uint32_t n_channel, const uint8_t *b, const Reply &r) {
    const transfer_data_t &ch = g_st_transfer.st_info[n_channel];
    const uint32_t n_lable = sdk::codec::lable(b);
    const bool b_card_device = sdk::codec::device_type(b) == DEVICE_ETH;
    int32_t n_ret;
    send_lable_list_t st_node{};
    if (ch.e_packet_code_type == PACKET_SENDER && b_card_device) {
        const uint32_t n_eth = sdk::codec::device_index(b);
        // Settled: a port outside the channel's ports, or a channel without receiving-card
        // structures, makes an unmatched reply.
        rvcard_eth_queue_manage_t *p_port = nullptr;
        if (sdk_rvcard_port_lookup(&g_st_transfer, n_channel, n_eth, 0, &p_port) != sdk::kOk) {
            n_ret = sdk::kErrNoLabel;
        } else {
            const uint32_t n_card =
                static_cast<uint32_t>(__atomic_load_n(&p_port->n_eth_rvcard_id, __ATOMIC_ACQUIRE));
            TLOGI("n_eth_id = %d, n_rvcard_id = %d ", n_eth, n_card);
            n_ret =
                sdk_get_member_form_lable(PACKET_RECV, n_eth, n_card, &st_node, n_lable, n_channel);
        }
    } else {
        const packet_code_type e_kind =
            ch.e_packet_code_type == PACKET_SENDER ? PACKET_SENDER : PACKET_VIDEO;
        n_ret = sdk_get_member_form_lable(e_kind, 0, 0, &st_node, n_lable, n_channel);
    }
    if (n_ret != sdk::kOk) {
        sdk::count(n_channel, sdk::Count::kUnmatched);
        TLOGE("ERROR packet, n_ret: %d , pid: %d", n_ret, getpid());
        return n_ret;
    }
    sdk::deliver_reply(st_node.p_list, r, b_card_device);
    return sdk::kOk;
}

}  // namespace

namespace sdk {

int32_t physical_recv(uint8_t *p_rbuf, uint32_t n_transfer_id, bool b_wait) {
    if (p_rbuf == nullptr || g_st_transfer.st_info == nullptr ||
        n_transfer_id >= static_cast<uint32_t>(g_st_transfer.n_num)) {
        return kErrRefused;
    }
    const transfer_data_t &ch = g_st_transfer.st_info[n_transfer_id];
    const Transport *t = transport_of(ch.n_type);
    if (t == nullptr || t->receiver == Receiver::kUart) {  // datagram channels only
        TLOGI("unknow transfer type %d", ch.n_type);
        return kErrRefused;
    }
    ssize_t n = recv(ch.n_fd, p_rbuf, kRecvBufLen, b_wait ? 0 : MSG_DONTWAIT);
    if (n < 0 && !b_wait && (errno == EAGAIN || errno == EWOULDBLOCK)) return 0;
    if (n <= 0) {
        TLOGI("socket error %d", static_cast<int32_t>(n));
        return kErrRecv;
    }
    const uint8_t *b = p_rbuf;
    if (n >= 26) {
        TLOGI(
            "recv lable: %02x %02x  type: %02x  device_type: %02x%02x   tag: 0x%02x%02x%02x%02x   ",
            b[6], b[7], b[10], b[11], b[12], b[25], b[24], b[23], b[22]);
    }
    return static_cast<int32_t>(n);
}

bool recv_datagram(uint32_t n_channel, const uint8_t *b, uint32_t n, int32_t *p_ret) {
    Reply r;
    const int32_t n_parse = parse(b, n, &r);
    if (n_parse != sdk::kOk) sdk::count(n_channel, sdk::Count::kBadFrame);
    if (n_parse < 0) *p_ret = n_parse;
    if (n_parse != sdk::kOk) return false;
    *p_ret = match(n_channel, b, r);
    return true;
}

// Settled: the datagram is taken without waiting; when another reader (a caller that
// receives on its channel itself, see direct_receive.h) took it first, there is nothing
// to serve, and no receive ever blocks a thread that serves other channels.
bool serve_datagram(uint32_t n_channel, int32_t *p_ret) {
    static thread_local uint8_t arr_buf[kRecvBufLen];
    const int32_t n = physical_recv(arr_buf, n_channel, false);
    if (n == 0) return true;
    if (n < 0) {
        TLOGE("sdk_physical_recv n_recv_len < 0 ");
        return false;
    }
    return recv_datagram(n_channel, arr_buf, static_cast<uint32_t>(n), p_ret);
}

}  // namespace sdk

extern "C" {

SDK_API int32_t sdk_physical_recv(uint8_t *p_rbuf, uint32_t n_transfer_id) {
    return sdk::physical_recv(p_rbuf, n_transfer_id, true);
}

SDK_API int32_t sdk_recv_manage(fd_set n_fd_event) {
    int32_t n_ret = sdk::kOk;
    for (int32_t i = 0; i < g_st_transfer.n_num; ++i) {
        if (!sdk::channel_ready(g_st_transfer.st_info[i], sdk::Receiver::kNet, n_fd_event))
            continue;
        if (!sdk::serve_datagram(static_cast<uint32_t>(i), &n_ret)) break;
    }
    return n_ret;
}

SDK_API void *sdk_transfer_recv_thread(void * /*arg*/) {
    pthread_setname_np(pthread_self(), "recv_thread");
    // A reply ends its request right here, so a pass leaves the monitor nothing to do: it
    // is not woken after the pass.
    sdk::receive_loop(sdk::Receiver::kNet, {sdk::serve_datagram, [](int32_t n_ret) {
                                                if (n_ret < 0) TLOGE("recv error");
                                            }});
    return nullptr;
}

}  // extern "C"
