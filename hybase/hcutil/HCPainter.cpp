#include "hybase/hcutil/HCPainter.h"

#include <limits.h>
#include <string.h>

#include <algorithm>
#include <string_view>

#include "hybase/hcutil/glyph_text.h"
#include "hybase/hcutil/icon_raster.h"
#include "hybase/hcutil/line_raster.h"
#include "hybase/hlog.h"

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(HCPainter) == 68, "layout on the device");
#endif

// People filter records by this name, which has no ending.
#define PAINTER_LOG(level, ...) \
    hlog_printf_ex(level, "hcutil/HCPainter", __func__, __LINE__, __VA_ARGS__)

namespace {

constexpr int kMaxLines = 20;
constexpr int64_t kSmallCanvasPixels = 720 * 576;
constexpr int kCornerMarks = 1;  // the other rectangle type is any other number
constexpr unsigned int kUnlitColor = 0xFF525252;

// The numbers of the interface have 32 bits; what does not fit is farther off than any canvas.
int Fit(int64_t value) { return static_cast<int>(std::clamp<int64_t>(value, INT_MIN, INT_MAX)); }

bool HasBuffer(const HCanvas* canvas) { return canvas != nullptr && canvas->Buffer() != nullptr; }

bool IsLarge(const HRect_t& rect) { return int64_t{rect.w} * rect.h > kSmallCanvasPixels; }

PixelPoint Scale(const HRect_t& rect, int ref_width, int ref_height, const HPoint_t& point) {
    return {int64_t{rect.w} * point.x / ref_width, int64_t{rect.h} * point.y / ref_height};
}

PixelPoint KeepOffPadding(const PixelPoint& point, const HArea_t& padding) {
    return {std::max<int64_t>(point.x, padding.left), std::max<int64_t>(point.y, padding.top)};
}

int64_t TextWidth(std::string_view text, int font_size) {
    const int64_t size = font_size != 0 ? font_size : 16;
    int64_t width = 0;
    for (size_t i = 0; i < text.size(); i++) {
        const bool wide = static_cast<unsigned char>(text[i]) >= 128;
        width += wide ? size : size / 2;
        if (wide) i++;
    }
    return width;
}

struct TextLines {
    std::string_view line[kMaxLines];
    int count = 0;    // -1 for a text of too many lines
    int longest = 0;  // index; by bytes, and the first one of the same length

    void Add(std::string_view text) {
        line[count] = text;
        if (text.size() > line[longest].size()) longest = count;
        count++;
    }
};

// 20 lines that all end in "\n" are already too many; a 20th that ends the text is not.
TextLines SplitLines(std::string_view text) {
    text = text.substr(0, kMaxTextBytes);
    TextLines lines;
    for (size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) {
        if (lines.count == kMaxLines) break;
        lines.Add(text.substr(0, end));
    }
    if (lines.count == kMaxLines) {
        lines.count = -1;
        return lines;
    }
    if (!text.empty()) lines.Add(text);
    return lines;
}

}  // namespace

HCPainter::HCPainter()
    : m_pCanvas(nullptr),
      m_ptRef{},
      m_nRefWidth(0),
      m_nRefHeight(0),
      m_nBgColor(0),
      m_nTextColor(0xFF000000),
      m_nBorderColor(0),
      m_nBorderWidth(0),
      m_nFontSize(32),
      m_nLineWidth(1),
      m_nColorMask(0),
      m_nEndX(0),
      m_nEndY(0),
      m_nRectType(0),
      m_nLineType(0),
      m_nFillColor(0) {}

HCPainter::~HCPainter() = default;

int HCPainter::LoadFontFile(const std::string& cnFontPath, const std::string& enFontPath) {
    FontFile en;
    if (!en.Open(enFontPath.c_str())) {
        PAINTER_LOG(HLOG_LEVEL_ERR, "Open en font failed, file:%s...\n", enFontPath.c_str());
        return -1;
    }
    if (!en.Map()) {
        PAINTER_LOG(HLOG_LEVEL_ERR, "mmap failed...\n");
        return -1;
    }
    FontFile cn;
    if (!cn.Open(cnFontPath.c_str())) {
        PAINTER_LOG(HLOG_LEVEL_ERR, "Open cn font failed, file:%s...\n", cnFontPath.c_str());
        return -1;
    }
    if (!cn.Map()) {
        PAINTER_LOG(HLOG_LEVEL_ERR, "mmap failed...\n");
        return -1;
    }
    return BitmapFonts::Use(cn, en) ? 0 : -1;
}

int HCPainter::SetCanvas(HCanvas* canvas) {
    m_pCanvas = canvas;
    if (canvas == nullptr) return 0;
    m_nRefWidth = canvas->Rect()->w;
    m_nRefHeight = canvas->Rect()->h;
    m_nLineWidth = IsLarge(*canvas->Rect()) ? 5 : 2;
    const int bits = std::clamp(canvas->ColorBit(), 0, 32);
    m_nColorMask = static_cast<unsigned int>((uint64_t{1} << bits) - 1);
    return 0;
}

int HCPainter::SetRefCoords(const HPoint_t& origin, int refWidth, int refHeight) {
    m_ptRef = origin;
    m_nRefWidth = refWidth;
    m_nRefHeight = refHeight;
    return 0;
}

int HCPainter::SetColor(unsigned int textColor, unsigned int bgColor) {
    m_nTextColor = m_pCanvas != nullptr ? m_pCanvas->ConvertColor(textColor) : textColor;
    m_nBgColor = m_pCanvas != nullptr ? m_pCanvas->ConvertColor(bgColor) : bgColor;
    return 0;
}

int HCPainter::SetBorder(int width, unsigned int color) {
    m_nBorderWidth = width;
    m_nBorderColor = m_pCanvas != nullptr ? m_pCanvas->ConvertColor(color) : color;
    return 0;
}

int HCPainter::SetFontsize(int size) {
    m_nFontSize = size;
    return 0;
}

int HCPainter::SetLineWidth(int width) {
    m_nLineWidth = width;
    return 0;
}

int HCPainter::SetLineType(int type) {
    m_nLineType = type;
    return 0;
}

int HCPainter::SetRectType(int type) {
    m_nRectType = type;
    return 0;
}

int HCPainter::SetFillColor(unsigned int color) {
    m_nFillColor = color;
    return 0;
}

HSize_t HCPainter::BuildTextSize(const std::string& text, const HArea_t& margin, int /*reserved*/,
                                 int fontSize) {
    const TextLines lines = SplitLines(text);
    if (lines.count < 0) PAINTER_LOG(HLOG_LEVEL_ERR, "Too many string lines\n");
    const int64_t width = TextWidth(lines.line[lines.longest], fontSize);
    const int64_t line_height = int64_t{fontSize} + margin.top + margin.bottom;
    return {Fit(width + margin.left + margin.right), Fit(lines.count * line_height)};
}

int HCPainter::DrawText(const std::string& text, int x, int y) {
    if (!HasBuffer(m_pCanvas)) {
        PAINTER_LOG(HLOG_LEVEL_ERR, "canvas is NULL\n");
        return -1;
    }
    const TextLines lines = SplitLines(text);
    if (lines.count < 0) PAINTER_LOG(HLOG_LEVEL_ERR, "Too many string lines\n");
    if (m_nRefWidth == 0 || m_nRefHeight == 0) return -1;

    const HArea_t& padding = *m_pCanvas->Padding();
    const PixelPoint scaled = Scale(*m_pCanvas->Rect(), m_nRefWidth, m_nRefHeight, {x, y});
    const PixelPoint start = KeepOffPadding(scaled, padding);
    m_nEndX = Fit(start.x + TextWidth(text, m_nFontSize));
    m_nEndY = Fit(start.y);
    if (m_pCanvas->ColorBit() < 8) {
        PAINTER_LOG(HLOG_LEVEL_WARN, "not support\n");
        return 0;
    }
    if (lines.count < 0) return 0;

    const Pixels pixels(*m_pCanvas);
    const BitmapFonts* fonts = BitmapFonts::Current();
    const TextColors colors = {m_nTextColor & m_nColorMask, m_nBgColor & m_nColorMask};
    const int64_t line_height = int64_t{m_nFontSize} + padding.top + padding.bottom;
    for (int i = 0; i < lines.count; i++) {
        if (fonts == nullptr)
            PAINTER_LOG(HLOG_LEVEL_ERR, "ERROR: font not init successfully\n");
        else
            DrawGlyphLine(pixels, *fonts, lines.line[i], start.x, start.y + i * line_height,
                          m_nFontSize, colors);
    }
    if (m_nBorderWidth > 0)
        DrawOutline(pixels, m_nFontSize, colors.text, m_nBorderColor & m_nColorMask);
    return 0;
}

int HCPainter::GetEndPos(int& x, int& y) {
    x = m_nEndX;
    y = m_nEndY;
    return 0;
}

int HCPainter::Clear() {
    if (HasBuffer(m_pCanvas) && m_pCanvas->BufferSize() > 0)
        memset(m_pCanvas->Buffer(), 0, m_pCanvas->BufferSize());
    return 0;
}

int HCPainter::DrawBMP(const std::string& /*path*/, int /*x*/, int /*y*/) { return 0; }

int HCPainter::DrawBMP(const unsigned char* /*data*/, int /*w*/, int /*h*/, int /*stride*/) {
    return 0;
}

int HCPainter::DrawLine(const HPoint_t& from, const HPoint_t& to) {
    if (!HasBuffer(m_pCanvas)) {
        PAINTER_LOG(HLOG_LEVEL_ERR, "canvas is NULL\n");
        return -1;
    }
    if (m_nRefWidth == 0 || m_nRefHeight == 0) return -1;

    const HRect_t& rect = *m_pCanvas->Rect();
    const PixelPoint start = Scale(rect, m_nRefWidth, m_nRefHeight, from);
    const PixelPoint end = Scale(rect, m_nRefWidth, m_nRefHeight, to);
    // The kind of line is that of the points given, not that of the pixels they fall on.
    const auto draw = from.x == to.x   ? DrawVerticalLine
                      : from.y == to.y ? DrawHorizontalLine
                                       : DrawSlopedLine;
    draw(Pixels(*m_pCanvas), start, end, IsLarge(rect), m_nTextColor & m_nColorMask);
    return 0;
}

int HCPainter::DrawRect(const HRect_t& rect) {
    return m_nRectType == kCornerMarks ? drawRectMini(rect) : drawRect(rect);
}

int HCPainter::drawRect(const HRect_t& rect) {
    const int right = Fit(int64_t{rect.x} + rect.w - 1);
    const int bottom = Fit(int64_t{rect.y} + rect.h - 1);
    DrawLine({rect.x, rect.y}, {right, rect.y});
    DrawLine({right, rect.y}, {right, bottom});
    DrawLine({right, bottom}, {rect.x, bottom});
    DrawLine({rect.x, bottom}, {rect.x, rect.y});
    return 0;
}

int HCPainter::drawRectMini(const HRect_t& rect) {
    // Of the width in both directions: the arms of a corner are alike.
    const int64_t arm = rect.w / 8;
    const int right = Fit(int64_t{rect.x} + rect.w - 1);
    const int bottom = Fit(int64_t{rect.y} + rect.h - 1);
    const int arm_right = Fit(rect.x + arm - 1);  // where the arms of the left corners end
    const int arm_left = Fit(int64_t{rect.x} + rect.w - arm);
    const int arm_down = Fit(rect.y + arm - 1);
    const int arm_up = Fit(int64_t{rect.y} + rect.h - arm);
    DrawLine({rect.x, rect.y}, {arm_right, rect.y});
    DrawLine({arm_left, rect.y}, {right, rect.y});
    DrawLine({right, rect.y}, {right, arm_down});
    DrawLine({right, arm_up}, {right, bottom});
    DrawLine({rect.x, bottom}, {arm_right, bottom});
    DrawLine({arm_left, bottom}, {right, bottom});
    DrawLine({rect.x, rect.y}, {rect.x, arm_down});
    DrawLine({rect.x, arm_up}, {rect.x, bottom});
    return 0;
}

int HCPainter::DrawRegion(const HPoint_t* points, int count) {
    if (points == nullptr) return 0;
    for (int i = 0; i < count; i++) DrawLine(points[i], points[i + 1 < count ? i + 1 : 0]);
    return 0;
}

int HCPainter::DrawIcon(HCPainterIcon_e icon, int value, int x, int y) {
    if (!HasBuffer(m_pCanvas)) {
        PAINTER_LOG(HLOG_LEVEL_ERR, "canvas is NULL\n");
        return -1;
    }
    const unsigned int unlit = m_pCanvas->ConvertColor(kUnlitColor);
    const PixelPoint at = KeepOffPadding({x, y}, *m_pCanvas->Padding());
    const IconColors colors = {m_nTextColor & m_nColorMask, unlit & m_nColorMask,
                               m_nBgColor & m_nColorMask};
    switch (icon) {
        case ICON_NUMBER:
            // In pixels by now, but taken for coordinates of the reference space: kept so.
            DrawText(std::to_string(value), Fit(at.x), Fit(at.y));
            break;
        case ICON_SIGNAL:
        case ICON_WIFI:
            DrawIconBitmap(Pixels(*m_pCanvas), icon == ICON_SIGNAL ? kSignalIcon : kWifiIcon, at.x,
                           at.y, m_nFontSize, value & 0xFF, colors);
            break;
        default:
            PAINTER_LOG(HLOG_LEVEL_WARN, "not support\n");
    }
    m_nEndX = Fit(at.x + 2);
    m_nEndY = Fit(at.y);
    return 0;
}
