// Loading the board classes, pool sizes and receiving-card limits.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "support/log_capture.h"
#include "transfer_server.h"

namespace {

struct Loaded {
    int32_t ret;
    std::string log;
};

class ConfigLoadTest : public ::testing::Test {
  protected:
    void SetUp() override {
        // Maps keep values across loads; start each case from a clean record.
        free(g_st_transfer.st_info);
        g_st_transfer = transfer_info_t{};
        log.clear();
    }
    int32_t load(const std::string &json) {
        mio_json *root = mio_json_fromstring(json.c_str());
        EXPECT_NE(root, nullptr) << json;
        int32_t ret = sdk_device_transfer_mem_init(root);
        mio_json_delete(root);
        return ret;
    }
    sdk::test::LogCapture &log = sdk::test::log_capture();
};

const char *kClasses = R"(
  "main_card": {"slot_num": 1, "type_num": 2, "min_slot": 100, "max_slot": 100, "id_offset": 0},
  "sub_card":  {"slot_num": 16, "type_num": 2, "min_slot": 1, "max_slot": 16, "id_offset": 2},
  "backplane": {"slot_num": 1, "type_num": 1, "min_slot": 101, "max_slot": 101, "id_offset": 34})";

TEST_F(ConfigLoadTest, ThreeClassesMakeTheirTableWithDefaults) {
    ASSERT_EQ(load(std::string("{\"device\": {") + kClasses + "}}"), 0);
    EXPECT_EQ(g_st_transfer.n_num, 35);
    ASSERT_NE(g_st_transfer.st_info, nullptr);
    EXPECT_EQ(g_st_transfer.st_info[34].n_type, 0);  // nothing filled yet
    const transfer_id_map_t &sub = g_st_transfer.st_sub_card;
    EXPECT_EQ(sub.n_id_offset, 2);
    EXPECT_EQ(sub.n_slot_min, 1);
    EXPECT_EQ(sub.n_slot_max, 16);
    EXPECT_EQ(sub.n_offset, 2);
    const transfer_format_t &f = g_st_transfer.st_format;
    EXPECT_EQ(f.n_send_list_num, 1u);
    EXPECT_EQ(f.n_send_thread_num, 1u);
    EXPECT_EQ(f.n_monitor_list_num, 1u);
    EXPECT_EQ(f.n_monitor_thread_num, 1u);
    EXPECT_EQ(f.n_rvcard_eth_max, 0u);
    EXPECT_EQ(f.n_rvcard_max, 0u);
    EXPECT_TRUE(log.contains("report transfer is null"));
    EXPECT_TRUE(log.contains("transfer_param is null used default"));
    EXPECT_TRUE(log.contains("rvcard_param is null used default"));
    EXPECT_TRUE(log.contains("end ret :0"));
}

TEST_F(ConfigLoadTest, PoolSizesAndLimitsAreRead) {
    ASSERT_EQ(load(R"({"device": {},
        "transfer_param": {"send_list_num": 3, "send_thread_num": 2,
                           "monitor_list_num": 4, "monitor_thread_num": 5},
        "rvcard_param": {"eth_max": 4, "rvcard_max": 64}})"),
              0);
    const transfer_format_t &f = g_st_transfer.st_format;
    EXPECT_EQ(f.n_send_list_num, 3u);
    EXPECT_EQ(f.n_send_thread_num, 2u);
    EXPECT_EQ(f.n_monitor_list_num, 4u);
    EXPECT_EQ(f.n_monitor_thread_num, 5u);
    EXPECT_EQ(f.n_rvcard_eth_max, 4u);
    EXPECT_EQ(f.n_rvcard_max, 64u);
    EXPECT_EQ(g_st_transfer.n_num, 0);  // no class: an empty table loads
    EXPECT_TRUE(log.contains("maincard transfer is null "));
    EXPECT_TRUE(log.contains("subcard transfer is null"));
    EXPECT_TRUE(log.contains("backplane transfer is null"));
}

TEST_F(ConfigLoadTest, OnlyMainCardAndZeroSlots) {
    ASSERT_EQ(load(R"({"device": {
        "main_card": {"slot_num": 1, "type_num": 4, "min_slot": 100, "max_slot": 100, "id_offset": 0},
        "sub_card": {"slot_num": 0, "type_num": 3, "min_slot": 1, "max_slot": 8, "id_offset": 9}}})"),
              0);
    EXPECT_EQ(g_st_transfer.n_num, 4);
    EXPECT_EQ(g_st_transfer.st_sub_card.n_offset, 3);  // map filled, no records
}

TEST_F(ConfigLoadTest, MissingDeviceIs14) {
    EXPECT_EQ(load(R"({"maincards": []})"), 14);
    EXPECT_TRUE(log.contains("error code 14"));
    EXPECT_TRUE(log.contains("end ret :14"));
    EXPECT_EQ(g_st_transfer.n_num, 0);
    EXPECT_EQ(g_st_transfer.st_info, nullptr);
}

// Each refusal says which member of which object is wrong, and why, in a line of its own.
TEST_F(ConfigLoadTest, MissingNegativeOrMistypedMembersAreRefused) {
    const std::string not_int = "is not an integer from 0 to 2147483647";
    const std::pair<const char *, std::string> bad[] = {
        // a class member missing, negative, a string, a fraction
        {R"({"device": {"main_card": {"slot_num": 1, "type_num": 2, "min_slot": 100, "max_slot": 100}}})",
         R"(device "main_card": "id_offset" is missing)"},
        {R"({"device": {"main_card": {"slot_num": -1, "type_num": 2, "min_slot": 100, "max_slot": 100, "id_offset": 0}}})",
         R"(device "main_card": "slot_num" )" + not_int},
        {R"({"device": {"sub_card": {"slot_num": 1, "type_num": "2", "min_slot": 100, "max_slot": 100, "id_offset": 0}}})",
         R"(device "sub_card": "type_num" )" + not_int},
        {R"({"device": {"main_card": {"slot_num": 1, "type_num": 2, "min_slot": 1.5, "max_slot": 100, "id_offset": 0}}})",
         R"(device "main_card": "min_slot" )" + not_int},
        // an empty or partial optional object does not fall back to defaults
        {R"({"device": {}, "transfer_param": {}})",
         R"("transfer_param": "send_list_num" is missing)"},
        {R"({"device": {}, "transfer_param": {"send_list_num": 1, "send_thread_num": 1, "monitor_list_num": -1, "monitor_thread_num": 1}})",
         R"("transfer_param": "monitor_list_num" )" + not_int},
        {R"({"device": {}, "rvcard_param": {"eth_max": 2}})",
         R"("rvcard_param": "rvcard_max" is missing)"},
    };
    for (const auto &[json, why] : bad) {
        log.clear();
        EXPECT_EQ(load(json), -1000) << json;
        EXPECT_TRUE(log.contains("ERROR [TRANSFER] " + why)) << why;
        EXPECT_TRUE(log.contains(" json error code -1000")) << json;
        EXPECT_EQ(g_st_transfer.st_info, nullptr) << json;
    }
}

// Start-up allocates lists and receiving-card queues by these counts: beyond their
// limits the file is refused at load, with the member named.
TEST_F(ConfigLoadTest, PoolSizesAboveTheirLimitsAreRefused) {
    struct Case {
        const char *member;
        int64_t value;
        bool loads;
    };
    for (const Case &c : {Case{"send_list_num", 64, true}, Case{"send_list_num", 65, false},
                          Case{"send_list_num", 2147483647, false},
                          Case{"monitor_list_num", 65, false}, Case{"send_thread_num", 1000, true},
                          Case{"eth_max", 64, true}, Case{"eth_max", 65536, false},
                          Case{"rvcard_max", 1024, true}, Case{"rvcard_max", 65536, false}}) {
        SCOPED_TRACE(std::string(c.member) + " " + std::to_string(c.value));
        // Every count 1 but the one under test.
        auto m = [&c](const std::string &key) {
            return "\"" + key + "\": " + std::to_string(key == c.member ? c.value : 1);
        };
        log.clear();
        const int32_t ret = load(R"({"device": {}, "transfer_param": {)" + m("send_list_num") +
                                 ", " + m("send_thread_num") + ", " + m("monitor_list_num") + ", " +
                                 m("monitor_thread_num") + R"(}, "rvcard_param": {)" +
                                 m("eth_max") + ", " + m("rvcard_max") + "}}");
        if (c.loads) {
            EXPECT_EQ(ret, 0);
            continue;
        }
        EXPECT_EQ(ret, -1000);
        EXPECT_TRUE(log.contains("\"" + std::string(c.member) + "\" " + std::to_string(c.value) +
                                 " is above the limit of"));
        EXPECT_TRUE(log.contains(" max num error code -1000"));
    }
}

TEST_F(ConfigLoadTest, FieldsBeforeAFailureKeepTheirValues) {
    EXPECT_EQ(load(R"({"device": {"sub_card": {"slot_num": 2, "type_num": 7, "min_slot": 3}}})"),
              -1000);
    EXPECT_EQ(g_st_transfer.st_sub_card.n_offset, 7);
    EXPECT_EQ(g_st_transfer.st_sub_card.n_slot_min, 3);
}

TEST_F(ConfigLoadTest, OverlappingOrOutlyingClassBlocksAreRefused) {
    // sub cards 2..33 and a backplane at 20
    EXPECT_EQ(load(R"({"device": {
        "main_card": {"slot_num": 1, "type_num": 2, "min_slot": 100, "max_slot": 100, "id_offset": 0},
        "sub_card": {"slot_num": 16, "type_num": 2, "min_slot": 1, "max_slot": 16, "id_offset": 2},
        "backplane": {"slot_num": 1, "type_num": 1, "min_slot": 101, "max_slot": 101, "id_offset": 20}}})"),
              -1000);
    EXPECT_TRUE(log.contains("share channel ids"));
    log.clear();
    // a single class placed beyond its own table
    EXPECT_EQ(load(R"({"device": {
        "main_card": {"slot_num": 1, "type_num": 2, "min_slot": 100, "max_slot": 100, "id_offset": 5}}})"),
              -1000);
    EXPECT_TRUE(log.contains("outside the table"));
    // a table that an int32 count cannot hold
    EXPECT_EQ(load(R"({"device": {
        "main_card": {"slot_num": 70000, "type_num": 70000, "min_slot": 1, "max_slot": 2, "id_offset": 0}}})"),
              -1000);
}

}  // namespace
