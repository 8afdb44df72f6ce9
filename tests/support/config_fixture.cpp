#include "support/config_fixture.h"

#include <stdexcept>

#include "transfer_server.h"

namespace sdk::test {

void load_example_config() {
    mio_json *root = mio_json_fromstring(kExampleDevice);
    int32_t ret = sdk_device_transfer_mem_init(root);
    mio_json_delete(root);
    if (ret != 0 || g_st_transfer.n_num != 36) throw std::runtime_error("example config");
    auto set = [](int id, int slot, transfer_section s, json_type_tbl type) {
        g_st_transfer.st_info[id].n_slot = slot;
        g_st_transfer.st_info[id].n_section = s;
        g_st_transfer.st_info[id].n_type = type;
    };
    set(0, 100, FPGA, UDP);
    set(1, 100, MCU, UART);
    set(2, 100, FPGA, REPORT_UDP);
    for (int slot = 1; slot <= 16; ++slot) {
        set(1 + slot * 2, slot, FPGA, UDP);
        set(2 + slot * 2, slot, MCU, UDP);
    }
    set(35, 101, MCU, UART);
    // One FPGA row and one MCU row on main and sub cards, the backplane's MCU row only.
    for (transfer_id_map_t *m : {&g_st_transfer.st_main_card, &g_st_transfer.st_sub_card}) {
        m->n_section_num[0] = m->n_section_num[1] = m->n_step[1] = 1;
        m->n_step[0] = 0;
    }
    g_st_transfer.st_backplane.n_section_num[0] = g_st_transfer.st_backplane.n_step[0] = 0;
    g_st_transfer.st_backplane.n_section_num[1] = 1;
}

}  // namespace sdk::test
