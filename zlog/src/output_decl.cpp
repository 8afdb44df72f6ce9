// Parsing the output part of a rule: >stdout, >stderr, >syslog[, LOG_xxx], "path" or
// -"path" with rotation options, | command, $record[, "path"].
#include <syslog.h>

#include "rule.h"
#include "text.h"

namespace zl {

namespace {

struct Facility {
    const char *name;
    int value;
};

constexpr Facility kFacilities[] = {
    {"LOG_USER", LOG_USER},     {"LOG_DAEMON", LOG_DAEMON}, {"LOG_LOCAL0", LOG_LOCAL0},
    {"LOG_LOCAL1", LOG_LOCAL1}, {"LOG_LOCAL2", LOG_LOCAL2}, {"LOG_LOCAL3", LOG_LOCAL3},
    {"LOG_LOCAL4", LOG_LOCAL4}, {"LOG_LOCAL5", LOG_LOCAL5}, {"LOG_LOCAL6", LOG_LOCAL6},
    {"LOG_LOCAL7", LOG_LOCAL7},
};

bool fail(std::string &err, std::string message) {
    err = std::move(message);
    return false;
}

// "10MB", "10MB * 3", "10MB * 3 ~ \"x.#r.log\"", "0 ~ \"x.#s.log\"", "* 3"...
bool parse_rotation(std::string_view opts, OutputDecl &decl, std::string &err) {
    size_t tilde = find_unquoted(opts, '~');
    if (tilde != std::string_view::npos) {
        if (!unquote(opts.substr(tilde + 1), decl.rotate_pattern)) {
            return fail(err, "rotation pattern must be quoted");
        }
        opts = opts.substr(0, tilde);
    }
    size_t star = opts.find('*');
    std::string_view size = trim(opts.substr(0, star));
    if (!size.empty() && !parse_size(size, decl.rotate_size)) return fail(err, "bad file size");
    if (star != std::string_view::npos && !parse_long(opts.substr(star + 1), decl.rotate_count)) {
        return fail(err, "bad file count");
    }
    return true;
}

bool parse_file(std::string_view main, std::string_view opts, OutputDecl &decl, std::string &err) {
    decl.kind = OutputDecl::Kind::File;
    if (main[0] == '-') {
        decl.sync = true;
        main = trim(main.substr(1));
    }
    if (!unquote(main, decl.target) || decl.target.empty()) return fail(err, "bad file path");
    return parse_rotation(opts, decl, err);
}

bool parse_stream(std::string_view name, std::string_view opts, OutputDecl &decl,
                  std::string &err) {
    if (name == "stdout" || name == "stderr") {
        decl.kind = name == "stdout" ? OutputDecl::Kind::Stdout : OutputDecl::Kind::Stderr;
        return true;
    }
    if (name != "syslog") return fail(err, "unknown output >" + std::string(name));
    decl.kind = OutputDecl::Kind::Syslog;
    if (opts.empty()) return true;
    for (const Facility &f : kFacilities) {
        if (opts == f.name) {
            decl.facility = f.value;
            return true;
        }
    }
    return fail(err, "unknown syslog facility " + std::string(opts));
}

}  // namespace

bool parse_output(std::string_view text, OutputDecl &decl, std::string &err) {
    if (text.empty()) return fail(err, "rule without output");
    if (text[0] == '|') {
        decl.kind = OutputDecl::Kind::Pipe;
        decl.target.assign(trim(text.substr(1)));
        return decl.target.empty() ? fail(err, "pipe without command") : true;
    }
    size_t comma = find_unquoted(text, ',');
    std::string_view main = trim(text.substr(0, comma));
    std::string_view opts;
    if (comma != std::string_view::npos) opts = trim(text.substr(comma + 1));
    if (main.empty()) return fail(err, "rule without output");
    if (main[0] == '"' || main[0] == '-') return parse_file(main, opts, decl, err);
    if (main[0] == '>') return parse_stream(trim(main.substr(1)), opts, decl, err);
    if (main[0] == '$') {
        decl.kind = OutputDecl::Kind::Record;
        decl.target.assign(trim(main.substr(1)));
        return is_word(decl.target) ? true : fail(err, "bad record name");
    }
    return fail(err, "unknown output \"" + std::string(main) + "\"");
}

}  // namespace zl
