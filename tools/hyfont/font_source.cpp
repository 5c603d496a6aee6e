#include "font_source.h"

#include FT_BDF_H

#include <strings.h>

#include <algorithm>

namespace hyfont {

namespace {

constexpr int kInkThreshold = 128;  // of 255, for glyphs that come in shades of grey

bool IsInk(const FT_Bitmap& bitmap, int x, int y) {
    const unsigned char* row = bitmap.buffer + y * bitmap.pitch;
    if (bitmap.pixel_mode == FT_PIXEL_MODE_MONO) return (row[x / 8] >> (7 - x % 8) & 1) != 0;
    return bitmap.pixel_mode == FT_PIXEL_MODE_GRAY && row[x] >= kInkThreshold;
}

bool CountsByGb2312(FT_Face face) {
    const char* encoding = nullptr;
    const char* registry = nullptr;
    if (FT_Get_BDF_Charset_ID(face, &encoding, &registry) != 0 || registry == nullptr) return false;
    return strncasecmp(registry, "GB2312", 6) == 0;
}

}  // namespace

FontSource::~FontSource() {
    if (face_ != nullptr) FT_Done_Face(face_);
    if (library_ != nullptr) FT_Done_FreeType(library_);
}

std::string FontSource::Open(const std::string& path, int size, int columns) {
    if (FT_Init_FreeType(&library_) != 0) return "FreeType does not start";
    if (FT_New_Face(library_, path.c_str(), 0, &face_) != 0) return "cannot open the font " + path;
    gb2312_ = CountsByGb2312(face_);
    // Bitmap fonts of another registry (ISO 8859-1) have no Unicode map; their own holds ASCII.
    if (!gb2312_) FT_Select_Charmap(face_, FT_ENCODING_UNICODE);
    if (face_->charmap == nullptr && face_->num_charmaps > 0)
        FT_Set_Charmap(face_, face_->charmaps[0]);
    return SelectSize(size, columns);
}

// A letter as wide as M takes all columns, a line from ascender to descender all rows.
void FontSource::FitOutlines(int size, int columns) {
    if (FT_Load_Char(face_, 'M', FT_LOAD_TARGET_MONO) != 0) return;
    const int advance = std::max(static_cast<int>(face_->glyph->advance.x / 64), columns);
    const FT_Size_Metrics& metrics = face_->size->metrics;
    const int line = std::max(static_cast<int>((metrics.ascender - metrics.descender) / 64), size);
    FT_Set_Pixel_Sizes(face_, size * columns / advance, size * size / line);
}

std::string FontSource::SelectSize(int size, int columns) {
    int strike = -1;
    for (int i = 0; i < face_->num_fixed_sizes; i++)
        if (face_->available_sizes[i].height == size) strike = i;
    if (strike >= 0 ? FT_Select_Size(face_, strike) != 0 : FT_Set_Pixel_Sizes(face_, 0, size) != 0)
        return "the font has no size of " + std::to_string(size) + " pixels";
    if (strike < 0 && columns < size) FitOutlines(size, columns);
    // A line of the font, which may be higher than the cell, stands in its middle.
    const int ascender = face_->size->metrics.ascender / 64;
    const int descender = face_->size->metrics.descender / 64;
    baseline_ = (size + ascender + descender) / 2;
    return "";
}

FontSource::Result FontSource::Draw(uint32_t code, Cell* cell) {
    const FT_UInt index = FT_Get_Char_Index(face_, code);
    if (index == 0) return kMissing;
    if (FT_Load_Glyph(face_, index, FT_LOAD_RENDER | FT_LOAD_TARGET_MONO) != 0) return kMissing;

    const FT_GlyphSlot slot = face_->glyph;
    Result result = kDrawn;
    for (int y = 0; y < static_cast<int>(slot->bitmap.rows); y++) {
        for (int x = 0; x < static_cast<int>(slot->bitmap.width); x++) {
            if (!IsInk(slot->bitmap, x, y)) continue;
            const int column = slot->bitmap_left + x;
            const int row = baseline_ - slot->bitmap_top + y;
            if (cell->Contains(column, row))
                cell->Set(column, row);
            else
                result = kCut;
        }
    }
    return result;
}

}  // namespace hyfont
