// A [rules] line: which categories and levels it takes, and where and how it prints.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "levels.h"
#include "output.h"

namespace zl {

class Format;

// A set of levels 0..255.
struct LevelMask {
    uint64_t bits[4] = {0, 0, 0, 0};
    void set(int level) { bits[level >> 6] |= uint64_t{1} << (level & 63); }
    bool test(int level) const { return (bits[level >> 6] >> (level & 63)) & 1U; }
    void add(const LevelMask &o) {
        for (int i = 0; i < 4; ++i)
            bits[i] |= o.bits[i];
    }
};

struct Rule {
    std::string category;  // a name, "name_" (name and sub-categories), "*" or "!"
    LevelMask levels;
    OutputDecl output;
    std::string format_name;         // empty: the default format
    const Format *format = nullptr;  // resolved by the configuration
    Output *sink = nullptr;          // owned by the configuration

    bool is_wastebin() const { return category == "!"; }
    // Whether the rule names the category (not counting "!").
    bool matches(std::string_view cname) const;
    bool accepts(int level) const {
        return level >= 0 && level < kLevelCount && levels.test(level);
    }
};

// Parses "category.level output[, options][; format]". False with a message on error.
bool parse_rule(std::string_view line, const LevelTable &levels, Rule &rule, std::string &err);

// Parses the output part "output[, options]" (used by parse_rule).
bool parse_output(std::string_view text, OutputDecl &decl, std::string &err);

}  // namespace zl
