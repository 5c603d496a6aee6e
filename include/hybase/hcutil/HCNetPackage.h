/// @file
/// @ingroup packets
/// One framed, logged-in, kept-alive connection over an HCSocket, run by its own thread.
#ifndef HYBASE_HCUTIL_HCNETPACKAGE_H
#define HYBASE_HCUTIL_HCNETPACKAGE_H

#include <hybase/export.h>
#include <hybase/hcutil/HCNetLimits.h>
#include <hybase/hcutil/HCObjVector.h>
#include <hybase/hcutil/HCSocket.h>
#include <hybase/hcutil/HCThread.h>
#include <hyplatform/arch.h>
#include <time.h>

#include <atomic>
#include <memory>

class HCNetPackageService;
class TransferWatch;
struct Pieces;

/// @ingroup packets
/// What HCNetPackage::OnEvent() reports.
enum NPEvent_e {
    NPE_DISCONNECTED = 0,    ///< a receive or SendPkg() failed, or a bad header or a limit ended it
    NPE_LOGIN_OK = 1,        ///< client: the login reply was "OK"; server: StartAsServer()
    NPE_TIMEOUT = 2,         ///< the peer was silent for m_nMaxTimeoutCnt no-data intervals
    NPE_CONNECT_FAILED = 3,  ///< client: the socket could not be connected
    NPE_LOGIN_FAILED = 4     ///< client: the login reply was not "OK"
};

/// @ingroup packets
/// States of a connection; 0 until a StartAs... call.
enum NPState_e {
    NPS_DISCONNECTED = 1,  ///< no link; a client tries again
    NPS_CONNECTING = 2,    ///< the socket is being connected
    NPS_CONNECTED = 3,     ///< the socket is connected, the login under way
    NPS_LOGIN_FAILED = 4,  ///< passed through only: a refused login ends in NPS_DISCONNECTED
    NPS_READY = 5          ///< logged in: the only state in which data is sent
};

/// One framed, logged-in, kept-alive connection over an HCSocket, run by its own thread.
///
/// A client connects, logs in with a credential record and, after a loss, does both again for as
/// long as the object lives. A server connection gets an accepted, already logged-in socket from
/// the packet service (HCNetPackageService.h) and ends its thread when the link is lost.
///
/// A lost link (a failed send, a bad header, silence, a limit) is cut at once: the peer sees the
/// close, and a server connection executes nothing more that came over it. After a failed send the
/// system drops what it still had to send.
///
/// A client tries again at once after a loss, 10 seconds after a connect or login that failed. One
/// that was let in and lost within a second pauses before: 100 ms, doubling up to 10 seconds, each
/// 25 percent more or less.
///
/// [docs/protocol.md](docs/protocol.md) shows the bytes on the wire.
///
/// Use it by deriving from it and overriding the hooks PkgReceived(), TimerTick_Nodata() and
/// OnEvent().
///
///     class Meter : public HCNetPackage {
///       public:
///         ~Meter() override { StopThread(); }  // see StopThread
///         void PkgReceived(unsigned int type, char* data, int len) override;
///     };
///
/// @par Threads
/// "The connection thread" is the one that StartAsClient() or StartAsServer() starts; it calls the
/// hooks. SendPkg() and SetPasswdInfo() may be called by any thread at any time, hooks included,
/// except where OnEvent() says otherwise. Everything else belongs to the owner, and the tuning
/// fields are set before the start.
///
/// Nothing throws. Diagnostics are log records (hlog.h).
///
/// A write to a connection that the peer has reset raises SIGPIPE: the application must ignore or
/// handle that signal.
///
/// @ingroup packets
class HYBASE_API HCNetPackage : public HCThread, public HCObjOfVector {
  public:
    HCNetPackage();  ///< no socket, no thread: a StartAs... call brings both

    /// Stops the thread as StopThread() does, closes and deletes the socket. No other thread may be
    /// inside a call of this object any more.
    ~HCNetPackage() override;

    HCNetPackage(const HCNetPackage&) = delete;  ///< not to be copied
    HCNetPackage& operator=(const HCNetPackage&) = delete;

    /// The body of the connection thread. Returns null.
    void* OnThread(void* userdata) override;

    /// @name Hooks
    /// They do nothing here, and must not block for long: the next receive, keep-alive and
    /// time-outs wait for them. A stop raises no event.
    /// @{

    /// A data packet that is not empty. `data[0..len-1]` is the payload and `data[len]` a zero
    /// byte, both free to be written to and valid until the hook returns. Connection thread, no
    /// lock held.
    virtual void PkgReceived(unsigned int type, char* data, int len);

    /// No packet came within `usec` microseconds (500000). Connection thread, no lock held.
    virtual void TimerTick_Nodata(unsigned int usec);

    /// Mostly on the connection thread, without a lock. Exceptions: StartAsServer() and a
    /// StartAsClient() that connects at once call it on their caller's thread, and NPE_DISCONNECTED
    /// after a failed send comes on the sender's thread with m_hSendMutex held: a hook must not
    /// take it, nor call SendPkg() on this same connection. One loss is one event.
    virtual void OnEvent(NPEvent_e event);
    /// @}

    /// @name Starting
    /// A second StartAs... call first stops the thread of the one before as StopThread() does.
    /// @{

    /// Starts a client of `host`:`port` (for an HCUnixSocket the host is the name). At most 64
    /// characters of `host` are kept. `bufsize`: default capacity of the receive buffer, bytes.
    /// `connectNow`: the first attempt to connect and log in is made before the call returns.
    /// `sock`: the socket to connect with, owned by this object from now on; taken only if none is
    /// held yet (else it stays the caller's). Null: an HCSocket is made. A failure to connect is
    /// not reported here but by OnEvent(). After a failure of `connectNow` the thread makes its
    /// first attempt at once. Without memory for a thread the state is NPS_DISCONNECTED.
    void StartAsClient(int bufsize, const char* host, unsigned short port, bool connectNow,
                       HCSocket* sock);

    /// The same with the socket of SetSocket(), or an HCSocket.
    void StartAsClient(int bufsize, const char* host, unsigned short port, bool connectNow);

    /// Starts the server end on a connected, logged-in socket, owned by this object from now on.
    /// Raises NPE_LOGIN_OK on the caller's thread before the thread runs. A null socket is logged
    /// and starts nothing. When no thread can be had the socket is closed at once.
    void StartAsServer(int bufsize, HCSocket* sock);

    /// Gives the connection the socket to use, e.g. an HCUnixSocket; call it before
    /// StartAsClient(). Owned by this object from now on if it held none; otherwise, and when null,
    /// nothing changes.
    void SetSocket(HCSocket* sock);

    /// Replaces the credential record by a copy of `data[0..len-1]`, used from the next login on.
    /// Nothing changes when either is 0, `len` is negative or memory is short. A record of fewer
    /// than 11 bytes cannot log in: its reply would not fit the reply buffer, which is one byte
    /// larger than the record. For the same reason the record bounds what is seen of a refusal
    /// text.
    void SetPasswdInfo(const char* data, int len);

    /// Limits what the peer may cost: max_packet_bytes, packet_sec, max_unsent_bytes, unsent_sec
    /// and min_bytes_per_sec; the others are a service's. Call it before the start. A service that
    /// has limits sets them for its connections after CreateServer().
    void SetLimits(const HCNetLimits& limits);
    /// @}

    /// @name Sending
    /// @{

    /// Sends one data packet whose payload is `bufs[0..count-1]` back to back; pieces of length 0
    /// or less are skipped. `waitSec`: how long to wait for a login under way, seconds, in steps of
    /// 100 ms; 0 fails at once. Returns the length of the last non-empty piece (12 when there is
    /// none), -1 when sending failed (the state is then NPS_DISCONNECTED), -21 when not logged in.
    /// Without limits on sending it fails after 1 second without room for a piece. A payload above
    /// INT_MAX bytes is refused with -1 and leaves the connection as it is. Any thread; takes
    /// m_hSendMutex, so packets of several threads are never mixed.
    int SendPkg(unsigned int type, const char** bufs, const int* lens, int count, int waitSec);

    /// Sends one data packet whose payload is `data[0..len-1]`, as above.
    int SendPkg(unsigned int type, const char* data, int len, int waitSec);

    /// True when the link is lost (NPS_DISCONNECTED): the packet service removes such connections.
    /// Any thread.
    bool IsNeedClear();
    /// @}

    /// @name The server half of the login, before a connection object exists
    /// Accepting thread.
    /// @{

    /// Reads a login request from `sock` (at most 5 seconds a read), has it decided by the limits
    /// of `svc` and by `svc->CheckPasswd`, and answers: "OK", the refusal text, or "FAILED". True
    /// when the client is admitted and the reply was sent. Anything but a login request is not
    /// answered. Keeps no pointer. A service calls it for sockets of classes that an application
    /// derives.
    static bool WaitingLogin(HCNetPackageService* svc, HCSocket* sock);

    /// Sends one login reply. 0, or -1 when it could not be sent whole.
    static int ResponseLogin(HCSocket* sock, const char* msg, int len);
    /// @}

    /// @name Reading packets
    /// `flag`, `type` and `len` are those of the header, 0 when none came whole. `empty` says
    /// whether a header of length 0 came. Result: the payload's length; 0 when the packet was empty
    /// or nothing came whole in time; -1 when the link failed or the header is bad.
    /// @{

    /// Into the caller's buffer, 5 seconds a read. A payload longer than `maxlen` is cut, `len`
    /// with it, and the rest stays in the stream. A buffer of fewer than 12 bytes never gets a
    /// packet.
    static int __get_a_package(HCSocket* sock, unsigned int& flag, unsigned int& type, int& len,
                               bool& empty, char* buf, int maxlen);

    /// Into m_pRecvBuf, which grows with the payload as it comes; `usec` microseconds a read, or
    /// until the limits on receiving once the first byte is there. Connection thread only.
    int _getPackage(unsigned int& flag, unsigned int& type, int& len, bool& empty, int usec);
    /// @}

    /// @name For users that move packets by other means; not used by the connection itself
    /// @{

    /// Takes one packet out of `data[0..len-1]` and hands it to PkgReceived(). Returns the bytes
    /// consumed, -1 when the packet is not complete or its length is negative. A first word that is
    /// not a data packet's is logged only. The block must own one writable byte behind `len`:
    /// PkgReceived() may write one behind the payload (what lies inside the block is put back
    /// afterwards).
    int _ProgressData(char* data, int len);

    /// On a client, applies a login reply: NPS_READY and NPE_LOGIN_OK if it begins with "OK",
    /// otherwise NPS_LOGIN_FAILED and NPE_LOGIN_FAILED.
    void _ServerClientCheckingPasswd(const char* reply, int len);
    /// @}

    /// @name Steps of the connection thread
    /// @{

    /// Connects and logs in unless the connection is in use. True when it may be used (always, for
    /// a server connection, which never reconnects).
    bool _ConnectIfNeeded();

    /// Sends the credential record and applies the reply. Failures leave the state as it is.
    void _ClientLoginIfNeeded();
    /// @}

    /// @name Fields
    /// Those with a default may be set before StartAs...; the others are for reading.
    /// @{

    HCSocket* m_pSocket;       ///< owned; null until the first connect and after the thread's end
    bool m_bServer;            ///< server end of a connection
    char m_szIp[64];           ///< peer; not terminated when it has 64 characters
    unsigned short m_nPort;    ///< peer
    std::atomic<bool> m_bRun;  ///< cleared to make the thread end
    char* m_pRecvBuf;          ///< owned; holds m_nRecvBufSize bytes and a spare one
    int m_nRecvBufSize;        ///< current capacity, bytes
    int m_nRecvBufDefSize;     ///< capacity between packets, bytes
    int m_nKeepAliveSec;       ///< seconds, default 10: a keep-alive is sent after that long
                               ///< without a send, and a no-data interval is counted after 2
                               ///< more without a packet; 0 or less: none, nor any clock check
    int m_nMaxTimeoutCnt;      ///< default 3: no-data intervals that make the link lost
    std::atomic<time_t> m_tLastSend;  ///< arch_time() of the last send or keep-alive
    char* m_pPasswd;                  ///< owned; credential record, default "owner;908172"
    int m_nPasswdLen;                 ///< bytes, without a terminator
    std::atomic<int>
        m_nConnectState;        ///< NPState_e; a reconnect sets NPS_CONNECTING under m_hSendMutex
    arch_mutex_t m_hSendMutex;  ///< owned; held while a packet is sent or the socket is closed
    int m_nConnectTimeout;      ///< seconds, default 10, a wait of HCSocket::Connect()
    int m_nSendTimeout;         ///< microseconds, default 10000000, each HCSocket::Send()

    /// @}

  protected:
    /// Makes the connection thread end and waits for it. Cuts every wait of it and of senders, a
    /// connect within 100 ms, without an event and without an ERR record; a packet that is being
    /// sent has 0.3 s to go out. Only a hook that runs, one step of a request and a broadcast of
    /// the service under way are waited for. Call it
    /// first in the destructor of every class that derives from this one: when that destructor has
    /// run, the hooks of the derived class are gone, and a thread still running would call into a
    /// half-destroyed object. Calling it again does nothing. Not from a hook.
    void StopThread();

  private:
    struct SilenceWatch;

    friend class HCNetPackageService;  // calls the two halves of StartAsServer, and cuts links
    friend class PacketBroadcast;      // sends to many connections at once

    // On the owner's thread, or on the accepting thread of a service.
    void AdoptClient(int bufsize, HCSocket* sock);
    void PrepareRecvBuf(int size);
    void Launch();
    bool TryLaunch();
    void SetHost(const char* host);

    // Any thread.
    void TellToStop();
    void CutLink(char what);  // SocketInside::Cut
    void AbortLink();
    bool InUse() const;
    bool IsStopping() const;
    HCSocket* Socket() const;

    // Sending: any thread, without a lock. Some return with m_hSendMutex.
    bool LockWhenReady(int wait_sec);
    void LockSending();
    bool TryLockSending();
    bool TooMuchUnsent() const;
    int EndForUnsent();

    // The same with m_hSendMutex held. FinishSend and UnlockSending give it back.
    int SendPieces(unsigned int type, const Pieces& pieces, int total);
    bool FailSend();
    void FinishSend(int sent);
    void UnlockSending();

    // On the connection thread, without a lock; RaiseLost also on a sender's, with m_hSendMutex.
    int RecvHeaderInTime(int usec, TransferWatch& watch, unsigned int& flag, unsigned int& type,
                         int& len);
    int RecvPayload(int len, int usec, TransferWatch* watch);
    bool AllocRecvBuf(int size);
    bool GrowRecvBuf(int kept, int most);
    bool ResizeRecvBuf(int size, int kept);
    void ShrinkRecvBuf();
    void LogNoMemory(int bytes) const;
    bool HoldSocket();
    std::unique_ptr<char[]> CopyRecord(int& bytes);
    void ApplyLoginReply(const char* reply, int len);
    void RaiseLost(NPEvent_e event);
    bool LoseLink();
    void Pause(int ms);
    void PauseAfterQuickLoss();
    void GiveUpSocket();
    bool WatchSilence(SilenceWatch& watch);
    void ReceiveOne(SilenceWatch& watch);

    struct State;
    std::unique_ptr<State> m_pState;  // null when memory was short: nothing starts then
    std::atomic<bool> m_bInThread;    // the connection thread is inside OnThread
};

#endif
