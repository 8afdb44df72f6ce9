// Fuzz target: the check and hand-over of one datagram received on a UDP channel, the step
// that the network receive pass runs for every ready socket.
//
// Input: channel selector (plain or sender-card channel), the receiving card each port of
// the sender channel is serving, request count (0..3) with label and list of each, then
// the datagram itself (its last byte is the input's last byte).
#include <algorithm>

#include "channel/net_datagram.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::load_chassis();
    fuzz::Input in{data, size};
    const int32_t n_channel = (in.byte() & 1) != 0 ? fuzz::kSenderUdp : fuzz::kVideoUdp;
    // The card that each port serves, as the sender would have set it; now and then one
    // that the port does not have.
    for (uint32_t port = 0; port < fuzz::kPorts; ++port) {
        rvcard_eth_queue_manage_t *p_port = nullptr;
        if (sdk_rvcard_port_lookup(&g_st_transfer, fuzz::kSenderUdp, port, 0, &p_port) != 0) {
            fuzz::fail("port lookup");
        }
        const uint8_t card = in.byte();
        p_port->n_eth_rvcard_id = (card & 0x80) != 0 ? card : card % fuzz::kCards;
    }
    fuzz::Requests requests;
    for (uint8_t i = 0, n_requests = in.byte() % 4; i < n_requests; ++i) {
        const uint16_t lable = in.le16();
        const uint8_t where = in.byte();
        requests.add(lable, n_channel == fuzz::kSenderUdp && (where & 0x80) != 0
                                ? fuzz::card_list(where % fuzz::kPorts, (where >> 2) % fuzz::kCards)
                                : &g_st_transfer.st_info[n_channel].p_list);
    }
    // A receive takes at most 65535 bytes; the datagram ends where the input ends.
    const size_t n = std::min<size_t>(in.n, 65535);
    int32_t n_ret = 0;
    const bool b_goes_on = sdk::recv_datagram(static_cast<uint32_t>(n_channel), in.p + (in.n - n),
                                              static_cast<uint32_t>(n), &n_ret);
    if (b_goes_on && n_ret != 0 && n_ret != -4008) fuzz::fail("unexpected search result");
    if (!b_goes_on && n_ret > 0) fuzz::fail("a pass result is never positive");
    return 0;
}
