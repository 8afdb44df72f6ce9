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

extern "C" {
int replay_uart_cut(const uint8_t *data, size_t size);
int replay_net_datagram(const uint8_t *data, size_t size);
int replay_config_load(const uint8_t *data, size_t size);
int replay_frame_data(const uint8_t *data, size_t size);
int replay_cmd_parse(const uint8_t *data, size_t size);
}

namespace {

namespace fs = std::filesystem;

TEST(Fuzz, RegressionsAndSeedsRunClean) {
    const std::pair<const char *, int (*)(const uint8_t *, size_t)> targets[] = {
        {"uart_cut", replay_uart_cut},
        {"net_datagram", replay_net_datagram},
        {"config_load", replay_config_load},
        {"frame_data", replay_frame_data},
        {"cmd_parse", replay_cmd_parse}};
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
