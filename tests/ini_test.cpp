#include <gtest/gtest.h>
#include <hybase/hcutil/HCParseIni.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/log_records.h"
#include "support/refused_new.h"
#include "support/temp_file.h"

namespace {

using Records = std::vector<std::string>;

std::string Printed(const HCParseIni& ini) {
    testing::internal::CaptureStdout();
    ini.Print();
    return testing::internal::GetCapturedStdout();
}

// All sections of a text, the way Print shows them.
std::string Parsed(const std::string& text) {
    HCParseIni ini;
    EXPECT_EQ(ini.Parse(text), 0);
    return Printed(ini);
}

class Ini : public testing::Test {
  protected:
    LogRecords log;
};

TEST_F(Ini, LinesAreStrippedAndSplit) {
    EXPECT_EQ(Parsed("  [main]  \r\n\tport=80 \t\r\r\n\r\n \t\n\nlast=1"),
              "[main]\n\tlast=1\n\tport=80\n");
    EXPECT_EQ(Parsed("[s]\n;a=1\n \t; b=1\n#x=1\na = b\nk==v ;no comment\ne=\n\rc=1\n"),
              "[s]\n\t\rc=1\n\t#x=1\n\ta = b\n\te=\n\tk==v ;no comment\n");
    EXPECT_EQ(Parsed("[s]\nno equals sign\n=1\n"), "[s]\n\t=\n");
    EXPECT_EQ(Parsed("[ net ]x=1\n[]\n[a]b]\n"), "[]\n[ net ]\n[a]\n");
    EXPECT_EQ(Parsed("[z]\nb=1\na=1\nB=1\n\xE4=1\n[Z]\n"),
              "[Z]\n[z]\n\tB=1\n\ta=1\n\tb=1\n\t\xE4=1\n");
    EXPECT_EQ(Parsed(""), "");
}

TEST_F(Ini, FirstSectionAndFirstKeyWin) {
    EXPECT_EQ(Parsed("[a]\nk=1\nk=2\n[b]\nk=3\n[a]\nk=4\nonly=5\n[a]\n[c]\nk=6\n"),
              "[a]\n\tk=1\n[b]\n\tk=3\n[c]\n\tk=6\n");
}

TEST_F(Ini, MalformedLinesAreRecordedAndDropped) {
    HCParseIni ini;
    ini.Parse(" x=1 \n[a]\n[abc \nk=1\n");
    const Records records = log.Take();
    ASSERT_EQ(records.size(), 3u);
    char address[32];
    snprintf(address, sizeof address, "%p", static_cast<void*>(&ini));
    EXPECT_EQ(records[0], std::string("INFO Parse: loading cfg string: x=1 \n[a]\n[abc \nk=1\n"
                                      ", this=") +
                              address + "\n");
    EXPECT_EQ(records[1], "ERR _load_by_stream: line has no section, x=1\n");
    EXPECT_EQ(records[2], "ERR _load_by_stream: section title has not close, [abc\n");
    EXPECT_EQ(Printed(ini), "[a]\n\tk=1\n");
}

TEST_F(Ini, ValuesAreConverted) {
    HCParseIni ini;
    ini.Parse("[s]\ni=-17x\nf= 2.5e1\nt=hello\ne=\n");
    int number = 0;
    float real = 0;
    std::string text = "old";
    EXPECT_EQ(ini.GetValue("s", "i", number) + ini.GetValue("s", "f", real), 0);
    EXPECT_EQ(number, -17);
    EXPECT_EQ(real, 25.0f);
    EXPECT_EQ(ini.GetValue("s", "t", number) + ini.GetValue("s", "e", real), 0);
    EXPECT_EQ(number, 0);
    EXPECT_EQ(real, 0.0f);
    EXPECT_EQ(ini.GetValue("s", "t", text), 0);
    EXPECT_EQ(text, "hello");

    char buf[] = "########";
    log.Take();
    for (int size : {6, 5, 0, -1}) EXPECT_EQ(ini.GetValue("s", "t", buf, size), -1);
    EXPECT_EQ(ini.GetValue("s", "t", nullptr, 7), -1);
    EXPECT_EQ(log.Take(), Records(5, "ERR GetValue: sec:[s] get string:t fail 2\n"));
    EXPECT_STREQ(buf, "########");
    EXPECT_EQ(ini.GetValue("s", "t", buf, 7), 0);
    EXPECT_EQ(std::string(buf, 8), std::string("hello\0##", 8));
}

TEST_F(Ini, MissesAreRecordedAndLeaveTheOutput) {
    HCParseIni ini;
    ini.Parse("[s]\nk=1\n");
    log.Take();
    int number = 7;
    float real = 7;
    std::string text = "old";
    char buf[] = "old";
    EXPECT_EQ(ini.GetValue("s", "K", number) + ini.GetValue("s", "K", real), -2);
    EXPECT_EQ(ini.GetValue("s", "K", text) + ini.GetValue("s", "K", buf, 4), -2);
    EXPECT_EQ(log.Take(), (Records{"ERR GetValue: sec:[s] get Int:K fail\n",
                                   "ERR GetValue: sec:[s] get float:K fail\n",
                                   "ERR GetValue: sec:[s] get string:K fail\n",
                                   "ERR GetValue: sec:[s] get string:K fail\n"}));
    EXPECT_EQ(ini.GetSection("S"), nullptr);
    EXPECT_EQ(log.Take(), (Records{"ERR GetSection: get section:S fail\n"}));
    EXPECT_EQ(ini.GetValue("S", "k", number) + ini.GetValue("S", "k", real), -2);
    EXPECT_EQ(ini.GetValue("S", "k", text) + ini.GetValue("S", "k", buf, 4), -2);
    const Records records = log.Take();
    ASSERT_EQ(records.size(), 8u);
    EXPECT_EQ(records[6], "ERR GetSection: get section:S fail\n");
    EXPECT_EQ(records[7], "ERR GetValue: section:S not find\n");
    EXPECT_TRUE(number == 7 && real == 7 && text == "old" && std::string(buf) == "old");
}

TEST_F(Ini, WalkGoesUpTheKeys) {
    HCParseIni ini;
    ini.Parse("[s]\nb=2\na=1\n[empty]\n");
    HCIniSection* section = ini.GetSection("s");
    std::string walk, key, value;
    for (int i = 0; i < 2; i++) {
        section->SeekSet();
        while (section->GetNext(key, value) == 0) walk += key + value;
    }
    EXPECT_EQ(walk, "a1b2a1b2");
    ini.GetSection("empty")->SeekSet();
    EXPECT_EQ(ini.GetSection("empty")->GetNext(key, value), -1);
}

TEST_F(Ini, LoadReplacesAllSectionsOrNone) {
    TempFile first("[a]\nk=1"), second("[b]\n"), huge("[c]\n");
    huge.Extend(int64_t{1} << 31);
    HCParseIni ini;
    EXPECT_EQ(ini.LoadFile(second.path) + ini.LoadFile(first.path), 0);
    log.Take();
    EXPECT_EQ(ini.LoadFile("no/such.ini") + ini.LoadFile("/"), -2);
    EXPECT_EQ(ini.LoadFile("/dev/zero") + ini.LoadFile(huge.path), -2);
    EXPECT_EQ(log.Take(),
              (Records{"ERR LoadFile: open file:no/such.ini fail, err=No such file or directory\n",
                       "ERR LoadFile: open file:/ fail, err=Is a directory\n",
                       "ERR LoadFile: open file:/dev/zero fail, err=Operation not supported\n",
                       "ERR LoadFile: open file:" + huge.path + " fail, err=File too large\n"}));
    EXPECT_EQ(Printed(ini), "[a]\n\tk=1\n");
}

TEST_F(Ini, PipeIsReadToItsEnd) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::string text = "[a]\nk=" + std::string(30000, 'x');
    EXPECT_EQ(write(ends[1], text.data(), text.size()), ssize_t(text.size()));
    close(ends[1]);
    HCParseIni ini;
    EXPECT_EQ(ini.LoadFile("/dev/fd/" + std::to_string(ends[0])), 0);
    close(ends[0]);
    EXPECT_EQ(Printed(ini), "[a]\n\tk=" + std::string(30000, 'x') + "\n");
}

TEST(IniMemory, ShortMemoryIsAFailure) {
    static char record[256];
    hlog_regirst([](const char* text, int32_t) { strncpy(record, text, sizeof record - 1); });
    const TempFile file("[b]\n");
    const std::string long_value = "longer than what fits into a string object itself";
    HCParseIni ini;
    ini.Parse("[a]\nk=" + long_value);
    std::string key, value;
    refuse_new = true;
    const int got = ini.GetValue("a", "k", value);
    ini.GetSection("a")->SeekSet();
    const int next = ini.GetSection("a")->GetNext(key, value);
    const int parsed = ini.Parse("[b]\n");
    const int loaded = ini.LoadFile(file.path);
    ini.Print();
    refuse_new = false;
    hlog_regirst(nullptr);
    EXPECT_EQ(got + next + parsed + loaded, -4);
    const std::string expected = "open file:" + file.path + " fail, err=Cannot allocate memory\n";
    EXPECT_NE(std::string(record).find("[ERR][HCParseIni:"), std::string::npos);
    EXPECT_NE(std::string(record).find("[LoadFile] " + expected), std::string::npos);
    EXPECT_EQ(ini.GetValue("a", "k", value), 0);
    EXPECT_EQ(value, long_value);
}

}  // namespace
