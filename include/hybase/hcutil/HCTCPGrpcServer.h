/// @file
/// @ingroup rpc_transport
/// The JSON call engine (grpc.h) served over packet connections.
#ifndef HYBASE_HCUTIL_HCTCPGRPCSERVER_H
#define HYBASE_HCUTIL_HCTCPGRPCSERVER_H

#include <hybase/export.h>
#include <hybase/grpc.h>
#include <hybase/hcutil/HCNetPackage.h>
#include <hybase/hcutil/HCNetPackageService.h>
#include <hyplatform/arch.h>
#include <stddef.h>
#include <stdint.h>

#include <atomic>

/// @ingroup rpc_transport
/// An account of a server: the same layout as grpcAccount_t.
typedef struct {
    char name[32];     ///< the user
    char passwd[128];  ///< the password
    int32_t level;     ///< a lower level has more rights, 0 has all
} grpcUser_t;

class HCTCPGrpcServer;

/// @ingroup rpc_transport
/// One client of an HCTCPGrpcServer, made by its CreateServer().
class HYBASE_API _TCPServer : public HCNetPackage {
  public:
    /// A connection without a server: CreateServer() fills in the fields below.
    _TCPServer();

    /// Stops the thread, then frees the context.
    ~_TCPServer() override;

    /// Serves a packet of type 0 as one request; others are ignored.
    void PkgReceived(unsigned int type, char* data, int len) override;

    /// Stores the peer's address in the context at NPE_LOGIN_OK.
    void OnEvent(NPEvent_e event) override;

    /// @name Fields
    /// @{

    _grpc_t* m_pGrpc;            ///< owned; the context that serves this client
    void* m_pUserparam;          ///< the server's
    arch_mutex_t m_hMutex;       ///< the server's, not owned
    bool m_bPrintRecv;           ///< the server's
    bool m_bPrintResp;           ///< the server's
    HCTCPGrpcServer* m_pServer;  ///< not owned; null for a connection without a server

    /// @}
};

/// The JSON call engine (grpc.h) served over packet connections.
///
/// Each client that logs in gets a _TCPServer: a packet connection with a server context of its
/// own. Every packet of type 0 is one request, answered by one packet of type 0.
///
///     HCTCPGrpcServer server;
///     grpcUser_t owner = {"owner", "secret", 0};
///     server.AddAccountItem(owner);
///     server.m_pUserparam = &device;
///     if (server.StartService(methods, 10240, 9000) != 0) ...
///
/// Every login is admitted at the packet level (unless a derived class overrides CheckPasswd());
/// access is decided request by request with the accounts' digests.
///
/// @par Threads
/// Handlers run on the thread of their connection with m_hMutex held, so handlers of one server
/// never run at the same time. The mutex is also held while the accounts of a context are read, but
/// not while a request is parsed, its digest computed, the response printed or sent: no large
/// request and no slow peer holds up the others. Handlers may call Send2Client, which any thread
/// may. When a message cannot be sent, OnEvent(NPE_DISCONNECTED) of the connection runs inside that
/// send, with its m_hSendMutex held, and with m_hMutex when a handler sends: an override takes
/// neither.
///
/// @ingroup rpc_transport
class HYBASE_API HCTCPGrpcServer : public HCNetPackageService {
  public:
    HCTCPGrpcServer();  ///< no accounts, no socket, no thread

    /// Stops the service, then frees what its threads used. A derived class calls StopService()
    /// first in its own destructor.
    ~HCTCPGrpcServer() override;

    /// A _TCPServer with the table, the accounts and the settings of this moment; null when memory
    /// is short.
    HCNetPackage* CreateServer() override;

    /// Prints a text that is sent, as `"grpc resp: [%s]\n"` on standard output, if m_bPrintResp is
    /// set; with hlog_set_print() elsewhere. m_hMutex is held only when a handler calls
    /// Send2Client(), so an override may run for several connections at the same time.
    virtual void PrintMsg_Resp(const char* text);

    /// Prints a text that was received, as `"grpc recv: [%s]\n"` on standard output, if
    /// m_bPrintRecv is set; otherwise as PrintMsg_Resp().
    virtual void PrintMsg_Recv(const char* text);

    /// Starts serving `methods` (not copied; ends with a row without a name; must outlive the
    /// server). Otherwise as HCNetPackageService::Start.
    int StartService(grpcMethod_t* methods, int bufsize, const char* ip, unsigned short port);

    /// The same on all addresses.
    int StartService(grpcMethod_t* methods, int bufsize, unsigned short port);

    /// Adds a copy of an account; name and password are cut to 31 and 127 characters. 0, or -1 when
    /// there are 32 already or memory was short. Call it before StartService(): only clients that
    /// connect later are checked against it.
    int AddAccountItem(grpcUser_t& user);

    /// Sends a message of the server's own (a notification) to `target`, or to every client when
    /// `target` is null. Adds the member "method" to `json` (again with each call), which stays the
    /// caller's; `bin[0..binlen-1]` follows the text and its zero byte as binary data.
    /// Returns what SendPkg() gave: the bytes of the message, or its failure (of the last client,
    /// when there are several); -1 when there was no client to send to, `target` has left, or
    /// memory is short. Any thread, also from a handler. Clients without room are waited for
    /// together, each as long as SendPkg() would wait for it alone; no client that comes or goes
    /// waits meanwhile, and none is deleted while it is being sent to.
    int Send2Client(HCNetPackage* target, const char* method, cJSON* json, void* bin, int binlen);

    /// For handlers: the connection a context belongs to.
    static _TCPServer* GetThis(_grpc_t* ctx);

    /// For handlers: the m_pUserparam of the server; null when the context has no connection.
    static void* GetUserparam(_grpc_t* ctx);

    /// @name Fields
    /// Set m_pUserparam and m_nLevel before StartService().
    /// @{

    arch_mutex_t m_hMutex;                  ///< owned; held while a handler runs, see Threads above
    std::atomic<grpcMethod_t*> m_pMethods;  ///< not owned
    void* m_pUserparam;                     ///< the owner's pointer, default null
    int m_nLevel;             ///< default 0; becomes the c_account level of each client's context
    grpcUser_t* m_pAccounts;  ///< owned; 32 records
    int m_nAccountCnt;        ///< how many of them are in use
    std::atomic<bool> m_bPrintRecv;  ///< default false
    std::atomic<bool> m_bPrintResp;  ///< default false

    /// @}

  private:
    int SendMessage(const HCNetPackage* target, const char* message, size_t length);

    arch_mutex_t m_hAccountsMutex;  // guards m_pAccounts and m_nAccountCnt
};

#endif
