#include "printable.h"

#include <stdio.h>

namespace hyrpc {
namespace {

constexpr unsigned kNoCharacter = 0xFFFD;

// A character and how many bytes it takes.
struct Character {
    unsigned code;
    size_t bytes;
};

size_t LengthBy(unsigned char first) {
    if (first < 0x80) return 1;
    if (first < 0xC2 || first > 0xF4) return 0;
    return first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
}

// Of bytes that are no UTF-8 the first one.
Character CharacterAt(const std::string& text, size_t at) {
    constexpr unsigned kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto first = static_cast<unsigned char>(text[at]);
    const size_t bytes = LengthBy(first);
    if (bytes == 1) return {first, 1};
    if (bytes == 0 || bytes > text.size() - at) return {kNoCharacter, 1};

    unsigned code = first & (0x7Fu >> bytes);
    for (size_t i = at + 1; i < at + bytes; i++) {
        const auto next = static_cast<unsigned char>(text[i]);
        if (next >> 6 != 2) return {kNoCharacter, 1};
        code = code << 6 | (next & 0x3Fu);
    }
    const bool is_half = code >= 0xD800 && code <= 0xDFFF;  // of a pair of UTF-16
    if (code < kSmallest[bytes] || is_half || code > 0x10FFFF) return {kNoCharacter, 1};
    return {code, bytes};
}

bool IsControl(unsigned code) { return code < 0x20 || (code >= 0x7F && code < 0xA0); }

std::string Escaped(unsigned code) {
    char text[8];
    snprintf(text, sizeof text, "\\u%04x", code);
    return text;
}

}  // namespace

std::string Printable(const std::string& text, const std::string& kept) {
    std::string shown;
    shown.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        const Character character = CharacterAt(text, at);
        const bool is_control = IsControl(character.code) && kept.find(text[at]) == kept.npos;
        if (is_control || character.code == kNoCharacter)
            shown += Escaped(character.code);
        else
            shown.append(text, at, character.bytes);
        at += character.bytes;
    }
    return shown;
}

}  // namespace hyrpc
