/// @file
/// @ingroup packets
/// The listening side of the packet protocol: accepts connections, runs the server half of the
/// login, makes a connection object for each client that is admitted, and removes the dead ones.
#ifndef HYBASE_HCUTIL_HCNETPACKAGESERVICE_H
#define HYBASE_HCUTIL_HCNETPACKAGESERVICE_H

#include <hybase/export.h>
#include <hybase/hcutil/HCNetLimits.h>
#include <hybase/hcutil/HCNetPackage.h>
#include <hybase/hcutil/HCObjVector.h>
#include <hybase/hcutil/HCSocket.h>
#include <hybase/hcutil/HCThread.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <string>

/// The listening side of the packet protocol: accepts connections, runs the server half of the
/// login, makes a connection object for each client that is admitted, and removes the dead ones.
///
/// Derive from it, override CreateServer() (and CheckPasswd() to decide who may log in):
///
///     class MeterService : public HCNetPackageService {
///       public:
///         ~MeterService() override { StopService(); }  // see StopService
///         HCNetPackage* CreateServer() override { return new (std::nothrow) Meter; }
///     };
///
/// @par Threads
/// One accepting thread a service, which runs the hooks CheckPasswd() and CreateServer(): while one
/// of them takes its time, no other client is let in. Each connection has its own thread. The
/// accepting thread collects the logins of all peers as they come; each peer has 5 seconds for each
/// piece of its login, and delays no other. (Over a socket class that an application derives,
/// logins are read one after the other.) The connections are kept in the HCObjVector base, which
/// changes on the accepting thread; any other thread that walks it does so between BeginWalk() and
/// EndWalk().
///
/// Nothing throws. Diagnostics are log records (hlog.h).
///
/// @ingroup packets
class HYBASE_API HCNetPackageService : public HCThread, public HCObjVector {
  public:
    HCNetPackageService();  ///< no socket, no thread: Start brings both

    /// Stops the service as StopService() does and deletes the listening socket.
    ~HCNetPackageService() override;

    HCNetPackageService(const HCNetPackageService&) = delete;  ///< not to be copied
    HCNetPackageService& operator=(const HCNetPackageService&) = delete;

    /// The body of the accepting thread. Returns null.
    void* OnThread(void* userdata) override;

    /// Decides a login. `data[0..len-1]` is the credential record the client sent (a zero byte
    /// follows it); `sock` the accepted socket, for a look at the peer only. Returns true to admit
    /// the client; false to refuse it, with a text for the client in `message` or without ("FAILED"
    /// is sent then). Here every client is admitted. Accepting thread.
    virtual bool CheckPasswd(const char* data, int len, HCSocket* sock, std::string& message);

    /// Makes the object for a client that has logged in; owned by the service from then on. Null:
    /// the client's connection is closed, as it is when no thread can be had. Accepting thread.
    virtual HCNetPackage* CreateServer() = 0;

    /// Listens on `ip` (null: all addresses) and `port` and starts the accepting thread. `bufsize`:
    /// receive buffer of each connection, bytes. 0, or -1 when listening failed, `ip` is no IPv4
    /// address (with an HCSocket), or no thread can be had.
    /// A second call stops accepting, cuts the logins under way, listens again with the same socket
    /// object and goes on; connections made before it stay.
    int Start(int bufsize, const char* ip, unsigned short port);

    /// The same on all addresses.
    int Start(int bufsize, unsigned short port);

    /// Sets the socket to listen with, e.g. an HCUnixSocket, owned by the service from now on; the
    /// one held before is not freed. Call it before Start.
    void SetSocket(HCSocket* sock);

    /// Limits what clients may cost, from the next Start on; clients that are there already keep
    /// what they have. Any thread.
    void SetLimits(const HCNetLimits& limits);

    /// Removes and disposes of the connections that are lost (HCNetPackage::IsNeedClear()), waiting
    /// for their threads. The accepting thread does so on every 22nd pass, that is about every 22
    /// seconds when nobody connects. Not from a hook of a connection: it could be the one that
    /// goes; nor within a walk.
    void _CleanServers();

    /// @name Fields
    /// @{

    std::atomic<HCSocket*> m_pListenSocket;  ///< owned; null until Start() or SetSocket()
    int m_nBufSize;                          ///< bytes, default 10240
    unsigned short m_nPort;                  ///< the port listened on
    std::atomic<bool> m_bRun;                ///< cleared to make the accepting thread end

    /// @}

  protected:
    /// Stops accepting, closes the listening socket, stops and disposes of every connection. Takes
    /// less than a second whatever the peers do, unless a hook runs for longer or, without
    /// max_packet_bytes, a huge request is being parsed: all connections and logins are cut,
    /// without an event and without an ERR record, and answers under way have 0.3 s to go out.
    /// Call it first in the destructor of every class
    /// that derives from this one: the threads call CheckPasswd(), CreateServer() and the hooks of
    /// the connections, and must not find a half-destroyed object. Calling it again does nothing.
    /// Not from a hook.
    void StopService();

    /// Begins a walk: until EndWalk() the connections neither change nor go away. Any thread, hooks
    /// included; a thread may walk within its own walk. Keep walks short: the next client waits for
    /// them.
    void BeginWalk();

    /// Ends what BeginWalk() began, on the same thread.
    void EndWalk();

  private:
    friend class HCNetPackage;  // WaitingLogin answers what it has read

    // On the owner's thread.
    HCNetLimits TakeLimits();
    int Listen(HCSocket& sock, const char* ip, unsigned short port);
    void StopAccepting();
    void CutLogins(bool cut);
    void StopAndDispose(HCObjOfVector* element);
    int ForAll(bool (*act)(HCNetPackage&));

    // On the accepting thread.
    void AcceptPass(HCSocket& listening);
    void AcceptWithQueue(HCSocket& listening);
    void AcceptOwnWay(HCSocket& listening);
    bool LogInOwnWay(HCSocket* sock);
    void FinishLogins();
    bool AnswerLogin(HCSocket& sock, const char* record, int bytes);
    const char* RefusalByLimits(const HCSocket& sock);
    void Admit(std::unique_ptr<HCSocket> sock);
    void SetLoginSocket(HCSocket* sock);

    HCObjOfVector* UnlinkLost(bool wait_for_threads);
    bool UnlinkFirst(HCObjOfVector*& element);
    HCObjOfVector* UnlinkIt(const HCNetPackage* connection);
    void LockForChange();
    void UnlockAfterChange();

    struct State;
    std::unique_ptr<State> m_pState;     // null when memory was short: Start fails then
    bool m_bCutLogins;                   // guarded by m_hLoginMutex
    arch_mutex_t m_hLoginMutex;          // guards the socket of the login under way, too
    pthread_rwlock_t m_connectionsLock;  // guards the elements of the HCObjVector base
    std::atomic<int> m_nWaitingChanges;  // threads that wait for a walk to end
};

#endif
