// hyfont: builds the painter's bitmap fonts and shows what is in them.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <iterator>

#include "font_files.h"
#include "gb2312.h"

namespace {

enum ExitStatus { kSucceeded = 0, kFailed = 1, kBadUsage = 3 };

constexpr char kUsage[] =
    "usage: hyfont cn [--size N] FONT OUT   build the two-byte font (GB2312)\n"
    "       hyfont en [--size N] FONT OUT   build the single-byte font (codes 32 to 127)\n"
    "       hyfont show FILE TEXT           print the glyphs of a text, UTF-8\n"
    "\n"
    "FONT is anything FreeType opens: BDF, PCF (gzipped, too), TrueType. N is the height in "
    "pixels\n"
    "and, for cn, the width: a multiple of 8 from 16 to 248, 16 if not given. Both files of a "
    "pair\n"
    "need the same N. Glyphs of en have 8 columns.\n";

int Fail(const std::string& message) {
    fprintf(stderr, "hyfont: %s\n", message.c_str());
    return kFailed;
}

int Misuse(const std::string& message) {
    Fail(message + "; see hyfont --help");
    return kBadUsage;
}

// Programs may have the old file mapped: it is replaced, not written into.
bool Replace(const std::string& path, const std::string& content) {
    const std::string fresh = path + ".new";
    std::ofstream out(fresh, std::ios::binary);
    out << content;
    out.close();
    if (out && rename(fresh.c_str(), path.c_str()) == 0) return true;
    remove(fresh.c_str());
    return false;
}

int Build(bool wide, int size, const std::string& font_path, const std::string& out_path) {
    hyfont::FontSource font;
    const std::string problem = font.Open(font_path, size, wide ? size : hyfont::kNarrowColumns);
    if (!problem.empty()) return Fail(problem);
    if (wide && !hyfont::KnowsGb2312())
        return Fail(
            "this system cannot convert GB2312: the C library's conversion modules are missing");
    hyfont::Summary summary;
    const std::string file =
        wide ? hyfont::BuildWide(font, size, &summary) : hyfont::BuildNarrow(font, size, &summary);
    if (summary.missing == summary.characters)
        return Fail("none of the characters is in " + font_path);
    if (!Replace(out_path, file)) return Fail("cannot write " + out_path);
    printf("%s: %zu bytes, %d pixels, %d characters, %d missing, %d cut\n", out_path.c_str(),
           file.size(), size, summary.characters, summary.missing, summary.cut);
    return kSucceeded;
}

int Show(const std::string& path, const std::string& text) {
    std::ifstream in(path, std::ios::binary);
    const std::string file{std::istreambuf_iterator<char>(in), {}};
    if (!in) return Fail("cannot read " + path);
    const bool wide = hyfont::WideSize(file) != 0;
    if (!wide && hyfont::NarrowSize(file) == 0) return Fail(path + " is no font file");
    fputs(hyfont::Show(file, wide, hyfont::FromUtf8(text)).c_str(), stdout);
    return kSucceeded;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string verb = argc > 1 ? argv[1] : "";
    if (verb == "--help" || verb == "-h") {
        fputs(kUsage, stdout);
        return kSucceeded;
    }
    if (verb == "show") return argc == 4 ? Show(argv[2], argv[3]) : Misuse("show takes FILE TEXT");
    if (verb != "cn" && verb != "en") return Misuse("cn, en or show, not '" + verb + "'");

    long size = 16;
    char** names = argv + 2;
    if (argc > 3 && strcmp(argv[2], "--size") == 0) {
        char* end;
        size = strtol(argv[3], &end, 10);
        if (*end != '\0' || size % 8 != 0 || size < hyfont::kMinSize || size > hyfont::kMaxSize)
            return Misuse("--size takes a multiple of 8 from 16 to 248");
        names += 2;
    }
    if (argv + argc - names != 2) return Misuse(verb + " takes FONT OUT");
    return Build(verb == "cn", static_cast<int>(size), names[0], names[1]);
}
