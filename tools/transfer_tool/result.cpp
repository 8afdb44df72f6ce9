#include "transfer_tool/result.h"

#include <cstring>

#include "transfer_errors.h"

namespace transfer_tool {

bool reply_has_error_code(json_type_tbl channel_type, const transfer_op_t &op) {
    if (op.e_type == BODY_RECVCARD || op.st_addr_param.n_device_type == DEVICE_ETH) return false;
    return channel_type != UART || op.e_type == BODY_TLV;
}

Reply split_reply(const uint8_t *buf, int32_t len, bool has_error_code) {
    Reply r;
    size_t n = len > 0 ? static_cast<size_t>(len) : 0;
    if (has_error_code && n >= 4) {
        r.has_error_code = true;
        r.error_code = static_cast<int16_t>(buf[0] | (buf[1] << 8));
        // Bytes 2 and 3 repeat the data length; the count handed over is what counts.
        buf += 4;
        n -= 4;
    }
    r.data.assign(buf, buf + n);
    return r;
}

void print_hex(FILE *out, const uint8_t *data, size_t len) {
    for (size_t line = 0; line < len; line += 16) {
        char text[17] = {};
        fprintf(out, "  %04zx ", line);
        for (size_t i = 0; i < 16; ++i) {
            if (line + i < len) {
                const uint8_t b = data[line + i];
                fprintf(out, " %02x", b);
                text[i] = b >= 0x20 && b < 0x7F ? static_cast<char>(b) : '.';
            } else {
                fputs("   ", out);
            }
        }
        fprintf(out, "  |%s|\n", text);
    }
}

int status_of(int32_t result, const Reply &reply) {
    if (result == SDK_ERR_TIMEOUT) return kExitTimeout;
    if (result < 0) return kExitRefused;
    return reply.has_error_code && reply.error_code != 0 ? kExitBoardError : kExitDone;
}

int print_outcome(FILE *out, FILE *err, uint32_t index, const std::string &summary, int32_t result,
                  const Reply &reply, double ms) {
    const int status = status_of(result, reply);
    if (status == kExitTimeout) {
        fprintf(err, "#%u %s: timed out after %.1f ms (no reply from the board)\n", index,
                summary.c_str(), ms);
        return kExitTimeout;
    }
    if (status == kExitRefused) {
        fprintf(err, "#%u %s: failed: %s (%d)\n", index, summary.c_str(), sdk_strerror(result),
                result);
        return kExitRefused;
    }
    fprintf(out, "#%u %s: %zu data byte%s in %.3f ms", index, summary.c_str(), reply.data.size(),
            reply.data.size() == 1 ? "" : "s", ms);
    if (reply.has_error_code) fprintf(out, ", board error code %d", reply.error_code);
    fputc('\n', out);
    print_hex(out, reply.data.data(), reply.data.size());
    if (status == kExitBoardError)
        fprintf(err, "#%u %s: the board answered with error code %d\n", index, summary.c_str(),
                reply.error_code);
    return status;
}

}  // namespace transfer_tool
