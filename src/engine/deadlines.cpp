// The deadline heap and the trigger thread's timed wait on it.
#include "engine/deadlines.h"

#include <pthread.h>
#include <time.h>

#include <new>

#include "common/clock.h"
#include "common/lock.h"
#include "engine/state.h"

namespace sdk {

namespace {

struct Heap {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    MonotonicCond cond;             // the trigger's wait
    std::vector<InFlight *> items;  // a binary heap on n_due_ns
    uint64_t n_armed_ns = kNever;   // the deadline the trigger sleeps until
    bool b_fired = false;           // the trigger woke the monitor, which has not finished
};
Heap g_heap;

bool earlier(const InFlight *a, const InFlight *b) {
    return a->n_due_ns < b->n_due_ns;
}

void place(size_t i, InFlight *x) {
    g_heap.items[i] = x;
    x->n_heap_index = i;
}

void sift_up(size_t i) {
    InFlight *x = g_heap.items[i];
    while (i > 0) {
        const size_t parent = (i - 1) / 2;
        if (!earlier(x, g_heap.items[parent])) break;
        place(i, g_heap.items[parent]);
        i = parent;
    }
    place(i, x);
}

void sift_down(size_t i) {
    const size_t n = g_heap.items.size();
    InFlight *x = g_heap.items[i];
    for (;;) {
        size_t child = 2 * i + 1;
        if (child >= n) break;
        if (child + 1 < n && earlier(g_heap.items[child + 1], g_heap.items[child])) ++child;
        if (!earlier(g_heap.items[child], x)) break;
        place(i, g_heap.items[child]);
        i = child;
    }
    place(i, x);
}

void erase_at(size_t i) {
    InFlight *last = g_heap.items.back();
    g_heap.items.pop_back();
    if (i < g_heap.items.size()) {
        place(i, last);
        sift_up(i);
        sift_down(last->n_heap_index);
    }
}

// Heap lock held: a new earliest deadline wakes the trigger to re-arm.
void rearm_if_earlier(uint64_t n_due_ns) {
    if (n_due_ns < g_heap.n_armed_ns) pthread_cond_signal(g_heap.cond.get());
}

void set_busy(InFlight *x, bool b) {
    __atomic_store_n(&x->b_monitor_busy, b, __ATOMIC_RELEASE);
}

}  // namespace

uint64_t now_ns() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

bool deadline_add(InFlight *x, uint64_t n_due_ns) {
    MutexLock lock(&g_heap.lock);
    try {
        g_heap.items.push_back(x);
    } catch (const std::bad_alloc &) {
        return false;
    }
    x->n_due_ns = n_due_ns;
    sift_up(g_heap.items.size() - 1);
    rearm_if_earlier(n_due_ns);
    return true;
}

void deadline_set(InFlight *x, uint64_t n_due_ns) {
    MutexLock lock(&g_heap.lock);
    if (x->n_heap_index == kNotListed) return;
    const uint64_t n_old = x->n_due_ns;
    x->n_due_ns = n_due_ns;
    if (n_due_ns < n_old) {
        sift_up(x->n_heap_index);
    } else {
        sift_down(x->n_heap_index);
    }
    rearm_if_earlier(n_due_ns);
}

bool deadline_remove(InFlight *x) {
    MutexLock lock(&g_heap.lock);
    if (x->n_heap_index != kNotListed) {
        erase_at(x->n_heap_index);
        x->n_heap_index = kNotListed;
    }
    return __atomic_load_n(&x->b_monitor_busy, __ATOMIC_ACQUIRE);
}

InFlight *deadline_take_due() {
    MutexLock lock(&g_heap.lock);
    if (g_heap.items.empty() || g_heap.items.front()->n_due_ns > now_ns()) return nullptr;
    InFlight *x = g_heap.items.front();
    erase_at(0);
    x->n_heap_index = kNotListed;
    set_busy(x, true);
    return x;
}

void deadline_release(InFlight *x, uint64_t n_due_ns, bool b_relist) {
    MutexLock lock(&g_heap.lock);
    set_busy(x, false);
    if (!b_relist) return;
    try {
        g_heap.items.push_back(x);
    } catch (const std::bad_alloc &) {
        // The heap only shrank since the request was taken off it: room is there.
    }
    x->n_due_ns = n_due_ns;
    sift_up(g_heap.items.size() - 1);
    rearm_if_earlier(n_due_ns);
}

size_t deadline_count() {
    MutexLock lock(&g_heap.lock);
    return g_heap.items.size();
}

std::vector<InFlight *> deadline_all() {
    MutexLock lock(&g_heap.lock);
    std::vector<InFlight *> all = g_heap.items;
    for (InFlight *x : all)
        x->n_heap_index = kNotListed;
    g_heap.items.clear();
    return all;
}

bool deadline_wait_due() {
    MutexLock lock(&g_heap.lock);
    for (;;) {
        if (stopping()) return false;
        if (g_heap.b_fired) {  // the monitor is at work: wait for deadline_done
            pthread_cond_wait(g_heap.cond.get(), &g_heap.lock);
            continue;
        }
        const uint64_t n_now = now_ns();
        const uint64_t n_top = g_heap.items.empty() ? kNever : g_heap.items.front()->n_due_ns;
        if (n_top <= n_now) {
            // Until the monitor has run, new deadlines need not wake the trigger.
            g_heap.b_fired = true;
            g_heap.n_armed_ns = 0;
            return true;
        }
        // A wait armed earlier still runs out at its time, even when the deadline it was
        // armed for has gone: requests that follow one another on a channel set later
        // deadlines and then need not wake the trigger each (deadline sets wake it only
        // for a deadline earlier than the armed one). Once the armed time has passed the
        // wait goes to the earliest deadline, or without a time limit when there is none.
        uint64_t n_until = n_top;
        if (g_heap.n_armed_ns > n_now && g_heap.n_armed_ns < n_until) n_until = g_heap.n_armed_ns;
        g_heap.n_armed_ns = n_until;
        if (n_until == kNever) {
            pthread_cond_wait(g_heap.cond.get(), &g_heap.lock);
            continue;
        }
        timespec until{};
        until.tv_sec = static_cast<time_t>(n_until / 1000000000u);
        until.tv_nsec = static_cast<long>(n_until % 1000000000u);
        pthread_cond_timedwait(g_heap.cond.get(), &g_heap.lock, &until);
    }
}

void deadline_done() {
    MutexLock lock(&g_heap.lock);
    g_heap.b_fired = false;
    pthread_cond_signal(g_heap.cond.get());
}

void deadline_wake() {
    MutexLock lock(&g_heap.lock);
    pthread_cond_signal(g_heap.cond.get());
}

}  // namespace sdk
