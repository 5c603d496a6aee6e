#include "tlv_table.h"

#include <hybase/hcutil/HCTLV.h>
#include <stdio.h>

#include <algorithm>

#include "printable.h"

namespace hyrpc {
namespace {

constexpr size_t kBytesShown = 32;

const char* KindName(int kind) {
    switch (kind) {
        case UTLTLV_UINT8:
            return "uint8";
        case UTLTLV_UINT16:
            return "uint16";
        case UTLTLV_UINT32:
            return "uint32";
        case UTLTLV_UINT64:
            return "uint64";
        case UTLTLV_FLOAT:
            return "float";
        case UTLTLV_DOUBLE:
            return "double";
        case UTLTLV_STRING:
            return "string";
        case UTLTLV_BYTES:
            return "bytes";
        case UTLTLV_SIZE:
            return "size";
        case UTLTLV_RECT:
            return "rect";
        case UTLTLV_RULE_AREAS:
            return "rule areas";
        case UTLTLV_OBJ_AREAS:
            return "obj areas";
        default:
            return "?";
    }
}

std::string Number(double value) {
    char text[32];
    snprintf(text, sizeof text, "%.9g", value);
    return text;
}

std::string Point(int32_t x, int32_t y) { return std::to_string(x) + "," + std::to_string(y); }

std::string Rect(const TLVRect_t& rect) {
    return Point(rect.x, rect.y) + " " + std::to_string(rect.w) + "x" + std::to_string(rect.h);
}

// Reads a value through one of the typed getters and makes a text of it.
template <typename Value>
std::string Scalar(const HCTLV& message, int type, int (HCTLV::*get)(int, Value&) const) {
    Value value{};
    (message.*get)(type, value);
    return std::to_string(value);
}

std::string Bytes(const HCTLV& message, int type) {
    unsigned char* data = nullptr;
    int length = 0;
    message.GetBytesValuePtr(type, &data, length);
    std::string text = std::to_string(length) + " bytes";
    const size_t shown = std::min(static_cast<size_t>(length), kBytesShown);
    for (size_t i = 0; i < shown; i++) {
        char hex[4];
        snprintf(hex, sizeof hex, " %02x", data[i]);
        text += hex;
    }
    return shown < static_cast<size_t>(length) ? text + " ..." : text;
}

std::string RuleAreas(HCTLV& message, int type) {
    TLVRuleArea_t* areas = nullptr;
    int count = 0;
    message.GetRuleAreasValue(type, &areas, &count);
    std::string text;
    for (int i = 0; i < count; i++) {
        text += "#" + std::to_string(areas[i].id) + ":";
        for (int k = 0; k < areas[i].point_count; k++)
            text += " " + Point(areas[i].points[k].x, areas[i].points[k].y);
        if (i + 1 < count) text += "; ";
    }
    return text;
}

std::string ObjAreas(HCTLV& message, int type) {
    TLVObjArea_t* areas = nullptr;
    int count = 0;
    message.GetObjAreasValue(type, &areas, &count);
    std::string text;
    for (int i = 0; i < count; i++) {
        text += "#" + std::to_string(areas[i].id) + ": kind " + std::to_string(areas[i].kind) +
                ", confidence " + std::to_string(areas[i].confidence) + ", " + Rect(areas[i].rect);
        if (i + 1 < count) text += "; ";
    }
    return text;
}

std::string ValueText(HCTLV& message, int type, int kind) {
    float single = 0;
    double number = 0;
    std::string text;
    TLVSize_t size{};
    TLVRect_t rect{};
    switch (kind) {
        case UTLTLV_UINT8:
            return Scalar(message, type, &HCTLV::GetUInt8Value);
        case UTLTLV_UINT16:
            return Scalar(message, type, &HCTLV::GetUInt16Value);
        case UTLTLV_UINT32:
            return Scalar(message, type, &HCTLV::GetUInt32Value);
        case UTLTLV_UINT64:
            return Scalar(message, type, &HCTLV::GetUInt64Value);
        case UTLTLV_FLOAT:
            message.GetFloatValue(type, single);
            return Number(single);
        case UTLTLV_DOUBLE:
            message.GetDoubleValue(type, number);
            return Number(number);
        case UTLTLV_STRING:
            message.GetStringValue(type, text);
            return text;
        case UTLTLV_SIZE:
            message.GetSizeValue(type, &size);
            return std::to_string(size.w) + "x" + std::to_string(size.h);
        case UTLTLV_RECT:
            message.GetRectValue(type, &rect);
            return Rect(rect);
        case UTLTLV_RULE_AREAS:
            return RuleAreas(message, type);
        case UTLTLV_OBJ_AREAS:
            return ObjAreas(message, type);
        default:
            return Bytes(message, type);
    }
}

}  // namespace

bool ReadTlv(const std::string& message, TlvTable& table) {
    HCTLV tlv("");
    const auto* data = reinterpret_cast<const unsigned char*>(message.data());
    if (tlv.ParseToTLV(data, static_cast<int>(message.size())) != 0) return false;

    table.head = tlv.GetHeadType();
    table.bytes = message.size();
    int type = 0;
    int kind = 0;
    const int* after = nullptr;
    for (; utltlv_get_next(tlv.GetCHdl(), after, &type, &kind) == 0; after = &type)
        table.rows.push_back({type, KindName(kind), ValueText(tlv, type, kind)});
    return true;
}

std::string TlvText(const TlvTable& table) {
    char line[64];
    std::string text = Printable(table.head) + ", " + std::to_string(table.bytes) + " bytes\n";
    snprintf(line, sizeof line, "%6s  %-10s  ", "type", "kind");
    text.append(line).append("value\n");
    for (const TlvRow& row : table.rows) {
        snprintf(line, sizeof line, "%6d  %-10s  ", row.type, row.kind);
        text.append(line).append(Printable(row.value)).append("\n");
    }
    return text;
}

Json TlvJson(const TlvTable& table) {
    Json object = NewObject();
    cJSON_AddStringToObject(object.get(), "head", table.head.c_str());
    cJSON* values = cJSON_AddArrayToObject(object.get(), "values");
    for (const TlvRow& row : table.rows) {
        cJSON* value = cJSON_CreateObject();
        cJSON_AddNumberToObject(value, "type", row.type);
        cJSON_AddStringToObject(value, "kind", row.kind);
        cJSON_AddStringToObject(value, "value", row.value.c_str());
        cJSON_AddItemToArray(values, value);
    }
    return object;
}

}  // namespace hyrpc
