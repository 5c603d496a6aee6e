#include <gtest/gtest.h>
#include <hybase/hcutil/HCKeyValue.h>

#include <string>

#include "support/refused_new.h"

namespace {

const char kLong[] = "longer than what fits into a string object itself";

std::string Text(HCKeyValue& pairs) {
    std::string text = "overwritten";
    return pairs.ToString(text, '|');
}

// The pairs of a text put together again, behind the result of Parse.
std::string Parsed(const char* text, char separator = ';') {
    HCKeyValue pairs;
    pairs.Set("former", "pair");
    const int result = pairs.Parse(text, separator);
    return std::to_string(result) + ":" + Text(pairs);
}

TEST(KeyValue, TextIsTakenApart) {
    EXPECT_EQ(Parsed(" a = 1 ;; b=2;"), "0:a=1|b=2|");
    EXPECT_EQ(Parsed("b=1;a=2;B=3;b=4"), "0:B=3|a=2|b=4|");
    EXPECT_EQ(Parsed("abc;k=a=b;;;\tx y\t=  "), "0:\tx y\t=|abc;k=a=b|");
    EXPECT_EQ(Parsed("a=1;no pair"), "0:a=1|");
    EXPECT_EQ(Parsed("a=1 b=2", ' '), "0:a=1|b=2|");
    EXPECT_EQ(Parsed("a=1;b=2", '\0'), "0:a=1;b=2|");
    EXPECT_EQ(Parsed("a=1==b=2", '='), "0:a=1|b=2|");
}

TEST(KeyValue, TextWithoutPairsOrWithAnEmptyKeyFails) {
    EXPECT_EQ(Parsed("=1;a=2"), "-1:");
    EXPECT_EQ(Parsed("a=2;  =1;b=3"), "-1:");
    EXPECT_EQ(Parsed("novalue"), "-1:");
    EXPECT_EQ(Parsed(""), "-1:");
    EXPECT_EQ(Parsed(nullptr), "-1:former=pair|");
}

TEST(KeyValue, PairsAreReadAndSet) {
    HCKeyValue pairs;
    std::string value = "old";
    EXPECT_EQ(Text(pairs), "");
    EXPECT_EQ(pairs.Set("b", "1") + pairs.Set("a", "") + pairs.Set("b", "2"), 0);
    EXPECT_EQ(pairs.Set("", "1") + pairs.Set(nullptr, "1") + pairs.Set("b", nullptr), -3);
    EXPECT_EQ(&pairs.Get("b", value), &value);
    EXPECT_EQ(value, "2");
    EXPECT_EQ(pairs.Get("missing", value), "");
    EXPECT_EQ(Text(pairs), "a=|b=2|missing=|");
    value = "old";
    EXPECT_EQ(pairs.Get(nullptr, value), "");
}

TEST(KeyValue, WalkGoesUpTheKeysAndSurvivesChanges) {
    HCKeyValue pairs;
    std::string key, value;
    EXPECT_EQ(pairs.GetNext(key, value), -1);
    pairs.Parse("c=3;a=1", ';');
    EXPECT_EQ(pairs.GetNext(key, value), -1);
    pairs.SeekSet();
    EXPECT_EQ(pairs.GetNext(key, value), 0);
    EXPECT_EQ(key + value, "a1");
    pairs.Set("b", "2");
    EXPECT_EQ(pairs.GetNext(key, value), 0);
    EXPECT_EQ(key + value, "c3");
    pairs.Parse("d=4", ';');
    EXPECT_EQ(pairs.GetNext(key, value), -1);
    pairs.SeekSet();
    EXPECT_EQ(pairs.GetNext(key, value), 0);
    EXPECT_EQ(key + value, "d4");
    EXPECT_EQ(pairs.GetNext(key, value), -1);
}

// The value of a key in a plain text, "-1" if that is the result.
std::string Found(const char* text, const char* key) {
    std::string value = "old";
    const int result = HCKeyValue::GetValueWithKey(text, key, value);
    if (result == 0) return "'" + value + "'";
    return std::to_string(result) + value;
}

TEST(KeyValue, LookUpInPlainText) {
    EXPECT_EQ(Found("xa=1;a=2", "a"), "'2'");
    EXPECT_EQ(Found("ab=1;a= 2 ;a=3", "a"), "' 2 '");
    EXPECT_EQ(Found("a;a=x=y", "a"), "'x=y'");
    EXPECT_EQ(Found("a=", "a"), "''");
    EXPECT_EQ(Found("ab=1", "a"), "-1");
    EXPECT_EQ(Found("b=a", "a"), "-1");
    EXPECT_EQ(Found(" a=1", "a"), "-1");
    EXPECT_EQ(Found("=1;b=2", ""), "'1'");
    EXPECT_EQ(Found("b=2;=1", ""), "'1'");
    EXPECT_EQ(Found("b=2", ""), "-1");
    EXPECT_EQ(Found("", ""), "-1");
    EXPECT_EQ(Found(nullptr, "a"), "-1");
    EXPECT_EQ(Found("a=1", nullptr), "-1");
}

TEST(KeyValue, ShortMemoryIsAFailure) {
    HCKeyValue pairs;
    pairs.Set("a", kLong);
    pairs.SeekSet();
    std::string key, value, text = std::string("a=") + kLong;
    refuse_new = true;
    const int next = pairs.GetNext(key, value);
    const int set = pairs.Set("b", "2");
    const int found = HCKeyValue::GetValueWithKey(text.c_str(), "a", value);
    const bool empty = pairs.Get("a", value).empty() && pairs.ToString(value, ';').empty();
    const int parsed = pairs.Parse("a=1", ';');
    refuse_new = false;
    EXPECT_EQ(next + set + found + parsed, -4);
    EXPECT_TRUE(empty);
    EXPECT_EQ(Text(pairs), "");
}

}  // namespace
