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

TEST_F(RulesTest, FileOutputAppends) {
    std::ofstream(path("a.log")) << "old line\n";
    init("[formats]\nf = \"%c %V %m%n\"\n[rules]\na.INFO \"@DIR@/a.log\"; f\n");
    zlog_category_t *a = zlog_get_category("a");
    ASSERT_NE(a, nullptr);
    zlog_info(a, "n=%d s=%s", 3, "x");
    zlog_fini();
    EXPECT_EQ(read("a.log"), "old line\na INFO n=3 s=x\n");
}

TEST_F(RulesTest, SynchronousFileOutput) {
    init("[formats]\nf = \"%m%n\"\n[rules]\na.* -\"@DIR@/a.log\"; f\n");
    zlog_info(zlog_get_category("a"), "synced");
    EXPECT_EQ(read("a.log"), "synced\n");
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

TEST_F(RulesTest, UndefinedCategoryIsNull) {
    init("[rules]\nsdk.INFO \"@DIR@/sdk.log\"\n");
    EXPECT_NE(zlog_get_category("sdk"), nullptr);
    EXPECT_EQ(zlog_get_category("sdk"), zlog_get_category("sdk"));
    EXPECT_EQ(zlog_get_category("debug"), nullptr);
    EXPECT_EQ(zlog_get_category("sdk_x"), nullptr);  // "sdk" is not a prefix rule
    EXPECT_EQ(zlog_get_category(""), nullptr);
    EXPECT_EQ(zlog_get_category(nullptr), nullptr);
}

TEST_F(RulesTest, PrefixRules) {
    init("[formats]\nf = \"%c %m%n\"\n[rules]\naa_.* \"@DIR@/aa.log\"; f\n");
    zlog_category_t *aa = zlog_get_category("aa");
    zlog_category_t *aa_x = zlog_get_category("aa_x");
    zlog_category_t *aa_x_y = zlog_get_category("aa_x_y");
    ASSERT_NE(aa, nullptr);
    ASSERT_NE(aa_x, nullptr);
    ASSERT_NE(aa_x_y, nullptr);
    EXPECT_EQ(zlog_get_category("aa1_x"), nullptr);
    EXPECT_EQ(zlog_get_category("a"), nullptr);
    EXPECT_EQ(zlog_get_category("aab"), nullptr);
    zlog_info(aa, "1");
    zlog_info(aa_x, "2");
    zlog_info(aa_x_y, "3");
    EXPECT_EQ(joined("aa.log"), "aa 1,aa_x 2,aa_x_y 3");
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

TEST_F(RotationTest, RollingArchives) {
    init(
        "[formats]\nf = \"%m%n\"\n[rules]\na.* \"@DIR@/r.log\", 100 * 2 ~ \"@DIR@/r.#r.log\"; f\n");
    ten_lines(zlog_get_category("a"));
    EXPECT_EQ(numbers("r.log"), "09 10 ");
    EXPECT_EQ(numbers("r.0.log"), "07 08 ");
    EXPECT_EQ(numbers("r.1.log"), "05 06 ");
    EXPECT_FALSE(std::filesystem::exists(path("r.2.log")));
}

TEST_F(RotationTest, SequenceArchives) {
    init(
        "[formats]\nf = \"%m%n\"\n[rules]\na.* \"@DIR@/s.log\", 100 * 2 ~ \"@DIR@/s.#2s.log\"; "
        "f\n");
    ten_lines(zlog_get_category("a"));
    EXPECT_EQ(numbers("s.log"), "09 10 ");
    EXPECT_EQ(numbers("s.03.log"), "07 08 ");
    EXPECT_EQ(numbers("s.02.log"), "05 06 ");
    EXPECT_FALSE(std::filesystem::exists(path("s.01.log")));
    EXPECT_FALSE(std::filesystem::exists(path("s.00.log")));
}

TEST_F(RotationTest, DefaultPatternUnlimited) {
    init("[formats]\nf = \"%m%n\"\n[rules]\na.* \"@DIR@/d.log\", 100; f\n");
    ten_lines(zlog_get_category("a"));
    EXPECT_EQ(numbers("d.log"), "09 10 ");
    EXPECT_EQ(numbers("d.log.0"), "07 08 ");
    EXPECT_EQ(numbers("d.log.3"), "01 02 ");
}

TEST_F(RotationTest, BadPatternFails) {
    EXPECT_EQ(
        zlog_init(config("[rules]\na.* \"@DIR@/d.log\", 1MB ~ \"@DIR@/d.log.old\"\n").c_str()), -1);
}

}  // namespace
