// The bookkeeping shared by the monitor and the send list managers: the least-loaded
// choice and the node count.
//
// Settled: n_min_num, n_min_id and n_list_node_num change only under the manager's
// st_count_lock, taken last (after the changed list's lock), so pushes and pulls on
// different lists keep them consistent. The choice reads the other lists' n_len without
// their locks, as atomics: a length may be one step stale, never torn.
#pragma once

#include <semaphore.h>

#include <cstdint>
#include <cstdlib>

#include "common/lock.h"

namespace sdk {

inline uint32_t list_len_load(const uint32_t *p_len) {
    return __atomic_load_n(p_len, __ATOMIC_RELAXED);
}
// n_len is written under its list's lock, but read by pushes into other lists.
inline void list_len_store(uint32_t *p_len, uint32_t n_len) {
    __atomic_store_n(p_len, n_len, __ATOMIC_RELAXED);
}

// Index of the list the next push goes to.
template <class Manager>
uint32_t manage_target(Manager *p_manage) {
    MutexLock lock(&p_manage->st_count_lock);
    return static_cast<uint32_t>(p_manage->n_min_id);
}

// After a push into a list (whose lock the caller holds): the list with the fewest nodes,
// the lowest index on ties, becomes the target; one more node in all.
template <class Manager>
void manage_pushed(Manager *p_manage) {
    using MinT = decltype(p_manage->n_min_num);
    // Settled: the three counters change together under st_count_lock only.
    MutexLock lock(&p_manage->st_count_lock);
    uint32_t n_count = static_cast<uint32_t>(p_manage->n_list_num);
    uint32_t n_min_id = 0;
    uint32_t n_min_num = list_len_load(&p_manage->p_list[0]->n_len);
    for (uint32_t i = 1; i < n_count; i++) {
        uint32_t n_len = list_len_load(&p_manage->p_list[i]->n_len);
        if (n_len < n_min_num) {
            n_min_num = n_len;
            n_min_id = i;
        }
    }
    p_manage->n_min_num = static_cast<MinT>(n_min_num);
    p_manage->n_min_id = static_cast<MinT>(n_min_id);
    p_manage->n_list_node_num++;
}

// After a pull from list n_id, now n_len long (the caller holds its lock).
template <class Manager>
void manage_pulled(Manager *p_manage, uint32_t n_id, uint32_t n_len) {
    using MinT = decltype(p_manage->n_min_num);
    MutexLock lock(&p_manage->st_count_lock);
    p_manage->n_list_node_num--;
    if (n_len < static_cast<uint32_t>(p_manage->n_min_num)) {
        p_manage->n_min_num = static_cast<MinT>(n_len);
        p_manage->n_min_id = static_cast<MinT>(n_id);
    }
}

// n_id names a list of the manager.
template <class Manager>
bool manage_has_list(const Manager *p_manage, uint32_t n_id) {
    return p_manage->p_list != nullptr && p_manage->n_list_num > 0 &&
           n_id < static_cast<uint32_t>(p_manage->n_list_num) && p_manage->p_list[n_id] != nullptr;
}

}  // namespace sdk

namespace sdk {

// Manager initialisation after the count check: counters, signals, the list array and
// each list (made by init_list). 0, -5, or the first negative result of init_list; the
// lists made so far stay.
template <class Manager, class List, class InitList>
int32_t manage_build(Manager *p_manage, uint32_t n_count, InitList init_list) {
    using NumT = decltype(p_manage->n_list_num);
    p_manage->n_list_num = static_cast<NumT>(n_count);
    p_manage->n_list_node_num = 0;
    p_manage->n_min_num = 0;
    p_manage->n_min_id = 0;
    pthread_mutex_init(&p_manage->st_send_wait_lock, nullptr);
    pthread_cond_init(&p_manage->st_send_wait_signal, nullptr);
    pthread_mutex_init(&p_manage->st_count_lock, nullptr);
    sem_init(&p_manage->sem, 0, 0);
    p_manage->p_list = static_cast<List **>(calloc(n_count, sizeof(List *)));
    if (p_manage->p_list == nullptr) return -5;
    for (uint32_t i = 0; i < n_count; i++) {
        p_manage->p_list[i] = static_cast<List *>(calloc(1, sizeof(List)));
        if (p_manage->p_list[i] == nullptr) return -5;
        int32_t n_ret = init_list(p_manage->p_list[i]);
        if (n_ret < 0) return n_ret;
    }
    return 0;
}

}  // namespace sdk
