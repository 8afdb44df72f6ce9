// The trigger thread: wakes the monitor and the sender regularly, so that time-outs,
// write-waits and polling repetitions are seen when nothing else happens.
#include <semaphore.h>
#include <unistd.h>

#include "transfer_server.h"
#include "transfer_server/engine_globals.h"

namespace {
constexpr useconds_t kPeriodUs = 1500;
}

extern "C" {

SDK_API void *sdk_transfer_trigger_thread(void * /*arg*/) {
    for (;;) {
        sem_post(&g_st_monitor_manage_list.sem);
        sem_post(&g_st_send_manage_list.sem);
        usleep(kPeriodUs);
    }
    return nullptr;
}

}  // extern "C"
