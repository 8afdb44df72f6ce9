// Send lists: the send queues that have frames waiting, spread over n_list_num lists.
// Host threads push (after queueing a frame); the sender thread is the one consumer and
// the only thread that pulls, following the walking contract of transfer_manage.h.
//
// Locks: list st_lock, then queue st_lock, then st_send_wait_lock, then st_count_lock.
// A card queue's list hold is dropped after all of them are released (rvcard_hold.h).
#include <cstdlib>

#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "transfer_manage.h"
#include "containers/dlist.h"
#include "containers/list_manage.h"
#include "containers/rvcard_hold.h"

extern "C" {

SDK_API int32_t sdk_send_list_init(send_packet_list_t *p_send_list) {
    TLOGI("start");
    if (p_send_list == nullptr) return sdk::kErrRefused;
    pthread_mutex_init(&p_send_list->st_lock, nullptr);
    p_send_list->n_state = 1;
    p_send_list->n_len = 0;
    int32_t n_ret = sdk::kOk;
    if (!sdk::dlist_init<queue_list_data_t>(p_send_list)) {
        n_ret = sdk::kErrNoMemory;
        TLOGE("error code %d", n_ret);
    }
    TLOGI("end");
    return n_ret;
}

SDK_API int32_t sdk_send_list_manage_init(send_list_manage_t *p_send_manage_list,
                                          transfer_info_t st_transfer) {
    TLOGI("start");
    uint32_t n_count = st_transfer.st_format.n_send_list_num;
    if (p_send_manage_list == nullptr || n_count == 0 || n_count > INT32_MAX) {
        TLOGE(" max num error code %d", sdk::kErrSection);
        TLOGI("end");
        return sdk::kErrSection;
    }
    TLOGI("list num %d", static_cast<int>(n_count));
    int32_t n_ret = sdk::manage_build<send_list_manage_t, send_packet_list_t>(
        p_send_manage_list, n_count, sdk_send_list_init);
    if (n_ret != sdk::kOk) TLOGE("error code %d", n_ret);
    TLOGI("end");
    return n_ret;
}

SDK_API int32_t sdk_send_list_push(send_list_manage_t *p_send_manage_list, send_queue_t *p_data) {
    if (p_send_manage_list == nullptr || p_data == nullptr ||
        !sdk::manage_has_list(p_send_manage_list, 0)) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    send_packet_list_t *p_list = p_send_manage_list->p_list[sdk::manage_target(p_send_manage_list)];
    sdk::MutexLock list_lock(&p_list->st_lock);
    sdk::MutexLock queue_lock(&p_data->st_lock);
    sdk::MutexLock wait_lock(&p_send_manage_list->st_send_wait_lock);
    // An empty queue is not listed: the sender already took the frame that this push
    // announces, and a listed empty queue would never be pulled (and never freed).
    if (p_data->st_general.n_list_state == 1 || p_data->st_general.n_len == 0) return sdk::kOk;
    auto *p_node = static_cast<queue_list_data_t *>(calloc(1, sizeof(queue_list_data_t)));
    if (p_node == nullptr) {
        TLOGE("error code %d", sdk::kErrNoMemory);
        return sdk::kErrNoMemory;
    }
    p_node->p_data = p_data;
    sdk::dlist_append(p_list, p_node);
    sdk::list_len_store(&p_list->n_len, p_list->n_len + 1);
    sdk::manage_pushed(p_send_manage_list);
    p_data->st_general.n_list_state = 1;
    sdk::rvcard_queue_hold_listing(p_data);
    sem_post(&p_send_manage_list->sem);
    return sdk::kOk;
}

SDK_API int32_t sdk_send_list_pull(send_list_manage_t *p_send_manage_list, uint32_t n_id,
                                   queue_list_data_t *p_list) {
    if (p_send_manage_list == nullptr || p_list == nullptr ||
        !sdk::manage_has_list(p_send_manage_list, n_id)) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    send_packet_list_t *p_one = p_send_manage_list->p_list[n_id];
    send_queue_t *p_queue = nullptr;
    {
        sdk::MutexLock list_lock(&p_one->st_lock);
        if (p_list->p_st_prev == nullptr) {
            TLOGE("pull error p_data->prev is NULL");
            return sdk::kErrRefused;
        }
        p_queue = p_list->p_data;
        {
            sdk::MutexLock queue_lock(&p_queue->st_lock);
            // Frames arrived since the consumer decided to pull: the queue stays listed.
            if (p_queue->st_general.n_len != 0) return sdk::kOk;
            p_queue->st_general.n_list_state = 0;
            sdk::dlist_unlink(p_one, p_list);
        }
        free(p_list);
        sdk::list_len_store(&p_one->n_len, p_one->n_len - 1);
        sdk::manage_pulled(p_send_manage_list, n_id, p_one->n_len);
    }
    // With no lock held: dropping a card queue's hold takes its port lock, then its queue lock.
    sdk::rvcard_queue_drop_listing(p_queue);
    return sdk::kOk;
}

SDK_API int32_t sdk_send_list_get_next(send_packet_list_t *p_send_queue_list,
                                       queue_list_data_t **p_data, queue_list_data_t *p_list) {
    if (p_data == nullptr) return sdk::kErrRefused;
    *p_data = nullptr;
    if (p_send_queue_list == nullptr || p_list == nullptr) return sdk::kErrRefused;
    sdk::MutexLock lock(&p_send_queue_list->st_lock);
    *p_data = p_list->p_st_next;
    return sdk::kOk;
}

}  // extern "C"
