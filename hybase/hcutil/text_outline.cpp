#include "hybase/hcutil/glyph_text.h"

namespace {

constexpr int kThinOutlineSize = 16;  // the largest font size that is outlined thinly

// Works on byte offsets, because the thin outline does not keep to whole pixels. The buffer is
// changed while it is scanned, and what follows sees the change: a border of the text colour is
// outlined in its turn.
class Outline {
  public:
    Outline(const Pixels& pixels, uint32_t text_color, uint32_t border_color)
        : pixels_(pixels), text_(text_color), border_(border_color) {}

    void Draw(bool thin) const {
        const ptrdiff_t stride = pixels_.stride;
        const int step = thin ? 1 : pixels_.bytes;
        for (int64_t row = 0; row < pixels_.height - 1; row++) {
            const ptrdiff_t begin = row * stride;
            const ptrdiff_t end = begin + stride - 1;
            for (ptrdiff_t at = begin; (at = FindText(at, end, step)) < end; at += step) {
                if (thin)
                    SurroundThin(row, at - begin);
                else
                    Surround(row, at - begin);
            }
        }
    }

  private:
    // Outside the buffer nothing is text.
    bool IsText(ptrdiff_t at) const {
        return at >= 0 && at <= pixels_.size - pixels_.color_bytes &&
               memcmp(pixels_.data + at, &text_, pixels_.color_bytes) == 0;
    }

    // The first place of text from `at` on in steps of `step`, or one not before `end`.
    ptrdiff_t FindText(ptrdiff_t at, ptrdiff_t end, int step) const {
        if (pixels_.color_bytes != sizeof text_) {
            while (at < end && !IsText(at)) at += step;
            return at;
        }
        // A pixel's first byte lies before the last byte of a row that is not the last one: all of
        // it lies in the buffer.
        for (; at < end; at += step) {
            uint32_t pixel;
            memcpy(&pixel, pixels_.data + at, sizeof pixel);
            if (pixel == text_) break;
        }
        return at;
    }

    void Set(ptrdiff_t at) const {
        if (at >= 0 && at <= pixels_.size - pixels_.color_bytes)
            pixels_.Put(pixels_.data + at, border_);
    }

    bool SetIfNotText(ptrdiff_t at) const {
        if (IsText(at)) return false;
        Set(at);
        return true;
    }

    // Two pixels in the four directions, one at the corners. The outer ones are set whatever they
    // are, text included.
    void Surround(int64_t row, ptrdiff_t offset) const {
        const ptrdiff_t stride = pixels_.stride;
        const ptrdiff_t pixel = pixels_.bytes;
        const ptrdiff_t at = row * stride + offset;
        if (row > 0) {
            SetIfNotText(at - stride - pixel);
            if (SetIfNotText(at - stride) && row > 1) Set(at - 2 * stride);
            SetIfNotText(at - stride + pixel);
        }
        if (SetIfNotText(at - pixel) && offset > 1) Set(at - 2 * pixel);
        if (SetIfNotText(at + pixel) && offset + 2 * pixel < stride) Set(at + 2 * pixel);
        SetIfNotText(at + stride - pixel);
        if (SetIfNotText(at + stride) && row + 2 < pixels_.height) Set(at + 2 * stride);
        SetIfNotText(at + stride + pixel);
    }

    // One pixel all around, two below, found at every byte. What decides about the pixels below is
    // looked for a whole pixel on for every byte of the offset, which is right for pixels of one
    // byte only; pictures rely on it, so it stays.
    void SurroundThin(int64_t row, ptrdiff_t offset) const {
        const ptrdiff_t stride = pixels_.stride;
        const ptrdiff_t pixel = pixels_.bytes;
        const ptrdiff_t at = row * stride + offset;
        if (row > 0) {
            SetIfNotText(at - stride - pixel);
            SetIfNotText(at - stride);
            SetIfNotText(at - stride + pixel);
        }
        SetIfNotText(at - pixel);
        SetIfNotText(at + pixel);
        SetIfNotText(at + stride - pixel);
        if (!IsText(at - offset + stride + offset * pixel)) {
            Set(at + stride);
            if (row + 2 < pixels_.height) Set(at + 2 * stride);
        }
        SetIfNotText(at + stride + pixel);
    }

    const Pixels& pixels_;
    const uint32_t text_;
    const uint32_t border_;
};

}  // namespace

void DrawOutline(const Pixels& pixels, int font_size, uint32_t text_color, uint32_t border_color) {
    Outline(pixels, text_color, border_color).Draw(font_size <= kThinOutlineSize);
}
