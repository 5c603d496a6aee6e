// Values into a message.
#include <limits.h>

#include <string>

#include "tlv_support.h"

namespace {

using Put = std::function<int(utltlv_t tlv, int type)>;

// What every put promises. `value`: the bytes that it writes.
void CheckPut(int kind, const Bytes& value, const Put& put) {
    Doing("a null handle");
    ExpectResult(put(nullptr, 1), UTLTLV_ERR_NULL, "a null handle");
    Doing("any int as a type");
    for (int type : {0, 1, -1, INT_MAX, INT_MIN}) {
        const Message message("t");
        ExpectResult(put(message, type), 0, "a new value");
        ExpectMessage(message, Whole("t", {Entry(type, kind, value)}), "a new value");
    }
    Doing("values that are replaced");
    const Bytes other = Entry(2, UTLTLV_UINT8, {9}), mine = Entry(1, kind, value);
    for (int longer : {0, 1}) {
        const Bytes former(value.size() + static_cast<size_t>(longer), 'x');
        const Message message("t");
        lib.utltlv_put_bytes(message, 1, former.data(), static_cast<int>(former.size()));
        lib.utltlv_put_uint8(message, 2, 9);
        ExpectResult(put(message, 1), 0, "a value that is there");
        if (longer == 0)
            ExpectMessage(message, Whole("t", {mine, other}), "in place of one of its length");
        else
            ExpectMessage(message, Whole("t", {other, mine}), "in place of a longer one");
    }
}

// A put that must fail with this result and leave the message as it is.
void ExpectRefused(int result, const char* what, const Put& put) {
    Doing(what);
    const Message message(Sample());
    ExpectResult(put(message, UTLTLV_RULE_AREAS), result, what);
    ExpectMessage(message, Sample(), "after a put that failed");
}

TLVRuleArea_t AreaOf(int points) {
    TLVRuleArea_t area;
    area.id = 3;
    area.point_count = points;
    for (TLVPoint_t& point : area.points) point = {5, 6};
    return area;
}

// Points behind the ones in use travel as zeros.
void SendsUsedPointsOnly() {
    for (int points : {0, 1, 10}) {
        const TLVRuleArea_t area = AreaOf(points);
        const Message message("");
        ExpectResult(lib.utltlv_put_rule_areas(message, 1, &area, 1), 0, "an area");
        Bytes value = {0, 0, 0, 3, 0, 0, 0, static_cast<unsigned char>(points)};
        for (int i = 0; i < points; ++i) value.insert(value.end(), {0, 0, 0, 5, 0, 0, 0, 6});
        value.resize(88);
        ExpectMessage(message, Whole("", {Entry(1, UTLTLV_RULE_AREAS, value)}), "an area");
    }
}

// What a message hands out may be put into it again.
void TakesItsOwnBytes() {
    Doing("its own value, put again");
    const Message message("");
    const std::string text(100, 's');
    lib.utltlv_put_string(message, 0, text.c_str());
    for (int type = 1; type < 100; ++type) {
        unsigned char* data = nullptr;
        int length = 0;
        lib.utltlv_get_bytes_ptr(message, type - 1, &data, &length);
        ExpectResult(lib.utltlv_put_bytes(message, type, data, length), 0, "its own value");
    }
    unsigned char last[101];
    int length = sizeof last;
    ExpectResult(lib.utltlv_get_bytes(message, 99, last, &length), 0, "the copy of a copy");
    Expect(text == reinterpret_cast<char*>(last), "its own value, put again, came out changed");
}

void TakesItsOwnAreas() {
    Doing("its own areas, put again");
    const Message message(Sample());
    for (int type = 100; type < 200; ++type) {
        TLVRuleArea_t* areas = nullptr;
        int count = 0;
        lib.utltlv_get_rule_areas(message, UTLTLV_RULE_AREAS, &areas, &count);
        ExpectResult(lib.utltlv_put_rule_areas(message, type, areas, 1), 0, "its own areas");
    }
    const Bytes all = message.Encoded(), area = SampleValue(UTLTLV_RULE_AREAS);
    Expect(Bytes(all.end() - 88, all.end()) == area, "its own areas, put again, came out changed");
}

void Holds16MiB(const char* what, const std::function<int(utltlv_t, int length)>& put) {
    Doing(what);
    const Message message("");
    ExpectResult(put(message, UTLTLV_MAX_VALUE), 0, "a value of 16 MiB");
    ExpectResult(put(message, UTLTLV_MAX_VALUE + 1), UTLTLV_ERR_LENGTH, "a value above 16 MiB");
    ExpectResult(lib.utltlv_get_buffersize(message), 5 + 9 + UTLTLV_MAX_VALUE,
                 "the size of a message with 16 MiB");
}

}  // namespace

void check_utltlv_put_uint8() {
    CheckPut(UTLTLV_UINT8, {0xFE},
             [](utltlv_t t, int y) { return lib.utltlv_put_uint8(t, y, 254); });
}

void check_utltlv_put_uint16() {
    CheckPut(UTLTLV_UINT16, {0xFE, 0xDC},
             [](utltlv_t t, int y) { return lib.utltlv_put_uint16(t, y, 0xFEDC); });
}

void check_utltlv_put_uint32() {
    CheckPut(UTLTLV_UINT32, {0xFE, 0xDC, 0xBA, 0x98},
             [](utltlv_t t, int y) { return lib.utltlv_put_uint32(t, y, 0xFEDCBA98); });
}

void check_utltlv_put_uint64() {
    CheckPut(UTLTLV_UINT64, {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10},
             [](utltlv_t t, int y) { return lib.utltlv_put_uint64(t, y, 0xFEDCBA9876543210); });
}

void check_utltlv_put_float() {
    CheckPut(UTLTLV_FLOAT, {0xBF, 0, 0, 0},
             [](utltlv_t t, int y) { return lib.utltlv_put_float(t, y, -0.5F); });
}

void check_utltlv_put_double() {
    CheckPut(UTLTLV_DOUBLE, {0x3F, 0xB9, 0x99, 0x99, 0x99, 0x99, 0x99, 0x9A},
             [](utltlv_t t, int y) { return lib.utltlv_put_double(t, y, 0.1); });
}

void check_utltlv_put_string() {
    CheckPut(UTLTLV_STRING, {'u', 'p', 0},
             [](utltlv_t t, int y) { return lib.utltlv_put_string(t, y, "up"); });
    CheckPut(UTLTLV_STRING, {0}, [](utltlv_t t, int y) { return lib.utltlv_put_string(t, y, ""); });
    ExpectRefused(UTLTLV_ERR_NULL, "a null text",
                  [](utltlv_t t, int y) { return lib.utltlv_put_string(t, y, nullptr); });
    Holds16MiB("a text of 16 MiB", [](utltlv_t t, int length) {
        const std::string text(static_cast<size_t>(length) - 1, 's');
        return lib.utltlv_put_string(t, 1, text.c_str());
    });
}

void check_utltlv_put_bytes() {
    static const unsigned char six[] = {'s', 'i', 'x', 0, 'b', 'y'};
    CheckPut(UTLTLV_BYTES, Bytes(six, six + 6),
             [](utltlv_t t, int y) { return lib.utltlv_put_bytes(t, y, six, 6); });
    CheckPut(UTLTLV_BYTES, {},
             [](utltlv_t t, int y) { return lib.utltlv_put_bytes(t, y, nullptr, 0); });
    ExpectRefused(UTLTLV_ERR_LENGTH, "a negative length",
                  [](utltlv_t t, int y) { return lib.utltlv_put_bytes(t, y, six, -1); });
    ExpectRefused(UTLTLV_ERR_NULL, "null for some bytes",
                  [](utltlv_t t, int y) { return lib.utltlv_put_bytes(t, y, nullptr, 1); });
    TakesItsOwnBytes();
    Holds16MiB("16 MiB", [](utltlv_t t, int length) {
        const Bytes bytes(static_cast<size_t>(length));
        return lib.utltlv_put_bytes(t, 1, bytes.data(), length);
    });
}

void check_utltlv_put_size() {
    CheckPut(UTLTLV_SIZE, SampleValue(UTLTLV_SIZE),
             [](utltlv_t t, int y) { return lib.utltlv_put_size(t, y, &kSampleSize); });
    ExpectRefused(UTLTLV_ERR_NULL, "a null record",
                  [](utltlv_t t, int y) { return lib.utltlv_put_size(t, y, nullptr); });
}

void check_utltlv_put_rect() {
    CheckPut(UTLTLV_RECT, SampleValue(UTLTLV_RECT),
             [](utltlv_t t, int y) { return lib.utltlv_put_rect(t, y, &kSampleRect); });
    ExpectRefused(UTLTLV_ERR_NULL, "a null record",
                  [](utltlv_t t, int y) { return lib.utltlv_put_rect(t, y, nullptr); });
}

void check_utltlv_put_rule_areas() {
    CheckPut(UTLTLV_RULE_AREAS, SampleValue(UTLTLV_RULE_AREAS),
             [](utltlv_t t, int y) { return lib.utltlv_put_rule_areas(t, y, &kSampleRule, 1); });
    CheckPut(UTLTLV_RULE_AREAS, {},
             [](utltlv_t t, int y) { return lib.utltlv_put_rule_areas(t, y, nullptr, 0); });
    ExpectRefused(UTLTLV_ERR_NULL, "null for an area",
                  [](utltlv_t t, int y) { return lib.utltlv_put_rule_areas(t, y, nullptr, 1); });
    for (int points : {-1, 11, INT_MIN, INT_MAX}) {
        const TLVRuleArea_t areas[2] = {AreaOf(1), AreaOf(points)};
        ExpectRefused(UTLTLV_ERR_LENGTH, "a count of points outside 0 to 10",
                      [&](utltlv_t t, int y) { return lib.utltlv_put_rule_areas(t, y, areas, 2); });
    }
    SendsUsedPointsOnly();
    TakesItsOwnAreas();
}

void check_utltlv_put_obj_areas() {
    CheckPut(UTLTLV_OBJ_AREAS, SampleValue(UTLTLV_OBJ_AREAS),
             [](utltlv_t t, int y) { return lib.utltlv_put_obj_areas(t, y, &kSampleObject, 1); });
    CheckPut(UTLTLV_OBJ_AREAS, {},
             [](utltlv_t t, int y) { return lib.utltlv_put_obj_areas(t, y, nullptr, 0); });
    ExpectRefused(UTLTLV_ERR_NULL, "null for an area",
                  [](utltlv_t t, int y) { return lib.utltlv_put_obj_areas(t, y, nullptr, 1); });
}
