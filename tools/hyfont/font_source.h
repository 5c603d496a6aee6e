// A font of any kind that FreeType opens, as dots in cells of one size.
#pragma once

#include <ft2build.h>
#include FT_FREETYPE_H

#include <stdint.h>

#include <string>
#include <vector>

namespace hyfont {

struct Cell {
    int width;  // dots; a multiple of 8
    int height;
    std::vector<unsigned char> rows;  // width / 8 bytes each, the leftmost dot in the highest bit

    Cell(int cell_width, int cell_height)
        : width(cell_width), height(cell_height), rows(cell_width / 8 * cell_height) {}

    bool Contains(int x, int y) const { return x >= 0 && x < width && y >= 0 && y < height; }
    void Set(int x, int y) { rows[y * (width / 8) + x / 8] |= 0x80 >> x % 8; }
    bool IsSet(int x, int y) const {
        return (rows[y * (width / 8) + x / 8] >> (7 - x % 8) & 1) != 0;
    }
};

class FontSource {
  public:
    FontSource() = default;
    ~FontSource();
    FontSource(const FontSource&) = delete;
    FontSource& operator=(const FontSource&) = delete;

    // Opens a font at `size` pixels: its bitmaps of that height if it has some, its outlines
    // otherwise. Where cells have fewer columns than rows, outlines are made to fit, so that
    // letters lose none of their dots. Returns an empty text, or what is wrong.
    std::string Open(const std::string& path, int size, int columns);

    // The font counts its characters by GB2312 and not by Unicode.
    bool IsGb2312() const { return gb2312_; }

    enum Result { kMissing, kDrawn, kCut };

    // Draws a character into the cell; kCut when dots of it lie outside.
    Result Draw(uint32_t code, Cell* cell);

  private:
    std::string SelectSize(int size, int columns);
    void FitOutlines(int size, int columns);

    FT_Library library_ = nullptr;
    FT_Face face_ = nullptr;
    bool gb2312_ = false;
    int baseline_ = 0;  // the row of the cell that stands on it
};

}  // namespace hyfont
