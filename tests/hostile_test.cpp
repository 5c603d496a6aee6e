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
    static const auto real = reinterpret_cast<decltype(&arch_thread_create)>(
        dlsym(RTLD_NEXT, "arch_thread_create"));
    return g_no_threads ? nullptr : real(name, entry, arg);
}

namespace {

std::atomic<int> g_executed{0};

int32_t Count(_grpc_t*) {
    g_executed++;
    return 0;
}

grpcMethod_t g_methods[] = {{"count", Count, 2}, {nullptr, nullptr, 0}};
grpcMethod_t g_handlers[] = {{"count", Count, 2}, {nullptr, nullptr, 0}};

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

string BigMember(size_t bytes) {
    return R"({"method":"count","x":")" + string(bytes, 'x') + "\"}";
}

struct Hostile : testing::Test {
    Hostile() {
        signal(SIGPIPE, SIG_IGN);
        hlog_regirst([](const char*, int32_t) {});
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

    std::unique_ptr<HCTCPGrpcServer> server{new HCTCPGrpcServer};
    unsigned short port = 0;
};

TEST_F(Hostile, PeersDelayNobody) {
    const char* soak = getenv("HYBASE_SOAK_SECONDS");
    const double seconds = soak != nullptr ? atof(soak) : 1;
    const size_t mib = 1 << 20;
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

}  // namespace
