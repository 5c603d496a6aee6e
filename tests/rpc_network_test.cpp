#include <gtest/gtest.h>
#include <hybase/hcutil/HCTCPGrpcClient.h>
#include <hybase/hcutil/HCTCPGrpcServer.h>
#include <signal.h>

#include <atomic>
#include <memory>

#include "support/log_records.h"
#include "support/loopback.h"
#include "support/vtable_slots.h"

using std::string;

namespace {

// What the owner of the server under test keeps, reached through GetUserparam.
struct Owner {
    std::atomic<int> calls{0};
    std::atomic<int> serving{0};  // handlers running at this moment
    std::atomic<HCNetPackage*> caller{nullptr};
};

Owner& OwnerOf(_grpc_t* ctx) { return *static_cast<Owner*>(HCTCPGrpcServer::GetUserparam(ctx)); }

int32_t Add(_grpc_t* ctx) {
    Owner& owner = OwnerOf(ctx);
    EXPECT_EQ(owner.serving++, 0);
    owner.calls++;
    owner.caller = HCTCPGrpcServer::GetThis(ctx);
    cJSON* param = cJSON_GetObjectItem(ctx->json, "param");
    const int sum = cJSON_GetArrayItem(param, 0)->valueint + cJSON_GetArrayItem(param, 1)->valueint;
    cJSON_AddNumberToObject(ctx->json, "sum", sum);
    owner.serving--;
    return 0;
}

int32_t WhoAmI(_grpc_t* ctx) {
    const grpcConnInfo_t peer = grpc_get_connection_info(ctx);
    const string text = string(peer.addr) + (peer.port > 0 ? " " : "?") + peer.proto;
    cJSON_AddStringToObject(ctx->json, "peer", text.c_str());
    cJSON_AddNumberToObject(ctx->json, "level", ctx->c_account.level);
    return 0;
}

int32_t Reverse(_grpc_t* ctx) {
    static string reversed;
    int32_t len = 0;
    const char* tail = static_cast<const char*>(grpc_get_recv_bindata(ctx, &len));
    reversed.assign(std::reverse_iterator(tail + len), std::reverse_iterator(tail));
    grpc_set_send_bindata(ctx, reversed.data(), len);
    return 0;
}

int Notify(HCTCPGrpcServer& server, HCNetPackage* target, const string& tail) {
    cJSON* json = cJSON_CreateObject();
    cJSON_AddNumberToObject(json, "n", 1);
    const int result = server.Send2Client(target, "event", json, const_cast<char*>(tail.data()),
                                          static_cast<int>(tail.size()));
    cJSON_Delete(json);
    return result;
}

int32_t Spread(_grpc_t* ctx) {
    Owner& owner = OwnerOf(ctx);
    EXPECT_EQ(owner.serving++, 0);
    Notify(*HCTCPGrpcServer::GetThis(ctx)->m_pServer, nullptr, "");
    owner.serving--;
    return 0;
}

grpcMethod_t g_methods[] = {
    {"add", Add, 2},       {"who", WhoAmI, 2},    {"reverse", Reverse, 2},
    {"spread", Spread, 2}, {nullptr, nullptr, 0},
};

const string kEvent = DataPacket(Bytes("{\"n\":1,\"method\":\"event\"}\0"));

struct RpcNetwork : testing::Test {
    RpcNetwork() {
        signal(SIGPIPE, SIG_IGN);
        server->m_pUserparam = &owner;
        server->SetSocket(new WatchfulListener(*server));
    }
    void Serve() { ASSERT_EQ(server->StartService(g_methods, 10240, "127.0.0.1", port), 0); }
    RawPeer LogIn() {
        RawPeer peer = ConnectTo(port);
        peer.Send(kLoginRequest);
        EXPECT_EQ(peer.Receive(14), kLoginOk);
        return peer;
    }
    static string Answer(RawPeer& peer) {
        const string header = peer.Receive(12);
        return header.size() == 12 ? peer.Receive(256 * uint8_t(header[10]) + uint8_t(header[11]))
                                   : "";
    }

    LogRecords log;
    Owner owner;
    std::unique_ptr<HCTCPGrpcServer> server{new HCTCPGrpcServer};
    unsigned short port = FreePort();
};

TEST_F(RpcNetwork, SlotsStandInTheirOrder) {
    const std::vector<int> slots = {
        VtableSlot(&HCTCPGrpcServer::CheckPasswd), VtableSlot(&HCTCPGrpcServer::CreateServer),
        VtableSlot(&HCTCPGrpcServer::PrintMsg_Resp), VtableSlot(&HCTCPGrpcServer::PrintMsg_Recv),
        VtableSlot(&HCTCPGrpcClient::PkgReceived)};
    EXPECT_EQ(slots, (std::vector<int>{3, 4, 5, 6, 3}));
    EXPECT_EQ(HCTCPGrpcServer::GetUserparam(nullptr), nullptr);
}

TEST_F(RpcNetwork, CallWithDigestIsAnsweredOnTheWire) {
    grpcUser_t user = {"bob", "pw", 2};
    EXPECT_EQ(server->AddAccountItem(user), 0);
    memset(&user, 'n', 32);  // neither text is terminated
    memset(user.passwd, 'p', 128);
    for (int i = 1; i < 32; i++) EXPECT_EQ(server->AddAccountItem(user), 0);
    EXPECT_EQ(server->AddAccountItem(user), -1);
    server->m_bPrintRecv = true;
    server->m_bPrintResp = true;
    Serve();
    const string bob = R"("user":{"name":"bob","digest":"bc298d72102936efcb2283cdc2e4f0b9"})";
    const string request = R"({"method":"add","param":[1,2],"sentcnt":7,)" + bob + "}";
    const string response =
        R"({"method":"add","sentcnt":7,)" + bob + R"(,"sum":3,"error":{"errorcode":0}})";
    RawPeer peer = LogIn();
    testing::internal::CaptureStdout();
    // A packet of another type gets no response.
    peer.Send(kData + Bytes("\0\0\0\1\0\0\0\2{}") + DataPacket(request));
    EXPECT_EQ(peer.Receive(12 + response.size()), DataPacket(response));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "grpc recv: [" + request + "]\nleve;2, 2\n" + "grpc resp: [" + response + "]\n");
    EXPECT_EQ(owner.calls, 1);
    peer.Send(DataPacket(R"({"method":"add","param":[4,5],"user":{"name":")" + string(31, 'n') +
                         R"(","digest":"c44ed4cdc40ac4e2e82519bfb26d1f45"}})"));
    EXPECT_NE(Answer(peer).find(R"("sum":9)"), string::npos);
}

TEST_F(RpcNetwork, ContextKnowsThePeerAndTheServersLevel) {
    server->m_nLevel = 5;
    Serve();
    RawPeer peer = LogIn();
    peer.Send(DataPacket(R"({"method":"who"})"));
    EXPECT_EQ(
        Answer(peer),
        R"({"method":"who","peer":"127.0.0.1 TCP","level":5,"error":{"errorcode":0},"sentcnt":0})");
}

TEST_F(RpcNetwork, NotificationsReachOneClientOrAll) {
    Serve();
    EXPECT_EQ(Notify(*server, nullptr, ""), -1);
    EXPECT_EQ(server->Send2Client(nullptr, "event", nullptr, nullptr, 0), -1);
    RawPeer one = LogIn();
    RawPeer other = LogIn();
    other.Send(DataPacket(R"({"method":"add","param":[1,1]})"));
    Answer(other);
    testing::internal::CaptureStdout();
    const string tailed = DataPacket(Bytes("{\"n\":1,\"method\":\"event\"}\0\0tail"));
    EXPECT_EQ(Notify(*server, nullptr, Bytes("\0tail")), 30);
    EXPECT_EQ(one.Receive(42), tailed);
    EXPECT_EQ(other.Receive(42), tailed);
    EXPECT_EQ(Notify(*server, owner.caller, ""), 25);
    EXPECT_EQ(other.Receive(37), kEvent);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");

    other.Close();
    EXPECT_TRUE(Eventually([&] { return owner.caller.load()->IsNeedClear(); }));
    EXPECT_EQ(Notify(*server, owner.caller, ""), -1);
    cJSON* json = cJSON_CreateObject();
    server->Send2Client(nullptr, "a", json, nullptr, 0);
    server->Send2Client(nullptr, "b", json, nullptr, 0);
    cJSON_Delete(json);
    EXPECT_EQ(Answer(one), Bytes("{\"method\":\"a\"}\0"));
    EXPECT_EQ(Answer(one), Bytes("{\"method\":\"a\",\"method\":\"b\"}\0"));
}

std::atomic<int> g_sum{0}, g_events{0};
string g_tail;  // guarded by the context's lock

int32_t TakeSum(_grpc_t* ctx) {
    g_sum = cJSON_GetObjectItem(ctx->json, "sum")->valueint;
    EXPECT_EQ(HCTCPGrpcClient::GetThis(ctx)->m_pGrpc, ctx);
    return 0;
}

int32_t TakeTail(_grpc_t* ctx) {
    int32_t len = 0;
    const void* tail = grpc_get_recv_bindata(ctx, &len);
    g_tail.assign(static_cast<const char*>(tail), len);
    g_events++;
    return 0;
}

grpcMethod_t g_handlers[] = {
    {"add", TakeSum, 0}, {"reverse", TakeTail, 0}, {"event", TakeTail, 0}, {nullptr, nullptr, 0}};

// The owner's way to call, as the header shows it.
int Call(HCTCPGrpcClient& client, const char* request, const string& tail) {
    grpc_lock(client.m_pGrpc);
    client.m_pGrpc->json = cJSON_Parse(request);
    if (!tail.empty()) grpc_set_send_bindata(client.m_pGrpc, tail.data(), tail.size());
    const int sent = grpc_c_send(client.m_pGrpc);
    grpc_end(client.m_pGrpc);
    grpc_unlock(client.m_pGrpc);
    return sent;
}

TEST_F(RpcNetwork, ClientCallsAndIsNotified) {
    grpcUser_t user = {"bob", "pw", 2};
    server->AddAccountItem(user);
    Serve();
    HCTCPGrpcClient client;
    grpcAccount_t account = {"bob", "pw", 0};
    grpc_c_account_set(client.m_pGrpc, &account);
    for (int round = 0; round < 2; round++) {  // a second start keeps the account
        g_sum = g_events = 0;
        EXPECT_EQ(client.Start(g_handlers, 64, "127.0.0.1", port, false), 0);
        EXPECT_GT(Call(client, R"({"method":"add","param":[20,22]})", ""), 0);
        EXPECT_TRUE(Eventually([] { return g_sum == 42; }));
        EXPECT_GT(Call(client, R"({"method":"reverse"})", Bytes("ab\0cd")), 0);
        EXPECT_TRUE(Eventually([] { return g_events == 1; }));
        grpc_lock(client.m_pGrpc);
        EXPECT_EQ(g_tail, Bytes("dc\0ba"));
        log.Take();
        EXPECT_EQ(grpc_c_recv(client.m_pGrpc), 0);
        EXPECT_EQ(log.Take(), std::vector<string>{"ERR RefuseToReceive: not support now\n"});
        grpc_unlock(client.m_pGrpc);
        EXPECT_GT(Notify(*server, nullptr, "news"), 0);
        EXPECT_TRUE(Eventually([] { return g_events == 2; }));
    }
    const grpcConnInfo_t peer = grpc_get_connection_info(client.m_pGrpc);
    EXPECT_EQ(string(peer.addr) + peer.proto, "127.0.0.1TCP");
    EXPECT_EQ(peer.port, port);
}

TEST_F(RpcNetwork, TwoHundredClientsAtOnceAreServed) {
    Serve();
    std::vector<RawPeer> peers;
    for (int i = 0; i < 200; i++) peers.push_back(LogIn());
    for (int i = 0; i < 200; i++) {
        peers[i].Send(DataPacket(R"({"method":"add","param":[1000,)" + std::to_string(i) + "]}"));
    }
    for (int i = 0; i < 200; i++) {
        EXPECT_NE(Answer(peers[i]).find(R"("sum":)" + std::to_string(1000 + i)), string::npos);
    }
    const auto start = std::chrono::steady_clock::now();
    server.reset();  // stops all of them at the same time, not one after the other
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

// Handlers and other threads broadcast without a pause, clients come and go, and the server ends in
// the middle of it.
TEST_F(RpcNetwork, BroadcastsSurviveClientsThatComeAndGo) {
    hlogParam_t quiet = {};
    quiet.console_level = -1;
    hlog_set_param(&quiet);
    Serve();
    std::atomic<bool> broadcasting{true};
    std::atomic<int> visits{0};
    std::vector<std::thread> broadcasters, visitors;
    for (int i = 0; i < 4; i++) {
        broadcasters.emplace_back([&] {
            while (broadcasting) Notify(*server, nullptr, "");
        });
    }
    for (int i = 0; i < 3; i++) {
        visitors.emplace_back([&] {
            for (;;) {
                RawPeer peer = ConnectTo(port);
                peer.Send(kLoginRequest + DataPacket(R"({"method":"spread"})"));
                if (peer.Receive(14) != kLoginOk) return;  // the server is gone
                string answer;
                do answer = Answer(peer);
                while (answer.find("spread") == string::npos && !answer.empty());
                visits++;
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
