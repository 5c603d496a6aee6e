// One connection to a device, as hyrpc uses it.
#pragma once

#include <stdio.h>

#include <hybase/hcutil/HCTCPGrpcClient.h>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "options.h"

namespace hyrpc {

// What became of a call, apart from the response itself.
enum class Outcome { kAnswered, kConnectFailed, kLoginRefused, kNoLoginReply, kLost, kTimeout };

struct Response {
    std::string text;  // formatted JSON
    std::string binary;
    int errorcode = 0;
    std::string message;
};

// The hooks run on the connection's thread; everything below m_mutex is guarded by it.
class Client : public HCTCPGrpcClient {
  public:
    // In watch mode notifications are written to `notifications`, one JSON line each. What the
    // options name must outlive the client.
    Client(const Options& options, FILE* notifications);
    ~Client() override;

    // Begins the time-out anew.
    void ResetDeadline();

    // Connects and waits until the device let us in, at most options.timeout_seconds.
    Outcome Open();

    // Sends the call, with `binary` behind it, and waits for its response for what is left of the
    // time.
    Outcome Call(const std::string& binary, Response& response);

    // Waits until options.count notifications were printed, for ever when that is 0.
    Outcome Watch();

    void PkgReceived(unsigned int type, char* data, int len) override;
    void OnEvent(NPEvent_e ev) override;

  private:
    using Clock = std::chrono::steady_clock;

    static int32_t OnResponse(_grpc_t* context);
    void TakeResponse(_grpc_t* context);
    void PrintNotification(const char* text);
    void BuildRequest();

    const Options& m_options;
    FILE* m_notifications;
    grpcMethod_t m_methods[2];
    Clock::time_point m_deadline;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_ready = false;
    bool m_answered = false;
    bool m_failed = false;
    Outcome m_failure = Outcome::kTimeout;
    int m_printed = 0;
    int m_awaited = 0;  // "sentcnt" of the call
    Response m_response;
};

}  // namespace hyrpc
