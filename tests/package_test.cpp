#include <gtest/gtest.h>
#include <hybase/hcutil/HCNetPackage.h>
#include <signal.h>

#include <atomic>
#include <memory>
#include <new>

#include "support/log_records.h"
#include "support/loopback.h"
#include "support/vtable_slots.h"

using Clock = std::chrono::steady_clock;
using Lines = std::vector<std::string>;
using std::string;
using namespace std::chrono_literals;

static std::atomic<time_t> g_now{1000000};  // the clock that decides about keep-alive and silence

time_t arch_time() { return g_now; }

// No single allocation of a gigabyte finds memory here.
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return size < 1u << 30 ? ::operator new[](size) : nullptr;
}

namespace {

// A connection as users derive it: its hooks write down what they see.
class Connection : public HCNetPackage {
  public:
    ~Connection() override { StopThread(); }
    void PkgReceived(unsigned int type, char* data, int len) override {
        Note(std::to_string(type) + ":" + string(data, len));
        EXPECT_EQ(data[len], '\0');
        data[len] = 'x';  // hooks may write there
    }
    void TimerTick_Nodata(unsigned int usec) override { ticks += usec == 500000; }
    void OnEvent(NPEvent_e event) override { Note("event " + std::to_string(event)); }

    void Note(const string& line) {
        const std::lock_guard<std::mutex> lock(mutex_);
        seen_.push_back(line);
    }
    Lines Seen() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return seen_;
    }
    bool Sees(const string& line) {
        return Eventually([&] { return !Seen().empty() && Seen().back() == line; });
    }
    bool NextTick() {
        const int before = ticks;
        return Eventually([&] { return ticks > before + 1; });
    }

    std::atomic<int> ticks{0};

  private:
    std::mutex mutex_;
    Lines seen_;
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

    RawPeer LogIn() {
        RawPeer peer = listener.Accept();
        EXPECT_EQ(peer.Receive(24), kLoginRequest);
        EXPECT_TRUE(peer.Send(kLoginOk));
        return peer;
    }
    RawPeer StartClient(int bufsize) {
        client.StartAsClient(bufsize, "127.0.0.1", listener.port, false);
        RawPeer peer = LogIn();
        EXPECT_TRUE(client.Sees("event 1"));
        return peer;
    }
    // A server end, and the raw other end of its socket.
    static RawPeer SocketPair(HCSocket*& sock) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        sock = new ImpatientSocket;
        sock->m_nSocket = ends[0];
        sock->SetBlockOpt(false);
        return RawPeer(ends[1]);
    }
    bool Logged(const string& line) {
        return Eventually([&] {
            for (string& record : log.Take()) lines.push_back(std::move(record));
            return std::find(lines.begin(), lines.end(), line) != lines.end();
        });
    }

    LogRecords log;
    Lines lines;
    RawListener listener;
    Connection client;
};

TEST_F(Package, SlotsStandInTheirOrder) {
    const std::vector<int> slots = {
        VtableSlot(&HCNetPackage::OnThread),         VtableSlot(&HCNetPackage::PkgReceived),
        VtableSlot(&HCNetPackage::TimerTick_Nodata), VtableSlot(&HCNetPackage::OnEvent),
        VtableSlot(&HCObjOfVector::TryDelayDelete),  VtableSlot(&HCObjOfVector::IsEqual)};
    EXPECT_EQ(slots, (std::vector<int>{2, 3, 4, 5, 2, 3}));
    const char* first = reinterpret_cast<char*>(&client.m_bServer);
    EXPECT_EQ(client.m_szIp - first, 1);
    EXPECT_EQ(reinterpret_cast<char*>(&client.m_nPort) - first, 66);
    EXPECT_EQ(reinterpret_cast<char*>(&client.m_bRun) - first, 68);
}

TEST_F(Package, PacketsLookAsDocumentedOnTheWire) {
    RawPeer peer = StartClient(64);
    EXPECT_EQ(client.m_nConnectState, NPS_READY);
    const char* pieces[] = {"ab", "never", "cde", nullptr};
    const int lengths[] = {2, -7, 3, 0};
    EXPECT_EQ(client.SendPkg(0x01020304, pieces, lengths, 4, 0), 3);
    // All in one segment: the header never leaves alone.
    EXPECT_EQ(peer.ReceiveOnce(), kData + Bytes("\1\2\3\4\0\0\0\5abcde"));
    EXPECT_EQ(client.SendPkg(7, nullptr, 0, 0), 12);
    EXPECT_EQ(peer.ReceiveOnce(), kData + Bytes("\0\0\0\7\0\0\0\0"));

    // An empty packet and one with the login flag reach no hook.
    peer.Send(kData + Bytes("\0\0\0\0\0\0\0\0") + kLogin + Bytes("\0\0\0\0\0\0\0\4drop") + kData +
              Bytes("\0\0\1\2\0\0\0\5hello"));
    EXPECT_TRUE(client.Sees("258:hello"));
    EXPECT_EQ(client.Seen(), (Lines{"event 1", "258:hello"}));
}

TEST_F(Package, LoginEndsAsTheReplySays) {
    const struct {
        string record, reply, event, logged;
    } cases[] = {
        {"", kLogin + Bytes("\0\0\0\0\0\0\0\6FAILED"), "event 4", ""},
        {"", kLogin + Bytes("\0\0\0\0\0\0\0\1O"), "event 4", ""},
        {"", kLogin + Bytes("\0\0\0\0\0\0\0\0"), "",
         "ERR _ClientLoginIfNeeded: get_package err [0]\n"},
        {"", kData + Bytes("\0\0\0\0\0\0\0\2OK"), "",
         "ERR _ClientLoginIfNeeded: get_package err [2]\n"},
        {"", "HTTP/1.1 400", "", "ERR __get_a_package: receive data err.flag=[1213486160]\n"},
        {"", kLogin + Bytes("\0\0\0\0\xFF\xFF\xFF\xFF"), "",
         "ERR _ClientLoginIfNeeded: get_package err [-1]\n"},
        // Cut to the record's 12 bytes and one; what stays in the stream is no header.
        {"", kLogin + Bytes("\0\0\0\0\0\0\0\x20OK and so on, for 32 characters."), "event 0",
         "INFO __get_a_package: not enough buffer to receive data.: datalen: 32, maxlen: 13\n"},
        {"a;b", kLoginOk, "", "ERR _ClientLoginIfNeeded: get_package err [0]\n"},
        {"eleven;byte", kLoginOk, "event 1", ""},
    };
    for (const auto& one : cases) {
        RawListener target;
        Connection tried;
        tried.SetPasswdInfo(one.record.data(), static_cast<int>(one.record.size()));
        tried.SetPasswdInfo("ignored", -1);
        tried.StartAsClient(64, "127.0.0.1", target.port, false);
        RawPeer peer = target.Accept();
        const string record = one.record.empty() ? "owner;908172" : one.record;
        EXPECT_EQ(peer.Receive(12 + record.size()).substr(12), record);
        peer.Send(one.reply);
        if (!one.event.empty()) {
            EXPECT_TRUE(tried.Sees(one.event)) << one.reply;
        }
        if (!one.logged.empty()) {
            EXPECT_TRUE(Logged(one.logged)) << one.reply;
        }
        if (one.event == "event 0") continue;  // it was logged in and is connecting again
        const bool refused = one.event != "event 1";
        EXPECT_TRUE(Eventually([&] { return tried.IsNeedClear() == refused; })) << one.reply;
    }
}

TEST_F(Package, RefusedConnectIsReportedAndThePauseEndsWithTheObject) {
    const auto start = Clock::now();
    {
        Connection tried;
        tried.StartAsClient(-5, string(70, '1').c_str(), FreePort(), true);
        EXPECT_EQ(string(tried.m_szIp, 64), string(64, '1'));
        EXPECT_EQ(tried.Seen().front(), "event 3");
        EXPECT_TRUE(tried.IsNeedClear());
        EXPECT_EQ(tried.SendPkg(0, "x", 1, 5), -21);
        EXPECT_TRUE(Logged("ERR LockWhenReady: Not Connect yet, ConnectState : [1]\n"));
    }
    EXPECT_LT(Clock::now() - start, 3s);
}

TEST_F(Package, SendingWaitsForTheLoginAndNoLonger) {
    EXPECT_EQ(client.SendPkg(0, "x", 1, 5), -21);
    EXPECT_TRUE(Logged("ERR LockWhenReady: Not Connect yet, ConnectState : [0]\n"));
    client.StartAsClient(64, "127.0.0.1", listener.port, false);
    RawPeer peer = listener.Accept();
    auto start = Clock::now();
    EXPECT_EQ(client.SendPkg(0, "x", 1, 0), -21);
    EXPECT_LT(Clock::now() - start, 90ms);
    EXPECT_EQ(client.SendPkg(0, "x", 1, 1), -21);
    EXPECT_GE(Clock::now() - start, 1s);
    EXPECT_TRUE(Logged("ERR LockWhenReady: Not Connect yet, send data later please\n"));

    std::thread sender([&] { EXPECT_EQ(client.SendPkg(0, "x", 1, 5), 1); });
    peer.Send(kLoginOk);
    EXPECT_EQ(peer.Receive(24 + 13), kLoginRequest + DataPacket("x"));
    sender.join();
    const char* halves[] = {"", ""};
    const int lengths[] = {INT32_MAX, 1};
    EXPECT_EQ(client.SendPkg(0, halves, lengths, 2, 0), -1);
    EXPECT_EQ(client.SendPkg(0, "y", 1, 0), 1);
    EXPECT_EQ(peer.Receive(13), DataPacket("y"));
}

TEST_F(Package, FailedSendIsReportedByTheSender) {
    SocketPair(client.m_pSocket).Close();
    client.m_nConnectState = NPS_READY;
    EXPECT_EQ(client.SendPkg(0, "x", 1, 0), -1);
    EXPECT_EQ(client.m_nConnectState, NPS_DISCONNECTED);
    EXPECT_EQ(client.m_tLastSend, 1000000);
    EXPECT_EQ(client.Seen(), Lines{"event 0"});
    EXPECT_EQ(log.Take(), (Lines{"ERR Send: Socket : Send err Broken pipe [][0]\n",
                                 "ERR SendPieces: ERROR: data send error2: -1, 12\n",
                                 "ERR SendPkg: SendPkg error: 32, Broken pipe\n"}));
}

TEST_F(Package, ConnectionWithoutSocketNeverSendsAgain) {
    client.m_nConnectState = NPS_READY;
    EXPECT_EQ(client.SendPkg(0, "x", 1, 0), -21);
    EXPECT_EQ(log.Take(), Lines{"ERR SendPkg: Not Connected now\n"});
    std::atomic<bool> sent{false};
    std::thread second([&] { sent = client.SendPkg(0, "x", 1, 0) != 0; });
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(sent);
    client.m_nConnectState = NPS_DISCONNECTED;
    arch_mutex_unlock(client.m_hSendMutex);
    second.join();
}

TEST_F(Package, LargeAndFragmentedPacketsArriveWhole) {
    RawPeer peer = StartClient(64);
    const string large(60000, 'L');
    peer.Send(DataPacket(large));
    EXPECT_TRUE(client.Sees("0:" + large));
    for (char byte : DataPacket("drop by drop")) {
        peer.Send(string(1, byte));
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_TRUE(client.Sees("0:drop by drop"));
    EXPECT_EQ(client.m_nRecvBufSize, 64);
}

TEST_F(Package, BadHeadersEndTheLinkAndTheClientComesBackAtOnce) {
    StartClient(64).Close();
    const struct {
        string bytes, logged;
    } cases[] = {
        {"no header...", "ERR _getPackage: receive data err.flag=[1852776552]\n"},
        {kData + Bytes("\0\0\0\0\xFF\xFF\xFF\xFF"), "ERR _getPackage: receive data err.len=[-1]\n"},
        {kData + Bytes("\0\0\0\0\x7F\xFF\xFF\xFF"),
         "ERR AllocRecvBuf: no memory for a packet of 2147483647 bytes from [127.0.0.1][" +
             std::to_string(listener.port) + "]\n"},
    };
    for (const auto& one : cases) {
        RawPeer peer = LogIn();
        peer.Send(one.bytes);
        EXPECT_TRUE(Logged(one.logged)) << one.logged;
    }
    // Half a payload counts as no data, and its rest is then taken for a header.
    RawPeer peer = LogIn();
    peer.Send(DataPacket("one and two").substr(0, 20));
    EXPECT_TRUE(client.NextTick());
    peer.Send("d two, three, four");
    RawPeer last = LogIn();
    last.Send(DataPacket("again"));
    EXPECT_TRUE(client.Sees("0:again"));
}

TEST_F(Package, SilentPeerIsDroppedAfterThreeIntervals) {
    HCSocket* sock = nullptr;
    RawPeer peer = SocketPair(sock);
    Connection server;
    server.StartAsServer(64, nullptr);
    EXPECT_EQ(log.Take(), Lines{"ERR StartAsServer: StartAsServer err  Socket is NULL.\n"});
    const time_t start = g_now;
    server.StartAsServer(64, sock);
    EXPECT_EQ(server.Seen(), Lines{"event 1"});
    ASSERT_TRUE(server.NextTick());
    g_now = start + 10;
    ASSERT_TRUE(server.NextTick());
    EXPECT_EQ(server.m_tLastSend, start);
    g_now = start + 12;  // the keep-alive is more than due, the first interval not quite over
    EXPECT_EQ(peer.Receive(12), DataPacket(""));
    ASSERT_TRUE(server.NextTick());
    EXPECT_EQ(log.Take(), Lines{});
    g_now = start + 13;
    EXPECT_TRUE(Logged("INFO WatchSilence: timeout: 1 [][0]\n"));
    peer.Send(DataPacket("not dead"));  // and the count begins anew
    EXPECT_TRUE(server.Sees("0:not dead"));
    for (int interval = 1; interval <= 3; interval++) {
        lines.clear();
        g_now += 13;
        EXPECT_TRUE(Logged("INFO WatchSilence: timeout: " + std::to_string(interval) + " [][0]\n"));
    }
    EXPECT_TRUE(Logged("INFO OnThread: m_bServer[1]  OnThread  end...[][0]\n"));
    EXPECT_EQ(server.Seen(), (Lines{"event 1", "0:not dead", "event 2"}));
    EXPECT_TRUE(server.IsNeedClear());
}

TEST_F(Package, ClockJumpsCountNoTimeOut) {
    HCSocket* sock = nullptr;
    RawPeer peer = SocketPair(sock);
    Connection server;
    server.StartAsServer(64, sock);
    ASSERT_TRUE(server.NextTick());
    const struct {
        int step;
        const char* logged;
    } cases[] = {{-1, "ERR WatchSilence: It Seems That, TIME Changed\n"},
                 {999, "INFO WatchSilence: timeout: 1 [][0]\n"},
                 {1000, "ERR WatchSilence: It Seems That, TIME Changed\n"}};
    for (const auto& one : cases) {
        lines.clear();
        g_now += one.step;
        EXPECT_TRUE(Logged(one.logged)) << one.step;
        EXPECT_EQ(lines.size(), 1u);
    }
    EXPECT_TRUE(peer.Send(DataPacket("alive")));
    EXPECT_TRUE(server.Sees("0:alive"));
}

TEST_F(Package, PacketsOfSeveralThreadsAreNeverMixed) {
    RawPeer peer = StartClient(64);
    std::vector<std::thread> senders;
    for (char name : {'a', 'b', 'c', 'd'}) {
        senders.emplace_back([this, name] {
            const string piece(1000, name);
            const char* pieces[] = {piece.data(), piece.data(), piece.data()};
            const int lengths[] = {1, 500, 1000};
            for (int i = 0; i < 200; i++) client.SendPkg(0, pieces, lengths, 3, 0);
        });
    }
    for (int i = 0; i < 800; i++) {
        const string packet = peer.Receive(1513);
        ASSERT_EQ(packet, DataPacket(string(1501, packet.back())));
    }
    for (std::thread& sender : senders) sender.join();
}

// Whatever the moment a link is lost: the first bytes of the next one are the login's.
TEST_F(Package, NothingIsSentBeforeTheLoginWhileTheClientReconnects) {
    std::atomic<bool> sending{true};
    std::vector<std::thread> senders;
    for (int i = 0; i < 4; i++) {
        senders.emplace_back([&] {
            while (sending) client.SendPkg(0, "payload", 7, 0);
        });
    }
    client.StartAsClient(64, "127.0.0.1", listener.port, false);
    for (int round = 0; round < 30; round++) {
        RawPeer peer = LogIn();
        ASSERT_EQ(peer.Receive(190),
                  (DataPacket("payload") + DataPacket("payload") + DataPacket("payload") +
                   DataPacket("payload") + DataPacket("payload") + DataPacket("payload") +
                   DataPacket("payload") + DataPacket("payload") + DataPacket("payload") +
                   DataPacket("payload")));
    }
    sending = false;
    for (std::thread& sender : senders) sender.join();
}

TEST_F(Package, SecondStartLeavesOneThreadOnTheNewSocket) {
    HCSocket* sock = nullptr;
    RawPeer first = SocketPair(sock);
    client.StartAsServer(64, sock);
    RawPeer second = SocketPair(sock);
    client.StartAsServer(64, sock);
    EXPECT_TRUE(first.Closed());
    second.Send(DataPacket("second"));
    EXPECT_TRUE(client.Sees("0:second"));
}

TEST_F(Package, PacketsAreTakenOutOfABlock) {
    char block[] =
        "\xA5\x5A\x5A\xA5\0\0\0\1\0\0\0\3one\xA5\x5A\x5A\xA6\0\0\0\2\0\0\0\3two\xA5\x5A\x5A\xA5"
        "\0\0\0\3\0\0\0\0\xA5\x5A\x5A\xA5\0\0\0\4\xFF\xFF\xFF\xFF";
    EXPECT_EQ(client._ProgressData(block, 11), -1);
    EXPECT_EQ(client._ProgressData(block, 14), -1);
    EXPECT_EQ(client._ProgressData(block, 30), 15);
    EXPECT_EQ(log.Take(), Lines{});
    EXPECT_EQ(client._ProgressData(block + 15, 15 + 12), 15);
    EXPECT_EQ(log.Take(), Lines{"ERR _ProgressData: ERROR: Data wrong\n"});
    EXPECT_EQ(client._ProgressData(block + 30, 12), 12);
    EXPECT_EQ(client._ProgressData(block + 42, 12), -1);
    EXPECT_EQ(client.Seen(), (Lines{"1:one", "2:two"}));
    client._ServerClientCheckingPasswd("OK", 2);
    client._ServerClientCheckingPasswd("NO", 2);
    EXPECT_EQ(client.Seen(), (Lines{"1:one", "2:two", "event 1", "event 4"}));
    EXPECT_EQ(client.m_nConnectState, NPS_LOGIN_FAILED);
}

}  // namespace
