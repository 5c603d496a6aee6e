// Cuts one direction of a stream into packets.
#pragma once

#include <stdint.h>

#include <string>

namespace hyrpc {

constexpr size_t kHeaderBytes = 12;

// A packet as it travelled, or what came of one.
struct Packet {
    bool sent = false;   // by hyrpc; otherwise received
    double began_s = 0;  // when its first byte and its last one travelled
    double ended_s = 0;
    std::string bytes;  // header and payload

    bool HasHeader() const { return bytes.size() >= kHeaderBytes; }
    uint32_t Flag() const { return Word(0); }
    uint32_t Type() const { return Word(4); }
    uint32_t Length() const { return Word(8); }
    bool IsLogin() const;
    bool HasGoodFlag() const;
    bool HasGoodLength() const { return Length() <= INT32_MAX; }
    bool IsComplete() const;
    std::string Payload() const { return HasHeader() ? bytes.substr(kHeaderBytes) : ""; }

  private:
    uint32_t Word(size_t at) const;
};

class PacketCutter {
  public:
    explicit PacketCutter(bool sent) { m_packet.sent = sent; }

    // Takes what belongs to the packet under way from `data`; returns how many bytes that were.
    // Behind a bad header nothing can be told apart: there all of it belongs.
    size_t Take(const char* data, size_t length, double now_s);

    // The packet under way, whole if IsComplete().
    const Packet& Current() const { return m_packet; }

    void Next() { m_packet.bytes.clear(); }

  private:
    Packet m_packet;
};

}  // namespace hyrpc
