#include "hybase/hcutil/icon_raster.h"

IconBitmap kSignalIcon = {
    "................",  //
    "................",  //
    ".............55.",  //
    ".............55.",  //
    "..........44.55.",  //
    "..........44.55.",  //
    ".......33.44.55.",  //
    ".......33.44.55.",  //
    "....22.33.44.55.",  //
    "....22.33.44.55.",  //
    ".11.22.33.44.55.",  //
    ".11.22.33.44.55.",  //
    "................",  //
    "................",  //
    "................",  //
    "................",
};

IconBitmap kWifiIcon = {
    "................",  //
    "................",  //
    "................",  //
    ".....444444.....",  //
    "....44444444....",  //
    "...44......44...",  //
    "..44..3333..44..",  //
    ".44..333333..44.",  //
    "....33....33....",  //
    "...33..22..33...",  //
    "......2222......",  //
    ".....22..22.....",  //
    "................",  //
    ".......11.......",  //
    "................",  //
    "................",
};

static uint32_t CellColor(char cell, int level, const IconColors& colors) {
    if (cell == '.') return colors.background;
    return cell - '0' > level ? colors.unlit : colors.lit;
}

void DrawIconBitmap(const Pixels& pixels, IconBitmap& icon, int64_t x, int64_t y, int size,
                    int level, const IconColors& colors) {
    const int64_t left = std::max<int64_t>(0, -x);
    const int64_t right = std::min<int64_t>(size, pixels.width - x);
    const int64_t top = std::max<int64_t>(0, -y);
    const int64_t bottom = std::min<int64_t>(size, pixels.height - y);
    for (int64_t row = top; row < bottom; row++) {
        const char* cells = icon[row * kIconCells / size];
        for (int64_t column = left; column < right; column++)
            pixels.Put(pixels.At(x + column, y + row),
                       CellColor(cells[column * kIconCells / size], level, colors));
    }
}
