#include "fuzz_support.h"

#include "engine/inflight.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace fuzz {

namespace {

constexpr const char *kChassis = R"({
  "device": {
    "main_card": {"slot_num": 1, "type_num": 4, "min_slot": 100, "max_slot": 100, "id_offset": 0},
    "backplane": {"slot_num": 1, "type_num": 1, "min_slot": 101, "max_slot": 101, "id_offset": 4}
  },
  "rvcard_param": {"eth_max": 4, "rvcard_max": 8}
})";

// A report queue this short fills up quickly, so the cutter's handling of a refused push
// is exercised too.
constexpr uint32_t kReportQueueMax = 4;

void set_channel(int32_t id, int32_t slot, transfer_section section, json_type_tbl type,
                 packet_code_type code) {
    transfer_data_t &ch = g_st_transfer.st_info[id];
    ch.n_slot = slot;
    ch.n_section = section;
    ch.n_type = type;
    ch.e_packet_code_type = code;
    ch.n_fd = -1;
}

void load() {
    mio_json *root = mio_json_fromstring(kChassis);
    const int32_t ret = sdk_device_transfer_mem_init(root);
    mio_json_delete(root);
    if (ret != 0 || g_st_transfer.n_num != 5) fail("chassis configuration");
    set_channel(0, 100, FPGA, UDP, PACKET_VIDEO);
    set_channel(1, 100, MCU, UART, PACKET_VIDEO);
    set_channel(2, 100, FPGA, REPORT_UDP, PACKET_VIDEO);
    set_channel(3, 100, FPGA, UDP, PACKET_SENDER);
    set_channel(4, 101, MCU, UART, PACKET_VIDEO);
    if (sdk_rvcard_queue_manage_init(&g_st_transfer) != 0 ||
        sdk_lable_list_manage_init(&g_st_transfer) != 0 ||
        sdk_report_queue_init(sdk_get_report_queue()) != 0 ||
        sdk_report_queue_set_max(sdk_get_report_queue(), kReportQueueMax) != 0) {
        fail("chassis containers");
    }
}

}  // namespace

void fail(const char *what) {
    fprintf(stderr, "fuzz invariant broken: %s\n", what);
    abort();
}

void load_chassis() {
    static const bool b_loaded = (load(), true);
    (void)b_loaded;
}

void drain_reports() {
    while (sdk_report_queue_pull(sdk_get_report_queue()) == 0) {
    }
}

send_lable_manage_t *card_list(uint32_t port, uint32_t card) {
    rvcard_eth_queue_manage_t *p_port = nullptr;
    if (sdk_rvcard_port_lookup(&g_st_transfer, kSenderUdp, port, card, &p_port) != 0) {
        fail("receiving-card lookup");
    }
    return p_port->p_list[card];
}

void Requests::add(uint16_t lable, send_lable_manage_t *p_list) {
    auto *p = static_cast<packet_data_t *>(calloc(1, sizeof(sdk::InFlight)));
    if (p == nullptr) fail("out of memory");
    pthread_mutex_init(&p->p_packet.st_lock, nullptr);
    pthread_mutex_init(&p->st_wait_lock, nullptr);
    pthread_cond_init(&p->st_wait_signal, nullptr);
    p->p_packet.n_enable = true;
    p->p_packet.e_state = PACKET_SEND_END;
    // Without acknowledgement: the reply is stored and the request left for its
    // write-wait, so the harness sees the reply path alone.
    p->p_packet.n_no_ack = EN_REQUEST_NO_ACK;
    p->p_packet.n_send_lable = lable;
    if (sdk_lable_list_push(p_list, p) != 0) fail("label list push");
    entries_.push_back({p, p_list});
}

void Requests::end() {
    for (const Entry &e : entries_) {
        // A request that got its reply has left its list; one that did not is still there.
        const bool b_listed = sdk_lable_list_remove(e.p_list, e.p) == 0;
        const bool b_done = e.p->p_packet.e_state == PACKET_RECV_DONE;
        if (b_listed == b_done) fail("a request is listed exactly until its reply is stored");
        if (e.p->st_recv_data.n_len > SDK_DATA_BUF_LEN) fail("reply longer than the buffer");
        pthread_mutex_destroy(&e.p->p_packet.st_lock);
        pthread_mutex_destroy(&e.p->st_wait_lock);
        pthread_cond_destroy(&e.p->st_wait_signal);
        free(e.p);
    }
    entries_.clear();
}

}  // namespace fuzz
