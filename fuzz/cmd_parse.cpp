// Fuzz target: both command-line parsers. The input, split on NUL bytes, is the argument
// vector after the program name; the first byte chooses the parser.
#include <algorithm>
#include <string>

#include "fuzz_support.h"

namespace {

template <size_t N>
void check_text(const char (&field)[N]) {
    if (strnlen(field, N) >= N) fuzz::fail("text field without its terminator");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input in{data, size};
    const bool b_mcu = (in.byte() & 1) != 0;
    // Each argument in its own allocation of exactly its length and terminator, so a read
    // past an argument is caught.
    std::vector<std::unique_ptr<uint8_t[]>> store;
    std::vector<char *> argv;
    const std::string text = std::string("tool", 5) + std::string(in.p, in.p + in.n);
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\0', at), text.size());
        store.push_back(fuzz::exact(text.data() + at, end - at + 1));
        store.back()[end - at] = '\0';
        argv.push_back(reinterpret_cast<char *>(store.back().get()));
        at = end + 1;
    }
    const auto n_argc = static_cast<int32_t>(argv.size());
    argv.push_back(nullptr);
    upgrade_mcu_t mcu{};
    recvcard_struct tool{};
    const en_mid_ack ret = b_mcu ? cmd_parse_recvcard_mcu(&mcu, n_argc, argv.data())
                                 : cmd_parse_recvcard(&tool, n_argc, argv.data());
    // Only the register tool's parser knows -h.
    if (ret != EN_MID_ACK_TRUE && (b_mcu || ret != EN_MID_ACK_INVALID)) fuzz::fail("result");
    check_text(mcu.n_slot_id), check_text(mcu.file_path);
    check_text(tool.n_slot_id), check_text(tool.file_path);
    return 0;
}
