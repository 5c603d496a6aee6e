#include <gtest/gtest.h>
#include <hybase/hcutil/HCParseIni.h>

#include <filesystem>
#include <sstream>

#include "support/log_records.h"
#include "support/temp_file.h"

namespace {

using Records = std::vector<std::string>;

// Result and output of a look-up; `value` is the output before it.
template <class Value>
std::string Get(const HCParseIni& ini, const char* section, const char* key, Value value) {
    std::ostringstream text;
    text << ini.GetValue(section, key, value) << ":";
    text << value << " ";
    return text.str();
}

class Ini : public testing::Test {
  protected:
    std::string Printed() {
        testing::internal::CaptureStdout();
        ini.Print();
        return testing::internal::GetCapturedStdout();
    }
    std::string Parsed(const char* text) { return ini.Parse(text) == 0 ? Printed() : "failed"; }

    LogRecords log;
    HCParseIni ini;
};

TEST_F(Ini, LinesAreStrippedAndSplit) {
    EXPECT_EQ(Parsed("  [main]  \r\n\tport=80 \t\r\r\n\r\n \t\n\nl=1"),
              "[main]\n\tl=1\n\tport=80\n");
    EXPECT_EQ(Parsed("[s]\n;a=1\n \t; b=1\n#x=1\na = b\nk==v ;no comment\ne=\n\rc=1\n"),
              "[s]\n\t\rc=1\n\t#x=1\n\ta = b\n\te=\n\tk==v ;no comment\n");
    EXPECT_EQ(Parsed("[ net ]x=1\n[]\nno equals sign\n=1\n[a]b]\n\xE4=1\nB=1\n"),
              "[]\n\t=\n[ net ]\n[a]\n\tB=1\n\t\xE4=1\n");
    EXPECT_EQ(Parsed("[a]\nk=1\nk=2\n[b]\nk=3\n[a]\nk=4\nonly=5\n[a]\n[c]\nk=6\n"),
              "[a]\n\tk=1\n[b]\n\tk=3\n[c]\n\tk=6\n");
}

TEST_F(Ini, MalformedLinesAreRecordedAndDropped) {
    ini.Parse(" x=1 \n[a]\n[abc \nk=1\n");
    std::ostringstream parse;
    parse << "INFO Parse: loading cfg string: x=1 \n[a]\n[abc \nk=1\n, this=" << &ini << "\n";
    EXPECT_EQ(log.Take(), (Records{parse.str(), "ERR _load_by_stream: line has no section, x=1\n",
                                   "ERR _load_by_stream: section title has not close, [abc\n"}));
    EXPECT_EQ(Printed(), "[a]\n\tk=1\n");
}

TEST_F(Ini, ValuesAreConverted) {
    ini.Parse("[s]\ni=-17x\nf= 2.5e1\nt=hello\ne=\n");
    EXPECT_EQ(Get(ini, "s", "i", 7) + Get(ini, "s", "t", 7), "0:-17 0:0 ");
    EXPECT_EQ(Get(ini, "s", "f", 7.f) + Get(ini, "s", "e", 7.f), "0:25 0:0 ");
    EXPECT_EQ(Get(ini, "s", "t", std::string("old")), "0:hello ");
    char buf[] = "########";
    log.Take();
    for (int size : {6, 0, -1}) EXPECT_EQ(ini.GetValue("s", "t", buf, size), -1);
    EXPECT_EQ(ini.GetValue("s", "t", nullptr, 7), -1);
    EXPECT_EQ(log.Take(), Records(4, "ERR GetValue: sec:[s] get string:t fail 2\n"));
    EXPECT_STREQ(buf, "########");
    EXPECT_EQ(ini.GetValue("s", "t", buf, 7), 0);
    EXPECT_EQ(std::string(buf, 8), std::string("hello\0##", 8));
}

TEST_F(Ini, MissesAreRecordedAndLeaveTheOutput) {
    ini.Parse("[s]\nk=1\n");
    log.Take();
    EXPECT_EQ(Get(ini, "s", "K", 7), "-1:7 ");
    EXPECT_EQ(Get(ini, "s", "K", 7.5f), "-1:7.5 ");
    EXPECT_EQ(Get(ini, "s", "K", std::string("old")), "-1:old ");
    EXPECT_EQ(Get(ini, "S", "k", 7), "-1:7 ");
    const std::string get = "ERR GetValue: sec:[s] get ";
    EXPECT_EQ(log.Take(), (Records{get + "Int:K fail\n", get + "float:K fail\n",
                                   get + "string:K fail\n", "ERR GetSection: get section:S fail\n",
                                   "ERR GetValue: section:S not find\n"}));
    EXPECT_EQ(Get(ini, "S", "k", 7.5f) + Get(ini, "S", "k", std::string("old")), "-1:7.5 -1:old ");
    char buf[8];
    EXPECT_EQ(ini.GetValue("s", "K", buf, 8), -1);
    EXPECT_EQ(ini.GetValue("S", "k", buf, 8), -1);
}

TEST_F(Ini, LoadReplacesAllSectionsOrNone) {
    const TempFile first("[a]\nk=1\nb=2"), second("[b]\n"), huge("[c]\n");
    std::filesystem::resize_file(huge.path, uintmax_t{1} << 31);
    ASSERT_TRUE(ini.LoadFile(second.path) == 0 && ini.LoadFile(first.path) == 0);
    for (const auto& path : Records{"no/such.ini", huge.path, "/dev/zero"})
        EXPECT_EQ(ini.LoadFile(path), -1);
    const std::string open = "ERR LoadFile: open file:";
    EXPECT_EQ(log.Take(), (Records{open + "no/such.ini fail, err=No such file or directory\n",
                                   open + huge.path + " fail, err=File too large\n",
                                   open + "/dev/zero fail, err=Operation not supported\n"}));
    std::string walk, key, value;
    HCIniSection* section = ini.GetSection("a");
    for (section->SeekSet(); section->GetNext(key, value) == 0;) walk += key + value;
    section->SeekSet();
    EXPECT_EQ(section->GetNext(key, value), 0);
    EXPECT_EQ(walk + key + Printed(), "b2k1b[a]\n\tb=2\n\tk=1\n");
    EXPECT_EQ(ini.LoadFile("/"), 0);  // a folder opens, and has nothing to read
    EXPECT_EQ(Printed(), "");
}

TEST_F(Ini, SectionsOfAnySizeKeepTheirFirstValues) {
    std::string text = "[s]\n";
    const int keys = 5000;
    for (const char* value : {"=first\n", "=second\n"})
        for (int i = 0; i < keys; i++) text += "k" + std::to_string(i) + value;
    ASSERT_EQ(ini.Parse(text), 0);
    std::string value;
    for (int i = 0; i < keys; i++) {
        ASSERT_EQ(ini.GetValue("s", "k" + std::to_string(i), value), 0);
        ASSERT_EQ(value, "first");
    }
    EXPECT_EQ(ini.GetValue("s", "k5000", value), -1);
}

// The CPU time of loading so many keys. Bit i of a key's number flips the highest bits in the words
// 2i and 2i + 1 of its text, in a pattern that a multiplication does not spread.
clock_t LoadTime(int bits, const char* first_flip, const char* second_flip) {
    std::string text = "[s]\n";
    for (unsigned number = 0; number < 1u << bits; number++) {
        for (int i = 0; i < bits; i++) {
            const bool flip = (number >> i & 1) != 0;
            text.append(flip ? first_flip : "aaaaaaaa").append(flip ? second_flip : "aaaaaaaa");
        }
        text += "=1\n";
    }
    const TempFile file(text);
    HCParseIni ini;
    const clock_t start = clock();
    EXPECT_EQ(ini.LoadFile(file.path), 0);
    return clock() - start;
}

TEST_F(Ini, ChosenKeysCollideNoMoreThanOthers) {
    const clock_t others = LoadTime(14, "aaaaaaab", "aaaaaaac");
    EXPECT_LT(LoadTime(14, "aaaaaaa\xE1",
                       "aaa\xE1"
                       "aaa\xE1"),
              10 * others + CLOCKS_PER_SEC / 10);
}

TEST_F(Ini, PipeIsReadToItsEnd) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::string value(30000, 'x');
    EXPECT_EQ(write(ends[1], ("[a]\nk=" + value).data(), 30006), 30006);
    close(ends[1]);
    EXPECT_EQ(ini.LoadFile("/dev/fd/" + std::to_string(ends[0])), 0);
    close(ends[0]);
    EXPECT_EQ(Printed(), "[a]\n\tk=" + value + "\n");
}

}  // namespace
