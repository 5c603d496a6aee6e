// The command line of hyrpc.
#pragma once

#include <string>

#include "address.h"

namespace hyrpc {

enum class Mode { kCall, kWatch, kRaw, kBench };

struct Options {
    Mode mode = Mode::kCall;
    Address address;
    std::string method;  // empty: raw only listens
    std::string param;   // JSON text, empty for none
    std::string user;    // empty: calls carry no digest
    std::string password;
    bool has_password = false;
    std::string password_file;
    std::string login_record;  // empty: the library's default record
    bool has_login = false;
    std::string login_file;
    std::string bin_in;          // file sent behind the request
    std::string bin_out;         // file that takes what came behind the response
    bool tlv = false;            // print what came behind the response as a table of TLV values
    bool json = false;           // results and errors as JSON
    bool show_password = false;  // of the login record, in raw
    int timeout_seconds = 10;
    int connections = 1;  // of the bench
    int count = 0;  // notifications to watch for (0: until interrupted), or calls a connection
    bool verbose = false;
};

enum class ParseResult { kRun, kDone, kBadUsage };

// Reads the command line; what -p and -l were given is overwritten there, so that a process list
// does not go on showing it. kDone: --help or --version was printed; kBadUsage: `error` says what
// is wrong. options.json is right in that case as well.
ParseResult ParseOptions(int argc, char** argv, Options& options, std::string& error);

}  // namespace hyrpc
