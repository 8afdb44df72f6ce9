// Monitor lists: every request in flight, spread over n_list_num lists, each push into the
// least-loaded list. Host threads push; the time-out monitor thread is the one consumer
// and the only thread that pulls, following the walking contract of transfer_manage.h.
//
// Locks: a list's st_lock, then the manager's st_count_lock (list_manage.h).
#include <cstdlib>

#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "transfer_manage.h"
#include "containers/dlist.h"
#include "containers/list_manage.h"

extern "C" {

SDK_API int32_t sdk_monitor_list_init(monitor_packet_list_t *p_list) {
    TLOGI("start");
    if (p_list == nullptr) return sdk::kErrRefused;
    pthread_mutex_init(&p_list->st_lock, nullptr);
    p_list->n_state = 1;
    p_list->n_len = 0;
    int32_t n_ret = sdk::kOk;
    if (!sdk::dlist_init<packet_list_t>(p_list)) {
        n_ret = sdk::kErrNoMemory;
        TLOGE("error code %d", n_ret);
    }
    TLOGI("end");
    return n_ret;
}

SDK_API int32_t sdk_monitor_list_manage_init(monitor_list_manage_t *p_monitor_manage_list,
                                             transfer_info_t st_transfer) {
    TLOGI("start");
    uint32_t n_count = st_transfer.st_format.n_monitor_list_num;
    // The count is kept in an int32 field: larger values are as unusable as 0.
    if (p_monitor_manage_list == nullptr || n_count == 0 || n_count > INT32_MAX) {
        TLOGE(" max num error code %d", sdk::kErrSection);
        TLOGI("end");
        return sdk::kErrSection;
    }
    TLOGI("list num %d", static_cast<int>(n_count));
    int32_t n_ret = sdk::manage_build<monitor_list_manage_t, monitor_packet_list_t>(
        p_monitor_manage_list, n_count, sdk_monitor_list_init);
    if (n_ret != sdk::kOk) TLOGE("error code %d", n_ret);
    TLOGI("end");
    return n_ret;
}

SDK_API int32_t sdk_monitor_list_push(monitor_list_manage_t *p_monitor_manage_list,
                                      packet_data_t *p_data) {
    if (p_monitor_manage_list == nullptr || p_data == nullptr ||
        !sdk::manage_has_list(p_monitor_manage_list, 0)) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    monitor_packet_list_t *p_list =
        p_monitor_manage_list->p_list[sdk::manage_target(p_monitor_manage_list)];
    sdk::MutexLock lock(&p_list->st_lock);
    auto *p_node = static_cast<packet_list_t *>(calloc(1, sizeof(packet_list_t)));
    if (p_node == nullptr) {
        TLOGE("error code %d", sdk::kErrNoMemory);
        return sdk::kErrNoMemory;
    }
    p_node->p_data = p_data;
    sdk::dlist_append(p_list, p_node);
    sdk::list_len_store(&p_list->n_len, p_list->n_len + 1);
    sdk::manage_pushed(p_monitor_manage_list);
    return sdk::kOk;
}

SDK_API int32_t sdk_monitor_list_pull(monitor_list_manage_t *p_monitor_manage_list, uint32_t n_id,
                                      packet_list_t *p_list) {
    if (p_monitor_manage_list == nullptr || p_list == nullptr ||
        !sdk::manage_has_list(p_monitor_manage_list, n_id)) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    monitor_packet_list_t *p_one = p_monitor_manage_list->p_list[n_id];
    sdk::MutexLock lock(&p_one->st_lock);
    if (p_list->p_st_prev == nullptr) {
        TLOGE("pull error p_ilst->prev is NULL");
        return sdk::kErrRefused;
    }
    sdk::dlist_unlink(p_one, p_list);
    free(p_list);
    sdk::list_len_store(&p_one->n_len, p_one->n_len - 1);
    sdk::manage_pulled(p_monitor_manage_list, n_id, p_one->n_len);
    return sdk::kOk;
}

SDK_API int32_t sdk_monitor_list_get_next(monitor_packet_list_t *p_monitor_manage_list,
                                          packet_list_t **p_data, packet_list_t *p_list) {
    if (p_data == nullptr) return sdk::kErrRefused;
    *p_data = nullptr;
    if (p_monitor_manage_list == nullptr || p_list == nullptr) return sdk::kErrRefused;
    sdk::MutexLock lock(&p_monitor_manage_list->st_lock);
    *p_data = p_list->p_st_next;
    return sdk::kOk;
}

}  // extern "C"
