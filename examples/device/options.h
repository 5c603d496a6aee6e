// The command line of hydevice.
#pragma once

#include "settings.h"

namespace hydevice {

enum class ParseResult { kRun, kDone, kBadUsage };

// Reads the settings file, if one is named, and lets the options have the last word. kDone: --help
// was printed; kBadUsage: one line on stderr says what is wrong.
ParseResult ParseOptions(int argc, char** argv, Settings& settings);

}  // namespace hydevice
