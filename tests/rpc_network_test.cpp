#include <gtest/gtest.h>
#include <hybase/hcutil/HCTCPGrpcClient.h>
#include <hybase/hcutil/HCTCPGrpcServer.h>
#include <signal.h>

#include <atomic>

#include "support/log_records.h"
#include "support/vtable_slots.h"

namespace {

std::atomic<int> g_serving{0}, g_events{0};
std::atomic<HCNetPackage*> g_caller{nullptr};
string g_tail;

int Notify(HCTCPGrpcServer& server, HCNetPackage* target, string tail) {
    std::unique_ptr<cJSON, decltype(&cJSON_Delete)> json(cJSON_Parse(R"({"n":1})"), cJSON_Delete);
    return server.Send2Client(target, "event", json.get(), tail.data(), int(tail.size()));
}

int32_t Add(_grpc_t* ctx) {
    g_caller = HCTCPGrpcServer::GetThis(ctx);
    cJSON* param = cJSON_GetObjectItem(ctx->json, "param");
    const int sum = param->child->valueint + param->child->next->valueint + ctx->c_account.level;
    cJSON_AddNumberToObject(ctx->json, "sum", sum);
    const grpcConnInfo_t peer = grpc_get_connection_info(ctx);
    EXPECT_STREQ(peer.addr, "127.0.0.1");
    EXPECT_STREQ(peer.proto, "TCP");
    EXPECT_EQ(HCTCPGrpcServer::GetUserparam(ctx), &g_tail);
    return 0;
}

// Tells everybody, and sends the caller its own tail back.
int32_t Spread(_grpc_t* ctx) {
    EXPECT_EQ(g_serving++, 0);  // handlers of one server never run at the same time
    Notify(*HCTCPGrpcServer::GetThis(ctx)->m_pServer, nullptr, "!");
    int32_t len = 0;
    const void* tail = grpc_get_recv_bindata(ctx, &len);
    grpc_set_send_bindata(ctx, tail, len);
    g_serving--;
    return 0;
}

int32_t TakeTail(_grpc_t* ctx) {
    int32_t len = 0;
    const char* tail = static_cast<char*>(grpc_get_recv_bindata(ctx, &len));
    g_tail += string(tail, len) + "|";
    EXPECT_EQ(HCTCPGrpcClient::GetThis(ctx)->m_pGrpc, ctx);
    g_events++;
    return 0;
}

grpcMethod_t g_methods[] = {{"add", Add, 2}, {"spread", Spread, 2}, {nullptr, nullptr, 0}};
grpcMethod_t g_handlers[] = {
    {"spread", TakeTail, 0}, {"event", TakeTail, 0}, {nullptr, nullptr, 0}};

struct RpcNetwork : testing::Test {
    RpcNetwork() {
        signal(SIGPIPE, SIG_IGN);
        server->m_pUserparam = &g_tail;
    }
    void Serve() { ASSERT_EQ(server->StartService(g_methods, 64, "127.0.0.1", port), 0); }

    LogRecords log;
    unsigned short port = FreePort();
    std::unique_ptr<HCTCPGrpcServer> server{new HCTCPGrpcServer};
};

TEST_F(RpcNetwork, SlotsStandInTheirOrder) {
    const std::vector<int> slots = {VtableSlot(&HCNetPackage::OnThread),
                                    VtableSlot(&HCNetPackage::PkgReceived),
                                    VtableSlot(&HCNetPackage::TimerTick_Nodata),
                                    VtableSlot(&HCNetPackage::OnEvent),
                                    VtableSlot(&HCNetPackageService::OnThread),
                                    VtableSlot(&HCNetPackageService::CheckPasswd),
                                    VtableSlot(&HCNetPackageService::CreateServer),
                                    VtableSlot(&HCNetPackageService::Append),
                                    VtableSlot(&HCTCPGrpcServer::CreateServer),
                                    VtableSlot(&HCTCPGrpcServer::PrintMsg_Resp),
                                    VtableSlot(&HCTCPGrpcServer::PrintMsg_Recv)};
    EXPECT_EQ(slots, (std::vector<int>{2, 3, 4, 5, 2, 3, 4, 3, 4, 5, 6}));
}

TEST_F(RpcNetwork, CallsAreAnsweredAndNotificationsSentOnTheWire) {
    EXPECT_EQ(Notify(*server, nullptr, ""), -1);
    grpcUser_t user = {"bob", "pw", 2};
    EXPECT_EQ(server->AddAccountItem(user), 0);
    memset(&user, 'n', 32 + 128);  // neither text is terminated
    for (int i = 1; i < 32; i++) EXPECT_EQ(server->AddAccountItem(user), 0);
    EXPECT_EQ(server->AddAccountItem(user), -1);
    EXPECT_STREQ(server->m_pAccounts[31].passwd, string(127, 'n').c_str());
    server->m_bPrintRecv = server->m_bPrintResp = true;
    server->m_nLevel = 9;
    Serve();
    Peer one = LoggedIn(port), other = LoggedIn(port);
    const string bob = R"("user":{"name":"bob","digest":"bc298d72102936efcb2283cdc2e4f0b9"})";
    const string request = R"({"method":"add","param":[1,2],"sentcnt":7,)" + bob + "}";
    const string response =
        R"({"method":"add","sentcnt":7,)" + bob + R"(,"sum":12,"error":{"errorcode":0}})";
    testing::internal::CaptureStdout();
    // A packet of another type gets no response.
    other.Send(Bytes("\xA5\x5A\x5A\xA5\0\0\0\1\0\0\0\2{}") + Data(request));
    EXPECT_EQ(other.Receive(int(12 + response.size())), Data(response));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "grpc recv: [" + request + "]\nleve;2, 2\ngrpc resp: [" + response + "]\n");
    server->m_bPrintResp = false;

    EXPECT_EQ(Notify(*server, nullptr, Bytes("\0tail")), 30);
    const string event = R"({"n":1,"method":"event"})" + Bytes("\0");
    for (Peer* peer : {&one, &other}) EXPECT_EQ(peer->Receive(42), Data(event + Bytes("\0tail")));
    EXPECT_EQ(Notify(*server, g_caller, ""), 25);
    EXPECT_EQ(other.Receive(37), Data(event));
    delete other.Release();
    EXPECT_TRUE(Eventually([] { return g_caller.load()->IsNeedClear(); }));
    EXPECT_EQ(Notify(*server, g_caller, ""), -1);
    EXPECT_EQ(Notify(*server, nullptr, ""), 25);
    EXPECT_EQ(one.Receive(37), Data(event));
}

TEST_F(RpcNetwork, ClientCallsAndIsNotified) {
    grpcUser_t user = {"bob", "pw", 2};
    server->AddAccountItem(user);
    Serve();
    HCTCPGrpcClient client;
    grpcAccount_t account = {"bob", "pw", 0};
    grpc_c_account_set(client.m_pGrpc, &account);
    for (int round = 1; round <= 2; round++) {  // a second start keeps the account
        g_tail.clear();
        EXPECT_EQ(client.Start(g_handlers, 64, "127.0.0.1", port, false), 0);
        grpc_lock(client.m_pGrpc);
        client.m_pGrpc->json = cJSON_Parse(R"({"method":"spread"})");
        grpc_set_send_bindata(client.m_pGrpc, "a\0b", 3);
        EXPECT_GT(grpc_c_send(client.m_pGrpc), 0);
        EXPECT_EQ(grpc_c_recv(client.m_pGrpc), 0);
        grpc_end(client.m_pGrpc);
        grpc_unlock(client.m_pGrpc);
        EXPECT_TRUE(Eventually([&] { return g_events == 2 * round; }));
        EXPECT_TRUE(log.Comes("ERR RefuseToReceive: not support now\n"));
        grpc_lock(client.m_pGrpc);
        EXPECT_EQ(g_tail.substr(g_tail.size() - 4), Bytes("a\0b|"));
        grpc_unlock(client.m_pGrpc);
    }
    EXPECT_EQ(grpc_get_connection_info(client.m_pGrpc).port, port);
}

// Handlers and other threads broadcast without a pause, clients come and go, and the server ends in
// the middle of it.
TEST_F(RpcNetwork, BroadcastsSurviveClientsThatComeAndGo) {
    Serve();
    std::atomic<bool> broadcasting{true};
    std::atomic<int> visits{0};
    std::vector<std::thread> broadcasters, visitors;
    for (int i = 0; i < 4; i++) {
        broadcasters.emplace_back([&] {
            while (broadcasting) Notify(*server, nullptr, "!");
        });
        visitors.emplace_back([&] {
            for (;; visits++) {
                Peer peer(port);
                peer.Send(Login("owner;908172") + Data(R"({"method":"spread"})"));
                if (peer.Receive(14).empty()) return;  // the server is gone
                string packet;
                do packet = peer.Receive(38);
                while (packet == Data(R"({"n":1,"method":"event"})" + Bytes("\0!")));
            }
        });
    }
    EXPECT_TRUE(Eventually([&] { return visits > 100; }));
    broadcasting = false;
    for (std::thread& broadcaster : broadcasters) broadcaster.join();
    server.reset();
    for (std::thread& visitor : visitors) visitor.join();
}

}  // namespace
