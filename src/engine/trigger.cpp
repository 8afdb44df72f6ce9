// The trigger thread: wakes the monitor and the sender regularly, so that time-outs,
// write-waits and polling repetitions are seen when nothing else happens.
#include "engine/trigger.h"

#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include "common/lock.h"
#include "transfer_server.h"
#include "engine/state.h"

namespace {

constexpr useconds_t kPeriodUs = 1500;

// Every request lives in a monitor list from its acceptance to its end. With none, a walk
// of the monitor or of the sender has nothing to do, so an idle engine skips the periods
// and the trigger sleeps until a request is accepted: an idle controller pays no wake-ups
// (a new request wakes the sender itself; its time-outs need the periods, which resume
// with the kick).
bool requests_in_flight() {
    sdk::MutexLock lock(&g_st_monitor_manage_list.st_count_lock);
    return g_st_monitor_manage_list.n_list_node_num != 0;
}

pthread_mutex_t g_idle_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t g_idle_cond = PTHREAD_COND_INITIALIZER;
bool g_b_idle = false;  // under g_idle_lock

// The kicker counts its request in before it takes g_idle_lock, and the trigger looks at
// the count after it has raised g_b_idle under the same lock, so a request is either seen
// here or its kick finds the trigger asleep: no kick is lost, and the sleep needs no time
// limit (an idle engine costs no wake-ups at all).
void sleep_while_idle() {
    sdk::MutexLock lock(&g_idle_lock);
    g_b_idle = true;
    while (g_b_idle && !requests_in_flight() && !sdk::stopping())
        pthread_cond_wait(&g_idle_cond, &g_idle_lock);
    g_b_idle = false;
}

}  // namespace

namespace sdk {

void trigger_kick() {
    MutexLock lock(&g_idle_lock);
    if (!g_b_idle) return;
    g_b_idle = false;
    pthread_cond_signal(&g_idle_cond);
}

void trigger_wake() {
    MutexLock lock(&g_idle_lock);
    pthread_cond_signal(&g_idle_cond);
}

}  // namespace sdk

extern "C" {

SDK_API void *sdk_transfer_trigger_thread(void * /*arg*/) {
    while (!sdk::stopping()) {
        if (!requests_in_flight()) {
            sleep_while_idle();
            continue;
        }
        sem_post(&g_st_monitor_manage_list.sem);
        sem_post(&g_st_send_manage_list.sem);
        usleep(kPeriodUs);
    }
    return nullptr;
}

}  // extern "C"
