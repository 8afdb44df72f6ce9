// The time test shared by the sender and the time-out monitor (monotonic clock).
#include "common/clock.h"
#include "common/result.h"
#include "transfer_manage.h"

extern "C" {

SDK_API int32_t sdk_packet_timeout_check(packet_general_data_t *p_packet) {
    if (p_packet == nullptr) return sdk::kErrRefused;
    const uint32_t n_elapsed = sdk::elapsed_ms(p_packet->st_start_time);
    return p_packet->n_timeout > n_elapsed ? sdk::kOk : sdk::kErrTimeout;
}

}  // extern "C"
