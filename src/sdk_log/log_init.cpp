// Initialisers and reloads of the logging facade.
#include <cstdio>

#include "common/result.h"
#include "sdk_log.h"

extern "C" {
SDK_API zlog_category_t *sdk_log_rules = nullptr;
SDK_API zlog_category_t *sdk_printf_rules = nullptr;
}

namespace {

using zlog_start_fn = int (*)(const char *);

void store(zlog_category_t **slot, zlog_category_t *value) {
    // Other threads may be logging through the old category while a reload runs.
    __atomic_store_n(slot, value, __ATOMIC_RELEASE);
}

// The common steps: start zlog, fetch both categories, tag the calling thread "OTHER".
// A missing category finalises zlog again, so the log stays off until the next success;
// a category already stored stays in its variable.
int32_t log_start(zlog_start_fn start, const char *conf_path, const char *log_cat,
                  const char *printf_cat) {
    if (start(conf_path) != 0) {
        // The line is ended: without the newline the host's next output would run on
        // behind it.
        printf("log_init error;\n");
        fflush(stdout);
        return sdk::kErrLog;
    }
    zlog_category_t *cat = zlog_get_category(log_cat);
    store(&sdk_log_rules, cat);
    if (cat != nullptr) {
        zlog_put_mdc("tag", tag_tab[LOG_OTHER]);
        zlog_category_t *dbg = zlog_get_category(printf_cat);
        store(&sdk_printf_rules, dbg);
        if (dbg != nullptr) return sdk::kOk;
    }
    printf("get cat fail\n");
    fflush(stdout);
    zlog_fini();
    return sdk::kErrLog;
}

const char *path_of(const int8_t *p) {
    return reinterpret_cast<const char *>(p);
}

}  // namespace

extern "C" {

SDK_API int32_t sdk_log_init(int8_t *p_conf_path) {
    return log_start(zlog_init, path_of(p_conf_path), "sdk", "debug");
}

SDK_API int32_t pack_sdk_log_init(char *category, char *path) {
    if (category == nullptr) return sdk::kErrLog;
    return log_start(zlog_init, path, category, "debug");
}

SDK_API int32_t sdk_log_reload_normal(int8_t *p_conf_path) {
    return log_start(zlog_reload, path_of(p_conf_path), "sdk", "debug");
}

SDK_API int32_t sdk_log_reload_bigfile(int8_t *p_conf_path) {
    return log_start(zlog_reload, path_of(p_conf_path), "picture", "picture_debug");
}

}  // extern "C"
