// Messages as a whole: made, parsed, handed out, walked over.
#include <limits.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "tlv_support.h"

namespace {

utltlv_t Parse(const Bytes& message) {
    const GuardedCopy copy(message.data(), message.size());
    return lib.utltlv_parse(copy.data(), static_cast<int>(message.size()));
}

void ExpectRefused(const Bytes& message, const char* what) {
    Doing(what);
    Expect(Parse(message) == nullptr, "accepted %s: %s", what, Hex(message).c_str());
}

// All values of the sample, put one after the other.
void PutAll(utltlv_t tlv) {
    int failed = 0;
    failed |= lib.utltlv_put_uint8(tlv, 1, 254);
    failed |= lib.utltlv_put_uint16(tlv, 2, 8554);
    failed |= lib.utltlv_put_uint32(tlv, 3, 0xFEDCBA98);
    failed |= lib.utltlv_put_uint64(tlv, 4, 0xFEDCBA9876543210);
    failed |= lib.utltlv_put_float(tlv, 5, -0.5F);
    failed |= lib.utltlv_put_double(tlv, 6, 0.1);
    failed |= lib.utltlv_put_string(tlv, 7, kSampleText);
    const Bytes six = SampleValue(UTLTLV_BYTES);
    failed |= lib.utltlv_put_bytes(tlv, 8, six.data(), static_cast<int>(six.size()));
    failed |= lib.utltlv_put_size(tlv, 9, &kSampleSize);
    failed |= lib.utltlv_put_rect(tlv, 10, &kSampleRect);
    failed |= lib.utltlv_put_rule_areas(tlv, 11, &kSampleRule, 1);
    failed |= lib.utltlv_put_obj_areas(tlv, 12, &kSampleObject, 1);
    Expect(failed == 0, "a put failed");
}

// The first bytes only; where the count of bytes is right, whole values may be left.
void RefusesTruncatedMessages() {
    const Bytes sample = Sample();
    constexpr size_t kHeadBytes = 8, kCountAt = 6;
    int accepted = 0;
    for (size_t length = 0; length < sample.size(); ++length) {
        Bytes cut(sample.data(), sample.data() + length);
        Expect(Parse(cut) == nullptr, "accepted the first %zu of the %zu bytes of a message",
               length, sample.size());
        if (length < kHeadBytes) continue;
        cut[kCountAt] = static_cast<unsigned char>((length - kHeadBytes) >> 8);
        cut[kCountAt + 1] = static_cast<unsigned char>(length - kHeadBytes);
        utltlv_t whole = Parse(cut);
        if (whole == nullptr) continue;
        ++accepted;
        Expect(lib.utltlv_get_buffersize(whole) == static_cast<int>(length),
               "accepted a value cut short, %zu bytes into a message", length);
        lib.utltlv_destroy(whole);
    }
    Expect(accepted == kKinds, "a message cut after each of its %d values was accepted %d times",
           kKinds, accepted);
}

void RefusesLengthsThatDoNotGoWithTheKind() {
    for (int kind = 0; kind <= UCHAR_MAX; ++kind) {
        const bool known = kind >= 1 && kind <= kKinds;
        const Bytes value = known ? SampleValue(kind) : Bytes(1);
        const std::string name = "kind " + std::to_string(kind);
        if (!known) ExpectRefused(Whole("", {Entry(1, kind, value)}), name.c_str());
        if (!known || kind == UTLTLV_BYTES) continue;
        Bytes longer = value, shorter = value;
        longer.push_back(0);
        shorter.pop_back();
        ExpectRefused(Whole("", {Entry(1, kind, longer)}), (name + ", a byte too long").c_str());
        ExpectRefused(Whole("", {Entry(1, kind, shorter)}), (name + ", a byte too short").c_str());
    }
}

void RefusesWhatNoPutCouldWrite() {
    const Bytes byte = Entry(1, UTLTLV_UINT8, {1});
    ExpectRefused(Whole("", {byte, byte}), "a type that stands twice");
    ExpectRefused(Whole("", {byte, Entry(2, UTLTLV_BYTES, {}), Entry(1, UTLTLV_BYTES, {})}),
                  "a type that stands twice with two kinds");
    ExpectRefused(Whole("", {Entry(1, UTLTLV_STRING, {'a', 'b'})}), "a string without its end");
    ExpectRefused(Whole("", {Entry(1, UTLTLV_STRING, {'a', 0, 'b', 0})}),
                  "a string with a zero byte inside");
    ExpectRefused(Whole("", {Entry(1, UTLTLV_STRING, {})}), "a string of no bytes");
    for (int points : {11, 255}) {
        Bytes rule = SampleValue(UTLTLV_RULE_AREAS);
        rule[7] = static_cast<unsigned char>(points);
        ExpectRefused(Whole("", {Entry(1, UTLTLV_RULE_AREAS, rule)}), "more than 10 points");
        std::fill(rule.begin() + 4, rule.begin() + 8, 0xFF);
        ExpectRefused(Whole("", {Entry(1, UTLTLV_RULE_AREAS, rule)}), "a negative count of points");
    }
    ExpectRefused(Whole("", {Entry(1, UTLTLV_RULE_AREAS, Bytes(256 * 88))}), "256 rule areas");
    ExpectRefused(Whole("", {Entry(1, UTLTLV_OBJ_AREAS, Bytes(256 * 28))}), "256 object areas");
    ExpectRefused(Whole("", {Entry(1, UTLTLV_BYTES, Bytes(UTLTLV_MAX_VALUE + 1))}),
                  "a value of more than 16 MiB");
    ExpectRefused(Bytes(5, 'x'), "a head type without its end");

    Bytes message = Whole("", {Entry(1, UTLTLV_BYTES, {1, 2})});
    message.push_back(0);
    ExpectRefused(message, "a byte behind the message");
    // In 32 bits this length and the bytes before it add up to 0.
    const unsigned char huge[] = {0xFF, 0xFF, 0xFF, 0xF7};
    message = Whole("", {Entry(1, UTLTLV_BYTES, {1, 2})});
    std::copy(huge, huge + sizeof huge, message.begin() + 10);
    ExpectRefused(message, "a length that wraps around");
}

}  // namespace

void check_utltlv_create() {
    Doing("head types");
    for (const char* head : {"cam", ""}) {
        const Message message(head);
        ExpectMessage(message, Whole(head, {}), "a new message");
    }
    const Message nameless(static_cast<const char*>(nullptr));
    ExpectMessage(nameless, Whole("", {}), "a message with a null head type");
    Doing("a message on each of four threads");
    RunTogether(4, [](int) {
        for (int i = 0; i < 100; ++i) {
            const Message message("cam");
            PutAll(message);
            ExpectMessage(message, Sample(), "one of four messages on four threads");
        }
    });
}

void check_utltlv_parse() {
    Doing("sound messages");
    for (const Bytes& message :
         {Sample(), Whole("", {}), Whole("t", {Entry(INT_MIN, UTLTLV_BYTES, {})}),
          Whole("", {Entry(1, UTLTLV_RULE_AREAS, {}), Entry(0, UTLTLV_OBJ_AREAS, {})}),
          Whole("", {Entry(1, UTLTLV_OBJ_AREAS, Bytes(255 * 28))})}) {
        Bytes copy = message;
        const Message parsed(copy);
        std::fill(copy.begin(), copy.end(), 0xEE);  // the data was copied
        ExpectMessage(parsed, message, "a parsed message");
    }
    Doing("null and lengths below 1");
    Expect(lib.utltlv_parse(nullptr, 10) == nullptr, "accepted a null pointer");
    for (int length : {0, -1, INT_MIN})
        Expect(lib.utltlv_parse(Sample().data(), length) == nullptr, "accepted the length %d",
               length);
    Doing("a message cut short");
    RefusesTruncatedMessages();
    RefusesLengthsThatDoNotGoWithTheKind();
    RefusesWhatNoPutCouldWrite();
}

void check_utltlv_destroy() {
    ExpectResult(lib.utltlv_destroy(nullptr), -1, "a null handle");
    Doing("20000 messages, one after the other");
    const auto run = [sample = Sample()](int count) {
        for (int i = 0; i < count; ++i) {
            const Message message(sample);
            TLVRuleArea_t* areas;
            int areas_count;
            lib.utltlv_get_rule_areas(message, UTLTLV_RULE_AREAS, &areas, &areas_count);
        }
    };
    run(5000);
    const GrowthLimit limit;
    run(20000);
    limit.CheckMemory(4 * 1024L, "20000 messages");
    ExpectResult(lib.utltlv_destroy(lib.utltlv_create("cam")), 0, "a message");
}

void check_utltlv_get_headtype() {
    Expect(lib.utltlv_get_headtype(nullptr) == nullptr, "a null handle gave no null");
    const Message nameless(static_cast<const char*>(nullptr)), parsed(Sample());
    Expect(strcmp(lib.utltlv_get_headtype(nameless), "") == 0, "a null head type is not empty");
    Expect(strcmp(lib.utltlv_get_headtype(parsed), "cam") == 0, "\"cam\" came as \"%s\"",
           lib.utltlv_get_headtype(parsed));
}

void check_utltlv_get_buffer() {
    Expect(lib.utltlv_get_buffer(nullptr) == nullptr, "a null handle gave no null");
    const Message message("cam");
    PutAll(message);
    ExpectMessage(message, Sample(), "the sample of docs/formats.md");

    Doing("values that move");
    lib.utltlv_put_string(message, 1, "longer than before");
    lib.utltlv_del_type(message, 2);
    const unsigned char* first = lib.utltlv_get_buffer(message);
    const Bytes before = message.Encoded();
    TLVRect_t rect;
    lib.utltlv_get_rect(message, UTLTLV_RECT, &rect);
    Expect(lib.utltlv_get_buffer(message) == first && message.Encoded() == before,
           "it did not live until the next change");
    const Message again(before);
    ExpectMessage(again, before, "a message with changes, parsed");
}

void check_utltlv_get_buffersize() {
    ExpectResult(lib.utltlv_get_buffersize(nullptr), 0, "a null handle");
    const Message message("cam");
    ExpectResult(lib.utltlv_get_buffersize(message), 8, "a message without values");
    PutAll(message);
    ExpectResult(lib.utltlv_get_buffersize(message), static_cast<int>(Sample().size()),
                 "the sample of docs/formats.md");
    lib.utltlv_del_type(message, UTLTLV_UINT8);
    ExpectResult(lib.utltlv_get_buffersize(message), static_cast<int>(Sample().size()) - 10,
                 "the sample without its first value");
}

void check_utltlv_del_type() {
    ExpectResult(lib.utltlv_del_type(nullptr, 1), UTLTLV_ERR_NULL, "a null handle");
    const Message message("t");
    for (int type = 0; type < 200; ++type)
        lib.utltlv_put_uint32(message, type, static_cast<unsigned int>(type));
    ExpectResult(lib.utltlv_del_type(message, 200), UTLTLV_ERR_ABSENT, "a type that is not there");
    for (int type = 0; type < 200; ++type) {
        if (type == 7 || type == 150) continue;
        ExpectResult(lib.utltlv_del_type(message, type), 0, "a type that is there");
        ExpectResult(lib.utltlv_del_type(message, type), UTLTLV_ERR_ABSENT, "the second time");
    }
    const Bytes left = Whole(
        "t", {Entry(7, UTLTLV_UINT32, {0, 0, 0, 7}), Entry(150, UTLTLV_UINT32, {0, 0, 0, 150})});
    ExpectMessage(message, left, "two values of 200 that are left");
}

void check_utltlv_get_next() {
    int type = 0, kind = 0;
    const Message empty(""), message(Sample());
    ExpectResult(lib.utltlv_get_next(nullptr, nullptr, &type, &kind), UTLTLV_ERR_NULL,
                 "a null handle");
    ExpectResult(lib.utltlv_get_next(message, nullptr, nullptr, &kind), UTLTLV_ERR_NULL,
                 "a null pointer for the type");
    ExpectResult(lib.utltlv_get_next(message, nullptr, &type, nullptr), UTLTLV_ERR_NULL,
                 "a null pointer for the kind");
    ExpectResult(lib.utltlv_get_next(empty, nullptr, &type, &kind), UTLTLV_ERR_ABSENT,
                 "a message without values");
    lib.utltlv_del_type(message, 1);
    lib.utltlv_del_type(message, 5);
    lib.utltlv_put_string(message, 2, "moves to the end");
    std::string walk;
    const int* after = nullptr;
    for (int i = 0; i < 20 && lib.utltlv_get_next(message, after, &type, &kind) == 0; ++i) {
        walk += std::to_string(type) + ":" + std::to_string(kind) + " ";
        after = &type;
    }
    Expect(walk == "3:3 4:4 6:6 7:7 8:8 9:9 10:10 11:11 12:12 2:7 ", "types and kinds came as %s",
           walk.c_str());
    const int absent = 1;
    ExpectResult(lib.utltlv_get_next(message, &absent, &type, &kind), UTLTLV_ERR_ABSENT,
                 "behind a type that is not there");
}
