// docs/examples/drawing.cpp
#include <hybase/hcutil/HCPainter.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

constexpr int kWidth = 320, kHeight = 240;

static uint32_t PixelAt(const HCanvas& canvas, int x, int y) {
    uint32_t pixel;
    memcpy(&pixel, canvas.Buffer() + y * canvas.Stride() + x * 4, sizeof pixel);
    return pixel;
}

// The frame of something found, cut to the canvas: a side that leaves it would be missing.
static void DrawFrame(HCPainter& painter, const HRect_t& box) {
    const int left = std::max(box.x, 0), right = std::min(box.x + box.w, kWidth);
    const int top = std::max(box.y, 0), bottom = std::min(box.y + box.h, kHeight);
    if (left < right && top < bottom) painter.DrawRect({left, top, right - left, bottom - top});
}

static void DrawShapes(HCPainter& painter) {
    // Two frames, and a region that people must not enter.
    painter.SetColor(0xFF4FC3F7, 0xFF22303C);
    painter.SetRectType(1);
    DrawFrame(painter, {40, 60, 160, 80});
    painter.SetRectType(0);
    DrawFrame(painter, {200, 160, 160, 60});

    const HPoint_t region[] = {{240, 60}, {300, 80}, {280, 140}, {230, 120}};
    painter.SetColor(0xFFE57373, 0xFF22303C);
    painter.DrawRegion(region, 4);

    painter.SetColor(0xFFECEFF1, 0xFF22303C);
    painter.DrawLine({40, 40}, {300, 40});
    painter.SetFontsize(32);
    painter.DrawIcon(ICON_SIGNAL, 3, 40, 180);
    painter.DrawIcon(ICON_WIFI, 2, 80, 180);
}

// The outline of the last text is that of all texts in its colour.
static void DrawLabels(HCPainter& painter) {
    painter.SetColor(0xFFFDFDFD, 0xFF22303C);
    painter.SetFontsize(32);
    painter.DrawText("Camera 1", 0, 0);  // the padding moves it to (8, 8)
    painter.SetBorder(1, 0xFF000000);
    painter.DrawText("12:34:56", 180, 0);
}

// Arguments: the two-byte font and the single-byte font. Without them no text is drawn.
int main(int argc, char** argv) {
    HSize_t screen = {kWidth, kHeight};
    HCanvas canvas;
    canvas.Create({0, 0, kWidth, kHeight}, {8, 8, 8, 8}, nullptr, &screen, nullptr);
    canvas.Clear();

    HCPainter painter;
    painter.SetCanvas(&canvas);
    DrawShapes(painter);
    if (argc == 3 && HCPainter::LoadFontFile(argv[1], argv[2]) == 0) DrawLabels(painter);

    const struct {
        int x, y;
        uint32_t color;
        const char* what;
    } pixels[] = {
        {40, 40, 0xFFECEFF1, "the line begins here"},
        {299, 41, 0xFFECEFF1, "and has two rows on a small canvas"},
        {300, 40, 0, "its end is not drawn"},
        {300, 42, 0, "and there is no third row"},
        {40, 60, 0xFF4FC3F7, "a corner of the first frame"},
        {58, 60, 0xFF4FC3F7, "the end of its arm, of 160 / 8 pixels"},
        {120, 60, 0, "between the corners"},
        {319, 200, 0xFF4FC3F7, "the right side of the other, at the edge"},
        {318, 200, 0, "it is one column wide there"},
        {240, 60, 0xFFE57373, "a corner of the region"},
        {43, 201, 0xFFECEFF1, "the first bar of the signal, lit"},
        {67, 185, 0xFF525252, "the fifth, unlit"},
        {40, 180, 0xFF22303C, "the background of the icon"},
        {95, 207, 0xFFECEFF1, "the dot of the wireless icon"},
    };
    int wrong = 0;
    for (const auto& pixel : pixels) {
        const uint32_t color = PixelAt(canvas, pixel.x, pixel.y);
        if (color == pixel.color) continue;
        printf("(%d, %d) is %08X, not %08X: %s\n", pixel.x, pixel.y, color, pixel.color,
               pixel.what);
        wrong++;
    }
    canvas.Destroy();
    return wrong == 0 ? 0 : 1;
}
