// A serial board played by the benchmark itself on the master side of a new
// pseudo-terminal, for when the simulator cannot serve one: it cuts request frames out
// of the byte stream, lets the simulator's board answer them and writes the replies with
// the delimiter bytes in serial order (0xBB first).
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "board_sim/board.h"

namespace bench {

class PtyBoard {
  public:
    PtyBoard();
    ~PtyBoard();
    PtyBoard(const PtyBoard &) = delete;
    PtyBoard &operator=(const PtyBoard &) = delete;

    bool ok() const { return master_ >= 0; }
    const std::string &slave_path() const { return slave_path_; }

  private:
    void run();

    int master_ = -1;
    int slave_ = -1;  // kept open so the line never hangs up
    std::string slave_path_;
    board_sim::Board board_;
    board_sim::Stats stats_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace bench
