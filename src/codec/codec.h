// The frame codec: everything the engine reads from or writes into a frame, in one place.
// Request frames are built through the staging builders (frame_build.cpp) and assembled
// here in one call; polling frames are built here; replies and reports are read through
// the field readers and body views below. Nothing here logs a refusal: each receive path
// logs it with its own words.
#pragma once

#include <cstdint>

#include "codec/layout.h"
#include "common/bytes.h"
#include "transfer_server.h"

namespace sdk::codec {

// Header fields of a frame of at least 10 bytes (parameter and device fields: 22 bytes).
inline uint8_t frame_type(const uint8_t *f) {
    return f[frame::kOffFrameType];
}
inline uint16_t lable(const uint8_t *f) {
    return get_le16(f + frame::kOffLable);
}
// The frame's length field: the bytes after the 10-byte header.
inline uint16_t length_field(const uint8_t *f) {
    return get_le16(f + frame::kOffLen);
}
inline uint8_t param(const uint8_t *f) {
    return f[frame::kOffParam];
}
inline uint8_t body_kind(const uint8_t *f) {
    return static_cast<uint8_t>(param(f) & SDK_PARAM_BODY_MASK);
}
inline bool is_report(const uint8_t *f) {
    return (param(f) & SDK_PARAM_REPORT_BIT) != 0;
}
inline uint8_t device_type(const uint8_t *f) {
    return f[frame::kOffParam + 1];
}
inline uint16_t device_index(const uint8_t *f) {
    return get_le16(f + frame::kOffParam + 2);
}

// A body's data as the frame states it.
enum class Body {
    kOk,
    kShort,    // the body, or the data it announces, lies beyond the frame's bytes
    kTooLong,  // more than one receive buffer (9000 bytes) of data
};
struct BodyView {
    Body status = Body::kShort;
    const uint8_t *err_code = nullptr;  // address/TLV: error code, length, data (n_data + 4)
    const uint8_t *data = nullptr;
    uint32_t n_data = 0;
};
// Address or TLV body of a frame of n bytes: error code at 26, length at 28, data at 30.
BodyView addr_body(const uint8_t *f, uint32_t n);
// Receiving-card reply body: length at 22, data at 24.
BodyView card_body(const uint8_t *f, uint32_t n);

// The request frame of a descriptor for channel n_channel, staged by the builders: the
// label is drawn, and the whole length (checksums included) measured. 0, or the code of
// the step that refused, logged ("error code %d" for a builder; the measure logs its own).
struct Staged {
    frame_header_t frame{};
    request_header_t header{};
    request_body_t body{};
    uint32_t n_prefix = 0;  // bytes in front of the data
    uint64_t n_length = 0;  // whole frame, for n_wbuflen data bytes
};
int32_t stage_request(const transfer_op_t &op, uint32_t n_channel, uint32_t n_wbuflen, Staged *out);
// Writes the staged frame with its data and checksums into out (which holds n_length
// bytes); sets out's length.
int32_t assemble_request(Staged *st, const uint8_t *p_wbuf, uint32_t n_wbuflen, data_buf_t *out);

// The 38-byte frame that asks receiving card n_card behind port n_eth whether it has
// carried out its last write.
void encode_poll(uint16_t n_lable, uint32_t n_eth, uint32_t n_card, rvcard_polling_packet_t *f);

}  // namespace sdk::codec
