// The frame codec's readers of reply bodies, the staging and assembly of request frames
// and the polling frame.
#include "codec/codec.h"

#include <cstring>

#include "common/log.h"
#include "common/result.h"
#include "transfer_server.h"

namespace sdk::codec {

namespace {
constexpr uint32_t kOffCardLen = 22;
constexpr uint32_t kOffCardData = 24;
constexpr uint8_t kPollingParam = 0x42;  // acknowledgement asked, read, receiving-card body
constexpr uint16_t kPollingDataLen = 2;
}  // namespace

BodyView addr_body(const uint8_t *f, uint32_t n) {
    BodyView v;
    if (n < frame::kOffAddrData) return v;
    v.err_code = f + frame::kOffAddrErr;
    v.data = f + frame::kOffAddrData;
    v.n_data = get_le16(f + frame::kOffAddrLen);
    if (v.n_data > SDK_DATA_BUF_LEN) {
        v.status = Body::kTooLong;
    } else if (frame::kOffAddrData + v.n_data <= n) {
        v.status = Body::kOk;
    }
    return v;
}

BodyView card_body(const uint8_t *f, uint32_t n) {
    BodyView v;
    if (n < kOffCardData) return v;
    v.data = f + kOffCardData;
    v.n_data = get_le16(f + kOffCardLen);
    if (v.n_data > SDK_DATA_BUF_LEN) {
        v.status = Body::kTooLong;
    } else if (kOffCardData + v.n_data <= n) {
        v.status = Body::kOk;
    }
    return v;
}

int32_t stage_request(const transfer_op_t &op, uint32_t n_channel, uint32_t n_wbuflen,
                      Staged *out) {
    int32_t n_ret = sdk_packet_add_frame_header(&out->frame, n_channel, op);
    if (n_ret >= 0)
        n_ret = sdk_packet_add_request_header(&out->header, n_channel, out->frame.n_frame_type, op);
    if (n_ret >= 0) n_ret = sdk_packet_add_request_body(&out->body, out->header, op);
    if (n_ret < 0) {
        TLOGE("error code %d", n_ret);
        return n_ret;
    }
    n_ret = sdk_get_packet_length(out->header, out->body);
    if (n_ret < 0) return n_ret;  // the measure logs its own refusal
    out->n_prefix = static_cast<uint32_t>(n_ret);
    // The receiving-card checksum follows the body type that the builders took (the low
    // four bits of e_type), not e_type itself, so the length always matches the bytes.
    out->n_length = static_cast<uint64_t>(n_ret) + n_wbuflen + 2u +
                    (out->body.n_body_type == BODY_RECVCARD ? 2u : 0u);
    return kOk;
}

int32_t assemble_request(Staged *st, const uint8_t *p_wbuf, uint32_t n_wbuflen, data_buf_t *out) {
    st->frame.n_len = static_cast<uint16_t>(st->n_length - SDK_FRAME_HEADER_LEN);
    out->n_len = static_cast<uint32_t>(st->n_length);
    // Only the frame's own bytes are cleared; the rest of the buffer is never sent.
    memset(out->arr_buf, 0, static_cast<size_t>(st->n_length));
    return sdk_packet_data(out->arr_buf, const_cast<uint8_t *>(p_wbuf), n_wbuflen, st->frame,
                           st->header, st->body);
}

void encode_poll(uint16_t n_lable, uint32_t n_eth, uint32_t n_card, rvcard_polling_packet_t *f) {
    memset(f, 0, sizeof(*f));
    f->frame_header.n_delimiter = SDK_FRAME_DELIMITER;
    f->frame_header.n_frame_type = FRAME_SLOT;
    f->frame_header.n_lable = n_lable;
    f->frame_header.n_len = sizeof(*f) - SDK_FRAME_HEADER_LEN;
    f->request_header.n_requset_param = kPollingParam;
    f->request_header.n_device_type = DEVICE_ETH;
    f->request_header.n_device_index = static_cast<uint16_t>(n_eth);
    f->request_data.n_device_type = DEVICE_MCU;
    f->request_data.n_port_id = static_cast<uint8_t>(n_eth);
    f->request_data.n_rvcard_index = static_cast<uint16_t>(n_card);
    f->request_data.n_reg_addr = SDK_POLLING_REG_ADDR;
    f->request_data.n_data_len = kPollingDataLen;
    const auto *b = reinterpret_cast<const uint8_t *>(f);
    f->rvcard_checksum =
        static_cast<uint16_t>(byte_sum16(b + frame::kOffBody, 12) + SDK_RVCARD_CHECKSUM_SEED);
    f->packet_checksum = byte_sum16(b, sizeof(*f) - 2);
}

}  // namespace sdk::codec
