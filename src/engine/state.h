// The running engine's own state, private to the library: the containers that start-up
// builds, the flag that stops the worker threads, and the count of host calls that are
// registering a request. One instance, built by sdk_transfer_init and taken apart by
// sdk_transfer_exit; the channel table itself is the exported g_st_transfer.
#pragma once

#include <atomic>

#include "transfer_manage.h"

namespace sdk {

struct Engine {
    // Reports received on report channels and serial channels; drained by the host
    // through sdk_get_report_queue.
    report_queue_t report_queue{};
    // One send queue per channel (entry i belongs to channel i).
    send_queue_list_t sender_queue{};
    // Requests in flight (consumer: the time-out monitor thread).
    monitor_list_manage_t monitor_lists{};
    // Send queues with frames waiting (consumer: the sender thread).
    send_list_manage_t send_lists{};
    // Set by sdk_transfer_exit: the worker threads leave their loops, requests are refused.
    std::atomic<bool> b_stopping{false};
    // sdk_request calls between their look at b_stopping and the end of their registration.
    std::atomic<int> n_registering{0};
};

extern Engine g_engine;

inline bool stopping() {
    return g_engine.b_stopping.load(std::memory_order_acquire);
}

// Frees what start-up built and closes what it opened (channel table, endpoints,
// containers), leaving the engine's state as it was at load. Only while no worker thread
// runs and no request exists.
void engine_teardown();

// Opens the configured channels that are still closed (UDP channels while eth0 was down,
// serial channels whose device was missing), on a running engine; the board arrays of
// root must be those start-up read. Returns how many it opened.
uint32_t engine_reopen(const char *slots, uint32_t n_slots, mio_json *root);

// Ends every request in flight as timed out and wakes its caller; the engine's threads
// no longer run.
void end_requests_in_flight();

}  // namespace sdk

// The containers under the names the engine's code has always used for them.
extern report_queue_t &g_st_report_queue;
extern send_queue_list_t &g_st_sender_queue;
extern monitor_list_manage_t &g_st_monitor_manage_list;
extern send_list_manage_t &g_st_send_manage_list;
