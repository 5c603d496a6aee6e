#include "hybase/hcutil/HCTCPGrpcClient.h"

#include <hybase/hlog.h>
#include <string.h>

namespace {

constexpr unsigned int kGrpcPacketType = 0;
constexpr int kRequestWaitSec = 2;

int32_t SendRequest(_grpc_t* ctx, const char* text, int32_t len) {
    HCTCPGrpcClient* client = HCTCPGrpcClient::GetThis(ctx);
    return client != nullptr ? client->SendPkg(kGrpcPacketType, text, len, kRequestWaitSec) : -1;
}

int32_t RefuseToReceive(_grpc_t*, char*, int32_t, void*) {
    HLOG_ERR("not support now\n");
    return 0;
}

grpcConnInfo_t Peer(const char* host, unsigned short port) {
    grpcConnInfo_t peer = {};
    if (host != nullptr) memcpy(peer.addr, host, strnlen(host, sizeof peer.addr - 1));
    peer.port = port;
    memcpy(peer.proto, "TCP", sizeof "TCP");
    return peer;
}

}  // namespace

HCTCPGrpcClient::HCTCPGrpcClient() : m_pGrpc(grpc_new()) {}

HCTCPGrpcClient::~HCTCPGrpcClient() {
    StopThread();
    if (m_pGrpc != nullptr) grpc_delete(m_pGrpc);
}

int HCTCPGrpcClient::Start(grpcMethod_t* methods, int bufsize, const char* ip, unsigned short port,
                           bool connectNow, HCSocket* sock) {
    if (m_pGrpc == nullptr) return -1;
    StopThread();
    grpcParam_t param = {};
    param.userparam = this;
    param.send = SendRequest;
    param.recv = RefuseToReceive;
    param.c_methods = methods;
    // Other threads may be using the context, but not before the first start.
    const bool in_use = GetThis(m_pGrpc) == this;
    if (in_use) grpc_lock(m_pGrpc);
    grpc_init(m_pGrpc, &param);
    grpc_set_connection_info(m_pGrpc, Peer(ip, port));
    if (in_use) grpc_unlock(m_pGrpc);
    StartAsClient(bufsize, ip, port, connectNow, sock);
    return 0;
}

int HCTCPGrpcClient::Start(grpcMethod_t* methods, int bufsize, const char* ip, unsigned short port,
                           bool connectNow) {
    return Start(methods, bufsize, ip, port, connectNow, nullptr);
}

void HCTCPGrpcClient::PkgReceived(unsigned int type, char* data, int len) {
    if (type != kGrpcPacketType) return;
    grpc_lock(m_pGrpc);
    grpc_c_resp_direct(m_pGrpc, data, len);
    grpc_end(m_pGrpc);
    grpc_unlock(m_pGrpc);
}

HCTCPGrpcClient* HCTCPGrpcClient::GetThis(_grpc_t* ctx) {
    return ctx != nullptr ? static_cast<HCTCPGrpcClient*>(ctx->userparam) : nullptr;
}
