#include <gtest/gtest.h>
#include <hybase/hcutil/HCTLV.h>
#include <limits.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes Encoded(const HCTLV& tlv) {
    const unsigned char* data = tlv.GetTLVBuffer();
    return Bytes(data, data + tlv.GetTLVBytes());
}

int Parse(HCTLV* tlv, const Bytes& message) {
    return tlv->ParseToTLV(message.data(), static_cast<int>(message.size()));
}

constexpr int kPointCountAt = 174, kUnusedPointsAt = 183, kNextEntryAt = 255;

// A value of every kind, whose number is its type. docs/formats.md shows this message.
Bytes Sample() {
    static const char text[] =
        "cam\0\0\0\1\x1C"
        "\0\0\0\1\1\0\0\0\1\xFE"
        "\0\0\0\2\2\0\0\0\2\x21\x6A"
        "\0\0\0\3\3\0\0\0\4\xFE\xDC\xBA\x98"
        "\0\0\0\4\4\0\0\0\x08\xFE\xDC\xBA\x98\x76\x54\x32\x10"
        "\0\0\0\5\5\0\0\0\4\xBF\0\0\0"
        "\0\0\0\6\6\0\0\0\x08\x3F\xB9\x99\x99\x99\x99\x99\x9A"
        "\0\0\0\7\7\0\0\0\3up\0"
        "\0\0\0\x08\x08\0\0\0\6six\0by"
        "\0\0\0\x09\x09\0\0\0\x08\0\0\2\x80\xFF\xFF\xFE\x20"
        "\0\0\0\x0A\x0A\0\0\0\x10\0\0\0\x10\xFF\xFF\xFF\xFF\0\0\1\x40\0\0\0\xF0"
        "\0\0\0\x0B\x0B\0\0\0\x58\0\0\0\3\0\0\0\1\0\0\0\5\0\0\0\6"  // and 72 zeros
        "\0\0\0\x0C\x0C\0\0\0\x1C\0\0\0\7\0\0\0\1\0\0\0\x5F"
        "\0\0\0\x10\xFF\xFF\xFF\xFF\0\0\1\x40\0\0\0\xF0";
    Bytes message(text, text + sizeof text - 1);
    message.insert(message.begin() + kUnusedPointsAt, 72, 0);
    return message;
}

// The message made of whatever any of the getters gives for any of the values.
Bytes Copied(HCTLV* from) {
    HCTLV to(from->GetHeadType());
    int type, kind, count;
    TLVSize_t size;
    TLVRect_t rect;
    TLVRuleArea_t* rules;
    TLVObjArea_t* objects;
    unsigned char* data;
    const auto copy = [&](auto number, auto get, auto add) {
        if ((from->*get)(type, number) == 0) (to.*add)(type, number);
    };
    for (const int* after = nullptr; utltlv_get_next(from->GetCHdl(), after, &type, &kind) == 0;
         after = &type) {
        copy(uint8_t{}, &HCTLV::GetUInt8Value, &HCTLV::AddUInt8Value);
        copy(uint16_t{}, &HCTLV::GetUInt16Value, &HCTLV::AddUInt16Value);
        copy(uint32_t{}, &HCTLV::GetUInt32Value, &HCTLV::AddUInt32Value);
        copy(0ULL, &HCTLV::GetUInt64Value, &HCTLV::AddUInt64Value);
        copy(0.0F, &HCTLV::GetFloatValue, &HCTLV::AddFloatValue);
        copy(0.0, &HCTLV::GetDoubleValue, &HCTLV::AddDoubleValue);
        if (from->GetBytesValuePtr(type, &data, count) == 0) to.AddBytesValue(type, data, count);
        if (kind == UTLTLV_STRING) to.AddStringValue(type, reinterpret_cast<char*>(data));
        if (from->GetSizeValue(type, &size) == 0) to.AddSizeValue(type, &size);
        if (from->GetRectValue(type, &rect) == 0) to.AddRectValue(type, &rect);
        int got = from->GetRuleAreasValue(type, &rules, &count);
        if (got == 0) to.AddRuleAreasValue(type, rules, static_cast<unsigned char>(count));
        got = from->GetObjAreasValue(type, &objects, &count);
        if (got == 0) to.AddObjAreasValue(type, objects, static_cast<unsigned char>(count));
    }
    return Encoded(to);
}

TEST(Tlv, EveryKindSurvivesTheMessage) {
    HCTLV tlv(nullptr);
    EXPECT_STREQ(tlv.GetHeadType(), "");
    EXPECT_EQ(Parse(&tlv, Sample()), 0);
    EXPECT_EQ(tlv.ParseToTLV(tlv.GetTLVBuffer(), tlv.GetTLVBytes()), 0);  // its own
    EXPECT_EQ(Copied(&tlv), Sample());

    TLVRect_t rect;
    EXPECT_TRUE(tlv.GetRectValue(10, &rect) == 0 && rect.y == -1 && rect.h == 240);
}

TEST(Tlv, MessagesOfSeveralThreadsAreIndependent) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            HCTLV tlv("");
            for (int turn = 0; turn < 50; ++turn) EXPECT_EQ(Parse(&tlv, Sample()), 0);
            EXPECT_EQ(Copied(&tlv), Sample());
        });
    }
    for (auto& thread : threads) thread.join();
}

// Calls a getter of the codec, with null for what it gives if `null`; what fails must not write.
using Getter = std::function<int(utltlv_t tlv, int type, bool null)>;
constexpr int kWroteAndFailed = -100;

template <class Value>
Getter Get(int (*get)(utltlv_t, int, Value*)) {
    return [get](utltlv_t tlv, int type, bool null) {
        Value value, untouched;
        memset(&untouched, 0xA5, sizeof untouched);
        memcpy(&value, &untouched, sizeof value);
        const int result = get(tlv, type, null ? nullptr : &value);
        const bool wrote = memcmp(&value, &untouched, sizeof value) != 0;
        return wrote == (result == 0) ? result : kWroteAndFailed;
    };
}

template <class Value>
Getter Get(int (*get)(utltlv_t, int, Value**, int*)) {
    return [get](utltlv_t tlv, int type, bool null) {
        Value* values = nullptr;
        int count = -7;
        if (null && get(tlv, type, &values, nullptr) != UTLTLV_ERR_NULL) return 0;
        const int result = get(tlv, type, null ? nullptr : &values, &count);
        const bool wrote = values != nullptr || count != -7;
        return wrote == (result == 0) ? result : kWroteAndFailed;
    };
}

TEST(Tlv, ValueIsReadAsItsKindOnly) {
    const Getter get_bytes = [](utltlv_t tlv, int type, bool null) {
        unsigned char buf[8];
        int room = sizeof buf;
        if (null && utltlv_get_bytes(tlv, type, buf, nullptr) != UTLTLV_ERR_NULL) return 0;
        return utltlv_get_bytes(tlv, type, null ? nullptr : buf, &room);
    };
    const std::pair<int, Getter> cases[] = {
        {UTLTLV_UINT8, Get(utltlv_get_uint8)},
        {UTLTLV_UINT16, Get(utltlv_get_uint16)},
        {UTLTLV_UINT32, Get(utltlv_get_uint32)},
        {UTLTLV_UINT64, Get(utltlv_get_uint64)},
        {UTLTLV_FLOAT, Get(utltlv_get_float)},
        {UTLTLV_DOUBLE, Get(utltlv_get_double)},
        {UTLTLV_BYTES, get_bytes},
        {UTLTLV_BYTES, Get(utltlv_get_bytes_ptr)},
        {UTLTLV_SIZE, Get(utltlv_get_size)},
        {UTLTLV_RECT, Get(utltlv_get_rect)},
        {UTLTLV_RULE_AREAS, Get(utltlv_get_rule_areas)},
        {UTLTLV_OBJ_AREAS, Get(utltlv_get_obj_areas)},
    };
    HCTLV tlv("");
    Parse(&tlv, Sample());
    for (const auto& [wanted, get] : cases) {
        EXPECT_EQ(get(nullptr, wanted, false), UTLTLV_ERR_NULL) << wanted;
        EXPECT_EQ(get(tlv.GetCHdl(), wanted, true), UTLTLV_ERR_NULL) << wanted;
        EXPECT_EQ(get(tlv.GetCHdl(), -1, false), UTLTLV_ERR_ABSENT) << wanted;
        for (int type = 1; type <= UTLTLV_OBJ_AREAS; ++type) {
            const bool is_read =
                type == wanted || (type == UTLTLV_STRING && wanted == UTLTLV_BYTES);
            EXPECT_EQ(get(tlv.GetCHdl(), type, false), is_read ? 0 : UTLTLV_ERR_KIND)
                << type << " as " << wanted;
        }
    }
    const int absent = -1;
    int type, kind;
    EXPECT_EQ(utltlv_get_next(nullptr, nullptr, &type, &kind), UTLTLV_ERR_NULL);
    EXPECT_EQ(utltlv_get_next(tlv.GetCHdl(), nullptr, nullptr, &kind), UTLTLV_ERR_NULL);
    EXPECT_EQ(utltlv_get_next(tlv.GetCHdl(), nullptr, &type, nullptr), UTLTLV_ERR_NULL);
    EXPECT_EQ(utltlv_get_next(tlv.GetCHdl(), &absent, &type, &kind), UTLTLV_ERR_ABSENT);
}

TEST(Tlv, BytesAreReadAtTheirLengthOnly) {
    HCTLV tlv("");
    Parse(&tlv, Sample());
    unsigned char buf[] = "keep it";
    for (const int small : {5, 0, -1}) {
        int room = small;
        EXPECT_EQ(tlv.GetBytesValue(UTLTLV_BYTES, buf, &room), UTLTLV_ERR_LENGTH);
        EXPECT_EQ(room, small);
    }
    for (int length : {4, 7}) EXPECT_EQ(tlv.GetBytesValue(UTLTLV_BYTES, buf, length), -1);
    EXPECT_EQ(memcmp(buf, "keep it", 8), 0);
    EXPECT_EQ(tlv.GetBytesValue(UTLTLV_BYTES, buf, 6), 0);
    int room = 6;
    EXPECT_EQ(tlv.GetBytesValue(UTLTLV_BYTES, buf, &room), 0);
    EXPECT_TRUE(tlv.GetBytesValue(UTLTLV_STRING, buf, &room) == 0 && room == 3);
    EXPECT_EQ(memcmp(buf, "up\0\0byt", 8), 0);

    std::string text;
    EXPECT_TRUE(tlv.GetStringValue(UTLTLV_STRING, text) == 0 && text == "up");
    tlv.AddBytesValue(1, nullptr, 0);
    EXPECT_EQ(tlv.GetStringValue(1, text), -1);
    EXPECT_EQ(tlv.GetBytesValue(1, buf, 0), -1);
    unsigned char* data = nullptr;
    EXPECT_EQ(tlv.GetBytesValuePtr(1, &data, room), 0);
    EXPECT_TRUE(data != nullptr && room == 0);
    tlv.AddBytesValue(1, buf + 4, 2);  // the text ends with the value, terminator or not
    EXPECT_TRUE(tlv.GetStringValue(1, text) == 0 && text == "by");
}

TEST(Tlv, WhatCannotTravelIsRefused) {
    HCTLV tlv("");
    Parse(&tlv, Sample());
    const std::string text(UTLTLV_MAX_VALUE, 'x');  // with its terminator a byte too long
    const auto* big = reinterpret_cast<const unsigned char*>(text.c_str());
    TLVRuleArea_t areas[2] = {};
    for (int count : {-1, 11, INT_MIN, INT_MAX}) {
        areas[1].point_count = count;
        EXPECT_EQ(tlv.AddRuleAreasValue(1, areas, 2), UTLTLV_ERR_LENGTH);
    }
    EXPECT_EQ(tlv.AddBytesValue(1, big, -1), UTLTLV_ERR_LENGTH);
    EXPECT_EQ(tlv.AddBytesValue(1, big, UTLTLV_MAX_VALUE + 1), UTLTLV_ERR_LENGTH);
    EXPECT_EQ(tlv.AddStringValue(1, text), UTLTLV_ERR_LENGTH);
    EXPECT_EQ(tlv.AddStringValue(1, static_cast<const char*>(nullptr)), UTLTLV_ERR_NULL);
    EXPECT_EQ(tlv.AddBytesValue(1, nullptr, 1), UTLTLV_ERR_NULL);
    EXPECT_EQ(tlv.AddSizeValue(1, nullptr), UTLTLV_ERR_NULL);
    EXPECT_EQ(tlv.AddRectValue(1, nullptr), UTLTLV_ERR_NULL);
    EXPECT_EQ(tlv.AddRuleAreasValue(1, nullptr, 1), UTLTLV_ERR_NULL);
    EXPECT_EQ(tlv.AddObjAreasValue(1, nullptr, 1), UTLTLV_ERR_NULL);
    EXPECT_EQ(Encoded(tlv), Sample());

    HCTLV longest("");
    EXPECT_EQ(longest.AddStringValue(1, text.c_str() + 1), 0);
    EXPECT_EQ(longest.GetTLVBytes(), 16777230);
    EXPECT_EQ(longest.AddBytesValue(1, big, UTLTLV_MAX_VALUE), 0);
    Bytes message = Encoded(longest);
    EXPECT_EQ(Parse(&tlv, message), 0);
    message.push_back('x');
    message[4] = 10;  // bytes that follow, in their last digit
    message[13] = 1;  // bytes of the value
    EXPECT_EQ(Parse(&tlv, message), -1);
}

TEST(Tlv, FailedParseLeavesNoHandle) {
    HCTLV tlv("x");
    for (int length : {0, -1, INT_MIN}) EXPECT_EQ(tlv.ParseToTLV(Sample().data(), length), -1);
    EXPECT_EQ(tlv.ParseToTLV(nullptr, 1), -1);
    EXPECT_TRUE(tlv.GetCHdl() == nullptr && tlv.GetHeadType() == nullptr);
    EXPECT_TRUE(tlv.GetTLVBuffer() == nullptr && tlv.GetTLVBytes() == 0);
    TLVSize_t size{};
    TLVRect_t rect{};
    TLVRuleArea_t rule{};
    TLVObjArea_t object{};
    unsigned char byte = 1;
    for (int result :
         {tlv.AddUInt8Value(1, 1), tlv.AddUInt16Value(1, 1), tlv.AddUInt32Value(1, 1),
          tlv.AddUInt64Value(1, 1), tlv.AddFloatValue(1, 1), tlv.AddDoubleValue(1, 1),
          tlv.AddStringValue(1, "s"), tlv.AddBytesValue(1, &byte, 1), tlv.AddSizeValue(1, &size),
          tlv.AddRectValue(1, &rect), tlv.AddRuleAreasValue(1, &rule, 1),
          tlv.AddObjAreasValue(1, &object, 1), tlv.DelType(1), utltlv_destroy(nullptr)})
        EXPECT_EQ(result, UTLTLV_ERR_NULL);
    EXPECT_EQ(Parse(&tlv, Sample()), 0);
}

// Whether a message of one value, of type 1, is accepted.
bool IsAccepted(int kind, const Bytes& value) {
    const auto byte = [](size_t number) { return static_cast<unsigned char>(number); };
    const size_t length = value.size(), count = 9 + length;
    Bytes message = {0, 0, 0, byte(count >> 8), byte(count)};
    message.insert(message.end(), {0, 0, 0, 1, byte(kind), 0, 0, byte(length >> 8), byte(length)});
    message.insert(message.end(), value.begin(), value.end());
    HCTLV tlv("");
    return Parse(&tlv, message) == 0;
}

TEST(Tlv, ValuesThatNoPutCouldWriteAreRefused) {
    for (int kind = 0; kind <= UCHAR_MAX; ++kind) {
        const bool has_zero_bytes =
            kind == UTLTLV_UINT8 || kind == UTLTLV_STRING || kind == UTLTLV_BYTES;
        EXPECT_EQ(IsAccepted(kind, Bytes(1)), has_zero_bytes) << kind;
    }
    const Bytes sample = Sample();
    size_t at = 8;
    for (int kind = 1; kind <= UTLTLV_OBJ_AREAS; ++kind) {
        const size_t length = sample[at + 8];
        Bytes value(&sample[at + 9], &sample[at + 9] + length);
        EXPECT_TRUE(IsAccepted(kind, value)) << kind;
        value.push_back('x');
        EXPECT_EQ(IsAccepted(kind, value), kind == UTLTLV_BYTES) << kind;
        value.resize(length - 1);
        EXPECT_EQ(IsAccepted(kind, value), kind == UTLTLV_BYTES) << kind;
        at += 9 + length;
    }
    EXPECT_FALSE(IsAccepted(UTLTLV_STRING, {}));
    EXPECT_FALSE(IsAccepted(UTLTLV_STRING, {'a', 0, 'b', 0}));
    for (const auto& [kind, bytes] : {std::pair(UTLTLV_RULE_AREAS, 88), {UTLTLV_OBJ_AREAS, 28}}) {
        EXPECT_TRUE(IsAccepted(kind, {}));
        EXPECT_TRUE(IsAccepted(kind, Bytes(255 * bytes)));
        EXPECT_FALSE(IsAccepted(kind, Bytes(256 * bytes)));
    }
    for (const auto& [high, low] : {std::pair(0, 10), {0, 11}, {0, 255}, {255, 255}}) {
        Bytes areas(2 * 88);
        std::fill(&areas[88 + 4], &areas[88 + 7], high);
        areas[88 + 7] = static_cast<unsigned char>(low);
        EXPECT_EQ(IsAccepted(UTLTLV_RULE_AREAS, areas), low == 10) << high << ' ' << low;
    }
    HCTLV tlv("");
    EXPECT_EQ(Parse(&tlv, Bytes(5, 'x')), -1);  // a head type without its end
    Bytes longer = sample;
    longer.push_back(0);
    EXPECT_EQ(Parse(&tlv, longer), -1);
}

TEST(Tlv, EntriesThatNoPutCouldWriteAreRefused) {
    const struct {
        std::string type_kind_length;
        Bytes value;
    } cases[] = {{{1, UTLTLV_BYTES, 0, 0, 0, 1}, Bytes(1)},  // there is a value of that type
                 {{2, UTLTLV_BYTES, '\xFF', '\xFF', '\xFF', '\xF7'}, Bytes(1)}};  // 0 in 32 bits
    for (const auto& c : cases) {
        HCTLV tlv("");
        tlv.AddUInt8Value(1, 1);
        tlv.AddBytesValue(2, c.value.data(), static_cast<int>(c.value.size()));
        Bytes message = Encoded(tlv);
        EXPECT_EQ(Parse(&tlv, message), 0);
        memcpy(&message[18], c.type_kind_length.data(), 6);
        EXPECT_EQ(Parse(&tlv, message), -1) << c.value.size();
    }
}

TEST(Tlv, AlteredMessageIsRefusedOrReadConsistently) {
    const Bytes sample = Sample();
    int accepted = 0;
    for (int i = 0; i < static_cast<int>(sample.size()) * 9; ++i) {
        const int at = i / 9;
        Bytes altered = sample;
        altered[at] = static_cast<unsigned char>(altered[at] ^ (i % 9 < 8 ? 1 << i % 9 : 0xFF));
        HCTLV tlv("");
        if (Parse(&tlv, altered) != 0) continue;
        ++accepted;
        EXPECT_EQ(Encoded(tlv), altered);
        const bool unused = at >= kUnusedPointsAt && at < kNextEntryAt;  // those do not travel
        if (at == kPointCountAt) continue;
        EXPECT_EQ(Copied(&tlv), unused ? sample : altered) << at;
    }
    EXPECT_GT(accepted, 1000);  // most bytes are those of values, which may be any

    accepted = 0;
    for (size_t length = 0; length < sample.size(); ++length) {
        HCTLV tlv("");
        Bytes cut(sample.data(), sample.data() + length);
        EXPECT_EQ(Parse(&tlv, cut), -1);
        if (length < 8) continue;
        cut[6] = static_cast<unsigned char>((length - 8) >> 8);
        cut[7] = static_cast<unsigned char>(length - 8);
        if (Parse(&tlv, cut) == 0) ++accepted;
    }
    EXPECT_EQ(accepted, 12);  // 0 to 11 whole values
}

TEST(Tlv, ReplacedAndRemovedValuesLeaveNoTrace) {
    HCTLV tlv("t"), expected("t");
    for (int type = 0; type < 100; ++type) tlv.AddUInt32Value(type, type);
    for (int type = 0; type < 100; ++type) {
        tlv.GetTLVBuffer();
        if (type % 4 == 0) tlv.AddFloatValue(type, 1.0F);  // the same length: stays in its place
        if (type % 4 == 1) tlv.AddStringValue(type, "s");
        if (type % 4 >= 2) tlv.DelType(type);
    }
    EXPECT_EQ(tlv.DelType(2), UTLTLV_ERR_ABSENT);
    for (int type = 0; type < 100; type += 4) expected.AddFloatValue(type, 1.0F);
    for (int type = 1; type < 100; type += 4) expected.AddStringValue(type, "s");
    EXPECT_EQ(Encoded(tlv), Encoded(expected));
    EXPECT_EQ(Copied(&tlv), Encoded(expected));
}

TEST(Tlv, AreasAreThoseOfTheLastPut) {
    HCTLV tlv("");
    TLVRuleArea_t rule{}, *rules = nullptr;
    TLVObjArea_t object{}, *objects = nullptr;
    std::fill(std::begin(rule.points), std::end(rule.points), TLVPoint_t{5, 6});
    int count;
    for (int points : {0, 1, 10, 0}) {
        rule.point_count = object.confidence = points;
        EXPECT_EQ(tlv.AddRuleAreasValue(1, &rule, 1), 0);
        EXPECT_EQ(tlv.AddObjAreasValue(2, &object, 1), 0);
        ASSERT_TRUE(tlv.GetRuleAreasValue(1, &rules, &count) == 0 && count == 1);
        ASSERT_TRUE(tlv.GetObjAreasValue(2, &objects, &count) == 0 && count == 1);
        EXPECT_EQ(rules->point_count, points);
        EXPECT_EQ(objects->confidence, points);
        for (int i = 0; i < 10; ++i) EXPECT_EQ(rules->points[i].y, i < points ? 6 : 0);
    }
    rules = nullptr;
    objects = nullptr;
    EXPECT_EQ(tlv.AddRuleAreasValue(1, nullptr, 0), 0);
    EXPECT_EQ(tlv.AddObjAreasValue(2, nullptr, 0), 0);
    EXPECT_TRUE(tlv.GetRuleAreasValue(1, &rules, &count) == 0 && count == 0 && rules != nullptr);
    EXPECT_TRUE(tlv.GetObjAreasValue(2, &objects, &count) == 0 && count == 0 && objects != nullptr);
}

TEST(Tlv, PointersLiveUntilTheNextChangeAndMayBePartOfIt) {
    HCTLV tlv("");
    Parse(&tlv, Sample());
    tlv.DelType(UTLTLV_UINT8);
    unsigned char* text;
    TLVRuleArea_t *rules, *same;
    int length, count;
    for (int type = 99; type < 200; ++type) {
        ASSERT_EQ(tlv.GetBytesValuePtr(UTLTLV_STRING, &text, length), 0);
        ASSERT_EQ(tlv.GetRuleAreasValue(UTLTLV_RULE_AREAS, &rules, &count), 0);
        const unsigned char* message = tlv.GetTLVBuffer();
        tlv.GetRuleAreasValue(UTLTLV_RULE_AREAS, &same, &count);
        EXPECT_TRUE(memcmp(text, "up", 3) == 0 && rules->points[0].y == 6);
        if (type % 3 == 0) tlv.AddBytesValue(type, text, length);
        if (type % 3 == 1) tlv.AddRuleAreasValue(type, rules, 1);
        if (type % 3 == 2) tlv.AddBytesValue(type, message, 4);
    }
    const unsigned char* end = tlv.GetTLVBuffer() + tlv.GetTLVBytes();  // of 197, 198 and 199
    EXPECT_TRUE(memcmp(end - 113, "cam", 4) == 0 && memcmp(end - 100, "up", 3) == 0);
    EXPECT_EQ(end[-73], 6);
}

// A type whose low bits are those of nearly all others.
int FarType(uint32_t i) { return static_cast<int>(i << 15 | i >> 17); }

TEST(Tlv, HundredThousandValuesTakeNoTimeToSpeakOf) {
    constexpr int kValues = 100000;
    const clock_t start = clock();
    HCTLV tlv(""), parsed("");
    for (int i = 0; i < kValues; ++i) tlv.AddUInt32Value(FarType(i), i);
    EXPECT_EQ(parsed.ParseToTLV(tlv.GetTLVBuffer(), tlv.GetTLVBytes()), 0);
    for (int i = 0; i < kValues; ++i) {
        unsigned int value = 0;
        parsed.GetUInt32Value(FarType(i), value);
        ASSERT_EQ(value, static_cast<unsigned int>(i));
        ASSERT_EQ(parsed.AddUInt64Value(FarType(i), i), 0);  // longer: another place
    }
    for (int i = 0; i < kValues; ++i) ASSERT_EQ(parsed.DelType(FarType(i)), 0);
    EXPECT_EQ(parsed.GetTLVBytes(), 5);
    EXPECT_LT((clock() - start) / CLOCKS_PER_SEC, 3);
}

}  // namespace
