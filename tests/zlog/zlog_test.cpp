// The zlog-compatible library through its public interface: configurations accepted and
// refused, formats rendered, rules matched, rotation, reload, and logging threads.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "support/wait.h"
#include "zlog.h"

namespace {

using namespace testing::internal;

// Formats f, g and e, then the rules that follow.
const std::string kRules =
    "[formats]\nf = \"%m%n\"\ng = \"<%m>%n\"\ne = \"%E(ZLOG_TEST_NAME) %m%n\"\n[rules]\n";

std::string fmt(const std::string &pattern) {
    return "[formats]\nf = \"" + pattern + "\"\n[rules]\nc_.* \"@DIR@/f.log\"; f\n";
}

// Lines end in "|" instead of a newline, the last one in nothing.
std::string bars(std::string s) {
    std::replace(s.begin(), s.end(), '\n', '|');
    return s.empty() || s.back() != '|' ? s : s.substr(0, s.size() - 1);
}

// The library is process-wide: every test ends with zlog_fini.
class Zlog : public ::testing::Test {
  protected:
    void TearDown() override { zlog_fini(); }
    // Writes a configuration, "@DIR@" naming the test's folder, and returns its path.
    std::string conf(std::string text, const std::string &name = "zlog.conf") {
        for (size_t at; (at = text.find("@DIR@")) != std::string::npos;)
            text.replace(at, 5, dir_.path());
        return dir_.write(name, text + "\n");
    }
    int init(const std::string &text) { return zlog_init(conf(text).c_str()); }
    std::string path(const std::string &name) const { return dir_.path() + "/" + name; }
    std::string read(const std::string &name) const {
        std::stringstream ss;
        ss << std::ifstream(path(name)).rdbuf();
        return bars(ss.str());
    }
    // "cat:LEVELS" words: one line per level letter (D I N W E F the standard levels, T 10,
    // U 50), the message being "cat.LETTER".
    static void log(const std::string &script) {
        static const std::map<char, int> levels = {{'D', 20},  {'I', 40},  {'N', 60}, {'W', 80},
                                                   {'E', 100}, {'F', 120}, {'T', 10}, {'U', 50}};
        std::istringstream words(script);
        for (std::string w; words >> w;) {
            std::string cat = w.substr(0, w.find(':'));
            for (char l : w.substr(w.find(':') + 1))
                zlog(zlog_get_category(cat.c_str()), "src/dir/unit.cpp", 16, "my_func", 7, 42,
                     levels.at(l), "%s.%c", cat.c_str(), l);
        }
    }
    sdk::test::TempDir dir_;
};

// Each case: a configuration, the lines logged, and what the files hold afterwards
// ("name=lines", or "name=~regex"; "stdout" and "stderr" are the standard streams).
TEST_F(Zlog, ConfigurationsRulesAndFormats) {
    setenv("ZLOG_TEST_NAME", "fromenv", 1);
    char hex[32];
    std::snprintf(hex, sizeof(hex), "%lx", static_cast<unsigned long>(pthread_self()));
    const std::string ids = std::to_string(getpid()) + " " + hex + " " +
                            std::to_string(pthread_self()) + " " + std::to_string(gettid());
    const std::string stamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)";
    // clang-format off
    const struct {
        std::string conf, script, files;  // files: "name=lines; ..."
    } cases[] = {
        {"", "a:I", ""},
        {"[formats]\nf = \"%m%n\"\n", "a:I", ""},
        {kRules + "a.NOTICE \"@DIR@/ge.log\"; f\na.=warn \"@DIR@/eq.log\"; f\n"
                  "a.!Info \"@DIR@/ne.log\"; f\na.* \"@DIR@/all.log\"; f\n"
                  "a.=INFO >stdout; f\na.ERROR >stderr; g\n", "a:DINWEF",
         "ge.log=a.N|a.W|a.E|a.F; eq.log=a.W; ne.log=a.D|a.N|a.W|a.E|a.F; "
         "all.log=a.D|a.I|a.N|a.W|a.E|a.F; stdout=a.I; stderr=<a.E>|<a.F>"},
        // "aa_" takes "aa" and the names below it; "!" what no other rule takes.
        {kRules + "aa_.* \"@DIR@/aa.log\"; f\nsdk.* \"@DIR@/sdk.log\"; f\n",
         "aa:I aa_x:I aa_x_y:I aab:I aa1_x:I a:I sdk_x:I sdk:I",
         "aa.log=aa.I|aa_x.I|aa_x_y.I; sdk.log=sdk.I"},
        {kRules + "*.ERROR \"@DIR@/err.log\"; f\na.* \"@DIR@/a.log\"; f\n!.* \"@DIR@/w.log\"; f\n",
         "a:IE anything:IE", "err.log=a.E|anything.E; a.log=a.I|a.E; w.log="},
        {kRules + "a.* \"@DIR@/a.log\"; f\n!.* \"@DIR@/w.log\"; f\n!.ERROR \"@DIR@/we.log\"; f\n",
         "a:I b:IE", "a.log=a.I; w.log=b.I|b.E; we.log=b.E"},
        {kRules + "a.* \"@DIR@/a.log\"; f\na.ERROR \"@DIR@/a.log\"; g\n", "a:IE",
         "a.log=a.I|a.E|<a.E>"},
        {kRules + "c.* \"@DIR@/%E(ZLOG_TEST_NAME).log\"; e\n*.* \"@DIR@/%c.log\"; e\n",
         "c:I beta:I", "fromenv.log=fromenv c.I; c.log=fromenv c.I; beta.log=fromenv beta.I"},
        // Not strict: the rules that fail are skipped, the others kept.
        {"[global]\nstrict init = false\n" + kRules + "b.NOPE >stdout; f\n"
         "c.* \"@DIR@/no/dir/c.log\"; f\na.* >stdout; f\n", "a:I b:I c:I", "stdout=a.I"},
        {"# comment\n[global]\nstrict init = true\nbuffer min = 1024\nbuffer max = 2MB\n"
         "rotate lock file = /tmp/zlog.lock\nsome unknown key = x\nfile perms = 644\n"
         "[levels]\nTRACE = 10\nAUDIT = 130, LOG_NOTICE\n[formats]\n"
         "simple = \"%d(%F %T).%ms %-5V [%M(tag)] %f:%L %U: %m%n\"   # trailing comment\n"
         "f = \"<%m>%n\"\n[rules]\nb.TRACE \"@DIR@/b.log\"; simple\nb.* >stdout\n"
         "b.* >syslog, LOG_LOCAL0\nb.* | cat > /dev/null\nb.* $myrecord, \"record %d\"\n"
         "b.* \"@DIR@/r.log\", 10MB * 3 ~ \"@DIR@/r.#r.log\"\nb.* \"@DIR@/s.log\", 1GB\n"
         "b.* -\"@DIR@/y.log\", 100KB * 5\nb.* >stderr\na.INFO \\\n   \"@DIR@/a.log\"; \\\n f\n",
         "a:I", "a.log=<a.I>"},
        // Custom and unknown levels, the configured default format and the built-in one.
        {"[global]\ndefault format = \"%V %m%n\"\n[levels]\nTRACE = 10\n[formats]\n"
         "f = \"%V/%v %m%n\"\n[rules]\nc.trace \"@DIR@/c.log\"; f\nd.* \"@DIR@/d.log\"\n",
         "c:TUD d:E", "c.log=TRACE/trace c.T|UNKNOWN/unknown c.U|DEBUG/debug c.D; d.log=ERROR d.E"},
        {"[rules]\nc.* \"@DIR@/f.log\"\n", "c:W",
         "f.log=~" + stamp + " WARN \\[" + std::to_string(getpid()) + ":src/dir/unit.cpp:42\\] c.W"},
        {fmt("%c,%V,%v,%F,%f,%L,%U,%m,%%,%n"), "c:I",
         "f.log=c,INFO,info,src/dir/unit.cpp,unit.cpp,42,my_func,c.I,%,"},
        {fmt("%p %t %T %k"), "c:I", "f.log=" + ids},
        {fmt("[%5V][%-5V][%.2V][%-8.2v][%-10.30c][%-4L][%.2m][%5m][%-5m]"), "c:I",
         "f.log=[ INFO][INFO ][IN][in      ][c         ][42  ][c.][  c.I][c.I  ]"},
        {fmt("%d(%Y) [%8d(%Y)] %d,%d() %d(%H:%M:%S).%ms %us"), "c:I", "f.log=~20\\d\\d \\[    "
         "20\\d\\d\\] " + stamp + "," + stamp + R"( \d\d:\d\d:\d\d\.\d{3} \d{6})"},
        // Files of 10 bytes take two lines of 4: the last ten lines, two by two.
        {kRules + "a.* \"@DIR@/r.log\", 10 * 2 ~ \"@DIR@/r.#r.log\"; f\n"
                  "a.* \"@DIR@/s.log\", 10 * 2 ~ \"@DIR@/s.#2s.log\"; f\n"
                  "a.* \"@DIR@/d.log\", 10; f\n", "a:DINWEFDINW",
         "r.log=a.N|a.W; r.0.log=a.D|a.I; r.1.log=a.E|a.F; r.2.log=; s.log=a.N|a.W; "
         "s.03.log=a.D|a.I; s.02.log=a.E|a.F; s.01.log=; d.log.0=a.D|a.I; d.log.3=a.D|a.I"},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.conf);
        ASSERT_EQ(init(c.conf), 0);
        CaptureStdout();
        CaptureStderr();
        log(c.script);
        std::map<std::string, std::string> got = {{"stderr", bars(GetCapturedStderr())},
                                                  {"stdout", bars(GetCapturedStdout())}};
        zlog_fini();
        std::istringstream files(c.files);
        for (std::string f; std::getline(files >> std::ws, f, ';');) {
            std::string name = f.substr(0, f.find('=')), want = f.substr(f.find('=') + 1);
            std::string text = got.count(name) ? got[name] : read(name);
            if (want[0] == '~') {
                EXPECT_TRUE(std::regex_match(text, std::regex(want.substr(1)))) << name << text;
            } else {
                EXPECT_EQ(text, want) << name;
            }
        }
        std::filesystem::remove_all(dir_.path());
        std::filesystem::create_directory(dir_.path());
    }
}

// A refused configuration leaves the library uninitialised. Among them: a misplaced or
// unknown section, a line outside a section, unquoted or twice defined formats, bad levels,
// rules without level or output, unknown outputs or formats, unopenable files, bad sizes
// and archive names, and unknown or unfinished conversions (also in file paths).
TEST_F(Zlog, RefusedConfigurations) {
    EXPECT_EQ(zlog_init(path("absent.conf").c_str()), -1);
    EXPECT_EQ(zlog_init(dir_.path().c_str()), -1);
    EXPECT_EQ(zlog_init(""), -1);
    // "|" stands for a line break.
    // clang-format off
    const char *const refused[] = {
        "[rules]|[formats]", "[rules]|[rules]", "[outputs]", "[rules", "a.* >stdout",
        "[global]|strict init", "[global]|default format = %m%n", "[levels]|TRACE = 300",
        "[levels]|TRACE = 10, LOG_NOPE", "[formats]|f = \"%m\"|f = \"%m\"", "[rules]|a >stdout",
        "[rules]|a.* ", "[rules]|a.NOPE >stdout", "[rules]|a.* >stdnowhere",
        "[rules]|a.* \"@DIR@/a.log\"; nosuch", "[rules]|a.* \"@DIR@/a.log",
        "[rules]|a.* \"@DIR@/no/dir/a.log\"", "[rules]|a-b.* >stdout",
        "[rules]|a.* \"@DIR@/d.log\", 1MB ~ \"@DIR@/d.log.old\"", "[formats]|f = \"%d %Q %m%n\"",
        "[formats]|f = \"%M %m\"", "[formats]|f = \"%d(%F %m\"", "[global]|default format = \"%y\"",
        "[rules]|a.* \"@DIR@/%Z.log\"", "[formats]|[global]", "[levels]|TRACE = abc",
        "[formats]|f = %m", "[formats]|f = \"%m%\"", "[formats]|f = \"%-.c\"",
        "[rules]|a.* \"@DIR@/a.log\", 10XB"};
    // clang-format on
    for (std::string text : refused) {
        std::replace(text.begin(), text.end(), '|', '\n');
        SCOPED_TRACE(text);
        EXPECT_EQ(init(text), -1);
        EXPECT_EQ(zlog_get_category("a"), nullptr);
        EXPECT_EQ(zlog_put_mdc("k", "v"), -1);
    }
    // The error names the line and the conversion, in the file ZLOG_PROFILE_ERROR names.
    setenv("ZLOG_PROFILE_ERROR", path("errors.txt").c_str(), 1);
    EXPECT_EQ(init("[formats]\n\nf = \"%m %Q\"\n"), -1);
    unsetenv("ZLOG_PROFILE_ERROR");
    EXPECT_TRUE(std::regex_search(read("errors.txt"), std::regex("line 3.*%Q")));
}
// Calls before init, after fini, on a null category, or a second init: refused or dropped.
TEST_F(Zlog, CallsOutsideAnInitialisedLibrary) {
    zlog_remove_mdc("tag");
    zlog_clean_mdc();
    zlog_info(nullptr, "dropped %d", 1);
    EXPECT_TRUE(zlog_reload(nullptr) == -1 && zlog_put_mdc("tag", "x") == -1);
    EXPECT_FALSE(zlog_get_category("a") || zlog_get_mdc("tag"));
    ASSERT_EQ(init(kRules + "a.* \"@DIR@/a.log\"; f\n"), 0);
    EXPECT_EQ(zlog_init(conf(kRules + "b.* >stdout\n", "b.conf").c_str()), -1);
    zlog_category_t *a = zlog_get_category("a");  // the first configuration stays
    EXPECT_FALSE(!a || zlog_get_category("b") || zlog_get_category(nullptr) ||
                 zlog_level_enabled(nullptr, ZLOG_LEVEL_INFO));
    const std::string big(100000, 'x');
    zlog_info(a, "%s", big.c_str());
    zlog_fini();
    zlog_fini();  // harmless
    EXPECT_EQ(zlog_level_enabled(a, ZLOG_LEVEL_ERROR), 0);
    zlog_error(a, "dropped");  // a category kept across zlog_fini
    EXPECT_EQ(read("a.log"), big);
    EXPECT_EQ(zlog_init(path("b.conf").c_str()), 0);
    EXPECT_NE(zlog_get_category("b"), nullptr);
    zlog_fini();
    unsetenv("ZLOG_CONF_PATH");
    ASSERT_EQ(zlog_init(nullptr), 0);  // the built-in rule: everything to standard output
    EXPECT_NE(zlog_get_category("anything"), nullptr);
}

// Levels enabled by the rules; appending, synced and reopened files.
TEST_F(Zlog, LevelsEnabledAndFiles) {
    dir_.write("a.log", "old\n");
    ASSERT_EQ(init(kRules + "a.=INFO \"@DIR@/a.log\"; f\na.ERROR \"@DIR@/a.log\"; f\n"
                            "a.=DEBUG -\"@DIR@/s.log\"; f\nr.* \"@DIR@/r.log\"; f\n"),
              0);
    std::string enabled;
    for (int level : {20, 40, 60, 80, 100, 121, -1, 1000})
        enabled += std::to_string(zlog_level_enabled(zlog_get_category("a"), level));
    EXPECT_EQ(enabled, "11001100");
    log("a:DINEF r:I");
    EXPECT_EQ(read("s.log"), "a.D");  // synced: there before zlog_fini
    // A file renamed away is opened again by its path, checked at most once a second.
    ASSERT_EQ(std::rename(path("r.log").c_str(), path("r.log.1").c_str()), 0);
    EXPECT_TRUE(sdk::test::wait_until([&] {
        log("r:E");
        return std::filesystem::exists(path("r.log"));
    }));
    zlog_fini();
    EXPECT_EQ(read("a.log") + " " + read("r.log") + " " + read("r.log.1").substr(0, 7),
              "old|a.I|a.E|a.F r.E r.I|r.E");
}

TEST_F(Zlog, MdcIsPerThread) {
    ASSERT_EQ(init(fmt("[%M(tag)][%M(other)] %m%n")), 0);
    zlog_category_t *c = zlog_get_category("c");
    zlog_put_mdc("tag", "T");
    zlog_put_mdc("other", "x");
    zlog_info(c, "one");
    std::thread([c] {
        zlog_info(c, "thread");
        zlog_put_mdc("tag", "OTHER");
    }).join();
    zlog_info(c, "after");
    zlog_remove_mdc("tag");
    zlog_info(c, "two");
    zlog_clean_mdc();
    zlog_info(c, "three");
    EXPECT_EQ(read("f.log"), "[T][x] one|[][] thread|[T][x] after|[][x] two|[][] three");
}

// A reload takes the new rules for the categories kept; a failed one keeps the old
// configuration; NULL reloads the last file that loaded.
TEST_F(Zlog, Reload) {
    ASSERT_EQ(init(kRules + "sdk.INFO \"@DIR@/sdk.log\"; f\na.ERROR \"@DIR@/a.log\"; f\n"), 0);
    zlog_category_t *sdk = zlog_get_category("sdk"), *a = zlog_get_category("a");
    log("sdk:I a:I picture:I");
    std::string next = kRules + "picture.INFO \"@DIR@/p.log\"; f\na.DEBUG \"@DIR@/a.log\"; g\n";
    ASSERT_EQ(zlog_reload(conf(next, "2.conf").c_str()), 0);
    EXPECT_TRUE(!zlog_get_category("sdk") && zlog_get_category("a") == a);
    EXPECT_EQ(zlog_level_enabled(sdk, ZLOG_LEVEL_ERROR), 0);  // valid, but its lines stop
    zlog_error(sdk, "after");
    log("picture:I a:I");
    for (std::string bad : {conf("[rules]\nb.* >stdout; nosuch", "3.conf"),
                            conf(fmt("%Q"), "4.conf"), path("missing.conf")})
        EXPECT_EQ(zlog_reload(bad.c_str()), -1) << bad;
    EXPECT_EQ(zlog_get_category("b"), nullptr);
    log("a:W");
    conf(kRules + "a.* \"@DIR@/a.log\"; f\n", "2.conf");
    ASSERT_EQ(zlog_reload(nullptr), 0);
    log("a:E");
    zlog_fini();
    EXPECT_EQ(read("sdk.log") + " " + read("p.log") + " " + read("a.log"),
              "sdk.I picture.I <a.I>|<a.W>|a.E");
}

// Two threads log ten thousand lines each, fetching their categories as they go, while the
// configuration is reloaded under them: no line torn, lost or out of order.
TEST_F(Zlog, ThreadsWhileReloading) {
    const std::string one = conf(fmt("%d(%T).%us [%M(tag)] %m%n"), "one.conf");
    const std::string two = conf(fmt("<%d(%T).%us [%M(tag)] %m>%n"), "two.conf");
    ASSERT_EQ(zlog_init(one.c_str()), 0);
    constexpr int kLines = 10000;
    std::atomic<int> logged{0};
    auto worker = [&](const char *tag) {
        zlog_put_mdc("tag", tag);
        for (int i = 0; i < kLines; ++i, ++logged) {
            std::string name = i % 20 ? "c_x" + std::to_string(i % 20) : "c";
            zlog_info(zlog_get_category(name.c_str()), "%s %d %s end", tag, i,
                      std::string(200, 'p').c_str());
        }
    };
    std::thread t1(worker, "A"), t2(worker, "B");
    for (int i = 0; i < 200 && logged < 2 * kLines; ++i) {
        int seen = logged;
        EXPECT_EQ(zlog_reload(i % 2 ? one.c_str() : two.c_str()), 0);
        sdk::test::wait_until([&] { return logged > seen + 20 || logged == 2 * kLines; });
    }
    t1.join();
    t2.join();
    zlog_fini();
    std::map<std::string, int> next;
    std::regex shape(R"(<?\d\d:\d\d:\d\d\.\d{6} \[([AB])\] ([AB]) (\d+) p{200} end>?)");
    std::smatch m;
    std::string line;
    for (std::ifstream in(path("f.log")); std::getline(in, line);) {
        ASSERT_TRUE(std::regex_match(line, m, shape)) << line;
        ASSERT_EQ(m[1], m[2]);
        ASSERT_EQ(std::stoi(m[3]), next[m[1]]++) << "lost or reordered: " << line;
    }
    EXPECT_EQ(next["A"] + next["B"], 2 * kLines);
}

}  // namespace
