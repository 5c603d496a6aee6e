// The options of hyrpc and the page that --help prints.
#pragma once

namespace hyrpc {

struct OptionRow {
    int code;  // its letter, or one of LongOption
    const char* name;
    const char* argument;  // null: takes none
    const char* help;      // lines, at most 52 characters each
};

enum LongOption {
    kBinIn = 256,
    kBinOut,
    kTlv,
    kWatch,
    kPasswordFile,
    kLoginFile,
    kJson,
    kShowPassword
};

constexpr OptionRow kOptionRows[] = {
    {'u', "user", "USER", "account that signs the calls"},
    {'p', "password", "PASSWORD", "its password; only a digest of it travels"},
    {kPasswordFile, "password-file", "FILE", "FILE's first line is the password; - is stdin"},
    {'l', "login", "RECORD", "record that opens the connection, \"user;password\""},
    {kLoginFile, "login-file", "FILE", "FILE's first line is the record; - is stdin"},
    {'t', "timeout", "SECONDS", "give up after that long, default 10"},
    {kBinIn, "bin-in", "FILE", "send FILE as binary data behind the request"},
    {kBinOut, "bin-out", "FILE", "write the binary data behind the response to FILE"},
    {kTlv, "tlv", nullptr, "call: show that data as a table of TLV values"},
    {kJson, "json", nullptr, "results and errors as JSON, one object a line"},
    {kShowPassword, "show-password", nullptr, "raw: show the password of the login record too"},
    {'n', "count", "N",
     "watch, raw without METHOD: end after N\nnotifications; bench: calls a connection,\n"
     "default 100"},
    {'c', "connections", "N", "bench: connections at once, default 1"},
    {kWatch, "watch", nullptr, "the same as the word watch"},
    {'v', "verbose", nullptr, "what the library logs, on stderr"},
    {'h', "help", nullptr, "this page"},
    {'V', "version", nullptr, "the version"},
};

void PrintUsage();

}  // namespace hyrpc
