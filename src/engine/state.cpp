// The engine's process-wide containers and the host's access to the report queue.
#include "engine/state.h"

#include "transfer_server.h"

report_queue_t g_st_report_queue;
send_queue_list_t g_st_sender_queue;
monitor_list_manage_t g_st_monitor_manage_list;
send_list_manage_t g_st_send_manage_list;

extern "C" {

// Settled: the host consumes reports through the process-wide queue's own operations.
SDK_API report_queue_t *sdk_get_report_queue(void) {
    return &g_st_report_queue;
}

}  // extern "C"
