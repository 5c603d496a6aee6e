#include <math.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <vector>

#include "check.h"
#include "platform.h"

namespace {

using Draw = std::array<unsigned char, 16>;  // as long as what a token is made of

void Fill(void* buf, int len) {
    const int result = lib.arch_rand_bytes(buf, len);
    Expect(result == 0, "%d bytes gave %d, not 0", len, result);
}

void ExpectNoneTwice(std::vector<Draw> draws, const char* where) {
    std::sort(draws.begin(), draws.end());
    Expect(std::adjacent_find(draws.begin(), draws.end()) == draws.end(),
           "the same 16 bytes came twice %s", where);
}

// Each byte must be seen with at least two values, and none beyond the length may change.
void FillsExactlyTheBytesAskedFor() {
    constexpr int kLongest = 300, kGuard = 8, kDraws = 8;
    for (int len = 0; len <= kLongest; ++len) {
        unsigned char buf[kGuard + kLongest + kGuard], first[kLongest];
        bool changed[kLongest] = {};
        memset(buf, 0xA5, sizeof buf);
        Fill(buf + kGuard, len);
        memcpy(first, buf + kGuard, kLongest);
        for (int draw = 0; draw < kDraws; ++draw) {
            Fill(buf + kGuard, len);
            for (int i = 0; i < len; ++i) changed[i] |= buf[kGuard + i] != first[i];
        }
        const auto is_guard = [](unsigned char byte) { return byte == 0xA5; };
        Expect(std::all_of(buf, buf + kGuard, is_guard) &&
                   std::all_of(buf + kGuard + len, buf + sizeof buf, is_guard),
               "asked for %d bytes, it wrote outside of them", len);
        for (int i = 0; i < len; ++i)
            Expect(changed[i], "asked for %d bytes, it always gives the same as number %d", len, i);
    }
}

void NeverRepeats() {
    constexpr int kDraws = 20000, kThreads = 4;
    std::vector<Draw> draws(kDraws);
    for (Draw& draw : draws) Fill(draw.data(), sizeof draw);
    ExpectNoneTwice(draws, "in 20000 calls");

    RunTogether(kThreads, [&](int index) {
        constexpr int kShare = kDraws / kThreads;
        for (int i = index * kShare; i < (index + 1) * kShare; ++i)
            Fill(draws[static_cast<size_t>(i)].data(), sizeof(Draw));
    });
    ExpectNoneTwice(draws, "in several threads");
}

// A generator in the process, copied by fork, would go on alike in both.
void DiffersAfterFork() {
    int ends[2];
    Expect(pipe(ends) == 0, "not checked: no pipe");
    for (int i = 0; i < 2; ++i) {
        const pid_t child = fork();
        Expect(child >= 0, "not checked: no process");
        if (child == 0) {
            Draw draw;
            Fill(draw.data(), sizeof draw);
            _exit(write(ends[1], draw.data(), sizeof draw) == sizeof draw ? 0 : 2);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (status != 0) Fail("no random bytes after a fork");
    }
    std::vector<Draw> draws(3);
    Fill(draws[0].data(), sizeof(Draw));
    for (size_t i = 1; i < draws.size(); ++i)
        Expect(read(ends[0], draws[i].data(), sizeof(Draw)) == sizeof(Draw),
               "not checked: no pipe");
    ExpectNoneTwice(draws, "in processes that were forked");
}

// Eight standard deviations: nothing that a good generator shows in the life of a device.
void LooksBalanced(const std::vector<unsigned char>& bytes) {
    const auto count = static_cast<double>(bytes.size());
    std::array<int, 8> ones{};
    std::array<int, 256> values{};
    for (unsigned char byte : bytes) {
        ++values[byte];
        for (size_t bit = 0; bit < ones.size(); ++bit) ones[bit] += byte >> bit & 1;
    }
    for (size_t bit = 0; bit < ones.size(); ++bit) {
        Expect(fabs(ones[bit] - count / 2) < 8 * sqrt(count / 4),
               "bit %zu of the bytes is set in %.1f of 100", bit, ones[bit] / count * 100);
    }
    for (size_t value = 0; value < values.size(); ++value) {
        Expect(fabs(values[value] - count / 256) < 8 * sqrt(count / 256),
               "the value %zu came %d times in %zu bytes", value, values[value], bytes.size());
    }
}

void IgnoreSignal(int) {}

// The system's call gives fewer bytes, or none, when a signal comes in between.
void LongOnesComeWholeInSpiteOfSignals() {
    struct sigaction action {};
    action.sa_handler = IgnoreSignal;
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often = {{0, 1000}, {0, 1000}}, never = {};
    constexpr size_t kTail = 64;
    std::vector<unsigned char> bytes(1024 * 1024);
    for (int i = 0; i < 8; ++i) {
        std::fill(bytes.end() - kTail, bytes.end(), 0);
        setitimer(ITIMER_REAL, &often, nullptr);
        Fill(bytes.data(), static_cast<int>(bytes.size()));
        setitimer(ITIMER_REAL, &never, nullptr);
        Expect(
            std::any_of(bytes.end() - kTail, bytes.end(), [](unsigned char b) { return b != 0; }),
            "the end of %zu bytes was not filled while signals came", bytes.size());
    }
    LooksBalanced(bytes);
}

}  // namespace

void check_arch_rand_bytes() {
    Doing("a null buffer");
    int result = lib.arch_rand_bytes(nullptr, 16);
    Expect(result == -1, "a null buffer gave %d, not -1", result);
    Doing("a negative length");
    unsigned char buf[1] = {0x5A};
    result = lib.arch_rand_bytes(buf, -1);
    Expect(result == -1 && buf[0] == 0x5A, "a negative length gave %d, not -1", result);

    Doing("lengths from 0 to 300");
    FillsExactlyTheBytesAskedFor();
    Doing("many calls");
    NeverRepeats();
    Doing("calls after a fork");
    DiffersAfterFork();
    Doing("a MiB, with signals coming");
    LongOnesComeWholeInSpiteOfSignals();
}
