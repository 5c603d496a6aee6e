#include "tlv_support.h"

#include <stdio.h>

#include <algorithm>

namespace {

void AppendNumber(Bytes* bytes, size_t number) {
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes->push_back(static_cast<unsigned char>(number >> shift));
}

void Append(Bytes* bytes, const Bytes& more) {
    bytes->insert(bytes->end(), more.begin(), more.end());
}

}  // namespace

Bytes Entry(int type, int kind, const Bytes& value) {
    Bytes entry;
    AppendNumber(&entry, static_cast<unsigned int>(type));
    entry.push_back(static_cast<unsigned char>(kind));
    AppendNumber(&entry, value.size());
    Append(&entry, value);
    return entry;
}

Bytes Whole(const char* head_type, std::initializer_list<Bytes> entries) {
    Bytes message;
    while (*head_type != '\0') message.push_back(static_cast<unsigned char>(*head_type++));
    message.push_back(0);
    size_t count = 0;
    for (const Bytes& entry : entries) count += entry.size();
    AppendNumber(&message, count);
    for (const Bytes& entry : entries) Append(&message, entry);
    return message;
}

// As docs/formats.md prints them, not as the code above would make them.
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
    constexpr int kUnusedPointsAt = 183;
    Bytes message(text, text + sizeof text - 1);
    message.insert(message.begin() + kUnusedPointsAt, 72, 0);
    return message;
}

Bytes SampleValue(int kind) {
    const Bytes sample = Sample();
    for (size_t at = 8;; at += 9U + sample[at + 8]) {
        if (sample[at + 4] != kind) continue;
        const auto value = sample.begin() + static_cast<int>(at) + 9;
        return Bytes(value, value + sample[at + 8]);
    }
}

Message::Message(const char* head_type) : m_tlv(lib.utltlv_create(head_type)) {
    Expect(m_tlv != nullptr, "utltlv_create gave no message");
}

Message::Message(const Bytes& message)
    : m_tlv(lib.utltlv_parse(message.data(), static_cast<int>(message.size()))) {
    Expect(m_tlv != nullptr, "utltlv_parse refused a sound message: %s", Hex(message).c_str());
}

Message::~Message() { lib.utltlv_destroy(m_tlv); }

Bytes Message::Encoded() const {
    const unsigned char* data = lib.utltlv_get_buffer(m_tlv);
    const int size = lib.utltlv_get_buffersize(m_tlv);
    Expect(data != nullptr && size > 0, "utltlv_get_buffer or _buffersize gave nothing");
    return Bytes(data, data + size);
}

std::string Hex(const Bytes& bytes) {
    constexpr size_t kMost = 32;
    std::string text;
    char digits[4];
    for (size_t i = 0; i < std::min(bytes.size(), kMost); ++i) {
        snprintf(digits, sizeof digits, "%02x ", bytes[i]);
        text += digits;
    }
    if (!text.empty()) text.pop_back();
    return bytes.size() > kMost ? text + " ..." : text;
}

void ExpectMessage(const Message& message, const Bytes& wanted, const char* what) {
    const Bytes got = message.Encoded();
    if (got == wanted) return;
    size_t at = 0;
    while (at < got.size() && at < wanted.size() && got[at] == wanted[at]) ++at;
    const Bytes got_rest(got.begin() + static_cast<int>(at), got.end());
    const Bytes wanted_rest(wanted.begin() + static_cast<int>(at), wanted.end());
    Fail("%s: from byte %zu on the message is [%s], not [%s]", what, at, Hex(got_rest).c_str(),
         Hex(wanted_rest).c_str());
}

void ExpectResult(int got, int wanted, const char* what) {
    Expect(got == wanted, "%s gave %d, not %d", what, got, wanted);
}
