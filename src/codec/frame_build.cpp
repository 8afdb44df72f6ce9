// Request frames: the staging records (frame header, request header B, body), their
// measure, and the assembly of the whole frame with its checksums.
#include <cstring>

#include "common/bytes.h"
#include "common/log.h"
#include "common/result.h"
#include "codec/layout.h"
#include "codec/op_fields.h"
#include "channel/transport.h"
#include "transfer_server.h"

namespace {

bool slot_in(const transfer_id_map_t &map, uint32_t slot) {
    return slot >= static_cast<uint32_t>(map.n_slot_min) &&
           slot <= static_cast<uint32_t>(map.n_slot_max);
}

}  // namespace

extern "C" {

SDK_API int32_t sdk_packet_add_frame_header(frame_header_t *p_st_frame_header,
                                            uint32_t n_transfer_id, transfer_op_t st_header) {
    // The channel index comes from the routing; an index outside the table is refused
    // rather than read.
    if (p_st_frame_header == nullptr || g_st_transfer.st_info == nullptr ||
        n_transfer_id >= static_cast<uint32_t>(g_st_transfer.n_num)) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    const transfer_data_t &ch = g_st_transfer.st_info[n_transfer_id];
    if (!sdk::sends(ch)) {
        TLOGE("unknow transfer type %d", ch.n_type);
        return sdk::kErrRefused;
    }
    const uint32_t slot = st_header.n_slot;
    if (!slot_in(g_st_transfer.st_main_card, slot) && !slot_in(g_st_transfer.st_sub_card, slot) &&
        !slot_in(g_st_transfer.st_backplane, slot)) {
        TLOGE("unkonw frame type slot %d section %d", slot, sdk::op_mode(st_header));
        return sdk::kErrRefused;
    }
    p_st_frame_header->n_delimiter = SDK_FRAME_DELIMITER;
    p_st_frame_header->n_version = 0;
    p_st_frame_header->n_priotity = 0;
    p_st_frame_header->n_check_type = 0;
    p_st_frame_header->n_frame_type = FRAME_SLOT;
    p_st_frame_header->n_lable = sdk_get_next_lable();
    return sdk::kOk;
}

SDK_API int32_t sdk_packet_add_request_header(request_header_t *p_st_request_header,
                                              uint32_t /*n_transfer_id*/, uint32_t n_type,
                                              transfer_op_t st_header) {
    if (p_st_request_header == nullptr) return sdk::kErrRefused;
    p_st_request_header->n_header_type = n_type;
    if (n_type != sdk::frame::kHeaderType) {
        TLOGE("unkonw frame type");
        return sdk::kErrRefused;
    }
    b_request_header_t &b = p_st_request_header->st_b_header;
    uint8_t param = static_cast<uint8_t>(((sdk::op_code(st_header) & 1u) << 5) |
                                         (sdk::op_type(st_header) & SDK_PARAM_BODY_MASK));
    if (st_header.n_no_ack == EN_REQUEST_ACK) param |= SDK_PARAM_ACK_BIT;
    b.n_requset_param = param;
    b.n_device_type = st_header.st_addr_param.n_device_type;
    b.n_device_index = st_header.st_addr_param.n_device_index;
    b.n_group = st_header.st_addr_param.n_group;
    return sdk::kOk;
}

SDK_API int32_t sdk_packet_add_request_body(request_body_t *p_st_request_body,
                                            request_header_t p_st_request_header,
                                            transfer_op_t st_header) {
    if (p_st_request_body == nullptr) return sdk::kErrRefused;
    if (p_st_request_header.n_header_type != sdk::frame::kHeaderType) {
        TLOGE("unkonw frame type");
        return sdk::kErrRefused;
    }
    const uint32_t body = p_st_request_header.st_b_header.n_requset_param & SDK_PARAM_BODY_MASK;
    p_st_request_body->n_body_type = body;
    const transfer_body_param &addr = st_header.st_addr_param;
    switch (body) {
        case BODY_TLV:
            p_st_request_body->st_b_body.n_tag = addr.n_addr;
            p_st_request_body->st_b_body.n_err_code = 0;
            return sdk::kOk;
        case BODY_RECVCARD: {
            rvcard_request_body_t &rv = p_st_request_body->st_rvcard_body;
            rv.n_device_type = 1;
            rv.n_port_id = addr.n_device_index;
            rv.n_rvcard_index = static_cast<uint16_t>(st_header.st_control.n_recvcard_id);
            rv.n_op_code = static_cast<uint8_t>(sdk::op_code(st_header));
            rv.n_reserved = 0;
            rv.n_reg_addr = addr.n_addr;
            rv.n_data_len = static_cast<uint16_t>(st_header.n_read_len);
            return sdk::kOk;
        }
        case BODY_ADDRESS:
            p_st_request_body->st_a_body.n_addr = addr.n_addr;
            p_st_request_body->st_a_body.n_err_code =
                sdk::op_code(st_header) == FRAME_READ ? static_cast<int16_t>(st_header.n_read_len)
                                                      : 0;
            return sdk::kOk;
        default:
            TLOGE("unkonw request body type");
            return sdk::kErrRefused;
    }
}

SDK_API int32_t sdk_get_packet_length(request_header_t st_request_header,
                                      request_body_t st_request_body) {
    if (st_request_header.n_header_type != sdk::frame::kHeaderType) {
        TLOGE("unknow request header %d", st_request_header.n_header_type);
        return sdk::kErrRefused;
    }
    switch (st_request_body.n_body_type) {
        case BODY_ADDRESS:
        case BODY_TLV:
            return sdk::frame::kAddrPrefixLen;
        case BODY_RECVCARD:
            return sdk::frame::kRvcardPrefixLen;
        default:
            TLOGE("unknow request header %d", st_request_body.n_body_type);
            return sdk::kErrRefused;
    }
}

SDK_API int32_t sdk_packet_data(uint8_t *p_send_buf, uint8_t *p_wbuf, uint32_t n_buf_len,
                                frame_header_t st_frame_header, request_header_t st_request_header,
                                request_body_t st_request_body) {
    using namespace sdk::frame;
    if (p_send_buf == nullptr) {
        TLOGE("error code %d", sdk::kErrNullBuffer);
        return sdk::kErrNullBuffer;
    }
    memcpy(p_send_buf, &st_frame_header, sizeof(st_frame_header));
    if (st_request_header.n_header_type != kHeaderType) {
        TLOGE("unknow request header %d", st_request_header.n_header_type);
        return sdk::kErrRefused;
    }
    memcpy(p_send_buf + kOffParam, &st_request_header.st_b_header, sizeof(b_request_header_t));

    const uint8_t param = st_request_header.st_b_header.n_requset_param;
    switch (st_request_body.n_body_type) {
        case BODY_ADDRESS:
        case BODY_TLV: {
            // The address and TLV bodies share one layout.
            a_request_body_t body = st_request_body.n_body_type == BODY_ADDRESS
                                        ? st_request_body.st_a_body
                                        : a_request_body_t{st_request_body.st_b_body.n_tag,
                                                           st_request_body.st_b_body.n_err_code, 0};
            body.n_len = static_cast<uint16_t>(n_buf_len);
            memcpy(p_send_buf + kOffBody, &body, sizeof(body));
            if (p_wbuf != nullptr) memcpy(p_send_buf + kOffAddrData, p_wbuf, n_buf_len);
            const uint32_t end = kOffAddrData + n_buf_len;
            sdk::put_le16(p_send_buf + end, sdk::byte_sum16(p_send_buf, end));
            return sdk::kOk;
        }
        case BODY_RECVCARD: {
            rvcard_request_body_t body = st_request_body.st_rvcard_body;
            if (param & SDK_PARAM_WRITE_BIT) body.n_data_len = static_cast<uint16_t>(n_buf_len);
            memcpy(p_send_buf + kOffBody, &body, sizeof(body));
            uint32_t rv_sum = sdk::byte_sum16(p_send_buf + kOffBody, sizeof(body));
            if (p_wbuf != nullptr) {
                memcpy(p_send_buf + kOffRvcardData, p_wbuf, n_buf_len);
                rv_sum += sdk::byte_sum16(p_wbuf, n_buf_len);
            }
            const uint32_t end = kOffRvcardData + n_buf_len;
            sdk::put_le16(p_send_buf + end,
                          static_cast<uint16_t>(rv_sum + SDK_RVCARD_CHECKSUM_SEED));
            sdk::put_le16(p_send_buf + end + 2, sdk::byte_sum16(p_send_buf, end + 2));
            return sdk::kOk;
        }
        default:
            TLOGE("unknow request header %d", st_request_body.n_body_type);
            return sdk::kErrRefused;
    }
}

}  // extern "C"
