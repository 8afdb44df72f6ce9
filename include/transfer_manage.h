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

/* ------------------------------------------------------------------ time test */

/* 0 while fewer than n_timeout milliseconds have passed since st_start_time; -4001 once
 * they have (a time-out of 0 is expired at once). */
SDK_API int32_t sdk_packet_timeout_check(packet_general_data_t *p_packet);

#ifdef __cplusplus
}
#endif

#endif /* TRANSFER_MANAGE_H */
