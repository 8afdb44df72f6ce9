/*
 * transfer_manage.h - configuration types, in-flight request records and the engine's
 * containers (label lists, send queues, report queue, monitor and send lists,
 * receiving-card queues).
 *
 * Threading: every container carries its own mutex; the comments at each group of
 * operations give the lock order. The configuration record g_st_transfer is written
 * once at start-up and read without locks afterwards.
 */
#ifndef TRANSFER_MANAGE_H
#define TRANSFER_MANAGE_H

#include <netinet/in.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/time.h>

#include "mio_json.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifndef SDK_API
#define SDK_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define SDK_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define SDK_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

/* ------------------------------------------------------------------ enumerations */

/* Channel types (the "type" member of a channel entry). */
typedef enum { UDP = 1, TCP = 2, RAW_SOCKET = 3, UART = 10, REPORT_UDP = 100 } json_type_tbl;

/* Sections of a board. */
typedef enum { FPGA = 0, MCU = 1, MAX_MODE = 2 } transfer_section;

#define SDK_SECTION_NAME_LEN 255
/* "fpga", "mcu", "MAX_MODE", indexed by transfer_section. */
SDK_API extern const char sections[MAX_MODE + 1][SDK_SECTION_NAME_LEN];

typedef enum { PACKET_VIDEO = 0, PACKET_SENDER = 1, PACKET_RECV = 2 } packet_code_type;

typedef enum { CHANNEL_NULL = 0, CHANNEL_OK = 1, CHANNEL_BUSY = 2 } transfer_channel_state_e;

typedef enum {
    DEVICE_FPGA = 0,
    DEVICE_MCU = 1,
    DEVICE_ETH = 2,
    DEVICE_MAX_MODE = 3
} transfer_device_type_e;

typedef enum {
    UNKNOW_SLOT = 0,
    INPUT_SLOT = 1,
    OUTPUT_SLOT = 2,
    MIX_SLOT = 3,
    POWER_SLOT = 4,
    BACK_SLOT = 5,
    MAIN_SLOT = 6,
    FAN_SLOT = 7,
    SENDER_SLOT = 8
} slot_type_e;

/* Request states (e_state of a request's general block). 5 and 7 are final. */
typedef enum {
    PACKET_NULL = 0,
    PACKET_WAIT_SEND = 1,
    PACKET_SEND_END = 2,
    PACKET_POLLING_SEND = 3,
    PACKET_WAIT_RECV = 4,
    PACKET_WAIT_TIMEOUT = 5,
    PACKET_RECV_DONE = 6,
    PACKET_END = 7
} packet_state;

/* ------------------------------------------------------------------ request records */

#define SDK_DATA_BUF_LEN 9000

typedef struct {
    uint8_t arr_buf[SDK_DATA_BUF_LEN];
    uint32_t n_len; /* valid bytes in arr_buf */
    uint8_t p_buf[4];
    uint32_t n_len_el;
} data_buf_t;

/* General block of a request in flight. */
typedef struct {
    pthread_mutex_t st_lock; /* sender's send and state change; receive paths' reply mark */
    struct timeval st_start_time;
    struct timeval st_send_time;
    struct timeval st_polling_time;
    uint32_t n_timeout; /* milliseconds */
    bool n_enable;
    packet_state e_state;
    uint32_t n_send_lable;
    uint32_t n_reply_times;
    uint32_t n_reply_num;
    uint32_t n_no_ack;
    uint32_t n_write_state;
    uint32_t n_write_wait_time; /* microseconds */
    uint32_t n_polling_state;
    uint32_t n_polling_time; /* milliseconds */
    uint32_t n_channel_id;
    uint32_t n_recvcard_id;
    uint32_t n_eth_id;
    uint8_t n_broadcast_eth_id;
} packet_general_data_t;

struct queue_general_data_s;

/* In-flight record: allocated by sdk_request, owned by the caller's descriptor, freed by
 * sdk_request_wait or sdk_request_free; the engine's containers only refer to it. */
typedef struct packet_data_s {
    uint16_t n_port_id;
    data_buf_t st_send_data;
    data_buf_t st_recv_data;
    packet_general_data_t p_packet;
    struct queue_general_data_s *p_queue_general;
    pthread_cond_t st_wait_signal;
    pthread_mutex_t st_wait_lock; /* guards the end of the request */
} packet_data_t;

/* ------------------------------------------------------------------ containers */

/* Label list of requests waiting for a reply (one per channel, one per receiving card). */
typedef struct send_lable_list_s {
    packet_data_t *p_list;
    struct send_lable_list_s *p_st_prev;
    struct send_lable_list_s *p_st_next;
} send_lable_list_t;

typedef struct {
    send_lable_list_t *p_info_head; /* sentinel */
    send_lable_list_t *p_info_end;
    pthread_mutex_t st_lock;
} send_lable_manage_t;

/* State block of a send queue. */
typedef struct queue_general_data_s {
    uint32_t n_len;
    int32_t n_fd;
    int32_t n_channel_id;
    int32_t n_list_state;
    packet_code_type e_packet_code_type;
    int32_t n_recv_state;
    uint32_t n_recvcard_id;
    uint32_t n_eth_id;
} queue_general_data_t;

typedef struct {
    data_buf_t *p_send_data;
    packet_general_data_t *p_packet;
} queue_data_t;

typedef struct queue_node_s {
    queue_data_t *p_data;
    struct queue_node_s *p_next;
} queue_node_t;

struct rvcard_eth_queue_manage_s;

typedef struct send_queue_s {
    queue_node_t *p_front;
    queue_node_t *p_rear;
    struct rvcard_eth_queue_manage_s *p_eth_node; /* port of a receiving-card queue, else NULL */
    queue_general_data_t st_general;
    pthread_mutex_t st_lock;
    /* Receiving-card queues only: holds that keep the queue alive, one per accepted request
     * not yet released and one while a send list holds it. Guarded by st_lock; dropping
     * the last one also needs the port lock and frees the queue (see
     * sdk_rvcard_queue_release). Always 0 in a channel queue. */
    uint32_t n_hold_num;
} send_queue_t;

typedef struct {
    send_queue_t *p_queue; /* entry i belongs to channel i */
    uint32_t n_num;
} send_queue_list_t;

/* Report queue. */
#define SDK_REPORT_BUF_LEN 65535

typedef struct {
    uint8_t arr_buf[SDK_REPORT_BUF_LEN];
    uint32_t n_len;
    uint32_t n_slot;
} report_queue_data_t;

typedef struct report_queue_node_s {
    report_queue_data_t *p_data;
    struct report_queue_node_s *p_next;
} report_queue_node_t;

typedef struct {
    report_queue_node_t *p_front;
    report_queue_node_t *p_rear;
    uint32_t n_len;
    pthread_mutex_t st_lock;
    uint32_t n_max_len;  /* bound on n_len: a push into a full queue is refused */
    uint32_t n_drop_num; /* reports refused because the queue was full */
} report_queue_t;

/* Monitor lists (requests in flight) and send lists (queues with frames waiting). */
typedef struct packet_list_s {
    packet_data_t *p_data;
    struct packet_list_s *p_st_prev;
    struct packet_list_s *p_st_next;
} packet_list_t;

typedef struct queue_list_data_s {
    send_queue_t *p_data;
    struct queue_list_data_s *p_st_prev;
    struct queue_list_data_s *p_st_next;
} queue_list_data_t;

typedef struct {
    packet_list_t *p_info_head;
    packet_list_t *p_info_end;
    uint32_t n_state; /* 1 idle, 2 being walked */
    uint32_t n_len;
    pthread_mutex_t st_lock;
} monitor_packet_list_t;

typedef struct {
    queue_list_data_t *p_info_head;
    queue_list_data_t *p_info_end;
    uint32_t n_state;
    uint32_t n_len;
    pthread_mutex_t st_lock;
} send_packet_list_t;

typedef struct {
    monitor_packet_list_t **p_list;
    int32_t n_list_num;
    uint32_t n_list_node_num;
    sem_t sem;
    pthread_cond_t st_send_wait_signal;
    pthread_mutex_t st_send_wait_lock;
    int32_t n_min_num;
    int32_t n_min_id;
    /* Guards n_min_num, n_min_id and n_list_node_num; taken last, after a list lock. */
    pthread_mutex_t st_count_lock;
} monitor_list_manage_t;

typedef struct {
    send_packet_list_t **p_list;
    uint32_t n_list_num;
    uint32_t n_list_node_num;
    sem_t sem;
    pthread_cond_t st_send_wait_signal;
    pthread_mutex_t st_send_wait_lock;
    uint32_t n_min_num;
    uint32_t n_min_id;
    /* Guards n_min_num, n_min_id and n_list_node_num; taken last, after a list lock. */
    pthread_mutex_t st_count_lock;
} send_list_manage_t;

/* Receiving-card queues of a sender channel: ports by cards. */
typedef struct rvcard_eth_queue_manage_s {
    send_queue_t **p_queue;       /* card r's queue or NULL */
    send_lable_manage_t **p_list; /* card r's label list */
    int32_t n_recv_state;
    int32_t n_eth_rvcard_id;
    int32_t n_max_rvcard_num;
    pthread_mutex_t st_lock;
} rvcard_eth_queue_manage_t;

typedef struct {
    rvcard_eth_queue_manage_t **p_eth_list;
    int32_t n_max_eth_num;
} rvcard_send_queue_manage_t;

/* ------------------------------------------------------------------ configuration */

/* One channel of the channel table. */
typedef struct {
    int32_t n_slot;
    transfer_section n_section;
    json_type_tbl n_type; /* 0: no entry filled this record */
    packet_code_type e_packet_code_type;
    int32_t n_fd;
    int32_t n_state; /* transfer_channel_state_e, then a busy counter */
    send_lable_manage_t p_list;
    rvcard_send_queue_manage_t p_rvcard_manage;
    struct sockaddr_in st_local_address;
    struct sockaddr_in st_remote_address;
} transfer_data_t;

#define SDK_MAP_STEP_NUM 10

/* Slot-to-channel map of one board class. */
typedef struct {
    int32_t n_id_offset;
    int32_t n_slot_min;
    int32_t n_slot_max;
    int32_t n_step[SDK_MAP_STEP_NUM];
    int32_t n_section_num[2];
    int32_t n_offset;
} transfer_id_map_t;

typedef struct {
    uint32_t n_send_thread_num;
    uint32_t n_send_list_num;
    uint32_t n_monitor_thread_num;
    uint32_t n_monitor_list_num;
    uint32_t n_rvcard_eth_max;
    uint32_t n_rvcard_max;
} transfer_format_t;

typedef struct {
    transfer_data_t *st_info; /* n_num channels */
    int32_t n_num;
    transfer_format_t st_format;
    transfer_id_map_t st_main_card;
    transfer_id_map_t st_sub_card;
    transfer_id_map_t st_backplane;
    transfer_id_map_t st_report;
} transfer_info_t;

SDK_STATIC_ASSERT(sizeof(transfer_id_map_t) == 16 * 4, "transfer_id_map_t layout");
SDK_STATIC_ASSERT(sizeof(transfer_format_t) == 6 * 4, "transfer_format_t layout");

/* The process-wide configuration, zero at load, filled once by start-up. */
SDK_API extern transfer_info_t g_st_transfer;

/* Reads "device", "transfer_param" and "rvcard_param" of the parsed configuration and
 * allocates the channel table. 0; 14 without "device"; -1000 for a missing, negative or
 * non-integer member or a class block that overlaps another or lies outside the table;
 * -5 when the table cannot be allocated. Called once, before any board array is read. */
SDK_API int32_t sdk_device_transfer_mem_init(mio_json *p_transfer_root);

/* ---- container operations ---- */

/* Results: 0 on success; -5 memory exhausted (or a NULL frame / buffer where named);
 * -4000 refused (NULL container, empty queue, unlinked node, index out of range, full
 * report queue); -4008 no request with that label. Nothing blocks except on the
 * container's own mutex.
 *
 * Lock order, outermost first: a request's st_wait_lock, then its p_packet.st_lock (the
 * sender holds it around its pulls); a send list's st_lock or a port
 * record's st_lock (never both); a send queue's st_lock; the send manager's
 * st_send_wait_lock; a manager's st_count_lock. Label lists and the report queue take
 * only their own lock. */

/* -- label lists: the requests waiting for a reply, oldest first -- */

/* Makes every channel's embedded label list and, for sender channels, one label list per
 * receiving card of every port (run after sdk_rvcard_queue_manage_init). 0; -5. */
SDK_API int32_t sdk_lable_list_manage_init(transfer_info_t *st_transfer);
/* Appends the request. 0; -5; -4000 for a NULL or uninitialised list or a NULL request. */
SDK_API int32_t sdk_lable_list_push(send_lable_manage_t *p_send_manage_list, packet_data_t *p_data);
/* Unlinks and frees the node (not the request). 0; -4000 for a node without predecessor.
 * Only for a node the caller knows to be linked: a node seen during a walk made outside
 * the lock may be freed by another thread at any time. Searches use sdk_lable_list_take. */
SDK_API int32_t sdk_lable_list_pull(send_lable_manage_t *p_lable_manage_list,
                                    send_lable_list_t *p_list);
/* The label search: finds the oldest request whose p_packet.n_send_lable equals n_lable
 * and removes its node, walk and removal in one hold of the list lock, so any thread may
 * call it. 0 with a copy of the node (request pointer and links as they were; only the
 * request may be used) in *p_node when p_node is not NULL; -4008 when no request has the
 * label; -4000 for a NULL list. Linear in the list. n_send_lable is read atomically: code
 * that changes the label of a listed request (polling) stores it with __atomic_store_n. */
SDK_API int32_t sdk_lable_list_take(send_lable_manage_t *p_lable_manage_list, uint32_t n_lable,
                                    send_lable_list_t *p_node);
/* Removes the node of this request, if it is still listed. 0; -4008 when it is not in the
 * list (a reply or the monitor took it); -4000 for NULL arguments. Linear in the list.
 * Exact even when a label has wrapped round and two listed requests share it, so the end
 * of a request removes its own node with this rather than by label. */
SDK_API int32_t sdk_lable_list_remove(send_lable_manage_t *p_lable_manage_list,
                                      packet_data_t *p_data);

/* -- send queues: frames waiting to go out, first in first out -- */

/* Makes one queue per channel of st_transfer in p_sender_queue (none for 0 channels).
 * 0; -4000 when memory runs out. */
SDK_API int32_t sdk_basics_send_queue_init(send_queue_list_t *p_sender_queue,
                                           transfer_info_t st_transfer);
/* Appends the frame and its request's state block (neither is owned). 0; -5. */
SDK_API int32_t sdk_send_queue_push(send_queue_t *p_sender_queue, data_buf_t *p_send_data,
                                    packet_general_data_t *p_packet);
/* Drops the head entry. 0; -4000 when empty ("queue is null"). */
SDK_API int32_t sdk_send_queue_pull(send_queue_t *p_queue);
/* Copies the head entry out, leaving it queued. 0; -4000 when empty (no log line). Only the
 * queue's one consumer (the sender thread) reads the head and pulls, so the head read
 * stays the head until that consumer pulls it. */
SDK_API int32_t sdk_send_queue_get_first(queue_data_t *p_data, send_queue_t *p_queue);

/* -- report queue: unsolicited frames with their slot, for the host -- */

#define SDK_REPORT_QUEUE_DEFAULT_MAX 128u /* records of 64 KiB: at most 8 MiB queued */

/* Empties the record's queue state, bound SDK_REPORT_QUEUE_DEFAULT_MAX, no drops. 0. */
SDK_API int32_t sdk_report_queue_init(report_queue_t *p_report_queue);
/* Copies n_len bytes (at most 65535) and the slot to the tail. 0; -5 when memory runs out
 * or p_pbuf is NULL with n_len not 0; -4000 for n_len above 65535 or a full queue (the
 * report is refused and counted in n_drop_num; nothing queued is lost). */
SDK_API int32_t sdk_report_queue_push(report_queue_t *p_report_queue, uint8_t *p_pbuf,
                                      uint32_t n_len, uint32_t n_slot);
/* Drops the head record. 0; -4000 when empty ("queue is null"). */
SDK_API int32_t sdk_report_queue_pull(report_queue_t *p_report_queue);
/* Copies the whole head record out, leaving it queued. 0; -4000 when empty. A host with
 * several consumer threads serialises get-first and pull itself. */
SDK_API int32_t sdk_report_queue_get_first(report_queue_data_t *p_data, report_queue_t *p_queue);
/* Sets the bound (at least 1). Lowering it below the current length drops nothing: pushes
 * are refused until the consumer has pulled below it. 0; -4000 for 0 or a NULL queue. */
SDK_API int32_t sdk_report_queue_set_max(report_queue_t *p_report_queue, uint32_t n_max_len);
/* Number of reports refused so far because the queue was full. 0; -4000 for NULL. */
SDK_API int32_t sdk_report_queue_get_drop_num(report_queue_t *p_report_queue, uint32_t *p_drop_num);

/* -- monitor and send lists: several lists, each push into the least-loaded one -- */

/* Walking contract (one consumer thread per manager: the monitor thread, the sender
 * thread). Only the consumer pulls nodes; producers only push. To walk list i: take
 * p_list[i]; fetch the first node with get-next from the sentinel (an empty list yields
 * NULL: do not read the links without the lock); for each node first fetch its successor
 * with get-next, then handle the node, which may pull it (passing i as n_id); go on with
 * the successor. A pulled node is freed at once and must not be touched again. n_state
 * is the consumer's own mark. The sender calls sdk_send_list_pull after each frame it
 * takes: the pull itself tests, under the queue lock, whether the queue is empty (reading
 * n_len outside that lock races with producers). */

/* Build the manager's lists from st_format (n_monitor_list_num / n_send_list_num).
 * 0; -3 for a count of 0; -5 when memory runs out. */
SDK_API int32_t sdk_monitor_list_manage_init(monitor_list_manage_t *p_monitor_manage_list,
                                             transfer_info_t st_transfer);
SDK_API int32_t sdk_send_list_manage_init(send_list_manage_t *p_send_manage_list,
                                          transfer_info_t st_transfer);
/* Used by the manager initialisers. 0; -5. */
SDK_API int32_t sdk_monitor_list_init(monitor_packet_list_t *p_list);
SDK_API int32_t sdk_send_list_init(send_packet_list_t *p_send_list);
/* Appends the request to the least-loaded list. 0; -5. Posts nothing. */
SDK_API int32_t sdk_monitor_list_push(monitor_list_manage_t *p_monitor_manage_list,
                                      packet_data_t *p_data);
/* Lists the queue in the least-loaded list and posts sem. 0, also without listing when the
 * queue is already listed or empty (its frames were already taken: nothing to send); -5.
 * The caller must keep the queue alive across the call: a receiving-card queue through
 * its request's hold (see the receiving-card contract below). */
SDK_API int32_t sdk_send_list_push(send_list_manage_t *p_send_manage_list, send_queue_t *p_data);
/* Unlinks and frees the node of list n_id. 0; -4000 for a node without predecessor or an
 * n_id outside the manager. Consumer thread only. */
SDK_API int32_t sdk_monitor_list_pull(monitor_list_manage_t *p_monitor_manage_list, uint32_t n_id,
                                      packet_list_t *p_list);
/* Unlists the queue of the node if it is empty, else leaves it listed (0 either way);
 * -4000 as above. Unlisting drops the list's hold on a receiving-card queue, which frees
 * it when nothing else holds it: after a 0 the consumer must not touch that queue again
 * unless it knows it is still listed. Sender thread only. */
SDK_API int32_t sdk_send_list_pull(send_list_manage_t *p_send_manage_list, uint32_t n_id,
                                   queue_list_data_t *p_list);
/* *p_data = successor of p_list (a node or the sentinel), NULL at the end. 0; -4000 for
 * NULL arguments. */
SDK_API int32_t sdk_monitor_list_get_next(monitor_packet_list_t *p_monitor_manage_list,
                                          packet_list_t **p_data, packet_list_t *p_list);
SDK_API int32_t sdk_send_list_get_next(send_packet_list_t *p_send_queue_list,
                                       queue_list_data_t **p_data, queue_list_data_t *p_list);

/* -- receiving-card queues -- */

/* Gives every sender channel n_rvcard_eth_max port records of n_rvcard_max empty card
 * slots. 0; -5. */
SDK_API int32_t sdk_rvcard_queue_manage_init(transfer_info_t *st_transfer);
/* The port record of port n_eth_id of channel n_channel_id, after checking that the
 * channel is a sender channel with that port and that the port has card n_rvcard_id:
 * 0 with *pp_port set (the card's queue slot is &(*pp_port)->p_queue[n_rvcard_id], its
 * label list (*pp_port)->p_list[n_rvcard_id]); -4000 otherwise. */
SDK_API int32_t sdk_rvcard_port_lookup(const transfer_info_t *p_transfer, uint32_t n_channel_id,
                                       uint32_t n_eth_id, uint32_t n_rvcard_id,
                                       rvcard_eth_queue_manage_t **pp_port);

/* Lifetime of a card's queue. A queue lives while anything holds it (n_hold_num): every
 * request that sdk_rvcard_queue_push accepted, until the request is released, and the
 * send list while it lists the queue. Whoever drops the last hold frees the queue and
 * empties its slot, under the port lock, so it is freed exactly once and never while
 * listed, queued to, or in use by the end of a request. The parties:
 * - request path: sdk_rvcard_queue_push takes the request's hold; *p_sender_queue then
 *   stays valid and unchanged until that hold is dropped, so the caller may read it
 *   (p_queue_general, sdk_send_list_push) without the port lock. It registers the request
 *   (push, monitor, label and send-list pushes) while holding the request's st_wait_lock,
 *   so that the request cannot end, and drop its hold, before its queue is listed.
 * - sender thread: nothing extra; sdk_send_list_pull drops the list's hold.
 * - request end (the release of the card, under st_wait_lock): calls
 *   sdk_rvcard_queue_release exactly once per accepted push, whatever the queue holds,
 *   instead of testing the queue and calling sdk_rvcard_queue_distory; it is the last use
 *   of the queue and of the request's p_queue_general. */

/* Appends the frame to the card's queue in *p_sender_queue, creating the queue when the
 * slot is empty, and takes the request's hold. The slot must be the port's entry for the
 * state block's n_recvcard_id, whose n_channel_id and n_eth_id name the channel and port.
 * 0; -5 for a NULL frame or state block or when memory for the entry runs out; -4000 when
 * memory for a new queue runs out, the slot is not the card's or the channel is outside
 * st_transfer. */
SDK_API int32_t sdk_rvcard_queue_push(send_queue_t **p_sender_queue,
                                      rvcard_eth_queue_manage_t *p_eth_manage,
                                      transfer_info_t st_transfer, data_buf_t *p_send_data,
                                      packet_general_data_t *p_packet);
/* Drops one request's hold on the card's queue; frees the queue and empties the slot when
 * that was the last hold. 0; -4000 when the slot is empty or holds no request (logged: a
 * release without a matching push). */
SDK_API int32_t sdk_rvcard_queue_release(send_queue_t **p_sender_queue,
                                         rvcard_eth_queue_manage_t *p_eth_manage);
/* Frees the card's queue only if nothing holds it and it is empty and unlisted (a queue
 * left behind by a push whose entry could not be allocated); otherwise changes nothing.
 * Always 0. */
SDK_API int32_t sdk_rvcard_queue_distory(send_queue_t **p_sender_queue,
                                         rvcard_eth_queue_manage_t *p_eth_manage);

/* ------------------------------------------------------------------ time test */

/* 0 while fewer than n_timeout milliseconds have passed since st_start_time; -4001 once
 * they have (a time-out of 0 is expired at once). */
SDK_API int32_t sdk_packet_timeout_check(packet_general_data_t *p_packet);

#ifdef __cplusplus
}
#endif

#endif /* TRANSFER_MANAGE_H */
