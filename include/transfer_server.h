/*
 * transfer_server.h - the request path of the transfer engine: wire records and frame
 * operations, the request descriptor, slot-to-channel routing, channel set-up,
 * start-up, the worker threads and the command-line parsers of the host tools.
 *
 * Every multi-byte frame field is little-endian as stored; frames the library sends
 * begin with 0x55 0xBB (delimiter 0xBB55). Results are int32_t: 0 or a count on
 * success, a negative code otherwise (-4000 refused, -4004 null buffer, ...).
 */
#ifndef TRANSFER_SERVER_H
#define TRANSFER_SERVER_H

#include <stdint.h>
#include <sys/select.h>

#include "transfer_manage.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifndef SDK_API
#define SDK_API __attribute__((visibility("default")))
#endif

/* ------------------------------------------------------------------ descriptor values */

typedef enum { FRAME_READ = 0, FRAME_WRITE = 1 } frame_code;

typedef enum {
    BODY_ADDRESS = 0,
    BODY_TLV = 1,
    BODY_RECVCARD = 2,
    MAX_BODY_TYPE = 3
} request_body_type;

enum { EN_REQUEST_ACK = 0, EN_REQUEST_NO_ACK = 1 };

typedef enum { FRAME_RESERVED = 0, FRAME_SLOT = 1 } frame_type_e;

/* ------------------------------------------------------------------ wire records */

#define SDK_FRAME_DELIMITER 0xBB55
#define SDK_FRAME_HEADER_LEN 10
#define SDK_FRAME_MAX_LEN 65535

typedef struct __attribute__((packed)) {
    uint16_t n_delimiter; /* 0xBB55 */
    uint8_t n_version;
    uint8_t n_priotity;
    uint8_t n_check_type;
    uint8_t n_frame_type; /* FRAME_SLOT */
    uint16_t n_lable;
    uint16_t n_len; /* bytes after the frame header, checksums included */
} frame_header_t;

typedef struct __attribute__((packed)) {
    uint8_t n_requset_param;
} a_request_header_t;

/* Bits of n_requset_param: 6 acknowledgement asked, 5 write, 4 report (serial receive
 * only), 3..0 body type. */
#define SDK_PARAM_ACK_BIT 0x40u
#define SDK_PARAM_WRITE_BIT 0x20u
#define SDK_PARAM_REPORT_BIT 0x10u
#define SDK_PARAM_BODY_MASK 0x0Fu

typedef struct __attribute__((packed)) {
    uint8_t n_requset_param;
    uint8_t n_device_type;
    uint16_t n_device_index;
    uint64_t n_group;
} b_request_header_t;

typedef struct __attribute__((packed)) {
    uint32_t n_header_type; /* 1 selects header B, the only one built */
    a_request_header_t st_a_header;
    b_request_header_t st_b_header;
} request_header_t;

typedef struct __attribute__((packed)) {
    uint32_t n_addr;
    int16_t n_err_code;
    uint16_t n_len;
} a_request_body_t;

typedef struct __attribute__((packed)) {
    uint32_t n_tag;
    int16_t n_err_code;
    uint16_t n_len;
} b_request_body_t;

typedef struct __attribute__((packed)) {
    uint8_t n_device_type;
    uint8_t n_port_id;
    uint16_t n_rvcard_index;
    uint8_t n_op_code;
    int8_t n_reserved;
    uint32_t n_reg_addr;
    uint16_t n_data_len;
} rvcard_request_body_t;

typedef struct __attribute__((packed)) {
    uint32_t n_body_type; /* low four bits of the parameter byte */
    a_request_body_t st_a_body;
    b_request_body_t st_b_body;
    rvcard_request_body_t st_rvcard_body;
} request_body_t;

/* The 38-byte frame that asks a receiving card whether a request has been carried out. */
typedef struct __attribute__((packed)) {
    frame_header_t frame_header;
    b_request_header_t request_header;
    rvcard_request_body_t request_data;
    uint16_t rvcard_checksum;
    uint16_t packet_checksum;
} rvcard_polling_packet_t;

#define SDK_POLLING_REG_ADDR 0x02000200u
#define SDK_RVCARD_CHECKSUM_SEED 0x5555u

SDK_STATIC_ASSERT(sizeof(frame_header_t) == 10, "frame header is 10 bytes");
SDK_STATIC_ASSERT(sizeof(b_request_header_t) == 12, "request header B is 12 bytes");
SDK_STATIC_ASSERT(sizeof(request_header_t) == 17, "request_header_t layout");
SDK_STATIC_ASSERT(sizeof(a_request_body_t) == 8, "address body is 8 bytes");
SDK_STATIC_ASSERT(sizeof(b_request_body_t) == 8, "TLV body is 8 bytes");
SDK_STATIC_ASSERT(sizeof(rvcard_request_body_t) == 12, "receiving-card body is 12 bytes");
SDK_STATIC_ASSERT(sizeof(request_body_t) == 32, "request_body_t layout");
SDK_STATIC_ASSERT(sizeof(rvcard_polling_packet_t) == 38, "polling frame is 38 bytes");

/* ------------------------------------------------------------------ request descriptor */

typedef struct __attribute__((packed)) {
    uint32_t n_addr;
    uint8_t n_device_type;  /* transfer_device_type_e */
    uint8_t n_device_index; /* DEVICE_ETH: Ethernet port, 0xFF all ports */
    uint64_t n_group;
} transfer_body_param;

typedef struct __attribute__((packed)) {
    uint32_t n_recvcard_id; /* 0xFFFF: all cards */
} control_transfer_param_t;

/* Request descriptor shared with the hosts: packed, no gaps between fields. */
typedef struct __attribute__((packed)) {
    transfer_section e_mode;
    uint32_t n_mode_id;
    uint32_t n_slot;
    uint32_t n_reply_times;
    uint32_t n_no_ack;          /* EN_REQUEST_ACK / EN_REQUEST_NO_ACK */
    uint32_t n_write_wait_time; /* microseconds */
    uint32_t n_timeout;         /* milliseconds */
    uint32_t n_polling_state;
    uint32_t n_polling_time; /* milliseconds */
    uint8_t n_broadcast_eth_id;
    frame_code e_code;
    uint32_t n_read_len;
    request_body_type e_type;
    transfer_body_param st_addr_param;
    control_transfer_param_t st_control;
    packet_data_t *p_packet_node; /* output: the in-flight record */
} transfer_op_t;

SDK_STATIC_ASSERT(sizeof(transfer_body_param) == 14, "transfer_body_param layout");
SDK_STATIC_ASSERT(sizeof(transfer_op_t) == 67 + sizeof(void *), "transfer_op_t is packed");

/* Endpoint description handed to sdk_udp_init. */
#define SDK_IP_TEXT_LEN 255
typedef struct {
    char p_ip[SDK_IP_TEXT_LEN];
    uint32_t n_port;
} sock_addr_t;

/* Results of the command-line parsers. */
typedef enum {
    EN_MID_ACK_TIMEOUT = -3,
    EN_MID_ACK_POINTER_NULL = -2,
    EN_MID_ACK_ARG_ERR = -1,
    EN_MID_ACK_TRUE = 0,
    EN_MID_ACK_INVALID = 1
} en_mid_ack;

/* ------------------------------------------------------------------ label and checksums */

/* The mutex of the process-wide label counter; statically initialised, so labels can be
 * taken before start-up. */
SDK_API extern pthread_mutex_t st_lable_lock;

/* Next label: 1, 2, ..., 65535, 1, ...; never 0. Thread-safe. */
SDK_API uint16_t sdk_get_next_lable(void);

/* 16-bit byte sum of n_len bytes; 0 for n_len 0; -4004 for a NULL buffer. */
SDK_API int32_t sdk_transfer_checksum(uint8_t *p_send_buf, uint32_t n_len);
/* 0 when the last two bytes of the frame hold the byte sum of the bytes before them,
 * 1 when not; -4004 for a NULL buffer; -4000 for a frame shorter than 2 bytes. */
SDK_API int32_t sdk_transfer_checksum_data(uint8_t *p_send_buf, uint32_t n_len);
/* Copies the data of a received address-body frame to p_data; the count, or -4000 for
 * a frame shorter than 32 bytes, another frame or body type, a data length over 9000 or
 * data that would run past n_buf_len. p_data must hold 9000 bytes. */
SDK_API int32_t sdk_get_protocol_data(int8_t *p_data, int8_t *p_recv, uint16_t n_buf_len);

/* ------------------------------------------------------------------ frame builders */

SDK_API int32_t sdk_packet_add_frame_header(frame_header_t *p_st_frame_header,
                                            uint32_t n_transfer_id, transfer_op_t st_header);
SDK_API int32_t sdk_packet_add_request_header(request_header_t *p_st_request_header,
                                              uint32_t n_transfer_id, uint32_t n_type,
                                              transfer_op_t st_header);
SDK_API int32_t sdk_packet_add_request_body(request_body_t *p_st_request_body,
                                            request_header_t p_st_request_header,
                                            transfer_op_t st_header);
/* Bytes in front of the data: 30 for address and TLV bodies, 34 for receiving cards. */
SDK_API int32_t sdk_get_packet_length(request_header_t st_request_header,
                                      request_body_t st_request_body);
/* Assembles a whole frame into p_send_buf, which the caller has zeroed for the frame
 * length (data + header length + checksums). */
SDK_API int32_t sdk_packet_data(uint8_t *p_send_buf, uint8_t *p_wbuf, uint32_t n_buf_len,
                                frame_header_t st_frame_header, request_header_t st_request_header,
                                request_body_t st_request_body);

/* ------------------------------------------------------------------ routing */

/* Channel index of the request's slot, section and device index; -3 for a section
 * other than FPGA or MCU; -4000 for an unknown slot, a flattened section index of 10
 * or more, or an index outside the channel table. Reads only the configuration. */
SDK_API int32_t sdk_get_transfer_map_id(transfer_op_t st_header);

/* ---- request API and engine threads ---- */

/* Accepts a request: routes it, builds its frame into a new in-flight record stored in
 * p_packet_node and registers it with the engine; returns at once. 0; -3 / -4000 for a
 * target that cannot be routed, an unopened channel, a receiving-card port or card
 * outside the channel's structures (or a channel without them); -4006 for a frame that
 * would not fit the 9000-byte send buffer; -5 when memory runs out; the code of a failed
 * push. On failure nothing stays registered and p_packet_node is not an in-flight record
 * (NULL once a record had been allocated). Any number of host threads. */
SDK_API int32_t sdk_request(char *p_wbuf, uint32_t n_wbuflen, transfer_op_t *p_st_header);
/* Blocks until the request has ended, copies the reply data (at most 9000 bytes) to
 * p_rbuf, frees the record and resets p_packet_node. The byte count; 0 without reply data
 * or without a record; -4001 when the request timed out. One waiter per request. */
SDK_API int32_t sdk_request_wait(char *p_rbuf, transfer_op_t *p_st_header);
/* sdk_request then sdk_request_wait in one call, for a caller that waits for each request
 * before the next: the same frame, flow rule, ending and results (a refusal returns
 * sdk_request's code and leaves no record). Knowing that the caller waits at once, the
 * engine lets this thread take the request's UDP channel from the receive thread before
 * the frame goes out, so the reply comes straight back to it: fewer thread hand-overs
 * when the cores are busy. */
SDK_API int32_t sdk_request_run(char *p_wbuf, uint32_t n_wbuflen, char *p_rbuf,
                                transfer_op_t *p_st_header);
/* The request's e_state (0 to 7), read without a lock; -4000 without a record. */
SDK_API int32_t sdk_request_get_state(transfer_op_t *p_st_header);
/* Waits for the end of the request, frees the record, resets p_packet_node. Always 0. */
SDK_API int32_t sdk_request_free(transfer_op_t *p_st_header);

/* Builds the engine's containers in start-up order: report queue, channel send queues,
 * monitor lists, send lists, receiving-card queues, label lists, the channels' counters
 * (zeroed). Once, after channel set-up and before any worker thread. 0 or the first
 * failing step's code. */
SDK_API int32_t sdk_transfer_containers_init(void);

/* Sender thread body: sends the head frame of every listed queue whose channel, card
 * and port are free. Never returns. */
SDK_API void *sdk_transfer_sender_thread(void *arg);
/* 0 when the head frame of the queue may go now; -4000 channel, card or port busy (or
 * channel not open); -1 receiving-card queue without its port record. Sender only. */
SDK_API int32_t sdk_transfer_channel_check(send_queue_t *p_queue);
/* b_used 2 occupies the channel (or card and port) of the queue for the request; any
 * other value releases it, drops the request's hold on a card queue and posts the send
 * semaphore. Always 0. Occupy: sender thread; release: monitor thread. */
SDK_API int32_t sdk_transfer_channel_state_update(queue_general_data_t *p_general,
                                                  packet_general_data_t *p_packet, uint32_t b_used);
/* Writes one frame to channel n_transfer_id (UDP datagram or serial write). 0 when every
 * byte went out; else the count or -1 returned by the send or write; -4000 for another
 * channel type or an index outside the table. */
SDK_API int32_t sdk_physical_send(uint8_t *p_send_buf, uint32_t n_send_len, uint32_t n_transfer_id);
/* Logs the bytes as hex, 24 per line, at debug level. */
SDK_API void print_24_per_line(const uint8_t *buf, int len);

/* Network receive thread body: select over the opened UDP channels, then
 * sdk_recv_manage. Never returns. */
SDK_API void *sdk_transfer_recv_thread(void *arg);
/* Serves one datagram from every UDP channel whose descriptor is in n_fd_event: matches
 * it by label and stores the reply. 0 when the last served datagram was matched or none
 * was served; otherwise the code that stopped the pass or of the last label search. */
SDK_API int32_t sdk_recv_manage(fd_set n_fd_event);
/* One datagram of channel n_transfer_id into p_rbuf (room for 65535 bytes). The count;
 * -4000 for a channel neither UDP nor REPORT_UDP; -3000 when the receive fails. */
SDK_API int32_t sdk_physical_recv(uint8_t *p_rbuf, uint32_t n_transfer_id);
/* Finds the oldest request with label n_lable in the label list chosen by e_type
 * (PACKET_VIDEO / PACKET_SENDER: the channel's; PACKET_RECV: the card's behind the
 * port) and removes it, copying its node to *p_packet. 0; -4008 when none or e_type,
 * channel, port or card unknown. Any thread. */
SDK_API int32_t sdk_get_member_form_lable(packet_code_type e_type, uint32_t n_eth_id,
                                          uint32_t n_rvcard_id, send_lable_list_t *p_packet,
                                          uint32_t n_lable, uint32_t n_transfer_id);

/* Time-out monitor thread body: ends, retransmits and polls the requests in flight.
 * Never returns. */
SDK_API void *sdk_transfer_timeout_monitor_thread(void *arg);
/* Posts the monitor and send semaphores every 1500 microseconds. Never returns. */
SDK_API void *sdk_transfer_trigger_thread(void *arg);
/* Next polling step of a polled receiving-card request. Always 0. Monitor thread. */
SDK_API int32_t sdk_send_polling(packet_data_t *p_packet);
/* Sends the request's frame again and restarts its time-out. Always 0. Monitor thread. */
SDK_API int32_t sdk_reply_send(packet_data_t *p_packet);

/* ---- start-up, report and serial receive ---- */

/* Exported for hosts; nothing inside the library takes it. Statically initialised. */
SDK_API extern pthread_mutex_t st_report_lock;

/* Brings the engine up: parses the configuration file transfer_path, builds the channel
 * table, opens the main-card channels, the sub-card channels of the slotnum slots listed
 * in slot (one byte each) and the backplane channels, builds the containers and starts the
 * six worker threads. 0 when running; -1000 for a missing, unreadable or malformed file;
 * 14 without "device"; -5 when memory runs out; the negative code of a UDP endpoint or a
 * container; the error number of a failed thread creation. A failure while building the
 * engine undoes everything built so far, so the call can be repeated. A call after a
 * failed thread creation starts the missing threads. A call on a running engine opens
 * the configured channels that are still closed (UDP channels while eth0 was not up, a
 * serial device that was missing) and returns 0, or -1000 when the file cannot be read;
 * it changes nothing else. */
SDK_API int32_t sdk_transfer_init(char *slot, uint32_t slotnum, char *transfer_path);
/* Stops the engine that sdk_transfer_init started: new requests are refused (-4000),
 * every request still in flight ends as timed out (its sdk_request_wait returns -4001),
 * the worker threads stop, every channel is closed and the channel table and the
 * containers are freed. sdk_transfer_init may then run again. 0, also when the engine
 * was not started. Not to be called from a worker thread. */
SDK_API int32_t sdk_transfer_exit(void);

/* ---- counters ---- */

/* The counters of one channel since start-up. */
typedef struct {
    int32_t n_transfer_id;        /* index in g_st_transfer.st_info */
    int32_t n_slot;
    json_type_tbl n_type;         /* UDP, UART, REPORT_UDP, ...; 0: no configured entry */
    int32_t n_opened;             /* 1 when the channel's endpoint is open */
    uint64_t n_frames_sent;       /* request frames sent the first time */
    uint64_t n_retransmissions;   /* request frames sent again */
    uint64_t n_polls;             /* poll frames sent (writes confirmed by polling) */
    uint64_t n_replies_matched;   /* replies that found their request */
    uint64_t n_replies_unmatched; /* replies no request waited for: unknown label or late */
    uint64_t n_bad_frames;        /* frames dropped: length, frame type or body wrong */
    uint64_t n_timeouts;          /* requests ended as timed out */
    uint64_t n_reports_queued;
    uint64_t n_reports_dropped;   /* reports refused: queue full or push failed */
} sdk_transfer_stats_t;

SDK_STATIC_ASSERT(sizeof(sdk_transfer_stats_t) == 16 + 9 * 8, "sdk_transfer_stats_t layout");

/* Copies the counters of the first n_max channels (channel order) into p_stats and returns
 * the number of channels in the table (which may exceed n_max); 0 when the engine is not
 * started; -4004 for NULL with n_max > 0. Counting takes no lock: each count is read
 * atomically, the record as a whole is not a snapshot. Not concurrently with
 * sdk_transfer_exit or a start-up call. */
SDK_API int32_t sdk_transfer_get_stats(sdk_transfer_stats_t *p_stats, uint32_t n_max);

/* Report thread body: select over the opened REPORT_UDP channels, then
 * sdk_report_recv_manage, then a 1000-microsecond pause. Never returns. */
SDK_API void *sdk_transfer_report_recv_thread(void *arg);
/* Queues one datagram of every REPORT_UDP channel whose descriptor is in n_fd_event, whole
 * and with the channel's slot. 0; -4000 for a datagram shorter than 10 bytes or whose
 * header length disagrees with its size (dropped); the code of a failed push (the report
 * is lost). A failed receive ends the pass with the running result. */
SDK_API int32_t sdk_report_recv_manage(fd_set n_fd_event);

/* Serial receive thread body: select over the opened UART channels (no time-out),
 * reads and cuts frames, keeping an incomplete tail for up to 1000 reads per wake-up.
 * Idle while the host sets b_uart_used_flg (see sdk_uart_hold). A line that fails to
 * read rests 100 ms while the others are served. Never returns. */
SDK_API void *sdk_transfer_uart_recv_thread(void *arg);
/* Cuts the frames at the start of n_len stream bytes of channel n_transfer_id: reports
 * (bit 4 of the parameter byte) go to the report queue with the channel's slot, replies
 * to the request waiting for their label. Returns the number of bytes consumed from the
 * start of p_buf (0 to n_len); the caller keeps the rest, moves it to the start and
 * appends new bytes before the next call. 0 for a NULL buffer. Serial receive thread. */
SDK_API int32_t sdk_uart_recv_manage(uint8_t *p_buf, uint32_t n_len, int32_t n_transfer_id);
/* The serial descriptor published for MCU programming (n_mcu_isp_uart_fd). */
SDK_API int32_t sdk_get_uart_fd(void);
/* Takes the serial lines from the serial receive thread before the host talks on one
 * itself (MCU programming): sets b_uart_used_flg and waits until the thread has let go of
 * every line; it reads none until the flag is cleared (sdk_uart_release). 0 once the
 * lines are the host's (at once when the thread is not running); -4001 when the thread
 * did not let go within n_wait_ms (the flag stays set). Setting the flag alone is not
 * enough: a read already under way could still take the first bytes of the answer. */
SDK_API int32_t sdk_uart_hold(uint32_t n_wait_ms);
/* Gives the serial lines back to the serial receive thread (clears b_uart_used_flg). */
SDK_API void sdk_uart_release(void);

/* ---- channel set-up and endpoints ---- */

/* Opens the UDP endpoint of a channel: a socket with address reuse, bound to n_port on
 * every local address (walking up from n_port while the port is taken; no further try
 * after a port above 63354) and connected to p_ip at the same port. On success n_fd,
 * both addresses and n_state 1 are set and 0 is returned. When "eth0" is missing or
 * not running the result is 0 too, but the channel stays unopened: n_fd -1, n_state 0.
 * -4000 when the socket cannot be created or connected, the bind result (-1) when no
 * port could be bound, -4000 for an unterminated p_ip or a port above 65535; every
 * failure leaves n_fd negative and no socket open. Start-up only. */
SDK_API int32_t sdk_udp_init(sock_addr_t st_addr, transfer_data_t *p_st_info);

/* Channel set-up, one member per board class, run once at start-up after
 * sdk_device_transfer_mem_init and before any worker thread: each walks its board array
 * of the configuration ("maincards", "subcards", "backplane", "report"), fills its class
 * map's section rows, the channel records at their ids, and opens the endpoints (UDP
 * sockets, serial ports; a serial port is also published in n_mcu_isp_uart_fd).
 * 0; 0 with a log line when the array is missing; -1000 for a malformed board or
 * channel entry, a channel id outside the table or already set up, more than 10 section
 * rows on a board, or an "ip" text of 255 characters or more; the negative result of
 * sdk_udp_init when a UDP endpoint cannot be opened. A serial port that cannot be opened
 * leaves its channel unopened (n_state 0) and set-up goes on. Endpoints opened before a
 * failure stay open.
 *   main cards: UDP, REPORT_UDP and UART channels
 *   sub cards:  UDP and REPORT_UDP, only for the slotnum slots listed in slot (one byte
 *               each; a slot listed twice is set up once)
 *   backplane:  UDP and UART
 *   report:     UDP and REPORT_UDP (not called by start-up)
 * Other channel types are logged and skipped; their records keep n_fd -1 and n_state 0. */
SDK_API int32_t sdk_maincards_transfer_init(mio_json *p_transfer_root);
SDK_API int32_t sdk_subcards_transfer_init(char *slot, uint32_t slotnum, mio_json *p_transfer_root);
SDK_API int32_t sdk_backplane_transfer_init(mio_json *p_transfer_root);
SDK_API int32_t sdk_report_transfer_init(mio_json *p_transfer_root);

/* ---- report queue access ---- */

/* The process-wide report queue, filled by the report and serial receive threads and
 * drained only by the host: read the head with sdk_report_queue_get_first, then drop it
 * with sdk_report_queue_pull. Valid once sdk_transfer_init has built it; the bound
 * (SDK_REPORT_QUEUE_DEFAULT_MAX records) can then be changed with
 * sdk_report_queue_set_max, and reports refused while it was full are counted
 * (sdk_report_queue_get_drop_num). */
SDK_API report_queue_t *sdk_get_report_queue(void);

/* ---- command-line parsers ---- */

/* Options of the register tool transfer_tool. */
typedef struct {
    char n_slot_id[512];     /* -s / --slotid */
    uint32_t n_reg_addr;     /* -R / --addr_reg */
    uint32_t n_length;       /* -L / --length */
    uint32_t n_eth_mask;     /* -e: Ethernet port selector */
    uint32_t n_recvcard_num; /* -r: receiving-card number */
    uint32_t n_body_type;    /* -B */
    frame_code n_e_code;     /* -E: FRAME_READ / FRAME_WRITE */
    uint32_t n_no_ack;       /* -A: 0 wait for an acknowledgement, 1 do not */
    uint32_t n_device_type;  /* -D: 0 FPGA, 1 MCU */
    uint32_t n_times;        /* -C: repeat count */
    char file_path[255];     /* -P */
    char data;               /* not set by the parser */
} recvcard_struct;

/* Options of the firmware-upgrade tool; shared with it, so packed. */
typedef struct __attribute__((packed)) {
    char n_slot_id[512];
    uint32_t n_mode_id;
    char file_path[255];
    uint32_t n_size;
    uint32_t n_timeout;
    uint32_t n_filetype;
    uint32_t n_index;
    uint32_t n_devicetype;
    uint32_t n_deviceindex;
    uint32_t n_version;
    uint32_t n_mode;
    uint32_t n_com_mode;
    uint32_t n_reboot;
    uint32_t n_check;
    uint32_t n_pre_erase;
    uint32_t n_get_erase_result;
    uint32_t n_boot_mode;
} upgrade_mcu_t;

SDK_STATIC_ASSERT(sizeof(upgrade_mcu_t) == 512 + 4 + 255 + 14 * 4, "upgrade_mcu_t is packed");

/* Both parsers scan the vector with getopt_long from its start (they reset optind, so a
 * process may parse several vectors; not thread-safe, like getopt). Numbers are read with
 * strtol in base 0, texts cut to fit their array. Fields no option sets keep the caller's
 * values. Unknown options and missing arguments are skipped (getopt complains on stderr);
 * non-option arguments are left at the end of the vector for the caller.
 * EN_MID_ACK_POINTER_NULL for a NULL record or vector. */

/* EN_MID_ACK_TRUE, or EN_MID_ACK_INVALID after printing the usage to stderr for -h. */
SDK_API en_mid_ack cmd_parse_recvcard(recvcard_struct *p_common_cmd, int32_t n_argc, char **p_argv);
/* EN_MID_ACK_TRUE. */
SDK_API en_mid_ack cmd_parse_recvcard_mcu(upgrade_mcu_t *p_common_cmd, int32_t n_argc,
                                          char **p_argv);

#ifdef __cplusplus
}
#endif

#endif /* TRANSFER_SERVER_H */
