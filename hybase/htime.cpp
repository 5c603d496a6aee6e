#include "hybase/htime.h"

#include <stdio.h>

#include <atomic>
#include <initializer_list>

#include "hybase/print.h"
#include "hyplatform/arch.h"

static_assert(sizeof(HTime_t) == 24, "six 32-bit fields are the contract");

namespace {

constexpr int64_t kSecondsPerDay = 86400;
constexpr int64_t kMicrosecondsPerSecond = 1000000;
// From the day that HTime_mkgmtime_ex counts as 0, cut to the 32 bits in which it counts.
constexpr auto kSecondsBefore1970 = static_cast<uint32_t>(719499 * kSecondsPerDay);

// Seconds are 32 bits wide on every machine.
time_t FromSeconds32(uint32_t seconds) { return static_cast<int32_t>(seconds); }

// A date that the system could not tell is all zero, never what was left on the stack.
HTime_t FromTm(const struct tm* tm) {
    if (tm == nullptr) return HTime_t{};
    // Unsigned: the last years that tm_year can hold would overflow.
    const auto year = static_cast<int32_t>(static_cast<uint32_t>(tm->tm_year) + 1900u);
    return {year, tm->tm_mon + 1, tm->tm_mday, tm->tm_hour, tm->tm_min, tm->tm_sec};
}

// Division rounds towards zero, kept as it is: before 1969-12-31 a time that is no midnight is
// followed by the midnight after the next. 64 bits wide: the midnight after the last 32-bit second
// must not wrap to 1901 and start all over.
int64_t NextMidnight(int64_t seconds) {
    return kSecondsPerDay * ((seconds + kSecondsPerDay) / kSecondsPerDay);
}

// What one letter of a pattern stands for, and how many characters of the pattern that takes.
struct Field {
    int32_t value;
    int digits;
    int consumed;
};

// Looks ahead only as far as the characters before are not the terminator.
Field YearField(int32_t year, const char* pattern) {
    if (pattern[1] == '\0') return {year % 100, 2, 1};
    // Whatever stands in between is swallowed: the first and the third letter alone decide.
    if (pattern[2] == 'Y') return {year, 4, pattern[3] == 'Y' ? 4 : 3};
    return {year % 100, 2, pattern[1] == 'Y' ? 2 : 1};
}

// consumed is 0 for a character that stands for itself.
Field FieldOf(const HTime_t& date, const char* pattern) {
    const int consumed = pattern[1] == pattern[0] ? 2 : 1;
    switch (pattern[0]) {
        case 'Y':
            return YearField(date.year, pattern);
        case 'M':
            return {date.month, 2, consumed};
        case 'D':
            return {date.day, 2, consumed};
        case 'h':
            return {date.hour, 2, consumed};
        case 'm':
            return {date.minute, 2, consumed};
        case 's':
            return {date.second, 2, consumed};
        default:
            return {0, 0, 0};
    }
}

// Only 32 bits take part in the difference: lock-free on every machine. Threads that trace at the
// same time each measure from the call just before theirs.
std::atomic<uint32_t> previous_us{0};

}  // namespace

time_t HTime_mkgmtime_ex(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
                         int32_t second) {
    auto y = static_cast<uint32_t>(year);
    auto m = static_cast<uint32_t>(month) - 2u;
    // The year starts in March, so that the leap day is its last.
    if (static_cast<int32_t>(m) < 1) {
        m += 12;
        y -= 1;
    }
    const uint32_t days =
        y / 400 + y / 4 + static_cast<uint32_t>(day) + 365 * y + 367 * m / 12 - y / 100;
    const uint32_t minutes =
        (days * 24 + static_cast<uint32_t>(hour)) * 60 + static_cast<uint32_t>(minute);
    return FromSeconds32(minutes * 60 + static_cast<uint32_t>(second) - kSecondsBefore1970);
}

time_t HTime_mkgmtime(const HTime_t* date) {
    if (date == nullptr) return 0;
    return HTime_mkgmtime_ex(date->year, date->month, date->day, date->hour, date->minute,
                             date->second);
}

time_t HTime_mktime_ex(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
                       int32_t second) {
    struct tm tm {};
    tm.tm_year = static_cast<int32_t>(static_cast<uint32_t>(year) - 1900u);
    tm.tm_mon = static_cast<int32_t>(static_cast<uint32_t>(month) - 1u);
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = -1;
    return mktime(&tm);
}

time_t HTime_mktime(const HTime_t* date) {
    if (date == nullptr) return 0;
    return HTime_mktime_ex(date->year, date->month, date->day, date->hour, date->minute,
                           date->second);
}

void HTime_gmtime(const time_t* seconds, HTime_t* out) {
    if (seconds == nullptr || out == nullptr) return;
    struct tm tm {};
    *out = FromTm(arch_gmtime_r(seconds, &tm));
}

void HTime_localtime(const time_t* seconds, HTime_t* out) {
    if (seconds == nullptr || out == nullptr) return;
    struct tm tm {};
    *out = FromTm(arch_localtime_r(seconds, &tm));
}

void HTime_get_localtime(HTime_t* out) {
    const time_t now = arch_time();
    HTime_localtime(&now, out);
}

void HTime_add(const HTime_t* date, time_t seconds, HTime_t* out) {
    const time_t sum =
        FromSeconds32(static_cast<uint32_t>(HTime_mkgmtime(date)) + static_cast<uint32_t>(seconds));
    HTime_gmtime(&sum, out);
}

int32_t HTime_split_into_day(const HTime_t* start, const HTime_t* end, HTime_t* starts,
                             HTime_t* ends, int32_t max) {
    if (starts == nullptr || ends == nullptr) return 0;
    const time_t last = HTime_mkgmtime(end);
    int32_t count = 0;
    for (int64_t t = HTime_mkgmtime(start); t < last; t = NextMidnight(t)) {
        // `>` is meant: the arrays hold max + 1 records.
        if (count > max) {
            Print("HTime split_into_day overflow,cnt=%d\n", count);
            break;
        }
        const auto piece_start = static_cast<time_t>(t);
        HTime_gmtime(&piece_start, &starts[count++]);
    }
    for (int32_t i = 0; i < count; ++i) {
        const time_t piece_end = i + 1 < count ? HTime_mkgmtime(&starts[i + 1]) - 1 : last;
        HTime_gmtime(&piece_end, &ends[i]);
    }
    return count;
}

char* HTime_time2str(const HTime_t* date, time_t seconds, const char* pattern, char* out) {
    if (out == nullptr) return nullptr;
    HTime_t local{};
    if (date == nullptr) {
        HTime_localtime(&seconds, &local);
        date = &local;
    }
    char* at = out;
    while (pattern != nullptr && *pattern != '\0') {
        const Field field = FieldOf(*date, pattern);
        if (field.consumed == 0) {
            *at++ = *pattern++;
            continue;
        }
        at += sprintf(at, "%0*d", field.digits, field.value);
        pattern += field.consumed;
    }
    *at = '\0';
    return out;
}

struct tm* HTime_str2tm(const char* text, struct tm* out) {
    if (text == nullptr || out == nullptr) return nullptr;
    for (const char* layout : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S", "%Y%m%d%H%M%S"}) {
        // A layout that fails half-way has already stored fields: they must not reach the caller.
        struct tm attempt = *out;
        if (strptime(text, layout, &attempt) == nullptr) continue;
        *out = attempt;
        return out;
    }
    return nullptr;
}

void HTime_elapsed(const char* tag) {
    const int64_t now_us = arch_gettimeofday();
    const auto low_us = static_cast<uint32_t>(now_us);
    const auto elapsed_us = static_cast<int32_t>(low_us - previous_us.exchange(low_us));
    const auto seconds = static_cast<time_t>(now_us / kMicrosecondsPerSecond);
    HTime_t now{};
    HTime_localtime(&seconds, &now);
    Print("[%s] Time Now: %04d-%02d-%02d %02d:%02d:%02d.%06d, Elapsed %dus\n",
          tag != nullptr ? tag : "", now.year, now.month, now.day, now.hour, now.minute, now.second,
          static_cast<int>(now_us % kMicrosecondsPerSecond), elapsed_us);
}
