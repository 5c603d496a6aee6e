#ifndef HYPLATFORM_CHECK_OPTIONS_H
#define HYPLATFORM_CHECK_OPTIONS_H

#include <string>
#include <vector>

#include "runner.h"

struct Options {
    std::string library = "libhyplatform.so.1";
    std::vector<Function> functions;  // to be checked
    double limit_seconds = 0;         // of one function
    bool json = false;
    bool list = false;
    bool slow = false;  // the device: more time for each function
};

enum class ParseResult { kRun, kDone, kBadUsage };

// Fills `options` and the settings of the checks. kDone: the answer is printed already.
ParseResult ParseOptions(int argc, char** argv, Options& options);

#endif
