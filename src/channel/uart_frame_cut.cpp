// Cutting frames out of a serial byte stream: reports go to the report queue, replies to
// the request that waits for their label.
#include <cstring>

#include "common/bytes.h"
#include "common/log.h"
#include "common/result.h"
#include "transfer_server.h"
#include "engine/state.h"
#include "codec/codec.h"
#include "engine/reply.h"
#include "engine/stats.h"

namespace {

constexpr uint8_t kDelimFirst = 0xBB;  // serial frames begin 0xBB 0x55
constexpr uint8_t kDelimSecond = 0x55;
constexpr uint32_t kMaxFrameLenField = 0x1024;  // 4132 bytes after the header

// Where the next 0xBB 0x55 pair starts at or after `from`; the offset of the last byte
// when there is none (that byte is then noise, or a 0xBB kept for the next read).
uint32_t resync(const uint8_t *b, uint32_t from, uint32_t n_len) {
    for (uint32_t i = from; i + 1 < n_len; ++i) {
        if (b[i] == kDelimFirst && b[i + 1] == kDelimSecond) return i;
    }
    return n_len - 1;
}

// The reply carried by a whole frame f of n bytes, or false when the frame cannot be
// handed over. Checked before the label is taken, so a frame that cannot be handed over
// leaves its request in the label list to end by time-out; a request whose label has
// gone must always get its reply stored, or the monitor would wait for it for ever.
bool reply_of(const uint8_t *f, uint32_t n, sdk::Reply *r) {
    const uint8_t n_kind = n > sdk::frame::kOffParam ? sdk::codec::body_kind(f) : 0xFFu;
    if (n_kind != BODY_ADDRESS && n_kind != BODY_TLV) {
        TLOGE("UNKNOW BODY TYPE");
        return false;
    }
    // Settled: a body whose length field lies outside the frame, or whose data would run
    // past the frame, is treated like an unknown body kind: never copied.
    const sdk::codec::BodyView v = sdk::codec::addr_body(f, n);
    if (v.status == sdk::codec::Body::kTooLong) {
        TLOGE(" max num error code %d", sdk::kErrRefused);
        return false;
    }
    if (v.status != sdk::codec::Body::kOk) {
        TLOGE("UNKNOW BODY TYPE");
        return false;
    }
    if (n_kind == BODY_ADDRESS) {
        // Only the data: the serial address reply differs from the network one here.
        *r = sdk::Reply{v.data, v.n_data, false};
    } else {
        TLOGD("st_b_request_body->n_len is  %d", v.n_data);
        *r = sdk::Reply{v.err_code, v.n_data + 4u, false};
    }
    return true;
}

}  // namespace

extern "C" {

SDK_API int32_t sdk_uart_recv_manage(uint8_t *p_buf, uint32_t n_len, int32_t n_transfer_id) {
    if (p_buf == nullptr) return 0;
    if (g_st_transfer.st_info == nullptr || n_transfer_id < 0 ||
        n_transfer_id >= g_st_transfer.n_num) {
        // Settled: bytes of a channel outside the table belong to no one; they are dropped
        // so that the caller does not offer them again.
        TLOGE("error code %d", sdk::kErrRefused);
        return static_cast<int32_t>(n_len);
    }
    const transfer_data_t &ch = g_st_transfer.st_info[n_transfer_id];
    uint32_t n_offset = 0;
    for (;;) {
        if (n_offset >= n_len) return static_cast<int32_t>(n_len);
        TLOGD("uart recv manage n_offset %d", n_offset);
        const uint8_t *f = p_buf + n_offset;
        const uint32_t n_left = n_len - n_offset;
        if (f[0] != kDelimFirst) return static_cast<int32_t>(n_offset + 1);
        if (n_left == 1) return static_cast<int32_t>(n_offset);
        if (f[1] != kDelimSecond) return static_cast<int32_t>(n_offset + 2);
        if (n_left < SDK_FRAME_HEADER_LEN) return static_cast<int32_t>(n_offset);
        const uint32_t n_body = sdk::codec::length_field(f);
        if (n_body > kMaxFrameLenField) {
            sdk::count(n_transfer_id, sdk::Count::kBadFrame);
            TLOGE("frame len error");
            n_offset = resync(p_buf, n_offset + 2, n_len);
            continue;
        }
        const uint32_t n_frame = n_body + SDK_FRAME_HEADER_LEN;
        if (n_left < n_frame) return static_cast<int32_t>(n_offset);
        if (sdk::codec::frame_type(f) != FRAME_SLOT) {
            sdk::count(n_transfer_id, sdk::Count::kBadFrame);
            TLOGE("UNKNOW FRAME_SLOT");
            TLOGE("st_request_header = NULL");
            n_offset += n_frame;
            continue;
        }
        // Settled: a frame too short to hold its parameter byte is no report; it is
        // skipped as a reply of unknown body kind below.
        if (n_frame > sdk::frame::kOffParam && sdk::codec::is_report(f)) {
            const int32_t n_ret = sdk_report_queue_push(&g_st_report_queue, p_buf + n_offset,
                                                        n_frame, static_cast<uint32_t>(ch.n_slot));
            if (n_ret != sdk::kOk) {
                sdk::count(n_transfer_id, sdk::Count::kReportDropped);
                LOGE(LOG_REPORT, "error code %d", n_ret);
                return static_cast<int32_t>(n_offset);
            }
            sdk::count(n_transfer_id, sdk::Count::kReportQueued);
            n_offset += n_frame;
            continue;
        }
        sdk::Reply st_reply;
        if (!reply_of(f, n_frame, &st_reply)) {
            sdk::count(n_transfer_id, sdk::Count::kBadFrame);
            n_offset += n_frame;
            continue;
        }
        send_lable_list_t st_node{};
        if (sdk_get_member_form_lable(PACKET_VIDEO, 0, 0, &st_node, sdk::codec::lable(f),
                                      static_cast<uint32_t>(n_transfer_id)) == sdk::kOk) {
            sdk::deliver_reply(st_node.p_list, st_reply, false);
        } else {
            sdk::count(n_transfer_id, sdk::Count::kUnmatched);
        }
        n_offset += n_frame;
    }
}

}  // extern "C"
