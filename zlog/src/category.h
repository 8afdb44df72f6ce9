// A category handed out by zlog_get_category. The object lives from its first fetch to
// zlog_fini; a reload swaps its rule set and level bitmap, so callers may keep it.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "config.h"
#include "zlog.h"

struct zlog_category_s {
    explicit zlog_category_s(std::string n) : name(std::move(n)) {}

    // The lock-free level test: one relaxed load of the bitmap word.
    bool enabled(int level) const {
        if (level < 0 || level >= zl::kLevelCount) return false;
        uint64_t word = levels[level >> 6].load(std::memory_order_relaxed);
        return (word >> (level & 63)) & 1U;
    }

    // Installs the rules of a new configuration (null: the category takes nothing now).
    void assign(const zl::RuleSet *set) {
        rules.store(set, std::memory_order_release);
        for (int i = 0; i < 4; ++i) {
            levels[i].store(set != nullptr ? set->levels.bits[i] : 0, std::memory_order_relaxed);
        }
    }

    const std::string name;
    // A copy of rules->levels, readable without touching the configuration. During a
    // reload it may briefly disagree with rules; each rule checks the level again.
    std::atomic<uint64_t> levels[4] = {};
    // Read inside an Epoch read section only.
    std::atomic<const zl::RuleSet *> rules{nullptr};
};
