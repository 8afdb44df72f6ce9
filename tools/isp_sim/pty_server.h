// Serves a simulated bootloader on the master side of a pseudo-terminal, so that any
// serial client (the project's programmer behind host read/write functions, the upgrade
// tool, stm32flash with "-b 0") can open the slave path like a real port.
//
// The slave is put in raw mode and kept open by the server, so its settings survive
// between clients and a client may close and reopen it. run() serves in the calling
// thread until stop(); start() serves in a thread of its own. Accessors lock and copy.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "isp_sim/bootloader.h"

namespace isp_sim {

class PtyServer {
  public:
    explicit PtyServer(Config cfg = Config());
    ~PtyServer();
    PtyServer(const PtyServer &) = delete;
    PtyServer &operator=(const PtyServer &) = delete;

    // Opens the pseudo-terminal; false (errno set) when it cannot.
    bool open();
    const std::string &slave_path() const { return slave_path_; }

    void run();
    void start();
    // Ends run() and joins the thread of start().
    void stop();
    // Async-signal-safe (a flag and a pipe write): ends run() soon after.
    void request_stop();

    // Where dump requests write the flash (request_dump, and the dump at the end of run).
    void set_dump_path(const std::string &path) { dump_path_ = path; }
    // Async-signal-safe: the serving loop dumps the flash and prints "dumped <path>".
    void request_dump();
    // run() also ends when the process's parent is no longer this pid.
    void watch_parent(pid_t parent) { parent_ = parent; }

    std::vector<uint8_t> flash() const;
    std::vector<uint8_t> received() const;
    std::vector<WriteRecord> writes() const;
    Stats stats() const;

  private:
    void wake();
    void dump();

    mutable std::mutex lock_;
    Bootloader bootloader_;  // guarded by lock_
    int master_ = -1;
    int slave_ = -1;
    int wake_pipe_[2] = {-1, -1};
    std::string slave_path_;
    std::string dump_path_;
    pid_t parent_ = 0;
    std::atomic<bool> stop_{false};
    std::atomic<bool> dump_{false};
    std::thread thread_;
};

}  // namespace isp_sim
