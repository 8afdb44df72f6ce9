// The board_sim program's serial boards: requests written on the pty in pieces and with
// noise, replies cut out of the byte stream (also when the simulator splits them and puts
// noise before them), and reports inside the stream, periodic and on demand.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "request_frames.h"
#include "support/log_capture.h"
#include "support/sim_process.h"

using namespace board_sim_test;
using Bytes = std::vector<uint8_t>;
using sdk::test::SimProcess;

namespace {

// The host end of a serial board: the pty slave opened through the simulator's link.
class SerialLine {
  public:
    explicit SerialLine(const std::string &link) : fd_(open(link.c_str(), O_RDWR | O_NOCTTY)) {}
    ~SerialLine() {
        if (fd_ >= 0) close(fd_);
    }
    SerialLine(const SerialLine &) = delete;
    SerialLine &operator=(const SerialLine &) = delete;

    bool ok() const { return fd_ >= 0; }
    void write_bytes(const Bytes &b) const {
        ASSERT_EQ(write(fd_, b.data(), b.size()), static_cast<ssize_t>(b.size()));
    }

    // The next frame that begins BB 55, with the count of bytes skipped before it; an
    // empty frame when none is complete within `timeout_ms`.
    Bytes next_frame(size_t *skipped = nullptr, int timeout_ms = 2000) {
        auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
        for (;;) {
            size_t off = 0;
            while (off + 1 < buf_.size() && !(buf_[off] == 0xBB && buf_[off + 1] == 0x55))
                ++off;
            if (off + 10 <= buf_.size()) {
                size_t len = sdk::get_le16(&buf_[off + 8]) + 10u;
                if (off + len <= buf_.size()) {
                    Bytes f(buf_.begin() + static_cast<long>(off),
                            buf_.begin() + static_cast<long>(off + len));
                    buf_.erase(buf_.begin(), buf_.begin() + static_cast<long>(off + len));
                    if (skipped != nullptr) *skipped = off;
                    return f;
                }
            }
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                end - std::chrono::steady_clock::now());
            pollfd p{fd_, POLLIN, 0};
            if (left.count() <= 0 || poll(&p, 1, static_cast<int>(left.count())) <= 0) return {};
            uint8_t chunk[512];
            ssize_t n = read(fd_, chunk, sizeof chunk);
            if (n <= 0) return {};
            buf_.insert(buf_.end(), chunk, chunk + n);
        }
    }

  private:
    int fd_;
    Bytes buf_;
};

}  // namespace

TEST(BoardSimPty, AnswersRequestsCutFromTheStream) {
    sdk::test::TempDir dir;
    const std::string link = dir.path() + "/backplane";
    SimProcess sim({"--pty", link});
    ASSERT_TRUE(sim.wait_ready());
    SerialLine line(link);
    ASSERT_TRUE(line.ok());

    // A write split over two writes with noise before it, then a read of the same register.
    Bytes write_req = addr_request(1, true, 0, 0x40, 0, {0xA1, 0xB2});
    line.write_bytes({0x00, 0xBB, 0x13});
    line.write_bytes(Bytes(write_req.begin(), write_req.begin() + 7));
    usleep(20000);
    line.write_bytes(Bytes(write_req.begin() + 7, write_req.end()));
    Bytes ack = line.next_frame();
    ASSERT_EQ(ack.size(), 32u);
    EXPECT_EQ(sdk::get_le16(&ack[6]), 1);

    line.write_bytes(addr_request(2, true, 0, 0x40, 2, {}));
    Bytes reply = line.next_frame();
    ASSERT_EQ(reply.size(), 34u);
    EXPECT_EQ(sdk::get_le16(&reply[6]), 2);
    EXPECT_EQ(reply[30], 0xA1);
    EXPECT_EQ(reply[31], 0xB2);
    // The delimiter bytes are swapped, the byte sum (and so the checksum) stays right.
    EXPECT_EQ(sdk::get_le16(&reply[32]), sdk::byte_sum16(reply.data(), 32));

    EXPECT_EQ(sim.wait_exit(true), 0);
    EXPECT_NE(sim.line().find("requests=2 replies=2 bad=0"), std::string::npos);
    EXPECT_NE(access(link.c_str(), F_OK), 0) << "the link is removed at exit";
}

TEST(BoardSimPty, SplitsRepliesAndPutsNoiseBeforeThem) {
    sdk::test::TempDir dir;
    const std::string link = dir.path() + "/mcu";
    SimProcess sim({"--pty", link, "--serial-split", "--serial-noise", "100", "--seed", "7"});
    ASSERT_TRUE(sim.wait_ready());
    SerialLine line(link);
    ASSERT_TRUE(line.ok());
    size_t total_noise = 0;
    for (uint16_t label = 1; label <= 20; ++label) {
        line.write_bytes(addr_request(label, true, 0, 0x100u + label, 200, {}));
        size_t skipped = 0;
        Bytes reply = line.next_frame(&skipped);
        ASSERT_EQ(reply.size(), 232u) << "label " << label;
        EXPECT_EQ(sdk::get_le16(&reply[6]), label);
        EXPECT_GE(skipped, 1u);
        EXPECT_LE(skipped, 8u);
        total_noise += skipped;
    }
    EXPECT_GE(total_noise, 20u);
    EXPECT_EQ(sim.wait_exit(true), 0);
    EXPECT_NE(sim.line().find("noise=20"), std::string::npos);
}

TEST(BoardSimPty, SendsReportsInTheStreamPeriodicallyAndOnDemand) {
    sdk::test::TempDir dir;
    const std::string link = dir.path() + "/sub";
    SimProcess sim({"--pty", link, "--serial-report", link + ":3600000"});
    ASSERT_TRUE(sim.wait_ready());
    SerialLine line(link);
    ASSERT_TRUE(line.ok());
    // The first report goes at start-up, possibly before the line was opened: ask again.
    kill(sim.pid(), SIGUSR1);
    Bytes report = line.next_frame();
    ASSERT_EQ(report.size(), 36u);
    EXPECT_NE(report[10] & board_sim::kParamReport, 0);
    const uint32_t seq = sdk::get_le32(&report[30]);
    kill(sim.pid(), SIGUSR1);
    report = line.next_frame();
    ASSERT_EQ(report.size(), 36u);
    EXPECT_EQ(sdk::get_le32(&report[30]), seq + 1);

    // A serial report source needs its board.
    SimProcess orphan({"--serial-report", dir.path() + "/none:10"});
    EXPECT_EQ(orphan.wait_exit(false), 2);
}
