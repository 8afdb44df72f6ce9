// Little-endian field access and the 16-bit byte sum of the wire protocol. Frame fields
// are little-endian as stored; these helpers read and write them at any alignment.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sdk {

inline uint16_t get_le16(const uint8_t *p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

inline void put_le16(uint8_t *p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}

inline uint32_t get_le32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

// Sum of the bytes taken as unsigned values, modulo 65536.
inline uint16_t byte_sum16(const uint8_t *p, size_t n) {
    uint32_t sum = 0;
    for (size_t i = 0; i < n; ++i)
        sum += p[i];
    return static_cast<uint16_t>(sum);
}

}  // namespace sdk
