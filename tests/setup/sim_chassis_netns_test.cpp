// The engine started from a configuration file against the board simulator in its own
// process: a UDP board, a serial board whose replies come in pieces after noise, and
// reports from a UDP report channel and from inside the serial stream.
#include <signal.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "support/netns_helpers.h"
#include "support/log_capture.h"
#include "support/sim_process.h"
#include "transfer_server.h"

namespace {

std::string chassis(const std::string &tty) {
    return R"({"device": {
    "main_card": {"slot_num": 1, "type_num": 3, "min_slot": 100, "max_slot": 100, "id_offset": 0}},
  "maincards": [{"slot": 100,
     "fpga": [{"id_offset": 0, "type": 1,   "ip": "127.0.0.2", "port": 6000},
              {"id_offset": 1, "type": 100, "ip": "127.0.0.2", "port": 6100}],
     "mcu":  [{"id_offset": 2, "type": 10,  "ip": ")" +
           tty + R"(", "port": 115200}]}]
})";
}

transfer_op_t op_for(transfer_section section, frame_code code, uint32_t addr, uint32_t len) {
    transfer_op_t op{};
    op.e_mode = section;
    op.n_slot = 100;
    op.n_timeout = 1500;
    op.e_code = code;
    op.n_read_len = len;
    op.e_type = BODY_ADDRESS;
    op.st_addr_param.n_addr = addr;
    op.st_addr_param.n_device_type = section == FPGA ? DEVICE_FPGA : DEVICE_MCU;
    return op;
}

int32_t run(transfer_op_t op, std::string *out, std::string wdata = "") {
    int32_t r = sdk_request(wdata.empty() ? nullptr : wdata.data(),
                            static_cast<uint32_t>(wdata.size()), &op);
    if (r != 0) return r;
    char buf[SDK_DATA_BUF_LEN];
    r = sdk_request_wait(buf, &op);
    if (out != nullptr && r > 0) out->assign(buf, static_cast<size_t>(r));
    return r;
}

}  // namespace

TEST(SimulatedChassis, SerialAndUdpRoundTripsAndBothReportRoads) {
    SKIP_OUTSIDE_PRIVATE_NETNS();
    sdk::test::log_capture();
    sdk::test::TempDir dir;
    const std::string link = dir.path() + "/mcu";
    sdk::test::SimProcess sim({"--udp", "127.0.0.2:6000", "--pty", link, "--serial-split",
                               "--serial-noise", "50", "--serial-report", link + ":3600000",
                               "--report", "127.0.0.2:6100:6100:3600000"});
    ASSERT_TRUE(sim.wait_ready());
    const std::string path = dir.write("chassis.json", chassis(link));
    char slots[] = {1};
    ASSERT_EQ(sdk_transfer_init(slots, 1, const_cast<char *>(path.c_str())), 0);

    // Serial replies hand over the data alone; UDP replies error code and length first.
    for (uint32_t i = 0; i < 25; ++i) {
        const std::string value = "s" + std::to_string(100 + i);
        ASSERT_EQ(run(op_for(MCU, FRAME_WRITE, 0x100 + 4 * i, 4), nullptr, value), 0) << i;
        std::string got;
        ASSERT_EQ(run(op_for(MCU, FRAME_READ, 0x100 + 4 * i, 4), &got), 4) << i;
        EXPECT_EQ(got, value);
        ASSERT_EQ(run(op_for(FPGA, FRAME_WRITE, 0x200 + 4 * i, 4), nullptr, value), 4) << i;
        ASSERT_EQ(run(op_for(FPGA, FRAME_READ, 0x200 + 4 * i, 4), &got), 8) << i;
        EXPECT_EQ(got.substr(4), value);
    }

    // One report on each road, on demand; whatever came before start-up is drained first.
    auto rec = std::make_unique<report_queue_data_t>();
    while (sdk_report_queue_get_first(rec.get(), sdk_get_report_queue()) == 0)
        sdk_report_queue_pull(sdk_get_report_queue());
    kill(sim.pid(), SIGUSR1);
    bool udp = false, serial = false;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!(udp && serial) && std::chrono::steady_clock::now() < until) {
        if (sdk_report_queue_get_first(rec.get(), sdk_get_report_queue()) != 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            continue;
        }
        sdk_report_queue_pull(sdk_get_report_queue());
        EXPECT_EQ(rec->n_slot, 100u);
        ASSERT_EQ(rec->n_len, 36u);
        EXPECT_NE(rec->arr_buf[10] & 0x10, 0);
        (rec->arr_buf[0] == 0xBB ? serial : udp) = true;  // the serial stream's order
    }
    EXPECT_TRUE(udp);
    EXPECT_TRUE(serial);
    EXPECT_EQ(sim.wait_exit(true), 0);
    const std::string stats = sim.line();
    EXPECT_NE(stats.find("bad=0"), std::string::npos) << stats;
    EXPECT_EQ(stats.find("noise=0 "), std::string::npos) << stats;
}
