#include "options.h"

#include <cjson/cJSON.h>
#include <getopt.h>
#include <hybase/grpc.h>
#include <stdio.h>
#include <stdlib.h>

namespace hyrpc {
namespace {

constexpr char kUsage[] =
    "usage: hyrpc [call] [OPTION]... ADDRESS METHOD ['JSON']\n"
    "       hyrpc watch [OPTION]... ADDRESS\n"
    "       hyrpc bench [OPTION]... ADDRESS METHOD ['JSON']\n"
    "\n"
    "call   calls METHOD of the device at ADDRESS with the parameter JSON, prints the response\n"
    "watch  prints notifications as they come, one JSON line each\n"
    "bench  makes the same call many times over many connections, shows rate and times\n"
    "\n"
    "ADDRESS is HOST:PORT, [V6]:PORT or unix:NAME (an abstract Unix socket).\n"
    "\n"
    "  -u, --user USER          account that signs the calls, with -p\n"
    "  -p, --password PASSWORD  its password; it does not travel, only a digest does\n"
    "  -l, --login RECORD       record that opens the connection, \"user;password\"\n"
    "  -t, --timeout SECONDS    give up after that long, default 10\n"
    "      --bin-in FILE        send FILE as binary data behind the request\n"
    "      --bin-out FILE       write the binary data behind the response to FILE\n"
    "      --tlv                print the binary data behind the response as a table of\n"
    "                           TLV values\n"
    "      --watch              the same as the word watch\n"
    "  -c, --connections N      bench: connections at once, default 1\n"
    "  -n, --count N            watch: end after N notifications; bench: calls a connection,\n"
    "                           default 100\n"
    "  -v, --verbose            what the library logs, on stderr\n"
    "  -h, --help               this page\n"
    "  -V, --version            the version\n"
    "\n"
    "Exit status: 0 the call succeeded, 1 the method reported an error, 2 no connection,\n"
    "login refused or time-out, 3 bad usage. Errors are one line on stderr.\n"
    "\n"
    "  hyrpc -u admin -p secret 127.0.0.1:8600 add '{\"a\": 1, \"b\": 2}'\n";

constexpr int kDefaultBenchCalls = 100;

enum LongOption { kBinIn = 256, kBinOut, kTlv, kWatch };

const option kLongOptions[] = {
    {"user", required_argument, nullptr, 'u'},
    {"password", required_argument, nullptr, 'p'},
    {"login", required_argument, nullptr, 'l'},
    {"timeout", required_argument, nullptr, 't'},
    {"bin-in", required_argument, nullptr, kBinIn},
    {"bin-out", required_argument, nullptr, kBinOut},
    {"watch", no_argument, nullptr, kWatch},
    {"count", required_argument, nullptr, 'n'},
    {"connections", required_argument, nullptr, 'c'},
    {"tlv", no_argument, nullptr, kTlv},
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

bool TakeMode(const std::string& word, Mode& mode) {
    if (word == "call")
        mode = Mode::kCall;
    else if (word == "watch")
        mode = Mode::kWatch;
    else if (word == "bench")
        mode = Mode::kBench;
    else
        return false;
    return true;
}

ParseResult ParsePositional(int count, char** words, Options& options) {
    const bool watch = options.mode == Mode::kWatch;
    int most = watch ? 1 : 3;
    int least = watch ? 1 : 2;
    if (count < least) return Refuse(count < 1 ? "ADDRESS is missing" : "METHOD is missing");
    if (count > most) return Refuse("too many words, quote the JSON");
    std::string error;
    if (!ParseAddress(words[0], options.address, error)) return Refuse(error);
    if (count > 1) options.method = words[1];
    if (!watch && options.method.empty()) return Refuse("METHOD is empty");
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
    constexpr int kMaxConnections = 1000;
    // No address looks like one of these words.
    if (argc > 1 && TakeMode(argv[1], options.mode)) {
        argc--;
        argv++;
    }
    opterr = 0;
    for (;;) {
        int letter = getopt_long(argc, argv, "u:p:l:t:c:n:vhV", kLongOptions, nullptr);
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
            case kTlv:
                options.tlv = true;
                break;
            case kWatch:
                options.mode = Mode::kWatch;
                break;
            case 'c':
                if (!ParseCount(optarg, kMaxConnections, options.connections))
                    return Refuse("-c takes connections, 1 to 1000");
                break;
            case 'n':
                if (!ParseCount(optarg, 1000000, options.count))
                    return Refuse("-n takes a number, 1 to 1000000");
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
    if (options.mode == Mode::kBench && options.count == 0) options.count = kDefaultBenchCalls;
    return ParsePositional(argc - optind, argv + optind, options);
}

}  // namespace hyrpc
