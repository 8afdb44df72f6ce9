// The channel counters of the engine (--stats), as a table or as JSON objects.
#include <cjson/cJSON.h>

#include <algorithm>
#include <vector>

#include "transfer_server.h"
#include "transfer_tool/output.h"

namespace transfer_tool {

namespace {

const char *type_name(int32_t type) {
    switch (type) {
        case UDP:
            return "UDP";
        case TCP:
            return "TCP";
        case RAW_SOCKET:
            return "RAW";
        case UART:
            return "UART";
        case REPORT_UDP:
            return "REPORT_UDP";
        default:
            return "-";
    }
}

struct Counter {
    const char *json, *head;
    uint64_t sdk_transfer_stats_t::*field;
};
constexpr Counter kCounters[] = {
    {"frames_sent", "sent", &sdk_transfer_stats_t::n_frames_sent},
    {"retransmissions", "resent", &sdk_transfer_stats_t::n_retransmissions},
    {"polls", "polls", &sdk_transfer_stats_t::n_polls},
    {"replies_matched", "matched", &sdk_transfer_stats_t::n_replies_matched},
    {"replies_unmatched", "unmatched", &sdk_transfer_stats_t::n_replies_unmatched},
    {"bad_frames", "bad", &sdk_transfer_stats_t::n_bad_frames},
    {"timeouts", "timeouts", &sdk_transfer_stats_t::n_timeouts},
    {"reports_queued", "reports", &sdk_transfer_stats_t::n_reports_queued},
    {"reports_dropped", "dropped", &sdk_transfer_stats_t::n_reports_dropped},
};

// Channels with an entry that are open or have counted anything.
bool worth_listing(const sdk_transfer_stats_t &s) {
    if (s.n_type == 0) return false;
    if (s.n_opened != 0) return true;
    for (const auto &c : kCounters)
        if (s.*c.field != 0) return true;
    return false;
}

}  // namespace

void print_stats(FILE *out, Format format) {
    const int32_t n = sdk_transfer_get_stats(nullptr, 0);
    std::vector<sdk_transfer_stats_t> table(n > 0 ? static_cast<size_t>(n) : 0);
    const int32_t got =
        table.empty() ? 0 : sdk_transfer_get_stats(table.data(), static_cast<uint32_t>(n));
    table.resize(got > 0 ? std::min(static_cast<size_t>(got), table.size()) : 0);
    if (format != Format::kJson) {
        fprintf(out, "channel  slot  type        open");
        for (const auto &c : kCounters)
            fprintf(out, " %9s", c.head);
        fputc('\n', out);
    }
    for (const auto &s : table) {
        if (!worth_listing(s)) continue;
        if (format == Format::kJson) {
            cJSON *j = cJSON_CreateObject();
            cJSON_AddNumberToObject(j, "channel", s.n_transfer_id);
            cJSON_AddNumberToObject(j, "slot", s.n_slot);
            cJSON_AddStringToObject(j, "type", type_name(s.n_type));
            cJSON_AddBoolToObject(j, "opened", s.n_opened != 0);
            for (const auto &c : kCounters)
                cJSON_AddNumberToObject(j, c.json, static_cast<double>(s.*c.field));
            char *text = j != nullptr ? cJSON_PrintUnformatted(j) : nullptr;
            if (text != nullptr) fprintf(out, "%s\n", text);
            cJSON_free(text);
            cJSON_Delete(j);
            continue;
        }
        fprintf(out, "%7d %5d  %-10s %5s", s.n_transfer_id, s.n_slot, type_name(s.n_type),
                s.n_opened != 0 ? "yes" : "no");
        for (const auto &c : kCounters)
            fprintf(out, " %9llu", static_cast<unsigned long long>(s.*c.field));
        fputc('\n', out);
    }
}

}  // namespace transfer_tool
