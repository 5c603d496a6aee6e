#include <gtest/gtest.h>
#include <hybase/hcutil/HCKeyValue.h>

#include <string>

namespace {

// The pairs of a text put together again, behind the result of Parse.
std::string Parsed(const char* text, char separator = ';') {
    HCKeyValue pairs;
    pairs.Set("former", "pair");
    std::string joined = "overwritten", result = std::to_string(pairs.Parse(text, separator));
    return result + ":" + pairs.ToString(joined, '|');
}

TEST(KeyValue, TextIsTakenApart) {
    EXPECT_EQ(Parsed(" a = 1 ;; b=2;"), "0:a=1|b=2|");
    EXPECT_EQ(Parsed("b=1;a=2;B=3;b=4;no pair"), "0:B=3|a=2|b=4|");
    EXPECT_EQ(Parsed("abc;k=a=b;;;\tx y\t=  "), "0:\tx y\t=|abc;k=a=b|");
    EXPECT_EQ(Parsed("a=1 b=2", ' ') + Parsed("a=1==b=2", '='), "0:a=1|b=2|0:a=1|b=2|");
    EXPECT_EQ(Parsed("a=1;b=2", '\0'), "0:a=1;b=2|");
    for (const char* text : {"=1;a=2", "a=2; =1;b=3", "no", ""}) EXPECT_EQ(Parsed(text), "-1:");
    EXPECT_EQ(Parsed(nullptr), "-1:former=pair|");
}

TEST(KeyValue, PairsAreSetAndWalkedUpwards) {
    HCKeyValue pairs;
    std::string key, walk, value = "old";
    const struct {
        const char *key, *value;
        int result;
    } sets[] = {{"b", "1", 0}, {"b", "2", 0},      {"d", "", 0},
                {"", "1", -1}, {nullptr, "1", -1}, {"b", nullptr, -1}};
    for (const auto& set : sets) EXPECT_EQ(pairs.Set(set.key, set.value), set.result);
    EXPECT_EQ(pairs.GetNext(key, value), -1);
    pairs.SeekSet();
    EXPECT_EQ(pairs.Get("c", value), "");
    EXPECT_EQ(pairs.Get("b", value), "2");
    EXPECT_EQ(pairs.Get(nullptr, value), "");
    while (pairs.GetNext(key, value) == 0) walk += key + value + " ";
    EXPECT_EQ(walk, "b2 c d ");
    pairs.SeekSet();
    pairs.Parse("e=5", ';');
    EXPECT_EQ(pairs.GetNext(key, value), -1);
}

// The value of a key in a plain text, "-1" if that is the result.
std::string Found(const char* text, const char* key) {
    std::string value = "old";
    const int result = HCKeyValue::GetValueWithKey(text, key, value);
    return result == 0 ? "'" + value + "'" : std::to_string(result) + value;
}

TEST(KeyValue, LookUpInPlainText) {
    EXPECT_EQ(Found("xa=1;a=2", "a") + Found("ab=1;a= 2 ;a=3", "a"), "'2'' 2 '");
    EXPECT_EQ(Found("a;a=x=y", "a") + Found("a=", "a"), "'x=y'''");
    EXPECT_EQ(Found("ab=1", "a") + Found("b=a", "a") + Found(" a=1", "a"), "-1-1-1");
    EXPECT_EQ(Found("=1;b=2", "") + Found("b=2;=1", "") + Found("b=2", ""), "'1''1'-1");
    EXPECT_EQ(Found(nullptr, "a") + Found("a=1", nullptr) + Found("", ""), "-1-1-1");
}

}  // namespace
