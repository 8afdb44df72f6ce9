// Replays the inputs that once crashed a fuzz target (fuzz/regressions/<target>/) and the
// seed corpora (fuzz/corpus/<target>/) through the fuzz harnesses. A harness aborts on a
// broken invariant, and the sanitizer builds catch what the fuzzers caught.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

extern "C" {
int replay_uart_cut(const uint8_t *data, size_t size);
int replay_net_datagram(const uint8_t *data, size_t size);
int replay_config_load(const uint8_t *data, size_t size);
int replay_frame_data(const uint8_t *data, size_t size);
int replay_cmd_parse(const uint8_t *data, size_t size);
}

namespace {

namespace fs = std::filesystem;

struct Target {
    const char *name;
    int (*entry)(const uint8_t *, size_t);
};

// Runs every file of the folder through the entry; the number of files run.
size_t replay_folder(const fs::path &dir, const Target &t) {
    if (!fs::is_directory(dir)) return 0;
    size_t n = 0;
    for (const auto &e : fs::directory_iterator(dir)) {
        if (!e.is_regular_file()) continue;
        std::ifstream in(e.path(), std::ios::binary);
        const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                         std::istreambuf_iterator<char>());
        // In an allocation of exactly its size, as libFuzzer passes it, so a read past
        // the input is caught.
        std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size() + !bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), exact.get());
        SCOPED_TRACE(e.path().string());
        EXPECT_EQ(t.entry(exact.get(), bytes.size()), 0);
        ++n;
    }
    return n;
}

class Replay : public testing::TestWithParam<Target> {};

TEST_P(Replay, RegressionsAndSeedsRunClean) {
    const fs::path root = TRANSFER_FUZZ_DIR;
    replay_folder(root / "regressions" / GetParam().name, GetParam());
    EXPECT_GT(replay_folder(root / "corpus" / GetParam().name, GetParam()), 0u) << "no seed corpus";
}

INSTANTIATE_TEST_SUITE_P(Fuzz, Replay,
                         testing::Values(Target{"uart_cut", replay_uart_cut},
                                         Target{"net_datagram", replay_net_datagram},
                                         Target{"config_load", replay_config_load},
                                         Target{"frame_data", replay_frame_data},
                                         Target{"cmd_parse", replay_cmd_parse}),
                         [](const testing::TestParamInfo<Target> &i) {
                             return std::string(i.param.name);
                         });

}  // namespace
