// The enumeration fields of a request descriptor as the host stored them.
//
// The descriptor is filled by C hosts, which may store any number in e_mode, e_code or
// e_type; loading such a number through the C++ enumeration type is undefined, so these
// fields are read as the 32-bit values that they hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "transfer_server.h"

namespace sdk {

static_assert(sizeof(transfer_section) == 4 && sizeof(frame_code) == 4 &&
                  sizeof(request_body_type) == 4,
              "descriptor enumerations are 32-bit fields");

// The value of the enumeration field at `offset` (offsetof(transfer_op_t, field)).
inline uint32_t op_enum(const transfer_op_t &op, size_t offset) {
    uint32_t v;
    memcpy(&v, reinterpret_cast<const uint8_t *>(&op) + offset, sizeof(v));
    return v;
}

inline uint32_t op_mode(const transfer_op_t &op) {
    return op_enum(op, offsetof(transfer_op_t, e_mode));
}
inline uint32_t op_code(const transfer_op_t &op) {
    return op_enum(op, offsetof(transfer_op_t, e_code));
}
inline uint32_t op_type(const transfer_op_t &op) {
    return op_enum(op, offsetof(transfer_op_t, e_type));
}

}  // namespace sdk
