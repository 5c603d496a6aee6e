#include "osd.h"

#include <hybase/cjson_value.h>
#include <hybase/hcutil/HCPainter.h>
#include <iconv.h>
#include <png.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <new>
#include <vector>

namespace hydevice {
namespace {

constexpr int kMaxSide = 4096;
constexpr int kMaxCommands = 10000;
constexpr int kMaxFontSize = 512;
// What all commands together may cost; see Overlay::Spend.
constexpr int64_t kMaxPixels = 64000000;
constexpr size_t kIconvFailed = static_cast<size_t>(-1);
const iconv_t kNoConverter =
    iconv_t(-1);  // NOLINT(performance-no-int-to-ptr): as iconv_open has it

// A canvas that frees its pixels.
class Picture : public HCanvas {
  public:
    ~Picture() override { Destroy(); }

    bool Make(int width, int height, uint32_t background) {
        HSize_t size = {width, height};
        try {
            Create({0, 0, width, height}, {0, 0, 0, 0}, nullptr, &size, nullptr);
        } catch (const std::bad_alloc&) {
            return false;
        }
        auto* pixels = reinterpret_cast<uint32_t*>(Buffer());
        std::fill_n(pixels, static_cast<size_t>(width) * height, background);
        return true;
    }

    // Pixels are ARGB words; in memory that is blue, green, red, alpha.
    bool ToPng(std::string& png) const {
        png_image image{};
        image.version = PNG_IMAGE_VERSION;
        image.width = static_cast<png_uint_32>(Rect()->w);
        image.height = static_cast<png_uint_32>(Rect()->h);
        image.format = PNG_FORMAT_BGRA;
        char* bytes = nullptr;
        size_t length = 0;
        // Into a stream: to memory, the picture would be compressed twice, the first time to learn
        // its length.
        FILE* stream = open_memstream(&bytes, &length);
        if (stream == nullptr) return false;
        bool good = png_image_write_to_stdio(&image, stream, 0, Buffer(), 0, nullptr) != 0;
        good = fclose(stream) == 0 && good;
        if (good) png.assign(bytes, length);
        free(bytes);
        return good;
    }
};

// What iconv does, for a system that has no conversion: false at the first character beyond ASCII.
bool CopyAscii(char*& in, size_t& left, char*& to, size_t& room) {
    while (left > 0 && room > 0 && (*in & 0x80) == 0) {
        *to++ = *in++;
        left--;
        room--;
    }
    return left == 0;
}

// Past one character of UTF-8, or one byte of what is none.
void SkipCharacter(char*& in, size_t& left) {
    do {
        in++;
        left--;
    } while (left > 0 && (*in & 0xC0) == 0x80);
}

// The fonts know GB2312; what it has not becomes a question mark, and so does everything beyond
// ASCII on a system without that conversion.
std::string ToGb2312(const std::string& utf8) {
    iconv_t converter = iconv_open("GB2312", "UTF-8");
    std::string out;
    std::vector<char> input(utf8.begin(), utf8.end());
    char* in = input.data();
    size_t left = input.size();
    while (left > 0) {
        char block[256];
        char* to = block;
        size_t room = sizeof block;
        const bool converted = converter != kNoConverter
                                   ? iconv(converter, &in, &left, &to, &room) != kIconvFailed
                                   : CopyAscii(in, left, to, room);
        out.append(block, to);
        if (converted || room < sizeof(uint16_t)) continue;
        out += '?';
        SkipCharacter(in, left);
    }
    if (converter != kNoConverter) iconv_close(converter);
    return out;
}

// Reads the members of one command; the first thing wrong is kept.
class Command {
  public:
    Command(const cJSON* json, std::string& error) : m_json(json), m_error(error) {}

    bool Has(const char* key) const { return cJSON_GetObjectItem(m_json, key) != nullptr; }
    bool IsNull(const char* key) const { return cJSON_IsNull(cJSON_GetObjectItem(m_json, key)); }
    bool IsTrue(const char* key) const { return cJSON_GetObjectValueBool(m_json, key) != 0; }
    bool Good() const { return m_error.empty(); }
    void Complain(const std::string& what) {
        if (m_error.empty()) m_error = what;
    }

    int Number(const char* key, int least, int most) {
        return ToNumber(cJSON_GetObjectItem(m_json, key), key, least, most);
    }

    std::string Text(const char* key) {
        const char* text = cJSON_GetObjectValueString(m_json, key);
        if (text == nullptr) Complain(std::string(key) + " must be a text");
        return text != nullptr ? text : "";
    }

    uint32_t Color(const char* key) {
        const std::string text = Text(key);
        const bool digits =
            text.size() == 9 && text[0] == '#' &&
            text.find_first_not_of("0123456789abcdefABCDEF", 1) == std::string::npos;
        if (!digits) Complain(std::string(key) + " must be a colour, \"#AARRGGBB\"");
        return digits ? static_cast<uint32_t>(strtoul(text.c_str() + 1, nullptr, 16)) : 0;
    }

    HPoint_t Point(const char* key) { return ToPoint(cJSON_GetObjectItem(m_json, key), key); }

    std::vector<HPoint_t> Points(const char* key) {
        std::vector<HPoint_t> points;
        const cJSON* list = cJSON_GetObjectItem(m_json, key);
        const cJSON* item = nullptr;
        cJSON_ArrayForEach(item, list) points.push_back(ToPoint(item, key));
        if (points.empty()) Complain(std::string(key) + " must be a list of [x, y]");
        return points;
    }

  private:
    int ToNumber(const cJSON* item, const char* key, int least, int most) {
        if (cJSON_IsNumber(item) && item->valuedouble >= least && item->valuedouble <= most)
            return item->valueint;
        Complain(std::string(key) + " must be a number from " + std::to_string(least) + " to " +
                 std::to_string(most));
        return least;
    }

    HPoint_t ToPoint(const cJSON* pair, const char* key) {
        return {ToNumber(cJSON_GetArrayItem(pair, 0), key, -kMaxSide, 2 * kMaxSide),
                ToNumber(cJSON_GetArrayItem(pair, 1), key, -kMaxSide, 2 * kMaxSide)};
    }

    const cJSON* m_json;
    std::string& m_error;
};

class Overlay {
  public:
    explicit Overlay(HCanvas& canvas) : m_canvas(canvas) {
        m_painter.SetCanvas(&canvas);
        m_painter.SetColor(m_color, m_back);
    }

    void Execute(Command& command) {
        Style(command);
        const std::string op = command.Text("op");
        if (!command.Good()) return;
        if (op == "text")
            DrawText(command);
        else if (op == "line")
            DrawLine(command);
        else if (op == "rect")
            DrawRect(command);
        else if (op == "region")
            DrawRegion(command);
        else if (op == "icon")
            DrawIcon(command);
        else
            command.Complain("op '" + op + "' is none of text, line, rect, region, icon");
    }

  private:
    static constexpr int kLeast = -kMaxSide;
    static constexpr int kMost = 2 * kMaxSide;

    void Style(Command& command) {
        if (command.Has("color")) m_color = command.Color("color");
        if (command.Has("back")) m_back = command.Color("back");
        m_painter.SetColor(m_color, m_back);
        if (command.Has("size")) m_size = command.Number("size", 1, kMaxFontSize);
        m_painter.SetFontsize(m_size);
        if (!command.Has("border")) return;
        m_outlined = !command.IsNull("border");
        m_painter.SetBorder(m_outlined ? 1 : 0, m_outlined ? command.Color("border") : 0);
    }

    // Calls wait for each other, so one of them must not draw for long. A pixel is what takes 8 ns
    // at most on a PC; what takes longer counts for more. True when the command may be drawn.
    bool Spend(Command& command, int64_t pixels) {
        m_spent += pixels;
        if (m_spent > kMaxPixels)
            command.Complain("more than " + std::to_string(kMaxPixels) + " pixels to draw in all");
        return command.Good();
    }

    int64_t TextPixels(const std::string& text) const {
        constexpr int kPerByte = 4;
        const HSize_t box = HCPainter::BuildTextSize(text, {0, 0, 0, 0}, 0, m_size);
        const HRect_t& canvas = *m_canvas.Rect();
        const int64_t drawn = int64_t{std::min(box.w, canvas.w)} * std::clamp(box.h, 0, canvas.h);
        return drawn + kPerByte * int64_t(text.size()) + (m_outlined ? OutlinePixels(drawn) : 0);
    }

    // The whole picture is looked through for pixels of the text's colour, to surround each.
    int64_t OutlinePixels(int64_t drawn) const {
        constexpr int kThinSize = 16;  // the largest that looks at bytes and may spread over all
        constexpr int kThin = 16;
        constexpr int kSurround = 20;
        const int64_t all = int64_t{m_canvas.Rect()->w} * m_canvas.Rect()->h;
        if (m_size <= kThinSize) return kThin * all;
        const auto* pixels = reinterpret_cast<const uint32_t*>(m_canvas.Buffer());
        return all + kSurround * (drawn + std::count(pixels, pixels + all, m_color));
    }

    static int64_t LinePixels(const HPoint_t& from, const HPoint_t& to) {
        constexpr int kPerStep = 10;  // 5 pixels, far apart in memory when the line is steep
        return kPerStep * (std::abs(int64_t{to.x} - from.x) + std::abs(int64_t{to.y} - from.y));
    }

    void DrawText(Command& command) {
        const std::string text = ToGb2312(command.Text("text"));
        const int x = command.Number("x", kLeast, kMost);
        const int y = command.Number("y", kLeast, kMost);
        if (command.Good() && Spend(command, TextPixels(text))) m_painter.DrawText(text, x, y);
    }

    void DrawLine(Command& command) {
        const HPoint_t from = command.Point("from");
        const HPoint_t to = command.Point("to");
        if (Spend(command, LinePixels(from, to))) m_painter.DrawLine(from, to);
    }

    void DrawRect(Command& command) {
        const HRect_t rect = {command.Number("x", kLeast, kMost),
                              command.Number("y", kLeast, kMost), command.Number("w", 0, kMost),
                              command.Number("h", 0, kMost)};
        m_painter.SetRectType(command.IsTrue("corners") ? 1 : 0);
        const int64_t outline = 2 * LinePixels({0, 0}, {rect.w, rect.h});
        if (Spend(command, outline)) m_painter.DrawRect(rect);
    }

    void DrawRegion(Command& command) {
        const std::vector<HPoint_t> points = command.Points("points");
        int64_t outline = 0;
        for (size_t i = 0; i < points.size(); i++)
            outline += LinePixels(points[i], points[(i + 1) % points.size()]);
        if (Spend(command, outline))
            m_painter.DrawRegion(points.data(), static_cast<int>(points.size()));
    }

    void DrawIcon(Command& command) {
        const std::string name = command.Text("icon");
        const int value = command.Number("value", -1000000, 1000000);
        const int x = command.Number("x", kLeast, kMost);
        const int y = command.Number("y", kLeast, kMost);
        HCPainterIcon_e icon = ICON_NUMBER;
        if (name == "signal")
            icon = ICON_SIGNAL;
        else if (name == "wifi")
            icon = ICON_WIFI;
        else if (name != "number")
            command.Complain("icon '" + name + "' is none of signal, wifi, number");
        const int64_t pixels =
            icon == ICON_NUMBER ? TextPixels(std::to_string(value)) : int64_t{m_size} * m_size;
        if (Spend(command, pixels)) m_painter.DrawIcon(icon, value, x, y);
    }

    HCPainter m_painter;
    const HCanvas& m_canvas;
    int64_t m_spent = 0;
    int m_size = 32;
    bool m_outlined = false;
    uint32_t m_color = 0xFFFFFFFF;
    uint32_t m_back = 0;
};

}  // namespace

bool DrawOverlay(const cJSON* param, std::string& png, std::string& error) {
    Command frame(param, error);
    const int width = frame.Number("width", 1, kMaxSide);
    const int height = frame.Number("height", 1, kMaxSide);
    const uint32_t background = frame.Has("background") ? frame.Color("background") : 0;
    const cJSON* commands = cJSON_GetObjectItem(param, "commands");
    const int count = cJSON_GetArraySize(commands);
    if (!cJSON_IsArray(commands) || count > kMaxCommands)
        frame.Complain("commands must be a list of at most 10000");
    Picture picture;
    if (frame.Good() && !picture.Make(width, height, background)) frame.Complain("no memory");
    if (!frame.Good()) return false;

    Overlay overlay(picture);
    int number = 0;
    const cJSON* json = nullptr;
    cJSON_ArrayForEach(json, commands) {
        number++;
        Command command(json, error);
        overlay.Execute(command);
        if (command.Good()) continue;
        error.insert(0, "command " + std::to_string(number) + ": ");
        return false;
    }
    if (picture.ToPng(png)) return true;
    error = "no memory for the picture";
    return false;
}

}  // namespace hydevice
