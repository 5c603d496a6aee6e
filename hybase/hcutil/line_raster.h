// Straight lines in pixels.
#ifndef HYBASE_HCUTIL_LINE_RASTER_H
#define HYBASE_HCUTIL_LINE_RASTER_H

#include "hybase/hcutil/pixels.h"

struct PixelPoint {
    int64_t x;
    int64_t y;
};

// Vertical: `from` and `to` share their x. Horizontal: they share their y. Sloped: neither, but for
// what rounding did to them. Each draws nothing when an end lies outside the canvas. `large` gives
// the thick lines of a large canvas.
void DrawVerticalLine(const Pixels& pixels, PixelPoint from, PixelPoint to, bool large,
                      uint32_t color);
void DrawHorizontalLine(const Pixels& pixels, PixelPoint from, PixelPoint to, bool large,
                        uint32_t color);
void DrawSlopedLine(const Pixels& pixels, PixelPoint from, PixelPoint to, bool large,
                    uint32_t color);

#endif
