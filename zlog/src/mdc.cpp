// The MDC and its C interface. Each thread has its own small list of pairs; strings keep
// their capacity, so setting the same key before every line does not allocate.
#include "mdc.h"

#include <cstring>
#include <utility>
#include <vector>

#include "state.h"
#include "zlog.h"

namespace zl::mdc {

namespace {

struct Pair {
    std::string key;
    std::string value;
};

std::vector<Pair> &pairs() {
    thread_local std::vector<Pair> list;
    return list;
}

Pair *lookup(std::string_view key) {
    for (Pair &p : pairs()) {
        if (p.key == key) return &p;
    }
    return nullptr;
}

}  // namespace

const std::string *find(std::string_view key) {
    Pair *p = lookup(key);
    return p != nullptr ? &p->value : nullptr;
}

void clear() {
    std::vector<Pair>().swap(pairs());
}

}  // namespace zl::mdc

using zl::mdc::kMaxLength;

int zlog_put_mdc(const char *key, const char *value) {
    if (!zl::initialised() || key == nullptr || value == nullptr) return -1;
    size_t klen = strnlen(key, kMaxLength + 1);
    size_t vlen = strnlen(value, kMaxLength + 1);
    if (klen == 0 || klen > kMaxLength || vlen > kMaxLength) return -1;
    try {
        std::string_view k(key, klen);
        if (zl::mdc::Pair *p = zl::mdc::lookup(k)) {
            p->value.assign(value, vlen);
        } else {
            zl::mdc::pairs().push_back({std::string(k), std::string(value, vlen)});
        }
        return 0;
    } catch (...) {
        return -1;
    }
}

char *zlog_get_mdc(const char *key) {
    if (!zl::initialised() || key == nullptr) return nullptr;
    zl::mdc::Pair *p = zl::mdc::lookup(key);
    return p != nullptr ? &p->value[0] : nullptr;
}

void zlog_remove_mdc(const char *key) {
    if (key == nullptr) return;
    auto &list = zl::mdc::pairs();
    for (size_t i = 0; i < list.size(); ++i) {
        if (list[i].key == key) {
            if (i + 1 != list.size()) list[i] = std::move(list.back());
            list.pop_back();
            return;
        }
    }
}

void zlog_clean_mdc(void) {
    zl::mdc::pairs().clear();
}
