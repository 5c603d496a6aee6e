#include "font_source.h"

#include FT_BDF_H

#include <stdlib.h>
#include <strings.h>

#include <algorithm>
#include <numeric>
#include <set>

namespace hyfont {

namespace {

constexpr int kInkThreshold = 128;  // of 255, for glyphs that come in shades of grey

bool IsInk(const FT_Bitmap& bitmap, int x, int y) {
    const unsigned char* row = bitmap.buffer + y * bitmap.pitch;
    if (bitmap.pixel_mode == FT_PIXEL_MODE_MONO) return (row[x / 8] >> (7 - x % 8) & 1) != 0;
    return bitmap.pixel_mode == FT_PIXEL_MODE_GRAY && row[x] >= kInkThreshold;
}

bool CountsByGb2312(FT_Face face) {
    const char* encoding = nullptr;
    const char* registry = nullptr;
    if (FT_Get_BDF_Charset_ID(face, &encoding, &registry) != 0 || registry == nullptr) return false;
    return strncasecmp(registry, "GB2312", 6) == 0;
}

std::string NameOf(FT_Face face) {
    if (face->family_name == nullptr) return "a nameless font";
    std::string name = face->family_name;
    if (face->style_name != nullptr) name += std::string(" ") + face->style_name;
    return name;
}

// One for every face of the file; none when it is no font.
std::vector<std::string> FaceNames(FT_Library library, const std::string& path) {
    std::vector<std::string> names;
    FT_Face face;
    for (int count = 1, i = 0; i < count; i++) {
        if (FT_New_Face(library, path.c_str(), i, &face) != 0) break;
        count = static_cast<int>(face->num_faces);
        names.push_back(NameOf(face));
        FT_Done_Face(face);
    }
    return names;
}

bool IsChinese(const std::string& name) { return (name + ' ').find(" SC ") != name.npos; }

std::string AddToList(const std::string& list, const std::string& word) {
    return list.empty() ? word : list + ", " + word;
}

}  // namespace

FontSource::~FontSource() {
    if (face_ != nullptr) FT_Done_Face(face_);
    if (library_ != nullptr) FT_Done_FreeType(library_);
}

std::string FontSource::Open(const std::string& path, int face, int size, int columns) {
    size_ = size;
    columns_ = columns;
    if (FT_Init_FreeType(&library_) != 0) return "FreeType does not start";
    const std::vector<std::string> names = FaceNames(library_, path);
    if (names.empty()) return "cannot open the font " + path;
    if (face == kChineseFace) {
        const auto chinese = std::find_if(names.begin(), names.end(), IsChinese);
        face = chinese != names.end() ? static_cast<int>(chinese - names.begin()) : 0;
    }
    if (face >= static_cast<int>(names.size())) {
        std::string list;
        for (size_t i = 0; i < names.size(); i++)
            list = AddToList(list, std::to_string(i) + " " + names[i]);
        return path + " has no face " + std::to_string(face) + ", only " + list;
    }
    name_ = names[face];
    if (FT_New_Face(library_, path.c_str(), face, &face_) != 0)
        return "cannot open the font " + path;
    gb2312_ = CountsByGb2312(face_);
    // Bitmap fonts of another registry (ISO 8859-1) have no Unicode map; their own holds ASCII.
    if (!gb2312_) FT_Select_Charmap(face_, FT_ENCODING_UNICODE);
    if (face_->charmap == nullptr && face_->num_charmaps > 0)
        FT_Set_Charmap(face_, face_->charmaps[0]);
    return SelectSize();
}

// A letter as wide as M takes all columns, a line from ascender to descender all rows.
void FontSource::FitOutlines() {
    if (FT_Load_Char(face_, 'M', FT_LOAD_TARGET_MONO) != 0) return;
    const int advance = std::max(static_cast<int>(face_->glyph->advance.x / 64), columns_);
    const FT_Size_Metrics& metrics = face_->size->metrics;
    const int line = std::max(static_cast<int>((metrics.ascender - metrics.descender) / 64), size_);
    FT_Set_Pixel_Sizes(face_, size_ * columns_ / advance, size_ * size_ / line);
}

std::string FontSource::SelectSize() {
    int strike = -1;
    std::set<int> sizes;  // FreeType finds bitmaps by either
    for (int i = 0; i < face_->num_fixed_sizes; i++) {
        const FT_Bitmap_Size& bitmaps = face_->available_sizes[i];
        if (bitmaps.height == size_) strike = i;
        sizes.insert({bitmaps.height, static_cast<int>(bitmaps.y_ppem / 64)});
    }
    if (strike >= 0 ? FT_Select_Size(face_, strike) != 0
                    : FT_Set_Pixel_Sizes(face_, 0, size_) != 0) {
        std::string list;
        for (const int size : sizes) list = AddToList(list, std::to_string(size));
        return "the font has no size of " + std::to_string(size_) + " pixels, only " + list;
    }
    if (strike < 0 && columns_ < size_) FitOutlines();
    const int ascender = face_->size->metrics.ascender / 64;
    const int descender = face_->size->metrics.descender / 64;
    baseline_ = (size_ + ascender + descender) / 2;
    return "";
}

bool FontSource::Render(uint32_t code) {
    dots_.clear();
    const FT_UInt index = code != 0 ? FT_Get_Char_Index(face_, code) : 0;
    if (index == 0) return false;
    if (FT_Load_Glyph(face_, index, FT_LOAD_RENDER | FT_LOAD_TARGET_MONO) != 0) return false;

    const FT_GlyphSlot slot = face_->glyph;
    for (int y = 0; y < static_cast<int>(slot->bitmap.rows); y++)
        for (int x = 0; x < static_cast<int>(slot->bitmap.width); x++)
            if (IsInk(slot->bitmap, x, y))
                dots_.push_back({slot->bitmap_left + x, y - slot->bitmap_top});
    return true;
}

void FontSource::FitBaseline(const std::vector<uint32_t>& codes) {
    // How many characters fit with each baseline; until they are summed up, how many more than
    // with the baseline above.
    std::vector<int> fitting(size_ + 2);
    for (const uint32_t code : codes) {
        Render(code);
        const auto outside = [this](const Dot& dot) { return dot.x < 0 || dot.x >= columns_; };
        if (dots_.empty() || std::any_of(dots_.begin(), dots_.end(), outside)) continue;
        // Dots come row by row.
        const int first = std::max(-dots_.front().y, 0);
        const int last = std::min(size_ - 1 - dots_.back().y, size_);
        if (first > last) continue;
        fitting[first]++;
        fitting[last + 1]--;
    }
    std::partial_sum(fitting.begin(), fitting.end(), fitting.begin());

    const int middle = baseline_;
    baseline_ = std::clamp(middle, 0, size_);
    for (int row = 0; row <= size_; row++) {
        const int gain = fitting[row] - fitting[baseline_];
        if (gain > 0 || (gain == 0 && abs(row - middle) < abs(baseline_ - middle))) baseline_ = row;
    }
}

FontSource::Result FontSource::Draw(uint32_t code, Cell* cell) {
    if (!Render(code)) return kMissing;
    Result result = kDrawn;
    for (const Dot& dot : dots_) {
        if (cell->Contains(dot.x, dot.y + baseline_))
            cell->Set(dot.x, dot.y + baseline_);
        else
            result = kCut;
    }
    return result;
}

}  // namespace hyfont
