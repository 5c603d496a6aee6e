// 40 Latin characters at 32 pixels on a large canvas, beside filling the same pixels with one
// colour.

#include <hybase/hcutil/HCPainter.h>
#include <stdint.h>
#include <stdio.h>

#include <algorithm>

#include "compare.h"

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kFontSize = 32;
constexpr int kCharacters = 40;
constexpr int kLeft = 100;
constexpr int kTop = 200;

// A pair of fonts of 16 pixels whose glyphs have something in every row.
bool MakeFonts(const TempFolder& folder) {
    std::string cn(16 + 94 * 94 * 32, '\x5A');
    cn[9] = 16;
    const std::string en(96 * 16, '\x3C');
    for (const auto& [name, content] : {std::pair{"cn", cn}, std::pair{"en", en}}) {
        FILE* file = fopen((folder / name).c_str(), "wb");
        if (file == nullptr) return false;
        fwrite(content.data(), 1, content.size(), file);
        fclose(file);
    }
    return HCPainter::LoadFontFile(folder / "cn", folder / "en") == 0;
}

void DrawText(benchmark::State& state, HCanvas& canvas) {
    HCPainter painter;
    painter.SetCanvas(&canvas);
    painter.SetColor(0xFFFFFFFF, 0xFF000000);
    painter.SetFontsize(kFontSize);
    const std::string text(kCharacters, 'H');
    for (auto _ : state) {
        painter.DrawText(text, kLeft, kTop);
        benchmark::ClobberMemory();
    }
    int x = 0;
    int y = 0;
    painter.GetEndPos(x, y);
    Require(state, x == kLeft + kCharacters * kFontSize / 2, "the text has another width");
}

void FillBox(benchmark::State& state, HCanvas& canvas) {
    for (auto _ : state) {
        for (int row = kTop; row < kTop + kFontSize; row++) {
            auto* pixels = reinterpret_cast<uint32_t*>(canvas.Buffer() + row * canvas.Stride());
            std::fill_n(pixels + kLeft, kCharacters * kFontSize / 2, 0xFFFFFFFF);
        }
        benchmark::ClobberMemory();
    }
}

}  // namespace

int main(int argc, char** argv) {
    TempFolder folder;
    if (!MakeFonts(folder)) return 1;
    HCanvas canvas;
    HSize_t screen = {kWidth, kHeight};
    canvas.Create({0, 0, kWidth, kHeight}, {0, 0, 0, 0}, nullptr, &screen, nullptr);
    canvas.Clear();
    const std::string what = "40 characters at 32 px";
    Compare(what, kOurs, [&](benchmark::State& state) { DrawText(state, canvas); });
    Compare(
        what, "(limit) filling the same box",
        [&](benchmark::State& state) { FillBox(state, canvas); }, 4);
    const int status = RunComparisons(argc, argv);
    canvas.Destroy();
    return status;
}
