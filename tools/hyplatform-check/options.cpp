#include "options.h"

#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>

#include "check.h"

namespace {

constexpr char kUsage[] =
    "usage: hyplatform-check [OPTION]... [LIBRARY]\n"
    "\n"
    "Checks whether LIBRARY keeps what arch.h promises, and has the functions of MD5 and of the "
    "TLV\n"
    "codec, one line a function. Without LIBRARY: libhyplatform.so.1, wherever the loader finds "
    "it.\n"
    "\n"
    "  -l, --list         print the names of the functions and end\n"
    "  -o, --only NAME    check this function only; may be given several times\n"
    "  -j, --json         print one JSON object instead of lines\n"
    "  -s, --seconds N    stir up threads for so long in each check that does, default 1\n"
    "  -t, --timeout N    end a check that takes longer, default 4 seconds more than --seconds\n"
    "      --slow         the device is slow: the default of --timeout is 120 seconds more\n"
    "  -h, --help         this page\n"
    "  -V, --version      the version\n"
    "\n"
    "Exit status: 0 all passed, 1 some failed, 2 the library cannot be loaded, 3 bad usage\n"
    "or results that cannot be written.\n";

constexpr double kBeyondStressSeconds = 4, kSlowSeconds = 120;

enum LongOption { kSlow = 256 };

const option kLongOptions[] = {
    {"list", no_argument, nullptr, 'l'},
    {"only", required_argument, nullptr, 'o'},
    {"json", no_argument, nullptr, 'j'},
    {"seconds", required_argument, nullptr, 's'},
    {"timeout", required_argument, nullptr, 't'},
    {"slow", no_argument, nullptr, kSlow},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

ParseResult Refuse(const std::string& reason) {
    fprintf(stderr, "hyplatform-check: %s; see hyplatform-check --help\n", reason.c_str());
    return ParseResult::kBadUsage;
}

bool ParseSeconds(const char* text, double* seconds) {
    char* end = nullptr;
    *seconds = strtod(text, &end);
    return end != text && *end == '\0' && *seconds > 0 && *seconds <= 86400;
}

bool AddFunction(const std::string& name, std::vector<Function>* functions) {
    const auto& all = Functions();
    const auto found = std::find_if(
        all.begin(), all.end(), [&](const Function& function) { return function.name == name; });
    if (found == all.end()) return false;
    functions->push_back(*found);
    return true;
}

ParseResult Answer(const char* text) {
    fputs(text, stdout);
    return ParseResult::kDone;
}

// A name without a slash that lies in the current folder is meant as that file: the loader would
// not look there.
std::string AsPath(const std::string& library) {
    if (library.find('/') != std::string::npos || access(library.c_str(), F_OK) != 0)
        return library;
    return "./" + library;
}

}  // namespace

ParseResult ParseOptions(int argc, char** argv, Options& options) {
    opterr = 0;
    for (;;) {
        const int letter = getopt_long(argc, argv, "lo:js:t:hV", kLongOptions, nullptr);
        if (letter == -1) break;
        switch (letter) {
            case 'l':
                options.list = true;
                break;
            case 'o':
                if (!AddFunction(optarg, &options.functions))
                    return Refuse("no function '" + std::string(optarg) + "', --list names them");
                break;
            case 'j':
                options.json = true;
                break;
            case 's':
                if (!ParseSeconds(optarg, &settings.stress_seconds))
                    return Refuse("--seconds takes a number above 0");
                break;
            case 't':
                if (!ParseSeconds(optarg, &options.limit_seconds))
                    return Refuse("--timeout takes a number above 0");
                break;
            case kSlow:
                options.slow = true;
                break;
            case 'h':
                return Answer(kUsage);
            case 'V':
                return Answer("hyplatform-check " HYPLATFORM_CHECK_VERSION "\n");
            default:
                return Refuse("unknown option or missing value");
        }
    }
    if (argc - optind > 1) return Refuse("one LIBRARY only");
    if (argc > optind) options.library = AsPath(argv[optind]);
    if (options.functions.empty()) options.functions = Functions();
    if (options.limit_seconds == 0) {
        options.limit_seconds = settings.stress_seconds + kBeyondStressSeconds;
        if (options.slow) options.limit_seconds += kSlowSeconds;
    }
    return ParseResult::kRun;
}
