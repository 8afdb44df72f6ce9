// Opening, on a running engine, the channels that start-up had to leave closed: UDP
// channels while eth0 was not up yet, serial channels whose device was not there yet. The
// host asks for it by calling sdk_transfer_init again.
//
// The board arrays are walked as at start-up, but read-only: the channel ids come from
// the class maps that start-up built, and an entry is opened only when its record is
// configured alike (slot, section, type) and still closed. Worker threads run meanwhile:
// an endpoint is opened on a scratch record and published with atomic stores, the
// descriptor before the state, and the receive threads are woken to watch it.
#include <cstring>
#include <initializer_list>

#include "common/log.h"
#include "channel/transport.h"
#include "setup/channel_setup.h"
#include "transfer_server.h"
#include "channel/channel_fds.h"
#include "engine/state.h"
#include "engine/request_state.h"

namespace {

using sdk::setup::kOpenReportUdp;
using sdk::setup::kOpenUart;
using sdk::setup::kOpenUdp;

struct ClassWalk {
    const char *array_key;
    transfer_id_map_t transfer_info_t::*map;
    bool b_listed_only;  // sub cards: only the slots the host serves
    uint32_t opens;      // the kinds of channel the class opens
};
constexpr ClassWalk kClasses[] = {
    {"maincards", &transfer_info_t::st_main_card, false, kOpenUdp | kOpenReportUdp | kOpenUart},
    {"subcards", &transfer_info_t::st_sub_card, true, kOpenUdp | kOpenReportUdp},
    {"backplane", &transfer_info_t::st_backplane, false, kOpenUdp | kOpenUart},
};

bool slot_listed(int32_t slot, const char *slots, uint32_t n_slots) {
    for (uint32_t i = 0; slots != nullptr && i < n_slots; ++i) {
        if (static_cast<uint8_t>(slots[i]) == slot) return true;
    }
    return false;
}

void publish(transfer_data_t *ch, int32_t n_fd) {
    __atomic_store_n(&ch->n_fd, n_fd, __ATOMIC_RELEASE);
    __atomic_store_n(&ch->n_state, static_cast<int32_t>(CHANNEL_OK), __ATOMIC_RELEASE);
}

// Opens the channel of one entry if its record is configured alike and still closed.
bool reopen_entry(const ClassWalk &cls, int32_t slot, transfer_section section, uint32_t k,
                  mio_json *entry) {
    const transfer_id_map_t &map = g_st_transfer.*cls.map;
    const int64_t row = section == FPGA ? k : k + static_cast<int64_t>(map.n_section_num[FPGA]);
    if (row < 0 || row >= SDK_MAP_STEP_NUM) return false;
    const int64_t id = static_cast<int64_t>(map.n_id_offset) +
                       (static_cast<int64_t>(slot) - map.n_slot_min) * map.n_offset +
                       map.n_step[row];
    if (id < 0 || id >= g_st_transfer.n_num) return false;
    transfer_data_t *ch = &g_st_transfer.st_info[id];
    const int32_t type = mio_json_getobjectitemint(entry, "type");
    const char *ip = mio_json_getobjectitemstr(entry, "ip");
    const int32_t port = mio_json_getobjectitemint(entry, "port");
    if (ch->n_type != type || ch->n_slot != slot || ch->n_section != section || ip == nullptr ||
        port < 0 || sdk::counter_load(&ch->n_state) != CHANNEL_NULL) {
        return false;
    }
    const sdk::Transport *t = sdk::transport_of(type);
    if (t == nullptr || (cls.opens & t->open_bit) == 0) return false;
    transfer_data_t scratch{};
    scratch.n_type = ch->n_type;
    scratch.n_fd = -1;
    if (t->open(&scratch, ip, static_cast<uint32_t>(port), id) != 0 ||
        scratch.n_state != CHANNEL_OK) {
        return false;
    }
    ch->st_local_address = scratch.st_local_address;
    ch->st_remote_address = scratch.st_remote_address;
    publish(ch, scratch.n_fd);
    return true;
}

uint32_t reopen_class(const ClassWalk &cls, mio_json *root, const char *slots, uint32_t n_slots) {
    mio_json *boards = mio_json_getobjectitem(root, cls.array_key);
    uint32_t n_opened = 0;
    for (uint32_t i = 0; boards != nullptr && i < mio_json_getarraysize(boards); ++i) {
        mio_json *board = mio_json_getarrayitem(boards, i);
        const int32_t slot = board != nullptr ? mio_json_getobjectitemint(board, "slot") : -1;
        if (slot < 0 || (cls.b_listed_only && !slot_listed(slot, slots, n_slots))) continue;
        for (transfer_section s : {FPGA, MCU}) {
            mio_json *entries = mio_json_getobjectitem(board, sections[s]);
            for (uint32_t k = 0; entries != nullptr && k < mio_json_getarraysize(entries); ++k) {
                mio_json *entry = mio_json_getarrayitem(entries, k);
                if (entry != nullptr && reopen_entry(cls, slot, s, k, entry)) ++n_opened;
            }
        }
    }
    return n_opened;
}

}  // namespace

namespace sdk {

uint32_t engine_reopen(const char *slots, uint32_t n_slots, mio_json *root) {
    uint32_t n_opened = 0;
    for (const ClassWalk &cls : kClasses)
        n_opened += reopen_class(cls, root, slots, n_slots);
    if (n_opened != 0) {
        wake_receiver(Receiver::kNet);
        wake_receiver(Receiver::kReport);
        wake_receiver(Receiver::kUart);
    }
    return n_opened;
}

}  // namespace sdk
