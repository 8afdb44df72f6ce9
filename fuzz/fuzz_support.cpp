#include "fuzz_support.h"

#include <cstdio>
#include <cstdlib>

#include "engine/inflight.h"

namespace fuzz {

namespace {

constexpr const char *kChassis =
    R"({"device": {"main_card": {"slot_num": 1, "type_num": 4, "min_slot": 100, "max_slot": 100,)"
    R"("id_offset": 0}, "backplane": {"slot_num": 1, "type_num": 1, "min_slot": 101,)"
    R"("max_slot": 101, "id_offset": 4}}, "rvcard_param": {"eth_max": 4, "rvcard_max": 8}})";

void load() {
    mio_json *root = mio_json_fromstring(kChassis);
    const int32_t ret = sdk_device_transfer_mem_init(root);
    mio_json_delete(root);
    if (ret != 0 || g_st_transfer.n_num != 5) fail("chassis configuration");
    for (int32_t i = 0; i < 5; ++i) {  // see fuzz_support.h
        transfer_data_t &ch = g_st_transfer.st_info[i];
        ch.n_slot = i < 4 ? 100 : 101;
        ch.n_section = i == 1 || i == 4 ? MCU : FPGA;
        ch.n_type = i == 2 ? REPORT_UDP : i == 1 || i == 4 ? UART : UDP;
        ch.e_packet_code_type = i == 3 ? PACKET_SENDER : PACKET_VIDEO;
        ch.n_fd = -1;
    }
    // A report queue this short fills up quickly, so the cutter's handling of a refused
    // push is exercised too.
    if (sdk_rvcard_queue_manage_init(&g_st_transfer) != 0 ||
        sdk_lable_list_manage_init(&g_st_transfer) != 0 ||
        sdk_report_queue_init(sdk_get_report_queue()) != 0 ||
        sdk_report_queue_set_max(sdk_get_report_queue(), 4) != 0) {
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
    entries.emplace_back(p, p_list);
}

Requests::~Requests() {
    for (auto [p, p_list] : entries) {
        // A request that got its reply has left its list; one that did not is still there.
        const bool b_listed = sdk_lable_list_remove(p_list, p) == 0;
        if (b_listed == (p->p_packet.e_state == PACKET_RECV_DONE)) {
            fail("a request is listed exactly until its reply is stored");
        }
        if (p->st_recv_data.n_len > SDK_DATA_BUF_LEN) fail("reply longer than the buffer");
        pthread_mutex_destroy(&p->p_packet.st_lock);
        pthread_mutex_destroy(&p->st_wait_lock);
        pthread_cond_destroy(&p->st_wait_signal);
        free(p);
    }
}

}  // namespace fuzz
