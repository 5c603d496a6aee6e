#include <gtest/gtest.h>
#include <hybase/hcutil/HCNetPackageService.h>
#include <hybase/hcutil/HCUnixSocket.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>

#include "support/log_records.h"

// The pause of a client after a failed connect passes 25 times as fast.
__attribute__((visibility("default"))) int usleep(useconds_t usec) {
    std::this_thread::sleep_for(std::chrono::microseconds(usec / 25));
    return 0;
}

namespace {

std::atomic<int> g_alive{0}, g_echoes{0}, g_delay_sec{0};

// Sends back what it gets; both ends use it.
class Echo : public HCNetPackage {
  public:
    Echo() { g_alive++; }
    ~Echo() override {
        StopThread();
        g_alive--;
    }
    void PkgReceived(unsigned int type, char* data, int len) override {
        if (m_bServer) SendPkg(type, data, len, 0);
        g_echoes += !m_bServer;
    }
    int TryDelayDelete() override { return g_delay_sec; }
};

// Decides by the text of the credential record.
class Service : public HCNetPackageService {
  public:
    ~Service() override { StopService(); }
    bool CheckPasswd(const char* data, int len, HCSocket*, string& message) override {
        EXPECT_EQ(string(data), string(data, len));
        if (string(data) == "rude") message = "Not before noon";
        return len > 4;
    }
    HCNetPackage* CreateServer() override { return ++created != 4 ? new Echo : nullptr; }

    std::atomic<int> created{0};
};

struct PackageService : testing::Test {
    PackageService() { signal(SIGPIPE, SIG_IGN); }
    static bool Echoes(Peer& peer) {
        return peer.Send(Data("hello")) && peer.Receive(17) == Data("hello");
    }

    LogRecords log;
    unsigned short port = FreePort();
    std::unique_ptr<Service> service{new Service};
};

TEST_F(PackageService, LoginIsAnsweredAsTheServiceDecides) {
    ASSERT_EQ(service->Start(64, "127.0.0.1", port), 0);
    const string cases[][2] = {{Login("rude"), Login("Not before noon")},
                               {Login("shy;"), Login("FAILED")},
                               {Data("owner"), ""},
                               {Login(""), ""},
                               {"GET / HTTP/1.1\r\n", ""},
                               {Login(string(2048, 'p')), Login("OK")}};  // the rest is no header
    for (const auto& one : cases) {
        Peer peer(port);
        peer.Send(one[0]);
        EXPECT_EQ(peer.Receive(int(one[1].size())), one[1]);
        EXPECT_TRUE(peer.Closed());
    }
    const std::vector<string> lines = log.Take();
    EXPECT_EQ(lines[0].substr(0, 47), "INFO OnThread: Client connect ip[127.0.0.1]port");
    EXPECT_EQ(lines[1], "INFO WaitingLogin: message=[Not before noon]\n");
    EXPECT_EQ(lines[2].substr(lines[2].size() - 13), "] Login err!\n");

    Peer kept = LoggedIn(port);  // a second start moves the port and keeps the clients
    const unsigned short next = FreePort();
    ASSERT_EQ(service->Start(64, next), 0);
    EXPECT_FALSE(Peer(port).Send("x"));
    Peer moved = LoggedIn(next);
    EXPECT_TRUE(Echoes(moved) && Echoes(kept));
    EXPECT_TRUE(LoggedIn(next).Closed());  // for the fourth one there is no connection object
    Listener taken;
    EXPECT_EQ(service->Start(64, "127.0.0.1", taken.port), -1);
    EXPECT_TRUE(log.Comes("ERR Start: Service Fail,No HCSocket\n"));
}

// One that sends a byte now and then keeps every wait of its own alive.
TEST_F(PackageService, StopWaitsForNoPeerThatTrickles) {
    ASSERT_EQ(service->Start(64, "127.0.0.1", port), 0);
    Peer payload = LoggedIn(port), login(port);
    ASSERT_TRUE(Eventually([&] { return g_alive == 1; }));
    payload.Send(Data(string(300, 'p')).substr(0, 13));
    login.Send(Login(string(300, 'l')).substr(0, 13));
    std::atomic<bool> stopped{false};
    std::thread trickle([&] {
        for (int i = 0; i < 200 && !stopped; i++) {
            payload.Send("p");
            login.Send("l");
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    const auto began = std::chrono::steady_clock::now();
    service.reset();
    stopped = true;
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(10));
    trickle.join();
}

// Waits for the next client however long it takes, so that every pass of the service brings one.
class PatientListener : public HCSocket {
  public:
    explicit PatientListener(const std::atomic<bool>& closing) : closing_(closing) {}
    HCSocket* Accept(int timeout) override {
        HCSocket* accepted = nullptr;
        while (accepted == nullptr && !closing_) accepted = HCSocket::Accept(timeout);
        return accepted;
    }

  private:
    const std::atomic<bool>& closing_;
};

TEST_F(PackageService, LostConnectionsAreRemovedOnThe22ndPass) {
    std::atomic<bool> closing{false};
    service->SetSocket(new PatientListener(closing));
    ASSERT_EQ(service->Start(64, "127.0.0.1", port), 0);
    service->created = 4;
    Peer stays = LoggedIn(port);
    LoggedIn(port);
    Peer stays_too = LoggedIn(port);
    for (int pass = 4; pass <= 20; pass++) LoggedIn(port);
    EXPECT_TRUE(Eventually([] { return g_alive == 20; }));
    Peer last = LoggedIn(port);  // the 22nd pass begins as soon as the 21st has taken it in
    EXPECT_TRUE(Eventually([] { return g_alive < 10; }));
    EXPECT_TRUE(Echoes(stays) && Echoes(stays_too) && Echoes(last));
    g_delay_sec = 1;  // what defers its deletion is stopped with the service all the same
    closing = true;
    service.reset();
    EXPECT_TRUE(stays.Closed());
    EXPECT_GE(g_alive, 3);
    EXPECT_TRUE(Eventually([] { return g_alive == 0; }));
    g_delay_sec = 0;
}

TEST_F(PackageService, ClientSurvivesARestartOverAUnixSocket) {
    const string name = "hybase-service-test-" + std::to_string(getpid());
    Echo client;
    client.StartAsClient(64, name.c_str(), 0, false, new HCUnixSocket);
    for (int round = 1; round <= 2; round++) {
        EXPECT_TRUE(Eventually([&] { return client.m_nConnectState != NPS_READY; }));
        Service listening;
        listening.SetSocket(new HCUnixSocket);
        ASSERT_EQ(listening.Start(64, name.c_str(), 0), 0);
        EXPECT_TRUE(Eventually([&] { return client.SendPkg(0, "hello", 5, 1) == 5; }));
        EXPECT_TRUE(Eventually([&] { return g_echoes == round; }));
    }
}

}  // namespace
