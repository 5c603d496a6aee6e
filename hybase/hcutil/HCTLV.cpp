#include "hybase/hcutil/HCTLV.h"

#include <string.h>

#include <new>

static_assert(sizeof(HCTLV) == sizeof(utltlv_t), "the handle alone");

HCTLV::HCTLV(const char* headType) : m_hTlv(utltlv_create(headType)) {}

HCTLV::~HCTLV() {
    if (m_hTlv != nullptr) utltlv_destroy(m_hTlv);
}

int HCTLV::ParseToTLV(const unsigned char* data, int length) {
    // The data may be the former handle's own, so that goes last.
    utltlv_t parsed = utltlv_parse(data, length);
    if (m_hTlv != nullptr) utltlv_destroy(m_hTlv);
    m_hTlv = parsed;
    return m_hTlv != nullptr ? 0 : -1;
}

unsigned char* HCTLV::GetTLVBuffer() const { return utltlv_get_buffer(m_hTlv); }

int HCTLV::GetTLVBytes() const { return utltlv_get_buffersize(m_hTlv); }

const char* HCTLV::GetHeadType() { return utltlv_get_headtype(m_hTlv); }

int HCTLV::AddUInt8Value(int type, unsigned char value) {
    return utltlv_put_uint8(m_hTlv, type, value);
}

int HCTLV::AddUInt16Value(int type, unsigned short value) {
    return utltlv_put_uint16(m_hTlv, type, value);
}

int HCTLV::AddUInt32Value(int type, unsigned int value) {
    return utltlv_put_uint32(m_hTlv, type, value);
}

int HCTLV::AddUInt64Value(int type, unsigned long long value) {
    return utltlv_put_uint64(m_hTlv, type, value);
}

int HCTLV::AddFloatValue(int type, float value) { return utltlv_put_float(m_hTlv, type, value); }

int HCTLV::AddDoubleValue(int type, double value) { return utltlv_put_double(m_hTlv, type, value); }

int HCTLV::AddStringValue(int type, const char* text) {
    return utltlv_put_string(m_hTlv, type, text);
}

int HCTLV::AddStringValue(int type, const std::string& text) {
    return utltlv_put_string(m_hTlv, type, text.c_str());
}

int HCTLV::AddBytesValue(int type, const unsigned char* data, int length) {
    return utltlv_put_bytes(m_hTlv, type, data, length);
}

int HCTLV::AddSizeValue(int type, const TLVSize_t* size) {
    return utltlv_put_size(m_hTlv, type, size);
}

int HCTLV::AddRectValue(int type, const TLVRect_t* rect) {
    return utltlv_put_rect(m_hTlv, type, rect);
}

int HCTLV::AddRuleAreasValue(int type, const TLVRuleArea_t* areas, unsigned char count) {
    return utltlv_put_rule_areas(m_hTlv, type, areas, count);
}

int HCTLV::AddObjAreasValue(int type, const TLVObjArea_t* areas, unsigned char count) {
    return utltlv_put_obj_areas(m_hTlv, type, areas, count);
}

int HCTLV::GetUInt8Value(int type, unsigned char& value) const {
    return utltlv_get_uint8(m_hTlv, type, &value);
}

int HCTLV::GetUInt16Value(int type, unsigned short& value) const {
    return utltlv_get_uint16(m_hTlv, type, &value);
}

int HCTLV::GetUInt32Value(int type, unsigned int& value) const {
    return utltlv_get_uint32(m_hTlv, type, &value);
}

int HCTLV::GetUInt64Value(int type, unsigned long long& value) const {
    return utltlv_get_uint64(m_hTlv, type, &value);
}

int HCTLV::GetFloatValue(int type, float& value) const {
    return utltlv_get_float(m_hTlv, type, &value);
}

int HCTLV::GetDoubleValue(int type, double& value) const {
    return utltlv_get_double(m_hTlv, type, &value);
}

int HCTLV::GetStringValue(int type, std::string& out) const {
    unsigned char* data = nullptr;
    int length = 0;
    if (utltlv_get_bytes_ptr(m_hTlv, type, &data, &length) != 0) return -1;
    if (data == nullptr || length <= 0) return -1;
    try {
        // Bytes need not carry a terminator: nothing behind them is read.
        const auto* text = reinterpret_cast<const char*>(data);
        out.assign(text, strnlen(text, static_cast<size_t>(length)));
        return 0;
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

int HCTLV::GetBytesValue(int type, unsigned char* buf, int* length) const {
    return utltlv_get_bytes(m_hTlv, type, buf, length);
}

int HCTLV::GetBytesValue(int type, unsigned char* buf, int length) const {
    unsigned char* data = nullptr;
    int stored = 0;
    if (utltlv_get_bytes_ptr(m_hTlv, type, &data, &stored) != 0) return -1;
    if (buf == nullptr || data == nullptr || stored != length || stored < 1) return -1;
    memcpy(buf, data, static_cast<size_t>(length));
    return 0;
}

int HCTLV::GetBytesValuePtr(int type, unsigned char** data, int& length) const {
    return utltlv_get_bytes_ptr(m_hTlv, type, data, &length);
}

int HCTLV::GetSizeValue(int type, TLVSize_t* size) { return utltlv_get_size(m_hTlv, type, size); }

int HCTLV::GetRectValue(int type, TLVRect_t* rect) { return utltlv_get_rect(m_hTlv, type, rect); }

int HCTLV::GetRuleAreasValue(int type, TLVRuleArea_t** areas, int* count) {
    return utltlv_get_rule_areas(m_hTlv, type, areas, count);
}

int HCTLV::GetObjAreasValue(int type, TLVObjArea_t** areas, int* count) {
    return utltlv_get_obj_areas(m_hTlv, type, areas, count);
}

int HCTLV::DelType(int type) { return utltlv_del_type(m_hTlv, type); }
