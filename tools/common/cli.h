// Command-line helpers of the host programs: numbers read whole and range-checked, and
// files read with a bound and written with every error caught. Nothing here throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tool_common {

// A number written as strtol reads it in base 0 (decimal, 0x hexadecimal, leading-zero
// octal), with nothing before or after it and no sign, from min to max. False otherwise.
bool parse_number(const char *text, uint64_t min, uint64_t max, uint64_t *out);

// Whether a text fits a character array of `size` bytes with its terminating zero.
inline bool fits(const char *text, size_t size) {
    return std::char_traits<char>::length(text) < size;
}

// Reads at most `take` bytes from the start of the regular file `path`. The file is
// refused before anything is read when it is not a regular file (a directory, a device, a
// pipe) or, with `take` left at its default, when it holds more than `max` bytes (the
// message then says they must `fit`, e.g. "fit one frame"). False with a message naming
// the file.
constexpr size_t kWholeFile = SIZE_MAX;
bool read_file(const std::string &path, size_t max, const char *fit, std::vector<uint8_t> *out,
               std::string *error, size_t take = kWholeFile);

// Creates or truncates `path` and writes `len` bytes into it; every write and the close
// are checked. False with a message naming the file.
bool write_file(const std::string &path, const uint8_t *data, size_t len, std::string *error);

}  // namespace tool_common
