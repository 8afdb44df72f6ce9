/* A plain C11 host: includes every public header, links against the library, and builds
 * the frame of an acknowledged 4-byte read through the C interface. Also built against
 * the installed package by tests/install. */
#include <stdio.h>
#include <string.h>

#include "isp.h"
#include "mio_json.h"
#include "mio_sdfile.h"
#include "sdk_log.h"
#include "transfer_errors.h"
#include "transfer_manage.h"
#include "transfer_server.h"
#include "uart.h"

volatile bool b_uart_used_flg = false;
uint32_t n_mcu_isp_uart_fd = (uint32_t)-1;

int main(void) {
    static const uint8_t expected[32] = {
        0x55, 0xBB, 0, 0, 0, 1, 1, 0, 0x16, 0, 0x40, [23] = 0x10, [26] = 4, [30] = 0x7C, [31] = 1};
    mio_json *root = mio_json_fromstring(
        "{\"device\":{\"main_card\":{\"slot_num\":1,\"type_num\":2,\"min_slot\":100,"
        "\"max_slot\":100,\"id_offset\":0}}}");
    int ok = root != NULL && sdk_device_transfer_mem_init(root) == 0 && g_st_transfer.n_num == 2;
    mio_json_delete(root);
    if (!ok || strcmp(sdk_strerror(SDK_ERR_TIMEOUT), "timed out") != 0) return 1;
    g_st_transfer.st_info[0].n_type = UDP;

    transfer_op_t op = {0};
    op.e_mode = FPGA, op.n_slot = 100, op.n_no_ack = EN_REQUEST_ACK, op.e_code = FRAME_READ;
    op.n_read_len = 4, op.e_type = BODY_ADDRESS, op.st_addr_param.n_addr = 0x1000;
    frame_header_t fh = {0};
    request_header_t rh = {0};
    request_body_t rb = {0};
    uint8_t frame[64] = {0};
    int32_t id = sdk_get_transfer_map_id(op);
    ok = id == 0 && sdk_packet_add_frame_header(&fh, (uint32_t)id, op) == 0 &&
         sdk_packet_add_request_header(&rh, (uint32_t)id, fh.n_frame_type, op) == 0 &&
         sdk_packet_add_request_body(&rb, rh, op) == 0 && sdk_get_packet_length(rh, rb) == 30;
    fh.n_len = 22;
    if (!ok || sdk_packet_data(frame, NULL, 0, fh, rh, rb) != 0 ||
        memcmp(frame, expected, sizeof(expected)) != 0) {
        fprintf(stderr, "frame not built as expected\n");
        return 1;
    }
    printf("C host OK: 32-byte frame, transfer_op_t is %zu bytes\n", sizeof(transfer_op_t));
    return 0;
}
