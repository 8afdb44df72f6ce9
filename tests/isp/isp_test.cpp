// The programmer against the simulated bootloader in-process: part identification, the
// erase-type query and programming runs, each case with what the flash, the wire and the
// printed messages must show.
#include <algorithm>
#include <functional>
#include <numeric>
#include <atomic>
#include <thread>

#include "isp_fixture.h"

using isp_test::make_image;
using isp_test::SimulatedMcu;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

bool has(const std::string &text, const std::string &what) {
    return text.find(what) != std::string::npos;
}

isp_sim::Config synced(const char *part = "stm32h750") {
    isp_sim::Config cfg;
    EXPECT_TRUE(isp_sim::part_config(part, &cfg)) << part;
    cfg.start_synced = true;
    return cfg;
}

}  // namespace

// Identification, then the erase-type query (13 command codes fit the answer buffer with
// the version and the ACK, 14 do not), each leaving the stream in step for the next.
TEST(Isp, IdentifiesThePartAndItsEraseType) {
    const std::vector<uint8_t> codes = {0x00, 0x01, 0x02, 0x06, 0x11, 0x21, 0x31,
                                        0x63, 0x73, 0x82, 0x92, 0x43, 0x44, 0x45};
    std::vector<isp_sim::Config> cfg(9, synced());
    cfg[1] = synced("gd32f303");
    cfg[2] = synced("gd32f470");
    cfg[3] = synced("gd32e503");
    cfg[4].pid = 0x413;  // answers neither identifier
    cfg[5] = synced("gd32f470");
    cfg[5].gd_id.resize(20, 0xAB);  // 16 kept, the rest read and dropped
    cfg[6].extended_erase = false;
    cfg[7].get_codes.assign(codes.begin(), codes.end() - 1);
    cfg[8].get_codes = codes;
    const struct {
        en_mcu_type_t type;
        uint32_t gd_pid;
        int erase_type;
        const char *printed;
    } cases[] = {
        {MCU_STM32H750, 0, 0, "mcu_erasetype_get : read command support len = 7\nerase_type = 0\n"},
        {MCU_GD32F303, 0x46455633u, 1, "read_gd_mcu_pid : read gd pid data len = 4\n"},
        {MCU_GD32F470, 0x4E455A30u, 0, ""},
        {MCU_GD32E503, 0x47453530u, 1, ""},
        {MCU_GD32E503, 0, 0, ""},
        {MCU_GD32F470, 0x4E455A30u, 0,
         "read gd pid data len = 20\nread_gd_mcu_pid : read gd pid length(16) is larger than "
         "max size(16), use max size\n"},
        {MCU_STM32H750, 0, 1, "erase_type = 1\n"},
        {MCU_STM32H750, 0, 0, "support len = 13\n"},
        {MCU_STM32H750, 0, -1,
         "mcu_erasetype_get : read command support len = 14\nread length overflow.\n"},
    };
    for (size_t i = 0; i < cfg.size(); ++i) {
        SCOPED_TRACE(i);
        SimulatedMcu mcu(cfg[i]);
        CaptureStdout();
        mcu_type_detect();
        const int got[] = {mcu_type_get(), static_cast<int>(read_gd_mcu_pid()), read_st_mcu_pid(),
                           mcu_erasetype_get(), read_st_mcu_pid()};  // the last: still in step
        const std::string out = GetCapturedStdout();
        const int st = cfg[i].pid == 0x450 ? 0x450 : 0;
        const int want[] = {cases[i].type, static_cast<int>(cases[i].gd_pid), st,
                            cases[i].erase_type, st};
        EXPECT_EQ(std::vector<int>(got, got + 5), std::vector<int>(want, want + 5));
        EXPECT_TRUE(has(out, std::string("type: ") + str_mcu_type[cases[i].type] + "\n")) << out;
        EXPECT_TRUE(has(out, cases[i].printed)) << out;
    }
    SimulatedMcu unsynced;  // not synchronised: the bootloader ignores the command
    EXPECT_EQ(mcu_erasetype_get(), -1);
}

// Each run starts on a flash that holds an older firmware (a missing erase would show:
// flash bits only clear on writing) while another thread polls the progress counter. A run
// that went through is read back and compared, and the application started when it matched.
TEST(Isp, ProgrammingRuns) {
    const std::vector<uint8_t> long_get = {0x00, 0x01, 0x02, 0x11, 0x21, 0x31, 0x43,
                                           0x44, 0x63, 0x73, 0x82, 0x92, 0x06, 0x07};
    struct Case {
        const char *what;
        size_t len;
        bool extended = true;
        bool refuse_erase = false;
        int refuse_write_after = -1;
        int ignore_syncs = 0;
        int erase_delay_ms = 0;
        bool long_get = false;
        int result = MCU_ISP_OK;
        size_t blocks = 0;
        int progress = 0;
        std::vector<const char *> printed = {};
        const char *not_printed = "\x01";
        uint32_t corrupt_at = 0;  // the byte the flash inverts once written; 0: none
        int silent_after_reads = -1;
        int verified = MCU_ISP_OK;
        uint32_t verify_stop = 0;  // the address where a verify stops
    };
    // clang-format off
    const Case cases[] = {
        {"extended erase", 600, true, false, -1, 0, 0, false, MCU_ISP_OK, 3, 63,
         {"ST_CMD_EXTENDED_ERASE: send erase pages.\n",
          "w_addr=0x08000000, w_size=256, all_len=600, w_times=3, w_last=88\n",
          "\r write mcu internal flash: [42%]\r write mcu internal flash: [85%]\r write mcu "
          "internal flash: [100%]\n"}},
        {"global erase", 600, false, false, -1, 0, 0, false, MCU_ISP_OK, 3, 63,
         {"erase mcu memory all .\n"}, "ST_CMD_EXTENDED_ERASE"},
        {"large image", 256 * 1024, true, false, -1, 0, 0, false, MCU_ISP_OK, 1024, 89,
         {"\n [*]. erase mcu memory by page .\n"}},
        {"whole blocks", 512, false, false, -1, 0, 0, false, MCU_ISP_OK, 2, 50,
         {"all_len=512, w_times=2, w_last=0\n"}},
        {"empty image", 0, false, false, -1, 0, 0, false, MCU_ISP_OK, 0, 10,
         {"w_addr=0x08000000, w_size=256, all_len=0, w_times=0, w_last=0\n\n"},
         "write mcu internal flash"},
        {"refused extended erase", 600, true, true, -1, 0, 0, false, MCU_ISP_ERR_ERASE_REFUSED,
         0, 10, {}, "erase mcu memory all ."},
        {"refused global erase", 600, false, true, -1, 0, 0, false, MCU_ISP_ERR_ERASE_REFUSED,
         0, 10, {}, "erase mcu memory all ."},
        {"refused write", 1000, true, false, 2, 0, 0, false, MCU_ISP_ERR_WRITE_REFUSED, 2, 30,
         {"write memory command not acknowledged at 0x08000200"}},
        {"late synchronisation", 300, true, false, -1, 2, 0, false, MCU_ISP_OK, 2, 50,
         {"try_times=5\n####################data is 0x7f\ntry_times=4\n####################data "
          "is 0x7f\ntry_times=3\n####################data is 0x79\n"}},
        {"no synchronisation", 300, true, false, -1, 5, 0, false, MCU_ISP_ERR_NO_ANSWER, 0, 10,
         {"try_times=1\n"}, "erase mcu memory"},
        {"slow extended erase", 600, true, false, -1, 0, 1500, false, MCU_ISP_OK, 3, 63,
         {"timeout 1\nmcu_serial_read ACK data:0x79\n"}, "timeout 2"},
        // The erase type is unknown: the global erase is used, and the overlong answer has
        // been dropped so that the erase command reads its own ACK.
        {"overlong Get answer", 600, false, false, -1, 0, 0, true, MCU_ISP_OK, 3, 63,
         {"read length overflow.\n"}},
        {"corrupted last byte", 600, true, false, -1, 0, 0, false, MCU_ISP_OK, 3, 63, {}, "\x01",
         0x08000257, -1, MCU_ISP_ERR_VERIFY_MISMATCH, 0x08000257},
        {"silent read-back", 1000, true, false, -1, 0, 0, false, MCU_ISP_OK, 4, 70, {}, "\x01", 0,
         2, MCU_ISP_ERR_READ_FAILED, 0x08000200},
    };
    // clang-format on
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        isp_sim::Config cfg;
        cfg.extended_erase = c.extended;
        cfg.refuse_erase = c.refuse_erase;
        cfg.refuse_write_after = c.refuse_write_after;
        cfg.ignore_syncs = c.ignore_syncs;
        cfg.erase_delay = std::chrono::milliseconds(c.erase_delay_ms);
        if (c.long_get) cfg.get_codes = long_get;
        if (c.corrupt_at != 0) cfg.corrupt_at = c.corrupt_at;
        cfg.silent_after_reads = c.silent_after_reads;
        SimulatedMcu mcu(cfg);
        mcu.boot.preload(make_image(c.len, 99), 0x00);
        mcu_isp_cnt_clear();
        std::atomic<bool> done{false};
        std::vector<int> seen;
        std::thread poller([&] {
            while (!done.load()) {
                seen.push_back(mcu_isp_cnt());
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        std::vector<uint8_t> image = make_image(c.len), held = image;
        if (c.corrupt_at != 0) held[c.corrupt_at - MCU_ISP_FLASH_BASE] ^= 0xFF;
        CaptureStdout();
        const int result = mcu_isp(image.data(), static_cast<unsigned int>(image.size()));
        const std::string out = GetCapturedStdout();
        done = true;
        poller.join();

        EXPECT_EQ(result, c.result);
        for (const char *text : c.printed)
            EXPECT_TRUE(has(out, text)) << text << " in:\n" << out;
        EXPECT_FALSE(has(out, c.not_printed)) << out;
        const auto &writes = mcu.boot.writes();
        ASSERT_EQ(writes.size(), c.blocks);
        for (size_t k = 0; k < writes.size(); ++k) {
            EXPECT_EQ(writes[k].addr, MCU_ISP_FLASH_BASE + 256 * k);
            EXPECT_EQ(writes[k].len, std::min<size_t>(256, c.len - 256 * k));
        }
        const bool ok = result == MCU_ISP_OK, erased = ok || c.blocks > 0;
        const size_t kept = ok ? c.len : 256 * c.blocks;  // the image's bytes, then erased ones
        const auto &flash = mcu.boot.flash();
        EXPECT_TRUE(!erased || std::equal(held.begin(), held.begin() + kept, flash.begin()));
        EXPECT_TRUE(!erased || flash[kept] == 0xFF);
        EXPECT_EQ(mcu.boot.stats().mass_erases, erased && c.extended ? 1 : 0);
        EXPECT_EQ(mcu.boot.stats().global_erases, erased && !c.extended ? 1 : 0);
        EXPECT_EQ(has(out, "write mcu internal flash: [100%]\n"), ok && c.len > 0);
        if (ok && c.len > 0) {  // the last pass: command, address frame, block, their XORs
            const size_t at = 256 * (c.blocks - 1);
            const uint32_t addr = MCU_ISP_FLASH_BASE + static_cast<uint32_t>(at);
            std::vector<uint8_t> tail = {0x31, 0xCE};
            for (int shift = 24; shift >= 0; shift -= 8)
                tail.push_back(static_cast<uint8_t>(addr >> shift));
            tail.push_back(tail[2] ^ tail[3] ^ tail[4] ^ tail[5]);
            tail.push_back(static_cast<uint8_t>(c.len - at - 1));
            tail.insert(tail.end(), image.begin() + static_cast<long>(at), image.end());
            tail.push_back(
                std::accumulate(tail.begin() + 7, tail.end(), uint8_t{0}, std::bit_xor<uint8_t>()));
            EXPECT_TRUE(std::equal(tail.rbegin(), tail.rend(), mcu.boot.received().rbegin()));
        }
        EXPECT_EQ(mcu.boot.received() == std::vector<uint8_t>(5, 0x7F), c.ignore_syncs == 5);
        EXPECT_EQ(mcu_isp_cnt(), c.progress);
        for (size_t i = 1; i < seen.size(); ++i) {
            EXPECT_GE(seen[i], seen[i - 1]);
            EXPECT_LT(seen[i], 90);
        }
        if (!ok) continue;
        mcu_isp_verify_info_t at{};
        CaptureStdout();
        EXPECT_EQ(mcu_isp_verify(image.data(), static_cast<unsigned int>(c.len), &at), c.verified);
        const std::vector<uint8_t> sent = mcu.boot.received();  // the last Read Memory's length
        const int went = mcu_isp_go(MCU_ISP_FLASH_BASE);
        GetCapturedStdout();
        EXPECT_EQ(at.addr, c.verify_stop);
        EXPECT_EQ(at.expected ^ at.found, c.corrupt_at != 0 ? 0xFF : 0);
        if (c.corrupt_at != 0) {
            EXPECT_EQ(at.found, held[c.corrupt_at - MCU_ISP_FLASH_BASE]);
        }
        EXPECT_EQ(mcu_isp_verify_cnt() == 100, c.verified == MCU_ISP_OK);
        const uint8_t last = static_cast<uint8_t>((c.len - 1) % 256);
        EXPECT_TRUE(c.len == 0 || c.verified != MCU_ISP_OK ||
                    (sent.end()[-2] == last && sent.end()[-1] == uint8_t(~last)));
        EXPECT_EQ(went, c.silent_after_reads < 0 ? MCU_ISP_OK : MCU_ISP_ERR_GO_REFUSED);
        EXPECT_EQ(mcu.boot.stats().go_address, went == MCU_ISP_OK ? MCU_ISP_FLASH_BASE : 0);
    }
    EXPECT_EQ(mcu_isp_cnt_clear(), 0);
    EXPECT_EQ(mcu_isp_cnt(), 0);
}

TEST(Isp, BadImageAndUnregisteredFunctions) {
    unsigned char image[16] = {};
    CaptureStdout();
    EXPECT_EQ(mcu_isp(image, sizeof(image)), MCU_ISP_ERR_NO_ANSWER);
    std::string out = GetCapturedStdout();
    std::string attempts;  // 5 attempts, and nothing read
    for (int n = 5; n > 0; --n)
        attempts += "try_times=" + std::to_string(n) +
                    "\nst_mcu_isp_fun.uart_wirte NULL \nst_mcu_isp_fun.uart_read NULL \n";
    EXPECT_EQ(out, attempts);
    CaptureStdout();
    EXPECT_EQ(mcu_erasetype_get(), -1);
    EXPECT_EQ(GetCapturedStdout(),
              "st_mcu_isp_fun.uart_wirte NULL \nst_mcu_isp_fun.uart_read "
              "NULL \nmcu_serial_read err\r\n");

    SimulatedMcu mcu;
    mcu_isp_cnt_clear();
    CaptureStdout();
    EXPECT_EQ(mcu_isp(nullptr, 600), MCU_ISP_ERR_BAD_IMAGE);
    EXPECT_EQ(mcu_isp(image, 0xF8000001u), MCU_ISP_ERR_BAD_IMAGE);
    EXPECT_EQ(mcu_isp_verify(image, 0xF8000001u, nullptr), MCU_ISP_ERR_BAD_IMAGE);
    GetCapturedStdout();
    EXPECT_TRUE(mcu.boot.received().empty());
    EXPECT_EQ(mcu_isp_cnt(), 0);
}
