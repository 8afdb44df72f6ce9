// The named result codes keep their numbers, and each has a text of its own.
#include <gtest/gtest.h>

#include <climits>
#include <set>
#include <string>

#include "transfer_errors.h"

TEST(Strerror, EveryCodeHasItsNumberAndAText) {
    const struct {
        int32_t name, number;
        const char *text;
    } codes[] = {
        {SDK_OK, 0, "ok"},
        {SDK_ERR_SYSTEM, -1, "system call failed"},
        {SDK_ERR_PORT_RECORD, -1, "receiving-card port"},
        {SDK_ERR_SECTION, -3, "section"},
        {SDK_ERR_NO_MEMORY, -5, "memory"},
        {SDK_ERR_CONFIG, -1000, "configuration"},
        {SDK_ERR_LOG, -2000, "logging"},
        {SDK_ERR_RECV, -3000, "receive"},
        {SDK_ERR_REFUSED, -4000, "refused"},
        {SDK_ERR_TIMEOUT, -4001, "timed out"},
        {SDK_ERR_NULL_BUFFER, -4004, "null"},
        {SDK_ERR_FRAME_TOO_LONG, -4006, "frame too long"},
        {SDK_ERR_NO_LABEL, -4008, "label"},
        {SDK_ERR_NO_DEVICE, 14, "\"device\""},
    };
    std::set<std::string> texts;
    for (const auto &c : codes) {
        EXPECT_EQ(c.name, c.number);
        const std::string text = sdk_strerror(c.number);
        EXPECT_NE(text.find(c.text), std::string::npos) << c.number << ": " << text;
        texts.insert(text);
    }
    EXPECT_EQ(texts.size(), 13u);  // -1 has one text for both meanings
    for (int32_t other : {1, -2, -4, -4002, -4007, 13, 15, INT32_MIN, INT32_MAX})
        EXPECT_STREQ(sdk_strerror(other), "unknown error") << other;
}
