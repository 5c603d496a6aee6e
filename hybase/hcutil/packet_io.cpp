#include "hybase/hcutil/packet_io.h"

#include <errno.h>
#include <hyplatform/arch.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>

#include "hybase/hcutil/socket_inside.h"

namespace {

constexpr int kMemoryPauseMs = 5;

// Puts errno back as it was: a record in between may change it.
class ErrnoKeeper {
  public:
    ~ErrnoKeeper() { errno = kept_; }

  private:
    const int kept_ = errno;
};

int64_t NowMs() { return arch_getSystemStartupMs(); }

}  // namespace

// ---- In ----

bool CheckHeader(const char* from, const char* function, unsigned int& flag, unsigned int& type,
                 int& len) {
    const PacketHeader header = ReadPacketHeader(from);
    flag = header.flag;
    type = header.type;
    len = static_cast<int>(header.length);
    if (flag != kDataFlag && flag != kLoginFlag) {
        LOG_AS(function, HLOG_LEVEL_ERR, "receive data err.flag=[%d]\n", static_cast<int>(flag));
        return false;
    }
    if (len < 0) {
        LOG_AS(function, HLOG_LEVEL_ERR, "receive data err.len=[%d]\n", len);
        return false;
    }
    return true;
}

int RecvHeader(HCSocket& sock, char* buf, int room, int usec, const char* function,
               unsigned int& flag, unsigned int& type, int& len) {
    if (room > 0) memset(buf, 0, static_cast<size_t>(room));
    const int got = sock.RecvAll(buf, room, usec);
    if (got != kPacketHeaderBytes) return got;
    return CheckHeader(buf, function, flag, type, len) ? got : -1;
}

int RecvInTime(HCSocket& sock, char* buf, int len, TransferWatch& watch) {
    int got = 0;
    for (;;) {
        const int before = got;
        if (SocketInside::RecvMore(sock, buf, len, got) < 0) return -1;
        watch.Moved(got - before);
        if (got == len) return len;
        const int64_t left = watch.LeftMs();
        if (left == 0) {
            HLOG_ERR("too slow a packet from [%s][%d]\n", sock.m_szHost, sock.m_nPort);
            return -1;
        }
        pollfd entry = {sock.m_nSocket, POLLIN, 0};
        poll(&entry, 1, static_cast<int>(std::min<int64_t>(left, 1000)));
    }
}

// ---- Out ----

int SendPart(HCSocket& sock, const char* buf, int len, int usec, bool more) {
    sock.SetMore(more);
    const int sent = sock.Send(buf, len, usec);
    sock.SetMore(false);
    return sent;
}

int SendHeader(HCSocket& sock, uint32_t flag, uint32_t type, int length, int usec) {
    char header[kPacketHeaderBytes];
    WritePacketHeader(header, {flag, type, static_cast<uint32_t>(length)});
    return SendPart(sock, header, kPacketHeaderBytes, usec, length > 0);
}

int64_t Pieces::Bytes() const {
    int64_t bytes = 0;
    for (int i = 0; i < count; i++) bytes += std::max(lens[i], 0);
    return bytes;
}

PacketOut::PacketOut(uint32_t type, const Pieces& pieces, int total) : pieces_(pieces) {
    WritePacketHeader(header_, {kDataFlag, type, static_cast<uint32_t>(total)});
}

PacketOut::Part PacketOut::PartUnderWay() const {
    Part part = {-1, 0, kPacketHeaderBytes};
    for (int i = 0; i < pieces_.count && sent_ >= part.at + part.length; i++) {
        if (pieces_.lens[i] > 0) part = {i, part.at + part.length, pieces_.lens[i]};
    }
    return part;
}

// The parts that are not sent yet, as many as one call takes. Returns their number.
size_t PacketOut::Rest(iovec (&parts)[kMostParts]) {
    size_t count = 0;
    int64_t skip = sent_;
    const auto add = [&](const char* bytes, int64_t length) {
        if (length > skip)
            parts[count++] = {const_cast<char*>(bytes) + skip, static_cast<size_t>(length - skip)};
        skip = std::max<int64_t>(skip - length, 0);
    };
    add(header_, kPacketHeaderBytes);
    for (int i = 0; i < pieces_.count && count < kMostParts; i++)
        if (pieces_.lens[i] > 0) add(pieces_.bufs[i], pieces_.lens[i]);
    return count;
}

PacketOut::Progress PacketOut::Push(HCSocket& sock) {
    for (;;) {
        if (SocketInside::IsCut(sock)) {
            errno = EPIPE;
            return Progress::kFailed;
        }
        iovec parts[kMostParts];
        const size_t count = Rest(parts);
        if (count == 0) return Progress::kDone;
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = count;
        const ssize_t sent = sendmsg(sock.m_nSocket, &message, MSG_DONTWAIT);
        if (sent >= 0) {
            sent_ += sent;
        } else if (errno == EAGAIN) {
            return Progress::kNoRoom;
        } else if (errno == ENOBUFS) {
            poll(nullptr, 0, kMemoryPauseMs);  // the descriptor may be writable all the same
            return Progress::kNoRoom;
        } else if (errno != EINTR) {
            SocketInside::LogSendError(sock);
            return Progress::kFailed;
        }
    }
}

PacketOut::Progress PacketOut::PushInTime(HCSocket& sock, TransferWatch& watch) {
    int64_t waited_ms = 0;
    for (;;) {
        const int64_t before = sent_;
        const Progress progress = Push(sock);
        if (progress != Progress::kNoRoom) return progress;
        watch.Moved(sent_ - before);
        const int64_t left = watch.LeftMs(waited_ms);
        if (left == 0) {
            SocketInside::LogSendTimeout(sock, SentOfPart());
            errno = ETIMEDOUT;
            return Progress::kFailed;
        }
        const int64_t start = NowMs();
        pollfd entry = {sock.m_nSocket, POLLOUT, 0};
        poll(&entry, 1, static_cast<int>(std::min<int64_t>(left, 1000)));
        waited_ms = NowMs() - start;
    }
}

int PacketOut::SentOfPart() const { return static_cast<int>(sent_ - PartUnderWay().at); }

void PacketOut::LogFailure() const {
    const Part part = PartUnderWay();
    if (part.piece < 0) return LogHeaderFailure(-1);
    LogPieceFailure(-1, static_cast<int>(part.length));
}

int PacketOut::Result() const {
    for (int i = pieces_.count - 1; i >= 0; i--)
        if (pieces_.lens[i] > 0) return pieces_.lens[i];
    return kPacketHeaderBytes;
}

void LogHeaderFailure(int sent) {
    const ErrnoKeeper keeper;
    LOG_AS("SendPkg", HLOG_LEVEL_ERR, "ERROR: data send error2: %d, %d\n", sent,
           kPacketHeaderBytes);
}

void LogPieceFailure(int sent, int length) {
    const ErrnoKeeper keeper;
    LOG_AS("SendPkg", HLOG_LEVEL_ERR, "ERROR: data send error3: %d, %d\n", sent, length);
}
