// Internal logging macros of the library.
//
// Every line puts its module's tag into the MDC key "tag" and then calls zlog with the
// source file, function and line. The level test comes first, so a line that no rule of
// the category accepts costs a pointer load and zlog_level_enabled: no formatting, no MDC
// write, no lock. Before an initialiser has run the category is NULL and the line is
// dropped.
#pragma once

#include "sdk_log.h"

namespace sdk {

// The category pointers are written by the initialisers while other threads may log;
// read them with an atomic load so a reload never tears.
inline zlog_category_t *log_category() {
    return __atomic_load_n(&sdk_log_rules, __ATOMIC_ACQUIRE);
}
inline zlog_category_t *printf_category() {
    return __atomic_load_n(&sdk_printf_rules, __ATOMIC_ACQUIRE);
}

}  // namespace sdk

#define SDK_LOG_TO(cat_expr, tag, level, ...)                                              \
    do {                                                                                   \
        zlog_category_t *sdk_cat_ = (cat_expr);                                            \
        if (sdk_cat_ != nullptr && zlog_level_enabled(sdk_cat_, (level))) {                \
            zlog_put_mdc("tag", tag_tab[(tag)]);                                           \
            zlog(sdk_cat_, __FILE__, sizeof(__FILE__) - 1, __func__, sizeof(__func__) - 1, \
                 __LINE__, (level), __VA_ARGS__);                                          \
        }                                                                                  \
    } while (0)

// The library's log ("sdk" category).
#define SDK_LOG(tag, level, ...) SDK_LOG_TO(sdk::log_category(), tag, level, __VA_ARGS__)
#define LOGD(tag, ...) SDK_LOG(tag, ZLOG_LEVEL_DEBUG, __VA_ARGS__)
#define LOGI(tag, ...) SDK_LOG(tag, ZLOG_LEVEL_INFO, __VA_ARGS__)
#define LOGE(tag, ...) SDK_LOG(tag, ZLOG_LEVEL_ERROR, __VA_ARGS__)

// The usual tag of transfer_server and transfer_manage.
#define TLOGD(...) LOGD(LOG_TRANSFER, __VA_ARGS__)
#define TLOGI(...) LOGI(LOG_TRANSFER, __VA_ARGS__)
#define TLOGE(...) LOGE(LOG_TRANSFER, __VA_ARGS__)

// The debug print ("debug" category).
#define SDK_PRINTF(tag, level, ...) SDK_LOG_TO(sdk::printf_category(), tag, level, __VA_ARGS__)
