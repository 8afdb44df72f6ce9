// Serial: the frame cutter fed in-process with whole reply frames (no request waits for
// them, so each is cut, looked up and skipped), then acknowledged reads over a pty served
// by the simulator (or by PtyBoard when the context says "thread").
#include <memory>
#include <vector>

#include "cases.h"
#include "chassis.h"
#include "requests.h"
#include "serial_device.h"

namespace bench {

namespace {

constexpr int32_t kSerialChannel = 0;
constexpr size_t kStreamBuf = 65535;

std::vector<uint8_t> reply_frame(uint16_t label, size_t data_len) {
    std::vector<uint8_t> f(32 + data_len, 0);
    f[0] = 0xBB;
    f[1] = 0x55;
    f[5] = 1;
    f[6] = static_cast<uint8_t>(label);
    f[7] = static_cast<uint8_t>(label >> 8);
    f[8] = static_cast<uint8_t>((f.size() - 10) & 0xFF);
    f[9] = static_cast<uint8_t>((f.size() - 10) >> 8);
    f[28] = static_cast<uint8_t>(data_len);
    f[29] = static_cast<uint8_t>(data_len >> 8);
    return f;
}

// Cutter throughput for frames carrying `data_len` bytes.
void cutter(const CaseContext &ctx, Metrics &m, size_t data_len, const std::string &key) {
    std::vector<uint8_t> stream;
    const size_t frame_len = reply_frame(0, data_len).size();
    size_t frames = 0;
    for (uint16_t l = 0x8000; stream.size() + frame_len <= kStreamBuf; ++l, ++frames) {
        const auto f = reply_frame(l, data_len);
        stream.insert(stream.end(), f.begin(), f.end());
    }
    std::vector<uint8_t> work(stream.size());
    uint64_t calls = 0;
    const uint64_t t0 = now_ns();
    const uint64_t until = t0 + static_cast<uint64_t>(ctx.seconds / 2 * 1e9);
    uint64_t t = t0;
    while (t < until) {
        for (int i = 0; i < 16; ++i, ++calls) {
            work = stream;  // the thread reads into its buffer the same way
            sdk_uart_recv_manage(work.data(), static_cast<uint32_t>(work.size()), kSerialChannel);
        }
        t = now_ns();
    }
    const double secs = static_cast<double>(t - t0) / 1e9;
    m[key + "frames_per_s"] = static_cast<double>(calls * frames) / secs;
    m[key + "mb_per_s"] = static_cast<double>(calls * stream.size()) / secs / 1e6;
}

}  // namespace

int case_serial(const CaseContext &ctx, Metrics &m) {
    std::unique_ptr<PtyBoard> device;
    std::string config = ctx.serial_config;
    if (ctx.serial_device == "thread") {
        device = std::make_unique<PtyBoard>();
        if (!device->ok()) return 1;
        config = ctx.out_dir + "/serial_thread.json";
        if (!write_file(config, serial_chassis_json(device->slave_path()))) return 1;
    }
    if (!start_engine(ctx, config, 0)) return 1;

    cutter(ctx, m, kReadLen, "cut_small_");
    cutter(ctx, m, 1024, "cut_1k_");

    char rbuf[SDK_DATA_BUF_LEN];
    auto one = [&rbuf]() {
        transfer_op_t op = mcu_read();
        if (sdk_request(nullptr, 0, &op) != 0) return false;
        return sdk_request_wait(rbuf, &op) == static_cast<int32_t>(kReadLen);
    };
    LoopResult r = timed_loop(ctx.seconds, 20, 100000, one);
    m["pty_rate"] = static_cast<double>(r.lat.size()) / (static_cast<double>(r.wall_ns) / 1e9);
    m["pty_p50_us"] = r.lat.percentile_us(50);
    m["pty_p99_us"] = r.lat.percentile_us(99);
    m["pty_errors"] = static_cast<double>(r.errors);
    m["device_is_simulator"] = ctx.serial_device == "thread" ? 0 : 1;
    return r.errors > r.lat.size() / 100 ? 1 : 0;
}

}  // namespace bench
