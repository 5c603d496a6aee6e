// Values out of a message.
#include <string.h>

#include <algorithm>
#include <string>

#include "tlv_support.h"

namespace {

using Get = std::function<int(utltlv_t tlv, int type)>;

// What every getter promises when it has no value of its kind to give.
void CheckRefusals(const Get& get, int kind) {
    Doing("a null handle");
    ExpectResult(get(nullptr, kind), UTLTLV_ERR_NULL, "a null handle");
    Doing("values of other kinds");
    const Message message(Sample());
    ExpectResult(get(message, 0), UTLTLV_ERR_ABSENT, "a type that is not there");
    for (int type = 1; type <= kKinds; ++type) {
        if (type == kind || (kind == UTLTLV_BYTES && type == UTLTLV_STRING)) continue;
        ExpectResult(get(message, type), UTLTLV_ERR_KIND,
                     ("a value of kind " + std::to_string(type)).c_str());
    }
}

// Exact: no tolerance for floats either.
bool SameBytes(const void* left, const void* right, size_t length) {
    return memcmp(left, right, length) == 0;
}

template <class Value>
void CheckGet(int (*get)(utltlv_t, int, Value*), int kind, const Value& wanted) {
    Value value, untouched;
    memset(&untouched, 0xA5, sizeof untouched);
    value = untouched;
    CheckRefusals([&](utltlv_t tlv, int type) { return get(tlv, type, &value); }, kind);
    Expect(SameBytes(&value, &untouched, sizeof value), "a get that failed wrote a value");

    const Message message(Sample());
    Doing("a null pointer for the value");
    ExpectResult(get(message, kind, nullptr), UTLTLV_ERR_NULL, "a null pointer for the value");
    Doing("the value of the sample");
    ExpectResult(get(message, kind, &value), 0, "the value of the sample");
    Expect(SameBytes(&value, &wanted, sizeof value),
           "the value of the sample is not the one of docs/formats.md");
}

template <class Area>
using GetAreas = int (*)(utltlv_t, int, Area**, int*);

template <class Area>
void CheckGetAreas(GetAreas<Area> get, int kind, const Area& wanted) {
    Area* areas = nullptr;
    int count = -7;
    CheckRefusals([&](utltlv_t tlv, int type) { return get(tlv, type, &areas, &count); }, kind);
    Expect(areas == nullptr && count == -7, "a get that failed wrote a value");

    const Message message(Sample());
    Doing("null pointers for the areas and their count");
    ExpectResult(get(message, kind, nullptr, &count), UTLTLV_ERR_NULL, "null for the areas");
    ExpectResult(get(message, kind, &areas, nullptr), UTLTLV_ERR_NULL, "null for the count");
    Doing("the area of the sample");
    ExpectResult(get(message, kind, &areas, &count), 0, "the area of the sample");
    Expect(count == 1 && memcmp(areas, &wanted, sizeof wanted) == 0,
           "the area of the sample is not the one of docs/formats.md");

    Doing("areas that live until the next change");
    Area* again = nullptr;
    lib.utltlv_get_buffer(message);
    get(message, kind, &again, &count);
    Expect(memcmp(areas, &wanted, sizeof wanted) == 0, "the area did not live through other gets");

    Doing("no areas and 255 of them");
    const size_t most = 255 * sizeof(Area);
    const Message ends(
        Whole("", {Entry(1, kind, {}), Entry(2, kind, Bytes(most)), Entry(3, UTLTLV_UINT8, {1})}));
    areas = nullptr;
    ExpectResult(get(ends, 1, &areas, &count), 0, "a value of no areas");
    Expect(areas != nullptr && count == 0, "no areas gave a null pointer or the count %d", count);
    ExpectResult(get(ends, 2, &areas, &count), 0, "a value of 255 areas");
    Expect(count == 255 && areas[254].id == 0, "255 areas came as %d", count);
}

}  // namespace

void check_utltlv_get_uint8() { CheckGet<unsigned char>(lib.utltlv_get_uint8, UTLTLV_UINT8, 254); }

void check_utltlv_get_uint16() {
    CheckGet<unsigned short>(lib.utltlv_get_uint16, UTLTLV_UINT16, 8554);
}

void check_utltlv_get_uint32() {
    CheckGet<unsigned int>(lib.utltlv_get_uint32, UTLTLV_UINT32, 4275878552U);
}

void check_utltlv_get_uint64() {
    CheckGet<unsigned long long>(lib.utltlv_get_uint64, UTLTLV_UINT64, 18364758544493064720ULL);
}

void check_utltlv_get_float() { CheckGet<float>(lib.utltlv_get_float, UTLTLV_FLOAT, -0.5F); }

void check_utltlv_get_double() { CheckGet<double>(lib.utltlv_get_double, UTLTLV_DOUBLE, 0.1); }

void check_utltlv_get_size() { CheckGet(lib.utltlv_get_size, UTLTLV_SIZE, kSampleSize); }

void check_utltlv_get_rect() { CheckGet(lib.utltlv_get_rect, UTLTLV_RECT, kSampleRect); }

void check_utltlv_get_rule_areas() {
    CheckGetAreas(lib.utltlv_get_rule_areas, UTLTLV_RULE_AREAS, kSampleRule);
}

void check_utltlv_get_obj_areas() {
    CheckGetAreas(lib.utltlv_get_obj_areas, UTLTLV_OBJ_AREAS, kSampleObject);
}

void check_utltlv_get_bytes() {
    const Bytes untouched(8, 0xA5);
    Bytes buf = untouched;
    int length = 8;
    const auto get = [&](utltlv_t tlv, int type) {
        return lib.utltlv_get_bytes(tlv, type, buf.data(), &length);
    };
    CheckRefusals(get, UTLTLV_BYTES);
    const Message message(Sample());
    Doing("null pointers");
    ExpectResult(lib.utltlv_get_bytes(message, UTLTLV_BYTES, nullptr, &length), UTLTLV_ERR_NULL,
                 "a null buffer");
    ExpectResult(lib.utltlv_get_bytes(message, UTLTLV_BYTES, buf.data(), nullptr), UTLTLV_ERR_NULL,
                 "a null length");
    Doing("a room that is too small");
    for (int room : {5, 0, -1}) {
        length = room;
        ExpectResult(get(message, UTLTLV_BYTES), UTLTLV_ERR_LENGTH, "room for a byte too few");
        Expect(length == room, "without enough room it changed the length");
    }
    Expect(buf == untouched, "a get that failed wrote into the buffer");

    Doing("room enough");
    const struct {
        int type, room;
        Bytes wanted;
    } cases[] = {{UTLTLV_BYTES, 6, {'s', 'i', 'x', 0, 'b', 'y', 0xA5, 0xA5}},
                 {UTLTLV_BYTES, 8, {'s', 'i', 'x', 0, 'b', 'y', 0xA5, 0xA5}},
                 {UTLTLV_STRING, 3, {'u', 'p', 0, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5}},
                 {100, 0, untouched}};
    lib.utltlv_put_bytes(message, 100, nullptr, 0);
    for (const auto& c : cases) {
        buf = untouched;
        length = c.room;
        ExpectResult(get(message, c.type), 0, "a value with room enough");
        const auto bytes = std::find(c.wanted.begin(), c.wanted.end(), 0xA5) - c.wanted.begin();
        Expect(length == bytes, "%d bytes came as %d", static_cast<int>(bytes), length);
        Expect(buf == c.wanted, "instead of [%s] it wrote [%s]", Hex(c.wanted).c_str(),
               Hex(buf).c_str());
    }
}

void check_utltlv_get_bytes_ptr() {
    unsigned char* data = nullptr;
    int length = -7;
    const auto get = [&](utltlv_t tlv, int type) {
        return lib.utltlv_get_bytes_ptr(tlv, type, &data, &length);
    };
    CheckRefusals(get, UTLTLV_BYTES);
    Expect(data == nullptr && length == -7, "a get that failed wrote a value");
    const Message message(Sample());
    Doing("null pointers");
    ExpectResult(lib.utltlv_get_bytes_ptr(message, UTLTLV_BYTES, nullptr, &length), UTLTLV_ERR_NULL,
                 "null for the bytes");
    ExpectResult(lib.utltlv_get_bytes_ptr(message, UTLTLV_BYTES, &data, nullptr), UTLTLV_ERR_NULL,
                 "null for the length");

    Doing("no bytes");
    lib.utltlv_put_bytes(message, 100, nullptr, 0);
    ExpectResult(get(message, 100), 0, "a value of no bytes");
    Expect(data != nullptr && length == 0, "no bytes gave a null pointer or the length %d", length);

    Doing("bytes that live until the next change");
    lib.utltlv_del_type(message, UTLTLV_UINT8);
    ExpectResult(get(message, UTLTLV_STRING), 0, "a string");
    Expect(length == 3 && memcmp(data, "up", 3) == 0, "a string came without its end, or changed");
    const unsigned char* text = data;
    TLVRuleArea_t* areas = nullptr;
    int count = 0;
    lib.utltlv_get_buffer(message);
    lib.utltlv_get_rule_areas(message, UTLTLV_RULE_AREAS, &areas, &count);
    ExpectResult(get(message, UTLTLV_BYTES), 0, "bytes");
    Expect(length == 6 && memcmp(data, "six\0by", 6) == 0, "bytes came out changed");
    Expect(memcmp(text, "up", 3) == 0, "the bytes did not live through other gets");
}
