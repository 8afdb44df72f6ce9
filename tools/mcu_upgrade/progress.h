// A live progress bar fed by one of the programmer's progress counters (mcu_isp_cnt for the
// write, mcu_isp_verify_cnt for the read-back), polled from a thread of its own while the
// programmer blocks the main thread.
#pragma once

#include <atomic>
#include <cstdio>
#include <thread>

#include "isp.h"

namespace mcu_upgrade {

// A counter of the programmer and the values it runs between while its work is done.
struct ProgressCounter {
    int (*read)(void);
    int (*clear)(void);
    int from;
    int to;
};

// mcu_isp_cnt is 10 while the bootloader is synchronised and erased and rises to 90 during
// the write; mcu_isp_verify_cnt is the share read back in percent.
constexpr ProgressCounter kWriteCounter{mcu_isp_cnt, mcu_isp_cnt_clear, 10, 90};
constexpr ProgressCounter kVerifyCounter{mcu_isp_verify_cnt, mcu_isp_verify_cnt_clear, 0, 100};

class ProgressBar {
  public:
    // label stands before the bar ("write ", "verify").
    ProgressBar(FILE *out, const char *label, ProgressCounter counter)
        : out_(out), label_(label), counter_(counter) {}
    ~ProgressBar() { finish(false); }
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

    void start();
    // Stops polling; the bar is drawn at 100 % for a completed run, else where the counter
    // stopped, then the line is ended.
    void finish(bool completed);

    // The share of the work done, in percent, for a counter value.
    int percent(int value) const;

  private:
    void draw(int percent);

    FILE *out_;
    const char *label_;
    ProgressCounter counter_;
    std::thread thread_;
    std::atomic<bool> stop_{false};
    int last_ = -1;
};

}  // namespace mcu_upgrade
