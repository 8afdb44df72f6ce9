#include "text.h"

#include <cctype>
#include <climits>

namespace zl {

namespace {
bool is_space(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
char lower(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}
}  // namespace

std::string_view trim(std::string_view s) {
    while (!s.empty() && is_space(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && is_space(s.back()))
        s.remove_suffix(1);
    return s;
}

bool iequals(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

bool is_word(std::string_view s) {
    if (s.empty()) return false;
    for (char c : s) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_') return false;
    }
    return true;
}

size_t find_unquoted(std::string_view s, char c, size_t from) {
    bool quoted = false;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '"') {
            quoted = !quoted;
        } else if (!quoted && s[i] == c && i >= from) {
            return i;
        }
    }
    return std::string_view::npos;
}

bool unquote(std::string_view s, std::string &out) {
    s = trim(s);
    if (s.size() < 2 || s.front() != '"' || s.back() != '"') return false;
    out.assign(s.substr(1, s.size() - 2));
    return true;
}

bool parse_long(std::string_view s, long &out) {
    s = trim(s);
    if (s.empty() || s.size() > 18) return false;
    long v = 0;
    for (char c : s) {
        if (c < '0' || c > '9') return false;
        v = v * 10 + (c - '0');
    }
    out = v;
    return true;
}

bool parse_size(std::string_view s, long &out) {
    s = trim(s);
    size_t digits = 0;
    while (digits < s.size() && s[digits] >= '0' && s[digits] <= '9')
        ++digits;
    long value = 0;
    if (!parse_long(s.substr(0, digits), value)) return false;
    std::string_view unit = trim(s.substr(digits));
    long mult = 1;
    if (unit.empty() || iequals(unit, "b")) {
        mult = 1;
    } else if (iequals(unit, "k") || iequals(unit, "kb")) {
        mult = 1024L;
    } else if (iequals(unit, "m") || iequals(unit, "mb")) {
        mult = 1024L * 1024;
    } else if (iequals(unit, "g") || iequals(unit, "gb")) {
        mult = 1024L * 1024 * 1024;
    } else {
        return false;
    }
    if (value > LONG_MAX / mult) return false;
    out = value * mult;
    return true;
}

}  // namespace zl
