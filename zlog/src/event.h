// One logging call: what the caller passed, plus the derived values (message text, time,
// thread ids) computed at most once however many rules print the line.
#pragma once

#include <cstdarg>
#include <ctime>
#include <string>
#include <string_view>

#include "levels.h"

namespace zl {

class Event {
  public:
    Event(std::string_view category, std::string_view file, std::string_view func, long line,
          int level, const char *fmt, va_list *args, const LevelTable &levels)
        : category(category),
          file(file),
          func(func),
          line(line),
          level(level),
          levels(levels),
          fmt_(fmt),
          args_(args) {}

    const std::string_view category;
    const std::string_view file;
    const std::string_view func;
    const long line;
    const int level;
    const LevelTable &levels;

    const std::string &message();   // the caller's printf text
    const timespec &now();          // wall-clock time of the call
    const struct tm &local_time();  // now() broken down in local time

  private:
    const char *fmt_;
    va_list *args_;
    const std::string *message_ = nullptr;
    bool have_now_ = false;
    timespec now_{};
    const struct tm *tm_ = nullptr;
};

}  // namespace zl
