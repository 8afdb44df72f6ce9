// The request lines of a batch (transfer_tool -f FILE, or -f - for standard input).
//
// Every line that is neither empty nor a comment (# first) holds the options of one
// request as they are given on the command line. The words are split at blanks (spaces,
// tabs); there is no quoting, so a word cannot hold a blank.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace transfer_tool {

constexpr size_t kMaxBatchBytes = 4u << 20;
constexpr size_t kMaxLineLength = 65536;  // characters: room for -d with a frame of data
constexpr size_t kMaxRequestLines = 10000;

struct BatchLine {
    uint32_t number = 0;             // in the file, from 1
    std::vector<std::string> words;  // the program name first, as in argv
    std::string error;               // why the line cannot be a request, or ""
};

// Reads the request lines of `path` ("-": standard input), a regular file (or, for "-",
// any input) of at most kMaxBatchBytes with at most kMaxRequestLines request lines. A
// line that is too long or holds a NUL byte gets its error; the others are split.
// False with a message when the input cannot be read or is too large.
bool read_batch(const std::string &path, std::vector<BatchLine> *out, std::string *error);

// The words of a text split at blanks, `first` in front of them.
std::vector<std::string> split_words(const std::string &first, const std::string &text);

}  // namespace transfer_tool
