// hyfont: builds the painter's bitmap fonts and shows what is in them.

#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <iterator>

#include "font_files.h"
#include "gb2312.h"

namespace {

enum ExitStatus { kSucceeded = 0, kFailed = 1, kBadUsage = 3 };

constexpr double kWarnPercent = 2;  // of the characters, missing or cut
constexpr double kFailPercent = 20;
constexpr int kMaxFace = 65535;

constexpr char kUsage[] =
    "usage: hyfont cn [OPTION]... FONT OUT   build the two-byte font (GB2312)\n"
    "       hyfont en [OPTION]... FONT OUT   build the single-byte font (codes 32 to 127)\n"
    "       hyfont check CN EN               say whether two font files are a pair\n"
    "       hyfont show FILE TEXT            print the glyphs of a text, UTF-8\n"
    "\n"
    "FONT is anything FreeType opens: BDF, PCF (gzipped, too), TrueType, OpenType. Glyphs of en\n"
    "have 8 columns.\n"
    "\n"
    "  --size N     the height in pixels and, for cn, the width: a multiple of 8 from 16 to 248,\n"
    "               default 16; both files of a pair need the same\n"
    "  --face N     the face of a collection, from 0; default: 0, for cn the first with SC\n"
    "               (simplified Chinese) in its name\n"
    "  --force      write OUT even if more than 20 % of its characters are missing or cut\n"
    "  -h, --help   this page\n"
    "\n"
    "Exit status: 0 done, 1 failed or no pair, 3 bad usage.\n";

enum LongOption { kSize = 256, kFace, kForce };

const option kLongOptions[] = {
    {"size", required_argument, nullptr, kSize},
    {"face", required_argument, nullptr, kFace},
    {"force", no_argument, nullptr, kForce},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

struct BuildOptions {
    bool wide = false;
    int size = 16;
    int face = -1;  // -1: not given
    bool force = false;
};

void Complain(const std::string& message) { fprintf(stderr, "hyfont: %s\n", message.c_str()); }

int Fail(const std::string& message) {
    Complain(message);
    return kFailed;
}

int Misuse(const std::string& message) {
    Complain(message + "; see hyfont --help");
    return kBadUsage;
}

bool ParseNumber(const char* text, int least, int most, int* number) {
    char* end;
    const long value = strtol(text, &end, 10);
    if (end == text || *end != '\0' || value < least || value > most) return false;
    *number = static_cast<int>(value);
    return true;
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

bool Read(const char* path, hyfont::FontFile* file) {
    std::ifstream in(path, std::ios::binary);
    *file = {path, {std::istreambuf_iterator<char>(in), {}}};
    if (in) return true;
    Complain("cannot read " + file->path);
    return false;
}

// "349 of 7445 characters (4.7 %) are missing or cut"
std::string BadShare(const hyfont::Summary& summary) {
    char text[96];
    snprintf(text, sizeof text, "%d of %d characters (%.1f %%) are missing or cut", summary.Bad(),
             summary.characters, 100.0 * summary.Bad() / summary.characters);
    return text;
}

int Build(const BuildOptions& options, const std::string& font_path, const std::string& out_path) {
    const int size = options.size;
    const int face = options.face >= 0 ? options.face : options.wide ? hyfont::kChineseFace : 0;
    hyfont::FontSource font;
    const std::string problem =
        font.Open(font_path, face, size, options.wide ? size : hyfont::kNarrowColumns);
    if (!problem.empty()) return Fail(problem);
    if (options.wide && !hyfont::KnowsGb2312())
        return Fail(
            "this system cannot convert GB2312: the C library's conversion modules are missing");
    hyfont::Summary summary;
    const std::string file = options.wide ? hyfont::BuildWide(font, size, &summary)
                                          : hyfont::BuildNarrow(font, size, &summary);
    const double percent = 100.0 * summary.Bad() / summary.characters;
    if (!options.force) {
        if (summary.missing == summary.characters)
            return Fail("none of the characters is in " + font_path);
        if (percent > kFailPercent)
            return Fail(BadShare(summary) + ": choose another font, --face or --size, or --force");
    }
    if (percent > kWarnPercent) Complain("warning: " + BadShare(summary));
    if (!Replace(out_path, file)) return Fail("cannot write " + out_path);
    printf("%s: %zu bytes, %d pixels, %d characters, %d missing, %d cut, from %s\n",
           out_path.c_str(), file.size(), size, summary.characters, summary.missing, summary.cut,
           font.Name().c_str());
    return kSucceeded;
}

int Check(const char* cn_path, const char* en_path) {
    hyfont::FontFile cn;
    hyfont::FontFile en;
    if (!Read(cn_path, &cn) || !Read(en_path, &en)) return kFailed;
    const std::string problem = hyfont::Mismatch(cn, en);
    if (!problem.empty()) return Fail(problem);
    printf("%s and %s are a pair of %d pixels\n", cn_path, en_path, hyfont::WideSize(cn.content));
    return kSucceeded;
}

int Show(const char* path, const char* text) {
    hyfont::FontFile file;
    if (!Read(path, &file)) return kFailed;
    const bool wide = hyfont::WideSize(file.content) != 0;
    if (!wide && hyfont::NarrowSize(file.content) == 0) return Fail(file.path + " is no font file");
    fputs(hyfont::Show(file.content, wide, hyfont::FromUtf8(text)).c_str(), stdout);
    return kSucceeded;
}

}  // namespace

int main(int argc, char** argv) {
    // Ahead of the options: a text may begin with a dash.
    if (argc == 4 && strcmp(argv[1], "show") == 0) return Show(argv[2], argv[3]);

    BuildOptions options;
    bool has_options = false;
    opterr = 0;
    for (int letter; (letter = getopt_long(argc, argv, "h", kLongOptions, nullptr)) != -1;) {
        has_options = true;
        switch (letter) {
            case kSize:
                if (!ParseNumber(optarg, hyfont::kMinSize, hyfont::kMaxSize, &options.size) ||
                    options.size % 8 != 0)
                    return Misuse("--size takes a multiple of 8 from 16 to 248");
                break;
            case kFace:
                if (!ParseNumber(optarg, 0, kMaxFace, &options.face))
                    return Misuse("--face takes a number from 0");
                break;
            case kForce:
                options.force = true;
                break;
            case 'h':
                fputs(kUsage, stdout);
                return kSucceeded;
            default:
                return Misuse("unknown option or missing value");
        }
    }
    char** const words = argv + optind;
    const int count = argc - optind;
    const std::string verb = count > 0 ? words[0] : "";
    options.wide = verb == "cn";
    const bool builds = options.wide || verb == "en";
    if (!builds && verb != "check" && verb != "show")
        return Misuse("cn, en, check or show, not '" + verb + "'");
    if (!builds && has_options) return Misuse(verb + " takes no options");
    if (count != 3)
        return Misuse(verb + (builds            ? " takes FONT OUT"
                              : verb == "check" ? " takes CN EN"
                                                : " takes FILE TEXT"));
    if (builds) return Build(options, words[1], words[2]);
    return verb == "check" ? Check(words[1], words[2]) : Show(words[1], words[2]);
}
