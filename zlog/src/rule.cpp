#include "rule.h"

#include <cctype>

#include "text.h"

namespace zl {

namespace {

bool selector_char(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.' || c == '*' ||
           c == '!' || c == '=';
}

bool parse_levels(std::string_view text, const LevelTable &table, LevelMask &mask,
                  std::string &err) {
    if (text == "*") {
        for (int l = 0; l < kLevelCount; ++l)
            mask.set(l);
        return true;
    }
    char mode = '>';
    if (!text.empty() && (text[0] == '=' || text[0] == '!')) {
        mode = text[0];
        text.remove_prefix(1);
    }
    int level = table.find(text);
    if (level < 0) {
        err = "unknown level \"" + std::string(text) + "\"";
        return false;
    }
    for (int l = 0; l < kLevelCount; ++l) {
        bool take = mode == '>' ? l >= level : mode == '=' ? l == level : l != level;
        if (take) mask.set(l);
    }
    return true;
}

}  // namespace

bool Rule::matches(std::string_view cname) const {
    if (category == "*" || category == cname) return true;
    // "aa_" takes "aa" and "aa_xx", not "aa1_xx".
    if (category.size() > 1 && category.back() == '_') {
        std::string_view prefix(category);
        if (cname == prefix.substr(0, prefix.size() - 1)) return true;
        return cname.substr(0, prefix.size()) == prefix;
    }
    return false;
}

bool parse_rule(std::string_view line, const LevelTable &levels, Rule &rule, std::string &err) {
    size_t end = 0;
    while (end < line.size() && selector_char(line[end]))
        ++end;
    std::string_view selector = line.substr(0, end);
    std::string_view action = trim(line.substr(end));
    size_t dot = selector.find('.');
    if (dot == std::string_view::npos || action.empty()) {
        err = "rule needs \"category.level output\"";
        return false;
    }
    std::string_view cat = selector.substr(0, dot);
    if (cat != "*" && cat != "!" && !is_word(cat)) {
        err = "bad category \"" + std::string(cat) + "\"";
        return false;
    }
    rule.category.assign(cat);
    if (!parse_levels(selector.substr(dot + 1), levels, rule.levels, err)) return false;

    size_t semi = find_unquoted(action, ';');
    std::string_view output = action.substr(0, semi);
    if (semi != std::string_view::npos) {
        std::string_view fmt = trim(action.substr(semi + 1));
        if (!fmt.empty() && !is_word(fmt)) {
            err = "bad format name \"" + std::string(fmt) + "\"";
            return false;
        }
        rule.format_name.assign(fmt);
    }
    return parse_output(trim(output), rule.output, err);
}

}  // namespace zl
