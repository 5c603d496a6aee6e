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
    uint32_t RowBits(const Glyph& glyph, int64_t row) const {
        if (!glyph.wide) return static_cast<uint32_t>(RowByte(glyph, row, 0)) << 24;
        uint32_t bits = 0;
        for (int i = 0; i < 4; i++) bits = bits << 8 | RowByte(glyph, row, i);
        return bits;
    }

    // Whether a pixel of the native glyph is set, in any row and column.
    bool IsSet(const Glyph& glyph, int64_t row, int64_t column) const {
        if (!glyph.wide && column >= 8) return false;
        return (RowByte(glyph, row, column / 8) >> (7 - column % 8) & 1) != 0;
    }

  private:
    // A native size that is no multiple of 8 makes the last columns run into the next row, as in
    // the files that were made for it.
    unsigned char RowByte(const Glyph& glyph, int64_t row, int64_t index) const {
        if (!glyph.wide) return en.ByteAt(glyph.offset + row);
        return cn.ByteAt(glyph.offset + row * (NativeSize() / 8) + index);
    }
};

#endif
