#include <errno.h>
#include <gtest/gtest.h>
#include <hybase/hcutil/HCCsv.h>
#include <hybase/hlog.h>
#include <stdlib.h>

#include <string>
#include <utility>

#include "support/temp_file.h"

// Blocks of cells are refused while this is set.
static bool refuse_blocks;

extern "C" __attribute__((visibility("default"))) void* reallocarray(void* block, size_t count,
                                                                     size_t size) noexcept {
    if (refuse_blocks || __builtin_mul_overflow(count, size, &size)) {
        errno = ENOMEM;
        return nullptr;
    }
    return realloc(block, size);
}

namespace {

std::string log_text;

// What was logged since the last call. The first one begins to listen.
std::string TakeLog() {
    hlogParam_t without_time{};
    without_time.console_level = HLOG_LEVEL_TRACE;
    hlog_set_param(&without_time);
    hlog_regirst([](const char* text, int32_t) { log_text += text; });
    return std::exchange(log_text, "");
}

// The cells of a file with these bytes, '|' behind each and '\n' behind a row.
std::string Table(const std::string& bytes) {
    const TempFile file(bytes);
    HCCsv csv;
    if (csv.Open(file.path.c_str()) != 0) return "failed";
    std::string text, value;
    for (int row = 1; row <= csv.GetRowCnt(); row++) {
        for (int col = 1; col <= csv.GetColumnCnt(); col++)
            text += csv.GetValue(row, col, value) + "|";
        text += "\n";
    }
    return text;
}

TEST(Csv, LinesBecomeRows) {
    const std::string table = "a|b|\n1||\n";
    EXPECT_EQ(Table("a,b\n1,\n"), table);
    EXPECT_EQ(Table("a,b\n1,"), table);
    EXPECT_EQ(Table("a,b\r\n1,\r\n"), table);
    EXPECT_EQ(Table("a,b\r\n1,\r"), table);
    EXPECT_EQ(Table("\"a,b\"\n , \n"), "\"a|b\"|\n | |\n");
    EXPECT_EQ(Table("\n\n"), "|\n|\n");
}

TEST(Csv, UnevenLinesStayInTheirRows) {
    EXPECT_EQ(Table("a,b,c\n1\n\n1,2,3,4,5\n,\n1,2,3"), "a|b|c|\n1|||\n|||\n1|2|3|\n|||\n1|2|3|\n");
    EXPECT_EQ(Table("a,b\r1,c\n2,3\r\r\n4,5\n"), "a|b\r1|c|\n2|3\r||\n4|5||\n");
    EXPECT_EQ(Table(std::string("a,b\n1,2\n3\0,4\n", 13)), "a|b|\n1|2|\n");
}

TEST(Csv, CellsAreFoundByNumberAndName) {
    const TempFile file("name,port,name\nfront,1,x\ngarden,2,y\nfront,3,z\n");
    HCCsv csv;
    std::string value = "old";
    ASSERT_EQ(csv.Open(file.path.c_str()), 0);
    EXPECT_EQ(csv.parseCsv(), -1);
    EXPECT_EQ(csv.getrow("name"), 1);
    EXPECT_EQ(csv.getrow("front"), 2);
    EXPECT_EQ(csv.getrow("port"), -1);
    EXPECT_EQ(csv.getcol("port"), 2);
    EXPECT_EQ(csv.getcol("name"), 1);
    EXPECT_EQ(csv.getcol("front"), -1);
    EXPECT_EQ(csv.getrow(nullptr) + csv.getcol(nullptr), -2);
    EXPECT_EQ(&csv.GetValue("garden", "port", value), &value);
    EXPECT_EQ(value, "2");
    EXPECT_EQ(csv.GetValue("garden", 3, value), "y");
    EXPECT_EQ(csv.GetValue(4, "port", value), "3");
}

TEST(Csv, RecordsTellWhatIsWrong) {
    const TempFile file("a,b,c\n1\n"), other("x\n"), empty("");
    HCCsv csv;
    std::string value;
    TakeLog();
    csv.Open(file.path.c_str());
    EXPECT_EQ(TakeLog(), "[TRACE][HCCsv:51][] parseCsv: row: 2, col:3\n");
    for (const auto& [row, col] : {std::pair(0, 1), {3, 1}, {1, 0}, {1, 4}}) {
        value = "old";
        EXPECT_EQ(csv.GetValue(row, col, value), "");
        EXPECT_EQ(TakeLog(), "[ERR][HCCsv:164][] row:" + std::to_string(row) +
                                 " not in[1,2], col:" + std::to_string(col) + " not in[1,3]\n");
    }
    csv.GetValue("no", "c", value);
    EXPECT_EQ(TakeLog(), "[ERR][HCCsv:164][] row:-1 not in[1,2], col:3 not in[1,3]\n");

    EXPECT_EQ(csv.Close(), 0);
    EXPECT_EQ(csv.GetRowCnt() * 10 + csv.GetColumnCnt(), 23);
    EXPECT_EQ(csv.GetValue(1, 1, value), "");
    EXPECT_EQ(TakeLog(), "[ERR][HCCsv:164][] row:1 not in[1,2], col:1 not in[1,3]\n");
    EXPECT_EQ(csv.getrow("a") + csv.getcol("a") + csv.parseCsv(), -3);

    EXPECT_EQ(csv.Open(file.path.c_str()) + csv.Open(other.path.c_str()), 0);
    EXPECT_EQ(csv.GetValue(1, 1, value), "x");
    TakeLog();
    EXPECT_EQ(csv.Open(empty.path.c_str()), -1);
    EXPECT_EQ(TakeLog(),
              "[TRACE][HCCsv:51][] parseCsv: row: 0, col:1\n"
              "[ERR][HCCsv:128][] csv format error\n");
    EXPECT_EQ(csv.GetValue(1, 1, value), "");
}

TEST(Csv, OnlyMeasurableFilesAreOpened) {
    TempFile huge("a\n");
    huge.Extend(int64_t{1} << 31);
    TakeLog();
    for (const char* path : {"no/such.csv", "/", "/dev/zero", huge.path.c_str(), ""}) {
        HCCsv csv;
        EXPECT_EQ(csv.Open(path), -1);
        EXPECT_EQ(TakeLog(), std::string("[ERR][HCCsv:107][] csv open failed: ") + path + "\n");
    }
    HCCsv csv;
    EXPECT_EQ(csv.Open(nullptr), -1);
    EXPECT_EQ(csv.Open("/proc/self/status"), -1);  // measures nothing, yet has a text
    TakeLog();
    refuse_blocks = true;
    const TempFile file("a\n");
    EXPECT_EQ(csv.Open(file.path.c_str()), -1);
    refuse_blocks = false;
    EXPECT_EQ(TakeLog(), "[ERR][HCCsv:115][] malloc failed: " + std::to_string(ENOMEM) + "\n");
}

TEST(Csv, LargeFilesTakeMemoryByTheirBytesNotByTheirGrid) {
    const int lines = 1000000;
    std::string bytes(lines, ',');
    for (int i = 0; i < lines; i++) bytes += "\n1";
    const TempFile file(bytes + ",last");
    HCCsv csv;
    std::string value;
    ASSERT_EQ(csv.Open(file.path.c_str()), 0);
    EXPECT_EQ(csv.GetRowCnt(), lines + 1);
    EXPECT_EQ(csv.GetColumnCnt(), lines + 1);
    EXPECT_EQ(csv.GetValue(lines + 1, 2, value), "last");
    EXPECT_EQ(csv.GetValue(lines, lines + 1, value), "");
    EXPECT_EQ(csv.getrow("1"), 2);
}

}  // namespace
