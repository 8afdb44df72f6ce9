// Library start-up: configuration, channels, containers, then the worker threads.
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>

#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "mio_json.h"
#include "transfer_server.h"
#include "channel/channel_fds.h"
#include "channel/direct_receive.h"
#include "engine/state.h"
#include "engine/trigger.h"

namespace {

struct WorkerThread {
    void *(*body)(void *);
    const char *name;  // nullptr: the trigger thread stays unnamed
};

constexpr WorkerThread kWorkers[] = {
    {sdk_transfer_sender_thread, "sender_thread"},
    {sdk_transfer_recv_thread, "recv_thread"},
    {sdk_transfer_trigger_thread, nullptr},
    {sdk_transfer_report_recv_thread, "report_recv"},
    {sdk_transfer_uart_recv_thread, "uart_recv"},
    {sdk_transfer_timeout_monitor_thread, "monitor_thread"},
};

// How far start-up got. Settled: a failed attempt never leaves a half-built engine
// behind, and a host may call again until everything is up. A failure while reading the
// file or building the engine (a bad member, a port that cannot be bound) takes apart
// whatever was built, so a later call starts afresh; a failure while starting the worker
// threads (which cannot be stopped) keeps the engine, and a later call starts the threads
// that are still missing. A call on a running engine opens the channels that start-up
// had to leave closed (eth0 not up yet, a serial device not there yet) and changes
// nothing else.
enum class Stage { kIdle, kBuilt, kRunning };
pthread_mutex_t g_init_lock = PTHREAD_MUTEX_INITIALIZER;      // serialises start-up calls
Stage g_stage = Stage::kIdle;                                 // under g_init_lock
size_t g_n_started = 0;                                       // workers started, under g_init_lock
pthread_t g_threads[sizeof(kWorkers) / sizeof(kWorkers[0])];  // the first g_n_started

int32_t build_engine(char *slot, uint32_t slotnum, mio_json *root) {
    int32_t n_ret = sdk_device_transfer_mem_init(root);
    if (n_ret != sdk::kOk) {
        TLOGE("error code %d", n_ret);
        return n_ret;
    }
    n_ret = sdk_maincards_transfer_init(root);
    if (n_ret >= 0) n_ret = sdk_subcards_transfer_init(slot, slotnum, root);
    if (n_ret >= 0) n_ret = sdk_backplane_transfer_init(root);
    if (n_ret < 0) {
        TLOGE("error code %d", n_ret);
        return n_ret;
    }
    // The channel table is complete here: the containers take their copies of it now.
    return sdk_transfer_containers_init();  // logs its own failure
}

int32_t start_workers() {
    for (; g_n_started < sizeof(kWorkers) / sizeof(kWorkers[0]); ++g_n_started) {
        const WorkerThread &w = kWorkers[g_n_started];
        pthread_t t;
        const int n_err = pthread_create(&t, nullptr, w.body, nullptr);
        if (n_err != 0) {
            TLOGE("error code %d", n_err);
            return n_err;
        }
        if (w.name != nullptr) pthread_setname_np(t, w.name);
        g_threads[g_n_started] = t;  // joined by sdk_transfer_exit
    }
    return sdk::kOk;
}

// Wakes every worker thread wherever it sleeps, so that it sees the engine stop.
void wake_workers() {
    sem_post(&g_st_send_manage_list.sem);
    sem_post(&g_st_monitor_manage_list.sem);
    sdk::trigger_wake();
    for (sdk::Receiver r : {sdk::Receiver::kNet, sdk::Receiver::kReport, sdk::Receiver::kUart})
        sdk::wake_receiver(r);
}

}  // namespace

extern "C" {

// Settled: both exported locks are initialised statically (st_lable_lock in lable.cpp),
// so labels may be taken before start-up and start-up never re-initialises a mutex that
// another thread could hold.
SDK_API pthread_mutex_t st_report_lock = PTHREAD_MUTEX_INITIALIZER;

SDK_API int32_t sdk_transfer_init(char *slot, uint32_t slotnum, char *transfer_path) {
    TLOGI("start");
    TLOGD("transferpath %s ", transfer_path != nullptr ? transfer_path : "(null)");
    TLOGD("feater pid is  %d ", static_cast<int>(getppid()));
    sdk::MutexLock init_lock(&g_init_lock);
    int32_t n_ret = sdk::kOk;
    if (g_stage == Stage::kRunning) {
        mio_json *root = transfer_path != nullptr ? mio_json_fromfile(transfer_path) : nullptr;
        if (root == nullptr) {
            n_ret = sdk::kErrConfig;
            TLOGE("error code %d", n_ret);
        } else {
            const uint32_t n_opened = sdk::engine_reopen(slot, slotnum, root);
            mio_json_delete(root);
            TLOGI("transfer already initialised, %u closed channel(s) opened now", n_opened);
        }
    } else if (g_stage == Stage::kBuilt) {
        TLOGI("engine built by an earlier call, starting the missing threads");
        n_ret = start_workers();
    } else {
        mio_json *root = transfer_path != nullptr ? mio_json_fromfile(transfer_path) : nullptr;
        if (root == nullptr) {
            n_ret = sdk::kErrConfig;
            TLOGE("error code %d", n_ret);
        } else {
            n_ret = build_engine(slot, slotnum, root);
            // Settled: the tree is released as soon as set-up is over; the channel table
            // keeps copies of everything it needs.
            mio_json_delete(root);
            if (n_ret == sdk::kOk) {
                g_stage = Stage::kBuilt;
                n_ret = start_workers();
            } else {
                sdk::engine_teardown();
            }
        }
    }
    if (n_ret == sdk::kOk) g_stage = Stage::kRunning;
    TLOGI("end ret %d", n_ret);
    return n_ret;
}

SDK_API int32_t sdk_transfer_exit(void) {
    TLOGI("start");
    sdk::MutexLock init_lock(&g_init_lock);
    if (g_stage == Stage::kIdle) {
        TLOGI("end ret %d", sdk::kOk);
        return sdk::kOk;
    }
    // New requests are refused from here on; those being registered finish first.
    sdk::g_engine.b_stopping.store(true, std::memory_order_seq_cst);
    while (sdk::g_engine.n_registering.load(std::memory_order_seq_cst) != 0)
        sched_yield();
    for (size_t i = 0; i < g_n_started; ++i) {
        // Each thread is woken until it has left: a post may be taken by a walk already
        // under way, so the wake is repeated while the join would wait.
        while (pthread_tryjoin_np(g_threads[i], nullptr) == EBUSY) {
            wake_workers();
            usleep(1000);
        }
    }
    g_n_started = 0;
    sdk::end_requests_in_flight();
    sdk::direct_receive_drain();
    sdk::engine_teardown();
    sdk::g_engine.b_stopping.store(false, std::memory_order_seq_cst);
    g_stage = Stage::kIdle;
    TLOGI("end ret %d", sdk::kOk);
    return sdk::kOk;
}

}  // extern "C"
