// The command line of hyrpc.
#pragma once

#include <string>

#include "address.h"

namespace hyrpc {

enum class Mode { kCall, kWatch, kBench };

struct Options {
    Mode mode = Mode::kCall;
    Address address;
    std::string method;
    std::string param;  // JSON text, empty for none
    std::string user;   // empty: calls carry no digest
    std::string password;
    bool has_password = false;
    std::string login_record;  // empty: the library's default record
    std::string bin_in;        // file sent behind the request
    std::string bin_out;       // file that takes what came behind the response
    bool tlv = false;          // print what came behind the response as a table of TLV values
    int timeout_seconds = 10;
    int connections = 1;  // of the bench
    int count = 0;  // notifications to watch for (0: until interrupted), or calls a connection
    bool verbose = false;
};

enum class ParseResult { kRun, kDone, kBadUsage };

// Reads the command line. kDone: --help or --version was printed; kBadUsage: one line on stderr
// says what is wrong.
ParseResult ParseOptions(int argc, char** argv, Options& options);

}  // namespace hyrpc
