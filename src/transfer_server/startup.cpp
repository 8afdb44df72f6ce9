// Library start-up: configuration, channels, containers, then the worker threads.
#include <pthread.h>
#include <unistd.h>

#include "common/log.h"
#include "common/result.h"
#include "mio_json.h"
#include "transfer_server.h"

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

// Settled: start-up runs at most once per process. The claim is taken before the file is
// read and given back only when the file cannot be read, the one failure that has
// changed nothing yet; every later failure leaves a half-built engine that a second run
// would build over (table, sockets, threads), so further calls are refused.
bool g_b_init_claimed = false;

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
    for (const WorkerThread &w : kWorkers) {
        pthread_t t;
        const int n_err = pthread_create(&t, nullptr, w.body, nullptr);
        if (n_err != 0) {
            TLOGE("error code %d", n_err);
            return n_err;
        }
        if (w.name != nullptr) pthread_setname_np(t, w.name);
        pthread_detach(t);
    }
    return sdk::kOk;
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
    if (__atomic_exchange_n(&g_b_init_claimed, true, __ATOMIC_ACQ_REL)) {
        TLOGE("transfer already initialised, call refused");
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    int32_t n_ret = sdk::kOk;
    mio_json *root = transfer_path != nullptr ? mio_json_fromfile(transfer_path) : nullptr;
    if (root == nullptr) {
        n_ret = sdk::kErrConfig;
        TLOGE("error code %d", n_ret);
        __atomic_store_n(&g_b_init_claimed, false, __ATOMIC_RELEASE);
    } else {
        n_ret = build_engine(slot, slotnum, root);
        // Settled: the tree is released as soon as set-up is over; the channel table
        // keeps copies of everything it needs.
        mio_json_delete(root);
        if (n_ret == sdk::kOk) n_ret = start_workers();
    }
    TLOGI("end ret %d", n_ret);
    return n_ret;
}

}  // extern "C"
