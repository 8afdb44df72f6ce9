// A parsed configuration: levels, formats, rules and the outputs they opened. Immutable
// once built, except for the per-category rule sets added under the library's lock.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "format.h"
#include "levels.h"
#include "output.h"
#include "rule.h"

namespace zl {

// The rules of one category, in file order, and the union of the levels they take.
struct RuleSet {
    std::vector<const Rule *> rules;
    LevelMask levels;
    const LevelTable *table = nullptr;
};

class Config {
  public:
    // Reads and parses a file; a null path gives zlog's built-in "*.* >stdout".
    static std::unique_ptr<Config> load(const char *path, std::string &err);
    static std::unique_ptr<Config> parse(std::string_view text, std::string &err);

    // The rules for a category name, or null when no rule takes it. Callers serialise
    // calls; a returned set lives as long as the configuration.
    const RuleSet *rules_for(const std::string &cname);

    // Used by the parser.
    bool set_global(std::string_view key, std::string_view value, std::string &err);
    bool add_format(std::string_view line, std::string &err);
    bool add_rule(std::string_view line, std::string &err);
    LevelTable &levels() { return levels_; }

  private:
    Output *output_for(const OutputDecl &decl, std::string &err);

    LevelTable levels_;
    std::unique_ptr<Format> default_format_;
    std::map<std::string, std::unique_ptr<Format>, std::less<>> formats_;
    std::map<std::string, std::unique_ptr<Output>> outputs_;
    std::vector<std::unique_ptr<Rule>> rules_;
    std::map<std::string, std::unique_ptr<RuleSet>, std::less<>> rule_sets_;
    unsigned file_perms_ = 0600;
    bool strict_ = true;
};

}  // namespace zl
