#include "output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>

#include "format.h"
#include "rotate.h"

namespace zl {

namespace {

void write_all(int fd, const char *data, size_t len) {
    while (len > 0) {
        ssize_t n = ::write(fd, data, len);
        if (n < 0) {
            if (errno == EINTR) continue;
            return;  // nowhere to report it: the line is lost
        }
        data += n;
        len -= static_cast<size_t>(n);
    }
}

int open_append(const std::string &path, bool sync, unsigned perms) {
    int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | (sync ? O_SYNC : 0);
    int fd;
    do {
        fd = ::open(path.c_str(), flags, static_cast<mode_t>(perms));
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Standard output or error. All rules writing to one stream share its lock.
class StreamOutput : public Output {
  public:
    explicit StreamOutput(int fd) : fd_(fd) {}
    void write(const std::string &line, Event &) override {
        static std::mutex locks[2];
        std::lock_guard<std::mutex> lock(locks[fd_ == STDERR_FILENO ? 1 : 0]);
        write_all(fd_, line.data(), line.size());
    }

  private:
    int fd_;
};

// A file whose path is fixed. Opened once; reopened when the path no longer names the
// open file (moved away by logrotate, say), checked at most once a second; rotated when
// it has a size limit.
class FileOutput : public Output {
  public:
    FileOutput(std::string path, bool sync, unsigned perms, int fd,
               std::unique_ptr<Rotation> rotation)
        : path_(std::move(path)),
          sync_(sync),
          perms_(perms),
          fd_(fd),
          rotation_(std::move(rotation)) {
        remember_identity();
    }
    ~FileOutput() override {
        if (fd_ >= 0) ::close(fd_);
    }
    void write(const std::string &line, Event &ev) override {
        std::lock_guard<std::mutex> lock(mu_);
        check_path();
        if (rotation_ && fd_ >= 0 && rotation_->due(size_, line.size())) {
            rotation_->rotate(ev);
            reopen();
        }
        if (fd_ < 0) return;
        write_all(fd_, line.data(), line.size());
        size_ += static_cast<long long>(line.size());
    }

  private:
    void remember_identity() {
        struct stat st {};
        if (fd_ >= 0 && fstat(fd_, &st) == 0) {
            dev_ = st.st_dev;
            ino_ = st.st_ino;
            size_ = st.st_size;
        }
    }
    void reopen() {
        int fd = open_append(path_, sync_, perms_);
        if (fd < 0) return;  // keep writing to the old file
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
        remember_identity();
    }
    void check_path() {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
        if (fd_ >= 0 && now.tv_sec == last_check_) return;
        last_check_ = now.tv_sec;
        struct stat st {};
        if (fd_ >= 0 && ::stat(path_.c_str(), &st) == 0 && st.st_dev == dev_ && st.st_ino == ino_) {
            size_ = st.st_size;  // other writers may have added to it
            return;
        }
        reopen();
    }

    std::mutex mu_;
    const std::string path_;
    const bool sync_;
    const unsigned perms_;
    int fd_;
    std::unique_ptr<Rotation> rotation_;
    dev_t dev_ = 0;
    ino_t ino_ = 0;
    long long size_ = 0;
    time_t last_check_ = 0;
};

// A file whose path holds conversions (%c, %d(...), %M(key)...): the path is rendered for
// each line and the file opened, appended to and closed, as zlog does.
class DynamicFileOutput : public Output {
  public:
    DynamicFileOutput(std::unique_ptr<Format> path, bool sync, unsigned perms)
        : path_(std::move(path)), sync_(sync), perms_(perms) {}
    void write(const std::string &line, Event &ev) override {
        thread_local std::string path;
        path.clear();
        path_->render(ev, path);
        int fd = open_append(path, sync_, perms_);
        if (fd < 0) return;
        write_all(fd, line.data(), line.size());
        ::close(fd);
    }

  private:
    std::unique_ptr<Format> path_;
    const bool sync_;
    const unsigned perms_;
};

class SyslogOutput : public Output {
  public:
    explicit SyslogOutput(int facility) : facility_(facility) {}
    void write(const std::string &line, Event &ev) override {
        ::syslog(facility_ | ev.levels.get(ev.level).syslog, "%s", line.c_str());
    }

  private:
    int facility_;
};

// Pipe and record outputs are accepted but not supported: their lines are dropped.
class NullOutput : public Output {
  public:
    void write(const std::string &, Event &) override {}
};

std::unique_ptr<Output> open_file(const OutputDecl &decl, unsigned perms, std::string &err) {
    std::unique_ptr<Format> path = Format::compile(decl.target, err);
    if (!path) return nullptr;
    if (!path->is_constant()) {
        return std::make_unique<DynamicFileOutput>(std::move(path), decl.sync, perms);
    }
    // A constant path (its %E(VAR) and %% already resolved): render it once.
    LevelTable levels;
    Event ev("", "", "", 0, 0, nullptr, nullptr, levels);
    std::string resolved;
    path->render(ev, resolved);
    std::unique_ptr<Rotation> rotation;
    if (decl.rotate_size > 0) {
        rotation = Rotation::create(resolved, decl.rotate_size, decl.rotate_count,
                                    decl.rotate_pattern, err);
        if (!rotation) return nullptr;
    }
    int fd = open_append(resolved, decl.sync, perms);
    if (fd < 0) {
        err = "cannot open \"" + resolved + "\": " + std::strerror(errno);
        return nullptr;
    }
    return std::make_unique<FileOutput>(resolved, decl.sync, perms, fd, std::move(rotation));
}

}  // namespace

std::string OutputDecl::key() const {
    std::string k = std::to_string(static_cast<int>(kind)) + (sync ? "s" : "-");
    if (kind == Kind::Syslog) k += std::to_string(facility);
    return k + ":" + target;
}

std::unique_ptr<Output> open_output(const OutputDecl &decl, unsigned perms, std::string &err) {
    switch (decl.kind) {
        case OutputDecl::Kind::File:
            return open_file(decl, perms, err);
        case OutputDecl::Kind::Stdout:
            return std::make_unique<StreamOutput>(STDOUT_FILENO);
        case OutputDecl::Kind::Stderr:
            return std::make_unique<StreamOutput>(STDERR_FILENO);
        case OutputDecl::Kind::Syslog:
            return std::make_unique<SyslogOutput>(decl.facility);
        case OutputDecl::Kind::Pipe:
        case OutputDecl::Kind::Record:
            return std::make_unique<NullOutput>();
    }
    return nullptr;
}

}  // namespace zl
