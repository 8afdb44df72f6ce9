// Fuzz target: both command-line parsers. The input, split on NUL bytes, is the argument
// vector after the program name; the first byte chooses the parser.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz_support.h"

namespace {

// Each argument in its own allocation of exactly its length and terminator, so a read
// past an argument is caught.
struct Argv {
    std::vector<std::unique_ptr<char[]>> store;
    std::vector<char *> argv;
    void add(const char *p, size_t n) {
        store.emplace_back(new char[n + 1]);
        memcpy(store.back().get(), p, n);
        store.back()[n] = '\0';
        argv.push_back(store.back().get());
    }
};

template <size_t N>
void check_text(const char (&field)[N]) {
    if (strnlen(field, N) >= N) fuzz::fail("text field without its terminator");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input in(data, size);
    const bool b_mcu = (in.byte() & 1) != 0;
    Argv args;
    args.add("tool", 4);
    const char *p = reinterpret_cast<const char *>(in.rest());
    const char *end = p + in.left();
    while (p < end) {
        const char *nul = static_cast<const char *>(memchr(p, '\0', static_cast<size_t>(end - p)));
        const char *stop = nul != nullptr ? nul : end;
        args.add(p, static_cast<size_t>(stop - p));
        p = stop + 1;
    }
    const auto n_argc = static_cast<int32_t>(args.argv.size());
    args.argv.push_back(nullptr);
    if (b_mcu) {
        upgrade_mcu_t rec{};
        const en_mid_ack ret = cmd_parse_recvcard_mcu(&rec, n_argc, args.argv.data());
        if (ret != EN_MID_ACK_TRUE) fuzz::fail("upgrade parser result");
        check_text(rec.n_slot_id);
        check_text(rec.file_path);
    } else {
        recvcard_struct rec{};
        const en_mid_ack ret = cmd_parse_recvcard(&rec, n_argc, args.argv.data());
        if (ret != EN_MID_ACK_TRUE && ret != EN_MID_ACK_INVALID) fuzz::fail("tool parser result");
        check_text(rec.n_slot_id);
        check_text(rec.file_path);
    }
    return 0;
}
