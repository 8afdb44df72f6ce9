// The container step of start-up, shared by start-up and the engine tests.
#include "channel/direct_receive.h"
#include "common/log.h"
#include "common/result.h"
#include "transfer_server.h"
#include "engine/state.h"
#include "engine/stats.h"

extern "C" {

SDK_API int32_t sdk_transfer_containers_init(void) {
    int32_t n_ret = sdk_report_queue_init(&g_st_report_queue);
    if (n_ret == 0) n_ret = sdk_basics_send_queue_init(&g_st_sender_queue, g_st_transfer);
    if (n_ret == 0) n_ret = sdk_monitor_list_manage_init(&g_st_monitor_manage_list, g_st_transfer);
    if (n_ret == 0) n_ret = sdk_send_list_manage_init(&g_st_send_manage_list, g_st_transfer);
    if (n_ret == 0) n_ret = sdk_rvcard_queue_manage_init(&g_st_transfer);
    if (n_ret == 0) n_ret = sdk_lable_list_manage_init(&g_st_transfer);
    if (n_ret == 0 && !sdk::direct_receive_setup(true)) n_ret = sdk::kErrNoMemory;
    if (n_ret == 0 && !sdk::stats_setup(g_st_transfer.n_num)) n_ret = sdk::kErrNoMemory;
    if (n_ret != 0) TLOGE("error code %d", n_ret);
    return n_ret;
}

}  // extern "C"
