#include <gtest/gtest.h>
#include <hybase/hlog.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <random>
#include <vector>

#include "support/naive_painter.h"

using Lines = std::vector<std::string>;

static Lines g_log;  // "[LEVEL][HCPainter][function] message"

static Lines TakeLog() { return std::exchange(g_log, {}); }

static std::string TempFile(const char* name, const std::string& content) {
    const std::string path = "painter_test." + std::string(name);
    unlink(path.c_str());  // it may be mapped
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

// A painter and the naive one, with the same settings over the same random pixels.
struct Painter : testing::Test {
    std::mt19937 random{1};
    std::unique_ptr<GuardedCanvas> canvas;
    HCPainter painter;
    NaivePainter naive;

    Painter() {
        const hlogParam_t all = {0, HLOG_LEVEL_ALL, 0, "", 0, 0};
        hlog_set_param(&all);
        hlog_regirst([](const char* text, int32_t) {
            g_log.emplace_back(text);
            const size_t line = g_log.back().find(':');
            g_log.back().erase(line, g_log.back().find(']', line) - line);
        });
    }

    int Pick(int low, int high) { return low + int(random() % unsigned(high - low + 1)); }
    uint32_t PickColor() {
        const uint32_t colors[] = {0xFFFFFFFF, 0xFF000000, 0xFF00FF00, 0x00FFFFFF, 0x01010101, 0};
        return colors[Pick(0, 5)];
    }
    std::string PickText() {
        std::string text;
        for (int left = Pick(0, 12); left > 0; left--) {
            const int kind = Pick(0, 9);
            if (kind < 5) text += static_cast<char>(Pick(32, 127));
            if (kind >= 5 && kind < 8) text += {char(Pick(0xA0, 0xFF)), char(Pick(0xA0, 0xFF))};
            if (kind == 8) text += Pick(0, 1) == 0 ? "\n" : "\xFF\xB0";
            if (kind == 9) text += static_cast<char>(Pick(0, 255));
        }
        return text;
    }

    // Fonts of random dots.
    void LoadFonts(int size, size_t cn_length, size_t en_length) {
        naive.cn.resize(cn_length);
        naive.en.resize(en_length);
        for (std::string* font : {&naive.cn, &naive.en})
            for (char& c : *font) c = static_cast<char>(Pick(0, 255));
        if (cn_length > 9) naive.cn[9] = static_cast<char>(size);
        EXPECT_EQ(HCPainter::LoadFontFile(TempFile("cn", naive.cn), TempFile("en", naive.en)), 0);
    }

    void Begin(int w, int h, int bits, const HArea_t& padding) {
        canvas = std::make_unique<GuardedCanvas>(w, h, bits, padding, Pick(0, 1) == 0);
        naive.w = w;
        naive.h = h;
        naive.pixel = bits / 8;
        naive.padding = padding;
        naive.bytes.assign(canvas->BufferSize(), ' ');
        for (int at = 0; at < canvas->BufferSize(); at += 4 * Pick(1, 20)) {
            const uint32_t color = canvas->ConvertColor(PickColor());
            memcpy(&naive.bytes[at], &color, sizeof color);
        }
        memcpy(canvas->Buffer(), naive.bytes.data(), naive.bytes.size());
        painter.SetCanvas(canvas.get());
        naive.ref = {w, h};
        Set(32, false);
    }
    void Scale(int w, int h) {
        naive.ref = {w, h};
        painter.SetRefCoords({5, 6}, w, h);
    }
    void Set(int size, bool outlined) {
        const uint32_t text = PickColor(), back = PickColor(), border = PickColor();
        naive.text = canvas->ConvertColor(text);
        naive.back = canvas->ConvertColor(back);
        naive.border = canvas->ConvertColor(border);
        naive.size = size;
        naive.outlined = outlined;
        painter.SetColor(text, back);
        painter.SetBorder(outlined, border);
        painter.SetFontsize(size);
    }
    void Text(const std::string& text, int x, int y) {
        naive.Text(text, x, y);
        EXPECT_EQ(painter.DrawText(text, x, y), 0);
    }
    void PickLine(int kind) {
        HPoint_t from = {Pick(-2, naive.ref.w + 1), Pick(-2, naive.ref.h + 1)};
        HPoint_t to = {Pick(0, naive.ref.w), Pick(0, naive.ref.h)};
        if (kind % 3 == 0)
            to.x = from.x = kind % 2 ? from.x : Pick(0, 1) * naive.ref.w + Pick(-4, 3);
        if (kind % 3 == 1)
            to.y = from.y = kind % 2 ? from.y : Pick(0, 1) * naive.ref.h + Pick(-3, 3);
        if (kind % 6 == 5) to.x = from.x + Pick(-20, 20);  // steep
        naive.Line(from, to);
        EXPECT_EQ(painter.DrawLine(from, to), 0);
    }
    bool Same() const {
        return memcmp(canvas->Buffer(), naive.bytes.data(), naive.bytes.size()) == 0;
    }
    std::string End() {
        int x = 0, y = 0;
        painter.GetEndPos(x, y);
        return std::to_string(x) + "," + std::to_string(y);
    }
};

// The first test: there are no fonts yet.
TEST_F(Painter, WhatCannotBeDrawnIsLogged) {
    HCanvas empty;
    for (HCanvas* none : {&empty, static_cast<HCanvas*>(nullptr)}) {
        painter.SetCanvas(none);
        EXPECT_EQ(painter.Clear(), 0);
        EXPECT_EQ(painter.DrawRegion(std::vector<HPoint_t>(1).data(), 1), 0);
        EXPECT_EQ(painter.DrawText("a", 0, 0), -1);
        EXPECT_EQ(painter.DrawIcon(ICON_WIFI, 1, 0, 0), -1);
        EXPECT_EQ(TakeLog(), Lines({"[ERR][HCPainter][DrawLine] canvas is NULL\n",
                                    "[ERR][HCPainter][DrawText] canvas is NULL\n",
                                    "[ERR][HCPainter][DrawIcon] canvas is NULL\n"}));
    }
    Begin(90, 60, 32, {});
    Set(32, true);
    EXPECT_EQ(painter.DrawText(std::string(20, '\n'), 8, 9), 0);
    EXPECT_EQ(End(), "328,9");
    EXPECT_EQ(painter.DrawIcon(HCPainterIcon_e(7), 0, 1, 2), 0);
    EXPECT_EQ(painter.DrawBMP("/x.bmp", 1, 1), 0);
    EXPECT_EQ(painter.DrawBMP(nullptr, 1, 1, 4), 0);
    for (const HSize_t ref : {HSize_t{0, 60}, {90, 0}}) {
        painter.SetRefCoords({}, ref.w, ref.h);
        EXPECT_EQ(painter.DrawText("a", 1, 1), -1);
        EXPECT_EQ(painter.DrawLine({0, 0}, {0, 9}), -1);
    }
    EXPECT_EQ(End(), "3,2");  // of the icon
    EXPECT_TRUE(Same());
    Scale(90, 60);
    Text("", 0, 0);
    EXPECT_EQ(painter.DrawText("a\nb\n", 0, 0), 0);
    EXPECT_TRUE(Same());  // an outline of what was there

    GuardedCanvas shallow(10, 10, 7, {}, true);
    painter.SetCanvas(&shallow);
    EXPECT_EQ(painter.DrawText("abc", 1, 1), 0);
    EXPECT_EQ(painter.DrawLine({0, 0}, {5, 5}), 0);
    EXPECT_EQ(painter.DrawIcon(ICON_SIGNAL, 1, 1, 1), 0);
    EXPECT_EQ(TakeLog(), Lines({"[ERR][HCPainter][DrawText] Too many string lines\n",
                                "[WARN][HCPainter][DrawIcon] not support\n",
                                "[ERR][HCPainter][DrawText] ERROR: font not init successfully\n",
                                "[ERR][HCPainter][DrawText] ERROR: font not init successfully\n",
                                "[WARN][HCPainter][DrawText] not support\n"}));
}

TEST_F(Painter, TextAndIconsAreThoseOfTheRules) {
    const size_t fonts[][3] = {{16, 290000, 1536}, {24, 636208, 3456}, {40, 1767216, 9600},
                               {12, 99999, 800},   {255, 500000, 99},  {16, 40960, 700},
                               {7, 16, 1},         {0, 99, 99},        {16, 9, 1536}};
    for (const auto& font : fonts) {
        LoadFonts(font[0], font[1], font[2]);
        for (int i = 0; i < 80; i++) {
            Begin(Pick(1, 150), Pick(1, 90), 8 * Pick(1, 4),
                  {Pick(-9, 9), Pick(-9, 9), Pick(-9, 9), Pick(-9, 9)});
            Set(i == 0 ? 300 : Pick(8, i % 2 ? 24 : 64), i % 2);
            Scale(Pick(50, 200), Pick(50, 200));
            const auto icon = HCPainterIcon_e(1 + i / 2 % 3);
            const int value = i < 60 ? i / 10 : Pick(-300, 300), x = Pick(-20, 90),
                      y = Pick(-20, 60);
            naive.Icon(icon, value, x, y);
            EXPECT_EQ(painter.DrawIcon(icon, value, x, y), 0);
            Text(PickText(), Pick(-40, 160), Pick(-40, 80));
            ASSERT_TRUE(Same()) << "font of " << font[0] << ", round " << i;
        }
    }
}

TEST_F(Painter, LinesAreThoseOfTheRules) {
    const int canvases[][2] = {{720, 576}, {1, 1},     {9, 7},    {50, 40},
                               {800, 519}, {5, 90000}, {90000, 5}};
    for (const auto& [w, h] : canvases) {
        const bool tiny = w * h < 10000;
        for (int round = 0; round < (tiny ? 40 : 1); round++) {
            Begin(w, h, tiny ? 8 * Pick(1, 4) : 32, {});
            if (round % 2 == 1) Scale(Pick(10, 80), Pick(10, 80));
            for (int i = 0; i < (tiny ? 10 : 150); i++) PickLine(i);
            ASSERT_TRUE(Same()) << w << " x " << h << ", round " << round;
        }
    }
}

TEST_F(Painter, RectanglesAndRegionsAreMadeOfLines) {
    Begin(800, 600, 32, {});
    const auto expect_lines = [&](const std::vector<int>& ends) {
        for (size_t i = 0; i < ends.size(); i += 4)
            naive.Line({ends[i], ends[i + 1]}, {ends[i + 2], ends[i + 3]});
        EXPECT_TRUE(Same());
    };
    painter.SetRectType(2);
    EXPECT_EQ(painter.DrawRect({30, 40, 80, 40}), 0);
    expect_lines({30, 40, 109, 40, 109, 40, 109, 79, 109, 79, 30, 79, 30, 79, 30, 40});
    painter.SetRectType(1);
    EXPECT_EQ(painter.DrawRect({300, 100, 87, 140}), 0);
    expect_lines({300, 100, 309, 100, 377, 100, 386, 100, 386, 100, 386, 109, 386, 230, 386, 239,
                  300, 239, 309, 239, 377, 239, 386, 239, 300, 100, 300, 109, 300, 230, 300, 239});
    const HPoint_t region[] = {{500, 500}, {700, 520}, {600, 590}};
    for (int count : {3, 1, -1}) EXPECT_EQ(painter.DrawRegion(region, count), 0);
    EXPECT_EQ(painter.DrawRegion(nullptr, 2), 0);
    expect_lines({500, 500, 700, 520, 700, 520, 600, 590, 600, 590, 500, 500});
}

TEST_F(Painter, EndPositionsAreThoseOfOneLongLine) {
    LoadFonts(16, 40000, 1536);
    Begin(100, 80, 32, {3, 4, 5, 6});
    painter.DrawText("A", 20, 10);
    EXPECT_EQ(End(), "36,10");
    painter.SetFontsize(15);
    painter.DrawText("ab\ncd\xB0\xA1\xB0", 0, -7);
    EXPECT_EQ(End(), "68,4");
    painter.SetFontsize(0);  // measured as 16
    Scale(200, 40);
    painter.DrawText(std::string(1100, 'x') + "\xB0\xA1", 21, 11);
    EXPECT_EQ(End(), "8826,22");
    painter.DrawIcon(ICON_NUMBER, -42, 30, 9);
    EXPECT_EQ(End(), "32,9");
}

TEST_F(Painter, BoxesAreMeasuredByTheLongestLine) {
    const std::string nineteen(19, '\n');
    const struct {
        std::string text;
        int size, w, h;
    } boxes[] = {
        {"ab\nxyz", 16, 28, 44},
        {"", 16, 4, 0},
        {"abc\n\n", 17, 28, 46},
        {"\xB0\xA1\xB0\xA1\nabcd", 11, 26, 34},  // of the same length: the first
        {std::string(2000, 'a'), 3, 1027, 9},    // cut
        {nineteen + "abc", 2, 7, 160},
        {nineteen + "\n", 8, 4, -14},
        {nineteen + "ab\nabc", 8, 12, -14},
        {std::string(1023, 'a'), INT32_MAX, INT32_MAX, INT32_MAX},
    };
    for (const auto& box : boxes) {
        const HSize_t size = HCPainter::BuildTextSize(box.text, {1, 2, 3, 4}, 7, box.size);
        EXPECT_EQ(size.w, box.w) << box.text;
        EXPECT_EQ(size.h, box.h) << box.text;
    }
    EXPECT_EQ(TakeLog(), Lines(2, "[ERR][HCPainter][BuildTextSize] Too many string lines\n"));
}

TEST_F(Painter, FontsThatCannotBeLoadedLeaveTheFormerOnes) {
    LoadFonts(16, 40000, 1536);
    const std::string good = TempFile("good", "font"), empty = TempFile("empty", ""),
                      no = "/no/font";
    const std::string failures[][3] = {{good, no, "Open en font failed, file:/no/font...\n"},
                                       {no, empty, "mmap failed...\n"},
                                       {no, good, "Open cn font failed, file:/no/font...\n"},
                                       {empty, good, "mmap failed...\n"}};
    for (const auto& [cn, en, record] : failures) {
        EXPECT_EQ(HCPainter::LoadFontFile(cn, en), -1);
        EXPECT_EQ(TakeLog(), Lines{"[ERR][HCPainter][LoadFontFile] " + record});
    }
    Begin(90, 60, 32, {});
    Text("abc", 1, 1);
    EXPECT_TRUE(Same());
}

// The largest and smallest numbers: nothing is written outside, nothing overflows.
TEST_F(Painter, NumbersBeyondEveryCanvasAreHarmless) {
    const int numbers[] = {INT32_MIN, INT32_MIN + 1, -1, 0, 1, 40, INT32_MAX};
    for (int i = 0; i < 49; i++) {
        const int a = numbers[i / 7], b = numbers[i % 7];
        Begin(33, 31, 32, {a, 0, b, a});
        Set(b, true);
        if (b == 40) *canvas->Rect() = {0, 0, 40, 40};  // more than its buffer holds
        painter.SetRectType(i % 2);
        for (const HSize_t ref : {HSize_t{33, 31}, {a | 1, b | 1}}) {
            painter.SetRefCoords({a, b}, ref.w, ref.h);
            painter.DrawText("a\xB0\xA1\nb", b, a);
            painter.DrawIcon(i % 2 ? ICON_SIGNAL : ICON_NUMBER, a, b, a);
            painter.DrawIcon(ICON_WIFI, a, 20, 20);
            painter.DrawLine({a, b}, {b, a});
            painter.DrawRect({a, b, b, a});
        }
        HCPainter::BuildTextSize("\xB0\xA1\n", {a, b, a, b}, a, b);
    }
}

// Where glyphs are twice their size, no outline reaches past a gap into other text: it may be drawn
// once, with the last text.
TEST_F(Painter, OneOutlineServesAllTextsOfAColour) {
    LoadFonts(16, 282768, 1536);
    for (const int size : {32, 48, 64}) {
        GuardedCanvas screens[] = {{600, 340, 32, {}, true}, {600, 340, 32, {}, true}};
        for (GuardedCanvas& screen : screens) {
            painter.SetCanvas(&screen);
            painter.SetColor(0xFFFDFDFD, 0xFF22303C);
            painter.SetFontsize(size);
            for (int i = 0; i < 4; i++) {
                painter.SetBorder(i == 3 || &screen == screens, 0xFF000000);
                painter.DrawText("Text \xB0\xA1\xC4\xE3 " + std::to_string(i), 9,
                                 9 + i * (size + 5));
            }
        }
        EXPECT_EQ(memcmp(screens[0].Buffer(), screens[1].Buffer(), screens[0].BufferSize()), 0)
            << size;
    }
}

// Whole pictures, the same on every machine.
TEST_F(Painter, PicturesKeepTheirChecksums) {
    struct OpenPainter : HCPainter {
        using HCPainter::m_nLineWidth;
    };
    LoadFonts(16, 282768, 1536);
    const unsigned pictures[][4] = {
        {576, 16, 2, 0x35560537}, {576, 24, 2, 0x74832ec8}, {577, 33, 5, 0x75a0f321}};
    for (const auto& [height, size, line_width, checksum] : pictures) {
        GuardedCanvas screen(720, height, 32, {4, 2, 4, 2}, true);
        OpenPainter artist;
        artist.SetCanvas(&screen);
        EXPECT_EQ(artist.m_nLineWidth, int(line_width));
        memset(screen.Buffer(), 1, screen.BufferSize());
        artist.Clear();
        artist.SetRefCoords({}, 100, 100);
        artist.DrawText("32", 70, 10);  // in the colours and the size set at first
        artist.SetColor(0xFFFEFFFF, 0xFF204060);
        artist.SetFontsize(size);
        for (int x = 1; x < 100; x += 7) artist.DrawLine({50, 50}, {x, x % 2 * 98});
        artist.DrawText("Hybase 1\n\xB0\xA1\xC4\xE3\xBA\xC3", 5, 5);
        artist.DrawIcon(ICON_SIGNAL, 3, 200, 100);
        artist.DrawRect({60, 60, 30, 30});
        artist.SetBorder(1, 0xFF000000);
        artist.DrawText("outlined", 5, 60);
        uint32_t sum = 2166136261;
        for (int i = 0; i < screen.BufferSize(); i++) sum = (sum ^ screen.Buffer()[i]) * 16777619;
        EXPECT_EQ(sum, checksum) << std::hex << sum;
    }
}
