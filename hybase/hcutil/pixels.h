// The pixels of a canvas as the painter sees them: positions, and writes that never leave them.
#ifndef HYBASE_HCUTIL_PIXELS_H
#define HYBASE_HCUTIL_PIXELS_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "hybase/hcutil/HCanvas.h"

// Coordinates are 64 bits wide, so that no sum of two of the interface's overflows.
struct Pixels {
    unsigned char* data;
    ptrdiff_t size;    // bytes
    ptrdiff_t stride;  // bytes
    int bytes;         // from one pixel to the next; 0 for less than 8 bits
    int color_bytes;   // of them, those that a colour sets: the first ones as it lies in memory
    int64_t width;     // columns and rows that the buffer really holds
    int64_t height;

    explicit Pixels(const HCanvas& canvas)
        : data(canvas.Buffer()),
          size(std::max(canvas.BufferSize(), 0)),
          stride(std::max(canvas.Stride(), 0)),
          bytes(std::max(canvas.ColorBit() / 8, 0)),
          color_bytes(std::min<int>(bytes, sizeof(uint32_t))),
          width(0),
          height(0) {
        if (bytes == 0 || stride == 0) return;
        width = std::clamp<int64_t>(canvas.Rect()->w, 0, stride / bytes);
        height = std::clamp<int64_t>(canvas.Rect()->h, 0, size / stride);
    }

    bool Contains(int64_t x, int64_t y) const {
        return x >= 0 && x < width && y >= 0 && y < height;
    }

    unsigned char* At(int64_t x, int64_t y) const { return data + y * stride + x * bytes; }

    void Put(unsigned char* at, uint32_t color) const { memcpy(at, &color, color_bytes); }

    void Set(int64_t x, int64_t y, uint32_t color) const {
        if (Contains(x, y)) Put(At(x, y), color);
    }
};

#endif
