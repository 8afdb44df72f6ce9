// The engine's process-wide containers, private to the library (hidden symbols). Start-up
// builds them once, before any worker thread runs; they are never torn down.
#pragma once

#include "transfer_manage.h"

// Reports received on report channels and serial channels; drained by the host through
// sdk_get_report_queue.
extern report_queue_t g_st_report_queue;
// One send queue per channel (entry i belongs to channel i).
extern send_queue_list_t g_st_sender_queue;
// Requests in flight (consumer: the time-out monitor thread).
extern monitor_list_manage_t g_st_monitor_manage_list;
// Send queues with frames waiting (consumer: the sender thread).
extern send_list_manage_t g_st_send_manage_list;

namespace sdk {

// Frees what start-up built and closes what it opened (channel table, endpoints,
// containers), leaving the engine's globals as they were at load. Only while no worker
// thread runs and no request exists.
void engine_teardown();

// Opens the configured channels that are still closed (UDP channels while eth0 was down,
// serial channels whose device was missing), on a running engine; the board arrays of
// root must be those start-up read. Returns how many it opened.
uint32_t engine_reopen(const char *slots, uint32_t n_slots, mio_json *root);

}  // namespace sdk
