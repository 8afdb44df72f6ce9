// Checks and data extraction on frames that a host holds (replies, reports).
#include <cstring>

#include "common/bytes.h"
#include "common/log.h"
#include "common/result.h"
#include "codec/codec.h"
#include "transfer_server.h"

extern "C" {

SDK_API int32_t sdk_transfer_checksum(uint8_t *p_send_buf, uint32_t n_len) {
    if (p_send_buf == nullptr) {
        TLOGE("error code %d", sdk::kErrNullBuffer);
        return sdk::kErrNullBuffer;
    }
    return sdk::byte_sum16(p_send_buf, n_len);
}

SDK_API int32_t sdk_transfer_checksum_data(uint8_t *p_send_buf, uint32_t n_len) {
    if (p_send_buf == nullptr) {
        TLOGE("error code %d", sdk::kErrNullBuffer);
        return sdk::kErrNullBuffer;
    }
    // Open point settled here: a frame too short to hold its checksum is refused instead
    // of being read before its start.
    if (n_len < 2) {
        TLOGE(" max num error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    const uint16_t stored = sdk::get_le16(p_send_buf + n_len - 2);
    const uint16_t computed = sdk::byte_sum16(p_send_buf, n_len - 2);
    TLOGD("data is %d", stored);
    TLOGD("n_checknum is %d", computed);
    return stored == computed ? 0 : 1;
}

SDK_API int32_t sdk_get_protocol_data(int8_t *p_data, int8_t *p_recv, uint16_t n_buf_len) {
    using namespace sdk::frame;
    if (n_buf_len < kMinAddrFrame) {
        TLOGE(" max num error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    if (p_data == nullptr || p_recv == nullptr) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    const auto *frame = reinterpret_cast<const uint8_t *>(p_recv);
    if (sdk::codec::frame_type(frame) != FRAME_SLOT || sdk::codec::body_kind(frame) != BODY_ADDRESS)
        return sdk::kErrRefused;
    // Open point settled here: besides the 9000-byte limit of the destination, the stated
    // length must lie within the bytes received, so nothing is read past the frame.
    const sdk::codec::BodyView v = sdk::codec::addr_body(frame, n_buf_len);
    if (v.status != sdk::codec::Body::kOk) {
        TLOGE(" max num error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    memcpy(p_data, v.data, v.n_data);
    return static_cast<int32_t>(v.n_data);
}

}  // extern "C"
