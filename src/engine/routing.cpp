// Slot-to-channel routing: slot, section and device index of a request to the index of
// its channel in the channel table.
#include "common/log.h"
#include "common/result.h"
#include "codec/op_fields.h"
#include "transfer_server.h"

namespace {

constexpr uint32_t kMainCardSlot = 100;
constexpr uint32_t kBackplaneSlot = 101;

bool in_range(const transfer_id_map_t &map, uint32_t slot) {
    return slot >= static_cast<uint32_t>(map.n_slot_min) &&
           slot <= static_cast<uint32_t>(map.n_slot_max);
}

}  // namespace

extern "C" SDK_API int32_t sdk_get_transfer_map_id(transfer_op_t st_header) {
    const transfer_info_t &cfg = g_st_transfer;
    const uint32_t slot = st_header.n_slot;

    // The MCU rows follow the FPGA rows of the class that the slot number names; the map
    // itself is chosen below by the configured ranges, independently of this choice.
    int64_t step_offset;
    const uint32_t n_mode = sdk::op_mode(st_header);
    if (n_mode == FPGA) {
        step_offset = st_header.n_mode_id;
    } else if (n_mode == MCU) {
        const transfer_id_map_t *fpga_of = &cfg.st_sub_card;
        if (slot == kBackplaneSlot) {
            fpga_of = &cfg.st_backplane;
        } else if (slot == kMainCardSlot) {
            fpga_of = &cfg.st_main_card;
        }
        step_offset = static_cast<int64_t>(st_header.n_mode_id) + fpga_of->n_section_num[0];
        if (slot == kBackplaneSlot) {
            TLOGI("n_step_offset %d FPGA %d ", static_cast<int32_t>(step_offset),
                  fpga_of->n_section_num[0]);
        }
    } else {
        return sdk::kErrSection;
    }

    const transfer_id_map_t *map;
    if (in_range(cfg.st_main_card, slot)) {
        map = &cfg.st_main_card;
        TLOGI(" st_main_card  : %d\n", slot);
    } else if (in_range(cfg.st_backplane, slot)) {
        map = &cfg.st_backplane;
        TLOGI(" st_backplane  : %d\n", slot);
    } else if (in_range(cfg.st_sub_card, slot)) {
        map = &cfg.st_sub_card;
        TLOGI(" st_sub_card  : %d\n", slot);
    } else {
        TLOGE("unknow slot id %d", slot);
        return sdk::kErrRefused;
    }

    // Open point settled here: n_step has ten rows, so a larger flattened section index
    // would read past it; it is refused like an index outside the table.
    if (step_offset < 0 || step_offset >= SDK_MAP_STEP_NUM) {
        TLOGE(" max num error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }

    // Computed wide so that a large slot number cannot overflow into a valid index.
    const int64_t id = static_cast<int64_t>(map->n_id_offset) +
                       (static_cast<int64_t>(slot) - map->n_slot_min) * map->n_offset +
                       map->n_step[step_offset];
    if (id < 0 || id >= cfg.n_num) {
        TLOGE(" max num error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    return static_cast<int32_t>(id);
}
