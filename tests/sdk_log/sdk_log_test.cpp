// The logging facade over zlog: initialisers, reloads, module tags, and the cost of a
// filtered line. Each test leaves zlog finalised.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include "common/log.h"
#include "sdk_log.h"
#include "support/log_capture.h"

namespace {

class SdkLog : public ::testing::Test {
  protected:
    void TearDown() override { zlog_fini(); }
    // A configuration file: each "category.level=file" word a rule writing lines as
    // "LEVEL [tag] file:line function message".
    std::string conf(const std::string &name, const std::string &rules) {
        std::string text = "[formats]\nf = \"%V [%M(tag)] %f:%L %U %m%n\"\n[rules]\n";
        std::istringstream words(rules);
        for (std::string w; words >> w;)
            text += w.substr(0, w.find('=')) + " \"" + dir_.path() + "/" +
                    w.substr(w.find('=') + 1) + "\"; f\n";
        return dir_.write(name, text);
    }
    std::string read(const std::string &name) {
        std::stringstream ss;
        ss << std::ifstream(dir_.path() + "/" + name).rdbuf();
        return ss.str();
    }
    static int8_t *p(std::string &s) { return reinterpret_cast<int8_t *>(s.data()); }
    sdk::test::TempDir dir_;
};

TEST_F(SdkLog, LinesCarryTheirModuleTagFileFunctionAndLine) {
    EXPECT_EQ(sdk_log_rules, nullptr);
    TLOGE("dropped before init %d", 1);
    SDK_PRINTF(LOG_DEVICE, ZLOG_LEVEL_DEBUG, "dropped too");
    std::string c = conf("zlog.conf", "sdk.INFO=sdk.log debug.*=debug.log");
    ASSERT_EQ(sdk_log_init(p(c)), 0);
    EXPECT_STREQ(zlog_get_mdc("tag"), "OTHER");
    int evaluated = 0;
    LOGD(LOG_REPORT, "filtered %d", ++evaluated);  // neither formatted nor tagged
    EXPECT_EQ(evaluated, 0);
    EXPECT_STREQ(zlog_get_mdc("tag"), "OTHER");
    const int line = __LINE__ + 1;
    TLOGI("hello %d", 42);
    for (TAG tag : {LOG_REPORT, LOG_TCP, LOG_UNIX, LOG_PLAYBACK, LOG_ETH_CAPACITY})
        LOGE(tag, "e");
    SDK_PRINTF(LOG_DEVICE, ZLOG_LEVEL_DEBUG, "raw");
    auto at = [](int l) { return "] sdk_log_test.cpp:" + std::to_string(l) + " TestBody "; };
    std::string expected = "INFO [TRANSFER" + at(line) + "hello 42\n";
    for (const char *tag : {"REPORT", "SOCKET", "SOCKET", "LAYBACK", "LOG_ETH_CAPACITY"})
        expected += "ERROR [" + std::string(tag) + at(line + 2) + "e\n";
    EXPECT_EQ(read("sdk.log"), expected);
    EXPECT_EQ(read("debug.log"), "DEBUG [DEVICE" + at(line + 3) + "raw\n");
    char name[2048] = {};
    ASSERT_EQ(get_processname(name), 0);
    EXPECT_STREQ(name, "sdk_log_sdk_log_test");
}

// An initialiser or reload run with standard output captured: its result and what it said.
#define SAID(call)                                              \
    [&] {                                                       \
        testing::internal::CaptureStdout();                     \
        std::string result = std::to_string(call) + " ";        \
        return result + testing::internal::GetCapturedStdout(); \
    }()

// A failure leaves the log off until the next success; a reload switches between the normal
// and the big-file categories.
TEST_F(SdkLog, InitialisersAndReloads) {
    std::string missing = dir_.path() + "/none.conf", all = "sdk.*=n.log debug.*=n.log";
    std::string normal = conf("normal.conf", all + " picture.*=p.log picture_debug.*=p.log");
    std::string plain = conf("plain.conf", all), no_debug = conf("nodebug.conf", "sdk.*=n.log");
    std::string nosuch = "nosuch", mine = "mine",
                own = conf("own.conf", "mine.*=m.log debug.*=m.log");
    EXPECT_EQ(SAID(sdk_log_init(p(missing))), "-2000 log_init error;\n");
    EXPECT_EQ(SAID(pack_sdk_log_init(nosuch.data(), normal.data())), "-2000 get cat fail\n");
    EXPECT_EQ(SAID(sdk_log_init(p(no_debug))), "-2000 get cat fail\n");
    TLOGI("dropped");
    EXPECT_EQ(SAID(pack_sdk_log_init(mine.data(), own.data())), "0 ");
    TLOGI("mine");
    EXPECT_EQ(SAID(sdk_log_reload_normal(p(normal))), "0 ");
    TLOGI("one");
    EXPECT_EQ(SAID(sdk_log_reload_bigfile(p(normal))), "0 ");
    TLOGI("two");
    EXPECT_EQ(SAID(sdk_log_reload_normal(p(normal))), "0 ");
    TLOGI("three");
    EXPECT_EQ(SAID(sdk_log_reload_bigfile(p(plain))), "-2000 get cat fail\n");
    TLOGI("dropped");
    EXPECT_EQ(SAID(sdk_log_reload_normal(p(plain))), "-2000 log_init error;\n");
    auto messages = [&](const char *file) {
        return std::regex_replace(read(file), std::regex(".* |\n"), "") + " ";
    };
    EXPECT_EQ(messages("m.log") + messages("n.log") + messages("p.log"), "mine onethree two ");
    // The example configuration given to hosts loads on a fresh system (its files lie in
    // /tmp itself); files that it creates are removed again.
    std::vector<std::string> made;
    for (std::string f : {"/tmp/transfer_example.sdk.log", "/tmp/transfer_example.debug.log"})
        if (access(f.c_str(), F_OK) != 0) made.push_back(f);
    std::string example = std::string(getenv("TRANSFER_SOURCE_DIR")) + "/config/example_zlog.conf";
    EXPECT_EQ(sdk_log_init(p(example)), 0);
    zlog_fini();
    for (const std::string &f : made)
        unlink(f.c_str());
}

}  // namespace
