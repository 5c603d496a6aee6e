// Drawing one line of text in the bitmap fonts, and the outline of text.
#ifndef HYBASE_HCUTIL_GLYPH_TEXT_H
#define HYBASE_HCUTIL_GLYPH_TEXT_H

#include <string_view>

#include "hybase/hcutil/bitmap_font.h"
#include "hybase/hcutil/pixels.h"

struct TextColors {
    uint32_t text;
    uint32_t background;
};

// The characters of the longest line that is drawn.
constexpr size_t kMaxTextBytes = 1023;

// Draws a line of at most kMaxTextBytes with its top left corner at the pixel (x, y), as far as it
// lies on the canvas. `size` is the height of the cells.
void DrawGlyphLine(const Pixels& pixels, const BitmapFonts& fonts, std::string_view line, int64_t x,
                   int64_t y, int size, const TextColors& colors);

// Outlines every pixel of the canvas that has the text colour.
void DrawOutline(const Pixels& pixels, int font_size, uint32_t text_color, uint32_t border_color);

#endif
