// A compiled format pattern ("%d(%F %T).%ms %-5V [%M(tag)] %m%n") and its renderer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "event.h"

namespace zl {

enum class Conv : uint8_t {
    Literal,     // text copied as is (also %%, %E(VAR) and %H, resolved when compiled)
    Time,        // %d, %d(strftime pattern)
    Msec,        // %ms
    Usec,        // %us
    Category,    // %c
    Message,     // %m
    Newline,     // %n
    LevelUpper,  // %V
    LevelLower,  // %v
    File,        // %F
    FileBase,    // %f
    Line,        // %L
    Func,        // %U
    Pid,         // %p
    TidHex,      // %t
    TidDec,      // %T
    KernelTid,   // %k
    Mdc,         // %M(key)
};

struct Conversion {
    Conv conv = Conv::Literal;
    bool left = false;   // '-': pad on the right
    int width = 0;       // minimum width
    int precision = -1;  // maximum width, -1 for none
    std::string text;    // literal text, strftime pattern or MDC key
};

class Format {
  public:
    // Compiles a pattern. Null with a message for an unknown or malformed conversion.
    static std::unique_ptr<Format> compile(std::string_view pattern, std::string &err);

    // Appends the rendering of the event to out.
    void render(Event &ev, std::string &out) const;

    // True when the pattern holds no per-line conversion (a file path that never changes).
    bool is_constant() const;

  private:
    std::vector<Conversion> conversions_;
};

}  // namespace zl
