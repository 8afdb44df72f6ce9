#include "mcu_upgrade/progress.h"

#include <chrono>

namespace mcu_upgrade {

namespace {
constexpr int kWidth = 40;
constexpr auto kPollInterval = std::chrono::milliseconds(50);
}  // namespace

int ProgressBar::percent(int value) const {
    if (value <= counter_.from) return 0;
    if (value >= counter_.to) return 100;
    return (value - counter_.from) * 100 / (counter_.to - counter_.from);
}

void ProgressBar::draw(int pct) {
    if (pct == last_) return;
    last_ = pct;
    char bar[kWidth + 1];
    const int filled = pct * kWidth / 100;
    for (int i = 0; i < kWidth; ++i)
        bar[i] = i < filled ? '#' : '.';
    bar[kWidth] = 0;
    fprintf(out_, "\r%s [%s] %3d%%", label_, bar, pct);
    fflush(out_);
}

void ProgressBar::start() {
    counter_.clear();
    stop_ = false;
    draw(0);
    thread_ = std::thread([this] {
        while (!stop_.load()) {
            draw(percent(counter_.read()));
            std::this_thread::sleep_for(kPollInterval);
        }
    });
}

void ProgressBar::finish(bool completed) {
    if (!thread_.joinable()) return;
    stop_ = true;
    thread_.join();
    draw(completed ? 100 : percent(counter_.read()));  // where a failed run stopped
    fputc('\n', out_);
    fflush(out_);
}

}  // namespace mcu_upgrade
