// The words of hyrpc: call, watch, raw, bench.
#pragma once

#include "ending.h"
#include "json_output.h"
#include "options.h"
#include "output.h"

namespace hyrpc {

// Does what the options say. Results go to `output`, or, with --json, as far as they belong to the
// run as a whole, into `details`.
Ending Run(const Options& options, Output& output, cJSON* details);

}  // namespace hyrpc
