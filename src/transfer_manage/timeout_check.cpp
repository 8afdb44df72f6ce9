// The time test shared by the sender and the time-out monitor.
#include <sys/time.h>

#include "common/result.h"
#include "transfer_manage.h"

extern "C" {

SDK_API int32_t sdk_packet_timeout_check(packet_general_data_t *p_packet) {
    if (p_packet == nullptr) return sdk::kErrRefused;
    struct timeval st_now = {};
    gettimeofday(&st_now, nullptr);
    // Millisecond arithmetic in unsigned 32 bits, each microsecond part truncated first,
    // so that every caller counts an attempt's time the same way.
    uint32_t n_elapsed =
        1000u * static_cast<uint32_t>(st_now.tv_sec - p_packet->st_start_time.tv_sec) +
        static_cast<uint32_t>(st_now.tv_usec / 1000) -
        static_cast<uint32_t>(p_packet->st_start_time.tv_usec / 1000);
    return p_packet->n_timeout > n_elapsed ? sdk::kOk : sdk::kErrTimeout;
}

}  // extern "C"
