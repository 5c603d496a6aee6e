#include "options.h"

#include <cjson/cJSON.h>
#include <getopt.h>
#include <hybase/grpc.h>
#include <stdio.h>
#include <stdlib.h>

namespace hyrpc {
namespace {

constexpr char kUsage[] =
    "usage: hyrpc [OPTION]... ADDRESS METHOD ['JSON']\n"
    "       hyrpc --watch [OPTION]... ADDRESS\n"
    "\n"
    "Calls METHOD of the device at ADDRESS with the parameter JSON and prints the response.\n"
    "ADDRESS is HOST:PORT, [V6]:PORT or unix:NAME (an abstract Unix socket).\n"
    "\n"
    "  -u, --user USER          account that signs the call, with -p\n"
    "  -p, --password PASSWORD  its password; it does not travel, only a digest does\n"
    "  -l, --login RECORD       record that opens the connection, \"user;password\"\n"
    "  -t, --timeout SECONDS    give up after that long, default 10\n"
    "      --bin-in FILE        send FILE as binary data behind the request\n"
    "      --bin-out FILE       write the binary data behind the response to FILE\n"
    "      --watch              print notifications as they come, one JSON line each\n"
    "      --count N            with --watch: end after N notifications\n"
    "  -v, --verbose            what the library logs, on stderr\n"
    "  -h, --help               this page\n"
    "  -V, --version            the version\n"
    "\n"
    "Exit status: 0 the call succeeded, 1 the method reported an error, 2 no connection,\n"
    "login refused or time-out, 3 bad usage. Errors are one line on stderr.\n"
    "\n"
    "  hyrpc -u admin -p secret 127.0.0.1:8600 add '{\"a\": 1, \"b\": 2}'\n";

enum LongOption { kBinIn = 256, kBinOut, kWatch, kCount };

const option kLongOptions[] = {
    {"user", required_argument, nullptr, 'u'},
    {"password", required_argument, nullptr, 'p'},
    {"login", required_argument, nullptr, 'l'},
    {"timeout", required_argument, nullptr, 't'},
    {"bin-in", required_argument, nullptr, kBinIn},
    {"bin-out", required_argument, nullptr, kBinOut},
    {"watch", no_argument, nullptr, kWatch},
    {"count", required_argument, nullptr, kCount},
    {"verbose", no_argument, nullptr, 'v'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

ParseResult Refuse(const std::string& reason) {
    fprintf(stderr, "hyrpc: %s; see hyrpc --help\n", reason.c_str());
    return ParseResult::kBadUsage;
}

bool ParseCount(const char* text, int max, int& value) {
    char* end = nullptr;
    long number = strtol(text, &end, 10);
    if (end == text || *end != '\0' || number < 1 || number > max) return false;
    value = static_cast<int>(number);
    return true;
}

ParseResult ParsePositional(int count, char** words, Options& options) {
    int most = options.watch ? 1 : 3;
    int least = options.watch ? 1 : 2;
    if (count < least) return Refuse(count < 1 ? "ADDRESS is missing" : "METHOD is missing");
    if (count > most) return Refuse("too many words, quote the JSON");
    std::string error;
    if (!ParseAddress(words[0], options.address, error)) return Refuse(error);
    if (count > 1) options.method = words[1];
    if (!options.watch && options.method.empty()) return Refuse("METHOD is empty");
    if (count < 3) return ParseResult::kRun;

    options.param = words[2];
    cJSON* tree = cJSON_Parse(options.param.c_str());
    if (tree == nullptr) return Refuse("the parameter is not JSON: " + options.param);
    cJSON_Delete(tree);
    return ParseResult::kRun;
}

}  // namespace

ParseResult ParseOptions(int argc, char** argv, Options& options) {
    constexpr int kMaxSeconds = 24 * 3600;
    opterr = 0;
    for (;;) {
        int letter = getopt_long(argc, argv, "u:p:l:t:vhV", kLongOptions, nullptr);
        if (letter == -1) break;
        switch (letter) {
            case 'u':
                options.user = optarg;
                break;
            case 'p':
                options.password = optarg;
                options.has_password = true;
                break;
            case 'l':
                options.login_record = optarg;
                break;
            case 't':
                if (!ParseCount(optarg, kMaxSeconds, options.timeout_seconds))
                    return Refuse("-t takes seconds, 1 to 86400");
                break;
            case kBinIn:
                options.bin_in = optarg;
                break;
            case kBinOut:
                options.bin_out = optarg;
                break;
            case kWatch:
                options.watch = true;
                break;
            case kCount:
                if (!ParseCount(optarg, 1000000000, options.count))
                    return Refuse("--count takes a number above 0");
                break;
            case 'v':
                options.verbose = true;
                break;
            case 'h':
                fputs(kUsage, stdout);
                return ParseResult::kDone;
            case 'V':
                puts("hyrpc " HYRPC_VERSION);
                return ParseResult::kDone;
            default:
                return Refuse(std::string("bad option '") + argv[optind - 1] + "'");
        }
    }
    if (options.user.empty() == options.has_password) return Refuse("-u and -p go together");
    if (options.user.size() >= sizeof(grpcAccount_t::name))
        return Refuse("a user name has at most 31 characters");
    if (options.password.size() >= sizeof(grpcAccount_t::passwd))
        return Refuse("a password has at most 127 characters");
    return ParsePositional(argc - optind, argv + optind, options);
}

}  // namespace hyrpc
