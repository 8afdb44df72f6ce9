// A serial board on a pseudo-terminal. The library opens the slave end as its serial port
// (through a symbolic link, so that a configuration file can name a fixed path); the board
// reads and writes the master end. Requests are cut out of the byte stream; replies are
// written with the delimiter bytes in the order the library's serial receiver looks for
// (0xBB first), optionally in random pieces and after random noise.
#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <random>
#include <vector>

#include "board_sim/frame.h"
#include "board_sim/transport.h"
#include "common/bytes.h"

namespace board_sim {

namespace {

// Longest request the library builds: headers, receiving-card body and 9000 data bytes.
constexpr size_t kMaxRequest = kRvcardFrameMin + kMaxData;
constexpr size_t kReadChunk = 4096;
constexpr uint8_t kNoiseAvoid = 0xBB;  // noise ending in 0xBB would swallow the next 0xBB

bool is_start(const uint8_t *p) {
    return (p[0] == 0x55 && p[1] == 0xBB) || (p[0] == 0xBB && p[1] == 0x55);
}

void pause_us(long us) {
    timespec ts{0, us * 1000};
    nanosleep(&ts, nullptr);
}

class PtyTransport : public Transport {
  public:
    PtyTransport(int master, int slave, std::string link, const SerialOptions &options)
        : master_(master),
          slave_(slave),
          link_(std::move(link)),
          options_(options),
          rng_(options.seed) {}
    ~PtyTransport() override {
        unlink(link_.c_str());
        close(master_);
        close(slave_);
    }
    PtyTransport(const PtyTransport &) = delete;
    PtyTransport &operator=(const PtyTransport &) = delete;

    int fd() const override { return master_; }

    void receive(const FrameSink &sink) override {
        uint8_t chunk[kReadChunk];
        ssize_t n;
        while ((n = read(master_, chunk, sizeof chunk)) > 0)
            stream_.insert(stream_.end(), chunk, chunk + n);
        cut(sink);
    }

    bool send(const uint8_t *frame, size_t n, const sockaddr_in &) override {
        std::vector<uint8_t> out;
        if (roll(options_.noise_pct)) {
            size_t count = 1 + rng_() % 8;
            for (size_t i = 0; i < count; ++i) {
                auto b = static_cast<uint8_t>(rng_());
                out.push_back(b == kNoiseAvoid ? 0 : b);
            }
            ++noise_;
        }
        size_t start = out.size();
        out.insert(out.end(), frame, frame + n);
        if (n >= 2) {
            out[start] = 0xBB;  // the byte sum, and so the checksum, is unchanged
            out[start + 1] = 0x55;
        }
        if (!options_.split) return write_all(out.data(), out.size());
        size_t off = 0;
        while (off < out.size()) {
            size_t piece = std::min(out.size() - off, static_cast<size_t>(1 + rng_() % 48));
            if (!write_all(out.data() + off, piece)) return false;
            off += piece;
            if (off < out.size()) pause_us(static_cast<long>(100 + rng_() % 400));
        }
        return true;
    }

    std::string name() const override { return "pty " + link_; }
    uint64_t noise_bursts() const override { return noise_; }

  private:
    bool roll(double pct) { return static_cast<double>(rng_() % 1000000) < pct * 10000.0; }

    bool write_all(const uint8_t *p, size_t n) {
        while (n > 0) {
            ssize_t w = write(master_, p, n);
            if (w < 0 && errno == EAGAIN) {
                pause_us(500);  // the line is full: the library is not reading yet
                continue;
            }
            if (w <= 0) return false;
            p += w;
            n -= static_cast<size_t>(w);
        }
        return true;
    }

    // Hands every complete request to `sink`; noise and impossible headers are skipped a
    // byte at a time, an incomplete frame stays for the next read.
    void cut(const FrameSink &sink) {
        size_t off = 0;
        const sockaddr_in nobody{};
        while (stream_.size() - off >= 2) {
            if (!is_start(&stream_[off])) {
                ++off;
                continue;
            }
            if (stream_.size() - off < kFrameHeaderLen) break;
            size_t len = sdk::get_le16(&stream_[off + 8]) + kFrameHeaderLen;
            if (len > kMaxRequest || len < kFrameHeaderLen + 12) {
                ++off;
                continue;
            }
            if (stream_.size() - off < len) break;
            sink(&stream_[off], len, nobody);
            off += len;
        }
        stream_.erase(stream_.begin(), stream_.begin() + static_cast<std::ptrdiff_t>(off));
    }

    int master_;
    int slave_;
    std::string link_;
    SerialOptions options_;
    std::mt19937 rng_;
    std::vector<uint8_t> stream_;
    uint64_t noise_ = 0;
};

}  // namespace

std::unique_ptr<Transport> open_pty(const std::string &link, const SerialOptions &options,
                                    std::string *error) {
    int master = -1;
    int slave = -1;
    char path[128] = {};
    termios raw{};
    cfmakeraw(&raw);
    if (openpty(&master, &slave, path, &raw, nullptr) != 0) {
        *error = std::string("openpty: ") + strerror(errno);
        return nullptr;
    }
    // The board keeps the slave open too, so the master never sees a hang-up while the
    // library opens, configures and reopens the port.
    fcntl(master, F_SETFL, fcntl(master, F_GETFL) | O_NONBLOCK);
    fcntl(master, F_SETFD, FD_CLOEXEC);
    fcntl(slave, F_SETFD, FD_CLOEXEC);
    unlink(link.c_str());
    if (symlink(path, link.c_str()) != 0) {
        *error = "symlink " + link + " -> " + path + ": " + strerror(errno);
        close(master);
        close(slave);
        return nullptr;
    }
    return std::make_unique<PtyTransport>(master, slave, link, options);
}

}  // namespace board_sim
