#include "rotate.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace zl {

namespace {

std::string archive_name(const std::string &head, const std::string &tail, long index, int width) {
    char digits[32];
    std::snprintf(digits, sizeof(digits), "%0*ld", width, index);
    return head + digits + tail;
}

// The indexes of the archives "head<digits>tail" that exist, ascending.
std::vector<long> existing(const std::string &head, const std::string &tail) {
    size_t slash = head.rfind('/');
    std::string dir = slash == std::string::npos ? "." : head.substr(0, slash + 1);
    std::string prefix = slash == std::string::npos ? head : head.substr(slash + 1);
    std::vector<long> found;
    DIR *d = opendir(dir.c_str());
    if (d == nullptr) return found;
    while (dirent *e = readdir(d)) {
        std::string name = e->d_name;
        if (name.size() <= prefix.size() + tail.size()) continue;
        if (name.compare(0, prefix.size(), prefix) != 0) continue;
        if (name.compare(name.size() - tail.size(), tail.size(), tail) != 0) continue;
        std::string mid = name.substr(prefix.size(), name.size() - prefix.size() - tail.size());
        if (mid.size() > 9 || mid.find_first_not_of("0123456789") != std::string::npos) continue;
        found.push_back(std::stol(mid));
    }
    closedir(d);
    std::sort(found.begin(), found.end());
    return found;
}

}  // namespace

std::unique_ptr<Rotation> Rotation::create(const std::string &path, long max_size, long max_count,
                                           const std::string &pattern, std::string &err) {
    auto r = std::make_unique<Rotation>();
    r->path_ = path;
    r->max_size_ = max_size;
    r->max_count_ = max_count;
    std::string p = pattern.empty() ? path + ".#r" : pattern;
    size_t hash = p.find('#');
    size_t kind = hash == std::string::npos ? hash : p.find_first_not_of("0123456789", hash + 1);
    if (kind == std::string::npos || (p[kind] != 'r' && p[kind] != 's') || kind - hash > 3) {
        err = "rotation pattern needs #r or #s";
        return nullptr;
    }
    r->rolling_ = p[kind] == 'r';
    r->width_ = kind > hash + 1 ? std::stoi(p.substr(hash + 1, kind - hash - 1)) : 0;
    r->before_ = Format::compile(p.substr(0, hash), err);
    r->after_ = Format::compile(p.substr(kind + 1), err);
    if (!r->before_ || !r->after_) return nullptr;
    return r;
}

void Rotation::rotate(Event &ev) const {
    std::string head, tail;
    before_->render(ev, head);
    after_->render(ev, tail);
    std::vector<long> have = existing(head, tail);
    if (rolling_) {
        // Older archives move up one place; those beyond the count go.
        for (auto it = have.rbegin(); it != have.rend(); ++it) {
            std::string from = archive_name(head, tail, *it, width_);
            if (max_count_ > 0 && *it + 1 >= max_count_) {
                ::unlink(from.c_str());
            } else {
                std::rename(from.c_str(), archive_name(head, tail, *it + 1, width_).c_str());
            }
        }
        std::rename(path_.c_str(), archive_name(head, tail, 0, width_).c_str());
        return;
    }
    long next = have.empty() ? 0 : have.back() + 1;
    std::rename(path_.c_str(), archive_name(head, tail, next, width_).c_str());
    have.push_back(next);
    for (size_t i = 0; max_count_ > 0 && have.size() - i > static_cast<size_t>(max_count_); ++i) {
        ::unlink(archive_name(head, tail, have[i], width_).c_str());
    }
}

}  // namespace zl
