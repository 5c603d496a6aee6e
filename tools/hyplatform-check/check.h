// What the checks are written with. A check is a function without arguments, named check_ and the
// function's name, that runs in a process of its own: it ends by returning (pass) or by Fail.
#ifndef HYPLATFORM_CHECK_CHECK_H
#define HYPLATFORM_CHECK_CHECK_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <memory>
#include <vector>

#include "functions.h"

#define HYPLATFORM_DECLARE(name) void check_##name();
HYPLATFORM_WRITTEN(HYPLATFORM_DECLARE)
#undef HYPLATFORM_DECLARE

struct Settings {
    double stress_seconds = 1;  // of each check that stirs up threads
};
extern Settings settings;

// What a check tells the runner, in memory that both processes see.
struct Report {
    char step[96];  // what the check is doing, for a crash or a hang
    char reason[256];
};
extern Report* report;

// Ends the process: the function under test has failed for this reason. Any thread.
[[noreturn]] void Fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Fails unless the condition holds.
void Expect(bool holds, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Says what comes next, so that a crash or a hang can be told apart from others.
void Doing(const char* step);

// A thread of the system, not of the library under test.
class SystemThread {
  public:
    explicit SystemThread(std::function<void()> body);
    ~SystemThread();
    SystemThread(const SystemThread&) = delete;
    SystemThread& operator=(const SystemThread&) = delete;
    void Join();

  private:
    static void* Run(void* param);

    std::function<void()> m_body;
    pthread_t m_thread;
    bool m_joined = false;
};

// Runs body(0) to body(count - 1), each on a thread of its own, and waits for their end.
void RunTogether(int count, const std::function<void(int)>& body);

// Seconds of CLOCK_MONOTONIC.
double Seconds();
void SleepMs(int ms);

// Waits until the condition holds; false when it still does not after so many seconds.
bool WaitFor(double seconds, const std::function<bool()>& condition);

// A copy that ends where readable memory ends: reading a byte too many is a crash.
class GuardedCopy {
  public:
    GuardedCopy(const void* data, size_t length);
    ~GuardedCopy();
    GuardedCopy(const GuardedCopy&) = delete;
    GuardedCopy& operator=(const GuardedCopy&) = delete;
    unsigned char* data() const { return m_data; }
    const char* text() const { return reinterpret_cast<const char*>(m_data); }

  private:
    unsigned char* m_pages;
    size_t m_bytes;
    unsigned char* m_data;
};

// Fails when the process has become larger by more than so many KiB since the guard was made.
class GrowthLimit {
  public:
    GrowthLimit();
    void CheckAddresses(long kib, const char* after_what) const;
    // Not for threads: some emulators do not give back all that a thread takes.
    void CheckMemory(long kib, const char* after_what) const;

  private:
    long m_address_kib, m_resident_kib;
};

#endif
