// The protocol state machine and the simulated flash.
#include "isp_sim/bootloader.h"

#include <algorithm>
#include <cstdio>

namespace isp_sim {

namespace {

constexpr uint8_t kSync = 0x7F;
constexpr uint8_t kAck = 0x79;
constexpr uint8_t kNack = 0x1F;

constexpr uint8_t kGet = 0x00;
constexpr uint8_t kGetVersion = 0x01;
constexpr uint8_t kGetId = 0x02;
constexpr uint8_t kGdPid = 0x06;
constexpr uint8_t kReadMemory = 0x11;
constexpr uint8_t kGo = 0x21;
constexpr uint8_t kWriteMemory = 0x31;
constexpr uint8_t kErase = 0x43;
constexpr uint8_t kExtendedErase = 0x44;

uint8_t xor_of(const std::vector<uint8_t> &bytes, size_t from, size_t to) {
    uint8_t x = 0;
    for (size_t i = from; i < to; ++i)
        x ^= bytes[i];
    return x;
}

}  // namespace

bool part_config(const std::string &name, Config *cfg) {
    Config c;
    if (name == "stm32h750") {
        c.pid = 0x450;
        c.page_size = 128 * 1024;
    } else if (name == "gd32f303") {
        c.pid = 0x414;
        c.gd_id = {0x33, 0x56, 0x45, 0x46};  // 0x46455633
        c.extended_erase = false;
    } else if (name == "gd32f470") {
        c.pid = 0x413;
        c.gd_id = {0x30, 0x5A, 0x45, 0x4E};  // 0x4E455A30
        c.page_size = 16 * 1024;
    } else if (name == "gd32e503") {
        c.pid = 0x414;
        c.gd_id = {0x30, 0x35, 0x45, 0x47};
        c.extended_erase = false;
    } else {
        return false;
    }
    *cfg = c;
    return true;
}

Bootloader::Bootloader(Config cfg)
    : cfg_(std::move(cfg)),
      flash_(cfg_.flash_size, 0xFF),
      stage_(cfg_.start_synced ? Stage::kCommand : Stage::kSync) {}

void Bootloader::feed(const uint8_t *data, size_t len) {
    for (size_t i = 0; i < len; ++i) {
        received_.push_back(data[i]);
        if (silent_) continue;
        buf_.push_back(data[i]);
        if (buf_.size() >= need_) {
            step();
        }
    }
}

size_t Bootloader::take(uint8_t *out, size_t max) {
    const auto now = Clock::now();
    size_t n = 0;
    while (n < max && !out_.empty() && out_.front().due <= now) {
        out[n++] = out_.front().byte;
        out_.pop_front();
    }
    return n;
}

std::optional<Bootloader::Clock::time_point> Bootloader::next_due() const {
    if (out_.empty()) return std::nullopt;
    return out_.front().due;
}

void Bootloader::preload(const std::vector<uint8_t> &head, uint8_t fill) {
    std::fill(flash_.begin(), flash_.end(), fill);
    std::copy_n(head.begin(), std::min(head.size(), flash_.size()), flash_.begin());
}

bool Bootloader::dump_flash(const std::string &path, size_t len) const {
    if (len == 0 || len > flash_.size()) len = flash_.size();
    FILE *fp = fopen(path.c_str(), "wb");
    if (fp == nullptr) return false;
    bool ok = fwrite(flash_.data(), 1, len, fp) == len;
    ok = (fclose(fp) == 0) && ok;
    return ok;
}

void Bootloader::expect(Stage stage, size_t bytes) {
    stage_ = stage;
    need_ = bytes;
}

void Bootloader::emit(std::initializer_list<uint8_t> bytes) {
    emit(bytes.begin(), bytes.size());
}

void Bootloader::emit(const uint8_t *bytes, size_t len, Clock::duration delay) {
    // Answers leave in order: a late erase acknowledgement holds back what follows it.
    auto due = Clock::now() + delay;
    if (!out_.empty()) due = std::max(due, out_.back().due);
    for (size_t i = 0; i < len; ++i)
        out_.push_back(Out{due, bytes[i]});
}

void Bootloader::ack(Clock::duration delay) {
    const uint8_t a = kAck;
    emit(&a, 1, delay);
}

void Bootloader::nack() {
    ++stats_.nacks;
    emit({kNack});
    expect(Stage::kCommand, 1);
}

bool Bootloader::parse_address(uint32_t *addr) const {
    if ((buf_[0] ^ buf_[1] ^ buf_[2] ^ buf_[3]) != buf_[4]) return false;
    *addr = static_cast<uint32_t>(buf_[0]) << 24 | static_cast<uint32_t>(buf_[1]) << 16 |
            static_cast<uint32_t>(buf_[2]) << 8 | buf_[3];
    return in_flash(*addr, 1);
}

bool Bootloader::in_flash(uint32_t addr, uint32_t len) const {
    return addr >= cfg_.flash_base && addr - cfg_.flash_base <= cfg_.flash_size &&
           len <= cfg_.flash_size - (addr - cfg_.flash_base);
}

void Bootloader::erase_pages(const std::vector<uint32_t> &pages) {
    for (uint32_t page : pages) {
        uint64_t from = static_cast<uint64_t>(page) * cfg_.page_size;
        if (from >= flash_.size()) continue;
        uint64_t to = std::min<uint64_t>(from + cfg_.page_size, flash_.size());
        std::fill(flash_.begin() + static_cast<ptrdiff_t>(from),
                  flash_.begin() + static_cast<ptrdiff_t>(to), 0xFF);
    }
    ++stats_.page_erases;
}

std::vector<uint8_t> Bootloader::command_codes() const {
    if (!cfg_.get_codes.empty()) return cfg_.get_codes;
    std::vector<uint8_t> codes = {kGet, kGetVersion, kGetId};
    if (!cfg_.gd_id.empty()) codes.push_back(kGdPid);
    codes.insert(codes.end(), {kReadMemory, kGo, kWriteMemory});
    codes.push_back(cfg_.extended_erase ? kExtendedErase : kErase);
    return codes;
}

void Bootloader::command(uint8_t cmd) {
    switch (cmd) {
        case kGet: {
            std::vector<uint8_t> codes = command_codes();
            std::vector<uint8_t> answer = {kAck, static_cast<uint8_t>(codes.size()), cfg_.version};
            answer.insert(answer.end(), codes.begin(), codes.end());
            answer.push_back(kAck);
            emit(answer.data(), answer.size());
            break;
        }
        case kGetVersion:
            emit({kAck, cfg_.version, 0x00, 0x00, kAck});
            break;
        case kGetId:
            emit({kAck, 0x01, static_cast<uint8_t>(cfg_.pid >> 8), static_cast<uint8_t>(cfg_.pid),
                  kAck});
            break;
        case kGdPid: {
            if (cfg_.gd_id.empty()) return nack();
            std::vector<uint8_t> answer = {kAck, static_cast<uint8_t>(cfg_.gd_id.size())};
            answer.insert(answer.end(), cfg_.gd_id.begin(), cfg_.gd_id.end());
            answer.push_back(kAck);
            emit(answer.data(), answer.size());
            break;
        }
        case kReadMemory:
            ack();
            return expect(Stage::kReadAddress, 5);
        case kGo:
            ack();
            return expect(Stage::kGoAddress, 5);
        case kWriteMemory:
            if (cfg_.refuse_write_after >= 0 && stats_.writes >= cfg_.refuse_write_after) {
                return nack();
            }
            ack();
            return expect(Stage::kWriteAddress, 5);
        case kErase:
            if (cfg_.extended_erase || cfg_.refuse_erase) return nack();
            ack();
            return expect(Stage::kEraseCount, 1);
        case kExtendedErase:
            if (!cfg_.extended_erase || cfg_.refuse_erase) return nack();
            ack();
            return expect(Stage::kExtEraseCount, 2);
        default:
            return nack();
    }
    expect(Stage::kCommand, 1);
}

void Bootloader::step() {
    switch (stage_) {
        case Stage::kSync:
            if (buf_[0] == kSync) {
                if (syncs_ignored_ < cfg_.ignore_syncs) {
                    ++syncs_ignored_;
                } else {
                    ++stats_.syncs;
                    emit({kAck});
                    expect(Stage::kCommand, 1);
                }
            }
            break;
        case Stage::kCommand:
            // 0x7F is no command code: a host that starts a new session on a bootloader
            // that is already synchronised gets its ACK again.
            if (buf_[0] == kSync) {
                ++stats_.syncs;
                emit({kAck});
                break;
            }
            cmd_ = buf_[0];
            expect(Stage::kComplement, 1);
            break;
        case Stage::kComplement:
            if (buf_[0] != static_cast<uint8_t>(~cmd_)) {
                nack();
                break;
            }
            command(cmd_);
            break;
        case Stage::kReadAddress:
            if (!parse_address(&addr_)) {
                nack();
                break;
            }
            ack();
            expect(Stage::kReadCount, 2);
            break;
        case Stage::kReadCount: {
            const uint32_t n = buf_[0] + 1u;
            if (buf_[1] != static_cast<uint8_t>(~buf_[0]) || !in_flash(addr_, n)) {
                nack();
                break;
            }
            ack();
            if (cfg_.silent_after_reads >= 0 && stats_.reads >= cfg_.silent_after_reads) {
                emit(flash_.data() + (addr_ - cfg_.flash_base), n / 2);
                silent_ = true;
                break;
            }
            emit(flash_.data() + (addr_ - cfg_.flash_base), n);
            ++stats_.reads;
            expect(Stage::kCommand, 1);
            break;
        }
        case Stage::kGoAddress:
            if (!parse_address(&addr_)) {
                nack();
                break;
            }
            ack();
            stats_.went = true;
            stats_.go_address = addr_;
            // The application runs: the bootloader is gone until the next reset.
            expect(Stage::kSync, 1);
            break;
        case Stage::kWriteAddress:
            if (!parse_address(&addr_)) {
                nack();
                break;
            }
            ack();
            expect(Stage::kWriteLength, 1);
            break;
        case Stage::kWriteLength:
            count_ = buf_[0] + 1u;
            // The length byte is part of the checksum: keep it in front of the data.
            need_ = 1 + count_ + 1;
            stage_ = Stage::kWriteData;
            return;  // buf_ keeps the length byte
        case Stage::kWriteData: {
            const uint8_t sum = xor_of(buf_, 0, 1 + count_);
            if (sum != buf_[1 + count_] || !in_flash(addr_, static_cast<uint32_t>(count_))) {
                nack();
                break;
            }
            // Flash programming only clears bits: writing over data that was not erased
            // leaves the AND of both, as a real part would.
            uint8_t *cell = flash_.data() + (addr_ - cfg_.flash_base);
            for (size_t i = 0; i < count_; ++i)
                cell[i] &= buf_[1 + i];
            if (cfg_.corrupt_at && *cfg_.corrupt_at - addr_ < count_)
                cell[*cfg_.corrupt_at - addr_] ^= 0xFF;
            writes_.push_back(WriteRecord{addr_, static_cast<uint32_t>(count_)});
            ++stats_.writes;
            ack();
            expect(Stage::kCommand, 1);
            break;
        }
        case Stage::kEraseCount:
            if (buf_[0] == 0xFF) {
                expect(Stage::kEraseGlobalChecksum, 1);
                break;
            }
            count_ = buf_[0] + 1u;
            need_ = 1 + count_ + 1;
            stage_ = Stage::kEraseList;
            return;  // buf_ keeps the count byte
        case Stage::kEraseGlobalChecksum:
            if (buf_[0] != 0x00) {
                nack();
                break;
            }
            std::fill(flash_.begin(), flash_.end(), 0xFF);
            ++stats_.global_erases;
            ack(cfg_.erase_delay);
            expect(Stage::kCommand, 1);
            break;
        case Stage::kEraseList: {
            if (xor_of(buf_, 0, 1 + count_) != buf_[1 + count_]) {
                nack();
                break;
            }
            erase_pages(std::vector<uint32_t>(buf_.begin() + 1, buf_.begin() + 1 + count_));
            ack(cfg_.erase_delay);
            expect(Stage::kCommand, 1);
            break;
        }
        case Stage::kExtEraseCount: {
            const uint16_t v = static_cast<uint16_t>(buf_[0] << 8 | buf_[1]);
            if (v >= 0xFFF0) {
                need_ = 3;
                stage_ = Stage::kExtEraseSpecialChecksum;
                return;  // buf_ keeps the code for the checksum
            }
            count_ = v + 1u;
            need_ = 2 + 2 * count_ + 1;
            stage_ = Stage::kExtEraseList;
            return;  // buf_ keeps the count bytes
        }
        case Stage::kExtEraseSpecialChecksum: {
            const uint16_t code = static_cast<uint16_t>(buf_[0] << 8 | buf_[1]);
            if ((buf_[0] ^ buf_[1]) != buf_[2] || code < 0xFFFD) {
                nack();
                break;
            }
            // FFFF mass erase; FFFE / FFFD erase bank 1 / bank 2 (halves of the flash).
            auto from = flash_.begin();
            auto to = flash_.end();
            if (code == 0xFFFE) to = flash_.begin() + static_cast<ptrdiff_t>(flash_.size() / 2);
            if (code == 0xFFFD) from = flash_.begin() + static_cast<ptrdiff_t>(flash_.size() / 2);
            std::fill(from, to, 0xFF);
            ++stats_.mass_erases;
            ack(cfg_.erase_delay);
            expect(Stage::kCommand, 1);
            break;
        }
        case Stage::kExtEraseList: {
            if (xor_of(buf_, 0, 2 + 2 * count_) != buf_[2 + 2 * count_]) {
                nack();
                break;
            }
            std::vector<uint32_t> pages;
            for (size_t i = 0; i < count_; ++i) {
                pages.push_back(static_cast<uint32_t>(buf_[2 + 2 * i] << 8 | buf_[3 + 2 * i]));
            }
            erase_pages(pages);
            ack(cfg_.erase_delay);
            expect(Stage::kCommand, 1);
            break;
        }
    }
    buf_.clear();
}

}  // namespace isp_sim
