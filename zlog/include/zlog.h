/*
 * zlog.h - the zlog 1.2 interface, implemented by the project's own small library for
 * machines that have no zlog installed. Host configuration files written for zlog work
 * unchanged.
 *
 * One deliberate difference from zlog: zlog_get_category() returns NULL for a name
 * that no rule of the configuration matches (no rule naming it or a parent of it, and
 * no "*" or "!" rule), where zlog would create an empty category. The logging facade
 * relies on that to report a configuration without its categories.
 *
 * What this library does with a configuration (see the project's zlog-subset notes):
 * - Sections [global], [levels], [formats], [rules], in that order, each optional.
 *   Unknown [global] keys are ignored; "default format", "strict init" and "file perms"
 *   are honoured. "#" starts a comment (at the start of a line or after a blank, outside
 *   quotes); a trailing backslash continues a line.
 * - Format conversions: %d, %d(strftime), %ms, %us, %c, %m, %n, %V, %v, %F, %f, %L, %U,
 *   %p, %t (thread id, hex), %T (thread id, decimal), %k (kernel thread id), %M(key),
 *   %E(VAR), %H (host name), %%, with printf-style width and precision (%-20.30c).
 * - Outputs: "path" (appended; opened at init, which fails when it cannot be opened;
 *   reopened when the file is moved away), -"path" (O_SYNC), paths holding conversions
 *   such as "%c.log" (opened for each line), >stdout, >stderr, >syslog[, LOG_LOCALn].
 *   Size rotation of fixed paths: "x.log", 10MB * 3 ~ "x.#r.log" ("#r" rolling with 0
 *   the newest, "#s" numbered in sequence; at most 3 archives), without the lock file.
 *   "| command" and "$record" outputs are accepted but not performed: their lines are
 *   dropped.
 * - Errors in a configuration are appended to the file named by ZLOG_PROFILE_ERROR.
 *
 * Threads: every call may be made from any thread. zlog_init, zlog_reload, zlog_fini and
 * zlog_get_category are serialised by one lock. zlog_level_enabled and zlog() on a level
 * that no rule of the category takes cost a bitmap test, without a lock. A line is
 * written whole by one write(2). Categories stay valid across reloads; after zlog_fini
 * a category pointer still held is ignored by zlog() and zlog_level_enabled(), but
 * calling zlog_fini while other threads are still logging is not allowed.
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

/* 0, or -1 for a missing, unreadable or malformed file and when already initialised.
 * NULL: the file named by ZLOG_CONF_PATH, else the built-in rule "*.* >stdout". */
ZLOG_API int zlog_init(const char *config);
/* NULL re-reads the last file. Atomic: on failure the old configuration stays. -1 before
 * init. Threads may go on logging meanwhile. */
ZLOG_API int zlog_reload(const char *config);
/* Closes the outputs and releases everything, the categories included. */
ZLOG_API void zlog_fini(void);

/* The category of that name, or NULL when no rule takes it (see above) or before init.
 * The same name always yields the same pointer until zlog_fini. */
ZLOG_API zlog_category_t *zlog_get_category(const char *cname);
/* 1 when some rule of the category takes the level, else 0 (also for NULL). */
ZLOG_API int zlog_level_enabled(zlog_category_t *category, int level);

/* Mapped diagnostic context, per thread; key and value at most 1024 characters.
 * zlog_put_mdc returns 0, or -1 before init or for a longer or NULL key or value.
 * zlog_get_mdc returns the calling thread's value (valid until it changes), or NULL. */
ZLOG_API int zlog_put_mdc(const char *key, const char *value);
ZLOG_API char *zlog_get_mdc(const char *key);
ZLOG_API void zlog_remove_mdc(const char *key);
ZLOG_API void zlog_clean_mdc(void);

/* Logs one line. Dropped silently before init, for a NULL category and for a level
 * that no rule of the category takes. */
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
