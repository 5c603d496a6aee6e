#include <gtest/gtest.h>
#include <hybase/hcutil/HCNetPackage.h>
#include <signal.h>

#include <atomic>
#include <new>

#include "support/log_records.h"
#include "support/loopback.h"

using Lines = std::vector<string>;
using std::to_string;
using namespace std::chrono_literals;

static std::atomic<time_t> g_now{1000000};
time_t arch_time() { return g_now; }

// No receive buffer grows to 64 KiB here.
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return size <= 1u << 16 ? ::operator new[](size) : nullptr;
}

namespace {

// A connection as users derive it: its hooks write down what they see.
class Connection : public HCNetPackage {
  public:
    ~Connection() override { StopThread(); }
    void PkgReceived(unsigned int type, char* data, int len) override {
        Note(to_string(type) + ":" + data);  // a zero stands behind the payload
        data[len] = 'x';
    }
    void TimerTick_Nodata(unsigned int usec) override { ticks += usec == 500000; }
    void OnEvent(NPEvent_e event) override { Note("event" + to_string(event)); }
    void Note(const string& what) {
        const std::lock_guard<std::mutex> lock(mutex_);
        seen_ += what + " ";
    }
    string Seen() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return seen_;
    }
    bool Sees(const string& all) {
        return Eventually([&] { return Seen() == all + " "; });
    }
    bool NextPass() {
        return Eventually([this, before = int(ticks)] { return ticks > before + 1; });
    }

    std::atomic<int> ticks{0};

  private:
    std::mutex mutex_;
    string seen_;
};

// Waits a twentieth of the time, so that a test sees many passes of the connection thread.
class ImpatientSocket : public HCSocket {
  public:
    int RecvAll(char* buf, int len, int usec) override {
        return HCSocket::RecvAll(buf, len, usec / 20);
    }
};

struct Package : testing::Test {
    Package() { signal(SIGPIPE, SIG_IGN); }
    Peer LogIn() {
        Peer peer(listener.Accept(5));
        EXPECT_EQ(peer.Receive(24), Bytes("\xA5\x5A\x5A\xA6\0\0\0\0\0\0\0\x0Cowner;908172"));
        EXPECT_TRUE(peer.Send(Bytes("\xA5\x5A\x5A\xA6\0\0\0\0\0\0\0\2OK")));
        return peer;
    }
    void Start() { client.StartAsClient(64, "127.0.0.1", listener.port, false); }

    LogRecords log;
    Listener listener;
    Connection client;
};

TEST_F(Package, PacketsLookAsDocumentedOnTheWire) {
    Start();
    Peer peer = LogIn();
    EXPECT_TRUE(client.Sees("event1"));
    const char* pieces[] = {"ab", "never", "cde", nullptr};
    const int lengths[] = {2, -7, 3, 0};
    EXPECT_EQ(client.SendPkg(0x01020304, pieces, lengths, 4, 0), 3);
    EXPECT_EQ(peer.Receive(17), Bytes("\xA5\x5A\x5A\xA5\1\2\3\4\0\0\0\5abcde"));
    EXPECT_EQ(client.SendPkg(7, nullptr, 0, 0), 12);
    EXPECT_EQ(peer.Receive(12), Bytes("\xA5\x5A\x5A\xA5\0\0\0\7\0\0\0\0"));

    // An empty packet and one with the login flag reach no hook.
    const string large(60000, 'L');
    peer.Send(Data("") + Login("drop") + Bytes("\xA5\x5A\x5A\xA5\0\0\1\2\0\0\0\2hi") + Data(large));
    for (char byte : Data("bit-by-bit")) {
        std::this_thread::sleep_for(1ms);
        peer.Send(string(1, byte));
    }
    EXPECT_TRUE(client.Sees("event1 258:hi 0:" + large + " 0:bit-by-bit"));
    EXPECT_EQ(client.m_nRecvBufSize, 64);
}

TEST_F(Package, LoginEndsAsTheReplySays) {
    const string error = "ERR _ClientLoginIfNeeded: get_package err [", cut = string(32, '.');
    const struct {
        string reply, seen, logged, record = "owner;908172";
    } cases[] = {
        {Login("FAILED"), "event4", ""},
        {Login(""), "", error + "0]\n"},
        {"HTTP/1.1 400", "", "ERR __get_a_package: receive data err.flag=[1213486160]\n"},
        {Bytes("\xA5\x5A\x5A\xA6\0\0\0\0\xFF\xFF\xFF\xFF"), "", error + "-1]\n"},
        // What is cut off stays in the stream and is no header.
        {Login("OK" + cut), "event1 event0",
         "INFO __get_a_package: not enough buffer to receive data.: datalen: 34, maxlen: 13\n"},
        {Login("OK"), "", error + "0]\n", "a;b"},
        {Login("OK"), "event1", "", "eleven;byte"},
    };
    for (const auto& one : cases) {
        Listener target;
        Connection tried;
        tried.SetPasswdInfo(one.record.data(), int(one.record.size()));
        tried.SetPasswdInfo("ignored", -1);
        tried.StartAsClient(64, "127.0.0.1", target.port, false);
        Peer peer(target.Accept(5));
        EXPECT_EQ(peer.Receive(12 + int(one.record.size())), Login(one.record));
        peer.Send(one.reply);
        EXPECT_TRUE(one.logged.empty() || log.Comes(one.logged)) << one.reply;
        EXPECT_TRUE(one.seen.empty() || tried.Sees(one.seen)) << one.reply;
        if (one.seen == "event1 event0") continue;  // this one is connecting again
        EXPECT_TRUE(Eventually([&] { return tried.IsNeedClear() == (one.seen != "event1"); }));
    }
}

TEST_F(Package, SendingWaitsForTheLoginAndNoLonger) {
    EXPECT_EQ(client.SendPkg(0, "x", 1, 5), -21);
    EXPECT_TRUE(log.Comes("ERR SendPkg: Not Connect yet, ConnectState : [0]\n"));
    Start();
    Peer peer(listener.Accept(5));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client.SendPkg(0, "x", 1, 0), -21);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 90ms);
    EXPECT_EQ(client.SendPkg(0, "x", 1, 1), -21);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 1s);
    EXPECT_TRUE(log.Comes("ERR SendPkg: Not Connect yet, send data later please\n"));
    std::thread login([&] { peer.Send(Login("OK")); });
    EXPECT_EQ(client.SendPkg(0, "x", 1, 5), 1);
    login.join();
    const char* halves[] = {"", ""};
    const int lengths[] = {INT32_MAX, 1};
    EXPECT_EQ(client.SendPkg(0, halves, lengths, 2, 0), -1);
    EXPECT_EQ(peer.Receive(24 + 13).substr(24), Data("x"));

    Connection refused;  // its host fills the field
    refused.StartAsClient(-5, string(70, '1').c_str(), FreePort(), true);
    EXPECT_EQ(refused.Seen().substr(0, 6), "event3");
    EXPECT_EQ(refused.SendPkg(0, "x", 1, 5), -21);
}

TEST_F(Package, FailedSendIsReportedByTheSender) {
    Peer gone(listener.port);
    client.SetSocket(listener.Accept(5));
    shutdown(client.m_pSocket->m_nSocket, SHUT_WR);
    client.m_nConnectState = NPS_READY;
    EXPECT_EQ(client.SendPkg(0, "x", 1, 0), -1);
    EXPECT_EQ(client.m_tLastSend, g_now);
    EXPECT_TRUE(client.IsNeedClear() && client.Sees("event0"));
    const Lines lines = log.Take();
    EXPECT_EQ(lines[1], "ERR SendPkg: ERROR: data send error2: -1, 12\n");
    EXPECT_EQ(lines[2], "ERR SendPkg: SendPkg error: 32, Broken pipe\n");

    Connection without_socket;  // never sends again: its mutex stays locked
    without_socket.m_nConnectState = NPS_READY;
    EXPECT_EQ(without_socket.SendPkg(0, "x", 1, 0), -21);
    EXPECT_EQ(log.Take(), Lines{"ERR SendPkg: Not Connected now\n"});
    arch_mutex_unlock(without_socket.m_hSendMutex);
}

TEST_F(Package, BadHeadersEndTheLinkAndTheClientComesBack) {
    Start();
    const string cases[][2] = {
        {"no header...", "ERR _getPackage: receive data err.flag=[1852776552]\n"},
        {Bytes("\xA5\x5A\x5A\xA5\0\0\0\0\xFF\xFF\xFF\xFF"),
         "ERR _getPackage: receive data err.len=[-1]\n"},
        {Bytes("\xA5\x5A\x5A\xA5\0\0\0\0\x7F\xFF\xFF\xFF") + string(100, 'x'),
         "ERR AllocRecvBuf: no memory for a packet of 2147483647 bytes from [127.0.0.1][" +
             to_string(listener.port) + "]\n"},
    };
    for (const auto& one : cases) {
        Peer peer = LogIn();
        peer.Send(one[0]);
        EXPECT_TRUE(log.Comes(one[1])) << one[1];
    }
    // Half a payload counts as no data, and its rest is then taken for a header.
    Peer peer = LogIn();
    peer.Send(Data("one and two").substr(0, 20));
    EXPECT_TRUE(client.NextPass());
    peer.Send("two, three, four");
    Peer last = LogIn();
    last.Send(Data("last"));
    EXPECT_TRUE(
        client.Sees("event1 event0 event1 event0 event1 event0 event1 event0 event1 0:last"));
}

TEST_F(Package, SilenceIsCountedByAClockThatMayJump) {
    Peer peer(listener.port);
    std::unique_ptr<HCSocket> accepted(listener.Accept(5));
    auto* sock = new ImpatientSocket;
    sock->m_nSocket = std::exchange(accepted->m_nSocket, -1);
    client.StartAsServer(64, nullptr);
    EXPECT_EQ(log.Take(), Lines{"ERR StartAsServer: StartAsServer err  Socket is NULL.\n"});
    client.StartAsServer(64, sock);
    ASSERT_TRUE(client.NextPass());
    const string changed = "ERR OnThread: It Seems That, TIME Changed\n";
    const string counted[] = {"", "INFO OnThread: timeout: 1 [][0]\n",
                              "INFO OnThread: timeout: 2 [][0]\n",
                              "INFO OnThread: m_bServer[1]  OnThread  end...[][0]\n"};
    const std::pair<int, string> steps[] = {
        {10, ""},       {2, ""},           {1, counted[1]}, {0, "packet"},    {12, ""},
        {-13, changed}, {999, counted[1]}, {1000, changed}, {13, counted[2]}, {13, counted[3]}};
    for (const auto& [step, record] : steps) {
        if (record == "packet") peer.Send(Data("alive"));  // the count begins anew
        g_now += step;
        if (record.size() > 6) {
            EXPECT_TRUE(log.Comes(record)) << record;
        } else {
            EXPECT_TRUE(client.NextPass());
            EXPECT_EQ(log.Take(), Lines{});
        }
    }
    EXPECT_TRUE(client.IsNeedClear() && client.Sees("event1 0:alive event2"));
    // A keep-alive at the second step, then one for each interval but the last; none for a jump.
    EXPECT_EQ(peer.Receive(48), Data("") + Data("") + Data("") + Data(""));
    EXPECT_TRUE(peer.Closed());
}

// Whatever the moment a link is lost: packets stay whole, and the next link begins with the login.
TEST_F(Package, SeveralThreadsSendWhileTheClientReconnects) {
    Start();
    std::atomic<bool> sending{true};
    std::vector<std::thread> senders;
    for (char name : {'a', 'b', 'c', 'd'}) {
        senders.emplace_back([&, text = string(1000, name)] {
            const char* pieces[] = {text.data(), text.data(), text.data()};
            const int lengths[] = {1, 500, 1000};
            while (sending) client.SendPkg(0, pieces, lengths, 3, 0);
        });
    }
    for (int round = 0; round < 5; round++) {
        Peer peer = LogIn();
        for (int i = 0; i < 160; i++) {
            const string packet = peer.Receive(1513);
            ASSERT_FALSE(packet.empty());
            ASSERT_EQ(packet, Data(string(1501, packet.back())));
        }
    }
    sending = false;
    for (std::thread& sender : senders) sender.join();
}

TEST_F(Package, PacketsAreTakenOutOfABlock) {
    string block = Bytes("\xA5\x5A\x5A\xA5\0\0\0\1\0\0\0\3one") + Login("two") + Data("") +
                   Bytes("\xA5\x5A\x5A\xA5\0\0\0\4\xFF\xFF\xFF\xFF");
    EXPECT_EQ(client._ProgressData(block.data() + 3, 8), -1);
    EXPECT_EQ(log.Take(), Lines{"ERR _ProgressData: ERROR: Data wrong\n"});
    const int cases[][3] = {{0, 11, -1},  {0, 14, -1},  {0, 30, 15},
                            {15, 16, 15}, {30, 12, 12}, {42, 12, -1}};
    for (const auto& one : cases)
        EXPECT_EQ(client._ProgressData(&block[one[0]], one[1]), one[2]) << one[0];
    EXPECT_EQ(log.Take(), Lines{"ERR _ProgressData: ERROR: Data wrong\n"});
    client._ServerClientCheckingPasswd("NO", 2);
    client._ServerClientCheckingPasswd("OK", 2);
    EXPECT_EQ(client.Seen(), "1:one 0:two event4 event1 ");
    EXPECT_EQ(client.m_nConnectState, NPS_READY);
}

}  // namespace
