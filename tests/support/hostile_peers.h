// Peers that behave badly on purpose, and a client that must not feel them.
#ifndef HYBASE_TESTS_HOSTILE_PEERS_H
#define HYBASE_TESTS_HOSTILE_PEERS_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <vector>

#include "support/loopback.h"

// As Data and Login, for payloads of any length. `announced`: the length in the header, -1 for the
// true one.
inline string LongPacket(const string& payload, int64_t announced = -1, char flag = '\xA5') {
    const uint32_t length = htonl(uint32_t(announced < 0 ? int64_t(payload.size()) : announced));
    string packet = "\xA5\x5A\x5A" + string(1, flag) + Bytes("\0\0\0\0");
    packet.append(reinterpret_cast<const char*>(&length), 4);
    return packet + payload;
}

struct Behaviour {
    const char* name;
    int peers;
    string script;                         // what a peer sends ...
    size_t bytes_a_step = 1 << 30;         // ... that much every 10 ms
    size_t begin_again_at = string::npos;  // where it goes on when it has sent all; npos: it waits
    bool reads = false;                    // or lets what it is sent pile up
};

// The peers of one behaviour, in one thread. A peer that is closed comes back.
class Swarm {
  public:
    Swarm(const Behaviour& behaviour, unsigned short port)
        : behaviour_(behaviour), port_(port), peers_(size_t(behaviour.peers)) {
        thread_ = std::thread([this] {
            for (; !stop_; usleep(10000))
                for (One& peer : peers_) Step(peer);
        });
    }
    ~Swarm() {
        stop_ = true;
        thread_.join();
        for (One& peer : peers_) Leave(peer);
    }
    int Closed() const { return closed_; }

  private:
    struct One {
        int fd = -1;
        size_t sent = 0;
    };
    void Step(One& peer) {
        if (peer.fd < 0) Come(peer);
        size_t allowed = behaviour_.bytes_a_step;
        for (ssize_t sent = 1; allowed > 0 && sent > 0; allowed -= size_t(sent)) {
            if (peer.sent == behaviour_.script.size()) {
                if (behaviour_.begin_again_at == string::npos) break;
                peer.sent = behaviour_.begin_again_at;
            }
            const size_t rest = std::min(allowed, behaviour_.script.size() - peer.sent);
            sent = send(peer.fd, behaviour_.script.data() + peer.sent, rest, MSG_NOSIGNAL);
            if (sent < 0 && errno != EAGAIN && errno != ENOTCONN) return Leave(peer);
            if (sent < 1) break;
            peer.sent += size_t(sent);
        }
        char heard[4096];
        const int flags = behaviour_.reads ? MSG_DONTWAIT : MSG_DONTWAIT | MSG_PEEK;
        const ssize_t got = recv(peer.fd, heard, sizeof heard, flags);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != ENOTCONN)) Leave(peer);
    }
    void Come(One& peer) {
        peer = {socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0), 0};
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port_);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connect(peer.fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    }
    void Leave(One& peer) {
        if (peer.fd < 0) return;
        close(peer.fd);
        peer.fd = -1;
        closed_++;
    }

    const Behaviour behaviour_;
    const unsigned short port_;
    std::vector<One> peers_;
    std::atomic<bool> stop_{false};
    std::atomic<int> closed_{0};
    std::thread thread_;
};

inline double MsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

// What a well-behaved client sees: how long its login takes, and each of its calls.
struct Seen {
    double login_ms = 0;
    std::vector<double> calls_ms;
    bool right = true;

    double Quantile(double part) {
        std::sort(calls_ms.begin(), calls_ms.end());
        return calls_ms.empty() ? 0 : calls_ms[size_t(part * double(calls_ms.size() - 1))];
    }
};

// Logs in, and calls for `seconds`; every answer must be `response`.
inline Seen CallFor(double seconds, unsigned short port, const string& request,
                    const string& response) {
    Seen seen;
    const auto start = std::chrono::steady_clock::now();
    Peer peer(port);
    peer.Send(Login("owner;908172"));
    seen.right = peer.Receive(14) == Login("OK");
    seen.login_ms = MsSince(start);
    while (seen.right && MsSince(start) < seconds * 1000) {
        const auto call = std::chrono::steady_clock::now();
        seen.right =
            peer.Send(Data(request)) && peer.Receive(int(response.size()) + 12) == Data(response);
        seen.calls_ms.push_back(MsSince(call));
        usleep(2000);
    }
    return seen;
}

// Memory of this process in MiB: a line of /proc/self/status, "VmRSS:" or "VmSize:".
inline double MemoryMiB(const char* line) {
    FILE* status = fopen("/proc/self/status", "r");
    char text[256];
    double kib = 0;
    while (status != nullptr && fgets(text, sizeof text, status) != nullptr)
        if (strncmp(text, line, strlen(line)) == 0) kib = atof(text + strlen(line));
    if (status != nullptr) fclose(status);
    return kib / 1024;
}

#endif
