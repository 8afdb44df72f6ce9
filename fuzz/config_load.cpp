// Fuzz target: the configuration loader. The input is the JSON text; it is parsed and
// handed to the table sizing and to the four channel set-up members, as start-up does.
//
// No endpoint is opened: this program is linked with the endpoint openers replaced
// (--wrap, see endpoint_stubs.cpp), so no socket is bound and no device path from the
// input is ever opened.
#include <unistd.h>

#include <cstring>
#include <string>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static char arr_slots[] = {1, 2, 3, 16};  // the sub-card slots this process would serve
    const std::string text(reinterpret_cast<const char *>(data), size);
    mio_json *root = mio_json_fromstring(text.c_str());
    // Each input starts from a zero configuration, as a fresh process has it; what was
    // loaded before (another harness's chassis, in the replay) is put back afterwards.
    const transfer_info_t saved = g_st_transfer;
    g_st_transfer = transfer_info_t{};
    if (sdk_device_transfer_mem_init(root) == 0) {
        int32_t ret = sdk_maincards_transfer_init(root);
        if (ret == 0) ret = sdk_subcards_transfer_init(arr_slots, sizeof(arr_slots), root);
        if (ret == 0) ret = sdk_backplane_transfer_init(root);
        if (ret == 0) (void)sdk_report_transfer_init(root);
        for (int32_t i = 0; i < g_st_transfer.n_num; ++i) {
            if (g_st_transfer.st_info[i].n_fd > 2)
                close(g_st_transfer.st_info[i].n_fd);  // a serial stub
        }
    }
    free(g_st_transfer.st_info);
    g_st_transfer = saved;
    mio_json_delete(root);
    return 0;
}
