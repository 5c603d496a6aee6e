#include "hybase/hcutil/HCKeyValue.h"

#include <string.h>

#include <new>
#include <string_view>

namespace {

std::string_view Trimmed(const char* begin, const char* end) {
    while (begin < end && *begin == ' ') ++begin;
    while (end > begin && end[-1] == ' ') --end;
    return {begin, static_cast<size_t>(end - begin)};
}

}  // namespace

HCKeyValue::HCKeyValue() : m_next(m_pairs.end()) {}

HCKeyValue::~HCKeyValue() = default;

int HCKeyValue::Parse(const char* text, char separator) {
    if (text == nullptr) return -1;
    m_pairs.clear();
    try {
        while (const char* equals = strchr(text, '=')) {
            const std::string_view key = Trimmed(text, equals);
            if (key.empty()) {
                m_pairs.clear();
                break;
            }
            const char* end = strchrnul(equals + 1, separator);
            m_pairs[std::string(key)] = Trimmed(equals + 1, end);
            if (*end == '\0') break;
            for (text = end; *text == separator;) ++text;
        }
    } catch (const std::bad_alloc&) {
        m_pairs.clear();
    }
    m_next = m_pairs.end();
    return m_pairs.empty() ? -1 : 0;
}

std::string& HCKeyValue::Get(const char* key, std::string& value) try {
    if (key == nullptr)
        value.clear();
    else
        value = m_pairs[key];
    return value;
} catch (const std::bad_alloc&) {
    value.clear();
    return value;
}

int HCKeyValue::Set(const char* key, const char* value) try {
    if (key == nullptr || value == nullptr || *key == '\0') return -1;
    m_pairs[key] = value;
    return 0;
} catch (const std::bad_alloc&) {
    return -1;
}

void HCKeyValue::SeekSet() { m_next = m_pairs.begin(); }

int HCKeyValue::GetNext(std::string& key, std::string& value) try {
    if (m_next == m_pairs.end()) return -1;
    key = m_next->first;
    value = m_next->second;
    ++m_next;
    return 0;
} catch (const std::bad_alloc&) {
    return -1;
}

std::string& HCKeyValue::ToString(std::string& out, char separator) try {
    out.clear();
    for (const auto& [key, value] : m_pairs) {
        out += key;
        out += '=';
        out += value;
        out += separator;
    }
    return out;
} catch (const std::bad_alloc&) {
    out.clear();
    return out;
}

int HCKeyValue::GetValueWithKey(const char* text, const char* key, std::string& value) try {
    value.clear();
    if (text == nullptr || key == nullptr) return -1;
    const size_t length = strlen(key);
    for (const char* found = strstr(text, key); found != nullptr;) {
        const char* end = found + length;
        if ((found == text || found[-1] == ';') && *end == '=') {
            value.assign(end + 1, strchrnul(end + 1, ';'));
            return 0;
        }
        if (*end == '\0') return -1;
        // An empty key is found everywhere, also where the search would begin again.
        found = strstr(length > 0 ? end : end + 1, key);
    }
    return -1;
} catch (const std::bad_alloc&) {
    return -1;
}
