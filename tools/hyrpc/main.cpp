// hyrpc: calls a device's methods from the command line.

#include <errno.h>
#include <hybase/hlog.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "bench.h"
#include "client.h"
#include "options.h"
#include "tlv_table.h"

namespace {

using hyrpc::Client;
using hyrpc::Mode;
using hyrpc::Options;
using hyrpc::Outcome;
using hyrpc::Response;

enum ExitStatus { kSucceeded = 0, kMethodError = 1, kNoAnswer = 2, kBadUsage = 3 };

void LogToStderr(const char* text, int32_t len) {
    fwrite(text, 1, static_cast<size_t>(len), stderr);
}
void DropLog(const char*, int32_t) {}

// Results go to a stream of their own: what the library prints on standard output while it works
// belongs to stderr, or nowhere.
FILE* SeparateResults(bool verbose) {
    FILE* results = fdopen(dup(STDOUT_FILENO), "w");
    if (results == nullptr) return nullptr;
    if (verbose) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        setvbuf(stdout, nullptr, _IOLBF, 0);
    } else if (freopen("/dev/null", "w", stdout) == nullptr) {
        return nullptr;
    }
    hlog_regirst(verbose ? LogToStderr : DropLog);
    return results;
}

std::string Describe(Outcome outcome, const Options& options) {
    const std::string& address = options.address.text;
    switch (outcome) {
        case Outcome::kConnectFailed:
            return "cannot connect to " + address;
        case Outcome::kLoginRefused:
            return address + " refused the login record";
        case Outcome::kNoLoginReply:
            return address + " did not answer the login as a device does";
        case Outcome::kLost:
            return "connection to " + address + " lost before the answer";
        default:
            return "no answer from " + address + " within " +
                   std::to_string(options.timeout_seconds) + " s";
    }
}

using File = std::unique_ptr<FILE, decltype(&fclose)>;

bool ReadFile(const std::string& path, std::string& content) {
    File file(fopen(path.c_str(), "rb"), fclose);
    if (!file) return false;
    char block[65536];
    while (size_t got = fread(block, 1, sizeof block, file.get())) {
        content.append(block, got);
        if (content.size() <= INT32_MAX) continue;
        errno = EFBIG;  // the length of a packet has 31 bits
        return false;
    }
    return ferror(file.get()) == 0;
}

bool WriteFile(const std::string& path, const std::string& content) {
    File file(fopen(path.c_str(), "wb"), fclose);
    if (!file) return false;
    const bool written = fwrite(content.data(), 1, content.size(), file.get()) == content.size();
    return written && fflush(file.get()) == 0;
}

ExitStatus Report(const Options& options, const Response& response, FILE* results) {
    fprintf(results, "%s\n", response.text.c_str());
    if (!options.bin_out.empty() && !WriteFile(options.bin_out, response.binary)) {
        fprintf(stderr, "hyrpc: cannot write %s: %s\n", options.bin_out.c_str(), strerror(errno));
        return kBadUsage;
    }
    if (options.tlv && response.errorcode == 0 && !hyrpc::PrintTlvTable(response.binary, results)) {
        fprintf(stderr, "hyrpc: %s: no TLV message behind the response\n", options.method.c_str());
        return kMethodError;
    }
    if (response.errorcode == 0) return kSucceeded;
    fprintf(stderr, "hyrpc: %s: error %d%s%s\n", options.method.c_str(), response.errorcode,
            response.message.empty() ? "" : ": ", response.message.c_str());
    return kMethodError;
}

ExitStatus Run(const Options& options, FILE* results) {
    std::string binary;
    if (!options.bin_in.empty() && !ReadFile(options.bin_in, binary)) {
        fprintf(stderr, "hyrpc: cannot read %s: %s\n", options.bin_in.c_str(), strerror(errno));
        return kBadUsage;
    }
    if (options.mode == Mode::kBench) {
        Outcome outcome = Outcome::kAnswered;
        if (hyrpc::RunBench(options, binary, results, outcome)) return kSucceeded;
        if (outcome == Outcome::kAnswered) return kMethodError;
        fprintf(stderr, "hyrpc: %s\n", Describe(outcome, options).c_str());
        return kNoAnswer;
    }
    // Never deleted: the connection's thread may be inside a wait of many seconds, and there is
    // nobody left who needs it to end in order.
    auto* client = new Client(options, results);
    const bool watch = options.mode == Mode::kWatch;
    Response response;
    Outcome outcome = client->Open();
    if (outcome == Outcome::kAnswered)
        outcome = watch ? client->Watch() : client->Call(binary, response);
    if (outcome != Outcome::kAnswered) {
        fprintf(stderr, "hyrpc: %s\n", Describe(outcome, options).c_str());
        return kNoAnswer;
    }
    return watch ? kSucceeded : Report(options, response, results);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    switch (hyrpc::ParseOptions(argc, argv, options)) {
        case hyrpc::ParseResult::kDone:
            return kSucceeded;
        case hyrpc::ParseResult::kBadUsage:
            return kBadUsage;
        default:
            break;
    }
    signal(SIGPIPE, SIG_IGN);
    FILE* results = SeparateResults(options.verbose);
    if (results == nullptr) {
        fprintf(stderr, "hyrpc: no standard output: %s\n", strerror(errno));
        return kBadUsage;
    }
    ExitStatus status = Run(options, results);
    if (fflush(results) != 0) {
        fprintf(stderr, "hyrpc: cannot write the result: %s\n", strerror(errno));
        status = kNoAnswer;
    }
    // Past the destructors of static objects: the connection's thread is still at work.
    _exit(status);
}
