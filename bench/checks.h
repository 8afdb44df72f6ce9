// The table rows: figures of the best run of each case, ratios beside their targets.
#pragma once

#include "report.h"

namespace bench {

void build_rows(Report *r);

}  // namespace bench
