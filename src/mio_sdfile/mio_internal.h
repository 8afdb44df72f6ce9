// Helpers shared by the files of src/mio_sdfile/.
#pragma once

#include <string>

#include "mio_sdfile.h"

namespace sdk::mio {

// True for "." and "..".
bool is_special_dir(const char *name);

// True when path is not NULL and fits MIO_PATH_MAX with its zero; prints a refusal line
// naming the operation otherwise (not for NULL).
bool path_fits(const char *path, const char *op);

// Appends a "/" (always, or only when path does not already end in one) and name to path.
// False, with a refusal line and path unchanged, when the result would not fit
// MIO_PATH_MAX. A walk appends and cuts back one buffer, so its stack does not grow with
// the path.
bool append_path(std::string *path, const char *name, bool always_slash, const char *op);

// The text quoted for a POSIX shell: every character is literal inside '...', and a quote
// becomes '\''. Used for the commands shown to the user.
std::string shell_quote(const char *text);

// Runs body and returns its result, or fallback when it throws (only an allocation can):
// nothing may unwind into a C caller.
template <typename T, typename F>
T no_throw(T fallback, F body) {
    try {
        return body();
    } catch (...) {
        return fallback;
    }
}

}  // namespace sdk::mio
