#include "common/cli.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace tool_common {

namespace {

bool fail(std::string *error, const std::string &message) {
    *error = message;
    return false;
}

std::string system_error(const std::string &what, const std::string &path) {
    return what + " " + path + ": " + strerror(errno);
}

}  // namespace

bool parse_number(const char *text, uint64_t min, uint64_t max, uint64_t *out) {
    // strtoull itself would skip white space and take a sign (wrapping "-5" round).
    if (text == nullptr || !isdigit(static_cast<unsigned char>(text[0]))) return false;
    char *end = nullptr;
    errno = 0;
    const unsigned long long v = strtoull(text, &end, 0);
    if (errno != 0 || *end != 0 || v < min || v > max) return false;
    *out = v;
    return true;
}

bool read_file(const std::string &path, size_t max, const char *fit, std::vector<uint8_t> *out,
               std::string *error, size_t take) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return fail(error, system_error("cannot read", path));
    struct stat st {};
    if (fstat(fd, &st) != 0) {
        const std::string message = system_error("cannot read", path);
        close(fd);
        return fail(error, message);
    }
    if (!S_ISREG(st.st_mode)) {
        close(fd);
        return fail(error, path + " is not a regular file");
    }
    const auto size = static_cast<uint64_t>(st.st_size);
    if (take == kWholeFile && size > max) {
        close(fd);
        return fail(error, path + " has " + std::to_string(size) + " bytes; at most " +
                               std::to_string(max) + " " + fit);
    }
    // The file may grow meanwhile: never read more than its size at the check.
    const size_t want = static_cast<size_t>(size < take ? size : take);
    out->resize(want);
    size_t got = 0;
    while (got < want) {
        const ssize_t n = read(fd, out->data() + got, want - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            const std::string message = system_error("cannot read", path);
            close(fd);
            return fail(error, message);
        }
        if (n == 0) break;  // shrunk meanwhile
        got += static_cast<size_t>(n);
    }
    close(fd);
    out->resize(got);
    return true;
}

bool write_file(const std::string &path, const uint8_t *data, size_t len, std::string *error) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return fail(error, system_error("cannot write", path));
    size_t done = 0;
    while (done < len) {
        const ssize_t n = write(fd, data + done, len - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = EIO;
            const std::string message = system_error("cannot write", path);
            close(fd);
            return fail(error, message);
        }
        done += static_cast<size_t>(n);
    }
    // Some file systems report a failed write only at the close.
    if (close(fd) != 0) return fail(error, system_error("cannot write", path));
    return true;
}

}  // namespace tool_common
