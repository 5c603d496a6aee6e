// Records as they reach the console and the callback.
#include <errno.h>
#include <gtest/gtest.h>
#include <hybase/grpc.h>
#include <hybase/hlog.h>
#include <hyplatform/arch.h>
#include <stdlib.h>
#include <string.h>

#include <string>

static int64_t now_us = 1714564800007999;

int64_t arch_gettimeofday(void) {
    errno = EIO;
    return now_us;
}

namespace {

#define TAIL "[c.cpp:12][f] x: No such file or directory\n\033[0m\033[37m\033[0m"
const hlogParam_t kEverything = {99, 99, 0, "", 1048576, 5};
std::string received;

void Receive(const char* text, int32_t len) { received.append(text, len); }

std::string Printed(std::initializer_list<int32_t> levels) {
    const char* format = "%s: %m\n";
    testing::internal::CaptureStdout();
    for (int32_t level : levels) {
        errno = ENOENT;
        EXPECT_EQ(hlog_printf_ex(level, "/a/b/c.cpp", "f", 12, format, "x"), 0);
        EXPECT_EQ(errno, ENOENT);
    }
    return testing::internal::GetCapturedStdout();
}

// First in the file: it needs the settings that a process starts with.
TEST(HlogConsole, ShowsLevelsUpToTwoWithLocalTimeByDefault) {
    setenv("TZ", "EST5", 1);
    EXPECT_EQ(Printed({5, 4, 3, 2, 1}), "\033[37m[2024-05-01 07:00:00.007][INFO]" TAIL
                                        "\033[33m[2024-05-01 07:00:00.007][WARN]" TAIL);
    now_us += 3600992001;
    EXPECT_EQ(Printed({0}), "\033[31m[2024-05-01 08:00:01.000][ERR]" TAIL);
}

TEST(HlogConsole, EveryLevelHasItsNameAndPrefix) {
    hlog_set_param(&kEverything);
    EXPECT_EQ(Printed({0, 1, 2, 3, 4, 5, 99, 100, INT32_MIN}),
              "\033[31m[ERR]" TAIL "\033[33m[WARN]" TAIL "\033[37m[INFO]" TAIL
              "\033[37m[TRACE]" TAIL "\033[37m[DEBUG]" TAIL "ERR[ALL]" TAIL "ERR[ALL]" TAIL
              "\033[31m[ERR]" TAIL);
}

TEST(HlogConsole, TakesNamesOfAnyLength) {
    hlog_set_param(&kEverything);
    for (int length : {123, 124, 3000}) {
        const std::string func(length, 'f');
        testing::internal::CaptureStdout();
        hlog_printf_ex(4, "c.cpp", func.c_str(), INT32_MIN, "%s", "");
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "\033[37m[DEBUG][c.cpp:-2147483648][" + func + "] \033[0m\033[37m\033[0m");
    }
}

TEST(HlogCallback, CutsRecordsOfMoreThan2042Characters) {
    const struct {
        int func, message;
        bool cut;
    } cases[] = {{1, 2023, false}, {1, 2024, true}, {1, 3000, true},  {2024, 0, false},
                 {2025, 0, true},  {2029, 1, true}, {2030, 50, true}, {3000, 0, true}};
    hlog_set_param(&kEverything);
    hlog_regirst(Receive);
    for (const auto& c : cases) {
        const std::string func(c.func, 'f'), message(c.message, 'm');
        std::string expected = "[ERR][c.cpp:12][";
        expected.append(func).append("] ").append(message);
        if (c.cut) expected = expected.substr(0, 2015) + "[log is too long, cut off]\n";
        received.clear();
        hlog_printf_ex(0, "c.cpp", func.c_str(), 12, "%s", message.c_str());
        EXPECT_EQ(received, expected) << c.func << ' ' << c.message;
    }
    hlog_regirst(nullptr);
}

TEST(HlogCallback, MayChangeTheLoggerItRunsUnder) {
    hlog_set_param(&kEverything);
    hlog_regirst([](const char*, int32_t) {
        hlog_set_param(&kEverything);
        HLOG_ERR("must not come back here\n");
        hlog_regirst(Receive);
    });
    received.clear();
    HLOG_ALL("to the first callback\n");
    EXPECT_EQ(received, "");
    hlog_printf_ex(5, nullptr, nullptr, -1, "to the second\n");
    EXPECT_EQ(received, "[ALL][(null):-1][(null)] to the second\n");
    EXPECT_EQ(Printed({0}), "");
    hlog_regirst(nullptr);
    EXPECT_EQ(Printed({0}), "\033[31m[ERR]" TAIL);
}

// What `print` gets, and what still goes to standard output, when a server meets such a text.
std::string PrintedBy(hlogPrintFunc print, const std::string& no_json) {
    _grpc_t* server = grpc_new();
    received.clear();
    hlog_set_print(print);
    testing::internal::CaptureStdout();
    errno = EDOM;
    grpc_s_serve_without_send(server, no_json.c_str(), 0);
    EXPECT_EQ(errno, EDOM);
    hlog_set_print(nullptr);
    grpc_delete(server);
    return received + "|" + testing::internal::GetCapturedStdout();
}

TEST(HlogPrint, TakesWhatTheLibraryPrintsAwayFromStandardOutput) {
    for (size_t length : {0, 478, 479, 480, 481, 100000}) {
        const std::string text(length, '{');
        const std::string line = "ERROR: Failed Parse Message:\n" + text + "\n\n";
        EXPECT_EQ(PrintedBy(nullptr, text), "|" + line);
        auto keep = [](const char* part, int32_t len) {
            EXPECT_EQ(strlen(part), static_cast<size_t>(len));
            Receive(part, len);
            errno = EIO;
        };
        EXPECT_EQ(PrintedBy(keep, text), line + "|");
        EXPECT_EQ(PrintedBy(hlog_print_nothing, text), "|");
    }
    hlog_set_param(&kEverything);
    std::string record = PrintedBy(hlog_print_debug, "{");
    record.erase(record.find("cpp:") + 3, 3);  // the line
    EXPECT_EQ(record,
              "|\033[37m[DEBUG][print.cpp][hlog_print_debug] "
              "ERROR: Failed Parse Message:\n{\n\n\033[0m\033[37m\033[0m");
}

}  // namespace
