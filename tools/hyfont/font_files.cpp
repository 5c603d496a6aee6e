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
constexpr int kDelete = 127;  // has a place, but no shape

int WideBytes(int size) { return size / 8 * size; }
int NarrowBytes(int size) { return size * size / 16; }

void Count(FontSource::Result result, Summary* summary) {
    summary->characters++;
    if (result == FontSource::kMissing) summary->missing++;
    if (result == FontSource::kCut) summary->cut++;
}

void Append(std::string* file, const Cell& cell, int bytes) {
    std::string glyph(cell.rows.begin(), cell.rows.end());
    glyph.resize(bytes);
    *file += glyph;
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
    std::string file = kHeaderText;
    file.resize(kHeaderBytes);
    file[kSizeByte] = static_cast<char>(size);
    for (int high = kFirstCode; high < kFirstCode + kCodes; high++) {
        for (int low = kFirstCode; low < kFirstCode + kCodes; low++) {
            Cell cell(size, size);
            const uint32_t unicode = UnicodeOf(high, low);
            // A font by GB2312 leaves out the high bit of both bytes.
            const uint32_t code = font.IsGb2312() ? (high << 8 | low) & 0x7F7F : unicode;
            const FontSource::Result result =
                code != 0 ? font.Draw(code, &cell) : FontSource::kMissing;
            if (unicode != 0) Count(result, summary);
            Append(&file, cell, WideBytes(size));
        }
    }
    return file;
}

std::string BuildNarrow(FontSource& font, int size, Summary* summary) {
    std::string file;
    for (int code = kFirstNarrow; code < kEndNarrow; code++) {
        Cell cell(kNarrowColumns, size);
        if (code != kDelete) Count(font.Draw(code, &cell), summary);
        Append(&file, cell, NarrowBytes(size));
    }
    return file;
}

int WideSize(const std::string& file) {
    const int size = file.size() > kSizeByte ? static_cast<unsigned char>(file[kSizeByte]) : 0;
    return file.size() == kHeaderBytes + size_t(kCodes * kCodes) * WideBytes(size) ? size : 0;
}

int NarrowSize(const std::string& file) {
    for (int size = kMinSize; size <= kMaxSize; size += 8)
        if (file.size() == size_t(kEndNarrow - kFirstNarrow) * NarrowBytes(size)) return size;
    return 0;
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
