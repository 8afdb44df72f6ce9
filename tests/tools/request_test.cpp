// transfer_tool's request building: command lines through the library's parser into
// request descriptors, and the split of replies.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "transfer_tool/request.h"
#include "transfer_tool/result.h"

using namespace transfer_tool;

namespace {

// The tool's steps from a command line to a request; "" or the first message.
std::string build(std::vector<std::string> args, Request *req,
                  const std::vector<uint8_t> &file = {}) {
    args.insert(args.begin(), "transfer_tool");
    std::vector<char *> argv;
    argv.reserve(args.size());
    for (auto &a : args)
        argv.push_back(a.data());
    std::string error;
    Scan scan;
    if (!scan_arguments(static_cast<int>(argv.size()), argv.data(), &scan, &error)) return error;
    recvcard_struct cmd;
    set_defaults(&cmd);
    if (cmd_parse_recvcard(&cmd, static_cast<int32_t>(argv.size()), argv.data()) != 0)
        return "help";
    Payload p;
    p.data_given = scan.data_given;
    p.data = scan.data;
    p.file_given = cmd.file_path[0] != 0;
    p.file_data = file;
    Timing timing;
    timing.timeout_ms = 300;
    timing.retries = 1;
    return build_request(cmd, p, timing, req, &error) ? "" : error;
}

}  // namespace

TEST(TransferToolRequest, AddressAndTlvRequests) {
    Request r;
    ASSERT_EQ(build({"-s", "100", "-R", "0x1000"}, &r), "");
    EXPECT_EQ(r.op.n_slot, 100u);
    EXPECT_EQ(r.op.e_mode, FPGA);
    EXPECT_EQ(r.op.e_code, FRAME_READ);
    EXPECT_EQ(r.op.e_type, BODY_ADDRESS);
    EXPECT_EQ(r.op.n_read_len, 4u);  // the default length of a read
    EXPECT_EQ(r.op.st_addr_param.n_addr, 0x1000u);
    EXPECT_EQ(r.op.n_timeout, 300u);
    EXPECT_EQ(r.op.n_reply_times, 1u);
    EXPECT_EQ(r.op.n_no_ack, static_cast<uint32_t>(EN_REQUEST_ACK));
    EXPECT_TRUE(r.payload.empty());
    EXPECT_EQ(r.count, 1u);
    EXPECT_EQ(r.summary, "read 4 bytes at 0x00001000 of slot 100 FPGA 0");

    // The usage text's "write mcu" line, with the data padded to -L and a repeat count.
    ASSERT_EQ(build({"-s", "101", "-R", "0x00000001", "-L", "3",  "-e", "1",  "-r",   "0", "-E",
                     "1",  "-D",  "1",  "-A",         "0",  "-C", "2",  "-d", "0xff", "7"},
                    &r),
              "");
    EXPECT_EQ(r.op.e_mode, MCU);
    EXPECT_EQ(r.op.n_mode_id, 1u);
    EXPECT_EQ(r.op.st_addr_param.n_device_type, DEVICE_MCU);
    EXPECT_EQ(r.op.st_addr_param.n_device_index, 1);
    EXPECT_EQ(r.op.e_code, FRAME_WRITE);
    EXPECT_EQ(r.op.n_read_len, 0u);
    EXPECT_EQ(r.payload, (std::vector<uint8_t>{0xff, 7, 0}));
    EXPECT_EQ(r.count, 2u);

    // A TLV write from a file cut to -L; a read with -P names the output file.
    ASSERT_EQ(build({"--slotid=1", "-B", "1", "-E", "1", "-R", "0x20", "-L", "2", "-P", "f"}, &r,
                    {1, 2, 3}),
              "");
    EXPECT_EQ(r.op.e_type, BODY_TLV);
    EXPECT_EQ(r.payload, (std::vector<uint8_t>{1, 2}));
    ASSERT_EQ(build({"-s", "1", "-L", "16", "-P", "out.bin"}, &r), "");
    EXPECT_EQ(r.output_file, "out.bin");
    EXPECT_EQ(r.op.n_read_len, 16u);

    // Numbers in base 0 as the library's parser reads them.
    ASSERT_EQ(build({"-s", "0x64", "-R", "010", "--length=0x10", "-e", "0377"}, &r), "");
    EXPECT_EQ(r.op.n_slot, 100u);
    EXPECT_EQ(r.op.st_addr_param.n_addr, 8u);
    EXPECT_EQ(r.op.n_read_len, 16u);
    EXPECT_EQ(r.op.n_mode_id, 0xffu);
}

TEST(TransferToolRequest, ReceivingCardRequests) {
    Request r;
    ASSERT_EQ(build({"-s", "100", "-B", "2", "-e", "1", "-r", "5", "-R", "0x100", "-L", "8"}, &r),
              "");
    EXPECT_EQ(r.op.e_type, BODY_RECVCARD);
    EXPECT_EQ(r.op.st_addr_param.n_device_type, DEVICE_ETH);
    EXPECT_EQ(r.op.st_addr_param.n_device_index, 1);
    EXPECT_EQ(r.op.st_control.n_recvcard_id, 5u);
    EXPECT_EQ(r.op.n_mode_id, 0u);
    EXPECT_EQ(r.op.n_polling_state, 0u);

    // Without acknowledgement the card is polled for completion; broadcasts keep 0xff/0xffff.
    ASSERT_EQ(build({"-s", "100", "-B", "2", "-e", "0xff", "-r", "0xffff", "-R", "0x100", "-E", "1",
                     "-A", "1", "-d", "9"},
                    &r),
              "");
    EXPECT_EQ(r.op.n_polling_state, 1u);
    EXPECT_GT(r.op.n_polling_time, 0u);
    EXPECT_EQ(r.op.st_addr_param.n_device_index, 0xff);
    EXPECT_EQ(r.op.st_control.n_recvcard_id, 0xffffu);
    EXPECT_EQ(r.summary,
              "write 1 byte at 0x00000100 of every receiving card behind every port of slot 100 "
              "FPGA 0, no acknowledgement");
}

TEST(TransferToolRequest, RefusedCommandLines) {
    // Each command line and the start of its message. Numbers are taken whole and in range,
    // texts only when they fit their field: the library's parser would store "abc" as 0,
    // "4x" as 4, "-5" as 0xfffffffb, and cut a long slot or path.
    const std::string long_slot = "0000" + std::string(508, '0') + "7";  // 0 once cut
    const std::string long_path = "/tmp/" + std::string(250, 'p');
    struct Case {
        std::vector<std::string> args;
        std::string message;
        std::vector<uint8_t> file = {};
    };
    const Case cases[] = {
        {{"-R", "1"}, "no slot: give -s"},
        {{"-s", "x1"}, "bad slot 'x1'"},
        {{"-s", "1", "-E", "1"}, "nothing to write: give -d values, -P file or -L"},
        {{"-s", "1", "-E", "1", "-L", "1", "-d", "1", "2"}, "2 data values but -L 1"},
        {{"-s", "1", "-E", "1", "-d", "1", "-P", "f"},
         "give the data with -d or -P, not both",
         {1}},
        {{"-s", "1", "-E", "1", "-L", "4", "-P", "f"},
         "the file of -P has 1 bytes, fewer than -L 4",
         {1}},
        {{"-s", "1", "-L", "8997"}, "-L: at most 8996 bytes"},
        {{"-s", "1", "-E", "1", "-L", "8969", "-d", "1"}, "-L: a write carries at most 8968 bytes"},
        {{"-s", "1", "-B", "2", "-E", "1", "-L", "8963"}, "-L: a write carries at most 8962 bytes"},
        {{"-s", "1", "-d", "0x100"}, "data value '0x100' is not a byte (0 to 0xff)"},
        {{"-s", "1", "-x"}, "unknown option -x"},
        {{"-s", "1", "extra"}, "unexpected argument 'extra' (data values follow -d)"},
        {{"-s"}, "option -s needs a value"},
        {{"-s", "1", "-L", "abc"}, "-L 'abc': must be a number from 0 to 0xffffffff"},
        {{"-s", "1", "-L", "4x"}, "-L '4x': must be"},
        {{"-s", "1", "--length=4294967296"}, "-L '4294967296': must be"},
        {{"-s", "1", "-L", "08"}, "-L '08': must be"},
        {{"-s", "1", "-R", "zz"}, "-R 'zz': must be"},
        {{"-s", "1", "-R", "-5"}, "-R '-5': must be"},
        {{"-s", "1", "-R", " 5"}, "-R ' 5': must be"},
        {{"-s", "1", "-C", "-1"}, "-C '-1': must be a number from 1 to 4294967295"},
        {{"-s", "1", "-C", "0"}, "-C '0': must be"},
        {{"-s", "1", "-e", "256"}, "-e '256': must be a number from 0 to 0xff"},
        {{"-s", "1", "-r", "0x10000"}, "-r '0x10000': must be a number from 0 to 0xffff"},
        {{"-s", "1", "-E", "2"}, "-E '2': must be 0 (read) or 1 (write)"},
        {{"-s", "1", "-B", "3"}, "-B '3': must be 0 (address), 1 (TLV) or 2 (receiving card)"},
        {{"-s", "1", "-D", "2"}, "-D '2': must be 0 (FPGA) or 1 (MCU)"},
        {{"-s", "1", "-A", "2"}, "-A '2': must be 0 (ack) or 1 (no ack)"},
        {{"-s", long_slot}, "-s: the slot identifier has 513 characters, at most 511 fit"},
        {{"-s", "1", "-P", long_path}, "-P: the path has 255 characters, at most 254 fit"},
    };
    for (const auto &c : cases) {
        Request r;
        const std::string message = build(c.args, &r, c.file);
        EXPECT_EQ(message.rfind(c.message, 0), 0u)
            << c.args[0] << " " << c.args.back() << ": " << message;
    }
}

TEST(TransferToolRequest, RepliesWithAndWithoutErrorCode) {
    transfer_op_t op{};
    op.e_type = BODY_ADDRESS;
    EXPECT_TRUE(reply_has_error_code(UDP, op));
    EXPECT_FALSE(reply_has_error_code(UART, op));
    op.e_type = BODY_TLV;
    EXPECT_TRUE(reply_has_error_code(UART, op));
    op.e_type = BODY_RECVCARD;
    op.st_addr_param.n_device_type = DEVICE_ETH;
    EXPECT_FALSE(reply_has_error_code(UDP, op));

    const uint8_t reply[] = {0xfe, 0xff, 2, 0, 0xab, 0xcd};
    Reply r = split_reply(reply, 6, true);
    EXPECT_TRUE(r.has_error_code);
    EXPECT_EQ(r.error_code, -2);
    EXPECT_EQ(r.data, (std::vector<uint8_t>{0xab, 0xcd}));
    r = split_reply(reply, 6, false);
    EXPECT_FALSE(r.has_error_code);
    EXPECT_EQ(r.data.size(), 6u);
    EXPECT_TRUE(split_reply(reply, -4001, true).data.empty());
}
