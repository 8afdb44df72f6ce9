// Result codes shared by the units: the public names of transfer_errors.h.
#pragma once

#include <cstdint>

#include "transfer_errors.h"

namespace sdk {

constexpr int32_t kOk = SDK_OK;
constexpr int32_t kErrPortRecord = SDK_ERR_PORT_RECORD;
constexpr int32_t kErrSection = SDK_ERR_SECTION;
constexpr int32_t kErrNoMemory = SDK_ERR_NO_MEMORY;
constexpr int32_t kErrConfig = SDK_ERR_CONFIG;
constexpr int32_t kErrLog = SDK_ERR_LOG;
constexpr int32_t kErrRecv = SDK_ERR_RECV;
constexpr int32_t kErrRefused = SDK_ERR_REFUSED;
constexpr int32_t kErrTimeout = SDK_ERR_TIMEOUT;
constexpr int32_t kErrNullBuffer = SDK_ERR_NULL_BUFFER;
constexpr int32_t kErrFrameTooLong = SDK_ERR_FRAME_TOO_LONG;
constexpr int32_t kErrNoLabel = SDK_ERR_NO_LABEL;
constexpr int32_t kErrNoDevice = SDK_ERR_NO_DEVICE;

}  // namespace sdk
