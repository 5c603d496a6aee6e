#include "gb2312.h"

#include <errno.h>
#include <iconv.h>
#include <string.h>

namespace hyfont {

namespace {

class Converter {
  public:
    Converter(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
    ~Converter() {
        if (IsOpen()) iconv_close(handle_);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    // Converts up to the first character that the target has not; *in is moved behind the others.
    std::string Convert(const char** in, const char* end) {
        std::string out(4 * (end - *in), '\0');
        char* at = out.data();
        size_t in_left = end - *in;
        size_t out_left = out.size();
        // The interface lacks a const: iconv does not write there.
        if (IsOpen()) iconv(handle_, const_cast<char**>(in), &in_left, &at, &out_left);
        out.resize(at - out.data());
        return out;
    }

  private:
    // NOLINTNEXTLINE(performance-no-int-to-ptr): that is how iconv_open fails
    bool IsOpen() const { return handle_ != iconv_t(-1); }

    iconv_t handle_;
};

}  // namespace

bool KnowsGb2312() { return UnicodeOf(kFirstCode, kFirstCode) != 0; }

uint32_t UnicodeOf(int high, int low) {
    static Converter to_unicode("UCS-4LE", "GB2312");
    const char pair[] = {static_cast<char>(high), static_cast<char>(low)};
    const char* at = pair;
    const std::string code = to_unicode.Convert(&at, pair + 2);
    if (code.size() != 4) return 0;
    uint32_t value = 0;
    for (int i = 3; i >= 0; i--) value = value << 8 | static_cast<unsigned char>(code[i]);
    return value;
}

std::string FromUtf8(const std::string& text) {
    Converter to_gb("GB2312", "UTF-8");
    std::string out;
    const char* at = text.c_str();
    const char* const end = at + text.size();
    while (at < end) {
        out += to_gb.Convert(&at, end);
        if (at == end) break;
        out += '?';
        do at++;
        while (at < end && (*at & 0xC0) == 0x80);  // the rest of the character
    }
    return out;
}

}  // namespace hyfont
