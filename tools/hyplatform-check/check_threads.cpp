#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "check.h"
#include "platform.h"

namespace {

using Entry = void* (*)(void*);
using Create = arch_thread_t (*)(const char* name, Entry entry, void* arg);

constexpr size_t kNameCapacity = 16;                // of the kernel, with the terminator
constexpr size_t kStackNeededBytes = 160 * 1024;    // of the deepest JSON text
constexpr size_t kStackUsedBytes = 128 * 1024;      // the system takes its part of the rest
constexpr size_t kStackLimitBytes = 2048UL * 1024;  // 300 of them: a fifth of a 32-bit process
constexpr int kManyThreads = 300;

struct NameCase {
    const char* what;
    const char* given;
    const char* shown;
};

std::string OwnName() {
    char name[kNameCapacity] = {};
    prctl(PR_GET_NAME, name);
    return name;
}

// What a new thread found.
struct Seen {
    const char* expected_name = "";
    long creator = 0;
    std::string name;
    bool on_new_thread = false;
    sigset_t mask;
    size_t stack_bytes = 0;
    std::atomic<bool> done{false};
};

size_t OwnStackBytes() {
    pthread_attr_t attr;
    size_t bytes = 0;
    if (pthread_getattr_np(pthread_self(), &attr) != 0) return 0;
    pthread_attr_getstacksize(&attr, &bytes);
    pthread_attr_destroy(&attr);
    return bytes;
}

__attribute__((noinline)) void UseStack() {
    volatile char used[kStackUsedBytes];
    for (size_t i = sizeof used; i > 0; i -= 1024) used[i - 1] = 1;
}

// Its creator may be the one who names it, a moment later.
void* LookAround(void* param) {
    auto* seen = static_cast<Seen*>(param);
    WaitFor(0.2, [&] { return OwnName() == seen->expected_name; });
    seen->name = OwnName();
    seen->on_new_thread = syscall(SYS_gettid) != seen->creator;
    pthread_sigmask(SIG_SETMASK, nullptr, &seen->mask);
    seen->stack_bytes = OwnStackBytes();
    UseStack();
    seen->done = true;
    return seen;
}

void Start(Create create, bool joined, const char* name, Seen* seen) {
    seen->creator = syscall(SYS_gettid);
    arch_thread_t thread = create(name, LookAround, seen);
    Expect(thread != nullptr, "no thread was given");
    const bool done = WaitFor(4, [&] { return seen->done.load(); });
    Expect(done, "entry(arg) was not run within 4 s");
    Expect(seen->on_new_thread, "entry was run on the thread of the caller");
    if (joined) lib.arch_thread_join(thread, nullptr);
}

template <class Check>
void ForEachName(Check check) {
    const std::string letters(32, 'n');
    const GuardedCopy block(letters.data(), letters.size());
    const NameCase cases[] = {
        {"a name", "NetPackage", "NetPackage"},
        {"a null name", nullptr, ""},
        {"an empty name", "", ""},
        {"a name of 15 characters", "fifteen letters", "fifteen letters"},
        {"a longer name", "a name of 24 characters!", "a name of 24 ch"},
        {"a name of 32 bytes without a terminator", block.text(), "nnnnnnnnnnnnnnn"}};
    for (const NameCase& name : cases) {
        Doing(name.what);
        check(name);
    }
}

void ExpectName(const NameCase& name, const std::string& shown) {
    Expect(shown == name.shown, "%s is shown as \"%s\", not \"%s\"", name.what, shown.c_str(),
           name.shown);
}

void HasItsName(Create create, bool joined) {
    ForEachName([&](const NameCase& name) {
        Seen seen;
        seen.expected_name = name.shown;
        Start(create, joined, name.given, &seen);
        ExpectName(name, seen.name);
    });
}

void HasTheMaskOfItsCreator(Create create, bool joined) {
    Doing("the signal mask");
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &mask, nullptr);
    Seen seen;
    Start(create, joined, "", &seen);
    pthread_sigmask(SIG_UNBLOCK, &mask, nullptr);
    Expect(sigismember(&seen.mask, SIGUSR1) == 1,
           "a signal that its creator blocks is not blocked in the thread");
    Expect(sigismember(&seen.mask, SIGUSR2) == 0,
           "a signal that its creator does not block is blocked in the thread");
}

void HasABoundedStack(Create create, bool joined) {
    Doing("128 KiB of stack");
    Seen seen;
    Start(create, joined, "", &seen);
    Expect(seen.stack_bytes >= kStackNeededBytes,
           "a stack of %zu KiB: the deepest JSON text takes 160", seen.stack_bytes / 1024);
    Expect(seen.stack_bytes <= kStackLimitBytes,
           "a stack of %zu KiB: hundreds of them do not fit into a 32-bit process",
           seen.stack_bytes / 1024);
}

// Threads that wait for the gate to be opened.
struct Gate {
    pthread_mutex_t closed = PTHREAD_MUTEX_INITIALIZER;
    std::atomic<int> begun{0}, ended{0};
};

void* WaitAtGate(void* param) {
    auto* gate = static_cast<Gate*>(param);
    ++gate->begun;
    pthread_mutex_lock(&gate->closed);
    pthread_mutex_unlock(&gate->closed);
    ++gate->ended;
    return nullptr;
}

std::vector<arch_thread_t> StartAtGate(Gate* gate, Create create, int count) {
    std::vector<arch_thread_t> threads;
    while (static_cast<int>(threads.size()) < count) {
        arch_thread_t thread = create("gate", WaitAtGate, gate);
        if (thread == nullptr) break;
        threads.push_back(thread);
    }
    return threads;
}

void HundredsAtOnce(Create create, bool joined) {
    Doing("300 threads at once");
    Gate gate;
    pthread_mutex_lock(&gate.closed);
    const auto threads = StartAtGate(&gate, create, kManyThreads);
    Expect(threads.size() == kManyThreads, "of 300 threads at once only %zu were given",
           threads.size());
    pthread_mutex_unlock(&gate.closed);
    if (joined) {
        for (arch_thread_t thread : threads) lib.arch_thread_join(thread, nullptr);
    }
    Expect(WaitFor(4, [&] { return gate.ended == kManyThreads; }), "of 300 threads only %d ran",
           gate.ended.load());
}

// The address space is all but full, so that no stack can be had. Where the limit has no effect, as
// under an emulator, there is nothing to see.
void NoThreadWithoutMemory(Create create, bool joined) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    (void)create, (void)joined;  // the sanitizer ends a process that has no memory left
#else
    Doing("threads without memory for their stacks");
    constexpr rlim_t kRoomBytes = 8 * 1024 * 1024;
    long pages = 0;
    FILE* file = fopen("/proc/self/statm", "re");
    const bool known = file != nullptr && fscanf(file, "%ld", &pages) == 1;
    if (file != nullptr) fclose(file);
    if (!known) return;
    rlimit before;
    getrlimit(RLIMIT_AS, &before);
    rlimit tight = before;
    tight.rlim_cur =
        static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + kRoomBytes;
    setrlimit(RLIMIT_AS, &tight);
    Gate gate;
    pthread_mutex_lock(&gate.closed);
    const auto threads = StartAtGate(&gate, create, kManyThreads);
    pthread_mutex_unlock(&gate.closed);
    if (joined) {
        for (arch_thread_t thread : threads) lib.arch_thread_join(thread, nullptr);
    }
    const auto started = static_cast<int>(threads.size());
    WaitFor(1, [&] { return gate.ended >= started; });
    setrlimit(RLIMIT_AS, &before);
    Expect(gate.begun == started, "%d threads were given, and entry was run %d times", started,
           gate.begun.load());
#endif
}

void* CountEnd(void* ended) {
    ++*static_cast<std::atomic<int>*>(ended);
    return nullptr;
}

// Starts and ends threads for the time of the stress, at least 1000 of them.
template <class StartOne>
void ManyInTurn(const char* what, StartOne start_one) {
    std::atomic<int> ended{0};
    int started = 0;
    const auto run = [&](int count, double seconds) {
        const double end = Seconds() + seconds;
        for (int i = 0; i < count || Seconds() < end; ++i) {
            while (started - ended > 32) sched_yield();
            Expect(start_one(&ended), "after %d threads that have ended no more were given",
                   started);
            ++started;
        }
        WaitFor(4, [&] { return ended == started; });
        SleepMs(20);  // the last ones are on their way out
    };
    Doing(what);
    run(100, 0);  // the system keeps some stacks for further threads
    const GrowthLimit limit;
    run(1000, settings.stress_seconds);
    // As many stacks that are not given back are hundreds of MiB.
    limit.CheckAddresses(48 * 1024L, what);
}

void CheckCreate(Create create, bool joined) {
    Doing("a null entry");
    Expect(create("x", nullptr, nullptr) == nullptr, "a null entry gave a thread");
    HasItsName(create, joined);
    HasTheMaskOfItsCreator(create, joined);
    HasABoundedStack(create, joined);
    HundredsAtOnce(create, joined);
    NoThreadWithoutMemory(create, joined);
}

void* Return(void* value) { return value; }

void* ReturnLate(void* flag) {
    SleepMs(50);
    static_cast<std::atomic<bool>*>(flag)->store(true);
    return nullptr;
}

}  // namespace

void check_arch_thread_create() { CheckCreate(lib.arch_thread_create, true); }

void check_arch_thread_create_detached() {
    CheckCreate(lib.arch_thread_create_detached, false);
    ManyInTurn("thousands of detached threads", [](std::atomic<int>* ended) {
        return lib.arch_thread_create_detached("brief", CountEnd, ended) != nullptr;
    });
}

void check_arch_thread_join() {
    Doing("a null handle");
    void* value = nullptr;
    int result = lib.arch_thread_join(nullptr, &value);
    Expect(result == -1, "a null handle gave %d, not -1", result);

    Doing("exit values");
    int target = 0;
    for (void* wanted : {static_cast<void*>(&target), static_cast<void*>(nullptr)}) {
        value = &value;
        arch_thread_t thread = lib.arch_thread_create("", Return, wanted);
        Expect(thread != nullptr, "arch_thread_create gave no thread");
        result = lib.arch_thread_join(thread, &value);
        Expect(result == 0, "joining gave %d, not 0", result);
        Expect(value == wanted, "the exit value %p came as %p", wanted, value);
    }

    Doing("a thread that takes its time");
    std::atomic<bool> ended{false};
    result = lib.arch_thread_join(lib.arch_thread_create("", ReturnLate, &ended), nullptr);
    Expect(result == 0, "joining without a place for the exit value gave %d, not 0", result);
    Expect(ended, "it came back before the thread had ended");

    ManyInTurn("thousands of joined threads", [](std::atomic<int>* count) {
        arch_thread_t thread = lib.arch_thread_create("brief", CountEnd, count);
        return thread != nullptr && lib.arch_thread_join(thread, nullptr) == 0;
    });
}

void check_arch_thread_setname() {
    const std::string before = OwnName();
    SystemThread other([] {
        Doing("a null name");
        const int result = lib.arch_thread_setname(nullptr);
        Expect(result == -1, "a null name gave %d, not -1", result);
        ForEachName([](const NameCase& name) {
            if (name.given == nullptr) return;
            const int named = lib.arch_thread_setname(name.given);
            Expect(named == 0, "%s gave %d, not 0", name.what, named);
            ExpectName(name, OwnName());
        });
    });
    other.Join();
    Expect(OwnName() == before, "another thread was named, not the caller");
}
