#include "check.h"

#include <sched.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <utility>

Settings settings;
Report* report;

#if defined(__SANITIZE_ADDRESS__)
// Freed memory that is kept back would look like memory that is never freed.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "quarantine_size_mb=1:thread_local_quarantine_size_kb=64";
}
#endif

namespace {

[[noreturn]] void FailWith(const char* format, va_list args) {
    static std::atomic<bool> failed{false};
    // The first reason counts; the process is about to end.
    if (failed.exchange(true)) {
        for (;;) pause();
    }
    vsnprintf(report->reason, sizeof report->reason, format, args);
    _exit(1);
}

}  // namespace

void Fail(const char* format, ...) {
    va_list args;
    va_start(args, format);
    FailWith(format, args);
}

void Expect(bool holds, const char* format, ...) {
    if (holds) return;
    va_list args;
    va_start(args, format);
    FailWith(format, args);
}

void Doing(const char* step) { snprintf(report->step, sizeof report->step, "%s", step); }

SystemThread::SystemThread(std::function<void()> body) : m_body(std::move(body)) {
    Expect(pthread_create(&m_thread, nullptr, Run, this) == 0,
           "not checked: the system gives no thread");
}

SystemThread::~SystemThread() { Join(); }

void SystemThread::Join() {
    if (m_joined) return;
    m_joined = true;
    pthread_join(m_thread, nullptr);
}

void* SystemThread::Run(void* param) {
    static_cast<SystemThread*>(param)->m_body();
    return nullptr;
}

void RunTogether(int count, const std::function<void(int)>& body) {
    std::vector<std::unique_ptr<SystemThread>> threads;
    threads.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
        threads.push_back(std::make_unique<SystemThread>([&body, i] { body(i); }));
}

double Seconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void SleepMs(int ms) {
    timespec rest = {ms / 1000, ms % 1000 * 1000000L};
    while (nanosleep(&rest, &rest) != 0) {
    }
}

bool WaitFor(double seconds, const std::function<bool()>& condition) {
    const double end = Seconds() + seconds;
    while (!condition()) {
        if (Seconds() > end) return false;
        SleepMs(1);
    }
    return true;
}

GuardedCopy::GuardedCopy(const void* data, size_t length) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t readable = (length + page - 1) / page * page;
    m_bytes = readable + page;
    void* pages =
        mmap(nullptr, m_bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    Expect(pages != MAP_FAILED, "not checked: no memory");
    m_pages = static_cast<unsigned char*>(pages);
    mprotect(m_pages + readable, page, PROT_NONE);
    m_data = m_pages + readable - length;
    if (length > 0) memcpy(m_data, data, length);
}

GuardedCopy::~GuardedCopy() { munmap(m_pages, m_bytes); }

namespace {

// What may be read, written or run: address space that is only reserved does not count.
long AddressKib() {
    FILE* file = fopen("/proc/self/maps", "re");
    if (file == nullptr) return 0;
    unsigned long long from = 0, to = 0, bytes = 0;
    char access[8];
    while (fscanf(file, "%llx-%llx %7s%*[^\n]", &from, &to, access) == 3) {
        if (strncmp(access, "---", 3) != 0) bytes += to - from;
    }
    fclose(file);
    return static_cast<long>(bytes / 1024);
}

long ResidentKib() {
    FILE* file = fopen("/proc/self/statm", "re");
    if (file == nullptr) return 0;
    long pages = 0;
    if (fscanf(file, "%*d %ld", &pages) != 1) pages = 0;
    fclose(file);
    return pages * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

GrowthLimit::GrowthLimit() : m_address_kib(AddressKib()), m_resident_kib(ResidentKib()) {}

void GrowthLimit::CheckAddresses(long kib, const char* after_what) const {
    const long growth = AddressKib() - m_address_kib;
    Expect(growth <= kib, "%ld KiB of address space are not given back after %s", growth,
           after_what);
}

void GrowthLimit::CheckMemory(long kib, const char* after_what) const {
    const long growth = ResidentKib() - m_resident_kib;
    Expect(growth <= kib, "%ld KiB of memory are not given back after %s", growth, after_what);
}
