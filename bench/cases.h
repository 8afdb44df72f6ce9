// The benchmark cases. Each runs in a process of its own (the engine starts once per
// process and has no shutdown), fills its metrics and returns 0, or 1 on failure.
#pragma once

#include "harness.h"

namespace bench {

using CaseFn = int (*)(const CaseContext &ctx, Metrics &m);

// Sequential acknowledged 4-byte reads on one UDP channel through the engine.
int case_engine_seq(const CaseContext &ctx, Metrics &m);
// The same with sdk_request then sdk_request_wait, for comparison.
int case_engine_seq_2calls(const CaseContext &ctx, Metrics &m);
int case_engine_seq_2calls_hog(const CaseContext &ctx, Metrics &m);
// The same frames in a plain synchronous UDP ping-pong against the same simulator.
int case_pingpong(const CaseContext &ctx, Metrics &m);
// libmodbus reading 2 registers over Modbus/TCP on loopback against its own server.
int case_modbus(const CaseContext &ctx, Metrics &m);
// engine_seq, modbus and pingpong again while hog processes keep every core busy.
int case_engine_seq_hog(const CaseContext &ctx, Metrics &m);
int case_modbus_hog(const CaseContext &ctx, Metrics &m);
int case_pingpong_hog(const CaseContext &ctx, Metrics &m);
// Aggregate rate over 1, 8 and 32 channels (one process per channel count).
int case_parallel_1(const CaseContext &ctx, Metrics &m);
int case_parallel_8(const CaseContext &ctx, Metrics &m);
int case_parallel_32(const CaseContext &ctx, Metrics &m);
// 8 threads, each doing the plain UDP ping-pong with the board of one of those 8 channels.
int case_pingpong_parallel_8(const CaseContext &ctx, Metrics &m);
// CPU time per request with 10, 1000 and 10000 requests accepted at once, and the
// monitor thread's CPU time per wake-up at each size.
int case_scaling(const CaseContext &ctx, Metrics &m);
// CPU time and wake-ups of the running engine with no traffic.
int case_idle(const CaseContext &ctx, Metrics &m);
// Resident bytes per request in flight and per queued report.
int case_memory(const CaseContext &ctx, Metrics &m);
// The serial frame cutter in-process, and round trips over a pty.
int case_serial(const CaseContext &ctx, Metrics &m);

}  // namespace bench
