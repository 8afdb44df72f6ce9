// Small text helpers shared by the configuration parser.
#pragma once

#include <string>
#include <string_view>

namespace zl {

std::string_view trim(std::string_view s);
bool iequals(std::string_view a, std::string_view b);

// A name of letters, digits and underscores, at least one character.
bool is_word(std::string_view s);

// Index of the first c in s at or after from that is not inside double quotes, or npos.
size_t find_unquoted(std::string_view s, char c, size_t from = 0);

// The text between a leading and a trailing double quote of s (trimmed), the last quote
// of s closing it (so the text may hold quotes). False when s is not quoted so.
bool unquote(std::string_view s, std::string &out);

// A whole decimal number.
bool parse_long(std::string_view s, long &out);

// A size: a number with an optional unit (K, KB, M, MB, G, GB; any case).
bool parse_size(std::string_view s, long &out);

}  // namespace zl
