// docs/examples/limits.cpp
//
// Limits on what peers may cost, and a server for the programs of one user.
#include <hybase/hcutil/HCTCPGrpcClient.h>
#include <hybase/hcutil/HCTCPGrpcServer.h>
#include <hybase/hcutil/HCUnixSocket.h>
#include <hybase/hlog.h>
#include <signal.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

static HCNetLimits SmallDevice() {
    HCNetLimits limits;
    limits.max_clients = 64;
    limits.max_clients_per_address = 16;
    limits.max_packet_bytes = 64 * 1024;  // as large as the largest request
    limits.login_sec = 10;
    limits.packet_sec = 30;
    limits.max_unsent_bytes = 4 << 20;
    limits.unsent_sec = 30;
    limits.min_bytes_per_sec = 1000;
    limits.stranger_records_per_sec = 10;
    return limits;
}

class LocalServer : public HCTCPGrpcServer {
  public:
    explicit LocalServer(uid_t user) : m_user(user) { SetSocket(new HCUnixSocket); }
    ~LocalServer() override { StopService(); }

    bool CheckPasswd(const char*, int, HCSocket* sock, std::string&) override {
        ucred peer{};
        socklen_t size = sizeof peer;
        return getsockopt(sock->m_nSocket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
               peer.uid == m_user;
    }

  private:
    const uid_t m_user;
};

// ---- Do they hold? ----

static grpcMethod_t g_methods[] = {{nullptr, nullptr, 0}};
static int g_failures;

static void Check(bool holds, const char* what) {
    printf("%s: %s\n", holds ? "yes" : "NO", what);
    if (!holds) g_failures++;
}

static bool IsLetIn(HCTCPGrpcClient& client, const char* host, int port, HCSocket* sock) {
    client.Start(g_methods, 1024, host, static_cast<unsigned short>(port), true, sock);
    return client.m_nConnectState == NPS_READY;
}

static void CheckLimits() {
    HCTCPGrpcServer server;
    server.SetLimits(SmallDevice());
    if (server.StartService(g_methods, 10240, "127.0.0.1", 0) != 0) return Check(false, "listens");
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(server.m_pListenSocket.load()->m_nSocket, reinterpret_cast<sockaddr*>(&address),
                &size);
    const int port = ntohs(address.sin_port);

    HCTCPGrpcClient clients[16], another;
    bool all = true;
    for (HCTCPGrpcClient& client : clients)
        all = IsLetIn(client, "127.0.0.1", port, nullptr) && all;
    Check(all, "as many clients of one address as may come are let in");
    Check(!IsLetIn(another, "127.0.0.1", port, nullptr), "one more is turned away");
}

static void CheckUser(uid_t user, bool expected) {
    LocalServer server(user);
    const std::string name = "hybase-limits-" + std::to_string(getpid());
    if (server.StartService(g_methods, 10240, name.c_str(), 0) != 0) return Check(false, "listens");
    HCTCPGrpcClient client;
    Check(IsLetIn(client, name.c_str(), 0, new HCUnixSocket) == expected,
          expected ? "the user's programs are let in" : "those of another user are not");
}

int main() {
    signal(SIGPIPE, SIG_IGN);
    hlogParam_t silent = {-1, -1, 0, "", 0, 0};
    hlog_set_param(&silent);
    CheckLimits();
    CheckUser(getuid(), true);
    CheckUser(getuid() + 1, false);
    return g_failures;
}
