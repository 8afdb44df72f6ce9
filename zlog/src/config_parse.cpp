// Reading a configuration file: logical lines, comments, sections in their order.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "config.h"
#include "text.h"

namespace zl {

namespace {

enum Section { kNone, kGlobal, kLevels, kFormats, kRules };

Section section_named(std::string_view name) {
    if (name == "global") return kGlobal;
    if (name == "levels") return kLevels;
    if (name == "formats") return kFormats;
    if (name == "rules") return kRules;
    return kNone;
}

// Removes a '#' comment: one at the start, or after a blank outside double quotes
// (a '#' inside a word or a quoted path, as in "x.#r.log", stays).
std::string_view strip_comment(std::string_view line) {
    bool quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '"') quoted = !quoted;
        if (line[i] == '#' && !quoted && (i == 0 || line[i - 1] == ' ' || line[i - 1] == '\t')) {
            return line.substr(0, i);
        }
    }
    return line;
}

class Parser {
  public:
    Parser(Config &cfg, std::string &err) : cfg_(cfg), err_(err) {}

    bool line(std::string_view text) {
        if (text.front() == '[') return open_section(text);
        switch (section_) {
            case kGlobal:
                return global(text);
            case kLevels:
                return cfg_.levels().parse_line(text, err_);
            case kFormats:
                return cfg_.add_format(text, err_);
            case kRules:
                return cfg_.add_rule(text, err_);
            case kNone:
                break;
        }
        err_ = "line outside a section";
        return false;
    }

  private:
    bool open_section(std::string_view text) {
        if (text.back() != ']') {
            err_ = "bad section header";
            return false;
        }
        Section next = section_named(trim(text.substr(1, text.size() - 2)));
        if (next == kNone || next <= section_) {
            err_ = "unknown or out-of-order section " + std::string(text);
            return false;
        }
        section_ = next;
        return true;
    }

    bool global(std::string_view text) {
        size_t eq = text.find('=');
        if (eq == std::string_view::npos) {
            err_ = "global line without '='";
            return false;
        }
        return cfg_.set_global(trim(text.substr(0, eq)), trim(text.substr(eq + 1)), err_);
    }

    Config &cfg_;
    std::string &err_;
    Section section_ = kNone;
};

bool read_file(const char *path, std::string &text, std::string &err) {
    int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    struct stat st {};
    if (fd < 0 || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        err = std::string("cannot read ") + path + ": " + std::strerror(fd < 0 ? errno : EISDIR);
        if (fd >= 0) ::close(fd);
        return false;
    }
    char buf[4096];
    ssize_t n;
    while ((n = ::read(fd, buf, sizeof(buf))) != 0) {
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            err = std::string("cannot read ") + path + ": " + std::strerror(errno);
            ::close(fd);
            return false;
        }
        text.append(buf, static_cast<size_t>(n));
    }
    ::close(fd);
    return true;
}

}  // namespace

std::unique_ptr<Config> Config::parse(std::string_view text, std::string &err) {
    auto cfg = std::make_unique<Config>();
    Parser parser(*cfg, err);
    std::string logical;
    size_t number = 0;
    size_t first = 0;  // line number where the logical line starts
    while (!text.empty()) {
        size_t nl = text.find('\n');
        std::string_view raw = text.substr(0, nl);
        text = nl == std::string_view::npos ? std::string_view() : text.substr(nl + 1);
        if (logical.empty()) first = number + 1;
        ++number;
        // A trailing backslash continues the line.
        std::string_view t = trim(raw);
        if (!t.empty() && t.back() == '\\') {
            logical.append(t.substr(0, t.size() - 1));
            if (!text.empty()) continue;
        } else {
            logical.append(raw);
        }
        std::string_view line = trim(strip_comment(logical));
        if (!line.empty() && !parser.line(line)) {
            err.insert(0, "line " + std::to_string(first) + ": ");
            return nullptr;
        }
        logical.clear();
    }
    return cfg;
}

std::unique_ptr<Config> Config::load(const char *path, std::string &err) {
    if (path == nullptr) return parse("[rules]\n*.* >stdout\n", err);
    std::string text;
    if (!read_file(path, text, err)) return nullptr;
    return parse(text, err);
}

}  // namespace zl
