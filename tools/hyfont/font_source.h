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

// Of a collection: the first face for simplified Chinese, which has "SC" in its name, or else 0.
constexpr int kChineseFace = -1;

class FontSource {
  public:
    FontSource() = default;
    ~FontSource();
    FontSource(const FontSource&) = delete;
    FontSource& operator=(const FontSource&) = delete;

    // Opens a face of a font, counted from 0, for cells of `columns` by `size` pixels: its bitmaps
    // of that height if it has some, its outlines otherwise. Where cells have fewer columns than
    // rows, outlines are made to fit, so that letters lose none of their dots. Returns an empty
    // text, or what is wrong.
    std::string Open(const std::string& path, int face, int size, int columns);

    // Family and style of the face.
    const std::string& Name() const { return name_; }

    // The font counts its characters by GB2312 and not by Unicode.
    bool IsGb2312() const { return gb2312_; }

    // Moves the baseline to where the fewest of these characters are cut. Until then a line from
    // ascender to descender has its middle in that of the cell; of equals, the nearest to that
    // wins.
    void FitBaseline(const std::vector<uint32_t>& codes);

    enum Result { kMissing, kDrawn, kCut };

    // Draws a character into the cell; kCut when dots of it lie outside. The font lacks code 0.
    Result Draw(uint32_t code, Cell* cell);

  private:
    struct Dot {
        int x, y;  // from the origin of the character, y downwards
    };

    std::string SelectSize();
    void FitOutlines();
    // Sets dots_ to those of a character, false when it is missing.
    bool Render(uint32_t code);

    FT_Library library_ = nullptr;
    FT_Face face_ = nullptr;
    std::string name_;
    bool gb2312_ = false;
    int size_ = 0;  // of a cell
    int columns_ = 0;
    int baseline_ = 0;  // the row of the cell just below it
    std::vector<Dot> dots_;
};

}  // namespace hyfont
