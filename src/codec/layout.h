// Offsets of the request frame as it appears on the wire.
#pragma once

#include <cstdint>

namespace sdk::frame {

constexpr uint32_t kHeaderType = 1;      // request header B, the only one built
constexpr uint32_t kOffLable = 6;        // frame header: label
constexpr uint32_t kOffFrameType = 5;    // frame header: frame type
constexpr uint32_t kOffLen = 8;          // frame header: length after the header
constexpr uint32_t kOffParam = 10;       // header B: parameter byte
constexpr uint32_t kOffBody = 22;        // first body byte
constexpr uint32_t kOffAddrErr = 26;     // address/TLV body: error code
constexpr uint32_t kOffAddrLen = 28;     // address/TLV body: data length
constexpr uint32_t kOffAddrData = 30;    // address/TLV body: data
constexpr uint32_t kOffRvcardData = 34;  // receiving-card body: data
constexpr uint32_t kAddrPrefixLen = 30;  // bytes in front of the data, address/TLV body
constexpr uint32_t kRvcardPrefixLen = 34;
constexpr uint32_t kMinAddrFrame = 32;  // address frame without data, checksum included

}  // namespace sdk::frame
