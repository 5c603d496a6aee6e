// The characters of GB2312, as two bytes of 0xA1 to 0xFE, and their place in Unicode.
#pragma once

#include <stdint.h>

#include <string>

namespace hyfont {

constexpr int kFirstCode = 0xA1;
constexpr int kCodes = 94;  // in either byte

// False where the C library comes without its conversion modules.
bool KnowsGb2312();

// 0 for a pair that is no character of GB2312.
uint32_t UnicodeOf(int high, int low);

// UTF-8 to GB2312; what GB2312 has not becomes '?'.
std::string FromUtf8(const std::string& text);

}  // namespace hyfont
