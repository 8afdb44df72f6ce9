/* A plain C11 host: includes every public header, links against the library, and builds
 * the frame of an acknowledged 4-byte read through the C interface. */
#include <stdio.h>
#include <string.h>

#include "isp.h"
#include "mio_json.h"
#include "mio_sdfile.h"
#include "sdk_log.h"
#include "transfer_manage.h"
#include "transfer_server.h"
#include "uart.h"

volatile bool b_uart_used_flg = false;
uint32_t n_mcu_isp_uart_fd = (uint32_t)-1;

static const char *k_config =
    "{\"device\":{\"main_card\":{\"slot_num\":1,\"type_num\":2,\"min_slot\":100,"
    "\"max_slot\":100,\"id_offset\":0}}}";

int main(void) {
    static const uint8_t expected[32] = {0x55, 0xBB, 0x00, 0x00, 0x00, 0x01, 0x01, 0x00,
                                         0x16, 0x00, 0x40, 0x00, 0x00, 0x00, 0x00, 0x00,
                                         0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10,
                                         0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x7C, 0x01};
    mio_json *root = mio_json_fromstring(k_config);
    if (root == NULL || sdk_device_transfer_mem_init(root) != 0 || g_st_transfer.n_num != 2) {
        fprintf(stderr, "configuration not loaded\n");
        return 1;
    }
    mio_json_delete(root);
    g_st_transfer.st_info[0].n_type = UDP;

    transfer_op_t op;
    memset(&op, 0, sizeof(op));
    op.e_mode = FPGA;
    op.n_slot = 100;
    op.n_no_ack = EN_REQUEST_ACK;
    op.e_code = FRAME_READ;
    op.n_read_len = 4;
    op.e_type = BODY_ADDRESS;
    op.st_addr_param.n_addr = 0x1000;

    int32_t id = sdk_get_transfer_map_id(op);
    frame_header_t fh;
    request_header_t rh;
    request_body_t rb;
    memset(&fh, 0, sizeof(fh));
    memset(&rh, 0, sizeof(rh));
    memset(&rb, 0, sizeof(rb));
    if (id != 0 || sdk_packet_add_frame_header(&fh, (uint32_t)id, op) != 0 ||
        sdk_packet_add_request_header(&rh, (uint32_t)id, fh.n_frame_type, op) != 0 ||
        sdk_packet_add_request_body(&rb, rh, op) != 0) {
        fprintf(stderr, "frame not built\n");
        return 1;
    }
    int32_t len = sdk_get_packet_length(rh, rb) + 2;
    fh.n_len = (uint16_t)(len - 10);
    uint8_t frame[64] = {0};
    if (len != 32 || sdk_packet_data(frame, NULL, 0, fh, rh, rb) != 0 ||
        memcmp(frame, expected, sizeof(expected)) != 0) {
        fprintf(stderr, "frame bytes differ\n");
        return 1;
    }
    if (sdk_transfer_checksum_data(frame, 32) != 0) return 1;
    printf("C host OK: %d-byte frame, transfer_op_t is %zu bytes\n", len, sizeof(transfer_op_t));
    return 0;
}
