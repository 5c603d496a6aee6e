// Compiled without fused multiply-add, so that a slope gives the same pixels on every machine.
#include "hybase/hcutil/line_raster.h"

#include <float.h>

#include <utility>

static_assert(FLT_EVAL_METHOD == 0, "slopes are computed in single precision, step by step");

namespace {

// A line y = intercept + slope * x through the columns from_x < to_x.
struct Slope {
    float slope;
    float intercept;

    Slope(PixelPoint from, PixelPoint to)
        : slope(static_cast<float>(to.y - from.y) / static_cast<float>(to.x - from.x)),
          intercept(static_cast<float>(from.y) - static_cast<float>(from.x) * slope) {}

    bool IsShallow() const { return -1 < slope && slope < 1; }
    int64_t RowAt(int64_t x) const {
        return static_cast<int64_t>(intercept + static_cast<float>(x) * slope);
    }
};

void CopyRun(const Pixels& pixels, int64_t x, size_t count, int64_t from_row, int64_t to_row) {
    if (to_row < 0 || to_row >= pixels.height) return;
    memcpy(pixels.At(x, to_row), pixels.At(x, from_row), count * pixels.bytes);
}

// Closes the gap between the row of one column and the row of the next.
void FillColumn(const Pixels& pixels, int64_t x, int64_t y1, int64_t y2, uint32_t color) {
    if (y1 > y2) std::swap(y1, y2);
    for (int64_t y = std::max<int64_t>(y1, 0); y <= std::min(y2, pixels.height - 1); y++)
        pixels.Set(x, y, color);
}

}  // namespace

void DrawVerticalLine(const Pixels& pixels, PixelPoint from, PixelPoint to, bool large,
                      uint32_t color) {
    const int64_t x = from.x;
    if (!pixels.Contains(x, from.y) || !pixels.Contains(x, to.y)) return;
    int64_t left = x;
    int64_t right = x;
    if (x < pixels.width - 3) {
        if (!large) {
            right = x + 1;
        } else if (x >= 3) {
            left = x - 2;
            right = x + 2;
        }
    }
    for (int64_t y = std::min(from.y, to.y); y < std::max(from.y, to.y); y++)
        for (int64_t column = left; column <= right; column++) pixels.Set(column, y, color);
}

void DrawHorizontalLine(const Pixels& pixels, PixelPoint from, PixelPoint to, bool large,
                        uint32_t color) {
    const int64_t y = from.y;
    if (!pixels.Contains(from.x, y) || !pixels.Contains(to.x, y)) return;
    const int64_t left = std::min(from.x, to.x);
    const int64_t length = std::max(from.x, to.x) - left;
    for (int64_t i = 0; i < length; i++) pixels.Set(left + i, y, color);

    // One pixel more than was drawn: the rows beside get at their end what this row has there.
    CopyRun(pixels, left, length + 1, y, y + 1);
    if (!large) return;
    CopyRun(pixels, left, length + 1, y, y + 2);
    CopyRun(pixels, left, length + 1, y, y - 1);
    CopyRun(pixels, left, length + 1, y, y - 2);
}

void DrawSlopedLine(const Pixels& pixels, PixelPoint from, PixelPoint to, bool large,
                    uint32_t color) {
    if (!pixels.Contains(from.x, from.y) || !pixels.Contains(to.x, to.y)) return;
    if (from.x == to.x) return;
    if (from.x > to.x) std::swap(from, to);

    const int thickness = large ? 5 : 2;
    const Slope line(from, to);
    for (int64_t x = from.x; x <= to.x; x++) {
        const int64_t y = line.RowAt(x);
        for (int64_t j = -(thickness / 2); j < thickness - thickness / 2; j++) {
            if (line.IsShallow()) {
                pixels.Set(x, y + j, color);
            } else if (pixels.Contains(x + j, y)) {
                pixels.Set(x + j, y, color);
                if (x < to.x) FillColumn(pixels, x + j, y, line.RowAt(x + 1), color);
            }
        }
    }
}
