/// @file
/// @ingroup rpc_transport
/// The JSON call engine (grpc.h) used from the calling side over a packet connection.
#ifndef HYBASE_HCUTIL_HCTCPGRPCCLIENT_H
#define HYBASE_HCUTIL_HCTCPGRPCCLIENT_H

#include <hybase/export.h>
#include <hybase/grpc.h>
#include <hybase/hcutil/HCNetPackage.h>

/// The JSON call engine (grpc.h) used from the calling side over a packet connection.
///
/// The client connects, logs in and reconnects by itself (HCNetPackage.h says when). Requests are
/// made with the engine's calls on m_pGrpc; each response or notification is handed to the handler
/// of its method:
///
///     HCTCPGrpcClient client;
///     client.Start(handlers, 10240, "192.0.2.7", 9000, false);
///     grpc_lock(client.m_pGrpc);
///     client.m_pGrpc->json = request;           // {"method": ..., "param": ...}
///     int sent = grpc_c_send(client.m_pGrpc);   // waits at most 2 seconds for the login
///     grpc_end(client.m_pGrpc);
///     grpc_unlock(client.m_pGrpc);
///
/// @par Threads
/// Handlers run on the connection thread between grpc_lock() and grpc_unlock(); other threads take
/// grpc_lock() around every use of the context. Waiting for a response on the spot (grpc_c_recv())
/// is not available over this transport. When a request cannot be sent, OnEvent(NPE_DISCONNECTED)
/// runs inside grpc_c_send(), with grpc_lock() and m_hSendMutex held: an override takes neither.
///
/// @ingroup rpc_transport
class HYBASE_API HCTCPGrpcClient : public HCNetPackage {
  public:
    HCTCPGrpcClient();  ///< a fresh context, no socket, no thread

    /// Stops the thread, then frees the context. A derived class calls StopThread() first in its
    /// own destructor.
    ~HCTCPGrpcClient() override;

    /// Hands a packet of type 0 to the handler of its method; others are ignored.
    void PkgReceived(unsigned int type, char* data, int len) override;

    /// Sets the context up and starts the connection; `methods` (not copied; ends with a row
    /// without a name; must outlive the client) are the handlers of responses and notifications.
    /// The rest is as in HCNetPackage::StartAsClient(). Returns 0, -1 when m_pGrpc is null. A
    /// second call keeps the account and connects anew.
    int Start(grpcMethod_t* methods, int bufsize, const char* ip, unsigned short port,
              bool connectNow, HCSocket* sock);

    /// The same with the socket of SetSocket(), or an HCSocket.
    int Start(grpcMethod_t* methods, int bufsize, const char* ip, unsigned short port,
              bool connectNow);

    /// For handlers: the client a context belongs to.
    static HCTCPGrpcClient* GetThis(_grpc_t* ctx);

    _grpc_t* m_pGrpc;  ///< owned; null when memory was short
};

#endif
