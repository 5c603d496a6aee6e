#include <fcntl.h>
#include <gtest/gtest.h>
#include <hybase/hcutil/HCCsv.h>
#include <hybase/hlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "support/temp_file.h"

namespace {

std::string log_text;

// What was logged since the last call. The first one begins to listen.
std::string TakeLog() {
    const hlogParam_t without_time{0, HLOG_LEVEL_TRACE, 0, "", 0, 0};
    hlog_set_param(&without_time);
    hlog_regirst([](const char* text, int32_t) { log_text += text; });
    return std::exchange(log_text, "");
}

// The cells of a file with these bytes, '|' behind each and '\n' behind a row.
std::string Table(const std::string& bytes) {
    const TempFile file(bytes);
    HCCsv csv;
    std::string text, value;
    EXPECT_EQ(csv.Open(file.path.c_str()), 0);
    for (int row = 1; row <= csv.GetRowCnt(); row++, text += "\n")
        for (int col = 1; col <= csv.GetColumnCnt(); col++)
            text += csv.GetValue(row, col, value) + "|";
    return text;
}

class Csv : public testing::Test {
  protected:
    HCCsv csv;
    std::string value = "old";
};

TEST_F(Csv, LinesBecomeRows) {
    for (const char* bytes : {"a,b\n1,\n", "a,b\n1,", "a,b\r\n1,\r\n", "a,b\r\n1,\r"})
        EXPECT_EQ(Table(bytes), "a|b|\n1||\n");
    EXPECT_EQ(Table("\"a,b\"\n , \n"), "\"a|b\"|\n | |\n");
    EXPECT_EQ(Table("\n\n"), "|\n|\n");
    EXPECT_EQ(Table("a,b,c\n1\n\n1,2,3,4\n1,2,3"), "a|b|c|\n1|||\n|||\n1|2|3|\n1|2|3|\n");
    EXPECT_EQ(Table("a\n1,2,3,4,5,6,7,8,9\n"), "a|\n1|\n");
    EXPECT_EQ(Table("a,b\r1,c\n2,3\r\r\n4,5\n"), "a|b\r1|c|\n2|3\r||\n4|5||\n");
    EXPECT_EQ(Table(std::string("a,b\n1,2\n3\0,4\n", 13)), "a|b|\n1|2|\n");
}

TEST_F(Csv, LargeFileTakesMemoryByItsBytesNotByItsGrid) {
    const int lines = 1000000;
    std::string bytes(lines, ',');
    for (int i = 0; i < lines; i++) bytes += "\n1";
    const TempFile file(bytes + ",last");
    EXPECT_EQ(csv.Open(file.path.c_str()), 0);
    EXPECT_EQ(csv.GetValue(lines + 1, 2, value), "last");
    EXPECT_EQ(csv.GetValue(lines, lines + 1, value), "");
}

TEST_F(Csv, CellsAreFoundByNameAndByNumber) {
    const TempFile file("name,port,name\nfront,1,x\ngarden,2,y\nfront,3,z\n");
    for (int i = 0; i < 2; i++) ASSERT_EQ(csv.Open(file.path.c_str()), 0);
    const struct {
        const char* name;
        int row, col;
    } cases[] = {{"name", 1, 1}, {"front", 2, -1}, {"port", -1, 2}, {nullptr, -1, -1}};
    for (const auto& c : cases) {
        EXPECT_EQ(csv.getrow(c.name), c.row);
        EXPECT_EQ(csv.getcol(c.name), c.col);
    }
    EXPECT_EQ(csv.parseCsv(), -1);
    EXPECT_EQ(csv.GetValue("garden", "port", value), "2");
    EXPECT_EQ(csv.GetValue("garden", 3, value), "y");
    EXPECT_EQ(csv.GetValue(4, "port", value), "3");
}

TEST_F(Csv, CellsOutsideTheTableAreRecordedAndEmpty) {
    const TempFile file("a,b,c\n1\n");
    TakeLog();
    csv.Open(file.path.c_str());
    EXPECT_EQ(TakeLog(), "[TRACE][HCCsv:51][] parseCsv: row: 2, col:3\n");
    for (const auto& [row, col] : {std::pair(0, 1), {3, 1}, {1, 0}, {1, 4}, {-1, 3}, {1, 1}}) {
        if (row * col == 1) csv.Close();
        EXPECT_EQ(row < 0 ? csv.GetValue("no", "c", value) : csv.GetValue(row, col, value), "");
        EXPECT_EQ(TakeLog(), "[ERR][HCCsv:164][] row:" + std::to_string(row) +
                                 " not in[1,2], col:" + std::to_string(col) + " not in[1,3]\n");
    }
    EXPECT_EQ(csv.getrow("a"), -1);
    EXPECT_EQ(csv.getcol("a"), -1);
    EXPECT_EQ(csv.parseCsv(), -1);
}

// Not even opened: that would wait for the writer of a pipe.
TEST_F(Csv, PipesAreNotWaitedFor) {
    const TempFile name("");
    const std::string pipe = name.path + ".pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    alarm(10);
    EXPECT_EQ(csv.Open(pipe.c_str()), -1);
    alarm(0);
    EXPECT_EQ(open(pipe.c_str(), O_WRONLY | O_NONBLOCK), -1);  // nobody reads it
    unlink(pipe.c_str());
}

TEST_F(Csv, FailedOpenIsRecorded) {
    const TempFile huge("a\n");
    std::filesystem::resize_file(huge.path, uintmax_t{1} << 31);
    TakeLog();
    for (const char* path : {"no/such.csv", "/", "/dev/zero", huge.path.c_str(), ""}) {
        EXPECT_EQ(csv.Open(*path != '\0' ? path : nullptr), -1);
        EXPECT_EQ(TakeLog(), std::string("[ERR][HCCsv:107][] csv open failed: ") + path + "\n");
    }
    EXPECT_EQ(csv.Open("/proc/self/status"), -1);  // measures nothing, yet has a text
    EXPECT_EQ(TakeLog(),
              "[TRACE][HCCsv:51][] parseCsv: row: 0, col:1\n[ERR][HCCsv:128][] csv format error\n");
}

}  // namespace
