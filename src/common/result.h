// Result codes shared by the units.
#pragma once

#include <cstdint>

namespace sdk {

constexpr int32_t kOk = 0;
constexpr int32_t kErrPortRecord = -1;  // receiving-card queue without port record
constexpr int32_t kErrSection = -3;     // section neither FPGA nor MCU; list count 0
constexpr int32_t kErrNoMemory = -5;
constexpr int32_t kErrConfig = -1000;
constexpr int32_t kErrLog = -2000;
constexpr int32_t kErrRecv = -3000;
constexpr int32_t kErrRefused = -4000;
constexpr int32_t kErrTimeout = -4001;
constexpr int32_t kErrNullBuffer = -4004;
constexpr int32_t kErrFrameTooLong = -4006;
constexpr int32_t kErrNoLabel = -4008;
constexpr int32_t kErrNoDevice = 14;  // configuration without "device"

}  // namespace sdk
