// Hostile configuration files: numbers beyond every range, tables too large to allocate,
// blocks that overlap, endpoint texts far beyond their buffer, and nesting deep enough to
// exhaust a recursive parser's stack. Each is refused; none crashes or allocates wildly.
#include <string>

#include "setup/setup_fixture.h"

namespace {

std::string main_card(const std::string &slot_num, const std::string &type_num,
                      const std::string &id_offset = "0") {
    return R"({"device": {"main_card": {"slot_num": )" + slot_num + R"(, "type_num": )" + type_num +
           R"(, "min_slot": 100, "max_slot": 100, "id_offset": )" + id_offset + "}}}";
}

class ConfigInput : public sdk::test::ChannelSetup {};

TEST_F(ConfigInput, NumbersOutsideTheirRangeAreRefused) {
    for (const char *v : {"-1", "-2147483648", "2147483648", "4294967297", "1e300", "-1e300", "1.5",
                          "\"7\"", "null", "true", "[]"}) {
        SCOPED_TRACE(v);
        EXPECT_EQ(load(main_card(v, "2")), -1000);
        EXPECT_EQ(load(main_card("1", v)), -1000);
        EXPECT_EQ(load(main_card("1", "2", v)), -1000);
    }
    // Tables that would need gigabytes, or more records than n_num can count.
    EXPECT_EQ(load(main_card("2147483647", "2147483647")), -1000);
    EXPECT_EQ(load(main_card("100000", "10000")), -1000);
    EXPECT_EQ(load(main_card("256", "257")), -1000);
    EXPECT_EQ(load(main_card("256", "256")), 0);
    EXPECT_EQ(g_st_transfer.n_num, 65536);
    // A block placed far beyond the table.
    EXPECT_EQ(load(main_card("1", "2", "2147483647")), -1000);
    EXPECT_EQ(load(R"({"device": {}, "transfer_param": {"send_list_num": 1e10, "send_thread_num": 1,
                       "monitor_list_num": 1, "monitor_thread_num": 1}})"),
              -1000);
}

TEST_F(ConfigInput, OverlappingBlocksAndHugeSlotsAreRefused) {
    EXPECT_EQ(load(R"({"device": {
        "main_card": {"slot_num": 1, "type_num": 4, "min_slot": 100, "max_slot": 100, "id_offset": 0},
        "sub_card":  {"slot_num": 2, "type_num": 2, "min_slot": 1, "max_slot": 2, "id_offset": 3}}})"),
              -1000);
    // A slot far above min_slot: its channel id lands outside the table, not wrapped
    // into it.
    ASSERT_EQ(load(R"({"device": {"main_card": {"slot_num": 1, "type_num": 2, "min_slot": 0,
                       "max_slot": 2147483647, "id_offset": 0}},
                       "maincards": [{"slot": 2147483647,
                                      "fpga": [{"id_offset": 0, "type": 2, "ip": "x", "port": 1}]}]})"),
              0);
    EXPECT_EQ(sdk_maincards_transfer_init(root()), -1000);
    EXPECT_EQ(channel(0).n_type, 0);
    EXPECT_EQ(channel(1).n_type, 0);
}

TEST_F(ConfigInput, OverlongEndpointTextIsRefused) {
    for (int type : {1, 10, 100}) {
        SCOPED_TRACE(type);
        std::string text = main_card("1", "2");
        text.pop_back();  // reopen the root object
        text += R"(, "maincards": [{"slot": 100, "fpga": [{"id_offset": 0, "type": )" +
                std::to_string(type) + R"(, "ip": ")" + std::string(10000, '1') +
                R"(", "port": 6000}]}]})";
        ASSERT_EQ(load(text), 0);
        EXPECT_EQ(sdk_maincards_transfer_init(root()), -1000);
        EXPECT_EQ(channel(0).n_type, 0);
    }
}

TEST_F(ConfigInput, DeepNestingIsRefusedByTheParser) {
    // cJSON stops at its nesting limit (1000) instead of recursing 100,000 levels deep.
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_EQ(mio_json_fromstring(deep.c_str()), nullptr);
    const std::string in_device =
        R"({"device": )" + std::string(100000, '[') + std::string(100000, ']') + "}";
    EXPECT_EQ(mio_json_fromstring(in_device.c_str()), nullptr);
    sdk::test::TempDir dir;
    EXPECT_EQ(mio_json_fromfile(dir.write("deep.json", in_device).c_str()), nullptr);
    char slots[] = {1};
    EXPECT_EQ(sdk_transfer_init(slots, 1, const_cast<char *>(dir.write("d.json", deep).c_str())),
              -1000);
}

}  // namespace
