// Initialisation, reload, finalisation and categories. These calls are serialised by one
// lock; logging threads never take it.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "category.h"
#include "config.h"
#include "mdc.h"
#include "state.h"

namespace zl {

std::atomic<bool> g_ready{false};
Epoch g_epoch;

namespace {

struct Library {
    std::unique_ptr<Config> config;
    std::map<std::string, std::unique_ptr<zlog_category_t>, std::less<>> categories;
    bool has_path = false;  // false: the built-in configuration
    std::string path;
};

std::mutex g_admin;

// Never destroyed, so that a thread still logging while the process exits finds it.
Library &lib() {
    static Library *l = new Library;
    return *l;
}

// zlog's convention: configuration errors go to the file named by ZLOG_PROFILE_ERROR.
void report(const char *path, const std::string &err) {
    const char *target = std::getenv("ZLOG_PROFILE_ERROR");
    if (target == nullptr || *target == '\0') return;
    if (FILE *f = std::fopen(target, "ae")) {
        std::fprintf(f, "zlog: %s: %s\n", path != nullptr ? path : "(built-in)", err.c_str());
        std::fclose(f);
    }
}

std::unique_ptr<Config> load(const char *path) {
    std::string err;
    std::unique_ptr<Config> cfg = Config::load(path, err);
    if (!cfg) report(path, err);
    return cfg;
}

}  // namespace

}  // namespace zl

using zl::g_ready;

int zlog_init(const char *config) {
    try {
        std::lock_guard<std::mutex> lock(zl::g_admin);
        if (g_ready.load()) return -1;
        if (config == nullptr) config = std::getenv("ZLOG_CONF_PATH");
        std::string path = config != nullptr ? config : "";
        std::unique_ptr<zl::Config> cfg = zl::load(config);
        if (!cfg) return -1;
        zl::Library &l = zl::lib();
        l.config = std::move(cfg);
        l.has_path = config != nullptr;
        l.path.swap(path);
        g_ready.store(true, std::memory_order_release);
        return 0;
    } catch (...) {
        return -1;
    }
}

int zlog_reload(const char *config) {
    try {
        std::lock_guard<std::mutex> lock(zl::g_admin);
        if (!g_ready.load()) return -1;
        zl::Library &l = zl::lib();
        std::string path = config != nullptr ? config : l.path;
        bool has_path = config != nullptr || l.has_path;
        std::unique_ptr<zl::Config> cfg = zl::load(has_path ? path.c_str() : nullptr);
        if (!cfg) return -1;  // the old configuration stays
        // Everything that may throw happens before the first category changes.
        std::vector<std::pair<zlog_category_t *, const zl::RuleSet *>> plan;
        plan.reserve(l.categories.size());
        for (auto &entry : l.categories) {
            plan.emplace_back(entry.second.get(), cfg->rules_for(entry.first));
        }
        for (auto &step : plan)
            step.first->assign(step.second);
        l.config.swap(cfg);
        l.has_path = has_path;
        l.path.swap(path);
        zl::g_epoch.synchronize();  // no thread reads the old configuration any more
        cfg.reset();
        return 0;
    } catch (...) {
        return -1;
    }
}

void zlog_fini(void) {
    try {
        std::lock_guard<std::mutex> lock(zl::g_admin);
        if (!g_ready.load()) return;
        g_ready.store(false);
        zl::Library &l = zl::lib();
        for (auto &entry : l.categories)
            entry.second->assign(nullptr);
        zl::g_epoch.synchronize();
        l.categories.clear();
        l.config.reset();
        l.has_path = false;
        std::string().swap(l.path);
        zl::mdc::clear();
    } catch (...) {
        // std::mutex::lock failing: nothing sensible to do
    }
}

zlog_category_t *zlog_get_category(const char *cname) {
    if (cname == nullptr) return nullptr;
    try {
        std::lock_guard<std::mutex> lock(zl::g_admin);
        if (!g_ready.load()) return nullptr;
        zl::Library &l = zl::lib();
        const zl::RuleSet *set = l.config->rules_for(cname);
        if (set == nullptr) return nullptr;  // unlike zlog: no rule takes the name
        auto it = l.categories.find(cname);
        if (it != l.categories.end()) return it->second.get();
        auto category = std::make_unique<zlog_category_t>(cname);
        category->assign(set);
        return l.categories.emplace(cname, std::move(category)).first->second.get();
    } catch (...) {
        return nullptr;
    }
}
