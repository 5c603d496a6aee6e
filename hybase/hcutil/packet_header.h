// The 12 bytes in front of every packet: three 32-bit words, each in network byte order.
#ifndef HYBASE_HCUTIL_PACKET_HEADER_H
#define HYBASE_HCUTIL_PACKET_HEADER_H

#include <stdint.h>

constexpr uint32_t kDataFlag = 0xA55A5AA5;   // a data packet; of type 0 and length 0: a keep-alive
constexpr uint32_t kLoginFlag = 0xA55A5AA6;  // a login request or a login reply
constexpr int kPacketFlagBytes = 4;
constexpr int kPacketHeaderBytes = 12;

struct PacketHeader {
    uint32_t flag;
    uint32_t type;    // the user's type of a data packet, 0 for login packets
    uint32_t length;  // payload bytes that follow
};

inline uint32_t LoadBigEndian32(const char* from) {
    const auto* byte = reinterpret_cast<const unsigned char*>(from);
    return uint32_t{byte[0]} << 24 | uint32_t{byte[1]} << 16 | uint32_t{byte[2]} << 8 | byte[3];
}

inline void StoreBigEndian32(char* to, uint32_t value) {
    to[0] = static_cast<char>(value >> 24);
    to[1] = static_cast<char>(value >> 16);
    to[2] = static_cast<char>(value >> 8);
    to[3] = static_cast<char>(value);
}

inline PacketHeader ReadPacketHeader(const char* from) {
    return {LoadBigEndian32(from), LoadBigEndian32(from + 4), LoadBigEndian32(from + 8)};
}

inline void WritePacketHeader(char (&to)[kPacketHeaderBytes], const PacketHeader& header) {
    StoreBigEndian32(to, header.flag);
    StoreBigEndian32(to + 4, header.type);
    StoreBigEndian32(to + 8, header.length);
}

#endif
