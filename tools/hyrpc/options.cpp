#include "options.h"

#include <cjson/cJSON.h>
#include <getopt.h>
#include <hybase/grpc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "usage.h"

namespace hyrpc {
namespace {

constexpr int kDefaultBenchCalls = 100;

// What getopt_long wants to know of the rows.
struct GetoptTables {
    std::string letters;
    std::vector<option> names;
};

GetoptTables MakeTables() {
    GetoptTables tables;
    tables.letters = ":";  // tells a missing value from an unknown option
    for (const OptionRow& row : kOptionRows) {
        const bool takes_one = row.argument != nullptr;
        tables.names.push_back(
            {row.name, takes_one ? required_argument : no_argument, nullptr, row.code});
        if (row.code >= kBinIn) continue;
        tables.letters += static_cast<char>(row.code);
        if (takes_one) tables.letters += ':';
    }
    tables.names.push_back({nullptr, 0, nullptr, 0});
    return tables;
}

// Takes a secret from the command line and leaves stars there.
std::string TakeSecret(char* argument) {
    std::string secret = argument;
    memset(argument, '*', secret.size());
    return secret;
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
    else if (word == "raw")
        mode = Mode::kRaw;
    else if (word == "bench")
        mode = Mode::kBench;
    else
        return false;
    return true;
}

// The option getopt_long stumbled over, without a value, which may be a secret. Of letters written
// together the last word read is another one.
std::string NameOption(const std::string& word) {
    const bool is_long = word.rfind("--", 0) == 0;
    if (!is_long && optopt != 0) return std::string("-") + static_cast<char>(optopt);
    return word.substr(0, word.find('='));
}

// The value of an unset variable, which would count as no option at all. A password may be empty.
bool IsEmptyValue(int code) { return optarg != nullptr && *optarg == '\0' && code != 'p'; }

// Applies one option that takes part in a run. False with `error` set when its value is none.
bool TakeOption(int code, Options& options, std::string& error) {
    constexpr int kMaxSeconds = 24 * 3600;
    constexpr int kMaxConnections = 1000;
    constexpr int kMaxCount = 1000000;
    switch (code) {
        case 'u':
            options.user = optarg;
            break;
        case 'p':
            options.password = TakeSecret(optarg);
            options.has_password = true;
            break;
        case kPasswordFile:
            options.password_file = optarg;
            break;
        case 'l':
            options.login_record = TakeSecret(optarg);
            options.has_login = true;
            break;
        case kLoginFile:
            options.login_file = optarg;
            break;
        case 't':
            if (!ParseCount(optarg, kMaxSeconds, options.timeout_seconds))
                error = "-t takes seconds, 1 to 86400";
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
        case kJson:
            options.json = true;
            break;
        case kShowPassword:
            options.show_password = true;
            break;
        case kWatch:
            options.mode = Mode::kWatch;
            break;
        case 'c':
            if (!ParseCount(optarg, kMaxConnections, options.connections))
                error = "-c takes connections, 1 to 1000";
            break;
        case 'n':
            if (!ParseCount(optarg, kMaxCount, options.count))
                error = "-n takes a number, 1 to 1000000";
            break;
        default:
            options.verbose = true;
            break;
    }
    return error.empty();
}

// What is wrong with the words behind the options; empty for nothing.
std::string ParsePositional(int count, char** words, Options& options) {
    const bool listens = options.mode == Mode::kWatch || options.mode == Mode::kRaw;
    const int least = listens ? 1 : 2;
    const int most = options.mode == Mode::kWatch ? 1 : 3;
    if (count < least) return count < 1 ? "ADDRESS is missing" : "METHOD is missing";
    if (count > most) return "too many words, quote the JSON";
    std::string error;
    if (!ParseAddress(words[0], options.address, error)) return error;
    if (count < 2) return "";
    options.method = words[1];
    if (options.method.empty()) return "METHOD is empty";
    if (count < 3) return "";

    options.param = words[2];
    const char* text = options.param.c_str();
    const char* end = text;
    cJSON* tree = cJSON_ParseWithOpts(text, &end, true);
    cJSON_Delete(tree);
    if (tree != nullptr) return "";
    // Without the text: there may be a password in it.
    return "the parameter is not JSON near byte " + std::to_string(end - text + 1);
}

// What does not go together; empty for nothing.
std::string CheckOptions(const Options& options) {
    if (options.user.size() >= sizeof(grpcAccount_t::name))
        return "a user name has at most 31 characters";
    if (options.show_password && options.mode != Mode::kRaw) return "--show-password goes with raw";
    if (options.tlv && options.mode != Mode::kCall) return "--tlv goes with call";
    return "";
}

// Also where the reading ended before it.
bool IsJsonWanted(int argc, char** argv, const Options& options) {
    for (int i = 1; i < argc; i++)
        if (strcmp(argv[i], "--json") == 0) return true;
    return options.json;
}

}  // namespace

ParseResult ParseOptions(int argc, char** argv, Options& options, std::string& error) {
    // No address looks like one of these words.
    if (argc > 1 && TakeMode(argv[1], options.mode)) {
        argc--;
        argv++;
    }
    const GetoptTables tables = MakeTables();
    opterr = 0;
    while (error.empty()) {
        const int code =
            getopt_long(argc, argv, tables.letters.c_str(), tables.names.data(), nullptr);
        if (code == -1) break;
        if (code == 'h') {
            PrintUsage();
            return ParseResult::kDone;
        }
        if (code == 'V') {
            puts("hyrpc " HYRPC_VERSION);
            return ParseResult::kDone;
        }
        if (IsEmptyValue(code))
            error = "an option's value is empty";
        else if (code == '?')
            error = "bad option '" + NameOption(argv[optind - 1]) + "'";
        else if (code == ':')
            error = "option '" + NameOption(argv[optind - 1]) + "' needs a value";
        else
            TakeOption(code, options, error);
    }
    if (error.empty()) error = CheckOptions(options);
    if (error.empty()) error = ParsePositional(argc - optind, argv + optind, options);
    if (options.mode == Mode::kBench && options.count == 0) options.count = kDefaultBenchCalls;
    if (error.empty()) return ParseResult::kRun;
    options.json = IsJsonWanted(argc, argv, options);
    return ParseResult::kBadUsage;
}

}  // namespace hyrpc
