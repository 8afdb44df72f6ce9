// JSON helper layer over cJSON nodes, as the configuration loader reads the file.
#include "mio_json.h"

#include <cjson/cJSON.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

namespace {

// The configuration file is small; anything beyond this is not a configuration.
constexpr long kMaxFileBytes = 16L * 1024 * 1024;

bool read_file(const char *path, std::string *out) {
    FILE *f = fopen(path, "rb");
    if (f == nullptr) return false;
    bool ok = fseek(f, 0, SEEK_END) == 0;
    long size = ok ? ftell(f) : -1;
    ok = ok && size >= 0 && size <= kMaxFileBytes && fseek(f, 0, SEEK_SET) == 0;
    if (ok) {
        out->resize(static_cast<size_t>(size));
        ok = fread(out->data(), 1, out->size(), f) == out->size();
    }
    fclose(f);
    return ok;
}

}  // namespace

extern "C" {

SDK_API mio_json *mio_json_fromfile(const char *p_path) {
    if (p_path == nullptr) return nullptr;
    std::string text;
    if (!read_file(p_path, &text)) return nullptr;
    return cJSON_ParseWithLength(text.data(), text.size());
}

SDK_API mio_json *mio_json_fromstring(const char *p_text) {
    return p_text == nullptr ? nullptr : cJSON_Parse(p_text);
}

SDK_API void mio_json_delete(mio_json *p_root) {
    cJSON_Delete(p_root);
}

SDK_API mio_json *mio_json_getobjectitem(mio_json *p_node, const char *p_key) {
    if (p_node == nullptr || p_key == nullptr || !cJSON_IsObject(p_node)) return nullptr;
    return cJSON_GetObjectItemCaseSensitive(p_node, p_key);
}

// Only a JSON number with an integral value that fits in int32 is an integer here; any
// other member (a string of digits, a fraction, true/false, null, an object) reads -1,
// exactly like an absent member, so the loader refuses it instead of guessing.
SDK_API int32_t mio_json_getobjectitemint(mio_json *p_node, const char *p_key) {
    const cJSON *item = mio_json_getobjectitem(p_node, p_key);
    if (item == nullptr || !cJSON_IsNumber(item)) return -1;
    double v = item->valuedouble;
    if (!std::isfinite(v) || std::floor(v) != v) return -1;
    if (v < std::numeric_limits<int32_t>::min() || v > std::numeric_limits<int32_t>::max()) {
        return -1;
    }
    return static_cast<int32_t>(v);
}

SDK_API char *mio_json_getobjectitemstr(mio_json *p_node, const char *p_key) {
    cJSON *item = mio_json_getobjectitem(p_node, p_key);
    return cJSON_IsString(item) ? item->valuestring : nullptr;
}

SDK_API uint32_t mio_json_getarraysize(mio_json *p_array) {
    if (!cJSON_IsArray(p_array)) return 0;
    int n = cJSON_GetArraySize(p_array);
    return n < 0 ? 0 : static_cast<uint32_t>(n);
}

SDK_API mio_json *mio_json_getarrayitem(mio_json *p_array, uint32_t n_index) {
    if (!cJSON_IsArray(p_array) || n_index > static_cast<uint32_t>(INT32_MAX)) return nullptr;
    return cJSON_GetArrayItem(p_array, static_cast<int>(n_index));
}

}  // extern "C"
