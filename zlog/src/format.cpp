// Compiling a format pattern into a list of conversions.
#include "format.h"

#include <unistd.h>

#include <cstdlib>

namespace zl {

namespace {

constexpr int kMaxWidth = 4096;

bool fail(std::string &err, std::string message) {
    err = std::move(message);
    return false;
}

std::unique_ptr<Format> none(std::string &err, const char *message) {
    err = message;
    return nullptr;
}

// Reads "(text)" at p[i]; advances i past the ')'.
bool read_argument(std::string_view p, size_t &i, std::string &arg) {
    if (i >= p.size() || p[i] != '(') return false;
    size_t close = p.find(')', i + 1);
    if (close == std::string_view::npos) return false;
    arg.assign(p.substr(i + 1, close - i - 1));
    i = close + 1;
    return true;
}

bool read_number(std::string_view p, size_t &i, int &out) {
    size_t start = i;
    long v = 0;
    while (i < p.size() && p[i] >= '0' && p[i] <= '9') {
        v = v * 10 + (p[i] - '0');
        if (v > kMaxWidth) return false;
        ++i;
    }
    out = static_cast<int>(v);
    return i > start;
}

bool simple_conversion(char c, Conv &conv) {
    switch (c) {
        case 'c':
            conv = Conv::Category;
            return true;
        case 'n':
            conv = Conv::Newline;
            return true;
        case 'V':
            conv = Conv::LevelUpper;
            return true;
        case 'v':
            conv = Conv::LevelLower;
            return true;
        case 'F':
            conv = Conv::File;
            return true;
        case 'f':
            conv = Conv::FileBase;
            return true;
        case 'L':
            conv = Conv::Line;
            return true;
        case 'U':
            conv = Conv::Func;
            return true;
        case 'p':
            conv = Conv::Pid;
            return true;
        case 't':
            conv = Conv::TidHex;
            return true;
        case 'T':
            conv = Conv::TidDec;
            return true;
        case 'k':
            conv = Conv::KernelTid;
            return true;
        default:
            return false;
    }
}

// Parses the conversion at p[i] (just after '%' and its modifiers) into decl.
bool parse_conversion(std::string_view p, size_t &i, Conversion &decl, std::string &err) {
    char c = p[i++];
    bool has_next = i < p.size();
    if (c == 'd') {
        decl.conv = Conv::Time;
        decl.text = "%F %T";
        if (has_next && p[i] == '(') {
            if (!read_argument(p, i, decl.text)) return fail(err, "unclosed %d(");
            if (decl.text.empty()) decl.text = "%F %T";
        }
    } else if (c == 'm') {
        decl.conv = Conv::Message;
        if (has_next && p[i] == 's') {
            decl.conv = Conv::Msec;
            ++i;
        }
    } else if (c == 'u' && has_next && p[i] == 's') {
        decl.conv = Conv::Usec;
        ++i;
    } else if (c == 'M') {
        decl.conv = Conv::Mdc;
        if (!read_argument(p, i, decl.text) || decl.text.empty()) {
            return fail(err, "%M needs (key)");
        }
    } else if (c == 'E') {
        std::string var;
        if (!read_argument(p, i, var) || var.empty()) return fail(err, "%E needs (VAR)");
        const char *value = std::getenv(var.c_str());
        decl.conv = Conv::Literal;
        decl.text = value != nullptr ? value : "";
    } else if (c == 'H') {
        char host[256] = {};
        if (gethostname(host, sizeof(host) - 1) != 0) host[0] = '\0';
        decl.conv = Conv::Literal;
        decl.text = host;
    } else if (!simple_conversion(c, decl.conv)) {
        return fail(err, std::string("unknown conversion %") + c);
    }
    return true;
}

}  // namespace

std::unique_ptr<Format> Format::compile(std::string_view p, std::string &err) {
    auto fmt = std::make_unique<Format>();
    std::string literal;
    size_t i = 0;
    while (i < p.size()) {
        if (p[i] != '%') {
            literal += p[i++];
            continue;
        }
        if (++i >= p.size()) return none(err, "format ends with '%'");
        if (p[i] == '%') {
            literal += '%';
            ++i;
            continue;
        }
        Conversion decl;
        if (p[i] == '-') {
            decl.left = true;
            ++i;
        }
        size_t width_start = i;
        if (!read_number(p, i, decl.width) && i != width_start) return none(err, "width too large");
        if (i < p.size() && p[i] == '.') {
            ++i;
            if (!read_number(p, i, decl.precision)) return none(err, "bad precision");
        }
        if (i >= p.size()) return none(err, "format ends inside a conversion");
        if (!parse_conversion(p, i, decl, err)) return nullptr;
        if (decl.conv == Conv::Literal) {
            // %E and %H: constant text; apply the modifiers once here.
            if (decl.precision >= 0 && decl.text.size() > static_cast<size_t>(decl.precision)) {
                decl.text.resize(static_cast<size_t>(decl.precision));
            }
            size_t width = static_cast<size_t>(decl.width);
            if (decl.text.size() < width) {
                std::string pad(width - decl.text.size(), ' ');
                decl.text = decl.left ? decl.text + pad : pad + decl.text;
            }
            literal += decl.text;
            continue;
        }
        if (!literal.empty()) {
            Conversion lit;
            lit.text.swap(literal);
            fmt->conversions_.push_back(std::move(lit));
        }
        fmt->conversions_.push_back(std::move(decl));
    }
    if (!literal.empty()) {
        Conversion lit;
        lit.text.swap(literal);
        fmt->conversions_.push_back(std::move(lit));
    }
    return fmt;
}

bool Format::is_constant() const {
    for (const Conversion &s : conversions_) {
        if (s.conv != Conv::Literal) return false;
    }
    return true;
}

}  // namespace zl
