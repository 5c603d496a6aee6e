// One packet out of a socket, or into it.
#ifndef HYBASE_HCUTIL_PACKET_IO_H
#define HYBASE_HCUTIL_PACKET_IO_H

#include <hybase/hcutil/HCSocket.h>
#include <hybase/hlog.h>
#include <stdint.h>
#include <sys/uio.h>

#include "hybase/hcutil/packet_header.h"
#include "hybase/hcutil/transfer_watch.h"

// Log records name the operation that users know, also where a step of it has a function of its
// own.
#define LOG_AS(function, level, ...) \
    hlog_printf_ex(level, __FILE__, function, __LINE__, __VA_ARGS__)

// ---- In ----

// Reads the words of a header. False, with a record, for one that ends the link; `function` is the
// name in that record.
bool CheckHeader(const char* from, const char* function, unsigned int& flag, unsigned int& type,
                 int& len);

// Reads a header into the first `room` (at most 12) bytes of `buf` and checks it; the words stay 0
// unless it came whole. Returns RecvAll's result, or -1 for a header that ends the link.
int RecvHeader(HCSocket& sock, char* buf, int room, int usec, const char* function,
               unsigned int& flag, unsigned int& type, int& len);

// Receives exactly `len` bytes in the time that `watch` leaves. Returns `len`, or -1, with a record
// when the peer was too slow.
int RecvInTime(HCSocket& sock, char* buf, int len, TransferWatch& watch);

// ---- Out ----

// Sends one part of a packet. `more`: another part follows at once, and the kernel lets this one
// wait for it, so that a packet leaves in one segment.
int SendPart(HCSocket& sock, const char* buf, int len, int usec, bool more);

int SendHeader(HCSocket& sock, uint32_t flag, uint32_t type, int length, int usec);

// The payload of a packet: pieces that lie where they like.
struct Pieces {
    const char* const* bufs;
    const int* lens;  // those of 0 and less are skipped
    int count;

    int64_t Bytes() const;
};

// A data packet on its way out of one of our own sockets, as far as it has come.
class PacketOut {
  public:
    // `total`: bytes of the payload. The pieces are not copied.
    PacketOut(uint32_t type, const Pieces& pieces, int total);

    enum class Progress { kDone, kNoRoom, kFailed };

    // Sends what there is room for, without waiting. After a failure errno says why.
    Progress Push(HCSocket& sock);

    // The same until all is sent or `watch` says that it takes too long, which is a failure.
    Progress PushInTime(HCSocket& sock, TransferWatch& watch);

    // Bytes sent of the part, header or piece, under way.
    int SentOfPart() const;

    // The record of a part that could not be sent; leaves errno alone.
    void LogFailure() const;

    // What SendPkg returns for it: the length of the last piece that is not empty, or 12.
    int Result() const;

    int64_t Sent() const { return sent_; }

  private:
    static constexpr size_t kMostParts = 16;  // of one system call

    struct Part {
        int piece;   // index, -1 for the header
        int64_t at;  // offset of its first byte in the packet
        int64_t length;
    };
    Part PartUnderWay() const;
    size_t Rest(iovec (&parts)[kMostParts]);

    char header_[kPacketHeaderBytes];
    const Pieces pieces_;
    int64_t sent_ = 0;
};

// The two records of a part that SendPkg could not send, errno left alone.
void LogHeaderFailure(int sent);
void LogPieceFailure(int sent, int length);

#endif
