// Frames as a simulated board sees them: requests parsed from a datagram, replies and
// report frames built byte by byte. All multi-byte fields are little-endian as stored.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace board_sim {

constexpr uint16_t kDelimiter = 0xBB55;
constexpr uint8_t kFrameSlot = 1;
constexpr size_t kFrameHeaderLen = 10;
constexpr size_t kAddrFrameMin = 32;    // headers, address/TLV body and checksum
constexpr size_t kRvcardFrameMin = 38;  // headers, receiving-card body and both checksums
constexpr size_t kMaxData = 9000;       // the most data a reply may carry

constexpr uint8_t kParamAck = 0x40;
constexpr uint8_t kParamWrite = 0x20;
constexpr uint8_t kParamReport = 0x10;
constexpr uint8_t kParamBodyMask = 0x0F;

enum class BodyKind : uint8_t { kAddress = 0, kTlv = 1, kRvcard = 2 };

// The register a receiving card is polled on after a write without acknowledgement.
constexpr uint32_t kPollRegister = 0x02000200;
// What a card answers to a poll: the 16-bit value 1, "the last request has been done".
constexpr std::array<uint8_t, 2> kPollDone = {0x01, 0x00};

enum class ParseError {
    kNone,
    kShort,
    kDelimiter,
    kFrameType,
    kLength,
    kBodyType,
    kDataLength,
    kChecksum,
};

const char *parse_error_text(ParseError e);

struct Request {
    uint16_t label = 0;
    std::array<uint8_t, 12> header_b{};  // parameter byte, device type, index, group
    BodyKind body = BodyKind::kAddress;
    bool ack = false;
    bool write = false;
    uint32_t addr = 0;              // n_addr, n_tag or n_reg_addr
    int32_t read_len = 0;           // bytes asked for by a read (may be out of range)
    uint8_t port = 0;               // receiving-card body only
    uint16_t card = 0;              // receiving-card body only
    const uint8_t *data = nullptr;  // write data, pointing into the parsed datagram
    size_t data_len = 0;

    uint8_t param() const { return header_b[0]; }
    uint8_t device_type() const { return header_b[1]; }
    uint16_t device_index() const;
};

// Checks and decodes one request frame; the Request refers to `p` for the write data.
ParseError parse_request(const uint8_t *p, size_t n, Request *out);

// A read of the poll register through a receiving-card body.
bool is_poll(const Request &r);

// One line about a request: "label 7: poll of receiving card 3 behind port 0",
// "label 8: write 2 bytes at 0x00000044 of receiving card 3 behind port 0, no ack".
std::string describe(const Request &r);

// The reply to `r` carrying `n` data bytes: the address/TLV layout with error code `err`,
// or the receiving-card layout (header B names the port as a DEVICE_ETH index).
std::vector<uint8_t> build_reply(const Request &r, int16_t err, const uint8_t *data, size_t n);

// An unsolicited report frame: report bit set, address body at register 0, 4 data bytes
// holding `seq`.
std::vector<uint8_t> build_report(uint16_t label, uint32_t seq);

void put_le32(uint8_t *p, uint32_t v);

}  // namespace board_sim
