// The same call many times, over many connections at once.
#pragma once

#include <string>

#include "client.h"
#include "json_output.h"
#include "options.h"

namespace hyrpc {

// Makes options.count calls on each of options.connections. How it went is printed as a table, or
// with --json put into `details`. It went well when every call was answered, without an error and
// alike.
Ending RunBench(const Options& options, const std::string& binary, Output& output, cJSON* details);

}  // namespace hyrpc
