#include "hybase/hcutil/bitmap_font.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <atomic>
#include <new>

namespace {

constexpr size_t kHeaderBytes = 16;
constexpr int kFirstCode = 0xA1;  // of both bytes of a two-byte character
constexpr int kLastCode = 0xFE;
constexpr int kCodes = kLastCode - kFirstCode + 1;

// Farther than any file reaches, and far enough from the end of size_t for every row and column.
constexpr size_t kNoGlyph = SIZE_MAX / 2;

std::atomic<const BitmapFonts*> g_fonts{nullptr};

bool IsCode(int byte) { return byte >= kFirstCode && byte <= kLastCode; }

}  // namespace

bool FontFile::Open(const char* path) {
    fd = open(path, O_RDONLY | O_CLOEXEC);
    return fd >= 0;
}

bool FontFile::Map() {
    struct stat status;
    if (fstat(fd, &status) != 0 || static_cast<uint64_t>(status.st_size) > kNoGlyph) return false;
    void* address = mmap(nullptr, status.st_size, PROT_READ, MAP_PRIVATE, fd, 0);
    if (address == MAP_FAILED) return false;
    data = static_cast<const unsigned char*>(address);
    length = status.st_size;
    return true;
}

const BitmapFonts* BitmapFonts::Current() { return g_fonts.load(std::memory_order_acquire); }

bool BitmapFonts::Use(const FontFile& cn, const FontFile& en) {
    auto* fonts = new (std::nothrow) BitmapFonts;
    if (fonts == nullptr) return false;
    fonts->cn = cn;
    fonts->en = en;
    fonts->replaced = g_fonts.load(std::memory_order_relaxed);
    while (!g_fonts.compare_exchange_weak(fonts->replaced, fonts, std::memory_order_acq_rel)) {
    }
    return true;
}

Glyph BitmapFonts::Next(const char** text, const char* end) const {
    // Plain char is unsigned on one machine and signed on the other.
    const int first = static_cast<unsigned char>(*(*text)++);
    const size_t size = NativeSize();
    if (first < 128) {
        const size_t index = first < ' ' ? 0 : first - ' ';
        return {size == 0 ? kNoGlyph : index * (size * size / 16), false};
    }
    // A lone high byte at the end of a line has an empty cell of its own.
    const int second = *text < end ? static_cast<unsigned char>(*(*text)++) : 0;
    if (size == 0 || !IsCode(first) || !IsCode(second)) return {kNoGlyph, true};
    const size_t index = (first - kFirstCode) * kCodes + (second - kFirstCode);
    return {kHeaderBytes + index * (size / 8) * size, true};
}
