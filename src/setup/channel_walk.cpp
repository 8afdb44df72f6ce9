// The board-array walk of channel set-up: board entries, their slot checks, the sub-card
// slot filter and the two section arrays of each board.
#include <cstdint>
#include <initializer_list>

#include "common/log.h"
#include "common/result.h"
#include "setup/channel_setup.h"

namespace sdk::setup {

int32_t json_error() {
    TLOGE(" json error code %d", kErrConfig);
    return kErrConfig;
}

int32_t limit_error() {
    TLOGE(" max num error code %d", kErrConfig);
    return kErrConfig;
}

const char *member_problem(mio_json *obj, const char *key, bool text) {
    if (mio_json_getobjectitem(obj, key) == nullptr) return "is missing";
    return text ? "is not a string" : "is not an integer from 0 to 2147483647";
}

namespace {

// Fetches board entry i and checks its slot against the class range. Every entry is
// checked, also one that the sub-card filter then skips.
int32_t read_board(const BoardClass &cls, mio_json *boards, uint32_t i, mio_json **board,
                   int32_t *slot) {
    *board = mio_json_getarrayitem(boards, i);
    if (*board == nullptr) {
        TLOGE("\"%s\" entry %u cannot be read", cls.array_key, i);
        TLOGE("error code %d", kErrConfig);
        return kErrConfig;
    }
    *slot = mio_json_getobjectitemint(*board, "slot");
    if (*slot < 0) {
        TLOGE("\"%s\" entry %u: \"slot\" %s", cls.array_key, i, member_problem(*board, "slot"));
        return json_error();
    }

    const transfer_id_map_t &map = g_st_transfer.*cls.map;
    if (cls.style == LogStyle::kReport) {
        LOGD(LOG_TRANSFER, "slotid %d min %d max %d", *slot, map.n_slot_min, map.n_slot_max);
    } else if (cls.style != LogStyle::kSub) {
        LOGD(LOG_TRANSFER, "slotid %d", *slot);
    }
    const auto s = static_cast<uint32_t>(*slot);
    if (s < static_cast<uint32_t>(map.n_slot_min) || s > static_cast<uint32_t>(map.n_slot_max)) {
        TLOGE("\"%s\" entry %u: slot %d outside %d..%d, \"min_slot\"..\"max_slot\" of \"%s\"",
              cls.array_key, i, *slot, map.n_slot_min, map.n_slot_max, cls.device_key);
        return limit_error();
    }
    return kOk;
}

// Both section arrays of one board, "fpga" first: the MCU rows of the class map follow
// the FPGA rows.
int32_t setup_board(const BoardClass &cls, mio_json *board, int32_t slot,
                    int64_t *sender_channels) {
    transfer_id_map_t &map = g_st_transfer.*cls.map;
    for (transfer_section s : {FPGA, MCU}) {
        mio_json *entries = mio_json_getobjectitem(board, sections[s]);
        if (entries == nullptr) {
            TLOGI("transfer %s is null", sections[s]);
            continue;
        }
        uint32_t count = mio_json_getarraysize(entries);
        if (count > INT32_MAX) count = INT32_MAX;  // an entry past row 10 is refused anyway
        map.n_section_num[s] = static_cast<int32_t>(count);
        for (uint32_t k = 0; k < count; ++k) {
            mio_json *entry = mio_json_getarrayitem(entries, k);
            if (entry == nullptr) {
                TLOGI("transfer %s is null", sections[s]);
                continue;
            }
            int32_t ret = setup_channel_entry(cls, EntryPlace{slot, s, k}, entry, sender_channels);
            if (ret != kOk) return ret;
        }
    }
    return kOk;
}

int32_t setup_all_boards(const BoardClass &cls, mio_json *boards, int64_t *sender_channels) {
    for (uint32_t i = 0; i < mio_json_getarraysize(boards); ++i) {
        mio_json *board = nullptr;
        int32_t slot = 0;
        if (int32_t ret = read_board(cls, boards, i, &board, &slot); ret != kOk) return ret;
        if (int32_t ret = setup_board(cls, board, slot, sender_channels); ret != kOk) return ret;
    }
    return kOk;
}

bool listed_before(const SlotList &list, uint32_t m) {
    for (uint32_t j = 0; j < m; ++j) {
        if (list.slots[j] == list.slots[m]) return true;
    }
    return false;
}

int32_t setup_listed_boards(const BoardClass &cls, mio_json *boards, const SlotList &list,
                            int64_t *sender_channels) {
    if (list.count == 0) return kOk;
    if (list.slots == nullptr) {
        TLOGE("sub-card slot list missing for %u slots", list.count);
        TLOGE("error code %d", kErrConfig);
        return kErrConfig;
    }
    for (uint32_t m = 0; m < list.count; ++m) {
        // Slot numbers are bytes 0 to 255 whatever the signedness of char.
        const int32_t wanted = static_cast<uint8_t>(list.slots[m]);
        LOGD(LOG_TRANSFER, " slot[%d] is %d, ", m, wanted);
        // Open point settled here: a slot listed again is set up once. A second pass
        // would open every endpoint of the board a second time and lose the first
        // descriptors.
        if (listed_before(list, m)) {
            TLOGI("slot %d listed again, already set up", wanted);
            continue;
        }
        for (uint32_t i = 0; i < mio_json_getarraysize(boards); ++i) {
            mio_json *board = nullptr;
            int32_t slot = 0;
            if (int32_t ret = read_board(cls, boards, i, &board, &slot); ret != kOk) return ret;
            if (slot != wanted) continue;
            LOGD(LOG_TRANSFER, "slotid  is %d", slot);
            if (int32_t ret = setup_board(cls, board, slot, sender_channels); ret != kOk) {
                return ret;
            }
        }
    }
    return kOk;
}

// Channels of packet_code_type 1 that earlier members placed in the table.
int64_t count_sender_channels() {
    int64_t n = 0;
    for (int32_t i = 0; g_st_transfer.st_info != nullptr && i < g_st_transfer.n_num; ++i) {
        if (g_st_transfer.st_info[i].e_packet_code_type == PACKET_SENDER) ++n;
    }
    return n;
}

}  // namespace

int32_t setup_board_class(const BoardClass &cls, mio_json *root, const SlotList *filter) {
    if (root == nullptr) {
        TLOGE("no configuration to read \"%s\" from", cls.array_key);
        TLOGE("error code %d", kErrConfig);
        return kErrConfig;
    }
    mio_json *boards = mio_json_getobjectitem(root, cls.array_key);
    if (boards == nullptr) {
        TLOGE("%s", cls.absent_msg);
        return kOk;
    }
    int64_t sender_channels = count_sender_channels();
    return filter == nullptr ? setup_all_boards(cls, boards, &sender_channels)
                             : setup_listed_boards(cls, boards, *filter, &sender_channels);
}

}  // namespace sdk::setup
