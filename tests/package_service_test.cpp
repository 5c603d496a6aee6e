#include <gtest/gtest.h>
#include <hybase/hcutil/HCNetPackageService.h>
#include <hybase/hcutil/HCUnixSocket.h>
#include <signal.h>

#include <atomic>
#include <memory>

#include "support/log_records.h"
#include "support/loopback.h"
#include "support/vtable_slots.h"

using Lines = std::vector<std::string>;
using std::string;

// The pause of a client after a failed connect passes 25 times as fast.
__attribute__((visibility("default"))) int usleep(useconds_t usec) {
    std::this_thread::sleep_for(std::chrono::microseconds(usec / 25));
    return 0;
}

namespace {

std::atomic<int> g_alive{0};

class Echo : public HCNetPackage {
  public:
    explicit Echo(int delay_sec) : delay_sec_(delay_sec) { g_alive++; }
    ~Echo() override {
        StopThread();
        g_alive--;
    }
    void PkgReceived(unsigned int type, char* data, int len) override {
        SendPkg(type, data, len, 0);
    }
    int TryDelayDelete() override { return delay_sec_; }

  private:
    int delay_sec_;
};

// Decides by the text of the credential record.
class Service : public HCNetPackageService {
  public:
    ~Service() override { StopService(); }
    bool CheckPasswd(const char* data, int len, HCSocket* sock, string& message) override {
        EXPECT_EQ(static_cast<int>(strlen(data)), len);
        EXPECT_STREQ(sock->m_szHost, "127.0.0.1");
        message = strcmp(data, "rude") == 0 ? "Not before noon" : "";
        return strcmp(data, "rude") != 0 && strcmp(data, "shy;") != 0;
    }
    HCNetPackage* CreateServer() override {
        created++;
        return create ? new Echo(delay_sec) : nullptr;
    }

    std::atomic<int> created{0};
    std::atomic<bool> create{true};
    std::atomic<int> delay_sec{0};
};

struct PackageService : testing::Test {
    PackageService() {
        signal(SIGPIPE, SIG_IGN);
        service->SetSocket(new WatchfulListener(*service));
    }
    ~PackageService() override {
        service.reset();
        EXPECT_EQ(g_alive, 0);
    }
    static RawPeer LogIn(unsigned short to) {
        RawPeer peer = ConnectTo(to);
        peer.Send(kLoginRequest);
        EXPECT_EQ(peer.Receive(14), kLoginOk);
        return peer;
    }
    static bool Echoes(RawPeer& peer) {
        return peer.Send(DataPacket("hello")) && peer.Receive(17) == DataPacket("hello");
    }

    LogRecords log;
    std::unique_ptr<Service> service{new Service};
    unsigned short port = FreePort();
};

TEST_F(PackageService, SlotsStandInTheirOrder) {
    const std::vector<int> slots = {
        VtableSlot(&HCNetPackageService::OnThread), VtableSlot(&HCNetPackageService::CheckPasswd),
        VtableSlot(&HCNetPackageService::CreateServer), VtableSlot(&HCNetPackageService::Append),
        VtableSlot(&HCNetPackageService::GetIndex)};
    EXPECT_EQ(slots, (std::vector<int>{2, 3, 4, 3, 10}));
}

TEST_F(PackageService, LoginIsAnsweredAsTheServiceDecides) {
    ASSERT_EQ(service->Start(64, "127.0.0.1", port), 0);
    const struct {
        string request, reply;
    } cases[] = {
        {kLogin + Bytes("\0\0\0\0\0\0\0\4rude"),
         kLogin + Bytes("\0\0\0\0\0\0\0\x0FNot before noon")},
        {kLogin + Bytes("\0\0\0\0\0\0\0\4shy;"), kLogin + Bytes("\0\0\0\0\0\0\0\6FAILED")},
        {kData + Bytes("\0\0\0\0\0\0\0\4owne"), ""},
        {kLogin + Bytes("\0\0\0\0\0\0\0\0"), ""},
        {"GET / HTTP/1.1\r\n", ""},
        {kLogin + Bytes("\0\0\0\0\x80\0\0\0"), ""},
    };
    for (const auto& one : cases) {
        RawPeer peer = ConnectTo(port);
        peer.Send(one.request);
        EXPECT_EQ(peer.Receive(one.reply.size()), one.reply);
        EXPECT_TRUE(peer.Closed());
    }
    EXPECT_EQ(service->created, 0);
    const Lines lines = log.Take();
    EXPECT_EQ(lines[0].substr(0, 44), "INFO Admit: Client connect ip[127.0.0.1]port");
    EXPECT_EQ(lines[1], "INFO WaitingLogin: message=[Not before noon]\n");
    EXPECT_EQ(lines[2].substr(0, 23), "ERR Admit: [127.0.0.1][");
    EXPECT_EQ(lines[2].substr(lines[2].size() - 13), "] Login err!\n");
    RawPeer peer = LogIn(port);
    EXPECT_TRUE(Echoes(peer));
    // A request longer than the login buffer is cut; the rest is no header.
    RawPeer longer = ConnectTo(port);
    longer.Send(kLogin + Bytes("\0\0\0\0\0\0\x08\0") + string(2048, 'p'));
    EXPECT_EQ(longer.Receive(14), kLoginOk);
    EXPECT_TRUE(longer.Closed());
    service->create = false;
    RawPeer unserved = LogIn(port);
    EXPECT_TRUE(unserved.Closed());
}

TEST_F(PackageService, SecondStartMovesThePortAndKeepsTheClients) {
    ASSERT_EQ(service->Start(64, "127.0.0.1", port), 0);
    RawPeer kept = LogIn(port);
    HCSocket* sock = service->m_pListenSocket;
    const unsigned short next = FreePort();
    ASSERT_EQ(service->Start(64, next), 0);
    EXPECT_EQ(service->m_pListenSocket, sock);
    EXPECT_EQ(service->m_nPort, next);
    EXPECT_FALSE(ConnectTo(port).Send("x"));
    RawPeer moved = LogIn(next);
    EXPECT_TRUE(Echoes(moved));
    EXPECT_TRUE(Echoes(kept));
    RawListener taken;
    log.Take();
    EXPECT_EQ(service->Start(64, "127.0.0.1", taken.port), -1);
    EXPECT_EQ(log.Take(), Lines{"ERR Start: Service Fail,No HCSocket\n"});
}

TEST_F(PackageService, LostConnectionsAreRemovedOnThe22ndPass) {
    ASSERT_EQ(service->Start(64, "127.0.0.1", port), 0);
    RawPeer stays = LogIn(port);
    LogIn(port).Close();
    RawPeer stays_too = LogIn(port);
    for (int pass = 4; pass <= 20; pass++) LogIn(port).Close();
    EXPECT_TRUE(Eventually([&] { return service->created == 20; }));
    EXPECT_EQ(g_alive, 20);
    RawPeer last = LogIn(port);  // the 22nd pass begins as soon as the 21st has taken it in
    EXPECT_TRUE(Eventually([] { return g_alive < 10; }));
    EXPECT_TRUE(Echoes(stays) && Echoes(stays_too) && Echoes(last));
}

TEST_F(PackageService, ConnectionThatDefersItsDeletionIsStoppedAtOnce) {
    service->delay_sec = 1;
    ASSERT_EQ(service->Start(64, "127.0.0.1", port), 0);
    RawPeer peer = LogIn(port);
    EXPECT_TRUE(Echoes(peer));
    service.reset();
    EXPECT_TRUE(peer.Closed());
    EXPECT_EQ(g_alive, 1);
    EXPECT_TRUE(Eventually([] { return g_alive == 0; }));
}

TEST_F(PackageService, ClientSurvivesARestartOverAUnixSocket) {
    class Listening : public HCNetPackageService {
      public:
        Listening() { SetSocket(new HCUnixSocket); }
        ~Listening() override { StopService(); }
        HCNetPackage* CreateServer() override { return new Echo(0); }
    };
    class Caller : public HCNetPackage {
      public:
        ~Caller() override { StopThread(); }
        void PkgReceived(unsigned int, char* data, int len) override {
            answers += string(data, len) == "hello";
        }
        std::atomic<int> answers{0};
    };
    const string name = "hybase-service-test-" + std::to_string(getpid());
    Caller caller;
    caller.StartAsClient(64, name.c_str(), 0, false, new HCUnixSocket);
    for (int round = 1; round <= 2; round++) {
        EXPECT_TRUE(Eventually([&] { return caller.m_nConnectState != NPS_READY; }));
        Listening listening;
        ASSERT_EQ(listening.Start(64, name.c_str(), 0), 0);
        EXPECT_TRUE(Eventually([&] { return caller.m_nConnectState == NPS_READY; }));
        EXPECT_EQ(caller.SendPkg(0, "hello", 5, 1), 5);
        EXPECT_TRUE(Eventually([&] { return caller.answers == round; }));
    }
}

}  // namespace
