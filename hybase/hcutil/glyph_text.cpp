#include "hybase/hcutil/glyph_text.h"

namespace {

constexpr int kMaxMasks = 256;

// What of a character's cell lies on the canvas.
struct Cell {
    Glyph glyph;
    int32_t column;  // on the canvas
    int32_t first;   // the column of the cell that stands there
    int32_t count;   // columns
};

// A line of text, clipped to the canvas once and then drawn row by row.
class GlyphLine {
  public:
    GlyphLine(const Pixels& pixels, const BitmapFonts& fonts, int size, const TextColors& colors)
        : pixels_(pixels),
          fonts_(fonts),
          size_(size),
          native_(fonts.NativeSize()),
          colors_(colors) {
        has_masks_ = pixels.bytes == sizeof(uint32_t) && size <= kMaxMasks && native_ <= 32;
        for (int c = 0; has_masks_ && c < size; c++) masks_[c] = 0x80000000u >> c * native_ / size;
    }

    void Place(std::string_view text, int64_t x) {
        const char* end = text.data() + text.size();
        for (const char* at = text.data(); at < end && x < pixels_.width;) {
            const Glyph glyph = fonts_.Next(&at, end);
            const int64_t width = glyph.wide ? size_ : size_ / 2;
            AddCell(glyph, x, width);
            x += width;
        }
    }

    // Draws each row of the glyphs once and copies it for the rows it is repeated in.
    void Draw(int64_t y) const {
        if (cell_count_ == 0) return;
        const Cell& last = cells_[cell_count_ - 1];
        const int32_t left = cells_[0].column;
        const size_t length = size_t{1} * (last.column + last.count - left) * pixels_.bytes;
        const int64_t first = std::max<int64_t>(0, -y);
        const int64_t end = std::min<int64_t>(size_, pixels_.height - y);
        for (int64_t row = first; row < end; row++) {
            if (row > first && NativeRow(row) == NativeRow(row - 1))
                memcpy(pixels_.At(left, y + row), pixels_.At(left, y + row - 1), length);
            else
                DrawRow(y + row, NativeRow(row));
        }
    }

  private:
    int64_t NativeRow(int64_t row) const { return row * native_ / size_; }

    void AddCell(const Glyph& glyph, int64_t x, int64_t width) {
        const int64_t left = std::max<int64_t>(x, 0);
        const int64_t right = std::min(x + width, pixels_.width);
        if (left >= right) return;
        cells_[cell_count_++] = {glyph, static_cast<int32_t>(left), static_cast<int32_t>(left - x),
                                 static_cast<int32_t>(right - left)};
    }

    void DrawRow(int64_t y, int64_t native_row) const {
        for (int i = 0; i < cell_count_; i++) {
            if (has_masks_)
                DrawByMasks(cells_[i], pixels_.At(cells_[i].column, y), native_row);
            else
                DrawByPixels(cells_[i], pixels_.At(cells_[i].column, y), native_row);
        }
    }

    void DrawByMasks(const Cell& cell, unsigned char* out, int64_t native_row) const {
        constexpr int kBlock = 4;  // pixels that fill a vector register
        const uint32_t bits = fonts_.RowBits(cell.glyph, native_row);
        const uint32_t* mask = masks_ + cell.first;
        uint32_t block[kBlock];
        int left = cell.count;
        for (; left >= kBlock; left -= kBlock, mask += kBlock, out += sizeof block) {
            for (int i = 0; i < kBlock; i++)
                block[i] = (bits & mask[i]) != 0 ? colors_.text : colors_.background;
            memcpy(out, block, sizeof block);
        }
        for (; left > 0; left--, mask++, out += sizeof *block)
            pixels_.Put(out, (bits & *mask) != 0 ? colors_.text : colors_.background);
    }

    void DrawByPixels(const Cell& cell, unsigned char* out, int64_t native_row) const {
        for (int64_t c = cell.first; c < int64_t{cell.first} + cell.count; c++) {
            const bool set = fonts_.IsSet(cell.glyph, native_row, c * native_ / size_);
            pixels_.Put(out, set ? colors_.text : colors_.background);
            out += pixels_.bytes;
        }
    }

    const Pixels& pixels_;
    const BitmapFonts& fonts_;
    const int64_t size_;
    const int native_;
    const TextColors colors_;
    // For 32-bit pixels of glyphs whose rows fit a word: the bit that a column of a cell shows.
    bool has_masks_;
    uint32_t masks_[kMaxMasks];
    int cell_count_ = 0;
    Cell cells_[kMaxTextBytes];
};

}  // namespace

void DrawGlyphLine(const Pixels& pixels, const BitmapFonts& fonts, std::string_view text, int64_t x,
                   int64_t y, int size, const TextColors& colors) {
    if (size <= 0) return;
    GlyphLine line(pixels, fonts, size, colors);
    line.Place(text, x);
    line.Draw(y);
}
