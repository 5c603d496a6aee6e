#include "hybase/hcutil/HCTCPGrpcServer.h"

#include <hybase/hcutil/HCMutex.h>
#include <hybase/hlog.h>
#include <limits.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <new>

#include "hybase/grpc_private.h"
#include "hybase/hcutil/packet_broadcast.h"
#include "hybase/hcutil/socket_inside.h"
#include "hybase/print.h"

static_assert(sizeof(grpcUser_t) == sizeof(grpcAccount_t) &&
                  offsetof(grpcUser_t, passwd) == offsetof(grpcAccount_t, passwd) &&
                  offsetof(grpcUser_t, level) == offsetof(grpcAccount_t, level),
              "accounts go to the engine as they are");

namespace {

constexpr unsigned int kGrpcPacketType = 0;
constexpr int kResponseWaitSec = 2;
constexpr int kNotificationWaitSec = 5;
constexpr int kMaxAccounts = GRPC_ACCOUNT_MAX;

struct TextDeleter {
    void operator()(char* text) const { cJSON_free(text); }
};
struct MemoryDeleter {
    void operator()(char* memory) const { free(memory); }
};

template <size_t capacity>
void CopyText(char (&to)[capacity], const char* from) {
    size_t length = strnlen(from, capacity - 1);
    memcpy(to, from, length);
    memset(to + length, 0, capacity - length);
}

int32_t SendResponse(_grpc_t* ctx, const char* text, int32_t len) {
    _TCPServer* connection = HCTCPGrpcServer::GetThis(ctx);
    if (connection == nullptr) return -1;
    if (connection->m_pServer != nullptr) connection->m_pServer->PrintMsg_Resp(text);
    return connection->SendPkg(kGrpcPacketType, text, len, kResponseWaitSec);
}

// Not when the link is lost or the server stops.
bool IsLinked(_grpc_t* ctx) {
    _TCPServer* connection = HCTCPGrpcServer::GetThis(ctx);
    if (connection == nullptr || connection->m_pSocket == nullptr) return true;
    return !connection->IsNeedClear() && !SocketInside::CutFlag(*connection->m_pSocket);
}

}  // namespace

// ---- A client's connection ----

_TCPServer::_TCPServer()
    : m_pGrpc(nullptr),
      m_pUserparam(nullptr),
      m_hMutex(nullptr),
      m_bPrintRecv(false),
      m_bPrintResp(false),
      m_pServer(nullptr) {}

_TCPServer::~_TCPServer() {
    StopThread();
    if (m_pGrpc != nullptr) grpc_delete(m_pGrpc);
}

void _TCPServer::PkgReceived(unsigned int type, char* data, int len) {
    if (type != kGrpcPacketType) return;
    data[len] = '\0';
    if (m_pServer != nullptr) m_pServer->PrintMsg_Recv(data);
    if (m_pGrpc == nullptr) return;
    grpc_engine::ServeWhileWanted(m_pGrpc, data, len, m_hMutex, IsLinked);
}

void _TCPServer::OnEvent(NPEvent_e event) {
    if (event != NPE_LOGIN_OK || m_pGrpc == nullptr) return;
    grpcConnInfo_t peer = {};
    memcpy(peer.addr, m_szIp, strnlen(m_szIp, sizeof peer.addr - 1));
    peer.port = m_nPort;
    CopyText(peer.proto, "TCP");
    grpc_set_connection_info(m_pGrpc, peer);
}

// ---- The server ----

HCTCPGrpcServer::HCTCPGrpcServer()
    : m_hMutex(arch_mutex_create()),
      m_pMethods(nullptr),
      m_pUserparam(nullptr),
      m_nLevel(0),
      m_pAccounts(new (std::nothrow) grpcUser_t[kMaxAccounts]()),
      m_nAccountCnt(0),
      m_bPrintRecv(false),
      m_bPrintResp(false),
      m_hAccountsMutex(arch_mutex_create()) {}

HCTCPGrpcServer::~HCTCPGrpcServer() {
    StopService();
    delete[] m_pAccounts;
    arch_mutex_delete(m_hAccountsMutex);
    arch_mutex_delete(m_hMutex);
}

int HCTCPGrpcServer::StartService(grpcMethod_t* methods, int bufsize, const char* ip,
                                  unsigned short port) {
    m_pMethods = methods;
    return Start(bufsize, ip, port);
}

int HCTCPGrpcServer::StartService(grpcMethod_t* methods, int bufsize, unsigned short port) {
    return StartService(methods, bufsize, nullptr, port);
}

int HCTCPGrpcServer::AddAccountItem(grpcUser_t& user) {
    HCMutex lock(m_hAccountsMutex);
    if (m_pAccounts == nullptr || m_nAccountCnt >= kMaxAccounts) return -1;
    grpcUser_t& added = m_pAccounts[m_nAccountCnt];
    CopyText(added.name, user.name);
    CopyText(added.passwd, user.passwd);
    added.level = user.level;
    m_nAccountCnt++;
    return 0;
}

HCNetPackage* HCTCPGrpcServer::CreateServer() {
    std::unique_ptr<_TCPServer> connection(new (std::nothrow) _TCPServer);
    if (connection == nullptr) return nullptr;
    connection->m_pUserparam = m_pUserparam;
    connection->m_hMutex = m_hMutex;
    connection->m_bPrintRecv = m_bPrintRecv;
    connection->m_bPrintResp = m_bPrintResp;

    _grpc_t* ctx = grpc_new();
    connection->m_pGrpc = ctx;
    grpcParam_t param = {};
    param.userparam = connection.get();
    param.send = SendResponse;
    param.s_methods = m_pMethods;
    if (ctx == nullptr || grpc_init(ctx, &param) != 0) return nullptr;
    connection->m_pServer = this;
    ctx->c_account.level = m_nLevel;

    HCMutex lock(m_hAccountsMutex);
    for (int i = 0; i < m_nAccountCnt; i++) {
        grpcAccount_t account;
        memcpy(&account, &m_pAccounts[i], sizeof account);
        grpc_s_account_add(ctx, &account);
    }
    return connection.release();
}

void HCTCPGrpcServer::PrintMsg_Resp(const char* text) {
    if (m_bPrintResp) Print("grpc resp: [%s]\n", text);
}

void HCTCPGrpcServer::PrintMsg_Recv(const char* text) {
    if (m_bPrintRecv) Print("grpc recv: [%s]\n", text);
}

int HCTCPGrpcServer::Send2Client(HCNetPackage* target, const char* method, cJSON* json, void* bin,
                                 int binlen) {
    cJSON_AddStringToObject(json, "method", method);
    std::unique_ptr<char, TextDeleter> text(cJSON_PrintUnformatted(json));
    if (text == nullptr) return -1;
    PrintMsg_Resp(text.get());

    size_t length = strlen(text.get()) + 1;
    if (bin == nullptr || binlen <= 0) return SendMessage(target, text.get(), length);
    // The text is cJSON's, whose allocator need not be realloc's: the message is a block of its
    // own.
    size_t tail = static_cast<size_t>(binlen);
    std::unique_ptr<char, MemoryDeleter> message;
    if (length + tail <= INT_MAX)
        message.reset(static_cast<char*>(realloc(nullptr, length + tail)));
    if (message == nullptr) {
        HLOG_ERR("realloc err NULL\n");
        return -1;
    }
    memcpy(message.get(), text.get(), length);
    memcpy(message.get() + length, bin, tail);
    return SendMessage(target, message.get(), length + tail);
}

int HCTCPGrpcServer::SendMessage(const HCNetPackage* target, const char* message, size_t length) {
    if (length > INT_MAX) return -1;
    // Clients that come and go do not wait for those that are slow: only the choice is a walk.
    BeginWalk();
    PacketBroadcast broadcast(target != nullptr ? 1 : GetCnt());
    for (int i = 0; i < GetCnt(); i++) {
        auto* connection = dynamic_cast<_TCPServer*>(At(i));
        if (connection == nullptr || connection->IsNeedClear()) continue;
        if (target == nullptr || target == connection) broadcast.Pin(*connection);
    }
    EndWalk();
    return broadcast.Send(kGrpcPacketType, message, static_cast<int>(length), kNotificationWaitSec);
}

_TCPServer* HCTCPGrpcServer::GetThis(_grpc_t* ctx) {
    return ctx != nullptr ? static_cast<_TCPServer*>(ctx->userparam) : nullptr;
}

void* HCTCPGrpcServer::GetUserparam(_grpc_t* ctx) {
    _TCPServer* connection = GetThis(ctx);
    return connection != nullptr ? connection->m_pUserparam : nullptr;
}
