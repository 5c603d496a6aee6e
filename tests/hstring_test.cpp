#include <gtest/gtest.h>
#include <hybase/hlog.h>
#include <hybase/hstring.h>

#include <string>
#include <vector>

namespace {

// Not a byte more than the text: AddressSanitizer sees every access behind it.
std::vector<char> Copy(const std::string& s) { return {s.c_str(), s.c_str() + s.size() + 1}; }

// The words of a command line or, with a separator, the fields of `len` bytes; '|' behind each.
std::string Cut(const std::string& text, int32_t max, char sep = '\0', int32_t len = 0) {
    std::vector<char> copy = Copy(text);
    char* argv[4];
    const int32_t count = sep == '\0' ? HString_CmdParser(copy.data(), argv, max)
                                      : HString_ConvertToArgv_ex(copy.data(), len, sep, argv, max);
    std::string joined;
    for (int32_t i = 0; i < count; i++) joined += std::string(argv[i]) + '|';
    return joined;
}

TEST(HString, CommandLineIsCutIntoWords) {
    EXPECT_EQ(Cut("\r\n\ta\t \"b\t'c\"\n", 3), "a|b\t'c|");
    EXPECT_EQ(Cut("a\nb\v \r\n'c d'", 3), "a\nb\v|c d|");  // only a blank or a tab ends a word
    EXPECT_EQ(Cut("a'b c' 'd e'f'g '", 3), "a'b|c'|d ef'g||");
    EXPECT_EQ(Cut("'' ' ' 'x ' 'y z", 3), "||x|y z|");
    EXPECT_EQ(Cut("a \"", 3), "a||");
    EXPECT_EQ(Cut("1 2 3", 1), "1|2|");
    EXPECT_EQ(Cut("1 2 3", -1) + Cut(" \t\r\n", 3), "");
    EXPECT_EQ(HString_CmdParser(nullptr, nullptr, 0), -1);
}

TEST(HString, FieldsAndLinesEndAtTheirSizes) {
    EXPECT_EQ(Cut(", a ,,\t", 4, ',', 7), " a |\t|");
    EXPECT_EQ(Cut(" \t\v\fa\r\nb,\xa0 ", 4, ' ', 11), "a|b,\xa0|");
    EXPECT_EQ(Cut("a b c", 4, ' ', 3), "a|b c|");  // no terminator behind the length
    EXPECT_EQ(Cut("a b c", 2, ' ', 5), "a|b|");
    EXPECT_EQ(Cut("a b c", 0, ' ', 5) + Cut("a b c", 4, ' ', -1), "");
    char copy[] = "#####";
    for (int size : {0, -1}) EXPECT_EQ(HString_GetLine("ab\ncd", copy, size), 0);
    EXPECT_EQ(HString_GetLine("ab\ncd", copy, 2), 1);
    EXPECT_EQ(std::string(copy, 5), std::string("a\0###", 5));
    EXPECT_EQ(HString_GetLine("ab\ncd", copy, 5), 3);
    EXPECT_EQ(std::string(copy, 5), std::string("ab\n\0#", 5));
}

std::string log_text;
// What was logged since the last call. The first one begins to listen.
std::string TakeLog() {
    const hlogParam_t without_time{};
    hlog_set_param(&without_time);
    hlog_regirst([](const char* text, int32_t) { log_text += text; });
    return std::exchange(log_text, "");
}

// Replaces each "-" into `size` bytes of zeros, then in place. `line` of the record, 0 when it
// fits.
void ExpectReplaced(const char* text, const char* to, int size, std::string written, int line) {
    const int32_t result = line != 0 ? -1 : static_cast<int32_t>(written.size());
    const std::string place = "[ERR][hstring:" + std::to_string(line) + "][] ";
    std::vector<char> str = Copy(text), dst(size);
    str.resize(std::max(str.size(), dst.size()));
    written.resize(size);
    const std::string in_place = line != 0 ? std::string(str.begin(), str.end()) : written;
    TakeLog();
    EXPECT_EQ(HString_WordReplace(str.data(), dst.data(), size, "-", to), result);
    EXPECT_EQ(TakeLog(), line != 0 ? place + "str_dst size is too small\n" : "");
    EXPECT_EQ(std::string(dst.begin(), dst.end()), written) << text;
    EXPECT_EQ(HString_WordReplace(str.data(), nullptr, size, "-", to), result);
    EXPECT_EQ(std::string(str.begin(), str.end()), in_place) << text;
}

TEST(HString, WordsAreReplacedOrTheRecordTellsWhereRoomEnded) {
    ExpectReplaced("a-b-c", "--", 7, "a--b--c", 0);
    ExpectReplaced("a-b-c", "--", 6, "a--b--", 251);
    ExpectReplaced("a-b-c", "--", 5, "a--b-", 251);
    ExpectReplaced("ab-c", "--", 1, "a", 236);
    ExpectReplaced("a-bcd", "-", 4, "a-bc", 269);
    ExpectReplaced("-a-bc", "", 6, "abc", 0);
    ExpectReplaced("a-b", "-", 0, "", 236);
    char text[12] = "a--b---";
    EXPECT_EQ(HString_WordReplace(text, text, 12, "--", "xyz"), 9);
    EXPECT_EQ(HString_WordReplace(text, nullptr, 12, "", "-"), 9);
    EXPECT_STREQ(text, "axyzbxyz-");
}

TEST(HString, HexTextGoesBothWaysAndNamesWhatIsNone) {
    uint8_t out[2] = {9, 9};
    for (int value = 1; value < 256; value++) {
        char expected[3], digit[] = {static_cast<char>(value), '0', '\0'};
        snprintf(expected, sizeof(expected), value % 2 ? "%02X" : "%02x", value);
        EXPECT_EQ(HString_HexParse(digit, out), isxdigit(value) ? 1 : -1) << value;
        EXPECT_EQ(HString_HexParse(expected, out), 1);
        EXPECT_EQ(out[0], value);
        char* text = HString_HexPrint(out, 1, value % 2);
        EXPECT_STREQ(text, expected);
        free(text);
    }
    TakeLog();
    for (const char* text : {"0aF-", "0aF"}) EXPECT_EQ(HString_HexParse(text, out), -1);
    EXPECT_EQ(TakeLog(),
              "[ERR][hstring:298][] string is invalid [-]\n"
              "[ERR][hstring:311][] string len must be even number\n");
    EXPECT_EQ(out[0], 0x0A);
    EXPECT_EQ(out[1], 0x09);
}
}  // namespace
