// Hand-over of a matched reply to its request, shared by the network and serial receive
// paths: both take the request's label first (sdk_get_member_form_lable), then store the
// reply through deliver_reply.
#pragma once

#include <cstdint>

#include "transfer_server.h"

namespace sdk {

struct Reply {
    const uint8_t *p_data = nullptr;
    uint32_t n_len = 0;  // at most SDK_DATA_BUF_LEN
    bool b_card_body = false;
};

// Copies the reply into the request and marks it PACKET_RECV_DONE under st_wait_lock, so
// the copy never races with the monitor ending the request. The data are stored only when
// the body kind fits the device kind (b_card_device). Must follow a successful label take:
// the monitor waits for this call before it ends a request whose label has gone.
void deliver_reply(packet_data_t *p, const Reply &r, bool b_card_device);

}  // namespace sdk
