// The same call many times, over many connections at once.
#pragma once

#include <stdio.h>

#include <string>

#include "client.h"
#include "options.h"

namespace hyrpc {

// Makes options.count calls on each of options.connections and prints how it went. True when every
// call was answered without an error and alike; otherwise `outcome` is the first failure, kAnswered
// when there was none but an answer was an error or differed from the others.
bool RunBench(const Options& options, const std::string& binary, FILE* results, Outcome& outcome);

}  // namespace hyrpc
