#include <sys/time.h>
#include <time.h>

#include "hyplatform/arch.h"

time_t arch_time(void) { return time(nullptr); }

int64_t arch_gettimeofday(void) {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_usec;
}

int64_t arch_getSystemStartupMs(void) {
    timespec now{};
    // Kernels before 2.6.39 have no CLOCK_BOOTTIME.
    if (clock_gettime(CLOCK_BOOTTIME, &now) != 0) clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

struct tm* arch_localtime_r(const time_t* seconds, struct tm* out) {
    return localtime_r(seconds, out);
}

struct tm* arch_gmtime_r(const time_t* seconds, struct tm* out) {
    return gmtime_r(seconds, out);
}
