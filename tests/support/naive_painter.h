// What HCPainter has to leave in a canvas, worked out one pixel after the other, and a canvas that
// ends the process when anything beside its pixels is touched.
#ifndef HYBASE_TESTS_NAIVE_PAINTER_H
#define HYBASE_TESTS_NAIVE_PAINTER_H

#include <hybase/hcutil/HCPainter.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>
#include <string>

// Its buffer ends (or begins) where a page begins (or ends) that nobody may touch.
class GuardedCanvas : public HCanvas {
  public:
    GuardedCanvas(int w, int h, int bits, const HArea_t& padding, bool guard_behind) {
        m_rect = {0, 0, w, h};
        m_padding = padding;
        m_nColorBit = bits;
        m_nStride = w * 4;
        m_nBufferSize = h * m_nStride;
        const size_t page = 4096, body = (m_nBufferSize + page - 1) / page * page;
        mapped_ = body + 2 * page;
        map_ = static_cast<unsigned char*>(
            mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        m_pBuffer = map_ + page + (guard_behind ? body - m_nBufferSize : 0);
        mprotect(map_, page, PROT_NONE);
        mprotect(map_ + page + body, page, PROT_NONE);
    }
    ~GuardedCanvas() override { munmap(map_, mapped_); }

    // What is converted, and what is not, shows in the pixels.
    unsigned int ConvertColor(unsigned int color) override { return color ^ 0x00010000; }

  private:
    unsigned char* map_;
    size_t mapped_;
};

struct NaivePainter {
    using Int = long long;

    Int w = 0, h = 0, pixel = 0;  // pixel: its bytes
    std::string bytes;            // the canvas
    std::string cn, en;           // the font files
    HArea_t padding{};
    HSize_t ref{};
    uint32_t text = 0, back = 0, border = 0;
    Int size = 0;
    bool outlined = false;

    static int At(const std::string& in, Int at) {
        return at < Int(in.size()) ? static_cast<unsigned char>(in[at]) : 0;
    }
    bool Inside(Int x, Int y) const { return x >= 0 && x < w && y >= 0 && y < h; }
    Int Offset(Int x, Int y) const { return y * w * 4 + x * pixel; }
    void Put(Int x, Int y, uint32_t color) {
        if (Inside(x, y)) memcpy(&bytes[Offset(x, y)], &color, pixel);
    }

    bool Dot(int high, int low, Int row, Int k) const {
        const Int n = At(cn, 9), row_bytes = n / 8;
        if (n == 0 || (high < 128 && k >= 8)) return false;
        if (high < 128)
            return At(en, (std::max(high, 32) - 32) * (n * n / 16) + row) >> (7 - k) & 1;
        if (std::min(high, low) < 161 || std::max(high, low) > 254) return false;
        const Int glyph = 16 + ((high - 161) * 94 + low - 161) * row_bytes * n;
        return At(cn, glyph + row * row_bytes + k / 8) >> (7 - k % 8) & 1;
    }

    void Text(const std::string& all, Int ref_x, Int ref_y) {
        const Int left = std::max<Int>(w * ref_x / ref.w, padding.left), n = At(cn, 9);
        Int x = left, y = std::max<Int>(h * ref_y / ref.h, padding.top);
        for (size_t i = 0; i < all.size(); i++) {
            const int high = At(all, i);
            if (high == '\n') {
                x = left;
                y += size + padding.top + padding.bottom;
                continue;
            }
            const bool pair = high >= 128 && i + 1 < all.size() && all[i + 1] != '\n';
            const int low = pair ? At(all, ++i) : 0;
            const Int width = high < 128 ? size / 2 : size;
            for (Int r = 0; r < size; r++)
                for (Int c = 0; c < width; c++)
                    Put(x + c, y + r, Dot(high, low, r * n / size, c * n / size) ? text : back);
            x += width;
        }
        for (Int row = 0; outlined && row < h - 1; row++)
            for (Int offset = 0; offset<w * 4 - 1; offset += size> 16 ? pixel : 1)
                if (IsText(row * w * 4 + offset)) Surround(row, offset);
    }

    bool IsText(Int at) const {
        return at >= 0 && at + pixel <= Int(bytes.size()) && memcmp(&bytes[at], &text, pixel) == 0;
    }
    void Border(Int at) {
        if (at >= 0 && at + pixel <= Int(bytes.size())) memcpy(&bytes[at], &border, pixel);
    }
    void Surround(Int row, Int offset) {
        const Int stride = w * 4;
        for (Int dy = row > 0 ? -1 : 0; dy <= 1; dy++) {
            for (Int dx = -1; dx <= 1; dx++) {
                const Int step = dy * stride + dx * pixel, at = row * stride + offset + step;
                const bool thick = size > 16, up = dx == 0 && dy < 0, down = dx == 0 && dy > 0;
                const Int elsewhere = (row + 1) * stride + offset * pixel;
                if (step == 0 || IsText(down && !thick ? elsewhere : at)) continue;
                Border(at);
                const bool across = dy == 0 && (dx < 0 ? offset > 1 : offset + 2 * pixel < stride);
                if ((thick && (across || (up && row >= 2))) || (down && row + 2 < h))
                    Border(at + step);
            }
        }
    }

    void Line(HPoint_t from, HPoint_t to) {
        const bool large = w * h > 720 * 576;
        const Int x1 = w * from.x / ref.w, y1 = h * from.y / ref.h;
        const Int x2 = w * to.x / ref.w, y2 = h * to.y / ref.h;
        if (!Inside(x1, y1) || !Inside(x2, y2)) return;
        if (from.x == to.x) {
            const bool edge = x1 >= w - 3 || (large && x1 < 3);
            for (Int y = std::min(y1, y2); y < std::max(y1, y2); y++)
                for (Int dx = -2; dx <= 2; dx++)
                    if (dx == 0 || (!edge && (large || dx == 1))) Put(x1 + dx, y, text);
        } else if (from.y == to.y) {
            for (Int x = std::min(x1, x2); x <= std::max(x1, x2); x++) {
                if (x < std::max(x1, x2)) Put(x, y1, text);
                uint32_t copy = 0;
                memcpy(&copy, &bytes[Offset(x, y1)], pixel);
                for (Int dy : {-2, -1, 1, 2})
                    if (large || dy == 1) Put(x, y1 + dy, copy);
            }
        } else if (x1 != x2) {
            x1 < x2 ? Slope(x1, y1, x2, y2, large ? 5 : 2) : Slope(x2, y2, x1, y1, large ? 5 : 2);
        }
    }

    // volatile: every product and sum is rounded to a float of its own.
    void Slope(Int x1, Int y1, Int x2, Int y2, int thick) {
        const volatile float k = float(y2 - y1) / float(x2 - x1);
        const volatile float rise = float(x1) * k, b = float(y1) - rise;
        const auto row = [&](Int x) {
            const volatile float product = float(x) * k, y = b + product;
            return Int(y);
        };
        for (Int x = x1; x <= x2; x++) {
            for (Int j = x - thick / 2; j <= x - thick / 2 + thick - 1; j++) {
                const bool shallow = -1 < k && k < 1;
                if (shallow) Put(x, row(x) + (j - x), text);
                if (shallow || !Inside(j, row(x))) continue;
                const Int next = row(x < x2 ? x + 1 : x);
                for (Int y = std::min(row(x), next); y <= std::max(row(x), next); y++)
                    Put(j, y, text);
            }
        }
    }

    static int IconLevel(HCPainterIcon_e icon, int row, int column) {
        const int bar = (column + 2) / 3;
        if (icon == ICON_SIGNAL)
            return column % 3 != 0 && row < 12 && row >= 12 - 2 * bar ? bar : 0;
        // The arcs are symmetric: the left halves of their rows 3 to 13.
        const std::string half =
            ".....444....4444...44.....44..33.44..333....33.....33..2......22"
            ".....22................1";
        const char cell = row < 3 ? '.' : At(half, (row - 3) * 8 + std::min(column, 15 - column));
        return cell >= '1' ? cell - '0' : 0;
    }

    void Icon(HCPainterIcon_e icon, int value, Int x, Int y) {
        x = std::max<Int>(x, padding.left);
        y = std::max<Int>(y, padding.top);
        // A number is text at reference coordinates, though its place is given in pixels.
        if (icon == ICON_NUMBER) Text(std::to_string(value), x, y);
        for (Int r = 0; r < size && icon != ICON_NUMBER; r++) {
            for (Int c = 0; c < size; c++) {
                const int level = IconLevel(icon, r * 16 / size, c * 16 / size);
                const uint32_t color = level > (value & 255) ? 0xFF535252 : text;
                Put(x + c, y + r, level == 0 ? back : color);
            }
        }
    }
};

#endif
