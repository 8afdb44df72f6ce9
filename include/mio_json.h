/*
 * mio_json.h - JSON helper layer over cJSON nodes (libcjson), as the configuration loader
 * uses it. A mio_json is a cJSON node; hosts do not need cJSON's header to use these.
 */
#ifndef MIO_JSON_H
#define MIO_JSON_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef SDK_API
#define SDK_API __attribute__((visibility("default")))
#endif

typedef struct cJSON mio_json;

/* Parses a file. The root of the tree, or NULL when the file cannot be read or parsed.
 * Release it with mio_json_delete. */
SDK_API mio_json *mio_json_fromfile(const char *p_path);
/* Parses a text; NULL when it is not JSON. */
SDK_API mio_json *mio_json_fromstring(const char *p_text);
SDK_API void mio_json_delete(mio_json *p_root);
/* The member node, or NULL when p_node is NULL, not an object, or has no such member. */
SDK_API mio_json *mio_json_getobjectitem(mio_json *p_node, const char *p_key);
/* The member's value as int32; -1 when the member is absent. Only a JSON number with an
 * integral value within int32 counts: a string of digits, a fraction, a boolean or an
 * out-of-range number also read -1, so the loader refuses them like a missing member. */
SDK_API int32_t mio_json_getobjectitemint(mio_json *p_node, const char *p_key);
/* The member's string, valid while the tree lives; NULL when absent or not a string. */
SDK_API char *mio_json_getobjectitemstr(mio_json *p_node, const char *p_key);
/* Number of elements of an array node; 0 for NULL or a node that is not an array. */
SDK_API uint32_t mio_json_getarraysize(mio_json *p_array);
/* Element n_index (from 0), or NULL when out of range or not an array. */
SDK_API mio_json *mio_json_getarrayitem(mio_json *p_array, uint32_t n_index);

#ifdef __cplusplus
}
#endif

#endif /* MIO_JSON_H */
