// docs/examples/costs.cpp
#include <hybase/hcutil/HCLazyDelete.h>
#include <hybase/hcutil/HCLoginErrorMgr.h>
#include <hybase/hcutil/HCPainter.h>
#include <hybase/hcutil/HCParseIni.h>
#include <hybase/hcutil/HCPtrKeeper.h>
#include <hybase/hcutil/HCTCPGrpcClient.h>
#include <hybase/hcutil/HCTCPGrpcServer.h>
#include <hybase/hcutil/HCTokenManager.h>
#include <hybase/hcutil/HCUnixSocket.h>
#include <hybase/hlog.h>
#include <malloc.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <vector>

// What the objects weigh on this machine, and what a client costs a server that has served it.

#define SIZE(type) printf("%-28s %6zu\n", #type, sizeof(type))

constexpr int kClients = 50;
static std::atomic<size_t> g_stack_reserved;
static std::atomic<size_t> g_stack_touched;

// A method: looks how far the connection's thread has got into its stack.
static int32_t LookAtStack(_grpc_t*) {
    pthread_attr_t attributes;
    void* lowest = nullptr;
    size_t bytes = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return -1;
    pthread_attr_getstack(&attributes, &lowest, &bytes);
    pthread_attr_destroy(&attributes);
    const size_t page = sysconf(_SC_PAGESIZE);
    std::vector<unsigned char> pages(bytes / page + 1);
    if (mincore(lowest, bytes, pages.data()) != 0) return -1;
    size_t touched = 0;
    for (unsigned char in_memory : pages) touched += (in_memory & 1) * page;
    g_stack_reserved = bytes;
    g_stack_touched = touched;
    return 0;
}

static grpcMethod_t g_methods[] = {{"stack", LookAtStack, 0}, {nullptr, nullptr, 0}};

// Sends one packet and reads the answer, as docs/protocol.md shows them.
static bool Exchange(HCSocket& socket, char flag, const char* payload) {
    const auto length = static_cast<char>(strlen(payload));
    const char header[12] = {'\xA5', '\x5A', '\x5A', flag, 0, 0, 0, 0, 0, 0, 0, length};
    char answer[256];
    return socket.Send(header, sizeof header, 1000000) > 0 &&
           socket.Send(payload, length, 1000000) > 0 &&
           socket.RecvAll(answer, sizeof header, 5000000) > 0 &&
           socket.RecvAll(answer, answer[11] & 0xFF, 5000000) > 0;
}

static unsigned short PortOf(const HCSocket* listening) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(listening->m_nSocket, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

int main() {
    signal(SIGPIPE, SIG_IGN);
    hlogParam_t silent = {-1, -1, 0, "", 0, 0};
    hlog_set_param(&silent);

    SIZE(_grpc_t);
    SIZE(grpcAccount_t);
    SIZE(grpcPending_t);
    SIZE(HCThread);
    SIZE(HCSocket);
    SIZE(HCUnixSocket);
    SIZE(HCNetPackage);
    SIZE(_TCPServer);
    SIZE(HCTCPGrpcClient);
    SIZE(HCNetPackageService);
    SIZE(HCTCPGrpcServer);
    SIZE(HCLazyDelete);
    SIZE(HCPtrKeeper);
    SIZE(HCObjVector);
    SIZE(HCTokenManager);
    SIZE(HCLoginErrorMgr);
    SIZE(HCParseIni);
    SIZE(HCPainter);
    SIZE(HCanvas);

    HCTCPGrpcServer server;
    if (server.StartService(g_methods, 10240, "127.0.0.1", 0) != 0) return 1;
    const unsigned short port = PortOf(server.m_pListenSocket);
    HCSocket clients[kClients];
    const struct mallinfo2 before = mallinfo2();
    for (HCSocket& client : clients) {
        if (client.Connect("127.0.0.1", port, 5) != 0) return 1;
        if (!Exchange(client, '\xA6', "anybody")) return 1;
        // The second call finds the stack as the first one left it.
        for (int i = 0; i < 2; i++)
            if (!Exchange(client, '\xA5', R"({"method":"stack","sentcnt":1})")) return 1;
    }
    const struct mallinfo2 after = mallinfo2();
    printf("a client: stack reserved     %6zu\n", g_stack_reserved.load());
    printf("a client: stack touched      %6zu\n", g_stack_touched.load());
    printf("a client: heap               %6zu\n", (after.uordblks - before.uordblks) / kClients);
    printf("a client: heap in maps       %6zu\n", (after.hblkhd - before.hblkhd) / kClients);
}
