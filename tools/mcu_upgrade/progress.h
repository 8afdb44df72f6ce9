// A live progress bar fed by the programmer's progress counter (mcu_isp_cnt), polled from
// a thread of its own while the programming run blocks the main thread.
#pragma once

#include <atomic>
#include <cstdio>
#include <thread>

namespace mcu_upgrade {

class ProgressBar {
  public:
    explicit ProgressBar(FILE *out) : out_(out) {}
    ~ProgressBar() { finish(false); }
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

    void start();
    // Stops polling; a completed run is drawn at 100 %, then the line is ended.
    void finish(bool completed);

    // The share of the write done, in percent, for a counter value: the counter is 10
    // while the bootloader is synchronised and erased and rises to 90 during the write.
    static int percent(int counter);

  private:
    void draw(int percent);

    FILE *out_;
    std::thread thread_;
    std::atomic<bool> stop_{false};
    int last_ = -1;
};

}  // namespace mcu_upgrade
