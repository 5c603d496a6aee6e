/// @file
/// @ingroup sockets
/// One TCP stream socket, over IPv4 or IPv6, whose every operation ends within a time-out.
#ifndef HYBASE_HCUTIL_HCSOCKET_H
#define HYBASE_HCUTIL_HCSOCKET_H

#include <hybase/export.h>
#include <netinet/in.h>

#include <atomic>

/// One TCP stream socket, over IPv4 or IPv6, whose every operation ends within a time-out.
///
/// @par Results
/// They are 0 or a count for success, -1 for failure (null from Accept()), 0 from Recv() and
/// RecvAll() for a time-out. Most failures leave a log record; none is left by Listen(), by
/// Close(), and by Recv() when the peer has closed. Nothing throws.
///
/// @par Time-outs
/// Connect() and Accept() take whole seconds, Send(), Recv() and RecvAll() microseconds; a negative
/// time-out is a failed wait. A wait that a signal handler interrupts is a failed wait as well.
/// Descriptors of any number can be waited for, and are closed on exec.
///
/// Descriptor 0 counts as closed everywhere but in Recv(), RecvAll() and Accept().
///
/// Writing to a connection that the peer has reset raises SIGPIPE: programs ignore that signal.
///
/// A packet connection or a packet service that is stopped ends the waits on its socket without a
/// record: those for data at once, those of Connect() within 100 ms, those for room after 0.3 s.
///
/// @par Threads
/// A socket has no lock. One thread may send while another one receives; everything else is the
/// owner's to serialise.
///
/// @ingroup sockets
class HYBASE_API HCSocket {
  public:
    HCSocket();  ///< closed

    /// Closes the descriptor.
    virtual ~HCSocket();

    HCSocket(const HCSocket&) = delete;  ///< not to be copied
    HCSocket& operator=(const HCSocket&) = delete;

    /// Connects to `host`, a numeric address: IPv6 if it has a ':', else dotted IPv4. A descriptor
    /// that is still open is closed first. Waits up to three times `timeout` seconds: a refusal or
    /// a time-out does not end the attempt before the third wait. Returns 0, or -1; after -1 the
    /// descriptor may be open, but not connected.
    virtual int Connect(const char* host, unsigned short port, int timeout);

    /// Listens on an IPv4 address of this machine, on all of them if `host` is null; backlog 5,
    /// which a packet service raises (HCNetLimits::backlog). Port 0 lets the system choose. A
    /// descriptor that is still open is closed first. Returns 0, or -1; after -1 the descriptor is
    /// closed.
    virtual int Listen(unsigned short port, const char* host);

    /// Waits `timeout` seconds for a connection and returns it as a new socket, to be deleted by
    /// the caller; its m_szHost and m_nPort name the peer. Null for a time-out or a failure. The
    /// socket returned may have descriptor -1, when others kept taking the connections waited for.
    virtual HCSocket* Accept(int timeout);

    /// Sends `len` bytes, all of them or it is a failure. The waits for room take 1 second in all;
    /// `timeout` (in microseconds, counted in whole milliseconds, 10 ms if that gives 0) limits how
    /// long a transfer may go on in pieces. Returns `len`, or -1; the peer may then have got a
    /// part.
    virtual int Send(const char* buf, int len, int timeout);

    /// Receives what is there, at most `len` bytes, waiting up to `timeout` microseconds for the
    /// first. Returns the bytes received, 0 for a time-out, -1 for a failure or when the peer has
    /// closed.
    virtual int Recv(char* buf, int len, int timeout);

    /// Receives exactly `len` bytes through Recv, each piece within `timeout` microseconds (not 0).
    /// Returns `len`, 0 for a time-out (what came before it is lost to the caller), -1 for a
    /// failure.
    virtual int RecvAll(char* buf, int len, int timeout);

    /// Closes the descriptor. Returns 0, or -1 if it was not open or close(2) failed.
    virtual int Close();

    /// Makes the descriptor blocking or not; Connect, Listen and Accept make non-blocking ones.
    /// Returns 0, or -1 if there is no descriptor or it refuses.
    int SetBlockOpt(bool block);

    /// While true, Send tells TCP that more follows at once, so that a header and its payload leave
    /// in one segment. Set it to false before the last piece: what is held back is otherwise
    /// delayed by 200 ms. Default false.
    void SetMore(bool more) { m_bMore = more; }

    int m_nSocket = -1;     ///< descriptor, -1 when closed
    int m_nFamily = 1;      ///< 1 IPv4, 2 IPv6
    int m_nPort = 0;        ///< the peer's port, after Connect and on accepted sockets
    bool m_bBlock = false;  ///< last value given to SetBlockOpt()

  private:
    friend struct SocketInside;  // packet connections and the packet service
    // Both live in the padding: the fields around them keep their places.
    bool m_bMore = false;
    std::atomic<char> m_nCut{0};  // what another thread of this process has cut off

  public:
    sockaddr_in m_addr4{};   ///< the IPv4 address connected to or listened on
    sockaddr_in6 m_addr6{};  ///< the IPv6 address connected to
    char m_szHost[64] = {};  ///< the peer's address text, always terminated
};

#endif
