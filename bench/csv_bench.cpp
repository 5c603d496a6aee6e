// Reading a CSV file of 64 MB. Ours always ends with a table in memory in which every cell can be
// asked for. The peers hand over one field after the other: once these are counted and forgotten,
// once they are kept as the table that a program which asks for cells would make of them.
#include <csv.h>
#include <hybase/hcutil/HCCsv.h>
#include <libfccp/csv.h>
#include <stdio.h>
#include <string.h>

#include <array>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "compare.h"

namespace {

constexpr int kColumns = 20;
constexpr size_t kFileBytes = 64 << 20;
constexpr char kFieldByField[] = "CSV, 64 MB, 20 columns; peers forget the fields";
constexpr char kTable[] = "CSV, 64 MB, 20 columns; peers keep a table";

// How many fields there are, and how many bytes they have without their separators.
struct Content {
    size_t fields = 0;
    size_t bytes = 0;

    bool operator==(const Content& other) const {
        return fields == other.fields && bytes == other.bytes;
    }
};

// What the peers do with the fields they find.
class Counter {
  public:
    void Field(const char*, size_t length) {
        ++content_.fields;
        content_.bytes += length;
    }
    void EndRow() {}
    Content Found() const { return content_; }

  private:
    Content content_;
};

class Table {
  public:
    void Field(const char* text, size_t length) { row_.emplace_back(text, length); }
    void EndRow() {
        rows_.push_back(std::move(row_));
        row_.clear();
        row_.reserve(kColumns);
    }
    Content Found() const {
        Content content;
        for (const auto& row : rows_) {
            content.fields += row.size();
            for (const auto& field : row) content.bytes += field.size();
        }
        return content;
    }

  private:
    std::vector<std::string> row_;
    std::vector<std::vector<std::string>> rows_;
};

struct CsvFile {
    std::string path;
    std::string text;
    Content content;
    std::string last_cell;
};

// Fields of 1 to 15 characters without white space, which one of the peers would take off.
std::string MakeText(CsvFile* file) {
    constexpr char kCharacters[] = "0123456789.-abcdefghijklmnopqrstuvwxyz_";
    std::mt19937 random(1);
    std::string text;
    text.reserve(kFileBytes + kColumns * 16);
    while (text.size() < kFileBytes) {
        for (int column = 0; column < kColumns; ++column) {
            const size_t begin = text.size();
            const size_t length = 1 + random() % 15;
            for (size_t i = 0; i < length; ++i)
                text += kCharacters[random() % (sizeof kCharacters - 1)];
            ++file->content.fields;
            file->content.bytes += length;
            file->last_cell = text.substr(begin);
            text += column + 1 < kColumns ? ',' : '\n';
        }
    }
    return text;
}

CsvFile MakeFile(const std::string& path) {
    CsvFile file;
    file.path = path;
    file.text = MakeText(&file);
    std::ofstream(path, std::ios::binary) << file.text;
    return file;
}

void Hybase(benchmark::State& state, const CsvFile& file) {
    for (auto _ : state) {
        HCCsv csv;
        const bool opened = csv.Open(file.path.c_str()) == 0;
        state.PauseTiming();
        std::string last;
        const auto cells = size_t(csv.GetRowCnt()) * size_t(csv.GetColumnCnt());
        csv.GetValue(csv.GetRowCnt(), csv.GetColumnCnt(), last);
        Require(state, opened && cells == file.content.fields && last == file.last_cell,
                "wrong table");
        state.ResumeTiming();
    }
}

// One pass of a peer over the whole file: Read::Into(sink, file).
template <class Read, class Sink>
void Peer(benchmark::State& state, const CsvFile& file) {
    for (auto _ : state) {
        Sink sink;
        Read::Into(sink, file);
        state.PauseTiming();
        Require(state, sink.Found() == file.content, "wrong content");
        state.ResumeTiming();
    }
}

struct Libcsv {
    template <class Sink>
    static void Into(Sink& sink, const CsvFile& file) {
        csv_parser parser;
        csv_init(&parser, 0);
        auto on_field = [](void* text, size_t length, void* to) {
            static_cast<Sink*>(to)->Field(static_cast<const char*>(text), length);
        };
        auto on_row = [](int, void* to) { static_cast<Sink*>(to)->EndRow(); };
        std::unique_ptr<FILE, int (*)(FILE*)> stream(fopen(file.path.c_str(), "rb"), fclose);
        static char block[64 << 10];
        while (const size_t got = fread(block, 1, sizeof block, stream.get()))
            csv_parse(&parser, block, got, on_field, on_row, &sink);
        csv_fini(&parser, on_field, on_row, &sink);
        csv_free(&parser);
    }
};

// Reads the next block on a thread of its own while the last one is taken apart.
struct FastCppCsvParser {
    template <class Sink>
    static void Into(Sink& sink, const CsvFile& file) {
        io::CSVReader<kColumns, io::trim_chars<>> reader(file.path);
        std::array<char*, kColumns> row;
        while (std::apply([&](auto&... field) { return reader.read_row(field...); }, row)) {
            for (const char* field : row) sink.Field(field, strlen(field));
            sink.EndRow();
        }
    }
};

// Lines and fields both by std::getline.
struct Getline {
    template <class Sink>
    static void Into(Sink& sink, const CsvFile& file) {
        std::ifstream stream(file.path, std::ios::binary);
        std::istringstream fields;
        std::string field;
        for (std::string line; std::getline(stream, line);) {
            fields.clear();
            fields.str(line);
            while (std::getline(fields, field, ',')) sink.Field(field.data(), field.size());
            sink.EndRow();
        }
    }
};

// Lines by std::getline, split by hand.
struct GetlineAndFind {
    template <class Sink>
    static void Into(Sink& sink, const CsvFile& file) {
        std::ifstream stream(file.path, std::ios::binary);
        for (std::string line; std::getline(stream, line);) {
            size_t begin = 0, comma;
            while ((comma = line.find(',', begin)) != std::string::npos) {
                sink.Field(line.data() + begin, comma - begin);
                begin = comma + 1;
            }
            sink.Field(line.data() + begin, line.size() - begin);
            sink.EndRow();
        }
    }
};

// Nothing but a search for each separator, the text being in memory already.
struct Scan {
    template <class Sink>
    static void Into(Sink& sink, const CsvFile& file) {
        const char* const text_end = file.text.data() + file.text.size();
        for (const char* begin = file.text.data(); begin < text_end;) {
            const auto* end = static_cast<const char*>(rawmemchr(begin, '\n'));
            while (const void* found = memchr(begin, ',', end - begin)) {
                const auto* comma = static_cast<const char*>(found);
                sink.Field(begin, comma - begin);
                begin = comma + 1;
            }
            sink.Field(begin, end - begin);
            begin = end + 1;
        }
    }
};

template <class Body>
void Add(const char* what, const char* who, const CsvFile& file, Body body, double goal = 0) {
    auto measured = [&file, body](benchmark::State& state) {
        body(state, file);
        state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(file.text.size()));
    };
    Compare(what, who, measured, goal)->Unit(benchmark::kMillisecond);
}

template <class Sink>
void AddAll(const char* what, const CsvFile& file) {
    Add(what, kOurs, file, Hybase);
    Add(what, "libcsv", file, Peer<Libcsv, Sink>, 0.5);
    Add(what, "fast-cpp-csv-parser", file, Peer<FastCppCsvParser, Sink>, 0.667);
    Add(what, "std::getline", file, Peer<Getline, Sink>, 0.667);
    Add(what, "std::getline and find", file, Peer<GetlineAndFind, Sink>, 0.667);
}

}  // namespace

int main(int argc, char** argv) {
    const TempFolder folder;
    const CsvFile file = MakeFile(folder / "table.csv");
    AddAll<Counter>(kFieldByField, file);
    AddAll<Table>(kTable, file);
    Add(kFieldByField, "(limit) memchr, text in memory", file, Peer<Scan, Counter>);
    return RunComparisons(argc, argv);
}
