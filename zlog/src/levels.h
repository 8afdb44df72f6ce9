// The level table: zlog's six levels plus those a [levels] section adds.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace zl {

constexpr int kLevelCount = 256;    // levels are 0..255
constexpr int kUnknownLevel = 254;  // printed for a number the table does not define

struct Level {
    std::string upper;  // %V
    std::string lower;  // %v
    int syslog = 0;     // syslog priority for >syslog outputs
    bool defined = false;
};

class LevelTable {
  public:
    LevelTable();  // DEBUG 20, INFO 40, NOTICE 60, WARN 80, ERROR 100, FATAL 120

    // A [levels] line "NAME = number[, syslog level]". False with a message on error.
    bool parse_line(std::string_view line, std::string &err);

    // The number of a level name (case-insensitive), or -1.
    int find(std::string_view name) const;

    // The entry of a level number; the UNKNOWN entry for numbers not defined.
    const Level &get(int level) const;

  private:
    void define(std::string_view name, int value, int syslog);
    std::array<Level, kLevelCount> table_;
};

}  // namespace zl
