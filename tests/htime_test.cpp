#include <gtest/gtest.h>
#include <hybase/htime.h>
#include <hyplatform/arch.h>

#include <random>
#include <string>
#include <thread>

// Zone and clock are in the tests' hands.
static const int zone_set = setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
static int64_t now_us = 1719828000000001;
time_t arch_time(void) { return static_cast<time_t>(now_us / 1000000); }
int64_t arch_gettimeofday(void) { return now_us; }

namespace {

std::string Text(const HTime_t* date, time_t seconds, const std::string& pattern) {
    char text[40];
    // Not a byte more than the pattern: AddressSanitizer sees a look behind it.
    const std::vector<char> exact(pattern.c_str(), pattern.c_str() + pattern.size() + 1);
    return HTime_time2str(date, seconds, exact.data(), text);
}
std::string Text(const HTime_t& date) { return Text(&date, 0, "YYYY-MM-DD hh:mm:ss"); }

TEST(HTime, UtcSecondsAreThoseOfTheCLibraryAndWrapIn32Bits) {
    std::mt19937 random(35);
    HTime_t date{};
    for (int i = 0; i < 50000; i++) {
        const time_t seconds = static_cast<int32_t>(random()) % 2145916800;  // 1902 to 2037
        HTime_gmtime(&seconds, &date);
        ASSERT_EQ(HTime_mkgmtime(&date), seconds) << Text(date);
    }
    EXPECT_EQ(HTime_mkgmtime_ex(2024, 2, 29, 12, 0, 0), 1709208000);
    EXPECT_EQ(HTime_mkgmtime_ex(2106, 2, 7, 6, 28, 15), -1);
    date = {2038, 1, 19, 3, 14, 7};
    HTime_add(&date, 1, &date);
    EXPECT_EQ(Text(date), "1901-12-13 20:45:52");
}

TEST(HTime, LocalTimeFollowsTheZone) {
    HTime_t date{2024, 1, 15, 12, 30, 0};
    EXPECT_EQ(HTime_mktime(&date), 1705318200);
    HTime_get_localtime(&date);
    EXPECT_EQ(Text(date), "2024-07-01 12:00:00");
    EXPECT_EQ(HTime_mktime(&date), 1719828000);
    EXPECT_EQ(Text(nullptr, 1705318200, "YY/M/D h"), "24/01/15 12");
    // A second of 64 bits may have no date.
    const time_t beyond = std::numeric_limits<time_t>::max();
    EXPECT_EQ(Text(nullptr, beyond, "YYYY"), sizeof(beyond) == 8 ? "0000" : "2038");
}

TEST(HTime, RangeIsSplitAtMidnights) {
    HTime_t from, to, starts[32], ends[32];
    std::mt19937 random(53);
    for (int i = 0; i < 5000; i++) {
        time_t t = static_cast<time_t>(random() % 2140000000) - 86400;
        time_t last = t + static_cast<time_t>(random() % (30 * 86400));
        HTime_gmtime(&t, &from);
        HTime_gmtime(&last, &to);
        if (i % 4 == 0) to.hour = to.minute = to.second = 0;
        last = HTime_mkgmtime(&to);
        const int32_t count = HTime_split_into_day(&from, &to, starts, ends, 31);
        for (int32_t k = 0; k < count; k++) {
            const HTime_t& day = starts[k];
            ASSERT_TRUE(t < last && HTime_mkgmtime(&day) == t) << Text(day);
            t = HTime_mkgmtime_ex(day.year, day.month, day.day, 23, 59, 59) + 1;
            ASSERT_EQ(HTime_mkgmtime(&ends[k]), t < last ? t - 1 : last) << Text(day);
        }
        ASSERT_GE(t, last) << Text(from);
    }

    // Before that day the first midnight is left out.
    const HTime_t early{1969, 12, 29, 16, 26, 40}, late{1970, 1, 1, 0, 1, 40};
    ASSERT_EQ(HTime_split_into_day(&early, &late, starts, ends, 31), 3);
    EXPECT_EQ(Text(starts[1]), "1969-12-31 00:00:00");
    EXPECT_EQ(Text(ends[0]), "1969-12-30 23:59:59");
}

TEST(HTime, SplitEndsAtTheMaximumAndAtTheLastSecond) {
    const HTime_t from{2038, 1, 17, 12, 0, 0}, to{2038, 1, 19, 3, 14, 7};
    HTime_t starts[5] = {}, ends[5] = {};
    testing::internal::CaptureStdout();
    EXPECT_EQ(HTime_split_into_day(&from, &to, starts, ends, 1), 2);
    EXPECT_EQ(starts[2].year, 0);
    EXPECT_EQ(ends[2].year, 0);
    EXPECT_EQ(Text(ends[1]), Text(to));
    EXPECT_EQ(HTime_split_into_day(&from, &to, starts, ends, 3), 3);
    EXPECT_EQ(HTime_split_into_day(&from, &to, starts, ends, -1), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "HTime split_into_day overflow,cnt=2\nHTime split_into_day overflow,cnt=0\n");
}

TEST(HTime, DateIsPrintedAfterThePatternAndReadInThreeLayouts) {
    const HTime_t date{2024, 2, 9, 3, 4, 5};
    EXPECT_EQ(Text(&date, 0, "YYYYY: YYY: YY: Y: Y-YY: Y-M"), "202424: 2024: 24: 24: 2024: 24-02");
    EXPECT_EQ(Text(&date, 0, "M/D h:m:s MMM H%d Y"), "02/09 03:04:05 0202 H%d 24");
    struct tm tm {};
    for (const char* text : {"2024-02-29 12:00:05", "2024-02-29T12:00:05 Z", "20240229120005"}) {
        tm = {};
        ASSERT_EQ(HTime_str2tm(text, &tm), &tm) << text;
        EXPECT_EQ(timegm(&tm), 1709208005) << text;
    }
    for (const char* text : {"29.02.2024", "2023-01-01", "2023-13-01 00:00:00", "2023022912", ""})
        EXPECT_EQ(HTime_str2tm(text, &tm), nullptr) << text;
    EXPECT_EQ(timegm(&tm), 1709208005) << "a text that fits no layout changed a field";
}

TEST(HTime, TraceTellsTheTimeSinceThePreviousCall) {
    testing::internal::CaptureStdout();
    HTime_elapsed("a");
    now_us += 4294967296 + 877544;
    HTime_elapsed("b");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[a] Time Now: 2024-07-01 12:00:00.000001, Elapsed -1459369983us\n"
              "[b] Time Now: 2024-07-01 13:11:35.844841, Elapsed 877544us\n");
    std::thread other([] { HTime_elapsed("c"); });  // a race would show in ThreadSanitizer
    HTime_elapsed(nullptr);
    other.join();
}
}  // namespace
