#include "board_sim/frame.h"

#include <cstdio>
#include <cstring>

#include "common/bytes.h"

namespace board_sim {

using sdk::byte_sum16;
using sdk::get_le16;
using sdk::get_le32;
using sdk::put_le16;

namespace {

constexpr uint16_t kRvcardSumBias = 0x5555;

void put_frame_header(uint8_t *p, uint16_t label, size_t frame_len) {
    put_le16(p, kDelimiter);
    p[2] = p[3] = p[4] = 0;
    p[5] = kFrameSlot;
    put_le16(p + 6, label);
    put_le16(p + 8, static_cast<uint16_t>(frame_len - kFrameHeaderLen));
}

ParseError parse_addr_body(const uint8_t *p, size_t n, Request *r) {
    if (n < kAddrFrameMin) return ParseError::kShort;
    size_t data_len = get_le16(p + 28);
    if (data_len > kMaxData) return ParseError::kDataLength;
    if (n != kAddrFrameMin + data_len) return ParseError::kLength;
    if (get_le16(p + n - 2) != byte_sum16(p, n - 2)) return ParseError::kChecksum;
    r->addr = get_le32(p + 22);
    r->read_len = static_cast<int16_t>(get_le16(p + 26));
    r->data = p + 30;
    r->data_len = data_len;
    return ParseError::kNone;
}

ParseError parse_rvcard_body(const uint8_t *p, size_t n, Request *r) {
    if (n < kRvcardFrameMin) return ParseError::kShort;
    size_t len_field = get_le16(p + 32);
    // A read names the count it wants in the same field that gives a write its data count.
    size_t data_len = r->write ? len_field : 0;
    if (data_len > kMaxData) return ParseError::kDataLength;
    if (n != kRvcardFrameMin + data_len) return ParseError::kLength;
    uint16_t card_sum = static_cast<uint16_t>(byte_sum16(p + 22, 12 + data_len) + kRvcardSumBias);
    if (get_le16(p + 34 + data_len) != card_sum) return ParseError::kChecksum;
    if (get_le16(p + n - 2) != byte_sum16(p, n - 2)) return ParseError::kChecksum;
    r->port = p[23];
    r->card = get_le16(p + 24);
    r->addr = get_le32(p + 28);
    r->read_len = static_cast<int32_t>(len_field);
    r->data = p + 34;
    r->data_len = data_len;
    return ParseError::kNone;
}

}  // namespace

void put_le32(uint8_t *p, uint32_t v) {
    put_le16(p, static_cast<uint16_t>(v));
    put_le16(p + 2, static_cast<uint16_t>(v >> 16));
}

const char *parse_error_text(ParseError e) {
    switch (e) {
        case ParseError::kNone:
            return "ok";
        case ParseError::kShort:
            return "frame too short";
        case ParseError::kDelimiter:
            return "bad delimiter";
        case ParseError::kFrameType:
            return "unknown frame type";
        case ParseError::kLength:
            return "length fields disagree with the datagram";
        case ParseError::kBodyType:
            return "unknown body type";
        case ParseError::kDataLength:
            return "data length above 9000";
        case ParseError::kChecksum:
            return "bad checksum";
    }
    return "?";
}

uint16_t Request::device_index() const {
    return get_le16(header_b.data() + 2);
}

ParseError parse_request(const uint8_t *p, size_t n, Request *out) {
    if (p == nullptr || n < kFrameHeaderLen + 12) return ParseError::kShort;
    if (get_le16(p) != kDelimiter) return ParseError::kDelimiter;
    if (p[5] != kFrameSlot) return ParseError::kFrameType;
    if (get_le16(p + 8) + kFrameHeaderLen != n) return ParseError::kLength;

    Request r;
    r.label = get_le16(p + 6);
    std::memcpy(r.header_b.data(), p + 10, r.header_b.size());
    r.ack = (r.param() & kParamAck) != 0;
    r.write = (r.param() & kParamWrite) != 0;
    ParseError e;
    switch (r.param() & kParamBodyMask) {
        case 0:
            r.body = BodyKind::kAddress;
            e = parse_addr_body(p, n, &r);
            break;
        case 1:
            r.body = BodyKind::kTlv;
            e = parse_addr_body(p, n, &r);
            break;
        case 2:
            r.body = BodyKind::kRvcard;
            e = parse_rvcard_body(p, n, &r);
            break;
        default:
            return ParseError::kBodyType;
    }
    if (e == ParseError::kNone) *out = r;
    return e;
}

bool is_poll(const Request &r) {
    return r.body == BodyKind::kRvcard && !r.write && r.addr == kPollRegister;
}

std::string describe(const Request &r) {
    char line[160];
    const auto at = static_cast<size_t>(snprintf(line, sizeof line, "label %u: ", r.label));
    if (is_poll(r)) {
        snprintf(line + at, sizeof line - at, "poll of receiving card %u behind port %u", r.card,
                 r.port);
        return line;
    }
    if (r.write)
        snprintf(line + at, sizeof line - at, "write %zu byte%s at 0x%08x", r.data_len,
                 r.data_len == 1 ? "" : "s", r.addr);
    else
        snprintf(line + at, sizeof line - at, "read %d byte%s at 0x%08x", r.read_len,
                 r.read_len == 1 ? "" : "s", r.addr);
    std::string text = line;
    if (r.body == BodyKind::kRvcard)
        text += " of receiving card " + std::to_string(r.card) + " behind port " +
                std::to_string(r.port);
    else
        text += std::string(" of ") + (r.device_type() == 1 ? "MCU " : "FPGA ") +
                std::to_string(r.device_index());
    if (!r.ack) text += ", no ack";
    return text;
}

std::vector<uint8_t> build_reply(const Request &r, int16_t err, const uint8_t *data, size_t n) {
    std::vector<uint8_t> f;
    if (r.body == BodyKind::kRvcard) {
        f.assign(24 + n + 2, 0);
        put_frame_header(f.data(), r.label, f.size());
        std::memcpy(&f[10], r.header_b.data(), r.header_b.size());
        f[11] = 2;  // DEVICE_ETH: the library matches the reply by the port alone
        put_le16(&f[12], r.port);
        put_le16(&f[22], static_cast<uint16_t>(n));
        if (n > 0) std::memcpy(&f[24], data, n);
    } else {
        f.assign(kAddrFrameMin + n, 0);
        put_frame_header(f.data(), r.label, f.size());
        std::memcpy(&f[10], r.header_b.data(), r.header_b.size());
        put_le32(&f[22], r.addr);
        put_le16(&f[26], static_cast<uint16_t>(err));
        put_le16(&f[28], static_cast<uint16_t>(n));
        if (n > 0) std::memcpy(&f[30], data, n);
    }
    put_le16(&f[f.size() - 2], byte_sum16(f.data(), f.size() - 2));
    return f;
}

std::vector<uint8_t> build_report(uint16_t label, uint32_t seq) {
    std::vector<uint8_t> f(kAddrFrameMin + 4, 0);
    put_frame_header(f.data(), label, f.size());
    f[10] = kParamReport | static_cast<uint8_t>(BodyKind::kAddress);
    put_le16(&f[28], 4);
    put_le32(&f[30], seq);
    put_le16(&f[f.size() - 2], byte_sum16(f.data(), f.size() - 2));
    return f;
}

}  // namespace board_sim
