/*
 * zlog.h - the zlog 1.2 interface, implemented by the project's own small library for
 * machines that have no zlog installed. Host configuration files written for zlog work
 * unchanged.
 *
 * One deliberate difference from zlog: zlog_get_category() returns NULL for a name
 * that no rule of the configuration matches (no rule naming it or a parent of it, and
 * no "*" or "!" rule), where zlog would create an empty category. The logging facade
 * relies on that to report a configuration without its categories.
 */
#ifndef ZLOG_H
#define ZLOG_H

#include <stdarg.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef ZLOG_API
#define ZLOG_API __attribute__((visibility("default")))
#endif

typedef struct zlog_category_s zlog_category_t;

ZLOG_API int zlog_init(const char *config);
/* NULL re-reads the last file. Atomic: on failure the old configuration stays. */
ZLOG_API int zlog_reload(const char *config);
ZLOG_API void zlog_fini(void);

ZLOG_API zlog_category_t *zlog_get_category(const char *cname);
ZLOG_API int zlog_level_enabled(zlog_category_t *category, int level);

/* Mapped diagnostic context, per thread; key and value at most 1024 characters. */
ZLOG_API int zlog_put_mdc(const char *key, const char *value);
ZLOG_API char *zlog_get_mdc(const char *key);
ZLOG_API void zlog_remove_mdc(const char *key);
ZLOG_API void zlog_clean_mdc(void);

ZLOG_API void zlog(zlog_category_t *category, const char *file, size_t filelen, const char *func,
                   size_t funclen, long line, int level, const char *format, ...)
    __attribute__((format(printf, 8, 9)));
ZLOG_API void vzlog(zlog_category_t *category, const char *file, size_t filelen,
                    const char *func, size_t funclen, long line, int level, const char *format,
                    va_list args);

typedef enum {
    ZLOG_LEVEL_DEBUG = 20,
    ZLOG_LEVEL_INFO = 40,
    ZLOG_LEVEL_NOTICE = 60,
    ZLOG_LEVEL_WARN = 80,
    ZLOG_LEVEL_ERROR = 100,
    ZLOG_LEVEL_FATAL = 120
} zlog_level;

#define ZLOG_CALL_(cat, lvl, ...) \
    zlog(cat, __FILE__, sizeof(__FILE__) - 1, __func__, sizeof(__func__) - 1, __LINE__, lvl, \
         __VA_ARGS__)
#define zlog_fatal(cat, ...) ZLOG_CALL_(cat, ZLOG_LEVEL_FATAL, __VA_ARGS__)
#define zlog_error(cat, ...) ZLOG_CALL_(cat, ZLOG_LEVEL_ERROR, __VA_ARGS__)
#define zlog_warn(cat, ...) ZLOG_CALL_(cat, ZLOG_LEVEL_WARN, __VA_ARGS__)
#define zlog_notice(cat, ...) ZLOG_CALL_(cat, ZLOG_LEVEL_NOTICE, __VA_ARGS__)
#define zlog_info(cat, ...) ZLOG_CALL_(cat, ZLOG_LEVEL_INFO, __VA_ARGS__)
#define zlog_debug(cat, ...) ZLOG_CALL_(cat, ZLOG_LEVEL_DEBUG, __VA_ARGS__)

#ifdef __cplusplus
}
#endif

#endif /* ZLOG_H */
