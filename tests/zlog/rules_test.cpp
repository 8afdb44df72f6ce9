// Rules: level selectors, category matching, and the outputs they write to.
#include "zlog_fixture.h"

namespace {

using zlog_test::Capture;
using zlog_test::ZlogTest;

class RulesTest : public ZlogTest {
  protected:
    // Logs one line at each standard level, the message being the level's name.
    static void all_levels(zlog_category_t *c) {
        zlog_debug(c, "debug");
        zlog_info(c, "info");
        zlog_notice(c, "notice");
        zlog_warn(c, "warn");
        zlog_error(c, "error");
        zlog_fatal(c, "fatal");
    }
    std::string joined(const std::string &name) {
        std::string out;
        for (const std::string &l : lines(name))
            out += (out.empty() ? "" : ",") + l;
        return out;
    }
};

TEST_F(RulesTest, FileOutputsAppendAndSync) {
    std::ofstream(path("a.log")) << "old line\n";
    init(
        "[formats]\nf = \"%c %V %m%n\"\n[rules]\na.INFO \"@DIR@/a.log\"; f\n"
        "a.* -\"@DIR@/s.log\"; f\n");
    zlog_info(zlog_get_category("a"), "n=%d s=%s", 3, "x");
    EXPECT_EQ(read("s.log"), "a INFO n=3 s=x\n");
    zlog_fini();
    EXPECT_EQ(read("a.log"), "old line\na INFO n=3 s=x\n");
}

TEST_F(RulesTest, StdoutAndStderrOutputs) {
    init("[formats]\nf = \"%V:%m%n\"\n[rules]\na.=INFO >stdout; f\na.ERROR >stderr; f\n");
    zlog_category_t *a = zlog_get_category("a");
    ASSERT_NE(a, nullptr);
    Capture out(STDOUT_FILENO);
    Capture err(STDERR_FILENO);
    all_levels(a);
    std::string err_text = err.finish();
    EXPECT_EQ(out.finish(), "INFO:info\n");
    EXPECT_EQ(err_text, "ERROR:error\nFATAL:fatal\n");
}

TEST_F(RulesTest, LevelSelectors) {
    init(R"([formats]
f = "%m%n"
[rules]
a.NOTICE  "@DIR@/ge.log"; f
a.=warn   "@DIR@/eq.log"; f
a.!Info   "@DIR@/ne.log"; f
a.*       "@DIR@/all.log"; f
)");
    zlog_category_t *a = zlog_get_category("a");
    ASSERT_NE(a, nullptr);
    all_levels(a);
    EXPECT_EQ(joined("ge.log"), "notice,warn,error,fatal");
    EXPECT_EQ(joined("eq.log"), "warn");
    EXPECT_EQ(joined("ne.log"), "debug,notice,warn,error,fatal");
    EXPECT_EQ(joined("all.log"), "debug,info,notice,warn,error,fatal");
}

TEST_F(RulesTest, LevelEnabledFollowsRules) {
    init("[rules]\na.=INFO \"@DIR@/a.log\"\na.ERROR \"@DIR@/a.log\"\n");
    zlog_category_t *a = zlog_get_category("a");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(zlog_level_enabled(a, ZLOG_LEVEL_DEBUG), 0);
    EXPECT_EQ(zlog_level_enabled(a, ZLOG_LEVEL_INFO), 1);
    EXPECT_EQ(zlog_level_enabled(a, ZLOG_LEVEL_NOTICE), 0);
    EXPECT_EQ(zlog_level_enabled(a, ZLOG_LEVEL_ERROR), 1);
    EXPECT_EQ(zlog_level_enabled(a, ZLOG_LEVEL_FATAL), 1);
    EXPECT_EQ(zlog_level_enabled(a, 121), 1);
    EXPECT_EQ(zlog_level_enabled(a, -1), 0);
    EXPECT_EQ(zlog_level_enabled(a, 1000), 0);
}

TEST_F(RulesTest, ExactAndPrefixCategories) {
    init(
        "[formats]\nf = \"%c %m%n\"\n[rules]\nsdk.INFO \"@DIR@/sdk.log\"\n"
        "aa_.* \"@DIR@/aa.log\"; f\n");
    EXPECT_NE(zlog_get_category("sdk"), nullptr);
    EXPECT_EQ(zlog_get_category("sdk"), zlog_get_category("sdk"));
    for (const char *none : {"debug", "sdk_x", "", "aa1_x", "a", "aab"})
        EXPECT_EQ(zlog_get_category(none), nullptr) << none;
    EXPECT_EQ(zlog_get_category(nullptr), nullptr);
    for (const char *name : {"aa", "aa_x", "aa_x_y"}) {
        ASSERT_NE(zlog_get_category(name), nullptr) << name;
        zlog_info(zlog_get_category(name), "1");
    }
    EXPECT_EQ(joined("aa.log"), "aa 1,aa_x 1,aa_x_y 1");
}

TEST_F(RulesTest, StarRuleTakesEveryCategory) {
    init(
        "[formats]\nf = \"%c %m%n\"\n[rules]\n*.ERROR \"@DIR@/err.log\"; f\n"
        "a.* \"@DIR@/a.log\"; f\n");
    zlog_category_t *a = zlog_get_category("a");
    zlog_category_t *b = zlog_get_category("anything");
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    zlog_info(a, "ai");
    zlog_error(a, "ae");
    zlog_info(b, "bi");
    zlog_error(b, "be");
    EXPECT_EQ(joined("err.log"), "a ae,anything be");
    EXPECT_EQ(joined("a.log"), "a ai,a ae");
}

TEST_F(RulesTest, WastebinTakesUnmatchedCategories) {
    init(
        "[formats]\nf = \"%c %m%n\"\n[rules]\na.* \"@DIR@/a.log\"; f\n"
        "!.* \"@DIR@/rest.log\"; f\n!.ERROR \"@DIR@/rest_err.log\"; f\n");
    zlog_category_t *a = zlog_get_category("a");
    zlog_category_t *b = zlog_get_category("b");
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    zlog_info(a, "1");
    zlog_info(b, "2");
    zlog_error(b, "3");
    EXPECT_EQ(joined("a.log"), "a 1");
    EXPECT_EQ(joined("rest.log"), "b 2,b 3");
    EXPECT_EQ(joined("rest_err.log"), "b 3");
}

TEST_F(RulesTest, WastebinUnusedWhenStarMatches) {
    init(
        "[formats]\nf = \"%c %m%n\"\n[rules]\n*.ERROR \"@DIR@/all.log\"; f\n"
        "!.* \"@DIR@/rest.log\"; f\n");
    zlog_category_t *b = zlog_get_category("b");
    ASSERT_NE(b, nullptr);
    zlog_info(b, "dropped");
    zlog_error(b, "kept");
    EXPECT_EQ(joined("all.log"), "b kept");
    EXPECT_EQ(read("rest.log"), "");
}

TEST_F(RulesTest, SeveralRulesSameFile) {
    init(
        "[formats]\nf = \"%m%n\"\ng = \"<%m>%n\"\n[rules]\na.* \"@DIR@/a.log\"; f\n"
        "a.ERROR \"@DIR@/a.log\"; g\n");
    zlog_category_t *a = zlog_get_category("a");
    zlog_info(a, "i");
    zlog_error(a, "e");
    EXPECT_EQ(joined("a.log"), "i,e,<e>");
}

TEST_F(RulesTest, FileRecreatedAfterRemoval) {
    init("[formats]\nf = \"%m%n\"\n[rules]\na.* \"@DIR@/a.log\"; f\n");
    zlog_category_t *a = zlog_get_category("a");
    zlog_info(a, "before");
    ASSERT_EQ(std::rename(path("a.log").c_str(), path("a.log.1").c_str()), 0);
    // The path is checked at most once a second.
    sleep(1);
    usleep(100 * 1000);
    zlog_info(a, "after");
    EXPECT_EQ(read("a.log.1"), "before\n");
    EXPECT_EQ(read("a.log"), "after\n");
}

}  // namespace

namespace {

using zlog_test::ZlogTest;

class RotationTest : public ZlogTest {
  protected:
    // Ten lines of 40 bytes each: "01xxx...x\n".
    static void ten_lines(zlog_category_t *c) {
        for (int i = 1; i <= 10; ++i)
            zlog_info(c, "%02d%s", i, std::string(37, 'x').c_str());
    }
    std::string numbers(const std::string &name) {
        std::string out;
        for (const std::string &l : lines(name))
            out += l.substr(0, 2) + " ";
        return out;
    }
};

// Ten lines of 40 bytes into files of 100: which lines each archive holds.
TEST_F(RotationTest, Archives) {
    const struct {
        const char *output;
        std::vector<std::pair<const char *, const char *>> files;  // name, line numbers
        std::vector<const char *> absent;
    } cases[] = {
        {"\"@DIR@/r.log\", 100 * 2 ~ \"@DIR@/r.#r.log\"",
         {{"r.log", "09 10 "}, {"r.0.log", "07 08 "}, {"r.1.log", "05 06 "}},
         {"r.2.log"}},
        {"\"@DIR@/s.log\", 100 * 2 ~ \"@DIR@/s.#2s.log\"",
         {{"s.log", "09 10 "}, {"s.03.log", "07 08 "}, {"s.02.log", "05 06 "}},
         {"s.01.log", "s.00.log"}},
        {"\"@DIR@/d.log\", 100",  // default archive names, no limit
         {{"d.log", "09 10 "}, {"d.log.0", "07 08 "}, {"d.log.3", "01 02 "}},
         {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.output);
        init(std::string("[formats]\nf = \"%m%n\"\n[rules]\na.* ") + c.output + "; f\n");
        ten_lines(zlog_get_category("a"));
        zlog_fini();
        for (const auto &[name, expected] : c.files)
            EXPECT_EQ(numbers(name), expected) << name;
        for (const char *name : c.absent)
            EXPECT_FALSE(std::filesystem::exists(path(name))) << name;
    }
    EXPECT_EQ(
        zlog_init(config("[rules]\na.* \"@DIR@/d.log\", 1MB ~ \"@DIR@/d.log.old\"\n").c_str()), -1);
}

}  // namespace
