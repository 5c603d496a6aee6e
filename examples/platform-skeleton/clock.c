/* Clocks. */
#include <hyplatform/arch.h>
#include <stddef.h>
#include <time.h>

time_t arch_time(void) { return time(NULL); }

int64_t arch_gettimeofday(void) {
    struct timespec now = {0};
    clock_gettime(CLOCK_REALTIME, &now);
    return (int64_t)now.tv_sec * 1000000 + now.tv_nsec / 1000;
}

int64_t arch_getSystemStartupMs(void) {
    struct timespec now = {0};
    if (clock_gettime(CLOCK_BOOTTIME, &now) != 0) clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

struct tm* arch_localtime_r(const time_t* seconds, struct tm* out) {
    return localtime_r(seconds, out);
}

struct tm* arch_gmtime_r(const time_t* seconds, struct tm* out) {
    return gmtime_r(seconds, out);
}
