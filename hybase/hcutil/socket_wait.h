// Waiting for a descriptor with the semantics of select(2), but for descriptors of any number.
#ifndef HYBASE_HCUTIL_SOCKET_WAIT_H
#define HYBASE_HCUTIL_SOCKET_WAIT_H

#include <errno.h>
#include <poll.h>
#include <stdint.h>
#include <time.h>

#include <atomic>

// A time-out as select(2) keeps it on Linux: all waits on one object share it.
class WaitTime {
  public:
    static WaitTime Seconds(int seconds) { return WaitTime(int64_t{seconds} * 1000000); }
    static WaitTime Microseconds(int us) { return WaitTime(us); }

    // Waits until `fd` is ready for one of `events` (POLLIN, POLLOUT). Returns what poll(2) found,
    // 0 for a time-out, or -1 with errno: EINVAL for a negative time-out, EBADF, EINTR.
    int For(int fd, short events) { return ForAtMost(left_us_, fd, events); }

    // The same, but a time-out also within 100 ms after `cut` was set.
    int ForUnlessCut(int fd, short events, const std::atomic<char>& cut) {
        constexpr int64_t kStepUs = 100000;
        for (;;) {
            const int found = ForAtMost(left_us_ < kStepUs ? left_us_ : kStepUs, fd, events);
            if (found != 0 || left_us_ == 0 || cut) return found;
        }
    }

    // To be called after a failed accept(2). While descriptors or memory are short the connection
    // stays in the backlog and the next wait would end at once: an accepting thread must not spin
    // on it.
    void PauseIfShort(int error) const {
        if (error != EMFILE && error != ENFILE && error != ENOBUFS && error != ENOMEM) return;
        constexpr int64_t kPauseUs = 100000;
        poll(nullptr, 0, static_cast<int>((left_us_ < kPauseUs ? left_us_ : kPauseUs) / 1000));
    }

    // What select(2) calls writable; a hang-up alone is not.
    static bool Writable(int found) { return (found & (POLLOUT | POLLERR)) != 0; }

  private:
    explicit WaitTime(int64_t us) : left_us_(us) {}

    int ForAtMost(int64_t us, int fd, short events) {
        const int64_t start = NowUs();
        const timespec limit = {static_cast<time_t>(us / 1000000),
                                static_cast<long>(us % 1000000 * 1000)};
        pollfd entry = {fd, events, 0};
        const int count = ppoll(&entry, 1, &limit, nullptr);
        const int64_t used = NowUs() - start;
        left_us_ = used < left_us_ ? left_us_ - used : 0;
        if (count < 1) return count;
        if (entry.revents & POLLNVAL) {
            errno = EBADF;
            return -1;
        }
        return entry.revents;
    }

    static int64_t NowUs() {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
    }

    int64_t left_us_;
};

#endif
