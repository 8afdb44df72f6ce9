// Fuzz target: the frame helpers that work on caller buffers: data extraction from a held
// frame, the checksums, and the frame builders with the assembly into a buffer of exactly
// the frame's length.
//
// Input: an operation selector, then its bytes.
#include <algorithm>

#include "fuzz_support.h"

namespace {

uint16_t sum16(const uint8_t *p, size_t n) {
    uint32_t s = 0;
    for (size_t i = 0; i < n; ++i)
        s += p[i];
    return static_cast<uint16_t>(s);
}

void extract(fuzz::Input &in) {
    const size_t n = std::min<size_t>(in.n, 65535);
    auto frame = fuzz::exact(in.p, n);
    auto out = std::make_unique<int8_t[]>(SDK_DATA_BUF_LEN);
    const int32_t ret = sdk_get_protocol_data(out.get(), reinterpret_cast<int8_t *>(frame.get()),
                                              static_cast<uint16_t>(n));
    if (ret != -4000 && (ret < 0 || ret > SDK_DATA_BUF_LEN || 30u + ret > n)) {
        fuzz::fail("extraction outside the frame");
    }
}

void checksums(fuzz::Input &in) {
    const auto n = static_cast<uint32_t>(in.n);
    auto f = fuzz::exact(in.p, n);
    if (sdk_transfer_checksum(f.get(), n) != sum16(f.get(), n)) fuzz::fail("byte sum");
    const int32_t ret = sdk_transfer_checksum_data(f.get(), n);
    if (n >= 2 && ret != ((f[n - 2] | (f[n - 1] << 8)) == sum16(f.get(), n - 2) ? 0 : 1)) {
        fuzz::fail("frame check");
    }
}

// A record with every byte from the input.
template <typename T>
void fill(fuzz::Input &in, T *p_record) {
    for (size_t i = 0; i < sizeof(T); ++i)
        reinterpret_cast<uint8_t *>(p_record)[i] = in.byte();
}

// Records from the input as the host could pass them, or built by the builders from a
// request descriptor; then the assembly into exactly the frame's length.
void assemble(fuzz::Input &in, bool b_build) {
    frame_header_t fh{};
    request_header_t rh{};
    request_body_t rb{};
    if (b_build) {
        // Every byte of the descriptor as a C host could set it, enumerations included.
        transfer_op_t op{};
        fill(in, &op);
        op.p_packet_node = nullptr;
        const uint32_t id = in.byte() % static_cast<uint32_t>(g_st_transfer.n_num);
        if (sdk_packet_add_frame_header(&fh, id, op) != 0 ||
            sdk_packet_add_request_header(&rh, id, fh.n_frame_type, op) != 0 ||
            sdk_packet_add_request_body(&rb, rh, op) != 0) {
            return;
        }
        const int32_t n_head = sdk_get_packet_length(rh, rb);
        if (n_head != 30 && n_head != 34) fuzz::fail("packet length");
    } else {
        fill(in, &fh), fill(in, &rh), fill(in, &rb);
    }
    const bool b_with_data = (in.byte() & 1) != 0;
    const auto n_data = static_cast<uint32_t>(std::min<size_t>(in.n, SDK_DATA_BUF_LEN));
    auto wbuf = fuzz::exact(in.p, n_data);
    // Bytes written: header, request header B, the body and its data, the checksum(s). A
    // refused header or body type is refused after the frame header (and the request
    // header B) have been copied, as documented, so those bytes must be there too.
    const bool b_body = rb.n_body_type == BODY_ADDRESS || rb.n_body_type == BODY_TLV ||
                        rb.n_body_type == BODY_RECVCARD;
    const bool b_refused = rh.n_header_type != 1 || !b_body;
    const size_t n_frame = rh.n_header_type != 1 ? SDK_FRAME_HEADER_LEN
                           : !b_body             ? SDK_FRAME_HEADER_LEN + sizeof(b_request_header_t)
                           : rb.n_body_type == BODY_RECVCARD ? 34u + n_data + 4u
                                                             : 30u + n_data + 2u;
    auto out = std::make_unique<uint8_t[]>(n_frame);
    const int32_t ret =
        sdk_packet_data(out.get(), b_with_data ? wbuf.get() : nullptr, n_data, fh, rh, rb);
    if ((ret == 0) == b_refused) fuzz::fail("assembly result");
    // Whatever the header said, the last two bytes hold the sum of all before them.
    if (ret == 0 && sdk_transfer_checksum_data(out.get(), static_cast<uint32_t>(n_frame)) != 0) {
        fuzz::fail("assembled frame fails its own check");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::load_chassis();
    fuzz::Input in{data, size};
    const uint8_t op = in.byte() % 4;
    if (op == 0) extract(in);
    if (op == 1) checksums(in);
    if (op >= 2) assemble(in, op == 3);
    return 0;
}
