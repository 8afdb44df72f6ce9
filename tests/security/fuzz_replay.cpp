// Replays the inputs that once crashed a fuzz target (fuzz/regressions/<target>/) and the
// seed corpora (fuzz/corpus/<target>/) through the fuzz harnesses. A harness aborts on a
// broken invariant, and the sanitizer builds catch what the fuzzers caught.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_support.h"

// The harness entries, renamed replay_<target> in this program.
#define TRANSFER_FUZZ_TARGETS(X) \
    X(uart_cut) X(net_datagram) X(config_load) X(frame_data) X(cmd_parse)
#define TRANSFER_DECLARE(t) extern "C" int replay_##t(const uint8_t *data, size_t size);
TRANSFER_FUZZ_TARGETS(TRANSFER_DECLARE)

namespace {

namespace fs = std::filesystem;

TEST(Fuzz, RegressionsAndSeedsRunClean) {
#define TRANSFER_ENTRY(t) {#t, replay_##t},
    const std::pair<const char *, int (*)(const uint8_t *, size_t)> targets[] = {
        TRANSFER_FUZZ_TARGETS(TRANSFER_ENTRY)};
    for (auto [name, entry] : targets) {
        size_t seeds = 0;
        for (const char *folder : {"regressions", "corpus"}) {
            const fs::path dir = fs::path(TRANSFER_FUZZ_DIR) / folder / name;
            std::error_code none;  // a target without kept crash inputs has no folder
            for (const auto &e : fs::directory_iterator(dir, none)) {
                std::ifstream in(e.path(), std::ios::binary);
                const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
                // In an allocation of exactly its size, as libFuzzer passes it, so a read
                // past the input is caught.
                SCOPED_TRACE(e.path().string());
                EXPECT_EQ(entry(fuzz::exact(bytes.data(), bytes.size()).get(), bytes.size()), 0);
                seeds += folder[0] == 'c';
            }
        }
        EXPECT_GT(seeds, 0u) << name << ": no seed corpus";
    }
}

}  // namespace
