// The process-wide label counter shared by request and polling frames.
#include "common/lock.h"
#include "transfer_server.h"

namespace {
uint32_t g_n_lable = 0;  // guarded by st_lable_lock
}

extern "C" {

// Statically initialised so that frames can be labelled before start-up; start-up must
// not initialise it again while another thread may hold it.
SDK_API pthread_mutex_t st_lable_lock = PTHREAD_MUTEX_INITIALIZER;

SDK_API uint16_t sdk_get_next_lable(void) {
    sdk::MutexLock guard(&st_lable_lock);
    ++g_n_lable;
    auto lable = static_cast<uint16_t>(g_n_lable);
    if (g_n_lable > 65534) g_n_lable = 0;
    return lable;
}

}  // extern "C"
