// Memory: resident bytes per request in flight (reads queued on a channel whose board
// never answers) and per queued report (pushed into the report queue as the report
// threads do).
#include <cstdio>
#include <vector>

#include "cases.h"
#include "chassis.h"
#include "requests.h"
#include "transfer_manage.h"

namespace bench {

namespace {
constexpr size_t kRequests = 10000;
constexpr size_t kReports = 10000;
constexpr size_t kReportLen = 64;
}  // namespace

int case_memory(const CaseContext &ctx, Metrics &m) {
    if (!start_engine(ctx, ctx.udp_config, kUdpSlots)) return 1;
    std::vector<transfer_op_t> ops(kRequests);  // reserved before the first reading

    const uint64_t rss0 = resident_bytes();
    const uint64_t vm0 = virtual_bytes();
    for (auto &op : ops) {
        op = fpga_read(kSilentSlot, 600000);
        if (sdk_request(nullptr, 0, &op) != 0) return 1;
    }
    const uint64_t rss1 = resident_bytes();
    const uint64_t vm1 = virtual_bytes();
    m["request_rss_bytes"] = static_cast<double>(rss1 - rss0) / kRequests;
    m["request_vm_bytes"] = static_cast<double>(vm1 - vm0) / kRequests;
    m["request_record_bytes"] = sizeof(packet_data_t);
    m["request_buffers_bytes"] = 2 * sizeof(data_buf_t);

    report_queue_t *q = sdk_get_report_queue();
    sdk_report_queue_set_max(q, kReports + 1);
    std::vector<uint8_t> frame(kReportLen, 0);
    frame[0] = 0xBB;
    frame[1] = 0x55;
    frame[5] = 1;
    frame[8] = kReportLen - 10;
    frame[10] = 0x10;
    const uint64_t rss2 = resident_bytes();
    const uint64_t vm2 = virtual_bytes();
    for (size_t i = 0; i < kReports; ++i) {
        if (sdk_report_queue_push(q, frame.data(), kReportLen, 1) != 0) return 1;
    }
    const uint64_t rss3 = resident_bytes();
    const uint64_t vm3 = virtual_bytes();
    m["report_rss_bytes"] = static_cast<double>(rss3 - rss2) / kReports;
    m["report_vm_bytes"] = static_cast<double>(vm3 - vm2) / kReports;
    m["report_record_bytes"] = sizeof(report_queue_data_t);
    // The requests are never answered and the engine has no shutdown: the process ends here.
    return 0;
}

}  // namespace bench
