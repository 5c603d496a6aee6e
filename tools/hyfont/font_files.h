// The two font files of the painter: how they are built, and how their glyphs are found again.
#pragma once

#include <string>

#include "font_source.h"

namespace hyfont {

constexpr int kNarrowColumns = 8;  // of a single-byte glyph, whatever its size
constexpr int kMinSize = 16;       // below it the rows of single-byte glyphs would overlap
constexpr int kMaxSize = 248;      // the header has a byte for it

struct Summary {
    int characters = 0;  // that the file should have
    int missing = 0;     // in the font: blank
    int cut = 0;         // with dots outside their cell

    int Bad() const { return missing + cut; }
};

struct FontFile {
    std::string path;
    std::string content;
};

// The content of a file of `size` pixels, a multiple of 8.
std::string BuildWide(FontSource& font, int size, Summary* summary);
std::string BuildNarrow(FontSource& font, int size, Summary* summary);

// The glyph size of a file, found from its length; 0 when it is no font file of that kind.
int WideSize(const std::string& file);
int NarrowSize(const std::string& file);

// Why the painter cannot draw with these two files as a pair; empty when it can.
std::string Mismatch(const FontFile& cn, const FontFile& en);

// The glyphs of a text, one behind the other as rows of '#' and '.', each row ended by a newline.
// `wide`: the file is the two-byte font and the text is GB2312. Characters of the other font are
// left out.
std::string Show(const std::string& file, bool wide, const std::string& text);

}  // namespace hyfont
