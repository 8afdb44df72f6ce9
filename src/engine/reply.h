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

// Copies the reply into the request (only when the body kind fits the device kind,
// b_card_device) and ends it, under its locks, then sends its channel's next frame. Must
// follow a successful label take: whoever takes the label owns the outcome.
void deliver_reply(packet_data_t *p, const Reply &r, bool b_card_device);

}  // namespace sdk
