#include "packet_cutter.h"

#include <algorithm>

namespace hyrpc {
namespace {

constexpr uint32_t kDataFlag = 0xA55A5AA5;
constexpr uint32_t kLoginFlag = 0xA55A5AA6;

}  // namespace

bool Packet::IsLogin() const { return HasHeader() && Flag() == kLoginFlag; }

bool Packet::HasGoodFlag() const { return Flag() == kDataFlag || Flag() == kLoginFlag; }

bool Packet::IsComplete() const {
    return HasHeader() && HasGoodFlag() && HasGoodLength() &&
           bytes.size() - kHeaderBytes == Length();
}

uint32_t Packet::Word(size_t at) const {
    uint32_t word = 0;
    for (size_t i = at; i < at + 4; i++) word = word << 8 | static_cast<unsigned char>(bytes[i]);
    return word;
}

size_t PacketCutter::Take(const char* data, size_t length, double now_s) {
    std::string& bytes = m_packet.bytes;
    if (bytes.empty()) m_packet.began_s = now_s;
    m_packet.ended_s = now_s;

    size_t missing = length;
    if (!m_packet.HasHeader())
        missing = kHeaderBytes - bytes.size();
    else if (m_packet.HasGoodFlag() && m_packet.HasGoodLength())
        missing = kHeaderBytes + m_packet.Length() - bytes.size();
    const size_t taken = std::min(missing, length);
    bytes.append(data, taken);
    return taken;
}

}  // namespace hyrpc
