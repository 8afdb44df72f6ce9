// The engine's state and the host's access to the report queue.
#include "engine/state.h"

#include "transfer_server.h"

namespace sdk {
Engine g_engine;
}  // namespace sdk

report_queue_t &g_st_report_queue = sdk::g_engine.report_queue;
send_queue_list_t &g_st_sender_queue = sdk::g_engine.sender_queue;
monitor_list_manage_t &g_st_monitor_manage_list = sdk::g_engine.monitor_lists;
send_list_manage_t &g_st_send_manage_list = sdk::g_engine.send_lists;

extern "C" {

// Settled: the host consumes reports through the process-wide queue's own operations.
SDK_API report_queue_t *sdk_get_report_queue(void) {
    return &g_st_report_queue;
}

}  // extern "C"
