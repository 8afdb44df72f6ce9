// Rendering a compiled format for one event.
#include "format.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "mdc.h"

namespace zl {

namespace {

void append_number(std::string &out, const char *fmt, unsigned long v) {
    char buf[32];
    int n = std::snprintf(buf, sizeof(buf), fmt, v);
    if (n > 0) out.append(buf, static_cast<size_t>(n));
}

void append_time(std::string &out, const std::string &pattern, const struct tm &tm) {
    char buf[512];
    size_t n = std::strftime(buf, sizeof(buf), pattern.c_str(), &tm);
    out.append(buf, n);
}

std::string_view base_name(std::string_view path) {
    size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

long kernel_tid() {
    thread_local long tid = static_cast<long>(syscall(SYS_gettid));
    return tid;
}

void append_conversion(const Conversion &s, Event &ev, std::string &out) {
    switch (s.conv) {
        case Conv::Literal:
            out += s.text;
            break;
        case Conv::Time:
            append_time(out, s.text, ev.local_time());
            break;
        case Conv::Msec: {
            char buf[8];
            int n = std::snprintf(buf, sizeof(buf), "%03ld", ev.now().tv_nsec / 1000000);
            out.append(buf, static_cast<size_t>(n));
            break;
        }
        case Conv::Usec: {
            char buf[12];
            int n = std::snprintf(buf, sizeof(buf), "%06ld", ev.now().tv_nsec / 1000);
            out.append(buf, static_cast<size_t>(n));
            break;
        }
        case Conv::Category:
            out += ev.category;
            break;
        case Conv::Message:
            out += ev.message();
            break;
        case Conv::Newline:
            out += '\n';
            break;
        case Conv::LevelUpper:
            out += ev.levels.get(ev.level).upper;
            break;
        case Conv::LevelLower:
            out += ev.levels.get(ev.level).lower;
            break;
        case Conv::File:
            out += ev.file;
            break;
        case Conv::FileBase:
            out += base_name(ev.file);
            break;
        case Conv::Line:
            append_number(out, "%lu", static_cast<unsigned long>(ev.line));
            break;
        case Conv::Func:
            out += ev.func;
            break;
        case Conv::Pid:
            append_number(out, "%lu", static_cast<unsigned long>(getpid()));
            break;
        case Conv::TidHex:
            append_number(out, "%lx", static_cast<unsigned long>(pthread_self()));
            break;
        case Conv::TidDec:
            append_number(out, "%lu", static_cast<unsigned long>(pthread_self()));
            break;
        case Conv::KernelTid:
            append_number(out, "%lu", static_cast<unsigned long>(kernel_tid()));
            break;
        case Conv::Mdc: {
            const std::string *value = mdc::find(s.text);
            if (value != nullptr) out += *value;
            break;
        }
    }
}

}  // namespace

void Format::render(Event &ev, std::string &out) const {
    for (const Conversion &s : conversions_) {
        if (s.width == 0 && s.precision < 0) {
            append_conversion(s, ev, out);
            continue;
        }
        size_t start = out.size();
        append_conversion(s, ev, out);
        size_t len = out.size() - start;
        if (s.precision >= 0 && len > static_cast<size_t>(s.precision)) {
            len = static_cast<size_t>(s.precision);
            out.resize(start + len);
        }
        size_t width = static_cast<size_t>(s.width);
        if (len < width) {
            if (s.left) {
                out.append(width - len, ' ');
            } else {
                out.insert(start, width - len, ' ');
            }
        }
    }
}

}  // namespace zl
