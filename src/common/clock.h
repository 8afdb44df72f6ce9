// The engine's one clock. Time-outs, write-waits and polling intervals are elapsed times,
// so they are measured on the monotonic clock: a controller that sets its wall clock after
// boot (RTC, NTP) must neither time out every pending request at once nor let one wait far
// past its time-out. The request records keep their time stamps as timeval values of this
// clock; only log lines print dates from the wall clock.
#pragma once

#include <pthread.h>
#include <sys/time.h>
#include <time.h>

#include <cstdint>

namespace sdk {

// A condition variable whose timed waits run on the monotonic clock.
class MonotonicCond {
  public:
    MonotonicCond() {
        pthread_condattr_t attr;
        pthread_condattr_init(&attr);
        pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
        pthread_cond_init(&cond_, &attr);
        pthread_condattr_destroy(&attr);
    }
    MonotonicCond(const MonotonicCond &) = delete;
    MonotonicCond &operator=(const MonotonicCond &) = delete;
    pthread_cond_t *get() { return &cond_; }

  private:
    pthread_cond_t cond_{};
};

// "Now" for every elapsed-time measure of the engine.
inline struct timeval clock_now() {
    struct timespec ts = {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    struct timeval tv = {};
    tv.tv_sec = ts.tv_sec;
    tv.tv_usec = ts.tv_nsec / 1000;
    return tv;
}

inline struct timeval clock_add_ms(struct timeval t, uint32_t n_ms) {
    t.tv_sec += static_cast<time_t>(n_ms / 1000);
    t.tv_usec += static_cast<suseconds_t>((n_ms % 1000) * 1000);
    if (t.tv_usec >= 1000000) {
        t.tv_sec += 1;
        t.tv_usec -= 1000000;
    }
    return t;
}

// A deadline n_ms from now for the timed waits of condition variables whose clock is
// CLOCK_MONOTONIC (pthread_condattr_setclock).
inline struct timespec deadline_in_ms(uint32_t n_ms) {
    struct timespec t = {};
    clock_gettime(CLOCK_MONOTONIC, &t);
    t.tv_sec += static_cast<time_t>(n_ms / 1000);
    t.tv_nsec += static_cast<long>(n_ms % 1000) * 1000000L;
    if (t.tv_nsec >= 1000000000L) {
        t.tv_sec += 1;
        t.tv_nsec -= 1000000000L;
    }
    return t;
}

// Milliseconds since `since`, in unsigned 32-bit arithmetic with each microsecond part
// truncated first, so that every caller counts an attempt's time the same way.
inline uint32_t elapsed_ms(const struct timeval &since) {
    const struct timeval now = clock_now();
    return 1000u * static_cast<uint32_t>(now.tv_sec - since.tv_sec) +
           static_cast<uint32_t>(now.tv_usec / 1000) - static_cast<uint32_t>(since.tv_usec / 1000);
}

// Microseconds since `since`, in unsigned 32-bit arithmetic.
inline uint32_t elapsed_us(const struct timeval &since) {
    const struct timeval now = clock_now();
    return 1000000u * static_cast<uint32_t>(now.tv_sec - since.tv_sec) +
           static_cast<uint32_t>(now.tv_usec) - static_cast<uint32_t>(since.tv_usec);
}

}  // namespace sdk
