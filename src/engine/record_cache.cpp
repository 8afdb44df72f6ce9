#include "engine/record_cache.h"

#include <cstdlib>
#include <mutex>

namespace sdk {

namespace {

// Settled: at most 32 records (about 600 KB) are kept; a burst beyond that goes back to
// the allocator. Sanitizer builds keep none, so a record used after its end is still
// caught there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)  // GCC
#define RECORD_CACHE_OFF 1
#elif defined(__has_feature)  // clang
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define RECORD_CACHE_OFF 1
#endif
#endif
#ifdef RECORD_CACHE_OFF
constexpr int kKept = 0;
#else
constexpr int kKept = 32;
#endif

std::mutex g_lock;
InFlight *g_kept[kKept > 0 ? kKept : 1];
int g_count = 0;

}  // namespace

InFlight *record_take() {
    if constexpr (kKept > 0) {
        std::lock_guard<std::mutex> lock(g_lock);
        if (g_count > 0) return g_kept[--g_count];
    }
    return static_cast<InFlight *>(malloc(sizeof(InFlight)));
}

void record_give(InFlight *x) {
    if (x == nullptr) return;
    if constexpr (kKept > 0) {
        std::lock_guard<std::mutex> lock(g_lock);
        if (g_count < kKept) {
            g_kept[g_count++] = x;
            return;
        }
    }
    free(x);
}

void record_cache_drain() {
    std::lock_guard<std::mutex> lock(g_lock);
    while (g_count > 0)
        free(g_kept[--g_count]);
}

}  // namespace sdk
