// The two font files of the process, and the glyphs in them.
#ifndef HYBASE_HCUTIL_BITMAP_FONT_H
#define HYBASE_HCUTIL_BITMAP_FONT_H

#include <stddef.h>
#include <stdint.h>

// A font file. Neither closed nor unmapped, ever: another thread may be drawing with it.
struct FontFile {
    int fd = -1;
    const unsigned char* data = nullptr;
    size_t length = 0;

    bool Open(const char* path);
    bool Map();

    // What a file that is too short lacks is blank.
    unsigned char ByteAt(size_t offset) const { return offset < length ? data[offset] : 0; }
};

// One character, as a place in its font file.
struct Glyph {
    size_t offset;
    bool wide;  // a two-byte character: a cell of full width
};

struct BitmapFonts {
    FontFile cn;  // two-byte characters
    FontFile en;  // single-byte characters
    const BitmapFonts* replaced = nullptr;

    // The fonts that were used last, null before the first.
    static const BitmapFonts* Current();
    // Makes these two files the fonts of the process; false when memory is short.
    static bool Use(const FontFile& cn, const FontFile& en);

    // Rows of a glyph, and columns of a two-byte one: 0 to 255.
    int NativeSize() const { return cn.ByteAt(9); }

    // The character that begins at *text, which is moved behind it.
    Glyph Next(const char** text, const char* end) const;

    // Columns 0 to 31 of a row, the leftmost in the highest bit.
    uint32_t RowBits(const Glyph& glyph, int64_t row) const;

    // Whether a pixel of the native glyph is set, in any row and column.
    bool IsSet(const Glyph& glyph, int64_t row, int64_t column) const;

  private:
    unsigned char RowByte(const Glyph& glyph, int64_t row, int64_t index) const;
};

#endif
