// What packet connections and the packet service do with a socket beyond its public operations.
#ifndef HYBASE_HCUTIL_SOCKET_INSIDE_H
#define HYBASE_HCUTIL_SOCKET_INSIDE_H

#include <hybase/hcutil/HCSocket.h>

struct SocketInside {
    // True for exactly our own classes. A class that an application derives may replace how bytes
    // come and go, so only its virtual operations are called.
    static bool IsOurs(const HCSocket& sock);

    enum Cut : char {
        kNoCut,
        kReceiving,  // what is under way may still be sent
        kAll
    };

    // Ends waits on the socket, on whichever thread, without a record: a Connect under way fails
    // within 100 ms, everything else at once. `connected`: the descriptor cannot change meanwhile.
    static void CutOff(HCSocket& sock, Cut what, bool connected);
    static void EndCut(HCSocket& sock) { sock.m_nCut = kNoCut; }
    static const std::atomic<char>& CutFlag(const HCSocket& sock) { return sock.m_nCut; }
    static bool IsCut(const HCSocket& sock) { return sock.m_nCut == kAll; }

    // Closing drops what is not sent: half a packet is of no use, and a peer that does not read
    // would otherwise see no close and keep the system's buffers full.
    static void DropUnsent(const HCSocket& sock);

    // What RecvAll does, but without waiting: continues at buf + got, counting it up. Returns `len`
    // when all bytes are there, 0 when more have to come, -1 as RecvAll does.
    static int RecvMore(HCSocket& sock, char* buf, int len, int& got);

    // The record of a send that found no room in time, after `sent` bytes.
    static void LogSendTimeout(const HCSocket& sock, int sent);

    // The record of a send that failed with errno.
    static void LogSendError(const HCSocket& sock);
};

#endif
