#include "options.h"

#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>

namespace hydevice {
namespace {

constexpr char kUsage[] =
    "usage: hydevice [--ip ADDRESS] [--port PORT] [--log FOLDER]\n"
    "       hydevice --unix NAME [--log FOLDER]\n"
    "\n"
    "A small device that serves JSON calls; talk to it with hyrpc.\n"
    "\n"
    "  --ip ADDRESS       address to listen at, default 127.0.0.1\n"
    "  --port PORT        port, default 8600; 0 takes a free one\n"
    "  --unix NAME        listen at an abstract Unix socket instead\n"
    "  --log FOLDER       keep log files there\n"
    "  --log-bytes BYTES  begin the next file at that size, default 65536\n"
    "  --log-files COUNT  keep that many, default 5\n"
    "  --help             this page\n"
    "\n"
    "Prints \"listening at ADDRESS\" when it is ready; SIGINT or SIGTERM stops it.\n";

const option kLongOptions[] = {
    {"ip", required_argument, nullptr, 'i'},
    {"port", required_argument, nullptr, 'p'},
    {"unix", required_argument, nullptr, 'u'},
    {"log", required_argument, nullptr, 'l'},
    {"log-bytes", required_argument, nullptr, 'b'},
    {"log-files", required_argument, nullptr, 'f'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

ParseResult Refuse(const char* reason) {
    fprintf(stderr, "hydevice: %s; see hydevice --help\n", reason);
    return ParseResult::kBadUsage;
}

bool ParseNumber(const char* text, long least, long most, long& number) {
    char* end = nullptr;
    number = strtol(text, &end, 10);
    return end != text && *end == '\0' && number >= least && number <= most;
}

}  // namespace

ParseResult ParseOptions(int argc, char** argv, Options& options) {
    long number = 0;
    for (;;) {
        int letter = getopt_long(argc, argv, "h", kLongOptions, nullptr);
        if (letter == -1) break;
        switch (letter) {
            case 'i':
                options.ip = optarg;
                break;
            case 'p':
                if (!ParseNumber(optarg, 0, 65535, number))
                    return Refuse("--port takes 0 to 65535");
                options.port = static_cast<unsigned short>(number);
                break;
            case 'u':
                options.unix_name = optarg;
                break;
            case 'l':
                options.log_folder = optarg;
                break;
            case 'b':
                if (!ParseNumber(optarg, 1024, 1 << 30, number))
                    return Refuse("--log-bytes takes 1024 to 1073741824");
                options.log_bytes = static_cast<int>(number);
                break;
            case 'f':
                if (!ParseNumber(optarg, 1, 10000, number))
                    return Refuse("--log-files takes 1 to 10000");
                options.log_files = static_cast<int>(number);
                break;
            case 'h':
                fputs(kUsage, stdout);
                return ParseResult::kDone;
            default:
                return ParseResult::kBadUsage;  // getopt has said why
        }
    }
    return optind == argc ? ParseResult::kRun : Refuse("too many words");
}

}  // namespace hydevice
