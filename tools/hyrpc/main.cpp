// hyrpc: calls a device's methods from the command line.

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "ending.h"
#include "json_output.h"
#include "options.h"
#include "output.h"
#include "printable.h"
#include "secrets.h"
#include "words.h"

namespace {

using hyrpc::Ending;
using hyrpc::Json;
using hyrpc::Mode;
using hyrpc::Options;
using hyrpc::Output;

// Packets and notifications have had their lines: of those runs only an error is left to tell.
bool HasLastLine(const Options& options, const Ending& ending) {
    if (!options.json) return false;
    return ending.status != hyrpc::kSucceeded || options.mode == Mode::kCall ||
           options.mode == Mode::kBench;
}

Ending Start(Options& options, Output& output, cJSON* details) {
    Ending ending = ResolveSecrets(options);
    if (ending.status != hyrpc::kSucceeded) return ending;
    if (!LookUp(options.address))
        return {hyrpc::kNoAnswer, "connect_failed",
                "no address known for '" + options.address.host + "'"};
    return Run(options, output, details);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    Ending ending;
    const hyrpc::ParseResult parsed = ParseOptions(argc, argv, options, ending.error);
    if (parsed == hyrpc::ParseResult::kDone) {
        if (fflush(stdout) == 0) return hyrpc::kSucceeded;
        perror("hyrpc: cannot write the result");
        return hyrpc::kBadUsage;
    }
    if (parsed == hyrpc::ParseResult::kBadUsage)
        ending = hyrpc::BadUsage(ending.error + "; see hyrpc --help");

    signal(SIGPIPE, SIG_IGN);
    Output output;
    if (!output.Open(options.verbose)) {
        fprintf(stderr, "hyrpc: no standard output: %s\n", strerror(errno));
        return hyrpc::kBadUsage;
    }
    Json details = hyrpc::NewObject();
    if (parsed == hyrpc::ParseResult::kRun) ending = Start(options, output, details.get());
    ending.error = hyrpc::Printable(ending.error);
    if (HasLastLine(options, ending)) output.Write(EndingLine(ending, details.get()));
    if (output.Error() != 0)
        ending =
            hyrpc::FileError(std::string("cannot write the result: ") + strerror(output.Error()));
    if (!ending.error.empty()) fprintf(stderr, "hyrpc: %s\n", ending.error.c_str());
    // Past the destructors of static objects: the connection's thread is still at work.
    _exit(ending.status);
}
