// The reference library: libmodbus reading 2 holding registers over Modbus/TCP on
// loopback, against a libmodbus server in a process of its own (as the engine's board
// simulator is), in the same sequential loop as the engine's reads (also with every core
// kept busy by hog processes). A server thread inside the measuring process would share
// its scheduling with the client and, under the hog, ran faster than on an idle machine.
#include <modbus/modbus.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "cases.h"

namespace bench {

namespace {

constexpr int kPort = 1502;
constexpr int kWarmup = 200;

void serve(modbus_t *ctx, modbus_mapping_t *map, int listen_fd) {
    int s = listen_fd;
    if (modbus_tcp_accept(ctx, &s) < 0) return;
    uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
    for (;;) {
        const int rc = modbus_receive(ctx, query);
        if (rc > 0) {
            modbus_reply(ctx, query, rc, map);
        } else if (rc == -1) {
            break;  // the client closed the connection
        }
    }
}

int run_modbus(const CaseContext &ctx, Metrics &m, bool hog) {
    modbus_t *server = modbus_new_tcp("127.0.0.1", kPort);
    modbus_mapping_t *map = modbus_mapping_new(0, 0, 16, 0);
    const int listen_fd = server != nullptr ? modbus_tcp_listen(server, 1) : -1;
    if (map == nullptr || listen_fd < 0) {
        fprintf(stderr, "bench: modbus server: %s\n", modbus_strerror(errno));
        return 1;
    }
    map->tab_registers[0] = 0x1234;
    map->tab_registers[1] = 0x5678;
    const pid_t child = fork();
    if (child < 0) {
        perror("bench: modbus server process");
        return 1;
    }
    if (child == 0) {
        place(0, Place::kPeer);
        serve(server, map, listen_fd);  // until the client closes its connection
        _exit(0);
    }
    const auto stop_server = [child] {
        kill(child, SIGTERM);
        waitpid(child, nullptr, 0);
    };

    modbus_t *client = modbus_new_tcp("127.0.0.1", kPort);
    if (client == nullptr || modbus_connect(client) != 0) {
        fprintf(stderr, "bench: modbus connect: %s\n", modbus_strerror(errno));
        stop_server();
        return 1;
    }
    uint16_t regs[2];
    CpuHogs hogs;
    if (hog && !start_hogs(&hogs, m)) {
        stop_server();
        return 1;
    }
    LoopResult r = timed_loop(ctx.seconds, kWarmup, 400000, [&] {
        return modbus_read_registers(client, 0, 2, regs) == 2 && regs[1] == 0x5678;
    });
    hogs.stop();
    Latencies &lat = r.lat;
    const uint64_t errors = r.errors;
    const uint64_t cpu = r.cpu_ns;
    modbus_close(client);  // ends the server's receive
    waitpid(child, nullptr, 0);
    modbus_free(client);
    close(listen_fd);
    modbus_close(server);
    modbus_free(server);
    modbus_mapping_free(map);

    const double secs = static_cast<double>(r.wall_ns) / 1e9;
    m["requests"] = static_cast<double>(lat.size());
    m["errors"] = static_cast<double>(errors);
    m["rate"] = static_cast<double>(lat.size()) / secs;
    m["p50_us"] = lat.percentile_us(50);
    m["p99_us"] = lat.percentile_us(99);
    m["slow_1ms_pct"] = lat.percent_at_least_us(1000);
    m["cpu_us_per_req"] =
        lat.size() ? static_cast<double>(cpu) / 1e3 / static_cast<double>(lat.size()) : 0;
    lat.write_cdf(ctx.out_dir + "/data/lat_" + (hog ? "modbus_hog" : "modbus") + "_" +
                  std::to_string(ctx.round) + ".dat");
    return errors > lat.size() / 100 ? 1 : 0;
}

}  // namespace

int case_modbus(const CaseContext &ctx, Metrics &m) {
    return run_modbus(ctx, m, false);
}

int case_modbus_hog(const CaseContext &ctx, Metrics &m) {
    return run_modbus(ctx, m, true);
}

}  // namespace bench
