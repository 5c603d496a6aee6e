#include <errno.h>
#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <vector>

#include "check.h"
#include "platform.h"

namespace {

arch_mutex_t NewMutex() {
    arch_mutex_t mutex = lib.arch_mutex_create();
    Expect(mutex != nullptr, "arch_mutex_create gave no mutex");
    return mutex;
}

void Lock(arch_mutex_t mutex) {
    const int result = lib.arch_mutex_lock(mutex);
    Expect(result == 0, "locking gave %d, not 0", result);
}

void Unlock(arch_mutex_t mutex) {
    const int result = lib.arch_mutex_unlock(mutex);
    Expect(result == 0, "unlocking gave %d, not 0", result);
}

// The counter is no atomic sum on purpose: an increment is lost when the next owner does not see
// what the former one has written.
void KeepsThreadsApart() {
    arch_mutex_t mutex = NewMutex();
    std::atomic<int> inside{0};
    std::atomic<unsigned> counter{0}, rounds{0};
    const double end = Seconds() + settings.stress_seconds;
    RunTogether(4, [&](int) {
        unsigned own = 0;
        while (Seconds() < end) {
            Lock(mutex);
            Expect(inside.fetch_add(1, std::memory_order_relaxed) == 0,
                   "two threads were inside at once");
            const unsigned seen = counter.load(std::memory_order_relaxed);
            if (own++ % 32 == 0) sched_yield();
            counter.store(seen + 1, std::memory_order_relaxed);
            inside.fetch_sub(1, std::memory_order_relaxed);
            Unlock(mutex);
        }
        rounds += own;
    });
    Expect(counter == rounds, "an owner did not see what the owner before had written");
}

double OwnCpuSeconds() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

// A mutex of hybase may be held as long as a request is served.
void WaitingTakesNoProcessor() {
    constexpr int kHeldMs = 200;
    arch_mutex_t mutex = NewMutex();
    std::atomic<bool> got{false};
    double used = 0;
    Lock(mutex);
    SystemThread waiter([&] {
        const double before = OwnCpuSeconds();
        Lock(mutex);
        got = true;
        used = OwnCpuSeconds() - before;
        Unlock(mutex);
    });
    SleepMs(kHeldMs);
    Expect(!got, "two threads were inside at once");
    Unlock(mutex);
    waiter.Join();
    Expect(used < kHeldMs / 2000.0, "waiting %d ms took %d ms of the processor", kHeldMs,
           static_cast<int>(used * 1000));
}

// Giving back a mutex with priority inheritance that is not held is refused where the kernel has
// them (CONFIG_FUTEX_PI), and unknown where it has not.
bool KernelHandsOver() {
    uint32_t word = 0;
    const long result =
        syscall(SYS_futex, &word, FUTEX_UNLOCK_PI | FUTEX_PRIVATE_FLAG, 0, nullptr, nullptr, 0);
    return result == 0 || errno != ENOSYS;
}

bool WaiterComesFirst() {
    arch_mutex_t mutex = NewMutex();
    std::atomic<bool> waits{false}, got{false};
    Lock(mutex);
    SystemThread waiter([&] {
        waits = true;
        Lock(mutex);
        got = true;
        Unlock(mutex);
    });
    WaitFor(1, [&] { return waits.load(); });
    SleepMs(10);
    Unlock(mutex);
    Lock(mutex);
    const bool first = got;
    Unlock(mutex);
    return first;
}

// Half of the rounds are forgiven: a busy machine may be late with the waiter.
void HandsOverToTheWaiter() {
    if (!KernelHandsOver()) return;
    constexpr int kRounds = 10;
    int handed_over = 0;
    for (int i = 0; i < kRounds; ++i) handed_over += WaiterComesFirst();
    Expect(handed_over >= kRounds / 2,
           "not given to the thread that waits: in %d of %d rounds the owner unlocked it and had "
           "it again first; use PTHREAD_PRIO_INHERIT",
           kRounds - handed_over, kRounds);
}

}  // namespace

void check_arch_mutex_create() {
    Doing("10000 mutexes, each locked while the one before is");
    std::vector<arch_mutex_t> mutexes(10000);
    for (arch_mutex_t& mutex : mutexes) mutex = NewMutex();
    Lock(mutexes.front());
    for (size_t i = 1; i < mutexes.size(); ++i) {
        Lock(mutexes[i]);
        Unlock(mutexes[i - 1]);
    }
    Unlock(mutexes.back());
    for (arch_mutex_t mutex : mutexes) lib.arch_mutex_delete(mutex);
}

void check_arch_mutex_lock() {
    Doing("a null handle");
    const int result = lib.arch_mutex_lock(nullptr);
    Expect(result == -1, "a null handle gave %d, not -1", result);
    Doing("four threads behind one mutex");
    KeepsThreadsApart();
    Doing("a thread that waits");
    WaitingTakesNoProcessor();
    HandsOverToTheWaiter();
}

void check_arch_mutex_unlock() {
    Doing("a null handle");
    const int result = lib.arch_mutex_unlock(nullptr);
    Expect(result == -1, "a null handle gave %d, not -1", result);

    Doing("one unlock with 16 threads waiting: each must get in");
    arch_mutex_t mutex = NewMutex();
    for (int round = 0; round < 10; ++round) {
        std::atomic<int> begun{0};
        Lock(mutex);
        SystemThread crew([&] {
            RunTogether(16, [&](int) {
                ++begun;
                Lock(mutex);
                Unlock(mutex);
            });
        });
        WaitFor(1, [&] { return begun == 16; });
        Unlock(mutex);
    }
}

void check_arch_mutex_delete() {
    Doing("a null handle");
    const int result = lib.arch_mutex_delete(nullptr);
    Expect(result == -1, "a null handle gave %d, not -1", result);

    Doing("300000 mutexes, one after the other");
    const auto run = [](int count) {
        for (int i = 0; i < count; ++i) {
            arch_mutex_t mutex = NewMutex();
            if (i % 2 == 0) {
                Lock(mutex);
                Unlock(mutex);
            }
            const int deleted = lib.arch_mutex_delete(mutex);
            Expect(deleted == 0, "deleting an unlocked mutex gave %d, not 0", deleted);
        }
    };
    run(50000);
    const GrowthLimit limit;
    run(300000);
    limit.CheckMemory(3 * 1024L, "300000 mutexes");  // a leak of 16 bytes a time is more
}
