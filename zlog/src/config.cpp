// Building a configuration from its [global], [formats] and [rules] lines.
#include "config.h"

#include "text.h"

namespace zl {

namespace {

constexpr const char *kDefaultFormat = "%d %V [%p:%F:%L] %m%n";

bool fail(std::string &err, std::string message) {
    err = std::move(message);
    return false;
}

}  // namespace

bool Config::set_global(std::string_view key, std::string_view value, std::string &err) {
    if (key == "default format") {
        std::string pattern;
        if (!unquote(value, pattern)) return fail(err, "default format must be quoted");
        default_format_ = Format::compile(pattern, err);
        return default_format_ != nullptr;
    }
    if (key == "strict init") {
        if (value != "true" && value != "false") return fail(err, "strict init: true or false");
        strict_ = value == "true";
    } else if (key == "file perms") {
        unsigned perms = 0;
        for (char c : value) {
            if (c < '0' || c > '7' || perms > 0777) return fail(err, "file perms: octal");
            perms = perms * 8 + static_cast<unsigned>(c - '0');
        }
        if (value.empty() || perms > 0777) return fail(err, "file perms: octal");
        file_perms_ = perms;
    }
    // Other keys (reload conf period, buffer min/max, fsync period, rotate lock file...)
    // have no effect here.
    return true;
}

bool Config::add_format(std::string_view line, std::string &err) {
    size_t eq = line.find('=');
    if (eq == std::string_view::npos) return fail(err, "format line without '='");
    std::string_view name = trim(line.substr(0, eq));
    std::string pattern;
    if (!is_word(name)) return fail(err, "bad format name");
    if (!unquote(line.substr(eq + 1), pattern)) return fail(err, "format must be quoted");
    if (formats_.count(name) != 0) return fail(err, "format defined twice");
    std::unique_ptr<Format> fmt = Format::compile(pattern, err);
    if (!fmt) return false;
    formats_.emplace(std::string(name), std::move(fmt));
    return true;
}

bool Config::add_rule(std::string_view line, std::string &err) {
    auto rule = std::make_unique<Rule>();
    bool ok = parse_rule(line, levels_, *rule, err);
    if (ok && !rule->format_name.empty()) {
        auto it = formats_.find(rule->format_name);
        if (it == formats_.end()) {
            ok = fail(err, "unknown format \"" + rule->format_name + "\"");
        } else {
            rule->format = it->second.get();
        }
    }
    if (ok) {
        if (rule->format == nullptr) {
            if (!default_format_) default_format_ = Format::compile(kDefaultFormat, err);
            rule->format = default_format_.get();
        }
        rule->sink = output_for(rule->output, err);
        ok = rule->sink != nullptr;
    }
    if (ok) {
        rules_.push_back(std::move(rule));
    }
    // Without strict init a bad rule is skipped.
    return ok || !strict_;
}

Output *Config::output_for(const OutputDecl &decl, std::string &err) {
    std::string key = decl.key();
    auto it = outputs_.find(key);
    if (it != outputs_.end()) return it->second.get();
    std::unique_ptr<Output> out = open_output(decl, file_perms_, err);
    if (!out) return nullptr;
    return outputs_.emplace(key, std::move(out)).first->second.get();
}

const RuleSet *Config::rules_for(const std::string &cname) {
    auto it = rule_sets_.find(cname);
    if (it != rule_sets_.end()) return it->second.get();
    auto set = std::make_unique<RuleSet>();
    set->table = &levels_;
    for (const auto &rule : rules_) {
        if (rule->matches(cname)) set->rules.push_back(rule.get());
    }
    // The "!" rules take the categories that no other rule takes.
    if (set->rules.empty()) {
        for (const auto &rule : rules_) {
            if (rule->is_wastebin()) set->rules.push_back(rule.get());
        }
    }
    if (set->rules.empty()) return nullptr;
    for (const Rule *rule : set->rules)
        set->levels.add(rule->levels);
    return rule_sets_.emplace(cname, std::move(set)).first->second.get();
}

}  // namespace zl
