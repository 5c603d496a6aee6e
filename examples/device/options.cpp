#include "options.h"

#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>

namespace hydevice {
namespace {

constexpr char kUsage[] =
    "usage: hydevice [--ip ADDRESS] [--port PORT]\n"
    "       hydevice --unix NAME\n"
    "\n"
    "A small device that serves JSON calls; talk to it with hyrpc.\n"
    "\n"
    "  --ip ADDRESS  address to listen at, default 127.0.0.1\n"
    "  --port PORT   port, default 8600; 0 takes a free one\n"
    "  --unix NAME   listen at an abstract Unix socket instead\n"
    "  --help        this page\n"
    "\n"
    "Prints \"listening at ADDRESS\" when it is ready; SIGINT or SIGTERM stops it.\n";

const option kLongOptions[] = {
    {"ip", required_argument, nullptr, 'i'},
    {"port", required_argument, nullptr, 'p'},
    {"unix", required_argument, nullptr, 'u'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

ParseResult Refuse(const char* reason) {
    fprintf(stderr, "hydevice: %s; see hydevice --help\n", reason);
    return ParseResult::kBadUsage;
}

bool ParsePort(const char* text, unsigned short& port) {
    char* end = nullptr;
    long number = strtol(text, &end, 10);
    if (end == text || *end != '\0' || number < 0 || number > 65535) return false;
    port = static_cast<unsigned short>(number);
    return true;
}

}  // namespace

ParseResult ParseOptions(int argc, char** argv, Options& options) {
    for (;;) {
        int letter = getopt_long(argc, argv, "h", kLongOptions, nullptr);
        if (letter == -1) break;
        switch (letter) {
            case 'i': options.ip = optarg; break;
            case 'p':
                if (!ParsePort(optarg, options.port)) return Refuse("--port takes 0 to 65535");
                break;
            case 'u': options.unix_name = optarg; break;
            case 'h': fputs(kUsage, stdout); return ParseResult::kDone;
            default: return ParseResult::kBadUsage;  // getopt has said why
        }
    }
    return optind == argc ? ParseResult::kRun : Refuse("too many words");
}

}  // namespace hydevice
