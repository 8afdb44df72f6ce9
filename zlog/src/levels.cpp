#include "levels.h"

#include <syslog.h>

#include <cctype>

#include "text.h"

namespace zl {

namespace {

struct SyslogName {
    const char *name;
    int value;
};

constexpr SyslogName kSyslogNames[] = {
    {"LOG_EMERG", LOG_EMERG}, {"LOG_ALERT", LOG_ALERT},     {"LOG_CRIT", LOG_CRIT},
    {"LOG_ERR", LOG_ERR},     {"LOG_WARNING", LOG_WARNING}, {"LOG_NOTICE", LOG_NOTICE},
    {"LOG_INFO", LOG_INFO},   {"LOG_DEBUG", LOG_DEBUG},
};

std::string convert_case(std::string_view s, int (*fn)(int)) {
    std::string out(s);
    for (char &c : out)
        c = static_cast<char>(fn(static_cast<unsigned char>(c)));
    return out;
}

}  // namespace

LevelTable::LevelTable() {
    define("DEBUG", 20, LOG_DEBUG);
    define("INFO", 40, LOG_INFO);
    define("NOTICE", 60, LOG_NOTICE);
    define("WARN", 80, LOG_WARNING);
    define("ERROR", 100, LOG_ERR);
    define("FATAL", 120, LOG_ALERT);
    define("UNKNOWN", kUnknownLevel, LOG_ERR);
}

void LevelTable::define(std::string_view name, int value, int syslog) {
    Level &l = table_[static_cast<size_t>(value)];
    l.upper = convert_case(name, ::toupper);
    l.lower = convert_case(name, ::tolower);
    l.syslog = syslog;
    l.defined = true;
}

bool LevelTable::parse_line(std::string_view line, std::string &err) {
    size_t eq = line.find('=');
    if (eq == std::string_view::npos) {
        err = "level line without '='";
        return false;
    }
    std::string_view name = trim(line.substr(0, eq));
    std::string_view rest = line.substr(eq + 1);
    std::string_view number = rest;
    std::string_view syslog_name;
    size_t comma = rest.find(',');
    if (comma != std::string_view::npos) {
        number = rest.substr(0, comma);
        syslog_name = trim(rest.substr(comma + 1));
    }
    long value = 0;
    if (!is_word(name) || !parse_long(number, value) || value < 1 || value > 253) {
        err = "bad level definition";
        return false;
    }
    int syslog = LOG_DEBUG;
    if (!syslog_name.empty()) {
        bool found = false;
        for (const SyslogName &s : kSyslogNames) {
            if (iequals(syslog_name, s.name)) {
                syslog = s.value;
                found = true;
            }
        }
        if (!found) {
            err = "unknown syslog level";
            return false;
        }
    }
    // A name defined again moves to its new number.
    int old = find(name);
    if (old >= 0) table_[static_cast<size_t>(old)] = Level{};
    define(name, static_cast<int>(value), syslog);
    return true;
}

int LevelTable::find(std::string_view name) const {
    for (size_t i = 0; i < table_.size(); ++i) {
        if (table_[i].defined && iequals(table_[i].upper, name)) return static_cast<int>(i);
    }
    return -1;
}

const Level &LevelTable::get(int level) const {
    if (level >= 0 && level < kLevelCount && table_[static_cast<size_t>(level)].defined) {
        return table_[static_cast<size_t>(level)];
    }
    return table_[kUnknownLevel];
}

}  // namespace zl
