/*
 * example_host - a small host of the library: loads a transfer configuration, opens its
 * channels, prints the channel table, and builds and dumps a few request frames.
 *
 *   example_host <transfer.json> [zlog.conf]
 */
#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include "mio_json.h"
#include "sdk_log.h"
#include "transfer_server.h"

static const char *type_name(json_type_tbl t) {
    switch (t) {
        case UDP:
            return "UDP";
        case TCP:
            return "TCP";
        case RAW_SOCKET:
            return "RAW_SOCKET";
        case UART:
            return "UART";
        case REPORT_UDP:
            return "REPORT_UDP";
        default:
            return "-";
    }
}

static void print_table(void) {
    printf("channel table: %d channels\n", g_st_transfer.n_num);
    printf("  %-3s %-5s %-5s %-10s %-6s %-5s %-5s %s\n", "id", "slot", "sect", "type", "code", "fd",
           "state", "remote");
    for (int32_t i = 0; i < g_st_transfer.n_num; ++i) {
        const transfer_data_t *ch = &g_st_transfer.st_info[i];
        if (ch->n_type == 0) continue;
        char remote[64] = "-";
        if (ch->n_type != UART && ch->st_remote_address.sin_family == AF_INET) {
            char ip[INET_ADDRSTRLEN];
            inet_ntop(AF_INET, &ch->st_remote_address.sin_addr, ip, sizeof(ip));
            snprintf(remote, sizeof(remote), "%s:%u", ip, ntohs(ch->st_remote_address.sin_port));
        }
        printf("  %-3d %-5d %-5s %-10s %-6d %-5d %-5d %s\n", i, ch->n_slot, sections[ch->n_section],
               type_name(ch->n_type), ch->e_packet_code_type, ch->n_fd, ch->n_state, remote);
    }
}

static void dump(const char *title, const uint8_t *buf, int len) {
    printf("%s (%d bytes):\n", title, len);
    for (int i = 0; i < len; ++i) {
        if (i > 0 && i % 16 == 0) printf("\n");
        printf("%s%02x", i % 16 == 0 ? "  " : " ", buf[i]);
    }
    printf("\n");
}

/* Builds a frame the way the request path does, without queueing it. */
static void show_frame(const char *title, transfer_op_t op, uint8_t *wdata, uint32_t wlen) {
    int32_t id = sdk_get_transfer_map_id(op);
    frame_header_t fh;
    request_header_t rh;
    request_body_t rb;
    memset(&fh, 0, sizeof(fh));
    memset(&rh, 0, sizeof(rh));
    memset(&rb, 0, sizeof(rb));
    if (id < 0 || sdk_packet_add_frame_header(&fh, (uint32_t)id, op) != 0 ||
        sdk_packet_add_request_header(&rh, (uint32_t)id, fh.n_frame_type, op) != 0 ||
        sdk_packet_add_request_body(&rb, rh, op) != 0) {
        printf("%s: refused (channel %d)\n", title, id);
        return;
    }
    int32_t len = sdk_get_packet_length(rh, rb) + (int32_t)wlen + 2;
    if (op.e_type == BODY_RECVCARD) len += 2;
    fh.n_len = (uint16_t)(len - 10);
    uint8_t frame[128];
    memset(frame, 0, sizeof(frame));
    sdk_packet_data(frame, wdata, wlen, fh, rh, rb);
    char line[160];
    snprintf(line, sizeof(line), "%s -> channel %d, label %u", title, id, fh.n_lable);
    dump(line, frame, len);
}

static void usage(FILE *out) {
    fputs(
        "Usage: example_host <transfer.json> [zlog.conf]\n"
        "A small host of the library: loads the transfer configuration, opens its channels\n"
        "(main cards, sub cards 1 and 2, backplane), prints the channel table and dumps the\n"
        "frames of a few requests without sending them. With zlog.conf the library logs.\n"
        "  -h, --help  this text\n",
        out);
}

int main(int argc, char **argv) {
    if (argc > 1 && (strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "--help") == 0)) {
        usage(stdout);
        return 0;
    }
    if (argc < 2 || argc > 3 || argv[1][0] == '-') {
        usage(stderr);
        return 2;
    }
    if (argc > 2) {
        mkdir("/tmp/transfer_example", 0755);
        if (sdk_log_init((int8_t *)argv[2]) != 0) fprintf(stderr, "\nlogging stays off\n");
    }
    mio_json *root = mio_json_fromfile(argv[1]);
    if (root == NULL) {
        fprintf(stderr, "%s: cannot read or parse %s\n", argv[0], argv[1]);
        return 1;
    }
    char slots[] = {1, 2};
    int32_t ret = sdk_device_transfer_mem_init(root);
    if (ret == 0) ret = sdk_maincards_transfer_init(root);
    if (ret == 0) ret = sdk_subcards_transfer_init(slots, sizeof(slots), root);
    if (ret == 0) ret = sdk_backplane_transfer_init(root);
    mio_json_delete(root);
    if (ret != 0) {
        fprintf(stderr, "%s: configuration refused with %d\n", argv[0], ret);
        return 1;
    }
    print_table();

    transfer_op_t op;
    memset(&op, 0, sizeof(op));
    op.e_mode = FPGA;
    op.n_slot = 100;
    op.e_code = FRAME_READ;
    op.n_read_len = 4;
    op.e_type = BODY_ADDRESS;
    op.st_addr_param.n_addr = 0x1000;
    show_frame("main card FPGA: read 4 bytes at 0x1000", op, NULL, 0);

    uint8_t wdata[4] = {0xDE, 0xAD, 0xBE, 0xEF};
    op.n_slot = 2;
    op.e_mode = MCU;
    op.e_code = FRAME_WRITE;
    op.n_read_len = 0;
    op.st_addr_param.n_addr = 0x20;
    show_frame("sub card 2 MCU: write 4 bytes at 0x20", op, wdata, sizeof(wdata));

    op.n_slot = 100;
    op.e_mode = FPGA;
    op.e_code = FRAME_READ;
    op.n_read_len = 8;
    op.e_type = BODY_RECVCARD;
    op.st_addr_param.n_addr = 0x100;
    op.st_addr_param.n_device_type = DEVICE_ETH;
    op.st_addr_param.n_device_index = 1;
    op.st_control.n_recvcard_id = 5;
    show_frame("receiving card 5 behind port 1: read 8 bytes at 0x100", op, NULL, 0);

    op.n_slot = 7;
    show_frame("slot 7 (not configured)", op, NULL, 0);
    return 0;
}
