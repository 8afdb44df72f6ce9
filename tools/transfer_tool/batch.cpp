#include "transfer_tool/batch.h"

#include <cstdio>

#include "common/cli.h"

namespace transfer_tool {

namespace {

bool read_stdin(std::vector<uint8_t> *out, std::string *error) {
    char buf[65536];
    size_t n = 0;
    while ((n = fread(buf, 1, sizeof buf, stdin)) > 0) {
        if (out->size() + n > kMaxBatchBytes) {
            *error = "standard input holds more than " + std::to_string(kMaxBatchBytes) +
                     " bytes; at most that many fit a batch";
            return false;
        }
        out->insert(out->end(), buf, buf + n);
    }
    if (ferror(stdin) != 0) {
        *error = "cannot read standard input";
        return false;
    }
    return true;
}

}  // namespace

std::vector<std::string> split_words(const std::string &first, const std::string &text) {
    std::vector<std::string> words = {first};
    size_t at = 0;
    while ((at = text.find_first_not_of(" \t\r", at)) != std::string::npos) {
        const size_t end = text.find_first_of(" \t\r", at);
        words.push_back(text.substr(at, end - at));
        at = end;
    }
    return words;
}

bool read_batch(const std::string &path, std::vector<BatchLine> *out, std::string *error) {
    std::vector<uint8_t> data;
    if (path == "-" ? !read_stdin(&data, error)
                    : !tool_common::read_file(path, kMaxBatchBytes, "fit a batch", &data, error))
        return false;
    const std::string text(data.begin(), data.end());
    uint32_t number = 0;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        ++number;
        const size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') continue;
        if (out->size() == kMaxRequestLines) {
            *error = "more than " + std::to_string(kMaxRequestLines) + " requests in " + path;
            return false;
        }
        BatchLine b;
        b.number = number;
        if (line.size() > kMaxLineLength)
            b.error = "line of " + std::to_string(line.size()) + " characters; at most " +
                      std::to_string(kMaxLineLength);
        else if (line.find('\0') != std::string::npos)
            b.error = "line holds a NUL byte";
        else
            b.words = split_words("transfer_tool", line);
        out->push_back(std::move(b));
    }
    return true;
}

}  // namespace transfer_tool
