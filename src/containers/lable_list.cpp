// Label lists: per channel and per receiving card, the requests that wait for a reply, in
// the order they were accepted.
//
// Walking contract: nobody walks a label list outside its lock. The reply matching (and
// the monitor when it ends a request) uses sdk_lable_list_take / sdk_lable_list_remove,
// which search and unlink under one hold of st_lock, so no thread can follow a node that
// another frees: settled here instead of a walk with separate pulls.
#include <cstdlib>

#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "transfer_manage.h"
#include "containers/dlist.h"

namespace {

int32_t lable_list_init(send_lable_manage_t *p_list) {
    pthread_mutex_init(&p_list->st_lock, nullptr);
    return sdk::dlist_init<send_lable_list_t>(p_list) ? sdk::kOk : sdk::kErrNoMemory;
}

// The label lists of the cards behind every port of a sender channel.
int32_t rvcard_lable_lists_init(rvcard_send_queue_manage_t *p_manage) {
    for (int32_t e = 0; e < p_manage->n_max_eth_num; e++) {
        rvcard_eth_queue_manage_t *p_eth = p_manage->p_eth_list[e];
        if (p_eth == nullptr || p_eth->n_max_rvcard_num <= 0) continue;
        auto n_cards = static_cast<size_t>(p_eth->n_max_rvcard_num);
        p_eth->p_list =
            static_cast<send_lable_manage_t **>(calloc(n_cards, sizeof(send_lable_manage_t *)));
        if (p_eth->p_list == nullptr) return sdk::kErrNoMemory;
        for (size_t r = 0; r < n_cards; r++) {
            auto *p_list =
                static_cast<send_lable_manage_t *>(calloc(1, sizeof(send_lable_manage_t)));
            if (p_list == nullptr) return sdk::kErrNoMemory;
            p_eth->p_list[r] = p_list;
            if (lable_list_init(p_list) != sdk::kOk) return sdk::kErrNoMemory;
        }
    }
    return sdk::kOk;
}

// Unlinks and frees a node; the caller holds the list's lock.
void unlink_free(send_lable_manage_t *p_list, send_lable_list_t *p_node) {
    sdk::dlist_unlink(p_list, p_node);
    free(p_node);
}

}  // namespace

extern "C" {

SDK_API int32_t sdk_lable_list_manage_init(transfer_info_t *st_transfer) {
    TLOGI("start");
    if (st_transfer == nullptr || (st_transfer->n_num > 0 && st_transfer->st_info == nullptr)) {
        TLOGE("error code %d", sdk::kErrRefused);
        TLOGI("end");
        return sdk::kErrRefused;
    }
    int32_t n_ret = sdk::kOk;
    for (int32_t i = 0; n_ret == sdk::kOk && i < st_transfer->n_num; i++) {
        transfer_data_t *p_channel = &st_transfer->st_info[i];
        n_ret = lable_list_init(&p_channel->p_list);
        if (n_ret == sdk::kOk && p_channel->e_packet_code_type == PACKET_SENDER) {
            n_ret = rvcard_lable_lists_init(&p_channel->p_rvcard_manage);
        }
    }
    if (n_ret != sdk::kOk) TLOGE("error code %d", n_ret);
    TLOGI("end");
    return n_ret;
}

SDK_API int32_t sdk_lable_list_push(send_lable_manage_t *p_send_manage_list,
                                    packet_data_t *p_data) {
    if (p_send_manage_list == nullptr || p_send_manage_list->p_info_head == nullptr ||
        p_data == nullptr) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    sdk::MutexLock lock(&p_send_manage_list->st_lock);
    auto *p_node = static_cast<send_lable_list_t *>(calloc(1, sizeof(send_lable_list_t)));
    if (p_node == nullptr) {
        TLOGE("error code %d", sdk::kErrNoMemory);
        return sdk::kErrNoMemory;
    }
    p_node->p_list = p_data;
    sdk::dlist_append(p_send_manage_list, p_node);
    return sdk::kOk;
}

SDK_API int32_t sdk_lable_list_pull(send_lable_manage_t *p_lable_manage_list,
                                    send_lable_list_t *p_list) {
    if (p_lable_manage_list == nullptr || p_list == nullptr) return sdk::kErrRefused;
    sdk::MutexLock lock(&p_lable_manage_list->st_lock);
    if (p_list->p_st_prev == nullptr) {
        TLOGE("pull error p_data->prev is NULL");
        return sdk::kErrRefused;
    }
    unlink_free(p_lable_manage_list, p_list);
    return sdk::kOk;
}

SDK_API int32_t sdk_lable_list_take(send_lable_manage_t *p_lable_manage_list, uint32_t n_lable,
                                    send_lable_list_t *p_node) {
    if (p_lable_manage_list == nullptr || p_lable_manage_list->p_info_head == nullptr) {
        return sdk::kErrRefused;
    }
    // Settled: walk and unlink under one hold of the lock; no node is seen after release.
    sdk::MutexLock lock(&p_lable_manage_list->st_lock);
    for (send_lable_list_t *p_cur = p_lable_manage_list->p_info_head->p_st_next; p_cur != nullptr;
         p_cur = p_cur->p_st_next) {
        // Polling relabels a listed request from the monitor thread: atomic on both sides.
        uint32_t n_cur = __atomic_load_n(&p_cur->p_list->p_packet.n_send_lable, __ATOMIC_RELAXED);
        if (n_cur != n_lable) continue;
        if (p_node != nullptr) *p_node = *p_cur;
        unlink_free(p_lable_manage_list, p_cur);
        return sdk::kOk;
    }
    return sdk::kErrNoLabel;
}

SDK_API int32_t sdk_lable_list_remove(send_lable_manage_t *p_lable_manage_list,
                                      packet_data_t *p_data) {
    if (p_lable_manage_list == nullptr || p_lable_manage_list->p_info_head == nullptr ||
        p_data == nullptr) {
        return sdk::kErrRefused;
    }
    sdk::MutexLock lock(&p_lable_manage_list->st_lock);
    for (send_lable_list_t *p_cur = p_lable_manage_list->p_info_head->p_st_next; p_cur != nullptr;
         p_cur = p_cur->p_st_next) {
        if (p_cur->p_list == p_data) {
            unlink_free(p_lable_manage_list, p_cur);
            return sdk::kOk;
        }
    }
    return sdk::kErrNoLabel;
}

}  // extern "C"
