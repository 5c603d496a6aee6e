// hydevice: a whole small device, built on the public headers alone.

#include <hybase/hlog.h>
#include <signal.h>
#include <stdio.h>

#include "device.h"
#include "options.h"

namespace {

// Signals are taken in one place, between two notifications, never in the midst of other work. The
// library's threads inherit the mask, so this comes before any of them starts.
sigset_t BlockStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // A peer that has gone away must not end the device; its connection says so by other means.
    signal(SIGPIPE, SIG_IGN);
    return signals;
}

}  // namespace

int main(int argc, char** argv) {
    hydevice::Settings settings;
    switch (hydevice::ParseOptions(argc, argv, settings)) {
        case hydevice::ParseResult::kDone:
            return 0;
        case hydevice::ParseResult::kBadUsage:
            return 2;
        default:
            break;
    }
    // What peers make the library print must not fill standard output.
    hlog_set_print(hlog_print_debug);
    sigset_t stop_signals = BlockStopSignals();
    hydevice::Device device(settings);
    std::string error;
    if (!device.Start(error)) {
        fprintf(stderr, "hydevice: %s\n", error.c_str());
        return 1;
    }
    printf("listening at %s\n", device.ListeningAt().c_str());
    fflush(stdout);

    const timespec second = {1, 0};
    while (sigtimedwait(&stop_signals, nullptr, &second) < 0) device.Tick();
    printf("stopped\n");
    return 0;
}
