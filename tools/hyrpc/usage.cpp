#include "usage.h"

#include <stdio.h>

#include <string>

namespace hyrpc {
namespace {

constexpr size_t kHelpColumn = 28;

constexpr char kHead[] =
    "usage: hyrpc [call] [OPTION]... ADDRESS METHOD ['JSON']\n"
    "       hyrpc watch [OPTION]... ADDRESS\n"
    "       hyrpc raw [OPTION]... ADDRESS [METHOD ['JSON']]\n"
    "       hyrpc bench [OPTION]... ADDRESS METHOD ['JSON']\n"
    "\n"
    "call   calls METHOD of the device at ADDRESS with the parameter JSON and prints\n"
    "       the response\n"
    "watch  prints notifications as they come, one JSON line each\n"
    "raw    makes the same call, or listens, and shows every packet in hex, both ways\n"
    "bench  makes the same call many times over many connections; shows rate, times\n"
    "\n"
    "ADDRESS is HOST:PORT, [V6]:PORT or unix:NAME (an abstract Unix socket).\n"
    "\n";

constexpr char kTail[] =
    "\n"
    "The variables HYRPC_PASSWORD and HYRPC_LOGIN hold the password and the record\n"
    "where no option gives them.\n"
    "\n"
    "Exit status: 0 the call succeeded; 1 the method reported an error; 2 no\n"
    "connection, login refused or time-out; 3 bad usage, or a file that cannot be\n"
    "read or written. Errors are one line on stderr. More: man hyrpc\n"
    "\n"
    "  hyrpc -u admin -p secret 127.0.0.1:8600 add '{\"a\": 1, \"b\": 2}'\n";

std::string Line(const OptionRow& row) {
    std::string line = "      --";
    if (row.code < kBinIn) line = std::string("  -") + static_cast<char>(row.code) + ", --";
    line += row.name;
    if (row.argument != nullptr) line = line + " " + row.argument;
    line.resize(kHelpColumn, ' ');
    for (const char* c = row.help; *c != '\0'; c++) {
        line += *c;
        if (*c == '\n') line.append(kHelpColumn, ' ');
    }
    return line + "\n";
}

}  // namespace

void PrintUsage() {
    fputs(kHead, stdout);
    for (const OptionRow& row : kOptionRows) fputs(Line(row).c_str(), stdout);
    fputs(kTail, stdout);
}

}  // namespace hyrpc
