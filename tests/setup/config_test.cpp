// Loading a configuration and setting up its channels, without network: what each file
// loads to, and for each refused one the log line that names the member and why. TCP
// entries (type 2, never opened) stand for network channels.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/log_capture.h"
#include "transfer_server.h"

namespace {

std::string data(const char *name) {
    const char *src = getenv("TRANSFER_SOURCE_DIR");
    return std::string(src ? src : ".") + "/tests/setup/data/" + name;
}

class Config : public ::testing::Test {
  protected:
    // Loads the text into a configuration record reset to zero, as a fresh process has it.
    int32_t load(const std::string &text) {
        mio_json_delete(root_);
        root_ = mio_json_fromstring(text.c_str());
        EXPECT_NE(root_, nullptr) << text;
        return load(root_);
    }
    int32_t load(mio_json *root) {
        free(g_st_transfer.st_info);
        g_st_transfer = transfer_info_t{};
        log.clear();
        return sdk_device_transfer_mem_init(root);
    }
    void TearDown() override { mio_json_delete(root_); }
    static transfer_data_t &channel(int id) { return g_st_transfer.st_info[id]; }
    mio_json *root_ = nullptr;
    sdk::test::LogCapture &log = sdk::test::log_capture();
};

// data/config_cases.json: each case a configuration, the set-up members called after it
// is loaded (M main cards, S sub cards 1 and 2, B backplane, R report), the result of the
// load or else of the last call (every call before it succeeds), a line of the log and
// the size of the channel table. Refusals name the member and why.
TEST_F(Config, LoadsSetsUpOrRefusesWithTheMemberNamed) {
    mio_json *cases = mio_json_fromfile(data("config_cases.json").c_str());
    ASSERT_NE(cases, nullptr);
    for (uint32_t i = 0; i < mio_json_getarraysize(cases); ++i) {
        mio_json *c = mio_json_getarrayitem(cases, i);
        mio_json *config = mio_json_getobjectitem(c, "config");
        const char *calls =
            mio_json_getobjectitem(c, "calls") ? mio_json_getobjectitemstr(c, "calls") : "";
        int32_t ret = load(config);
        for (const char *call = calls; *call != '\0'; ++call) {
            EXPECT_EQ(ret, 0) << "case " << i;
            char slots[] = {1, 2};
            ret = *call == 'M'   ? sdk_maincards_transfer_init(config)
                  : *call == 'S' ? sdk_subcards_transfer_init(slots, 2, config)
                  : *call == 'B' ? sdk_backplane_transfer_init(config)
                                 : sdk_report_transfer_init(config);
        }
        EXPECT_EQ(ret, mio_json_getobjectitemint(c, "ret")) << "case " << i;
        EXPECT_TRUE(log.contains(mio_json_getobjectitemstr(c, "log")))
            << "case " << i << " wants: " << mio_json_getobjectitemstr(c, "log");
        // A refused file leaves no table; "n_num" is absent (-1) where the case does not say.
        EXPECT_TRUE(ret == 0 || *calls != '\0' || g_st_transfer.st_info == nullptr) << "case " << i;
        const int32_t n_num = mio_json_getobjectitemint(c, "n_num");
        EXPECT_TRUE(n_num < 0 || g_st_transfer.n_num == n_num)
            << "case " << i << " n_num " << g_st_transfer.n_num;
    }
    mio_json_delete(cases);
    EXPECT_EQ(sdk_maincards_transfer_init(nullptr), -1000);
    EXPECT_TRUE(log.contains(R"(no configuration to read "maincards" from)"));
    // Numbers beyond the range of every class member.
    for (const char *v :
         {"-1", "-2147483648", "2147483648", "1e300", "-1e300", "\"7\"", "null", "true", "[]"}) {
        for (const char *member : {"slot_num", "type_num", "min_slot", "max_slot", "id_offset"}) {
            std::string text =
                R"({"device": {"main_card": {"slot_num": 1, "type_num": 2, "min_slot": 100, "max_slot": 100, "id_offset": 0}}})";
            const size_t at = text.find(member) + strlen(member) + 3;
            text.replace(at, text.find_first_of(",}", at) - at, v);
            EXPECT_EQ(load(text), -1000) << text;
        }
    }
}

// Only the listed sub cards are set up, each once; requests route to the records filled.
TEST_F(Config, ListedSubCardsAndTheirRoutes) {
    root_ = mio_json_fromfile(data("subcards.json").c_str());
    ASSERT_EQ(load(root_), 0);
    EXPECT_EQ(sdk_subcards_transfer_init(nullptr, 0, root_), 0);
    for (int id = 20; id < 28; ++id)
        EXPECT_EQ(channel(id).n_type, 0) << id;
    char list[] = {3, 1, 3, static_cast<char>(200), 4};  // 200 and 4 have no board
    EXPECT_EQ(sdk_subcards_transfer_init(list, sizeof(list), root_), 0);
    EXPECT_TRUE(log.contains("slot 3 listed again, already set up"));
    EXPECT_EQ(sdk_maincards_transfer_init(root_), 0);
    EXPECT_EQ(sdk_backplane_transfer_init(root_), 0);
    struct Route {
        transfer_section section;
        int slot, id, type;
    };
    for (const Route &r :
         {Route{FPGA, 1, 20, TCP}, Route{MCU, 1, 21, RAW_SOCKET}, Route{MCU, 2, 23, 0},
          Route{FPGA, 3, 24, TCP}, Route{MCU, 3, 25, RAW_SOCKET}, Route{FPGA, 100, 4, TCP},
          Route{MCU, 101, 29, TCP}}) {
        transfer_op_t op{};
        op.e_mode = r.section;
        op.n_slot = r.slot;
        EXPECT_EQ(sdk_get_transfer_map_id(op), r.id) << r.slot;
        EXPECT_EQ(channel(r.id).n_type, r.type) << r.id;
        EXPECT_EQ(channel(r.id).n_slot, r.type != 0 ? r.slot : 0) << r.id;
    }
    EXPECT_EQ(channel(5).e_packet_code_type, PACKET_VIDEO);
    EXPECT_EQ(channel(29).e_packet_code_type, PACKET_SENDER);
    EXPECT_EQ(channel(29).n_fd, -1);  // never opened: no descriptor
}

TEST(ConfigFile, NestingBeyondTheParserLimitIsRefused) {
    const std::string deep =
        "{\"device\": " + std::string(100000, '[') + std::string(100000, ']') + "}";
    sdk::test::TempDir dir;
    char slots[] = {1};
    EXPECT_EQ(sdk_transfer_init(slots, 1, const_cast<char *>(dir.write("deep.json", deep).c_str())),
              -1000);
}

}  // namespace
