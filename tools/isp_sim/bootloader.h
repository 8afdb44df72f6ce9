// A simulated MCU serial bootloader (USART protocol of the STM32 parts, with the GD32
// identifier command) in front of a simulated internal flash.
//
// The state machine is fed the bytes the host sends and queues its answers, each with the
// time it becomes readable (an erase answers late when erase_delay is set). It does no I/O
// and takes no lock: a transport (InProcessPort, PtyServer) serialises feed and take.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace isp_sim {

struct Config {
    uint16_t pid = 0x450;            // Get ID answer (product identifier)
    std::vector<uint8_t> gd_id;      // answer of the GD32 identifier command; empty: refused
    bool extended_erase = true;      // offers Extended Erase (0x44); otherwise Erase (0x43)
    std::vector<uint8_t> get_codes;  // replaces the command list of the Get answer
    uint8_t version = 0x31;
    uint32_t flash_base = 0x08000000;
    // 2 MiB, the flash that a Get ID of 0x450 stands for: stm32flash reads that much with -r.
    uint32_t flash_size = 2u << 20;
    uint32_t page_size = 2048;
    int ignore_syncs = 0;         // this many first synchronisation bytes get no answer
    bool refuse_erase = false;    // NACK the Erase and Extended Erase commands
    int refuse_write_after = -1;  // NACK Write Memory once this many were accepted
    std::chrono::milliseconds erase_delay{0};  // the erase acknowledgement comes this late
    bool start_synced = false;                 // accept commands without a synchronisation first
    std::optional<uint32_t> corrupt_at;        // this flash byte is inverted once written
    // Once this many Read Memory commands were answered, the next one gets half its data
    // and the bootloader falls silent for good.
    int silent_after_reads = -1;
};

// Presets: "stm32h750", "gd32f303", "gd32f470", "gd32e503". False for another name.
bool part_config(const std::string &name, Config *cfg);

struct Stats {
    int syncs = 0;
    int global_erases = 0;  // Erase FF 00
    int mass_erases = 0;    // Extended Erase FFFF / FFFE / FFFD
    int page_erases = 0;    // page-list erases of either command
    int writes = 0;         // accepted Write Memory blocks
    int reads = 0;          // answered Read Memory commands
    int nacks = 0;
    bool went = false;        // a Go command was accepted
    uint32_t go_address = 0;  // its address
};

struct WriteRecord {
    uint32_t addr;
    uint32_t len;
};

class Bootloader {
  public:
    using Clock = std::chrono::steady_clock;

    explicit Bootloader(Config cfg = Config());

    // Bytes from the host.
    void feed(const uint8_t *data, size_t len);
    // Copies up to max answer bytes that are due into out; their count.
    size_t take(uint8_t *out, size_t max);
    // When the first queued answer byte becomes readable; none when nothing is queued.
    std::optional<Clock::time_point> next_due() const;

    const Config &config() const { return cfg_; }
    const std::vector<uint8_t> &flash() const { return flash_; }
    const std::vector<uint8_t> &received() const { return received_; }
    const std::vector<WriteRecord> &writes() const { return writes_; }
    const Stats &stats() const { return stats_; }

    // Replaces the flash contents, as an older firmware left them: head from the base,
    // the rest filled with fill.
    void preload(const std::vector<uint8_t> &head, uint8_t fill);

    // Writes the first len bytes of the flash (all of it for 0) to path.
    bool dump_flash(const std::string &path, size_t len = 0) const;

  private:
    enum class Stage {
        kSync,
        kCommand,
        kComplement,
        kReadAddress,
        kReadCount,
        kGoAddress,
        kWriteAddress,
        kWriteLength,
        kWriteData,
        kEraseCount,
        kEraseGlobalChecksum,
        kEraseList,
        kExtEraseCount,
        kExtEraseSpecialChecksum,
        kExtEraseList,
    };

    void step();
    void command(uint8_t cmd);
    void expect(Stage stage, size_t bytes);
    void emit(std::initializer_list<uint8_t> bytes);
    void emit(const uint8_t *bytes, size_t len, Clock::duration delay = {});
    void ack(Clock::duration delay = {});
    void nack();
    bool parse_address(uint32_t *addr) const;
    bool in_flash(uint32_t addr, uint32_t len) const;
    void erase_pages(const std::vector<uint32_t> &pages);
    std::vector<uint8_t> command_codes() const;

    struct Out {
        Clock::time_point due;
        uint8_t byte;
    };

    Config cfg_;
    std::vector<uint8_t> flash_;
    std::vector<uint8_t> received_;
    std::vector<WriteRecord> writes_;
    Stats stats_;

    Stage stage_;
    size_t need_ = 1;
    std::vector<uint8_t> buf_;
    uint8_t cmd_ = 0;
    uint32_t addr_ = 0;
    size_t count_ = 0;
    int syncs_ignored_ = 0;
    bool silent_ = false;
    std::deque<Out> out_;
};

}  // namespace isp_sim
