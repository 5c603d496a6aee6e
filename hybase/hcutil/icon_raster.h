// The status icons that are bitmaps.
#ifndef HYBASE_HCUTIL_ICON_RASTER_H
#define HYBASE_HCUTIL_ICON_RASTER_H

#include "hybase/hcutil/pixels.h"

constexpr int kIconCells = 16;  // in either direction

// Rows of cells: a digit is the level at which the cell lights up, a dot is background.
using IconBitmap = const char[kIconCells][kIconCells + 1];

extern IconBitmap kSignalIcon;
extern IconBitmap kWifiIcon;

struct IconColors {
    uint32_t lit;
    uint32_t unlit;
    uint32_t background;
};

// Draws the bitmap `size` pixels wide and high with its top left corner at the pixel (x, y), as far
// as it lies on the canvas.
void DrawIconBitmap(const Pixels& pixels, IconBitmap& icon, int64_t x, int64_t y, int size,
                    int level, const IconColors& colors);

#endif
