#include "secrets.h"

#include <errno.h>
#include <hybase/grpc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace hyrpc {
namespace {

constexpr char kStandardInput[] = "-";
constexpr size_t kLineMax = 1024;  // a service reads no longer record

// One byte a read: what follows the line on standard input is not ours.
bool ReadLine(FILE* file, std::string& line, std::string& problem) {
    setvbuf(file, nullptr, _IONBF, 0);
    int byte = 0;
    errno = 0;
    while ((byte = fgetc(file)) != EOF && byte != '\n') {
        line.push_back(static_cast<char>(byte));
        if (line.size() > kLineMax) problem = "its first line has more than 1024 characters";
        if (byte == '\0') problem = "there is a zero byte in its first line";
        if (!problem.empty()) return false;
    }
    if (ferror(file) != 0) problem = strerror(errno);
    if (byte == EOF && line.empty() && problem.empty()) problem = "it is empty";
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return problem.empty();
}

Ending ReadSecret(const std::string& path, std::string& secret) {
    const bool standard_input = path == kStandardInput;
    FILE* file = standard_input ? stdin : fopen(path.c_str(), "rb");
    std::string problem;
    if (file == nullptr) {
        problem = strerror(errno);
    } else {
        ReadLine(file, secret, problem);
        if (!standard_input) fclose(file);
    }
    if (problem.empty()) return {};
    return FileError("cannot read " + (standard_input ? "standard input" : path) + ": " + problem);
}

// An empty variable counts as none.
bool FromEnvironment(const char* name, std::string& secret) {
    const char* value = getenv(name);
    if (value == nullptr || *value == '\0') return false;
    secret = value;
    return true;
}

Ending ResolvePassword(Options& options) {
    const bool given = options.has_password || !options.password_file.empty();
    // The environment may hold a password for all calls: alone it does not sign one.
    if (!options.user.empty() && !given)
        options.has_password = FromEnvironment("HYRPC_PASSWORD", options.password);
    if (options.user.empty() ? given : !given && !options.has_password)
        return BadUsage("-u and a password go together: -p, --password-file or HYRPC_PASSWORD");
    if (!options.password_file.empty()) {
        Ending ending = ReadSecret(options.password_file, options.password);
        if (ending.status != kSucceeded) return ending;
    }
    if (options.password.size() >= sizeof(grpcAccount_t::passwd))
        return BadUsage("a password has at most 127 characters");
    return {};
}

Ending ResolveLogin(Options& options) {
    if (options.login_file.empty()) {
        if (!options.has_login) FromEnvironment("HYRPC_LOGIN", options.login_record);
        return {};
    }
    Ending ending = ReadSecret(options.login_file, options.login_record);
    if (ending.status == kSucceeded && options.login_record.empty())
        return FileError("the first line of " + options.login_file + " is empty");
    return ending;
}

}  // namespace

Ending ResolveSecrets(Options& options) {
    if (options.has_password && !options.password_file.empty())
        return BadUsage("-p and --password-file exclude each other");
    if (options.has_login && !options.login_file.empty())
        return BadUsage("-l and --login-file exclude each other");
    if (options.password_file == kStandardInput && options.login_file == kStandardInput)
        return BadUsage("standard input cannot be both, password and login record");
    Ending ending = ResolvePassword(options);
    return ending.status == kSucceeded ? ResolveLogin(options) : ending;
}

}  // namespace hyrpc
