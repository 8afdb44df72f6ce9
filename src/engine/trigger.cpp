// The trigger thread: the engine's timer. It sleeps until the earliest deadline of the
// requests in flight and then wakes the monitor, which handles what is due. With nothing
// in flight it sleeps until a deadline is set: an idle engine costs no wake-ups.
#include "engine/trigger.h"

#include <semaphore.h>

#include "engine/deadlines.h"
#include "engine/state.h"
#include "transfer_server.h"

namespace sdk {

void trigger_wake() {
    deadline_wake();
}

}  // namespace sdk

extern "C" {

SDK_API void *sdk_transfer_trigger_thread(void * /*arg*/) {
    while (sdk::deadline_wait_due())
        sem_post(&g_st_monitor_manage_list.sem);
    return nullptr;
}

}  // extern "C"
