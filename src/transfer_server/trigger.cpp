// The trigger thread: wakes the monitor and the sender regularly, so that time-outs,
// write-waits and polling repetitions are seen when nothing else happens.
#include <semaphore.h>
#include <unistd.h>

#include "common/lock.h"
#include "transfer_server.h"
#include "transfer_server/engine_globals.h"

namespace {

constexpr useconds_t kPeriodUs = 1500;

// Every request lives in a monitor list from its acceptance to its end. With none, a walk
// of the monitor or of the sender has nothing to do: an idle engine skips the wake-ups
// (a new request wakes the sender itself, and is seen by the next period).
bool requests_in_flight() {
    sdk::MutexLock lock(&g_st_monitor_manage_list.st_count_lock);
    return g_st_monitor_manage_list.n_list_node_num != 0;
}

}  // namespace

extern "C" {

SDK_API void *sdk_transfer_trigger_thread(void * /*arg*/) {
    for (;;) {
        if (requests_in_flight()) {
            sem_post(&g_st_monitor_manage_list.sem);
            sem_post(&g_st_send_manage_list.sem);
        }
        usleep(kPeriodUs);
    }
    return nullptr;
}

}  // extern "C"
