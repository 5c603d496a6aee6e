#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>

#include <atomic>
#include <iterator>
#include <limits>

#include "check.h"
#include "platform.h"

namespace {

int64_t Microseconds(clockid_t clock) {
    timespec now{};
    if (clock_gettime(clock, &now) != 0) return 0;
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

// The clock may be set while it is watched: it is given a second chance, and a third.
template <class Try>
void Within3Tries(Try attempt, const char* reason) {
    for (int i = 0; i < 3; ++i) {
        if (attempt()) return;
    }
    Fail("%s", reason);
}

// Whether the clock, in units a millisecond, runs as the system's does, within 5 of 100 and 30 ms.
bool GoesOnAtTheRightRate(const std::function<int64_t()>& clock, int units_a_ms) {
    constexpr int kWatchedMs = 300;
    const int64_t system_before = Microseconds(CLOCK_MONOTONIC), before = clock();
    SleepMs(kWatchedMs);
    const int64_t passed = (clock() - before) / units_a_ms;
    const int64_t system_passed = (Microseconds(CLOCK_MONOTONIC) - system_before) / 1000;
    return llabs(passed - system_passed) <= system_passed / 20 + 30;
}

// Whether the clock shows something new within so many milliseconds.
bool ChangesWithin(int ms, const std::function<int64_t()>& clock) {
    const int64_t before = clock();
    const double end = Seconds() + ms / 1000.0;
    while (Seconds() < end) {
        if (clock() != before) return true;
    }
    return clock() != before;
}

// The reading happens under a mutex of the system, so its order is known.
void NeverGoesBack(int threads) {
    pthread_mutex_t order = PTHREAD_MUTEX_INITIALIZER;
    int64_t last = lib.arch_getSystemStartupMs();
    const double end = Seconds() + settings.stress_seconds;
    RunTogether(threads, [&](int) {
        while (Seconds() < end) {
            pthread_mutex_lock(&order);
            const int64_t now = lib.arch_getSystemStartupMs();
            Expect(now >= last, "it went back by %lld ms", static_cast<long long>(last - now));
            last = now;
            pthread_mutex_unlock(&order);
        }
    });
}

struct Broken {
    int64_t seconds;
    int year, month, day, hour, minute, second, weekday, yearday;
};

bool Fits(int64_t seconds) { return static_cast<time_t>(seconds) == seconds; }

// "1970-01-01 00:00:00, weekday 4, day 0 of the year"
struct Text {
    char text[80];
    explicit Text(const struct tm& tm) {
        snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d, weekday %d, day %d of the year",
                 tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                 tm.tm_wday, tm.tm_yday);
    }
};

struct tm ToTm(const Broken& broken) {
    struct tm tm {};
    tm.tm_year = broken.year - 1900;
    tm.tm_mon = broken.month - 1;
    tm.tm_mday = broken.day;
    tm.tm_hour = broken.hour;
    tm.tm_min = broken.minute;
    tm.tm_sec = broken.second;
    tm.tm_wday = broken.weekday;
    tm.tm_yday = broken.yearday;
    return tm;
}

using BreakDown = struct tm* (*)(const time_t*, struct tm*);

void ExpectBroken(BreakDown break_down, const Broken& broken, const char* zone) {
    if (!Fits(broken.seconds)) return;
    const auto seconds = static_cast<time_t>(broken.seconds);
    struct tm out;
    memset(&out, 0x55, sizeof out);
    Expect(break_down(&seconds, &out) == &out, "the second argument is not what it returned");
    const Text got(out), wanted(ToTm(broken));
    Expect(strcmp(got.text, wanted.text) == 0, "%lld in %s gave %s instead of %s",
           static_cast<long long>(broken.seconds), zone, got.text, wanted.text);
}

void RefusesYearsThatDoNotFit(BreakDown break_down) {
    if (sizeof(time_t) < sizeof(int64_t)) return;
    const auto far = static_cast<time_t>(std::numeric_limits<int64_t>::max() / 2);
    struct tm out {};
    Expect(break_down(&far, &out) == nullptr, "a year that does not fit gave no null");
}

const Broken kUtc[] = {
    {0, 1970, 1, 1, 0, 0, 0, 4, 0},
    {951782400, 2000, 2, 29, 0, 0, 0, 2, 59},
    {951868799, 2000, 2, 29, 23, 59, 59, 2, 59},
    {978307199, 2000, 12, 31, 23, 59, 59, 0, 365},
    {1709251199, 2024, 2, 29, 23, 59, 59, 4, 59},
    {2147483647, 2038, 1, 19, 3, 14, 7, 2, 18},
    {2147483648, 2038, 1, 19, 3, 14, 8, 2, 18},
    {4107542400, 2100, 3, 1, 0, 0, 0, 1, 59},
    {253402300799, 9999, 12, 31, 23, 59, 59, 5, 364},
    {-1, 1969, 12, 31, 23, 59, 59, 3, 364},
    {-2147483648LL, 1901, 12, 13, 20, 45, 52, 5, 346},
    {-2147483649LL, 1901, 12, 13, 20, 45, 51, 5, 346},
};

// A static buffer behind the function would mix the threads up.
void KeepsThreadsApart(BreakDown break_down) {
    const double end = Seconds() + settings.stress_seconds / 4;
    RunTogether(4, [&](int index) {
        while (Seconds() < end) ExpectBroken(break_down, kUtc[index], "several threads at once");
    });
}

void SetZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

}  // namespace

void check_arch_time() {
    Within3Tries(
        [] {
            const int64_t now = lib.arch_time();
            return llabs(now - Microseconds(CLOCK_REALTIME) / 1000000) <= 1;
        },
        "it differs from the system's clock by more than a second");
    Within3Tries(
        [] {
            const int64_t now = lib.arch_time();
            return llabs(now - lib.arch_gettimeofday() / 1000000) <= 1;
        },
        "it differs from arch_gettimeofday by more than a second");
    Doing("that it goes on");
    Expect(ChangesWithin(1500, [] { return static_cast<int64_t>(lib.arch_time()); }),
           "it stands still");
}

void check_arch_gettimeofday() {
    Within3Tries(
        [] {
            const int64_t before = Microseconds(CLOCK_REALTIME);
            const int64_t now = lib.arch_gettimeofday();
            return now >= before - 20000 && now <= Microseconds(CLOCK_REALTIME) + 20000;
        },
        "it differs from the system's clock by more than 20 ms: microseconds since 1970?");
    Expect(ChangesWithin(20, lib.arch_gettimeofday), "it stands still for 20 ms");
    Within3Tries([] { return GoesOnAtTheRightRate(lib.arch_gettimeofday, 1000); },
                 "300 ms of it are not 300 ms");
}

void check_arch_getSystemStartupMs() {
    const int64_t now = lib.arch_getSystemStartupMs();
    int64_t system = Microseconds(CLOCK_BOOTTIME) / 1000;
    if (system == 0) system = Microseconds(CLOCK_MONOTONIC) / 1000;
    Expect(llabs(now - system) <= 1000, "it says %lld ms since the start of the system, not %lld",
           static_cast<long long>(now), static_cast<long long>(system));
    Expect(ChangesWithin(50, lib.arch_getSystemStartupMs), "it stands still for 50 ms");
    Within3Tries([] { return GoesOnAtTheRightRate(lib.arch_getSystemStartupMs, 1); },
                 "300 ms of it are not 300 ms");
    NeverGoesBack(4);
}

void check_arch_gmtime_r() {
    SetZone("CST-8");  // must not matter
    for (const Broken& broken : kUtc) ExpectBroken(lib.arch_gmtime_r, broken, "UTC");
    RefusesYearsThatDoNotFit(lib.arch_gmtime_r);
    KeepsThreadsApart(lib.arch_gmtime_r);
}

void check_arch_localtime_r() {
    const struct {
        const char* zone;
        Broken broken;
    } cases[] = {
        {"CST-8", {0, 1970, 1, 1, 8, 0, 0, 4, 0}},
        {"CST-8", {2147483647, 2038, 1, 19, 11, 14, 7, 2, 18}},
        {"<+0545>-5:45", {-1, 1970, 1, 1, 5, 44, 59, 4, 0}},
        {"EST5EDT,M3.2.0,M11.1.0", {0, 1969, 12, 31, 19, 0, 0, 3, 364}},
        // The edges of summer time.
        {"EST5EDT,M3.2.0,M11.1.0", {1710053999, 2024, 3, 10, 1, 59, 59, 0, 69}},
        {"EST5EDT,M3.2.0,M11.1.0", {1710054000, 2024, 3, 10, 3, 0, 0, 0, 69}},
        {"EST5EDT,M3.2.0,M11.1.0", {1730613599, 2024, 11, 3, 1, 59, 59, 0, 307}},
        {"EST5EDT,M3.2.0,M11.1.0", {1730613600, 2024, 11, 3, 1, 0, 0, 0, 307}},
        {"<-0330>3:30<-0230>,M3.2.0,M11.1.0", {1710054000, 2024, 3, 10, 4, 30, 0, 0, 69}},
    };
    for (const auto& c : cases) {
        SetZone(c.zone);
        ExpectBroken(lib.arch_localtime_r, c.broken, c.zone);
    }
    SetZone("UTC0");
    for (const Broken& broken : kUtc) ExpectBroken(lib.arch_localtime_r, broken, "UTC");
    RefusesYearsThatDoNotFit(lib.arch_localtime_r);
    KeepsThreadsApart(lib.arch_localtime_r);
}
