// One connection to a device, as hyrpc uses it.
#pragma once

#include <hybase/hcutil/HCTCPGrpcClient.h>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "ending.h"
#include "options.h"
#include "output.h"
#include "raw.h"

namespace hyrpc {

// What became of a call, apart from the response itself.
enum class Outcome {
    kAnswered,
    kConnectFailed,
    kLoginRefused,
    kNoLoginReply,
    kLost,
    kTimeout,
    kCannotWrite
};

Ending EndingOf(Outcome outcome, const Options& options, const Output& output);

struct Response {
    std::string text;  // formatted JSON
    std::string binary;
    int errorcode = 0;
    std::string message;
};

// The hooks run on the connection's thread; everything below m_mutex is guarded by it.
class Client : public HCTCPGrpcClient {
  public:
    // In watch mode notifications are written to `output`, one JSON line each. `recorder` sees what
    // travels; null: nobody does. All of them must outlive the client.
    Client(const Options& options, Output& output, Recorder* recorder);
    ~Client() override;

    // Begins the time-out anew.
    void ResetDeadline();

    // Connects and waits until the device let us in, at most options.timeout_seconds.
    Outcome Open();

    // Sends the call, with `binary` behind it, and waits for its response for what is left of the
    // time.
    Outcome Call(const std::string& binary, Response& response);

    // Waits until options.count notifications came, for ever when that is 0.
    Outcome Watch();

    void PkgReceived(unsigned int type, char* data, int len) override;
    void OnEvent(NPEvent_e ev) override;

  private:
    using Clock = std::chrono::steady_clock;

    static int32_t OnResponse(_grpc_t* context);
    void TakeResponse(_grpc_t* context);
    bool IsListening() const;
    void TakeNotification(const char* text);
    void EndRecording();
    void BuildRequest();

    const Options& m_options;
    Output& m_output;
    Recorder* m_recorder;
    grpcMethod_t m_methods[2];
    Clock::time_point m_deadline;
    const Clock::time_point m_created = Clock::now();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_ready = false;
    bool m_answered = false;
    bool m_failed = false;
    Outcome m_failure = Outcome::kTimeout;
    int m_notifications = 0;
    int m_awaited = 0;  // "sentcnt" of the call
    Response m_response;
};

}  // namespace hyrpc
