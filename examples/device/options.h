// The command line of hydevice.
#pragma once

#include "device.h"

namespace hydevice {

enum class ParseResult { kRun, kDone, kBadUsage };

// kDone: --help was printed; kBadUsage: one line on stderr says what is wrong.
ParseResult ParseOptions(int argc, char** argv, Options& options);

}  // namespace hydevice
