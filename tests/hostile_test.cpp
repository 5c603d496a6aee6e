// A server among peers that have no account and behave badly on purpose. HYBASE_SOAK_SECONDS makes
// the first test run that long for each behaviour and print a table.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <hybase/hcutil/HCTCPGrpcClient.h>
#include <hybase/hcutil/HCTCPGrpcServer.h>
#include <signal.h>

#include <utility>

#include "support/hostile_peers.h"
#include "support/log_records.h"

using namespace std::chrono_literals;
using std::to_string;

static std::atomic<bool> g_no_threads{false};

arch_thread_t arch_thread_create(const char* name, void* (*entry)(void*), void* arg) {
    static const auto real =
        reinterpret_cast<decltype(&arch_thread_create)>(dlsym(RTLD_NEXT, "arch_thread_create"));
    return g_no_threads ? nullptr : real(name, entry, arg);
}

namespace {

// Instrumented or emulated, where everything takes many times as long.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
constexpr bool kSlow = true;
#else
constexpr bool kSlow = false;
#endif

std::atomic<int> g_executed{0};

int32_t Count(_grpc_t*) {
    g_executed++;
    return 0;
}

int32_t CountSlowly(_grpc_t* ctx) {
    std::this_thread::sleep_for(100ms);
    return Count(ctx);
}

grpcMethod_t g_methods[] = {
    {"count", Count, 2}, {"count_slowly", CountSlowly, 2}, {nullptr, nullptr, 0}};

const string kBob = R"("user":{"name":"bob","digest":"7526fe64f255f80ba09c2ef32bac2079"})";
const string kRequest = R"({"method":"count","sentcnt":7,)" + kBob + "}";
const string kResponse =
    R"({"method":"count","sentcnt":7,)" + kBob + R"(,"error":{"errorcode":0}})";
const string kOwner = Login("owner;908172");

string Zeros(size_t bytes) {
    string list = R"({"method":"count","x":[0)";
    while (list.size() < bytes) list += ",0";
    return list + "]}";
}

string BigMember(size_t bytes) { return R"({"method":"count","x":")" + string(bytes, 'x') + "\"}"; }

struct Server : HCTCPGrpcServer {
    ~Server() override { StopService(); }
    int Clients() {
        BeginWalk();
        const int count = GetCnt();
        EndWalk();
        return count;
    }
    HCNetPackage* Client(int index) {
        BeginWalk();
        auto* client = dynamic_cast<HCNetPackage*>(At(index));
        EndWalk();
        return client;
    }
};

struct Hostile : testing::Test {
    Hostile() {
        signal(SIGPIPE, SIG_IGN);
        hlog_set_print(hlog_print_nothing);
        grpcUser_t user = {"bob", "pw", 2};
        server->AddAccountItem(user);
        g_executed = 0;
    }
    ~Hostile() override { hlog_set_print(nullptr); }
    void Serve() {
        ASSERT_EQ(server->StartService(g_methods, 10240, "127.0.0.1", 0), 0);
        port = BoundPort(*server->m_pListenSocket);
    }

    LogRecords log;
    std::unique_ptr<Server> server{new Server};
    unsigned short port = 0;
};

TEST_F(Hostile, PeersDelayNobody) {
    const char* soak = getenv("HYBASE_SOAK_SECONDS");
    const double seconds = soak != nullptr ? atof(soak) : 0.5;
    const size_t mib = kSlow ? 1 << 16 : 1 << 20;
    const Behaviour behaviours[] = {
        {"nobody", 0, ""},
        {"connect and say nothing", 100, ""},
        {"trickle the login", 100, Login(string(1000, 'l')), 1},
        {"no login but garbage, again and again", 20, "GET / HTTP/1.1\r\n"},
        {"16 MiB come back, unread", soak ? 20 : 4, kOwner + LongPacket(BigMember(16 * mib))},
        {"12 MiB again and again, read slowly", soak ? 20 : 4,
         kOwner + LongPacket(BigMember(12 * mib)), 1 << 30, kOwner.size(), true},
        {"[0,0,... of 16 MiB", soak ? 4 : 1, kOwner + LongPacket(Zeros(16 * mib)), 1 << 30,
         kOwner.size(), true},
        {"32 MiB of a packet one byte longer", 8,
         kOwner + LongPacket(string(32 * mib, 'p'), 32 * mib + 1)},
        {"announce 1 GiB", 20, kOwner + LongPacket("", 1 << 30)},
    };
    printf("%-40s %6s %9s %7s %7s %7s %7s %8s\n", "peers that ...", "peers", "login ms", "calls",
           "p50 ms", "p99 ms", "max ms", "RSS MiB");
    Serve();
    for (const Behaviour& behaviour : behaviours) {
        Swarm swarm(behaviour, port);
        std::this_thread::sleep_for(200ms);
        Seen seen = CallFor(seconds, port, kRequest, kResponse);
        printf("%-40s %6d %9.1f %7zu %7.2f %7.2f %7.2f %8.0f\n", behaviour.name, behaviour.peers,
               seen.login_ms, seen.calls_ms.size(), seen.Quantile(0.5), seen.Quantile(0.99),
               seen.Quantile(1), MemoryMiB("VmRSS:"));
        fflush(stdout);
        EXPECT_TRUE(seen.right) << behaviour.name;
        // Far above what it is, far below what it was: a slow machine changes nothing.
        EXPECT_LT(seen.login_ms, 2000) << behaviour.name;
        EXPECT_LT(seen.Quantile(0.5), 300) << behaviour.name;
    }
}

// ---- One fault each ----

// Its answers pile up unread until one fails: from then on nothing is executed.
TEST_F(Hostile, LostLinkExecutesNothingMore) {
    Serve();
    Peer peer = LoggedIn(port);
    const string request =
        Data(R"({"method":"count",)" + kBob + R"(,"x":")" + string(60000, 'x') + "\"}");
    // Ends when an answer has found no room and the server has closed.
    for (int i = 0; i < 10000 && peer.Send(request); i++) {
    }
    EXPECT_TRUE(peer.HungUp());
    const int executed = g_executed;
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(g_executed, executed);
    EXPECT_GT(executed, 10);
}

TEST_F(Hostile, BroadcastWaitsForAllSlowClientsAtOnce) {
    Serve();
    std::vector<Peer> slow;
    for (int i = 0; i < 8; i++) slow.push_back(LoggedIn(port));
    Peer reader = LoggedIn(port);
    ASSERT_TRUE(Eventually([&] { return server->Clients() == 9; }));
    std::unique_ptr<cJSON, decltype(&cJSON_Delete)> json(cJSON_CreateObject(), cJSON_Delete);
    cJSON_AddStringToObject(json.get(), "x", string(8 << 20, 'x').c_str());
    std::atomic<int> result{0};
    const auto start = std::chrono::steady_clock::now();
    std::thread broadcast(
        [&] { result = server->Send2Client(nullptr, "e", json.get(), nullptr, 0); });
    EXPECT_EQ(reader.Receive((8 << 20) + 12).size(), size_t(8 << 20) + 12);
    std::this_thread::sleep_for(200ms);
    Seen joining = CallFor(0.1, port, kRequest, kResponse);
    EXPECT_TRUE(joining.right);
    EXPECT_LT(joining.login_ms, 500);  // the broadcast waits for another second or so
    broadcast.join();
    EXPECT_GT(result, 8 << 20);  // of the last one, the reader
    EXPECT_LT(MsSince(start), 4000);
    for (Peer& peer : slow) EXPECT_TRUE(peer.HungUp());
}

// What has come of a packet that is not whole within half a second is lost: the hook looks then.
struct Watched : HCNetPackage {
    Watched() { newest = this; }
    ~Watched() override { StopThread(); }
    void TimerTick_Nodata(unsigned int) override { buffer = m_nRecvBufSize; }
    void OnEvent(NPEvent_e event) override { losses += event == NPE_DISCONNECTED; }
    static inline std::atomic<int> buffer{0}, losses{0};
    static inline std::atomic<Watched*> newest{nullptr};
};

struct WatchedService : HCNetPackageService {
    ~WatchedService() override { StopService(); }
    HCNetPackage* CreateServer() override { return new Watched; }
};

TEST_F(Hostile, BuffersFollowWhatHasCome) {
    WatchedService service;
    ASSERT_EQ(service.Start(10240, "127.0.0.1", 0), 0);
    port = BoundPort(*service.m_pListenSocket);
    const string mib(1 << 20, 'm');
    for (const int64_t announced : {int64_t(INT32_MAX), (int64_t{1} << 20) + 1}) {
        Peer peer = LoggedIn(port);
        const double before = MemoryMiB("VmSize:");
        Watched::buffer = 0;
        peer.Send(LongPacket(mib, announced));
        std::this_thread::sleep_for(100ms);
        EXPECT_LT(MemoryMiB("VmSize:") - before, 1024);
        EXPECT_TRUE(Eventually([&] { return Watched::buffer != 0; }));
        EXPECT_EQ(Watched::buffer, 10240);
    }
}

// A sender that waits for room and the connection thread both notice that the peer has gone.
TEST_F(Hostile, OneLossIsOneEvent) {
    WatchedService service;
    ASSERT_EQ(service.Start(10240, "127.0.0.1", 0), 0);
    port = BoundPort(*service.m_pListenSocket);
    const string much(16 << 20, 'x');
    Watched::losses = 0;
    for (int losses = 1; losses <= 20; losses++) {
        Watched::newest = nullptr;
        auto peer = std::make_unique<Peer>(LoggedIn(port));
        ASSERT_TRUE(Eventually([] { return Watched::newest != nullptr; }));
        std::thread sender([&] { Watched::newest.load()->SendPkg(0, much.data(), 16 << 20, 5); });
        peer->Receive(1000000);
        peer.reset();
        sender.join();
        EXPECT_TRUE(Eventually([] { return Watched::newest.load()->IsNeedClear(); }));
        std::this_thread::sleep_for(5ms);
        EXPECT_EQ(Watched::losses, losses);
    }
}

TEST_F(Hostile, AllClientsOfADeviceThatHasJustStartedAreServed) {
    Serve();
    std::vector<int> fds;
    for (int i = 0; i < 200; i++) fds.push_back(StartToConnect(port));
    const auto start = std::chrono::steady_clock::now();
    for (int fd : fds) EXPECT_EQ(send(fd, kOwner.data(), kOwner.size(), 0), ssize_t(kOwner.size()));
    char reply[14];
    for (int fd : fds) {
        fcntl(fd, F_SETFL, 0);
        timeval limit = {10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        EXPECT_EQ(recv(fd, reply, sizeof reply, MSG_WAITALL), 14);
        close(fd);
    }
    printf("200 clients at once: served within %.0f ms\n", MsSince(start));
}

struct NobodyServes : HCNetPackageService {
    ~NobodyServes() override { StopService(); }
    HCNetPackage* CreateServer() override {
        created++;
        return nullptr;
    }
    std::atomic<int> created{0};
};

TEST_F(Hostile, ClientThatIsAdmittedAndDroppedPauses) {
    NobodyServes service;
    ASSERT_EQ(service.Start(64, "127.0.0.1", 0), 0);
    HCTCPGrpcClient client;
    client.Start(g_methods, 64, "127.0.0.1", BoundPort(*service.m_pListenSocket), false);
    EXPECT_TRUE(Eventually([&] { return service.created >= 4; }));  // 100, 200, 400 ms
    std::this_thread::sleep_for(100ms);
    EXPECT_LE(service.created, 5);
}

TEST_F(Hostile, AdmittedClientWithoutAThreadIsClosedAtOnce) {
    Serve();
    g_no_threads = true;
    Peer peer = LoggedIn(port);
    EXPECT_TRUE(peer.HungUp());
    EXPECT_TRUE(Eventually([&] { return server->Clients() == 0; }));
    g_no_threads = false;
    EXPECT_TRUE(CallFor(0, port, kRequest, kResponse).right);
}

// Each of these made the end take 5 to 30 seconds, or never come.
TEST_F(Hostile, StopsWaitForNoPeer) {
    Listener silent;  // its backlog is full: a client that connects waits
    std::vector<int> filling;
    for (int i = 0; i < 8; i++) filling.push_back(StartToConnect(silent.port));
    std::this_thread::sleep_for(50ms);
    Serve();
    const string unread = kOwner + LongPacket(BigMember(8 << 20));
    const Behaviour behaviours[] = {{"unread", 12, unread},
                                    {"trickled login", 5, Login(string(1000, 'l')), 1},
                                    {"trickled packet", 5, unread, 5000}};
    const auto timed = [](const char* what, auto stop) {
        const auto start = std::chrono::steady_clock::now();
        stop();
        const double ms = MsSince(start);
        printf("%s: %.0f ms\n", what, ms);
        EXPECT_LT(ms, 3000) << what;
    };
    {
        std::vector<std::unique_ptr<Swarm>> swarms;
        for (const Behaviour& one : behaviours) swarms.emplace_back(new Swarm(one, port));
        std::unique_ptr<HCTCPGrpcClient> client(new HCTCPGrpcClient);
        client->Start(g_methods, 64, "127.0.0.1", silent.port, false);
        std::this_thread::sleep_for(600ms);
        timed("second start",
              [&] { EXPECT_EQ(server->StartService(g_methods, 64, "127.0.0.1", port), 0); });
        std::this_thread::sleep_for(200ms);
        log.Take();
        timed("server", [&] { server.reset(); });
        timed("client that is connecting", [&] { client.reset(); });
    }
    for (const string& record : log.Take()) EXPECT_NE(record.substr(0, 3), "ERR") << record;
    for (int fd : filling) close(fd);
}

TEST_F(Hostile, AnswerUnderWayGoesOutBeforeAStop) {
    server->m_nAccountCnt = 0;
    Serve();
    Peer peer = LoggedIn(port);
    peer.Send(Data(R"({"method":"count_slowly"})"));
    std::this_thread::sleep_for(30ms);
    server.reset();
    EXPECT_EQ(g_executed, 1);
    const string answer = R"({"method":"count_slowly","error":{"errorcode":0},"sentcnt":0})";
    EXPECT_EQ(peer.Receive(int(answer.size()) + 12), Data(answer));
    EXPECT_TRUE(peer.HungUp());
}

TEST_F(Hostile, ServiceListensAtIPv4AddressesOnly) {
    for (const char* ip : {"localhost", "nonsense", "::1", ""}) {
        EXPECT_EQ(server->StartService(g_methods, 64, ip, 0), -1) << ip;
        EXPECT_TRUE(log.Comes("ERR Listen: no IPv4 address: [" + string(ip) + "]\n"));
        EXPECT_TRUE(server->m_bRun);
    }
    Serve();
    EXPECT_TRUE(CallFor(0, port, kRequest, kResponse).right);
}

// ---- Limits ----

struct Limits : Hostile {
    void Serve(const HCNetLimits& limits) {
        server->SetLimits(limits);
        Hostile::Serve();
    }
    string LoginReply() {
        Peer peer(port);
        peer.Send(kOwner);
        const string header = peer.Receive(12);
        return header.empty() ? "" : peer.Receive(header[11]);
    }
};

TEST_F(Limits, ClientsAreCounted) {
    HCNetLimits limits;
    limits.max_clients = 3;
    Serve(limits);
    std::vector<Peer> clients;
    for (int i = 0; i < 3; i++) clients.push_back(LoggedIn(port));
    ASSERT_TRUE(Eventually([&] { return server->Clients() == 3; }));
    EXPECT_EQ(LoginReply(), "too many clients");
    clients.pop_back();  // it makes room at once, not when it is cleaned away
    EXPECT_TRUE(Eventually([&] { return LoginReply() == "OK"; }));
    limits.max_clients_per_address = 2;
    limits.max_clients = 0;
    EXPECT_TRUE(Eventually([&] {
        server->_CleanServers();
        return server->Clients() == 2;
    }));
    Serve(limits);
    EXPECT_EQ(LoginReply(), "too many clients from this address");
}

TEST_F(Limits, PendingLoginsAreBounded) {
    HCNetLimits limits;
    limits.max_pending_logins = 4;
    limits.login_sec = 1;
    Serve(limits);
    std::vector<Peer> waiting;
    for (int i = 0; i < 6; i++) waiting.emplace_back(port);
    // Two more than may wait: the first two go.
    EXPECT_TRUE(waiting[0].HungUp() && waiting[1].HungUp());
    for (int i = 0; i < 20; i++) {  // the others trickle, and their second passes
        std::this_thread::sleep_for(70ms);
        for (int j = 2; j < 6; j++)
            send(waiting[j].Fd(), kOwner.data() + std::min(i, 3), 1, MSG_NOSIGNAL);
    }
    for (int j = 2; j < 6; j++) EXPECT_TRUE(waiting[j].HungUp()) << j;
    EXPECT_EQ(LoginReply(), "OK");
}

TEST_F(Limits, PacketsEndTheLink) {
    HCNetLimits limits;
    limits.max_packet_bytes = 1000;
    limits.min_bytes_per_sec = 1000;
    limits.packet_sec = 1;
    Serve(limits);
    Peer too_long = LoggedIn(port), too_slow = LoggedIn(port), good = LoggedIn(port);
    too_long.Send(LongPacket("", 1001));
    EXPECT_TRUE(log.Comes("ERR _getPackage: receive data err.len=[1001]\n"));
    EXPECT_TRUE(too_long.HungUp());
    // A pause of more than half a second is none of the peer's fault, twice as long is.
    const string request = Data(kRequest);
    good.Send(request.substr(0, 5));
    std::this_thread::sleep_for(650ms);
    good.Send(request.substr(5));
    EXPECT_EQ(good.Receive(int(kResponse.size()) + 12), Data(kResponse));
    for (int i = 0; i < 30 && !too_slow.HungUp(0); i++) {
        send(too_slow.Fd(), &request[size_t(i)], 1, MSG_NOSIGNAL);
        std::this_thread::sleep_for(100ms);
    }
    EXPECT_TRUE(too_slow.HungUp(0));
}

// An answer that is read slowly: the documented waits drop it, the limits let it live.
TEST_F(Limits, TransfersLiveWhileTheyMakeProgress) {
    const string answer = LongPacket(BigMember(8 << 20));
    for (const bool limited : {false, true}) {
        HCNetLimits limits;
        if (limited) limits.min_bytes_per_sec = 1000;
        Serve(limits);
        Peer peer = LoggedIn(port);
        const int small = 65536;
        setsockopt(peer.Fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
        std::thread sender([&] { peer.Send(answer); });
        size_t read = 0;
        std::this_thread::sleep_for(2500ms);
        sender.join();
        fcntl(peer.Fd(), F_SETFL, 0);
        char bytes[65536];
        timeval limit = {3, 0};
        setsockopt(peer.Fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        for (ssize_t got = 1; got > 0 && read < size_t(8 << 20);
             read += size_t(std::max<ssize_t>(got, 0)))
            got = recv(peer.Fd(), bytes, sizeof bytes, 0);
        EXPECT_EQ(read >= size_t(8 << 20), limited) << read;
    }
}

TEST_F(Limits, UnsentBytesEndTheLink) {
    HCNetLimits limits;
    limits.max_unsent_bytes = 1 << 20;
    Serve(limits);
    Peer peer = LoggedIn(port);
    ASSERT_TRUE(Eventually([&] { return server->Clients() == 1; }));
    auto* connection = server->Client(0);
    EXPECT_EQ(connection->SendPkg(1, string(1 << 20, 'x').c_str(), 1 << 20, 0), 1 << 20);
    EXPECT_EQ(connection->SendPkg(1, string((1 << 20) + 1, 'x').c_str(), (1 << 20) + 1, 0), -1);
    EXPECT_TRUE(log.Comes("ERR EndForUnsent: more than 1048576 bytes wait for [127.0.0.1][" +
                          to_string(connection->m_nPort) + "]\n"));
    EXPECT_TRUE(peer.HungUp());
}

TEST_F(Limits, RecordsAboutStrangersAreHeldDown) {
    HCNetLimits limits;
    limits.stranger_records_per_sec = 5;
    Serve(limits);
    for (int i = 0; i < 100; i++) Peer(port).Send("GET / HTTP/1.1\r\n");
    int about_strangers = 0, left_out = 0;
    EXPECT_TRUE(Eventually([&] {
        for (const string& record : log.Take()) {
            if (sscanf(record.c_str(), "WARN AcceptPass: %d records", &left_out) != 1)
                about_strangers++;
        }
        return left_out > 0;
    }));
    EXPECT_GT(left_out, 200);  // 3 records a peer
    EXPECT_LE(about_strangers, 20);
    EXPECT_TRUE(CallFor(0, port, kRequest, kResponse).right);
}

// ---- Races: for the ThreadSanitizer ----

std::atomic<bool> g_spare_gone{false};

struct SpareSocket : HCSocket {
    ~SpareSocket() override { g_spare_gone = true; }
};

TEST_F(Hostile, ClientsMayStartAgainWhileOthersCall) {
    Serve();
    std::unique_ptr<HCTCPGrpcClient> owned(new HCTCPGrpcClient);
    HCTCPGrpcClient& client = *owned;
    grpcAccount_t bob = {"bob", "pw", 0};
    grpc_c_account_set(client.m_pGrpc, &bob);
    client.Start(g_methods, 64, "127.0.0.1", port, false);
    auto* spare = new SpareSocket;
    client.SetSocket(spare);  // taken if the thread has made none yet
    std::atomic<bool> calling{true};
    std::thread caller([&] {
        while (calling) {
            grpc_lock(client.m_pGrpc);
            client.m_pGrpc->json = cJSON_Parse(R"({"method":"count"})");
            grpc_c_send(client.m_pGrpc);
            grpc_end(client.m_pGrpc);
            grpc_unlock(client.m_pGrpc);
            usleep(1000);
        }
    });
    for (int i = 0; i < 5; i++) {
        std::this_thread::sleep_for(50ms);
        EXPECT_EQ(client.Start(g_methods, 64, "127.0.0.1", port, true), 0);
    }
    EXPECT_TRUE(Eventually([] { return g_executed > 20; }));
    calling = false;
    caller.join();
    owned.reset();
    if (!g_spare_gone) delete spare;
}

}  // namespace
