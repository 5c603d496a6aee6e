#include "font_files.h"

#include <string.h>

#include "gb2312.h"

namespace hyfont {

namespace {

constexpr char kHeaderText[] = "HYFONTCN";  // only byte 9 is ever read, the rest is for people
constexpr int kHeaderBytes = 16;
constexpr int kSizeByte = 9;
constexpr int kFirstNarrow = 32;
constexpr int kEndNarrow = 128;
constexpr int kDelete = 127;  // the last; has a place, but no shape

int WideBytes(int size) { return size / 8 * size; }
int NarrowBytes(int size) { return size * size / 16; }
size_t WideFileBytes(int size) { return kHeaderBytes + size_t(kCodes * kCodes) * WideBytes(size); }
size_t NarrowFileBytes(int size) { return size_t(kEndNarrow - kFirstNarrow) * NarrowBytes(size); }

bool IsSize(int size) { return size % 8 == 0 && size >= kMinSize && size <= kMaxSize; }
int HeaderSize(const std::string& file) { return static_cast<unsigned char>(file[kSizeByte]); }

struct Character {
    uint32_t code;  // in the font; 0: none
    bool expected;  // in any font
};

void Count(FontSource::Result result, Summary* summary) {
    summary->characters++;
    if (result == FontSource::kMissing) summary->missing++;
    if (result == FontSource::kCut) summary->cut++;
}

// The glyphs of these characters, `bytes` apart.
std::string DrawAll(FontSource& font, const std::vector<Character>& characters, int columns,
                    int size, int bytes, Summary* summary) {
    std::vector<uint32_t> codes;
    codes.reserve(characters.size());
    for (const Character& character : characters) codes.push_back(character.code);
    font.FitBaseline(codes);
    std::string glyphs;
    for (const Character& character : characters) {
        Cell cell(columns, size);
        const FontSource::Result result = font.Draw(character.code, &cell);
        if (character.expected) Count(result, summary);
        cell.rows.resize(bytes);
        glyphs.append(cell.rows.begin(), cell.rows.end());
    }
    return glyphs;
}

// The glyph of the character that begins at *at, which is moved behind it.
Cell NextGlyph(const std::string& file, bool wide, int size, const std::string& text, size_t* at) {
    const int first = static_cast<unsigned char>(text[(*at)++]);
    const bool pair = first >= kFirstCode && *at < text.size();
    const int second = pair ? static_cast<unsigned char>(text[(*at)++]) : 0;
    if (pair != wide) return Cell(0, size);

    Cell cell(wide ? size : kNarrowColumns, size);
    size_t offset = 0;
    if (wide)
        offset = kHeaderBytes +
                 ((first - kFirstCode) * kCodes + second - kFirstCode) * size_t(WideBytes(size));
    else if (first >= kFirstNarrow)
        offset = (first - kFirstNarrow) * size_t(NarrowBytes(size));
    if (offset + cell.rows.size() <= file.size())
        memcpy(cell.rows.data(), file.data() + offset, cell.rows.size());
    return cell;
}

}  // namespace

std::string BuildWide(FontSource& font, int size, Summary* summary) {
    std::string header = kHeaderText;
    header.resize(kHeaderBytes);
    header[kSizeByte] = static_cast<char>(size);
    std::vector<Character> characters;
    for (int high = kFirstCode; high < kFirstCode + kCodes; high++) {
        for (int low = kFirstCode; low < kFirstCode + kCodes; low++) {
            const uint32_t unicode = UnicodeOf(high, low);
            // A font by GB2312 leaves out the high bit of both bytes.
            const uint32_t code = font.IsGb2312() ? (high << 8 | low) & 0x7F7F : unicode;
            characters.push_back({code, unicode != 0});
        }
    }
    return header + DrawAll(font, characters, size, size, WideBytes(size), summary);
}

std::string BuildNarrow(FontSource& font, int size, Summary* summary) {
    std::vector<Character> characters;
    for (uint32_t code = kFirstNarrow; code < kDelete; code++) characters.push_back({code, true});
    characters.push_back({0, false});
    return DrawAll(font, characters, kNarrowColumns, size, NarrowBytes(size), summary);
}

int WideSize(const std::string& file) {
    const int size = file.size() > kSizeByte ? HeaderSize(file) : 0;
    return IsSize(size) && file.size() == WideFileBytes(size) ? size : 0;
}

int NarrowSize(const std::string& file) {
    for (int size = kMinSize; size <= kMaxSize; size += 8)
        if (file.size() == NarrowFileBytes(size)) return size;
    return 0;
}

std::string Mismatch(const FontFile& cn, const FontFile& en) {
    const auto length = [](const FontFile& file, const char* kind, int size, size_t bytes) {
        return file.path + " has " + std::to_string(file.content.size()) + " bytes, a " + kind +
               " font of " + std::to_string(size) + " pixels has " + std::to_string(bytes);
    };
    if (NarrowSize(cn.content) != 0 && WideSize(en.content) != 0)
        return cn.path + " is a single-byte font: name the two-byte font first";
    if (cn.content.size() < kHeaderBytes)
        return cn.path + " is no two-byte font: it is shorter than the header";
    const int size = HeaderSize(cn.content);
    if (!IsSize(size))
        return cn.path + " is no two-byte font: byte 9 of its header, the size, is " +
               std::to_string(size) + " and not a multiple of 8 from 16 to 248";
    if (WideSize(cn.content) == 0) return length(cn, "two-byte", size, WideFileBytes(size));
    const int narrow_size = NarrowSize(en.content);
    if (narrow_size == 0) return length(en, "single-byte", size, NarrowFileBytes(size));
    if (narrow_size != size)
        return cn.path + " has " + std::to_string(size) + " pixels, " + en.path + " has " +
               std::to_string(narrow_size) + ": build both with one --size";
    return "";
}

std::string Show(const std::string& file, bool wide, const std::string& text) {
    const int size = wide ? WideSize(file) : NarrowSize(file);
    std::vector<std::string> rows(size);
    for (size_t at = 0; at < text.size();) {
        const Cell cell = NextGlyph(file, wide, size, text, &at);
        for (int y = 0; y < size; y++)
            for (int x = 0; x < cell.width; x++) rows[y] += cell.IsSet(x, y) ? '#' : '.';
    }
    std::string shown;
    for (const std::string& row : rows) shown += row + '\n';
    return shown;
}

}  // namespace hyfont
