// A packet of 122 bytes to the other side and one of 162 bytes back, headers included, over TCP on
// loopback. Everything runs on one core: waking another one would drown what is to be seen. A time
// is the median of the round trips of a batch.
#include <arpa/inet.h>
#include <hybase/hcutil/HCNetPackage.h>
#include <hybase/hcutil/HCNetPackageService.h>
#include <hybase/hlog.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include "compare.h"

namespace {

constexpr char kWhat[] = "packet round trip, 122 + 162 bytes, one core";
constexpr int kHeader = 12;
constexpr int kThere = 122;
constexpr int kBack = 162;
constexpr size_t kBatch = 2000;  // round trips
constexpr char kBytes[kBack] = {};

void StayOnOneCore() {
    cpu_set_t first;
    CPU_ZERO(&first);
    CPU_SET(0, &first);
    sched_setaffinity(0, sizeof first, &first);
}

// The lengths of the round trips of a batch.
class Stopwatch {
  public:
    void Begin() {
        trips_.clear();
        trips_.reserve(kBatch);
        last_ = Clock::now();
    }
    // True when that was the last round trip of the batch.
    bool Lap() {
        const Clock::time_point now = Clock::now();
        trips_.push_back(std::chrono::duration<double>(now - last_).count());
        last_ = now;
        return trips_.size() >= kBatch;
    }
    double Median() {
        const auto middle = trips_.begin() + trips_.size() / 2;
        std::nth_element(trips_.begin(), middle, trips_.end());
        return *middle;
    }

  private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point last_;
    std::vector<double> trips_;  // seconds
};

sockaddr_in Loopback(uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A listening socket on a port that was free, and its port.
int Listen(uint16_t* port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof address;
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener, raw, size) != 0 || listen(listener, 1) != 0) abort();
    getsockname(listener, raw, &size);
    *port = ntohs(address.sin_port);
    return listener;
}

uint16_t FreePort() {
    uint16_t port;
    close(Listen(&port));
    return port;
}

// ---- Ours: each side sends its next packet from the hook that got the last one.

class Echo : public HCNetPackage {
  public:
    ~Echo() override { StopThread(); }
    void PkgReceived(unsigned, char*, int) override { SendPkg(0, kBytes, kBack - kHeader, 0); }
};

class EchoService : public HCNetPackageService {
  public:
    ~EchoService() override { StopService(); }
    HCNetPackage* CreateServer() override { return new (std::nothrow) Echo; }
};

class Caller : public HCNetPackage {
  public:
    ~Caller() override { StopThread(); }

    // The median of one batch, seconds.
    double Batch() {
        std::unique_lock<std::mutex> lock(mutex_);
        done_ = false;
        watch_.Begin();
        Ask();
        ended_.wait(lock, [this] { return done_; });
        return watch_.Median();
    }
    bool Ready() const { return m_nConnectState == NPS_READY; }

    void PkgReceived(unsigned, char*, int len) override {
        right_ = right_ && len == kBack - kHeader;
        if (!watch_.Lap()) return Ask();
        std::lock_guard<std::mutex> lock(mutex_);
        done_ = true;
        ended_.notify_one();
    }
    bool right() const { return right_; }

  private:
    void Ask() { SendPkg(0, kBytes, kThere - kHeader, 0); }

    Stopwatch watch_;
    bool right_ = true;
    bool done_ = false;  // guarded by mutex_
    std::mutex mutex_;
    std::condition_variable ended_;
};

void Hybase(benchmark::State& state) {
    const uint16_t port = FreePort();
    EchoService service;
    if (service.Start(4096, "127.0.0.1", port) != 0) return state.SkipWithError("cannot listen");
    Caller caller;
    caller.StartAsClient(4096, "127.0.0.1", port, true);
    if (!caller.Ready()) return state.SkipWithError("cannot connect");
    for (auto _ : state) state.SetIterationTime(caller.Batch());
    Require(state, caller.right(), "wrong reply");
}

// ---- Bare sockets: one send and one recv a side.

bool Exchange(int fd, int send_bytes, int receive_bytes) {
    char reply[kBack];
    return send(fd, kBytes, send_bytes, MSG_NOSIGNAL) == send_bytes &&
           recv(fd, reply, receive_bytes, MSG_WAITALL) == receive_bytes;
}

void NoDelay(int fd) {
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void Serve(int listener) {
    const int fd = accept(listener, nullptr, nullptr);
    NoDelay(fd);
    char request[kThere];
    while (recv(fd, request, kThere, MSG_WAITALL) == kThere)
        if (send(fd, kBytes, kBack, MSG_NOSIGNAL) != kBack) break;
    close(fd);
}

void BareSockets(benchmark::State& state) {
    uint16_t port;
    const int listener = Listen(&port);
    std::thread server(Serve, listener);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(port);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) abort();
    NoDelay(fd);
    bool right = true;
    for (auto _ : state) {
        Stopwatch watch;
        watch.Begin();
        do {
            right = right && Exchange(fd, kThere, kBack);
        } while (!watch.Lap());
        state.SetIterationTime(watch.Median());
    }
    close(fd);
    server.join();
    close(listener);
    Require(state, right, "wrong reply");
}

template <class Body>
void Add(const char* who, Body body, double goal) {
    CompareMeasured(kWhat, who, body, goal)
        ->UseManualTime()
        ->Iterations(20)
        ->Unit(benchmark::kMicrosecond);
}

}  // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    StayOnOneCore();
    const hlogParam_t quiet = {-1, -1, 0, "", 0, 0};
    hlog_set_param(&quiet);
    Add(kOurs, Hybase, 0);
    Add("(limit) bare sockets", BareSockets, 1.35);
    return RunComparisons(argc, argv);
}
