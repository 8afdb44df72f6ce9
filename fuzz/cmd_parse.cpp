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

template <class Rec>
void check(Rec *rec, en_mid_ack ret, bool b_help) {
    if (ret != EN_MID_ACK_TRUE && !(b_help && ret == EN_MID_ACK_INVALID)) fuzz::fail("result");
    check_text(rec->n_slot_id);
    check_text(rec->file_path);
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
    if (b_mcu) {
        upgrade_mcu_t rec{};
        check(&rec, cmd_parse_recvcard_mcu(&rec, n_argc, argv.data()), false);
    } else {
        recvcard_struct rec{};
        check(&rec, cmd_parse_recvcard(&rec, n_argc, argv.data()), true);
    }
    return 0;
}
