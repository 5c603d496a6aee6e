#include "hybase/hstring.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <new>

#include "hybase/hlog.h"

namespace {

// Where the records say they come from. File and lines are part of the interface (people filter
// logs by them), so they are named here instead of following the code about.
constexpr char kLogFile[] = "hybase/hstring";
constexpr char kLogFunction[] = "";
constexpr int32_t kLineNoRoomBeforeMatch = 236;
constexpr int32_t kLineNoRoomForReplacement = 251;
constexpr int32_t kLineNoRoomForTail = 269;
constexpr int32_t kLineInvalidDigit = 298;
constexpr int32_t kLineOddLength = 311;

// Not isspace: a vertical tab or a form feed is part of a word here.
bool IsCommandSpace(char c) { return c == '\t' || c == '\n' || c == '\r' || c == ' '; }

char* SkipSpace(char* text) {
    while (IsCommandSpace(*text)) ++text;
    return text;
}

// Returns the first character that is not white space; white space at the end becomes zero bytes.
char* Trim(char* text) {
    text = SkipSpace(text);
    for (char* end = text + strlen(text); end > text && IsCommandSpace(end[-1]);) *--end = '\0';
    return text;
}

// Ends the word that begins at *word, moves *word behind an opening quote and returns where the
// next word begins. The line has no white space at its end.
char* CutWord(char** word) {
    const char quote = **word;
    const bool quoted = quote == '\'' || quote == '"';
    char* closing = quoted ? strchrnul(*word + 1, quote) : *word;
    char* end = closing + strcspn(closing, " \t");

    char* next = end;
    if (*end != '\0') {
        *end = '\0';
        next = SkipSpace(end + 1);
    }
    if (quoted) {
        ++*word;
        if (*closing != '\0') memmove(closing, closing + 1, end - closing);
    }
    return next;
}

bool Separates(char c, char sep) {
    return c == sep || (sep == ' ' && isspace(static_cast<unsigned char>(c)));
}

// The part of a buffer that is still to be written.
struct Remaining {
    char* at;
    size_t room;
};

// Writes as much of the text as there is room for. False when that is not all of it.
bool Append(Remaining* out, const char* text, size_t len) {
    const size_t fitting = std::min(len, out->room);
    memcpy(out->at, text, fitting);
    out->at += fitting;
    out->room -= fitting;
    return fitting == len;
}

int32_t NoRoom(int32_t line) {
    hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, kLogFunction, line, "str_dst size is too small\n");
    return -1;
}

int32_t ReplaceInto(char* dst, size_t size, const char* str, const char* from, const char* to) {
    const size_t from_len = strlen(from);
    const size_t to_len = strlen(to);
    Remaining out{dst, size};
    // An empty `from` would be found at the same place for ever.
    while (const char* match = from_len > 0 ? strstr(str, from) : nullptr) {
        if (!Append(&out, str, match - str)) return NoRoom(kLineNoRoomBeforeMatch);
        // A replacement that just fills the buffer is refused too: callers know that one which ends
        // the result leaves room for a terminator.
        if (!Append(&out, to, to_len) || out.room == 0) return NoRoom(kLineNoRoomForReplacement);
        str = match + from_len;
    }
    if (!Append(&out, str, strlen(str))) return NoRoom(kLineNoRoomForTail);
    return static_cast<int32_t>(size - out.room);
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

int32_t HString_CmdParser(char* line, char** argv, int32_t max) {
    if (line == nullptr || argv == nullptr) return -1;
    int32_t count = 0;
    // `<=` is meant: argv holds max + 1 pointers.
    for (char* next = Trim(line); *next != '\0' && count <= max; ++count) {
        argv[count] = next;
        next = CutWord(&argv[count]);
    }
    for (int32_t i = 0; i < count; ++i) argv[i] = Trim(argv[i]);
    return count;
}

int32_t HString_ConvertToArgv_ex(char* buf, int32_t len, char sep, char** argv, int32_t max) {
    if (buf == nullptr || argv == nullptr || max <= 0) return 0;
    int32_t count = 0;
    char* field = nullptr;
    for (int32_t i = 0; i < len; ++i) {
        if (!Separates(buf[i], sep)) {
            if (field == nullptr) field = buf + i;
            continue;
        }
        if (field == nullptr) continue;
        buf[i] = '\0';
        argv[count++] = field;
        if (count == max) return count;
        field = nullptr;
    }
    if (field != nullptr) argv[count++] = field;
    return count;
}

int32_t HString_ConvertToArgv(char* buf, int32_t len, char** argv, int32_t max) {
    return HString_ConvertToArgv_ex(buf, len, ' ', argv, max);
}

int32_t HString_GetLine(const char* src, char* dst, int32_t size) {
    if (dst == nullptr || size <= 0) return 0;
    int32_t length = 0;
    // Looks at no byte behind the line, nor behind what `dst` can take.
    while (src != nullptr && length < size - 1 && src[length] != '\0') {
        dst[length] = src[length];
        if (dst[length++] == '\n') break;
    }
    dst[length] = '\0';
    return length;
}

int32_t HString_WordReplace(char* str, char* dst, int32_t size, const char* from, const char* to) {
    if (str == nullptr || from == nullptr || to == nullptr) return -1;
    const size_t room = std::max(size, 0);
    if (dst != nullptr && dst != str) return ReplaceInto(dst, room, str, from, to);

    std::unique_ptr<char[]> result(new (std::nothrow) char[room]());
    if (result == nullptr) return -1;
    const int32_t length = ReplaceInto(result.get(), room, str, from, to);
    if (length >= 0) memcpy(str, result.get(), room);
    return length;
}

int32_t HString_HexParse(const char* text, uint8_t* out) {
    if (text == nullptr || out == nullptr) return -1;
    const size_t len = strlen(text);
    if (len % 2 != 0) {
        hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, kLogFunction, kLineOddLength,
                       "string len must be even number\n");
        return -1;
    }
    for (size_t i = 0; i < len; i += 2) {
        const int high = HexValue(text[i]);
        const int low = HexValue(text[i + 1]);
        if (high < 0 || low < 0) {
            hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, kLogFunction, kLineInvalidDigit,
                           "string is invalid [%c]\n", high < 0 ? text[i] : text[i + 1]);
            return -1;
        }
        out[i / 2] = static_cast<uint8_t>(high << 4 | low);
    }
    return static_cast<int32_t>(len / 2);
}

char* HString_HexPrint(const uint8_t* data, int32_t n, int32_t upper) {
    if (n < 0 || (data == nullptr && n > 0)) return nullptr;
    char* text = static_cast<char*>(malloc(static_cast<size_t>(n) * 2 + 1));
    if (text == nullptr) return nullptr;
    const char* digits = upper != 0 ? "0123456789ABCDEF" : "0123456789abcdef";
    char* at = text;
    for (int32_t i = 0; i < n; ++i) {
        *at++ = digits[data[i] >> 4];
        *at++ = digits[data[i] & 0x0F];
    }
    *at = '\0';
    return text;
}
