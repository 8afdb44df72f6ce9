// Send queues: frames waiting to go out on one channel or to one receiving card.
//
// Producers (host threads in sdk_request) push at the rear; the one consumer, the sender
// thread, reads the head, sends it and pulls it. st_lock guards the FIFO and st_general
// for the length of each operation; a queue lock is never held while a list or port lock
// is taken.
#include <cstdlib>

#include "common/lock.h"
#include "common/log.h"
#include "common/result.h"
#include "transfer_manage.h"
#include "containers/queue_append.h"

extern "C" {

SDK_API int32_t sdk_basics_send_queue_init(send_queue_list_t *p_sender_queue,
                                           transfer_info_t st_transfer) {
    TLOGI("start");
    if (p_sender_queue == nullptr || (st_transfer.n_num > 0 && st_transfer.st_info == nullptr)) {
        TLOGE("error code %d", sdk::kErrRefused);
        TLOGI("end ret %d ", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    p_sender_queue->p_queue = nullptr;
    p_sender_queue->n_num = st_transfer.n_num > 0 ? static_cast<uint32_t>(st_transfer.n_num) : 0;
    size_t n_size = sizeof(send_queue_t) * p_sender_queue->n_num;
    TLOGD("malloc size %ld", static_cast<long>(n_size));
    if (p_sender_queue->n_num > 0) {
        p_sender_queue->p_queue =
            static_cast<send_queue_t *>(calloc(p_sender_queue->n_num, sizeof(send_queue_t)));
        if (p_sender_queue->p_queue == nullptr) {
            p_sender_queue->n_num = 0;
            TLOGE("error code %d", sdk::kErrRefused);
            TLOGI("end ret %d ", sdk::kErrRefused);
            return sdk::kErrRefused;
        }
    }
    for (uint32_t i = 0; i < p_sender_queue->n_num; i++) {
        send_queue_t *p_queue = &p_sender_queue->p_queue[i];
        const transfer_data_t &st_channel = st_transfer.st_info[i];
        queue_general_data_t &st_general = p_queue->st_general;
        st_general.n_fd = st_channel.n_fd;
        st_general.n_channel_id = static_cast<int32_t>(i);
        st_general.e_packet_code_type = st_channel.e_packet_code_type;
        st_general.n_recv_state = 1;
        pthread_mutex_init(&p_queue->st_lock, nullptr);
    }
    TLOGI("end ret %d ", sdk::kOk);
    return sdk::kOk;
}

SDK_API int32_t sdk_send_queue_push(send_queue_t *p_sender_queue, data_buf_t *p_send_data,
                                    packet_general_data_t *p_packet) {
    if (p_sender_queue == nullptr) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    sdk::MutexLock lock(&p_sender_queue->st_lock);
    return sdk::queue_append_locked(p_sender_queue, p_send_data, p_packet);
}

SDK_API int32_t sdk_send_queue_pull(send_queue_t *p_queue) {
    if (p_queue == nullptr) return sdk::kErrRefused;
    queue_node_t *p_old = nullptr;
    {
        sdk::MutexLock lock(&p_queue->st_lock);
        if (p_queue->st_general.n_len == 0) {
            TLOGI("queue is null");
            return sdk::kErrRefused;
        }
        p_old = p_queue->p_front;
        p_queue->p_front = p_old->p_next;
        p_queue->st_general.n_len--;
    }
    free(p_old->p_data);
    free(p_old);
    return sdk::kOk;
}

SDK_API int32_t sdk_send_queue_get_first(queue_data_t *p_data, send_queue_t *p_queue) {
    if (p_data == nullptr || p_queue == nullptr) return sdk::kErrRefused;
    sdk::MutexLock lock(&p_queue->st_lock);
    if (p_queue->st_general.n_len == 0) return sdk::kErrRefused;
    *p_data = *p_queue->p_front->p_data;
    return sdk::kOk;
}

}  // extern "C"
