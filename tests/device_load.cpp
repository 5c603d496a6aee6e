// Many clients at once against a running device: device_load CLIENTS CALLS MAX_MIB COMMAND...
// Starts COMMAND (hydevice --port 0, behind an emulator if need be), lets CLIENTS log in, has each
// make CALLS signed calls and checks every answer, the device's memory (MAX_MIB 0: not checked) and
// that its threads are gone when the clients have left. Prints what it saw; times are shown, never
// judged.

#include <cjson/cJSON.h>
#include <hybase/cjson_value.h>
#include <hybase/hcutil/HCTCPGrpcClient.h>
#include <hybase/hlog.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPatience = std::chrono::seconds(60);

class Caller : public HCTCPGrpcClient {
  public:
    explicit Caller(int number) : m_number(number) {}
    ~Caller() override { StopThread(); }

    void Connect(unsigned short port) {
        Start(s_handlers, 4096, "127.0.0.1", port, false);
        grpcAccount_t account{"guest", "guest-secret", 0};
        grpc_c_account_set(m_pGrpc, &account);
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, kPatience, [this] { return m_ready; });
    }

    // Calls `add`; true when the answer was right.
    bool CallAdd(int turn) {
        grpc_lock(m_pGrpc);
        m_pGrpc->json = cJSON_CreateObject();
        cJSON_AddStringToObject(m_pGrpc->json, "method", "add");
        cJSON* param = cJSON_AddObjectToObject(m_pGrpc->json, "param");
        cJSON_AddNumberToObject(param, "a", m_number);
        cJSON_AddNumberToObject(param, "b", turn * 1000);
        m_answered = false;
        grpc_c_send(m_pGrpc);
        grpc_end(m_pGrpc);
        grpc_unlock(m_pGrpc);
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, kPatience, [this] { return m_answered; });
        return m_answered && m_sum == m_number + turn * 1000;
    }

    void OnEvent(NPEvent_e event) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_ready = event == NPE_LOGIN_OK;
        m_changed.notify_all();
    }

  private:
    static int32_t OnSum(_grpc_t* context) {
        auto* self = static_cast<Caller*>(GetThis(context));
        std::lock_guard<std::mutex> lock(self->m_mutex);
        self->m_sum = context->errcode == 0 ? cJSON_GetObjectValueInt(context->json, "sum") : -1;
        self->m_answered = true;
        self->m_changed.notify_all();
        return 0;
    }
    static int32_t OnEventMessage(_grpc_t*) { return 0; }
    static grpcMethod_t s_handlers[3];

    const int m_number;
    std::mutex m_mutex;  // guards what follows
    std::condition_variable m_changed;
    bool m_ready = false;
    bool m_answered = false;
    int m_sum = 0;
};

grpcMethod_t Caller::s_handlers[3] = {
    {"add", OnSum, 0}, {"event", OnEventMessage, 0}, {nullptr, nullptr, 0}};

struct DeviceProcess {
    pid_t pid = -1;
    unsigned short port = 0;
};

DeviceProcess StartDevice(char** command) {
    int out[2];
    if (pipe(out) != 0) abort();
    DeviceProcess device;
    device.pid = fork();
    if (device.pid == 0) {
        dup2(out[1], STDOUT_FILENO);
        execvp(command[0], command);
        _exit(127);
    }
    close(out[1]);
    FILE* lines = fdopen(out[0], "r");
    char line[4096];
    const char* colon = nullptr;
    while (device.port == 0 && fgets(line, sizeof line, lines) != nullptr)
        if (strncmp(line, "listening at ", 13) == 0 && (colon = strrchr(line, ':')) != nullptr)
            device.port = static_cast<unsigned short>(atoi(colon + 1));
    // The device prints on; somebody must read it.
    std::thread([lines] {
        char rest[4096];
        while (fread(rest, 1, sizeof rest, lines) > 0) continue;
        fclose(lines);
    }).detach();
    return device;
}

// A number of /proc/PID/status, -1 when it is not there.
long Status(pid_t pid, const char* key) {
    std::string path = "/proc/" + std::to_string(pid) + "/status";
    std::unique_ptr<FILE, decltype(&fclose)> file(fopen(path.c_str(), "r"), fclose);
    char line[256];
    while (file && fgets(line, sizeof line, file.get()) != nullptr)
        if (strncmp(line, key, strlen(key)) == 0) return atol(line + strlen(key));
    return -1;
}

bool ThreadsComeDownTo(pid_t pid, long threads) {
    for (int i = 0; i < 100 && Status(pid, "Threads:") > threads; i++) usleep(100000);
    return Status(pid, "Threads:") <= threads;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) return 2;
    const int clients = atoi(argv[1]), calls = atoi(argv[2]);
    const long max_mib = atol(argv[3]);
    signal(SIGPIPE, SIG_IGN);
    hlog_regirst([](const char*, int32_t) {});
    DeviceProcess device = StartDevice(argv + 4);
    if (device.port == 0) return puts("device_load: the device did not start"), 1;
    const long idle_threads = Status(device.pid, "Threads:");

    std::vector<std::unique_ptr<Caller>> callers;
    for (int i = 0; i < clients; i++) {
        callers.push_back(std::make_unique<Caller>(i));
        // One after the other: a service lets five wait at its door, more would try again for
        // seconds.
        callers.back()->Connect(device.port);
    }

    std::vector<std::thread> threads;
    std::vector<std::vector<double>> times(callers.size());
    std::atomic<int> wrong{0};
    for (size_t i = 0; i < callers.size(); i++)
        threads.emplace_back([&, i] {
            for (int turn = 0; turn < calls; turn++) {
                auto began = Clock::now();
                if (!callers[i]->CallAdd(turn)) wrong++;
                times[i].push_back(
                    std::chrono::duration<double, std::milli>(Clock::now() - began).count());
            }
        });
    for (auto& thread : threads) thread.join();
    const long busy_threads = Status(device.pid, "Threads:");
    const long peak_kib = Status(device.pid, "VmHWM:");
    // Each takes up to half a second to stop.
    threads.clear();
    for (auto& caller : callers) threads.emplace_back([&caller] { caller.reset(); });
    for (auto& thread : threads) thread.join();
    const bool threads_gone = ThreadsComeDownTo(device.pid, idle_threads);

    std::vector<double> all;
    for (const auto& one : times) all.insert(all.end(), one.begin(), one.end());
    std::sort(all.begin(), all.end());
    printf("clients %d, calls %zu, wrong %d\n", clients, all.size(), wrong.load());
    printf("call: median %.2f ms, p99 %.2f ms, slowest %.2f ms\n", all[all.size() / 2],
           all[all.size() * 99 / 100], all.back());
    printf("device: peak memory %.1f MiB, threads %ld idle, %ld busy, %ld afterwards\n",
           peak_kib / 1024.0, idle_threads, busy_threads, Status(device.pid, "Threads:"));

    kill(device.pid, SIGTERM);
    int status = -1;
    waitpid(device.pid, &status, 0);
    const bool memory_ok = max_mib == 0 || peak_kib <= max_mib * 1024;
    if (wrong == 0 && memory_ok && threads_gone && status == 0) return 0;
    printf("device_load: not as expected (device's wait status %d)\n", status);
    return 1;
}
