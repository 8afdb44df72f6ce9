// The receive threads' wake pipes: a non-blocking pipe per thread, in its select set. A
// byte written makes the thread leave select and build its descriptor set again (a
// channel was opened, or the host asks for the serial lines).
#include <fcntl.h>
#include <unistd.h>

#include <mutex>

#include "channel/channel_fds.h"

namespace sdk {

namespace {

struct Pipes {
    int fds[3][2] = {{-1, -1}, {-1, -1}, {-1, -1}};
};

// Made once, on first use by any thread; never closed while the process runs.
const Pipes &pipes() {
    static Pipes p;
    static std::once_flag once;
    std::call_once(once, [] {
        for (auto &fd : p.fds) {
            if (pipe2(fd, O_NONBLOCK | O_CLOEXEC) != 0) fd[0] = fd[1] = -1;
        }
    });
    return p;
}

int read_end(Receiver r) {
    return pipes().fds[static_cast<int>(r)][0];
}

}  // namespace

void wake_pipe_add(Receiver r, fd_set *p_set, int *p_max_fd) {
    const int n_fd = read_end(r);
    if (n_fd < 0 || n_fd >= FD_SETSIZE) return;
    FD_SET(n_fd, p_set);
    if (n_fd > *p_max_fd) *p_max_fd = n_fd;
}

bool wake_pipe_taken(Receiver r, const fd_set &set) {
    const int n_fd = read_end(r);
    if (n_fd < 0 || n_fd >= FD_SETSIZE || !FD_ISSET(n_fd, &set)) return false;
    wake_pipe_drain(r);
    return true;
}

int wake_pipe_fd(Receiver r) {
    return read_end(r);
}

void wake_pipe_drain(Receiver r) {
    char sink[64];
    while (read(read_end(r), sink, sizeof sink) > 0) {
    }
}

void wake_receiver(Receiver r) {
    const int n_fd = pipes().fds[static_cast<int>(r)][1];
    if (n_fd < 0) return;
    const char c = 1;
    ssize_t ignored = write(n_fd, &c, 1);  // a full pipe already wakes the thread
    (void)ignored;
}

}  // namespace sdk
