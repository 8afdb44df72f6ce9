#include "transfer_tool/output.h"

#include <cjson/cJSON.h>

#include <string>

namespace transfer_tool {

namespace {

std::string hex_text(const std::vector<uint8_t> &data, const char *separator) {
    static const char digits[] = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < data.size(); ++i) {
        if (i > 0) s += separator;
        s += digits[data[i] >> 4];
        s += digits[data[i] & 0xF];
    }
    return s;
}

// Prints the object as one line and frees it; prints nothing when memory ran out.
void print_json(FILE *out, cJSON *o) {
    char *text = o != nullptr ? cJSON_PrintUnformatted(o) : nullptr;
    if (text != nullptr) fprintf(out, "%s\n", text);
    cJSON_free(text);
    cJSON_Delete(o);
}

void print_line(FILE *out, const Request *req, const Outcome &o) {
    fprintf(out, "line %u", o.line);
    if (o.runs > 1) fprintf(out, " #%u", o.run);
    if (req != nullptr) fprintf(out, ": %s", req->summary.c_str());
    if (!o.error.empty() && o.status != kExitBoardError) {
        fprintf(out, ": %s (status %d)\n", o.error.c_str(), o.status);
        return;
    }
    const size_t n = o.reply.data.size();
    fprintf(out, ": %zu data byte%s in %.3f ms", n, n == 1 ? "" : "s", o.ms);
    if (o.reply.has_error_code) fprintf(out, ", board error code %d", o.reply.error_code);
    if (n > 0) fprintf(out, ": %s", hex_text(o.reply.data, " ").c_str());
    if (o.status != kExitDone) fprintf(out, " (status %d)", o.status);
    fputc('\n', out);
}

// Result objects: {"line", "run", "slot", "section", "device", "addr", "op", "length",
// "status", "code", "error", "board_code" (replies that carry one), "data" (hex), "ms"};
// "line" only in a batch, and a line refused before it became a request has only
// "line", "status" and "error".
cJSON *result_object(const Request *req, const Outcome &o) {
    cJSON *j = cJSON_CreateObject();
    if (o.line > 0) cJSON_AddNumberToObject(j, "line", o.line);
    if (req != nullptr) {
        const transfer_op_t &op = req->op;
        const bool write = op.e_code == FRAME_WRITE;
        cJSON_AddNumberToObject(j, "run", o.run);
        cJSON_AddNumberToObject(j, "slot", op.n_slot);
        cJSON_AddStringToObject(j, "section", op.e_mode == FPGA ? "FPGA" : "MCU");
        cJSON_AddNumberToObject(j, "device", op.st_addr_param.n_device_index);
        cJSON_AddNumberToObject(j, "addr", op.st_addr_param.n_addr);
        cJSON_AddStringToObject(j, "op", write ? "write" : "read");
        cJSON_AddNumberToObject(j, "length",
                                static_cast<double>(write ? req->payload.size() : op.n_read_len));
    }
    cJSON_AddNumberToObject(j, "status", o.status);
    if (req != nullptr) cJSON_AddNumberToObject(j, "code", o.code);
    cJSON_AddStringToObject(j, "error", o.error.c_str());
    if (req == nullptr) return j;
    if (o.reply.has_error_code) cJSON_AddNumberToObject(j, "board_code", o.reply.error_code);
    cJSON_AddStringToObject(j, "data", hex_text(o.reply.data, "").c_str());
    cJSON_AddNumberToObject(j, "ms", static_cast<double>(static_cast<int64_t>(o.ms * 1000)) / 1000);
    return j;
}

}  // namespace

void print_result(FILE *out, Format format, const Request *req, const Outcome &o) {
    if (format == Format::kJson)
        print_json(out, result_object(req, o));
    else
        print_line(out, req, o);
}

void print_report(FILE *out, Format format, int number, const report_queue_data_t &rec) {
    if (format != Format::kJson) {
        fprintf(out, "report %d from slot %u, %u bytes:\n", number, rec.n_slot, rec.n_len);
        print_hex(out, rec.arr_buf, rec.n_len);
        return;
    }
    cJSON *j = cJSON_CreateObject();
    cJSON_AddNumberToObject(j, "report", number);
    cJSON_AddNumberToObject(j, "slot", rec.n_slot);
    cJSON_AddStringToObject(
        j, "data",
        hex_text(std::vector<uint8_t>(rec.arr_buf, rec.arr_buf + rec.n_len), "").c_str());
    print_json(out, j);
}

}  // namespace transfer_tool
