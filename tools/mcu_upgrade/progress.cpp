#include "mcu_upgrade/progress.h"

#include <chrono>

#include "isp.h"

namespace mcu_upgrade {

namespace {
constexpr int kWidth = 40;
constexpr auto kPollInterval = std::chrono::milliseconds(50);
}  // namespace

int ProgressBar::percent(int counter) {
    if (counter <= 10) return 0;
    if (counter >= 90) return 100;
    return (counter - 10) * 100 / 80;
}

void ProgressBar::draw(int pct) {
    if (pct == last_) return;
    last_ = pct;
    char bar[kWidth + 1];
    const int filled = pct * kWidth / 100;
    for (int i = 0; i < kWidth; ++i)
        bar[i] = i < filled ? '#' : '.';
    bar[kWidth] = 0;
    fprintf(out_, "\r[%s] %3d%%", bar, pct);
    fflush(out_);
}

void ProgressBar::start() {
    mcu_isp_cnt_clear();
    stop_ = false;
    draw(0);
    thread_ = std::thread([this] {
        while (!stop_.load()) {
            draw(percent(mcu_isp_cnt()));
            std::this_thread::sleep_for(kPollInterval);
        }
    });
}

void ProgressBar::finish(bool completed) {
    if (!thread_.joinable()) return;
    stop_ = true;
    thread_.join();
    if (completed) draw(100);
    fputc('\n', out_);
    fflush(out_);
}

}  // namespace mcu_upgrade
