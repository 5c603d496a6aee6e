#include "packet_dump.h"

#include <stdio.h>

#include <algorithm>

#include "json_output.h"

namespace hyrpc {
namespace {

constexpr size_t kBytesALine = 16;
constexpr double kSlowS = 0.5;  // a payload that pauses that long is lost on a receiver

// How many bytes at the end of the payload are kept back.
size_t CountHidden(const Packet& packet, bool show_password) {
    if (show_password || !packet.sent || !packet.IsLogin()) return 0;
    const std::string record = packet.Payload();
    const size_t separator = record.find(';');
    return separator == std::string::npos ? record.size() : record.size() - separator - 1;
}

const char* Kind(const Packet& packet) {
    if (!packet.HasHeader()) return "cut_header";
    if (!packet.HasGoodFlag()) return "bad_flag";
    if (!packet.HasGoodLength()) return "bad_length";
    if (packet.IsLogin()) return "login";
    return packet.Type() == 0 && packet.Length() == 0 ? "keep_alive" : "data";
}

std::string HexByte(char byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    const auto number = static_cast<unsigned char>(byte);
    return {kDigits[number >> 4], kDigits[number & 15]};
}

std::string Hex(const std::string& bytes, size_t hidden) {
    std::string text;
    for (size_t i = 0; i < bytes.size(); i++)
        text += i + hidden < bytes.size() ? HexByte(bytes[i]) : "**";
    return text;
}

std::string HeaderLine(const Packet& packet) {
    char line[160];
    const char* mark = packet.sent ? "->" : "<-";
    snprintf(line, sizeof line, "%s %.3f s  %s", mark, packet.began_s, Kind(packet));
    std::string text = line;
    if (packet.HasHeader()) {
        snprintf(line, sizeof line, "  flag %08x  type %08x = %u  length %08x = %u", packet.Flag(),
                 packet.Type(), packet.Type(), packet.Length(), packet.Length());
        text += line;
    }
    if (!packet.IsComplete()) {
        const size_t came = packet.bytes.size() - (packet.HasHeader() ? kHeaderBytes : 0);
        text += "  incomplete: " + std::to_string(came) + " came";
    }
    const double took_s = packet.ended_s - packet.began_s;
    if (took_s < kSlowS) return text + "\n";
    snprintf(line, sizeof line, "  took %.3f s\n", took_s);
    return text + line;
}

// One line of the dump: the bytes from `at` on, those from `hidden_from` on as stars.
std::string DumpLine(const char* mark, const std::string& bytes, size_t at, size_t hidden_from) {
    char offset[24];
    snprintf(offset, sizeof offset, "   %04zx  ", at);
    std::string hex;
    std::string characters;
    const size_t end = std::min(at + kBytesALine, bytes.size());
    for (size_t i = at; i < end; i++) {
        const bool hidden = i >= hidden_from;
        const bool printable = bytes[i] >= ' ' && bytes[i] <= '~';
        hex += (hidden ? "**" : HexByte(bytes[i])) + " ";
        characters += hidden ? '*' : printable ? bytes[i] : '.';
    }
    hex.resize(3 * kBytesALine + 1, ' ');
    return mark + (offset + hex) + characters + "\n";
}

}  // namespace

std::string DumpText(const Packet& packet, bool show_password) {
    const char* mark = packet.sent ? "->" : "<-";
    const std::string shown = packet.HasHeader() ? packet.Payload() : packet.bytes;
    const size_t hidden_from = shown.size() - CountHidden(packet, show_password);
    std::string text = HeaderLine(packet);
    for (size_t at = 0; at < shown.size(); at += kBytesALine)
        text += DumpLine(mark, shown, at, hidden_from);
    return text;
}

std::string DumpJson(const Packet& packet, bool show_password) {
    const std::string payload = packet.Payload();
    const size_t hidden = CountHidden(packet, show_password);
    Json object = NewObject();
    cJSON_AddStringToObject(object.get(), "direction", packet.sent ? "sent" : "received");
    AddRounded(object.get(), "time_s", packet.began_s);
    AddRounded(object.get(), "took_s", packet.ended_s - packet.began_s);
    cJSON_AddStringToObject(object.get(), "kind", Kind(packet));
    cJSON_AddBoolToObject(object.get(), "complete", packet.IsComplete());
    cJSON_AddStringToObject(object.get(), "header_hex",
                            Hex(packet.bytes.substr(0, kHeaderBytes), 0).c_str());
    if (packet.HasHeader()) {
        char flag[12];
        snprintf(flag, sizeof flag, "%08x", packet.Flag());
        cJSON_AddStringToObject(object.get(), "flag", flag);
        cJSON_AddNumberToObject(object.get(), "type", packet.Type());
        cJSON_AddNumberToObject(object.get(), "length", packet.Length());
        cJSON_AddStringToObject(object.get(), "payload_hex", Hex(payload, hidden).c_str());
        cJSON_AddNumberToObject(object.get(), "hidden_bytes", static_cast<double>(hidden));
    }
    return JsonLine(object.get());
}

std::string SendFailureText(size_t length, double now_s) {
    char line[100];
    snprintf(line, sizeof line, "-> %.3f s  the last %zu bytes could not all be sent\n", now_s,
             length);
    return line;
}

std::string SendFailureJson(size_t length, double now_s) {
    Json object = NewObject();
    cJSON_AddStringToObject(object.get(), "direction", "sent");
    AddRounded(object.get(), "time_s", now_s);
    cJSON_AddStringToObject(object.get(), "kind", "send_failed");
    cJSON_AddNumberToObject(object.get(), "length", static_cast<double>(length));
    return JsonLine(object.get());
}

}  // namespace hyrpc
