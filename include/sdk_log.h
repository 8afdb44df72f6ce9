/*
 * sdk_log.h - the library's logging facade over zlog.
 *
 * The host initialises the log once (sdk_log_init or pack_sdk_log_init) before it starts
 * the transfer engine; every line of the library then sets the MDC key "tag" to its
 * module's entry of tag_tab and goes to zlog with its source file, function and line.
 * Lines logged before an initialiser has succeeded are dropped.
 */
#ifndef SDK_LOG_H
#define SDK_LOG_H

#include <stdint.h>

#include <zlog.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef SDK_API
#define SDK_API __attribute__((visibility("default")))
#endif

/* Module tags; the text put into the MDC is the tag_tab entry, not the enumerator. */
typedef enum {
    LOG_OTHER = 0,
    LOG_XML,
    LOG_REPORT,
    LOG_INIT,
    LOG_SHM,
    LOG_DEVICE,
    LOG_INTERFACE,
    LOG_INPUT,
    LOG_OUTPUT,
    LOG_LAYER,
    LOG_MVR,
    LOG_SCREEN,
    LOG_PRESET,
    LOG_JSON,
    LOG_TRANSFER,
    LOG_TCP,
    LOG_UNIX,
    LOG_HAL,
    LOG_FONT,
    LOG_CU_TEST,
    LOG_UPGRADE,
    LOG_DISPATCHER,
    LOG_RVCARD_MANAGE,
    LOG_RVCARD_DISCOVER,
    LOG_CABINET_MANAGE,
    LOG_TOPOLOGY,
    LOG_SENDER_OUTPUT,
    LOG_CABINET_SERVICE,
    LOG_PICTURE,
    LOG_BMP,
    LOG_PLAYBACK,
    LOG_CENTRAL_CTRL,
    LOG_TRIGGER,
    LOG_SEND_SERVICE,
    LOG_DATA_CENTRE,
    LOG_HWSCREEN,
    LOG_ETH_CAPACITY,
    LOG_TAG_NUM /* count, 37 */
} TAG;

#define SDK_LOG_TAG_LEN 128

SDK_API extern const char tag_tab[LOG_TAG_NUM][SDK_LOG_TAG_LEN];

/* The library's log category ("sdk") and the debug-print category ("debug"). NULL until
 * an initialiser succeeds. Written only by the initialisers and reloads. */
SDK_API extern zlog_category_t *sdk_log_rules;
SDK_API extern zlog_category_t *sdk_printf_rules;

/* zlog_init(p_conf_path), categories "sdk" and "debug". 0, or -2000 ("log_init error;"
 * or "get cat fail" on standard output). Call before any other thread logs. */
SDK_API int32_t sdk_log_init(int8_t *p_conf_path);
/* As sdk_log_init with the caller's name for the log category. */
SDK_API int32_t pack_sdk_log_init(char *category, char *path);
/* zlog_reload, then categories "sdk" and "debug". 0, or -2000 (log left off). */
SDK_API int32_t sdk_log_reload_normal(int8_t *p_conf_path);
/* zlog_reload, then categories "picture" and "picture_debug". 0, or -2000. */
SDK_API int32_t sdk_log_reload_bigfile(int8_t *p_conf_path);
/* Base name of the running program from /proc/self/exe. 0, or -2000. processname must
 * hold up to 2048 bytes. */
SDK_API int32_t get_processname(char *processname);

#ifdef __cplusplus
}
#endif

#endif /* SDK_LOG_H */
