// Programming runs of mcu_isp against the in-process simulated bootloader.
#include <atomic>
#include <thread>

#include "isp_fixture.h"

using isp_test::count_of;
using isp_test::make_image;
using isp_test::SimulatedMcu;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

isp_sim::Config plain_erase() {
    isp_sim::Config cfg;
    cfg.extended_erase = false;
    return cfg;
}

struct Outcome {
    int result;
    std::string out;
};

Outcome program(SimulatedMcu &mcu, std::vector<uint8_t> &image) {
    (void)mcu;
    CaptureStdout();
    int r = mcu_isp(image.data(), static_cast<unsigned int>(image.size()));
    return Outcome{r, GetCapturedStdout()};
}

}  // namespace

// Both erase variants, a short last block and a large image land byte-exact.
TEST(IspProgram, ImagesLandExactlyThroughBothEraseVariants) {
    for (bool extended : {true, false}) {
        for (size_t len : {size_t{600}, size_t{256 * 1024}}) {
            SCOPED_TRACE(testing::Message()
                         << (extended ? "extended" : "global") << " erase, " << len << " bytes");
            isp_sim::Config cfg;
            cfg.extended_erase = extended;
            SimulatedMcu mcu(cfg);
            // Leftovers of an older firmware: a missing erase would show (flash bits only
            // clear on writing).
            mcu.boot.preload(make_image(len, 99), 0x00);

            std::vector<uint8_t> image = make_image(len);
            Outcome run = program(mcu, image);
            EXPECT_EQ(run.result, MCU_ISP_OK);
            EXPECT_EQ(mcu.flash(len), image);
            EXPECT_EQ(mcu.boot.flash()[len], 0xFF);  // erased, not written
            EXPECT_EQ(mcu.boot.stats().mass_erases, extended ? 1 : 0);
            EXPECT_EQ(mcu.boot.stats().global_erases, extended ? 0 : 1);
            EXPECT_EQ(mcu.boot.stats().nacks, 0);
            EXPECT_EQ(mcu_isp_cnt(), 10 + 80 * static_cast<int>((len + 255) / 256 - 1) /
                                              static_cast<int>((len + 255) / 256));
            EXPECT_NE(run.out.find("try_times=5\n####################data is 0x79\n"),
                      std::string::npos);
            EXPECT_NE(run.out.find("\n [*]. erase mcu memory by page .\n"), std::string::npos);
            EXPECT_NE(run.out.find("erase mcu memory all .\n"), std::string::npos);
            EXPECT_EQ(
                run.out.find("ST_CMD_EXTENDED_ERASE: send erase pages.\n") != std::string::npos,
                extended);
            EXPECT_NE(run.out.find("write mcu internal flash: [100%]\n"), std::string::npos);
        }
    }
}

// 600 bytes: blocks of 256, 256 and 88 at the base, base + 256, base + 512.
TEST(IspProgram, BlockLayoutAndFramesOfA600ByteImage) {
    SimulatedMcu mcu;
    std::vector<uint8_t> image = make_image(600);
    Outcome run = program(mcu, image);
    ASSERT_EQ(run.result, MCU_ISP_OK);

    const auto &w = mcu.boot.writes();
    ASSERT_EQ(w.size(), 3u);
    EXPECT_EQ(w[0].addr, 0x08000000u);
    EXPECT_EQ(w[0].len, 256u);
    EXPECT_EQ(w[1].addr, 0x08000100u);
    EXPECT_EQ(w[1].len, 256u);
    EXPECT_EQ(w[2].addr, 0x08000200u);
    EXPECT_EQ(w[2].len, 88u);

    // Second pass on the wire: command, address frame, length byte 0xFF.
    const auto &rx = mcu.boot.received();
    const std::vector<uint8_t> second = {0x31, 0xCE, 0x08, 0x00, 0x01, 0x00, 0x09, 0xFF};
    EXPECT_NE(std::search(rx.begin(), rx.end(), second.begin(), second.end()), rx.end());
    // Last pass: length byte 0x57 (88 - 1), the data, the XOR of both.
    uint8_t sum = 0x57;
    for (size_t i = 512; i < 600; ++i)
        sum ^= image[i];
    std::vector<uint8_t> last = {0x08, 0x00, 0x02, 0x00, 0x0A, 0x57};
    last.insert(last.end(), image.begin() + 512, image.end());
    last.push_back(sum);
    EXPECT_TRUE(mcu.sent_last(last));

    EXPECT_NE(run.out.find("w_addr=0x08000000, w_size=256, all_len=600, w_times=3, w_last=88\n"),
              std::string::npos);
    EXPECT_NE(run.out.find("\r write mcu internal flash: [42%]\r write mcu internal flash: "
                           "[85%]\r write mcu internal flash: [100%]\n"),
              std::string::npos);
}

TEST(IspProgram, WholeBlocksAndEmptyImage) {
    {
        SimulatedMcu mcu(plain_erase());
        std::vector<uint8_t> image = make_image(512);
        Outcome run = program(mcu, image);
        EXPECT_EQ(run.result, MCU_ISP_OK);
        ASSERT_EQ(mcu.boot.writes().size(), 2u);
        EXPECT_EQ(mcu.boot.writes()[1].len, 256u);
        EXPECT_EQ(mcu.flash(512), image);
        EXPECT_NE(run.out.find("all_len=512, w_times=2, w_last=0\n"), std::string::npos);
    }
    {
        SimulatedMcu mcu(plain_erase());
        CaptureStdout();
        EXPECT_EQ(mcu_isp(nullptr, 0), MCU_ISP_OK);
        std::string out = GetCapturedStdout();
        EXPECT_TRUE(mcu.boot.writes().empty());
        EXPECT_NE(out.find("w_addr=0x08000000, w_size=256, all_len=0, w_times=0, w_last=0\n\n"),
                  std::string::npos);
        EXPECT_EQ(out.find("write mcu internal flash"), std::string::npos);
    }
}

// A refused erase command ends the run with its own result: nothing erased or written.
TEST(IspProgram, RefusedEraseEndsTheRun) {
    for (bool extended : {true, false}) {
        SCOPED_TRACE(extended ? "extended erase" : "global erase");
        isp_sim::Config cfg;
        cfg.extended_erase = extended;
        cfg.refuse_erase = true;
        SimulatedMcu mcu(cfg);
        mcu_isp_cnt_clear();
        std::vector<uint8_t> image = make_image(600);
        Outcome run = program(mcu, image);
        EXPECT_EQ(run.result, MCU_ISP_ERR_ERASE_REFUSED);
        EXPECT_EQ(mcu_isp_cnt(), 10);
        EXPECT_TRUE(mcu.boot.writes().empty());
        EXPECT_TRUE(mcu.sent_last(extended ? std::vector<uint8_t>{0x44, 0xBB}
                                           : std::vector<uint8_t>{0x43, 0xBC}));
        EXPECT_EQ(run.out.find("erase mcu memory all ."), std::string::npos);
    }
}

// A refused Write Memory command stops the run there: the blocks before it are in place,
// nothing after it was sent, and no later block went to a wrong address.
TEST(IspProgram, RefusedWriteStopsAtThatBlock) {
    isp_sim::Config cfg;
    cfg.refuse_write_after = 2;
    SimulatedMcu mcu(cfg);
    std::vector<uint8_t> image = make_image(1000);
    Outcome run = program(mcu, image);
    EXPECT_EQ(run.result, MCU_ISP_ERR_WRITE_REFUSED);
    ASSERT_EQ(mcu.boot.writes().size(), 2u);
    EXPECT_EQ(mcu.boot.writes()[1].addr, 0x08000100u);
    EXPECT_EQ(mcu.flash(512), std::vector<uint8_t>(image.begin(), image.begin() + 512));
    EXPECT_EQ(mcu.flash(1000)[512], 0xFF);
    EXPECT_TRUE(mcu.sent_last({0x31, 0xCE}));
    EXPECT_EQ(mcu_isp_cnt(), 10 + 80 * 1 / 4);  // the two passes that went through
    EXPECT_NE(run.out.find("write memory command not acknowledged at 0x08000200"),
              std::string::npos);
}

TEST(IspProgram, SynchronisationAttempts) {
    {
        isp_sim::Config cfg;
        cfg.ignore_syncs = 2;
        SimulatedMcu mcu(cfg);
        std::vector<uint8_t> image = make_image(300);
        Outcome run = program(mcu, image);
        EXPECT_EQ(run.result, MCU_ISP_OK);
        EXPECT_EQ(mcu.flash(300), image);
        // Unanswered attempts leave the sent byte in the buffer.
        EXPECT_NE(run.out.find("try_times=5\n####################data is 0x7f\ntry_times=4\n"
                               "####################data is 0x7f\ntry_times=3\n"
                               "####################data is 0x79\n"),
                  std::string::npos);
    }
    {
        isp_sim::Config cfg;
        cfg.ignore_syncs = 5;
        SimulatedMcu mcu(cfg);
        std::vector<uint8_t> image = make_image(300);
        Outcome run = program(mcu, image);
        EXPECT_EQ(run.result, MCU_ISP_ERR_NO_ANSWER);
        EXPECT_EQ(count_of(run.out, "try_times="), 5);
        EXPECT_NE(run.out.find("try_times=1\n"), std::string::npos);
        EXPECT_EQ(run.out.find("erase mcu memory"), std::string::npos);
        EXPECT_EQ(mcu.boot.received(), std::vector<uint8_t>(5, 0x7F));
    }
}

// A late extended-erase acknowledgement is waited for, a second at a time.
TEST(IspProgram, SlowExtendedEraseIsWaitedFor) {
    isp_sim::Config cfg;
    cfg.erase_delay = std::chrono::milliseconds(1500);
    SimulatedMcu mcu(cfg);
    std::vector<uint8_t> image = make_image(600);
    Outcome run = program(mcu, image);
    EXPECT_EQ(run.result, MCU_ISP_OK);
    EXPECT_EQ(mcu.flash(600), image);
    EXPECT_NE(run.out.find("timeout 1\nmcu_serial_read ACK data:0x79\n"), std::string::npos);
    EXPECT_EQ(run.out.find("timeout 2"), std::string::npos);
}

// A Get answer too long for the buffer: the erase type is unknown, the global erase is
// used, and the answer has been dropped so the erase command reads its own ACK.
TEST(IspProgram, OverlongGetAnswerFallsBackToGlobalErase) {
    isp_sim::Config cfg = plain_erase();
    cfg.get_codes = {0x00, 0x01, 0x02, 0x11, 0x21, 0x31, 0x43,
                     0x44, 0x63, 0x73, 0x82, 0x92, 0x06, 0x07};
    SimulatedMcu mcu(cfg);
    std::vector<uint8_t> image = make_image(600);
    Outcome run = program(mcu, image);
    EXPECT_EQ(run.result, MCU_ISP_OK);
    EXPECT_EQ(mcu.flash(600), image);
    EXPECT_NE(run.out.find("mcu_erasetype_get : read command support len = 14\n"
                           "read length overflow.\n"),
              std::string::npos);
    EXPECT_EQ(mcu.boot.stats().global_erases, 1);
}

TEST(IspProgram, MissingRegistrationAndBadImage) {
    mcu_isp_write_func_reg(nullptr);
    mcu_isp_read_func_reg(nullptr);
    unsigned char image[16] = {};
    CaptureStdout();
    int r = mcu_isp(image, sizeof(image));
    std::string out = GetCapturedStdout();
    EXPECT_EQ(r, MCU_ISP_ERR_NO_ANSWER);
    EXPECT_EQ(count_of(out, "st_mcu_isp_fun.uart_wirte NULL \n"), 5);
    EXPECT_EQ(count_of(out, "st_mcu_isp_fun.uart_read NULL \n"), 5);
    EXPECT_EQ(out.find("data is"), std::string::npos);

    CaptureStdout();
    EXPECT_EQ(mcu_erasetype_get(), -1);
    EXPECT_EQ(GetCapturedStdout(),
              "st_mcu_isp_fun.uart_wirte NULL \nst_mcu_isp_fun.uart_read NULL "
              "\nmcu_serial_read err\r\n");

    SimulatedMcu mcu;
    mcu_isp_cnt_clear();
    CaptureStdout();
    EXPECT_EQ(mcu_isp(nullptr, 600), MCU_ISP_ERR_BAD_IMAGE);
    EXPECT_EQ(mcu_isp(image, 0xF8000001u), MCU_ISP_ERR_BAD_IMAGE);
    GetCapturedStdout();
    EXPECT_TRUE(mcu.boot.received().empty());
    EXPECT_EQ(mcu_isp_cnt(), 0);
}

// Another thread polls the counter during a run: it rises from 10 to 89 and never falls.
TEST(IspProgram, ProgressCounterPolledDuringARun) {
    SimulatedMcu mcu;
    std::vector<uint8_t> image = make_image(256 * 1024);
    mcu_isp_cnt_clear();
    EXPECT_EQ(mcu_isp_cnt(), 0);
    std::atomic<bool> done{false};
    std::vector<int> seen;
    std::thread poller([&] {
        while (!done.load()) {
            seen.push_back(mcu_isp_cnt());
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    Outcome run = program(mcu, image);
    done = true;
    poller.join();
    EXPECT_EQ(run.result, MCU_ISP_OK);
    EXPECT_EQ(mcu_isp_cnt(), 89);
    ASSERT_FALSE(seen.empty());
    for (size_t i = 1; i < seen.size(); ++i) {
        EXPECT_GE(seen[i], seen[i - 1]);
        EXPECT_LT(seen[i], 90);
    }
    EXPECT_EQ(mcu_isp_cnt_clear(), 0);
    EXPECT_EQ(mcu_isp_cnt(), 0);
}
