// The board_sim program's serial board: a request written on the pty in pieces after
// noise, its reply cut out of the stream when the simulator splits it and puts noise
// before it.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "common/bytes.h"
#include "support/log_capture.h"
#include "support/sim_process.h"
#include "worked_example.h"

using Bytes = std::vector<uint8_t>;

namespace {

// The next frame that begins BB 55 on fd, with the count of bytes skipped before it;
// empty when none is complete within 2 s.
Bytes next_frame(int fd, Bytes *buf, size_t *skipped) {
    for (;;) {
        size_t off = 0;
        while (off + 1 < buf->size() && !((*buf)[off] == 0xBB && (*buf)[off + 1] == 0x55))
            ++off;
        const size_t len = off + 10 <= buf->size() ? sdk::get_le16(&(*buf)[off + 8]) + 10u : 0;
        if (len > 0 && off + len <= buf->size()) {
            Bytes f(buf->begin() + static_cast<long>(off),
                    buf->begin() + static_cast<long>(off + len));
            buf->erase(buf->begin(), buf->begin() + static_cast<long>(off + len));
            *skipped = off;
            return f;
        }
        pollfd p{fd, POLLIN, 0};
        uint8_t chunk[512];
        const ssize_t n = poll(&p, 1, 2000) > 0 ? read(fd, chunk, sizeof chunk) : 0;
        if (n <= 0) return {};
        buf->insert(buf->end(), chunk, chunk + n);
    }
}

}  // namespace

TEST(BoardSimPty, AnswersRequestsCutFromTheStream) {
    sdk::test::TempDir dir;
    const std::string link = dir.path() + "/mcu";
    sdk::test::SimProcess sim(
        {"--pty", link, "--serial-split", "--serial-noise", "100", "--seed", "7"});
    ASSERT_TRUE(sim.wait_ready());
    const int fd = open(link.c_str(), O_RDWR | O_NOCTTY);
    ASSERT_GE(fd, 0);
    Bytes buf;
    size_t skipped = 0;
    const Bytes &req = board_sim_test::kAddrRead;
    for (int i = 0; i < 10; ++i) {
        const uint8_t junk[] = {0x00, 0xBB, 0x13};
        ASSERT_EQ(write(fd, junk, sizeof junk), 3);
        ASSERT_EQ(write(fd, req.data(), 7), 7);
        ASSERT_EQ(write(fd, req.data() + 7, req.size() - 7), static_cast<ssize_t>(req.size() - 7));
        const Bytes reply = next_frame(fd, &buf, &skipped);
        ASSERT_EQ(reply.size(), 36u) << i;
        EXPECT_EQ(reply[6], 1);
        EXPECT_GE(skipped, 1u);
        EXPECT_LE(skipped, 8u);
        // The delimiter bytes are swapped, the byte sum (and so the checksum) stays right.
        EXPECT_EQ(sdk::get_le16(&reply[34]), sdk::byte_sum16(reply.data(), 34));
    }
    close(fd);
    EXPECT_EQ(sim.wait_exit(true), 0);
    EXPECT_NE(sim.line().find("requests=10 replies=10 bad=0"), std::string::npos);
    EXPECT_NE(access(link.c_str(), F_OK), 0) << "the link is removed at exit";
}
