/*
 * A host built against the installed library: every public header, the host globals, a
 * JSON value parsed by the library and a frame that it builds and then checks.
 */
#include <stdbool.h>
#include <stdint.h>
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

int main(void) {
    mio_json *root = mio_json_fromstring("{\"n_len\": 4}");
    int32_t n_len = root != NULL ? mio_json_getobjectitemint(root, "n_len") : -1;
    mio_json_delete(root);
    if (n_len != 4) {
        fprintf(stderr, "json: n_len %d\n", n_len);
        return 1;
    }

    frame_header_t fh;
    request_header_t rh;
    request_body_t rb;
    memset(&fh, 0, sizeof(fh));
    memset(&rh, 0, sizeof(rh));
    memset(&rb, 0, sizeof(rb));
    fh.n_delimiter = SDK_FRAME_DELIMITER;
    fh.n_lable = sdk_get_next_lable();
    rh.n_header_type = 1;
    rb.n_body_type = BODY_ADDRESS;
    rb.st_a_body.n_addr = 0x1000;
    uint8_t data[4] = {0xDE, 0xAD, 0xBE, 0xEF};
    int32_t len = sdk_get_packet_length(rh, rb) + n_len + 2;
    fh.n_len = (uint16_t)(len - SDK_FRAME_HEADER_LEN);
    uint8_t frame[64];
    memset(frame, 0, sizeof(frame));
    if (sdk_packet_data(frame, data, (uint32_t)n_len, fh, rh, rb) != 0 ||
        sdk_transfer_checksum_data(frame, (uint32_t)len) != 0) {
        fprintf(stderr, "frame refused or checksum wrong\n");
        return 1;
    }
    printf("frame of %d bytes, label %u, module tag %s\n", len, fh.n_lable, tag_tab[LOG_TRANSFER]);
    return 0;
}
