// Lines of concurrent threads never tear or get lost.
#include <map>
#include <regex>
#include <thread>

#include "zlog_fixture.h"

namespace {

using zlog_test::ZlogTest;

class ThreadsTest : public ZlogTest {};

TEST_F(ThreadsTest, TwoThreadsTenThousandLinesEach) {
    init("[formats]\nf = \"%d(%T).%us [%M(tag)] %m%n\"\n[rules]\nsdk.* \"@DIR@/t.log\"; f\n");
    zlog_category_t *sdk = zlog_get_category("sdk");
    ASSERT_NE(sdk, nullptr);
    constexpr int kLines = 10000;
    const std::string payload(200, 'p');
    auto worker = [&](const char *tag) {
        ASSERT_EQ(zlog_put_mdc("tag", tag), 0);
        for (int i = 0; i < kLines; ++i)
            zlog_info(sdk, "%s %d %s end", tag, i, payload.c_str());
    };
    std::thread t1(worker, "A");
    std::thread t2(worker, "B");
    t1.join();
    t2.join();
    zlog_fini();

    std::regex shape(R"(\d\d:\d\d:\d\d\.\d{6} \[([AB])\] ([AB]) (\d+) p{200} end)");
    std::map<std::string, int> next{{"A", 0}, {"B", 0}};
    std::vector<std::string> all = lines("t.log");
    ASSERT_EQ(all.size(), 2U * kLines);
    for (const std::string &line : all) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(line, m, shape)) << line;
        ASSERT_EQ(m[1], m[2]);
        ASSERT_EQ(std::stoi(m[3]), next[m[1]]++) << "lost or reordered: " << line;
    }
    EXPECT_EQ(next["A"], kLines);
    EXPECT_EQ(next["B"], kLines);
}

TEST_F(ThreadsTest, CategoriesFetchedConcurrently) {
    init("[formats]\nf = \"%c %m%n\"\n[rules]\nc_.* \"@DIR@/c.log\"; f\n");
    auto worker = [](int id) {
        for (int i = 0; i < 200; ++i) {
            std::string name = "c_" + std::to_string(i % 20);
            zlog_category_t *c = zlog_get_category(name.c_str());
            ASSERT_NE(c, nullptr);
            zlog_info(c, "%d %d", id, i);
        }
    };
    std::thread t1(worker, 1);
    std::thread t2(worker, 2);
    t1.join();
    t2.join();
    EXPECT_EQ(lines("c.log").size(), 400U);
}

}  // namespace
