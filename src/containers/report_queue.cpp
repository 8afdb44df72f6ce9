// Report queue: unsolicited frames with the slot they came from, first in first out.
//
// Producers are the report receive thread and the serial receive thread; the consumer is
// the host (through sdk_get_report_queue). Every operation holds st_lock for its run; the
// 64 KiB record is allocated and filled before the lock is taken, so a push never makes
// the consumer wait on an allocation or a copy.
#include <cstdlib>
#include <cstring>

#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "transfer_manage.h"

namespace {

void free_report(report_queue_node_t *p_node) {
    if (p_node == nullptr) return;
    free(p_node->p_data);
    free(p_node);
}

}  // namespace

extern "C" {

SDK_API int32_t sdk_report_queue_init(report_queue_t *p_report_queue) {
    TLOGI("start");
    if (p_report_queue == nullptr) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    p_report_queue->p_front = nullptr;
    p_report_queue->p_rear = nullptr;
    p_report_queue->n_len = 0;
    // Settled: the queue is bounded, so a host that drains slowly (or never) costs at most
    // n_max_len records; the host may change the bound with sdk_report_queue_set_max.
    p_report_queue->n_max_len = SDK_REPORT_QUEUE_DEFAULT_MAX;
    p_report_queue->n_drop_num = 0;
    pthread_mutex_init(&p_report_queue->st_lock, nullptr);
    TLOGI("end ret %d ", sdk::kOk);
    return sdk::kOk;
}

SDK_API int32_t sdk_report_queue_push(report_queue_t *p_report_queue, uint8_t *p_pbuf,
                                      uint32_t n_len, uint32_t n_slot) {
    if (p_report_queue == nullptr) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    // Settled: a report longer than a record is refused whole rather than cut short.
    if (n_len > SDK_REPORT_BUF_LEN) {
        TLOGE(" max num error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    if (p_pbuf == nullptr && n_len != 0) {
        TLOGE("error code %d", sdk::kErrNoMemory);
        return sdk::kErrNoMemory;
    }
    auto *p_node = static_cast<report_queue_node_t *>(calloc(1, sizeof(report_queue_node_t)));
    if (p_node == nullptr) {
        TLOGE("error code %d", sdk::kErrNoMemory);
        return sdk::kErrNoMemory;
    }
    p_node->p_data = static_cast<report_queue_data_t *>(malloc(sizeof(report_queue_data_t)));
    if (p_node->p_data == nullptr) {
        free(p_node);
        TLOGE("error code %d", sdk::kErrNoMemory);
        return sdk::kErrNoMemory;
    }
    p_node->p_data->n_len = n_len;
    p_node->p_data->n_slot = n_slot;
    if (n_len != 0) memcpy(p_node->p_data->arr_buf, p_pbuf, n_len);

    uint32_t n_queued = 0;
    uint32_t n_dropped = 0;
    {
        sdk::MutexLock lock(&p_report_queue->st_lock);
        // Settled: a full queue refuses the newest report and counts it; what is queued
        // stays, so the host sees the oldest reports and a gap it can measure.
        if (p_report_queue->n_len < p_report_queue->n_max_len) {
            if (p_report_queue->n_len != 0) {
                p_report_queue->p_rear->p_next = p_node;
            } else {
                p_report_queue->p_front = p_node;
            }
            p_report_queue->p_rear = p_node;
            p_report_queue->n_len++;
            return sdk::kOk;
        }
        n_queued = p_report_queue->n_len;
        n_dropped = ++p_report_queue->n_drop_num;
    }
    free_report(p_node);
    TLOGE("report queue full len %u dropped %u error code %d", n_queued, n_dropped,
          sdk::kErrRefused);
    return sdk::kErrRefused;
}

SDK_API int32_t sdk_report_queue_pull(report_queue_t *p_report_queue) {
    if (p_report_queue == nullptr) return sdk::kErrRefused;
    report_queue_node_t *p_old = nullptr;
    {
        sdk::MutexLock lock(&p_report_queue->st_lock);
        if (p_report_queue->n_len == 0) {
            TLOGI("queue is null");
            return sdk::kErrRefused;
        }
        p_old = p_report_queue->p_front;
        p_report_queue->p_front = p_old->p_next;
        p_report_queue->n_len--;
    }
    free_report(p_old);
    return sdk::kOk;
}

SDK_API int32_t sdk_report_queue_get_first(report_queue_data_t *p_data, report_queue_t *p_queue) {
    if (p_data == nullptr || p_queue == nullptr) return sdk::kErrRefused;
    sdk::MutexLock lock(&p_queue->st_lock);
    if (p_queue->n_len == 0) return sdk::kErrRefused;
    memcpy(p_data, p_queue->p_front->p_data, sizeof(report_queue_data_t));
    return sdk::kOk;
}

SDK_API int32_t sdk_report_queue_set_max(report_queue_t *p_report_queue, uint32_t n_max_len) {
    if (p_report_queue == nullptr || n_max_len == 0) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    sdk::MutexLock lock(&p_report_queue->st_lock);
    p_report_queue->n_max_len = n_max_len;
    return sdk::kOk;
}

SDK_API int32_t sdk_report_queue_get_drop_num(report_queue_t *p_report_queue,
                                              uint32_t *p_drop_num) {
    if (p_report_queue == nullptr || p_drop_num == nullptr) return sdk::kErrRefused;
    sdk::MutexLock lock(&p_report_queue->st_lock);
    *p_drop_num = p_report_queue->n_drop_num;
    return sdk::kOk;
}

}  // extern "C"
