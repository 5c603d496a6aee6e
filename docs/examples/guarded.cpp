// docs/examples/guarded.cpp
#include <hybase/hcutil/HCTCPGrpcServer.h>
#include <hybase/hcutil/HCUnixSocket.h>
#include <hybase/hlog.h>
#include <hyplatform/arch.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string>
#include <utility>

constexpr int kMaxClients = 4;
constexpr int kMaxPacketBytes = 64 * 1024;
constexpr int kLongestWaitUs = 1000000;  // for the next bytes of a login
constexpr int kSlowestBytesPerMs = 16;   // 16 kB/s; who is slower is cut off

// ---- Bounds on what a peer may send ----

// A connection whose packets are short and come in time.
class BoundedSocket : public HCSocket {
  public:
    explicit BoundedSocket(HCSocket& accepted) {
        m_nSocket = std::exchange(accepted.m_nSocket, -1);
        m_nPort = accepted.m_nPort;
        memcpy(m_szHost, accepted.m_szHost, sizeof m_szHost);
    }

    int RecvAll(char* buf, int len, int timeout) override {
        if (len < 1 || len > kMaxPacketBytes || timeout < 1) return -1;
        const int wait_us = std::min(timeout, kLongestWaitUs);
        const int64_t end_ms =
            arch_getSystemStartupMs() + wait_us / 1000 + len / kSlowestBytesPerMs;
        for (int got = 0; got < len;) {
            if (arch_getSystemStartupMs() > end_ms) return -1;
            const int result = Recv(buf + got, len - got, wait_us);
            if (result < 1) return result;
            got += result;
        }
        return len;
    }
};

class BoundedListener : public HCSocket {
  public:
    HCSocket* Accept(int timeout) override {
        const std::unique_ptr<HCSocket> accepted(HCSocket::Accept(timeout));
        return accepted != nullptr ? new (std::nothrow) BoundedSocket(*accepted) : nullptr;
    }
};

// ---- Bounds on who may come ----

class GuardedServer : public HCTCPGrpcServer {
  public:
    ~GuardedServer() override { StopService(); }

    bool CheckPasswd(const char*, int, HCSocket*, std::string& message) override {
        _CleanServers();  // those that have gone do not count
        if (GetCnt() < kMaxClients) return true;
        message = "too many clients";
        return false;
    }

    // Names that are no account get no rights. Leaves room for 31 accounts.
    HCNetPackage* CreateServer() override {
        HCNetPackage* package = HCTCPGrpcServer::CreateServer();
        if (auto* connection = dynamic_cast<_TCPServer*>(package))
            connection->m_pGrpc->s_accounts[GRPC_ACCOUNT_MAX - 1].level = INT32_MAX;
        return package;
    }
};

// For programs of one user on this machine.
class LocalServer : public GuardedServer {
  public:
    explicit LocalServer(uid_t user) : m_user(user) { SetSocket(new HCUnixSocket); }
    ~LocalServer() override { StopService(); }

    bool CheckPasswd(const char* data, int len, HCSocket* sock, std::string& message) override {
        ucred peer{};
        socklen_t size = sizeof peer;
        if (getsockopt(sock->m_nSocket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
        return peer.uid == m_user && GuardedServer::CheckPasswd(data, len, sock, message);
    }

  private:
    const uid_t m_user;
};

// ---- Does it hold? ----

static grpcMethod_t g_methods[] = {{nullptr, nullptr, 0}};

static int Send(HCSocket& socket, char flag, int length) {
    const char header[] = {'\xA5',
                           '\x5A',
                           '\x5A',
                           flag,
                           0,
                           0,
                           0,
                           0,
                           static_cast<char>(length >> 24),
                           static_cast<char>(length >> 16),
                           static_cast<char>(length >> 8),
                           static_cast<char>(length)};
    return socket.Send(header, sizeof header, 1000000);
}

// Logs in as docs/protocol.md shows it and returns what the server answers.
static std::string LogIn(HCSocket& socket) {
    char answer[64] = {};
    Send(socket, '\xA6', 7);
    socket.Send("anybody", 7, 1000000);
    if (socket.RecvAll(answer, 12, 5000000) != 12) return "closed";
    const int length = answer[11];
    socket.RecvAll(answer, length, 5000000);
    return std::string(answer, length);
}

static bool IsClosed(HCSocket& socket, int seconds) {
    char byte;
    return socket.Recv(&byte, 1, seconds * 1000000) == -1;
}

static int g_failures;

static void Check(bool holds, const char* what) {
    printf("%s: %s\n", holds ? "yes" : "NO", what);
    if (!holds) g_failures++;
}

static void CheckTcp() {
    GuardedServer server;
    server.SetSocket(new BoundedListener);
    if (server.StartService(g_methods, 10240, "127.0.0.1", 0) != 0) return Check(false, "listens");
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(server.m_pListenSocket.load()->m_nSocket, reinterpret_cast<sockaddr*>(&address),
                &size);
    const unsigned short port = ntohs(address.sin_port);

    HCSocket clients[kMaxClients];
    bool all = true;
    for (HCSocket& client : clients)
        all = client.Connect("127.0.0.1", port, 5) == 0 && LogIn(client) == "OK" && all;
    Check(all, "as many clients as may come are served");
    HCSocket another;
    another.Connect("127.0.0.1", port, 5);
    Check(LogIn(another) == "too many clients", "one more is turned away");

    Send(clients[0], '\xA5', INT_MAX);
    Check(IsClosed(clients[0], 2), "a packet that is too long ends the connection");
    another.Connect("127.0.0.1", port, 5);
    Check(LogIn(another) == "OK", "whoever has gone makes room for another");

    HCSocket silent;
    silent.Connect("127.0.0.1", port, 5);
    Check(IsClosed(silent, 4), "a login that does not come is waited for no longer than a second");
}

static void CheckUnix(uid_t user, const char* expected) {
    LocalServer server(user);
    const std::string name = "hybase-guarded-" + std::to_string(getpid());
    if (server.StartService(g_methods, 10240, name.c_str(), 0) != 0) return Check(false, "listens");
    HCUnixSocket client;
    client.Connect(name.c_str(), 0, 5);
    const std::string answer = LogIn(client);
    Check(answer == expected, ("this program is answered: " + answer).c_str());
}

int main() {
    signal(SIGPIPE, SIG_IGN);
    hlogParam_t silent = {-1, -1, 0, "", 0, 0};
    hlog_set_param(&silent);
    CheckTcp();
    CheckUnix(getuid(), "OK");
    CheckUnix(getuid() + 1, "FAILED");
    return g_failures;
}
