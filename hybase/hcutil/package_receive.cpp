// Packets into the buffer of a connection, or into a caller's.

#include <hybase/hlog.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "hybase/hcutil/package_state.h"
#include "hybase/hcutil/packet_io.h"
#include "hybase/hcutil/receive_buffer.h"
#include "hybase/hcutil/server_login.h"
#include "hybase/hcutil/socket_inside.h"

namespace {

constexpr int kFirstGrowthBytes = 64 * 1024;

}  // namespace

int HCNetPackage::__get_a_package(HCSocket* sock, unsigned int& flag, unsigned int& type, int& len,
                                  bool& empty, char* buf, int maxlen) {
    flag = type = 0;
    len = 0;
    empty = false;
    if (sock == nullptr || buf == nullptr) return -1;
    if (maxlen < kPacketHeaderBytes) HLOG_INFO("not enough buffer to receive data.\n");

    int room = std::min(maxlen, kPacketHeaderBytes);
    int got = RecvHeader(*sock, buf, room, kLoginReadUs, __func__, flag, type, len);
    if (got < 1) return got;
    empty = len == 0;
    if (empty) return 0;
    if (len > maxlen) {
        HLOG_INFO("not enough buffer to receive data.: datalen: %d, maxlen: %d\n", len, maxlen);
        len = maxlen;
    }
    return sock->RecvAll(buf, len, kLoginReadUs);
}

int HCNetPackage::_getPackage(unsigned int& flag, unsigned int& type, int& len, bool& empty,
                              int usec) {
    flag = type = 0;
    len = 0;
    empty = false;
    if (m_pSocket == nullptr || m_pState == nullptr) return -1;
    int capacity = std::max(m_nRecvBufSize, kPacketHeaderBytes);
    if ((m_pRecvBuf == nullptr || capacity > m_nRecvBufSize) && !AllocRecvBuf(capacity)) return -1;

    TransferWatch watch = TransferWatch::Receiving(m_pState->limits);
    const bool in_time =
        SocketInside::IsOurs(*m_pSocket) && TransferWatch::ForReceiving(m_pState->limits);
    int got = in_time ? RecvHeaderInTime(usec, watch, flag, type, len)
                      : RecvHeader(*m_pSocket, m_pRecvBuf, kPacketHeaderBytes, usec, __func__, flag,
                                   type, len);
    if (got < 1) return got;
    empty = len == 0;
    if (empty) return 0;
    const int longest = m_pState->limits.max_packet_bytes;
    if (longest > 0 && len > longest) {
        HLOG_ERR("receive data err.len=[%d]\n", len);
        return -1;
    }
    got = RecvPayload(len, usec, in_time ? &watch : nullptr);
    if (got > 0) m_pRecvBuf[got] = '\0';
    return got;
}

// The transfer begins with the first byte of the header; until then the peer owes nothing.
int HCNetPackage::RecvHeaderInTime(int usec, TransferWatch& watch, unsigned int& flag,
                                   unsigned int& type, int& len) {
    const int first = m_pSocket->Recv(m_pRecvBuf, kPacketHeaderBytes, usec);
    if (first < 1) return first;
    watch = TransferWatch::Receiving(m_pState->limits);
    const int rest = kPacketHeaderBytes - first;
    if (rest > 0 && RecvInTime(*m_pSocket, m_pRecvBuf + first, rest, watch) < 0) return -1;
    return CheckHeader(m_pRecvBuf, "_getPackage", flag, type, len) ? kPacketHeaderBytes : -1;
}

// The buffer grows with what has come, not with what the header announces: that costs a peer
// nothing. A socket class of the application's is asked for the whole payload at once.
int HCNetPackage::RecvPayload(int len, int usec, TransferWatch* watch) {
    if (!SocketInside::IsOurs(*m_pSocket)) {
        if (len > m_nRecvBufSize && !AllocRecvBuf(len)) return -1;
        return m_bRun ? m_pSocket->RecvAll(m_pRecvBuf, len, usec) : -1;
    }
    for (int got = 0;;) {
        const int part = std::min(len, m_nRecvBufSize) - got;
        const int result = watch != nullptr ? RecvInTime(*m_pSocket, m_pRecvBuf + got, part, *watch)
                                            : m_pSocket->RecvAll(m_pRecvBuf + got, part, usec);
        if (result < 1) return result;
        got += part;
        if (got == len) return len;
        if (!GrowRecvBuf(got, len)) return -1;
    }
}

// Doubles the receive buffer, up to `most`, and keeps its first `kept` bytes.
bool HCNetPackage::GrowRecvBuf(int kept, int most) {
    const int64_t doubled = std::max<int64_t>(int64_t{m_nRecvBufSize} * 2, kFirstGrowthBytes);
    if (ResizeRecvBuf(static_cast<int>(std::min<int64_t>(doubled, most)), kept)) return true;
    LogNoMemory(most);
    return false;
}

bool HCNetPackage::ResizeRecvBuf(int size, int kept) {
    char* resized = ResizeReceiveBuffer(m_pRecvBuf, m_nRecvBufSize, size, kept);
    if (resized == nullptr) return false;
    m_pRecvBuf = resized;
    m_nRecvBufSize = size;
    return true;
}

// Makes the receive buffer anew; its contents are lost. One spare byte behind the capacity is for
// the zero behind a payload.
bool HCNetPackage::AllocRecvBuf(int size) {
    DeleteReceiveBuffer(m_pRecvBuf, m_nRecvBufSize);
    m_nRecvBufSize = size;
    m_pRecvBuf = NewReceiveBuffer(size);
    if (m_pRecvBuf != nullptr) return true;
    LogNoMemory(size);
    m_nRecvBufSize = m_nRecvBufDefSize;  // what the next read asks for
    return false;
}

// Gives back what a large packet needed. Without memory for the small buffer the large one stays.
void HCNetPackage::ShrinkRecvBuf() {
    const int size = std::max(m_nRecvBufDefSize, kPacketHeaderBytes);
    if (m_nRecvBufSize > size) ResizeRecvBuf(size, 0);
}

void HCNetPackage::LogNoMemory(int bytes) const {
    LOG_AS("AllocRecvBuf", HLOG_LEVEL_ERR, "no memory for a packet of %d bytes from [%.64s][%d]\n",
           bytes, m_szIp, m_nPort);
}

int HCNetPackage::_ProgressData(char* data, int len) {
    if (data == nullptr) return -1;
    if (len < kPacketFlagBytes || LoadBigEndian32(data) != kDataFlag)
        HLOG_ERR("ERROR: Data wrong\n");
    if (len < kPacketHeaderBytes) return -1;
    const PacketHeader header = ReadPacketHeader(data);
    int length = static_cast<int>(header.length);
    if (length < 0 || len - kPacketHeaderBytes < length) return -1;
    if (length == 0) return kPacketHeaderBytes;

    int consumed = kPacketHeaderBytes + length;
    char* behind = data + consumed;
    if (consumed == len) {
        PkgReceived(header.type, data + kPacketHeaderBytes, length);
        return consumed;
    }
    // The hook may write a zero behind the payload, where the next packet begins.
    char kept = *behind;
    *behind = '\0';
    PkgReceived(header.type, data + kPacketHeaderBytes, length);
    *behind = kept;
    return consumed;
}
