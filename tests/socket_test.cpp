#include <gtest/gtest.h>
#include <hybase/hcutil/HCUnixSocket.h>
#include <hybase/hlog.h>
#include <hyplatform/arch.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "support/vtable_slots.h"

using namespace std::chrono;
using Lines = std::vector<std::string>;

static int64_t g_now, g_later;            // the next look at the clock, and all that follow
static std::vector<int> g_accept_errors;  // how the next calls of accept fail, the last one first
static Lines g_log;                       // "[LEVEL][function] message"

int64_t arch_getSystemStartupMs() { return std::exchange(g_now, g_later); }

HYBASE_API int accept4(int fd, sockaddr* peer, socklen_t* size, int) {
    if (g_accept_errors.empty()) return accept(fd, peer, size);
    errno = g_accept_errors.back();
    g_accept_errors.pop_back();
    return -1;
}

static Lines TakeLog() { return std::exchange(g_log, {}); }

static int PortOf(const HCSocket& sock) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(sock.m_nSocket, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

struct Socket : testing::Test {
    HCSocket listener, client;
    std::unique_ptr<HCSocket> server;
    int port = 0;
    std::string peer;  // as log records show it
    char buf[8] = {};

    void SetUp() override {
        const hlogParam_t all = {0, HLOG_LEVEL_DEBUG, 0, "", 0, 0};
        hlog_set_param(&all);
        hlog_regirst([](const char* text, int32_t) {
            g_log.emplace_back(text);
            const size_t place = g_log.back().find("[HC");
            g_log.back().erase(place, g_log.back().find(']', place) + 1 - place);
        });
        ASSERT_EQ(listener.Listen(0, "127.0.0.1"), 0);
        port = PortOf(listener);
        peer = "[127.0.0.1][" + std::to_string(port) + "]\n";
        Connect();
    }
    void Connect() {
        TakeLog();
        ASSERT_EQ(client.Connect("127.0.0.1", port, 5), 0);
        server.reset(listener.Accept(5));
        EXPECT_EQ(TakeLog(), Lines{"[DEBUG][Connect] client : connect succeed." + peer});
    }
};

TEST_F(Socket, VirtualSlotsStandInTheirOrder) {
    const std::vector<int> slots = {
        VtableSlot(&HCUnixSocket::Connect), VtableSlot(&HCUnixSocket::Listen),
        VtableSlot(&HCUnixSocket::Accept),  VtableSlot(&HCSocket::Send),
        VtableSlot(&HCSocket::Recv),        VtableSlot(&HCSocket::RecvAll),
        VtableSlot(&HCSocket::Close),       VtableSlot(&HCSocket::SetBlockOpt)};
    EXPECT_EQ(slots, (std::vector<int>{2, 3, 4, 5, 6, 7, 8, -1}));
}

// No descriptor below 1024 is free, so none would fit into an fd_set.
TEST_F(Socket, HighDescriptorsAreWaitedFor) {
    const rlimit enough = {4096, 4096};
    setrlimit(RLIMIT_NOFILE, &enough);
    client.Close();
    std::vector<int> low;
    while (low.empty() || (low.back() >= 0 && low.back() < 1023)) low.push_back(dup(1));
    Connect();
    for (int fd : low) close(fd);
    for (HCSocket* sock : {&client, server.get()}) {
        EXPECT_GT(sock->m_nSocket, 1023);
        int no_delay = 0;
        socklen_t size = sizeof no_delay;
        getsockopt(sock->m_nSocket, IPPROTO_TCP, TCP_NODELAY, &no_delay, &size);
        EXPECT_EQ(no_delay, 1);
    }
    EXPECT_STREQ(server->m_szHost, "127.0.0.1");
    EXPECT_EQ(server->m_nPort, PortOf(client));
    const auto start = steady_clock::now();
    EXPECT_EQ(server->Recv(buf, 8, 50000), 0);
    EXPECT_GE(steady_clock::now() - start, 50ms);
}

TEST_F(Socket, ReceivingEndsWithTheDataTheTimeoutOrThePeer) {
    client.SetMore(true);
    EXPECT_EQ(client.Send("123", 3, 0), 3);
    EXPECT_EQ(server->Recv(buf, 8, 0), 0) << "held back until the rest is there";
    client.SetMore(false);
    EXPECT_EQ(client.Send("4", 1, 0), 1);
    EXPECT_EQ(server->RecvAll(buf, 4, 0), -1);
    EXPECT_EQ(server->Recv(buf, -1, 0), -1);
    EXPECT_EQ(server->Recv(buf, 8, -1), -1);
    std::thread later([&] { std::this_thread::sleep_for(50ms), client.Send("567", 3, 0); });
    EXPECT_EQ(server->RecvAll(buf, 6, 5000000), 6);
    later.join();
    EXPECT_EQ(server->RecvAll(buf + 6, 2, 1000), 0);
    EXPECT_STREQ(buf, "1234567");
    EXPECT_EQ(client.Close(), 0);
    errno = 0;
    EXPECT_EQ(server->RecvAll(buf, 8, 1000000), -1);
    EXPECT_EQ(TakeLog(), Lines{"[ERR][RecvAll] socket recvall err -1 0 Success\n"});
}

TEST_F(Socket, ConnectWaitsThreeTimes) {
    std::vector<HCSocket> backlog(7);
    for (auto& sock : backlog) sock.Connect("127.0.0.1", port, 0);
    TakeLog();
    EXPECT_EQ(client.Connect(client.m_szHost, port, 0), -1);
    EXPECT_EQ(TakeLog(), Lines(3, "[INFO][Connect] client : connect timeout\n"));
    EXPECT_EQ(client.Connect(client.m_szHost, port, -1), -1);
    EXPECT_EQ(TakeLog(), Lines(3, "[ERR][Connect] client : network error in connect\n"));
    listener.Close();
    EXPECT_EQ(client.Connect(client.m_szHost, port, 1), -1);
    EXPECT_EQ(TakeLog()[0], "[ERR][Connect] client : connect err Connection refused  " + peer);
}

TEST_F(Socket, HostsMayBeIPv6OrTooLong) {
    EXPECT_EQ(client.Connect((":" + std::string(80, '1')).c_str(), 7, 0), -1);
    EXPECT_EQ(client.m_nSocket, -1) << "a bad IPv6 text fails before a socket is made";
    EXPECT_EQ(client.m_szHost, ":" + std::string(62, '1'));
    const bool has_ipv6 = access("/proc/net/if_inet6", F_OK) == 0;
    HCSocket listener6;
    listener6.m_nSocket = socket(AF_INET6, SOCK_STREAM, 0);
    listen(listener6.m_nSocket, 1);
    EXPECT_EQ(client.Connect("::1", PortOf(listener6), 5), has_ipv6 ? 0 : -1);
    EXPECT_EQ(client.m_nFamily, 2);
}

// The peer takes a part now and then, so that there is room again, but never enough.
TEST_F(Socket, SendHasALimitAndWaitsOneSecondInAll) {
    const std::tuple<int, int, bool> cases[] = {
        {999, 9, true}, {999, 10, false}, {20999, 20, false}};
    const std::string data(64 << 20, 'x');
    for (const auto& [timeout_us, elapsed_ms, waits] : cases) {
        Connect();
        std::atomic<bool> done{false};
        std::thread reader([&] {
            for (std::string got(4 << 20, 0); !done; server->Recv(&got[0], 4 << 20, 1))
                std::this_thread::sleep_for(200ms);
        });
        g_now = 1000, g_later = 1000 + elapsed_ms;
        const auto start = steady_clock::now();
        EXPECT_EQ(client.Send(&data[0], 64 << 20, timeout_us), -1);
        EXPECT_EQ(steady_clock::now() - start > 950ms, waits);
        EXPECT_LT(steady_clock::now() - start, 2s);
        EXPECT_EQ(TakeLog()[0].rfind("[ERR][Send] socket send time out.[", 0), 0u);
        EXPECT_EQ(client.Send("x", 1, 0), 1) << "waits for room, silently";
        EXPECT_EQ(TakeLog(), Lines{});
        done = true;
        reader.join();
    }
}

TEST_F(Socket, AFailedListenForgetsItsDescriptorAndBadOnesFailWaits) {
    EXPECT_EQ(client.Listen(port, nullptr), -1);
    EXPECT_EQ(client.m_nSocket, -1);
    client.m_nSocket = 1 << 20;
    EXPECT_EQ(client.Send("x", 1, 0), -1);
    EXPECT_EQ(client.Recv(buf, 1, 0), -1);
    EXPECT_EQ(client.Accept(0), nullptr);
    EXPECT_EQ(TakeLog(),
              (Lines{"[ERR][Send] socket send select err [0][Bad file descriptor] " + peer,
                     "[ERR][Accept] Service Select err 9, Bad file descriptor\n"}));
}

TEST_F(Socket, AcceptTriesAgainWithinItsBudgets) {
    EXPECT_EQ(listener.Accept(0), nullptr);
    client.Connect("127.0.0.1", port, 5);
    g_accept_errors = {EAGAIN, EINTR, EINTR, EINTR, EAGAIN, EAGAIN, EINTR, EINTR, EINTR};
    testing::internal::CaptureStdout();
    server.reset(listener.Accept(1));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Socket accept .... 2 \nSocket accept .... 1 \nSocket accept .... 0 \n");
    EXPECT_EQ(server->m_nSocket, -1);
}

TEST_F(Socket, UnixNamesCountTo105Characters) {
    const std::string name = "hybase-" + std::to_string(getpid()) + std::string(200, 'n');
    HCUnixSocket service, caller;
    ASSERT_EQ(service.Listen(0, name.substr(0, 105).c_str()), 0);
    for (size_t length : {105, 106, 200}) {
        EXPECT_EQ(caller.Connect(name.substr(0, length).c_str(), 0, 1), 0) << length;
        server.reset(service.Accept(1));
        EXPECT_EQ(caller.Send("x", 1, 0), 1);
        EXPECT_EQ(server->Recv(buf, 8, 0), 1);
    }
    EXPECT_EQ(caller.Connect(name.substr(0, 104).c_str(), 0, 1), -1);
}
