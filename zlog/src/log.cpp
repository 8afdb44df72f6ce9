// The logging calls: zlog() and vzlog(). The level test reads the category's bitmap
// without a lock; only accepted lines enter a read section, render and write.
#include <string>

#include "category.h"
#include "state.h"

namespace zl {

namespace {

bool wanted(const zlog_category_t *category, int level) {
    return category != nullptr && initialised() && category->enabled(level);
}

std::string_view view(const char *s, size_t len) {
    return s != nullptr ? std::string_view(s, len) : std::string_view();
}

void emit(const zlog_category_t *category, std::string_view file, std::string_view func, long line,
          int level, const char *format, va_list *args) noexcept {
    try {
        ReadSection section(g_epoch);
        if (!initialised()) return;  // finalised meanwhile
        const RuleSet *set = category->rules.load(std::memory_order_acquire);
        if (set == nullptr) return;
        Event ev(category->name, file, func, line, level, format, args, *set->table);
        thread_local std::string buf;
        const Format *rendered = nullptr;  // rules sharing a format print the same text
        for (const Rule *rule : set->rules) {
            if (!rule->accepts(level)) continue;
            if (rule->format != rendered) {
                buf.clear();
                rule->format->render(ev, buf);
                rendered = rule->format;
            }
            rule->sink->write(buf, ev);
        }
    } catch (...) {
        // Out of memory while formatting: the line is lost.
    }
}

}  // namespace

}  // namespace zl

int zlog_level_enabled(zlog_category_t *category, int level) {
    return zl::wanted(category, level) ? 1 : 0;
}

void zlog(zlog_category_t *category, const char *file, size_t filelen, const char *func,
          size_t funclen, long line, int level, const char *format, ...) {
    if (!zl::wanted(category, level)) return;
    va_list args;
    va_start(args, format);
    zl::emit(category, zl::view(file, filelen), zl::view(func, funclen), line, level, format,
             &args);
    va_end(args);
}

void vzlog(zlog_category_t *category, const char *file, size_t filelen, const char *func,
           size_t funclen, long line, int level, const char *format, va_list args) {
    if (!zl::wanted(category, level)) return;
    va_list copy;
    va_copy(copy, args);
    zl::emit(category, zl::view(file, filelen), zl::view(func, funclen), line, level, format,
             &copy);
    va_end(copy);
}
