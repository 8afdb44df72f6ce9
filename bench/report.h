// Results: the metric files that case processes leave for the driver, the checks against
// the targets, the table on standard output and results.json.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "harness.h"

namespace bench {

bool write_metrics(const std::string &path, const Metrics &m);
bool read_metrics(const std::string &path, Metrics *m);

// One line of the table: a measured figure, and for a target its ratio and verdict.
struct Row {
    std::string section;
    std::string what;
    double value = 0;
    std::string unit;
    std::string target;  // empty: for information
    bool pass = true;
    int stretch = -1;  // a stretch goal beside the target: -1 none, 0 not reached, 1 reached
};

struct Report {
    std::map<std::string, std::string> settings;  // log level, serial device, ...
    std::map<std::string, Metrics> cases;         // best run of each case
    // The rate of every round of a compared case, by round: cases of one group run one
    // after the other in each round, so a ratio of two of them is taken round by round.
    std::map<std::string, std::map<int, double>> round_rates;
    std::vector<Row> rows;
};

void print_table(const Report &r);
bool write_json(const std::string &path, const Report &r);

}  // namespace bench
