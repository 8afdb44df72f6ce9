#include "event.h"

#include <cstdio>

namespace zl {

const std::string &Event::message() {
    if (message_ != nullptr) return *message_;
    thread_local std::string buf;
    if (fmt_ == nullptr) {
        buf.clear();
    } else {
        // The buffer keeps its capacity between calls: usually one vsnprintf.
        if (buf.capacity() < 256) buf.reserve(256);
        buf.resize(buf.capacity());
        // The analyzer does not follow a va_list held by pointer.
        // NOLINTBEGIN(clang-analyzer-valist.Uninitialized)
        va_list ap;
        va_copy(ap, *args_);
        int n = std::vsnprintf(&buf[0], buf.size() + 1, fmt_, ap);
        va_end(ap);
        if (n < 0) {
            n = 0;
        } else if (static_cast<size_t>(n) > buf.size()) {
            buf.resize(static_cast<size_t>(n));
            va_copy(ap, *args_);
            std::vsnprintf(&buf[0], buf.size() + 1, fmt_, ap);
            va_end(ap);
        }
        // NOLINTEND(clang-analyzer-valist.Uninitialized)
        buf.resize(static_cast<size_t>(n));
    }
    message_ = &buf;
    return buf;
}

const timespec &Event::now() {
    if (!have_now_) {
        clock_gettime(CLOCK_REALTIME, &now_);
        have_now_ = true;
    }
    return now_;
}

const struct tm &Event::local_time() {
    if (tm_ == nullptr) {
        // localtime_r is not cheap; a thread reuses its result within one second.
        thread_local time_t cached_sec = static_cast<time_t>(-1);
        thread_local struct tm cached_tm {};
        time_t sec = now().tv_sec;
        if (sec != cached_sec) {
            localtime_r(&sec, &cached_tm);
            cached_sec = sec;
        }
        tm_ = &cached_tm;
    }
    return *tm_;
}

}  // namespace zl
