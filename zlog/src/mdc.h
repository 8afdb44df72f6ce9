// The mapped diagnostic context: per-thread key/value pairs printed by %M(key).
#pragma once

#include <string>
#include <string_view>

namespace zl::mdc {

constexpr size_t kMaxLength = 1024;  // longest key and longest value

// The calling thread's value for key, or null.
const std::string *find(std::string_view key);

// Releases the calling thread's pairs.
void clear();

}  // namespace zl::mdc
