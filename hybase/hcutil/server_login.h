// The server half of the login: what a peer has to send before it gets a connection object.
#ifndef HYBASE_HCUTIL_SERVER_LOGIN_H
#define HYBASE_HCUTIL_SERVER_LOGIN_H

#include <hybase/hcutil/HCSocket.h>
#include <poll.h>
#include <stdint.h>

#include <memory>

constexpr int kLoginRequestRoom = 1024;
constexpr int kLoginReadUs = 5000000;

// A login request, as far as it has come.
class LoginRequest {
  public:
    enum class Progress { kMore, kComplete, kFailed };

    // Takes what has come, without waiting. kFailed: what came is no login request.
    Progress Read(HCSocket& sock);

    // The record, with a zero byte behind it; to be asked for when it is complete.
    const char* Record();
    int RecordBytes() const { return len_; }

  private:
    char bytes_[kLoginRequestRoom + 1] = {};
    int got_ = 0;
    int len_ = 0;
    bool in_payload_ = false;
};

// Peers that have connected and whose request has not come whole. For one thread at a time.
class LoginQueue {
  public:
    struct Visitor {
        std::unique_ptr<HCSocket> sock;
        int64_t since_ms;     // when it connected
        int64_t progress_ms;  // when its last bytes came
        LoginRequest request;
        LoginRequest::Progress progress = LoginRequest::Progress::kMore;
        std::unique_ptr<Visitor> next;
    };

    ~LoginQueue() { Clear(); }

    // `most`: peers at once, one more turns the one out that has waited longest; `login_sec`: for a
    // whole login, 0 for no bound. False when memory is short.
    bool SetBounds(int most, int login_sec);

    // Takes a peer in; without memory its connection is closed.
    void Add(std::unique_ptr<HCSocket> sock);

    // Waits, `wait_ms` at most, until something comes from a peer or `listener` is ready. Returns
    // whether the latter is. -1: there is no listener to wait for.
    bool Wait(int listener, int64_t wait_ms);

    // The first peer that has its request together, has failed, or has had its time; null when
    // there is none.
    std::unique_ptr<Visitor> TakeDone();

    void Clear();

  private:
    bool IsDone(const Visitor& visitor) const;
    int64_t DeadlineMs(const Visitor& visitor) const;
    std::unique_ptr<Visitor> Take(std::unique_ptr<Visitor>& link);

    std::unique_ptr<Visitor> first_;  // in the order in which they came
    int count_ = 0;
    int most_ = 0;
    int login_sec_ = 0;
    std::unique_ptr<pollfd[]> polled_;  // the listener, most_, and one more until TakeDone
};

#endif
