/**
 * @file
 * @ingroup htime
 * Seconds and calendar dates.
 */

/**
 * @addtogroup htime
 * Seconds and calendar dates: conversion both ways, splitting a range into days, printing and
 * reading date texts, an elapsed-time trace.
 *
 * Seconds count from 1970. UTC arithmetic (HTime_mkgmtime() and HTime_mkgmtime_ex(), HTime_add(),
 * HTime_split_into_day()) is 32 bits wide whatever the width of time_t: its dates reach from
 * 1901-12-13 20:45:52 to 2038-01-19 03:14:07, and what leaves this range wraps around, on every
 * machine alike. No date is checked: month 13 or day 0 are computed with.
 *
 * Null pointers are never followed: a null input date stands for second 0, a null output gets
 * nothing. Outputs may be the same record as an input.
 *
 * @par Threads
 * Nothing is shared but the previous time of HTime_elapsed(), which is one for the process; every
 * function may be called by any thread.
 * @{
 */
#ifndef HYBASE_HTIME_H
#define HYBASE_HTIME_H

#include <hybase/export.h>
#include <hyplatform/abi.h>
#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A date and a time of day. */
typedef struct {
    int32_t year;   /**< all four digits, 2024 */
    int32_t month;  /**< 1 to 12 */
    int32_t day;    /**< 1 to 31 */
    int32_t hour;   /**< 0 to 23 */
    int32_t minute; /**< 0 to 59 */
    int32_t second; /**< 0 to 59, 60 in a leap second */
} HTime_t;

/**
 * @name Seconds from a date
 * @{
 */

/** Seconds of a date in UTC, from the low 32 bits with their sign. Needs no time zone. */
HYBASE_API time_t HTime_mkgmtime_ex(int32_t year, int32_t month, int32_t day, int32_t hour,
                                    int32_t minute, int32_t second);

/** As HTime_mkgmtime_ex(), from a record; 0 for null. */
HYBASE_API time_t HTime_mkgmtime(const HTime_t* date);

/**
 * Seconds of a date in local time, as mktime(3), which decides about daylight saving; -1 for a date
 * that it cannot tell.
 */
HYBASE_API time_t HTime_mktime_ex(int32_t year, int32_t month, int32_t day, int32_t hour,
                                  int32_t minute, int32_t second);

/** As HTime_mktime_ex(), from a record; 0 for null. */
HYBASE_API time_t HTime_mktime(const HTime_t* date);
/** @} */

/**
 * @name A date from seconds
 * @{
 */

/**
 * Fills `*out` with the date of `*seconds` in UTC. Where the system has no such date (a 64-bit
 * second of a year beyond 2^31), all six fields are 0. Null `seconds` leave `*out` as it is.
 */
HYBASE_API void HTime_gmtime(const time_t* seconds, HTime_t* out);

/** As HTime_gmtime(), in local time. */
HYBASE_API void HTime_localtime(const time_t* seconds, HTime_t* out);

/** Fills `*out` with the local time of now. */
HYBASE_API void HTime_get_localtime(HTime_t* out);
/** @} */

/**
 * @name Calculating with dates
 * @{
 */

/** Fills `*out` with the date, in UTC, `seconds` after `*date` (before it when negative). */
HYBASE_API void HTime_add(const HTime_t* date, time_t seconds, HTime_t* out);

/**
 * Splits the time from `*start` to `*end`, both UTC, at the midnights in between: piece i begins at
 * `starts[i]` and ends at `ends[i]`, one second before the next piece begins; the last ends at
 * `*end`.
 *
 * `max` is the highest index that may be written: both arrays must hold max + 1 records. When that
 * is not enough, `"HTime split_into_day overflow,cnt=%d\n"` is printed to standard output with the
 * number of pieces, and the last of them reaches to `*end`.
 * Returns the number of pieces. 0, with nothing written, for a start that is not before the end and
 * for a null array.
 */
HYBASE_API int32_t HTime_split_into_day(const HTime_t* start, const HTime_t* end, HTime_t* starts,
                                        HTime_t* ends, int32_t max);
/** @} */

/**
 * @name Date texts
 * @{
 */

/**
 * Writes a date to `out` after a pattern and terminates it. A null `date` stands for the local time
 * of `seconds`, which are not looked at otherwise.
 *
 * | letters | become |
 * | --- | --- |
 * | `YYYY`, `YYY` | the year in four digits |
 * | `YY`, `Y` | its last two digits |
 * | `MM`, `M` | the month in two digits; in the same way |
 * | `DD`, `D` | the day |
 * | `hh`, `h` | the hour |
 * | `mm`, `m` | the minute |
 * | `ss`, `s` | the second |
 *
 * Every other character stands for itself.
 * "YYYY-MM-DD hh:mm:ss" gives "2024-02-29 12:00:00". Only the first and the third letter decide
 * about a four-digit year: "Y.Y" is one as well.
 * `out` must hold the result, its size is not checked. A valid date takes at most 2 characters for
 * each letter that stands alone and 4 for YYY, anything else in a record up to 11 a letter. It must
 * not overlap `pattern`.
 *
 * Returns `out`; a null pattern gives an empty text.
 */
HYBASE_API char* HTime_time2str(const HTime_t* date, time_t seconds, const char* pattern,
                                char* out);

/**
 * Reads a date text in one of the layouts "2024-02-29 12:00:00", "2024-02-29T12:00:00" and
 * "20240229120000"; what follows it is not looked at. Fills tm_year, tm_mon, tm_mday, tm_hour,
 * tm_min and tm_sec, and tm_wday and tm_yday where strptime(3) does so (glibc); the rest keeps its
 * values: set tm_isdst to -1 before mktime(3).
 *
 * Returns `out`; null, with `*out` unchanged, when no layout fits or a pointer is null.
 */
HYBASE_API struct tm* HTime_str2tm(const char* text, struct tm* out);
/** @} */

/**
 * @name Tracing
 * @{
 */

/**
 * Prints `"[%s] Time Now: %04d-%02d-%02d %02d:%02d:%02d.%06d, Elapsed %dus\n"` to standard output:
 * the tag (empty for null), the local time with microseconds, and the microseconds since the
 * previous call of any thread, as a signed 32-bit number that wraps every 71 minutes. The first
 * call counts from 1970.
 */
HYBASE_API void HTime_elapsed(const char* tag);
/** @} */

#ifdef __cplusplus
}
#endif

/** @} */

#endif
