#include "options.h"

#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>

#include <optional>

namespace hydevice {
namespace {

constexpr char kUsage[] =
    "usage: hydevice [--ip ADDRESS] [--port PORT] [--unix NAME] [--log FOLDER] [FILE.ini]\n"
    "\n"
    "A small device that serves JSON calls; talk to it with hyrpc.\n"
    "\n"
    "  FILE.ini      settings; examples/device/device.ini explains them\n"
    "  --ip ADDRESS  address to listen at, default 127.0.0.1\n"
    "  --port PORT   port, default 8600; 0 takes a free one\n"
    "  --unix NAME   listen at an abstract Unix socket instead\n"
    "  --log FOLDER  keep log files there\n"
    "  --help        this page\n"
    "\n"
    "Prints \"listening at ADDRESS\" when it is ready; SIGINT or SIGTERM stops it.\n";

const option kLongOptions[] = {
    {"ip", required_argument, nullptr, 'i'},   {"port", required_argument, nullptr, 'p'},
    {"unix", required_argument, nullptr, 'u'}, {"log", required_argument, nullptr, 'l'},
    {"help", no_argument, nullptr, 'h'},       {nullptr, 0, nullptr, 0},
};

// Options that were given; they win over the file.
struct Given {
    std::optional<std::string> ip, unix_name, log_folder;
    std::optional<int> port;
};

ParseResult Refuse(const std::string& reason) {
    fprintf(stderr, "hydevice: %s\n", reason.c_str());
    return ParseResult::kBadUsage;
}

bool ParsePort(const char* text, std::optional<int>& port) {
    char* end = nullptr;
    const long number = strtol(text, &end, 10);
    if (end == text || *end != '\0' || number < 0 || number > 65535) return false;
    port = static_cast<int>(number);
    return true;
}

}  // namespace

ParseResult ParseOptions(int argc, char** argv, Settings& settings) {
    Given given;
    for (;;) {
        int letter = getopt_long(argc, argv, "h", kLongOptions, nullptr);
        if (letter == -1) break;
        switch (letter) {
            case 'i':
                given.ip = optarg;
                break;
            case 'p':
                if (!ParsePort(optarg, given.port)) return Refuse("--port takes 0 to 65535");
                break;
            case 'u':
                given.unix_name = optarg;
                break;
            case 'l':
                given.log_folder = optarg;
                break;
            case 'h':
                fputs(kUsage, stdout);
                return ParseResult::kDone;
            default:
                return ParseResult::kBadUsage;  // getopt has said why
        }
    }
    if (argc - optind > 1) return Refuse("one settings file at most; see hydevice --help");
    settings.accounts = DefaultAccounts();
    std::string error;
    if (optind < argc && !LoadSettings(argv[optind], settings, error)) return Refuse(error);

    settings.ip = given.ip.value_or(settings.ip);
    settings.port = given.port.value_or(settings.port);
    settings.unix_name = given.unix_name.value_or(settings.unix_name);
    settings.log_folder = given.log_folder.value_or(settings.log_folder);
    return ParseResult::kRun;
}

}  // namespace hydevice
