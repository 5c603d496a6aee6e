#include "hybase/hcutil/HCCsv.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>
#include <new>

#include "hybase/hcutil/whole_file.h"
#include "hybase/hlog.h"

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(HCCsv) == 16, "layout on the device");
#endif

namespace {

// Where the records say they come from. File and lines are part of the interface (people filter
// logs by them), so they are named here instead of following the code about.
constexpr char kLogFile[] = "hcutil/HCCsv";
constexpr char kLogFunction[] = "";
constexpr int32_t kLineCounted = 51;
constexpr int32_t kLineOpen = 107;
constexpr int32_t kLineMalloc = 115;
constexpr int32_t kLineFormat = 128;
constexpr int32_t kLineRange = 164;

int OpenFailed(const char* path) {
    hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, kLogFunction, kLineOpen, "csv open failed: %s\n",
                   path != nullptr ? path : "");
    return -1;
}

int32_t Count(const char* begin, const char* end, char c) {
    int32_t count = 0;
    while (const void* found = memchr(begin, c, end - begin)) {
        begin = static_cast<const char*>(found) + 1;
        ++count;
    }
    return count;
}

// An uninitialised block, null if memory is short. Getting fresh memory in small pages takes longer
// than reading the text into it, so large blocks ask for large pages.
void* NewBlock(size_t count, size_t item_size) {
    constexpr size_t kLarge = 4 << 20;
    constexpr size_t kAlign = 64 << 10;  // a multiple of any page size
    void* block = reallocarray(nullptr, count, item_size);
    if (block == nullptr || count * item_size < kLarge) return block;
    const size_t skipped = -reinterpret_cast<uintptr_t>(block) & (kAlign - 1);
    const size_t whole_pages = (count * item_size - skipped) & ~(kAlign - 1);
    madvise(static_cast<char*>(block) + skipped, whole_pages, MADV_HUGEPAGE);
    return block;
}

// Terminates the fields from `field` to `end` in place. Stores them from `cell` on, those that are
// too many left out, and returns where the next line's cells begin.
char** SplitLine(char* field, char* end, char** cell, int32_t cols) {
    if (end > field && end[-1] == '\r') --end;
    *end = '\0';
    for (int32_t left = cols; left > 0; --left) {
        *cell++ = field;
        auto* comma = static_cast<char*>(memchr(field, ',', end - field));
        if (comma == nullptr) break;
        *comma = '\0';
        field = comma + 1;
    }
    return cell;
}

}  // namespace

HCCsv::HCCsv() : data(nullptr), cells(nullptr), rows(0), cols(0) {}

HCCsv::~HCCsv() { Close(); }

int HCCsv::Open(const char* path) {
    Close();
    const WholeFile file(path, WholeFile::kRegular);
    if (!file.IsOpen()) return OpenFailed(path);
    // Two bytes more: for a line feed that the last line lacks, and for the terminator.
    data = static_cast<char*>(NewBlock(file.Size() + 2, 1));
    if (data == nullptr) {
        hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, kLogFunction, kLineMalloc, "malloc failed: %d\n",
                       errno);
        return -1;
    }
    ssize_t size = file.Read(data, file.Size());
    if (size < 0) {
        Close();
        return OpenFailed(path);
    }
    if (size > 0 && data[size - 1] != '\n') data[size++] = '\n';
    data[size] = '\0';

    if (parseCsv() == 0) return 0;
    hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, kLogFunction, kLineFormat, "csv format error\n");
    Close();
    return -1;
}

int HCCsv::Close() {
    if (cells != nullptr) free(cells[0]);
    free(cells);
    free(data);
    cells = nullptr;
    data = nullptr;
    return 0;
}

int HCCsv::parseCsv() {
    if (data == nullptr || cells != nullptr) return -1;
    rows = 0;
    const char* const first_end = strchrnul(data, '\n');
    const char* end = first_end;
    for (; *end != '\0'; end = strchrnul(end + 1, '\n')) ++rows;
    cols = Count(data, first_end, ',') + 1;
    hlog_printf_ex(HLOG_LEVEL_TRACE, kLogFile, kLogFunction, kLineCounted,
                   "parseCsv: row: %d, col:%d\n", rows, cols);
    if (rows == 0) return -1;
    return Split(end - data);
}

// Every field has a separator behind it, so there are never more cells than bytes, however many
// columns a long first line announces for short ones.
int HCCsv::Split(size_t length) {
    const auto grid = static_cast<uint64_t>(rows) * static_cast<uint64_t>(cols);
    auto** block = static_cast<char**>(NewBlock(std::min<uint64_t>(grid, length), sizeof(char*)));
    cells = static_cast<char***>(NewBlock(static_cast<size_t>(rows) + 1, sizeof(char**)));
    if (block == nullptr || cells == nullptr) {
        free(block);
        free(cells);
        cells = nullptr;
        return -1;
    }
    cells[0] = block;
    char* line = data;
    for (int32_t row = 0; row < rows; ++row) {
        auto* end = static_cast<char*>(rawmemchr(line, '\n'));
        cells[row + 1] = SplitLine(line, end, cells[row], cols);
        line = end + 1;
    }
    return 0;
}

int HCCsv::GetRowCnt() { return rows; }

int HCCsv::GetColumnCnt() { return cols; }

int HCCsv::getrow(const char* name) {
    if (name == nullptr || cells == nullptr) return -1;
    for (int32_t row = 0; row < rows; ++row)
        if (strcmp(cells[row][0], name) == 0) return row + 1;
    return -1;
}

int HCCsv::getcol(const char* name) {
    if (name == nullptr || cells == nullptr) return -1;
    for (int32_t col = 0; col < cols; ++col)
        if (strcmp(cells[0][col], name) == 0) return col + 1;
    return -1;
}

std::string& HCCsv::GetValue(int row, int col, std::string& value) {
    value.clear();
    if (cells == nullptr || row < 1 || row > rows || col < 1 || col > cols) {
        hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, kLogFunction, kLineRange,
                       "row:%d not in[1,%d], col:%d not in[1,%d]\n", row, rows, col, cols);
        return value;
    }
    if (col > cells[row] - cells[row - 1]) return value;  // the line is too short
    try {
        value = cells[row - 1][col - 1];
    } catch (const std::bad_alloc&) {
        value.clear();
    }
    return value;
}

std::string& HCCsv::GetValue(const char* row_name, const char* col_name, std::string& value) {
    return GetValue(getrow(row_name), getcol(col_name), value);
}

std::string& HCCsv::GetValue(const char* row_name, int col, std::string& value) {
    return GetValue(getrow(row_name), col, value);
}

std::string& HCCsv::GetValue(int row, const char* col_name, std::string& value) {
    return GetValue(row, getcol(col_name), value);
}
