#include "client.h"

#include <cjson/cJSON.h>
#include <hybase/cjson_value.h>
#include <hybase/hcutil/HCUnixSocket.h>
#include <string.h>

#include "json_output.h"

namespace hyrpc {
namespace {

constexpr int kBufferBytes = 64 * 1024;  // grows by itself for larger packets
constexpr int kConnectAttempts = 3;      // a connect waits its time-out that often
constexpr auto kStatePoll = std::chrono::milliseconds(20);

constexpr size_t kShortestRecord = 11;  // the reply to a shorter one is not understood

HCSocket* NewSocket(const Address& address, Recorder* recorder) {
    if (recorder != nullptr) return NewRecordingSocket(address.unix_domain, *recorder).release();
    if (address.unix_domain) return new HCUnixSocket;
    return new HCSocket;
}

bool IsRecordTooShort(const Options& options) {
    return !options.login_record.empty() && options.login_record.size() < kShortestRecord;
}

// What --watch prints of a notification. Empty when it is no JSON.
std::string NotificationLine(const char* text, bool wrapped, double time_s) {
    Json tree(cJSON_Parse(text), cJSON_Delete);
    if (tree == nullptr) return "";
    if (!wrapped) return JsonLine(tree.get());
    Json object = NewObject();
    AddRounded(object.get(), "time_s", time_s);
    cJSON_AddItemToObject(object.get(), "notification", tree.release());
    return JsonLine(object.get());
}

}  // namespace

Ending EndingOf(Outcome outcome, const Options& options, const Output& output) {
    const std::string& address = options.address.text;
    switch (outcome) {
        case Outcome::kAnswered:
            return {};
        case Outcome::kConnectFailed:
            return {kNoAnswer, "connect_failed", "cannot connect to " + address};
        case Outcome::kLoginRefused:
            return {kNoAnswer, "login_refused", address + " refused the login record"};
        case Outcome::kNoLoginReply:
            if (IsRecordTooShort(options))
                return {kNoAnswer, "no_login_reply",
                        "cannot log in with a record of fewer than 11 characters"};
            return {kNoAnswer, "no_login_reply",
                    address + " did not answer the login as a device does"};
        case Outcome::kLost:
            return {kNoAnswer, "lost",
                    "connection to " + address + " lost" +
                        (options.method.empty() ? "" : " before the answer")};
        case Outcome::kCannotWrite:
            return FileError(std::string("cannot write the result: ") + strerror(output.Error()));
        default:
            return {kNoAnswer, "timeout",
                    "no answer from " + address + " within " +
                        std::to_string(options.timeout_seconds) + " s"};
    }
}

Client::Client(const Options& options, Output& output, Recorder* recorder)
    : m_options(options),
      m_output(output),
      m_recorder(recorder),
      m_methods{{options.method.c_str(), OnResponse, 0}, {nullptr, nullptr, 0}} {
    ResetDeadline();
    m_nConnectTimeout = std::max(1, options.timeout_seconds / kConnectAttempts);
    const std::string& record = options.login_record;
    if (!record.empty()) SetPasswdInfo(record.data(), static_cast<int>(record.size()));
}

Client::~Client() { StopThread(); }

void Client::ResetDeadline() {
    m_deadline = Clock::now() + std::chrono::seconds(m_options.timeout_seconds);
}

Outcome Client::Open() {
    const Address& address = m_options.address;
    Start(m_methods, kBufferBytes, address.host.c_str(), address.port, false,
          NewSocket(address, m_recorder));

    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_ready && !m_failed) {
        if (Clock::now() >= m_deadline) return Outcome::kTimeout;
        m_changed.wait_for(lock, kStatePoll);
        // A reply that is no login reply raises no event, it only ends the attempt.
        if (!m_ready && !m_failed && m_nConnectState == NPS_DISCONNECTED)
            return Outcome::kNoLoginReply;
    }
    return m_ready ? Outcome::kAnswered : m_failure;
}

void Client::BuildRequest() {
    m_pGrpc->json = cJSON_CreateObject();
    cJSON_AddStringToObject(m_pGrpc->json, "method", m_options.method.c_str());
    if (!m_options.param.empty())
        cJSON_AddItemToObject(m_pGrpc->json, "param", cJSON_Parse(m_options.param.c_str()));
    if (m_options.user.empty()) return;

    grpcAccount_t account{};
    memcpy(account.name, m_options.user.c_str(), m_options.user.size());
    memcpy(account.passwd, m_options.password.c_str(), m_options.password.size());
    grpc_c_account_set(m_pGrpc, &account);
}

Outcome Client::Call(const std::string& binary, Response& response) {
    grpc_lock(m_pGrpc);
    BuildRequest();
    if (!binary.empty())
        grpc_set_send_bindata(m_pGrpc, binary.data(), static_cast<int32_t>(binary.size()));
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_awaited = m_pGrpc->sentcnt + 1;
        m_answered = false;
    }
    bool sent = grpc_c_send(m_pGrpc) >= 0;
    grpc_end(m_pGrpc);
    grpc_unlock(m_pGrpc);
    if (!sent) return Outcome::kLost;

    std::unique_lock<std::mutex> lock(m_mutex);
    bool over = m_changed.wait_until(lock, m_deadline, [this] { return m_answered || m_failed; });
    if (!over) return Outcome::kTimeout;
    if (!m_answered) return m_failure;
    response = std::move(m_response);
    return Outcome::kAnswered;
}

Outcome Client::Watch() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] {
        return m_failed || (m_options.count > 0 && m_notifications >= m_options.count);
    });
    return m_failed ? m_failure : Outcome::kAnswered;
}

void Client::OnEvent(NPEvent_e ev) {
    std::lock_guard<std::mutex> lock(m_mutex);
    switch (ev) {
        case NPE_LOGIN_OK:
            m_ready = true;
            break;
        case NPE_CONNECT_FAILED:
            m_failure = Outcome::kConnectFailed;
            break;
        case NPE_LOGIN_FAILED:
            m_failure = Outcome::kLoginRefused;
            break;
        default:
            m_failure = Outcome::kLost;
            break;
    }
    if (ev != NPE_LOGIN_OK) {
        m_failed = true;
        EndRecording();  // before the connection thread connects anew
    }
    m_changed.notify_all();
}

bool Client::IsListening() const {
    return m_options.mode == Mode::kWatch ||
           (m_options.mode == Mode::kRaw && m_options.method.empty());
}

void Client::PkgReceived(unsigned int type, char* data, int len) {
    if (IsListening()) {
        if (type == 0 || m_recorder != nullptr) TakeNotification(data);
        return;
    }
    // The engine keeps the place of the last binary data; only what this message brings counts
    // here.
    m_pGrpc->recv_bin = nullptr;
    m_pGrpc->recv_bin_len = 0;
    HCTCPGrpcClient::PkgReceived(type, data, len);
}

// With a recorder every data packet counts: it has been shown already, whatever it holds.
void Client::TakeNotification(const char* text) {
    const std::chrono::duration<double> since = Clock::now() - m_created;
    std::string line;
    if (m_recorder == nullptr) {
        line = NotificationLine(text, m_options.json, since.count());
        if (line.empty()) return;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_failed || (m_options.count > 0 && m_notifications >= m_options.count)) return;
    m_output.Write(line);
    m_notifications++;
    if (m_notifications == m_options.count) EndRecording();
    if (m_output.Error() != 0) {
        m_failed = true;
        m_failure = Outcome::kCannotWrite;
    }
    m_changed.notify_all();
}

void Client::EndRecording() {
    if (m_recorder != nullptr) m_recorder->Finish();
}

int32_t Client::OnResponse(_grpc_t* context) {
    static_cast<Client*>(GetThis(context))->TakeResponse(context);
    return 0;
}

void Client::TakeResponse(_grpc_t* context) {
    std::lock_guard<std::mutex> lock(m_mutex);
    // A notification may bear the same method name as the call.
    if (m_answered || cJSON_GetObjectValueInt(context->json, "sentcnt") != m_awaited) return;

    char* text = cJSON_Print(context->json);
    m_response.text = text != nullptr ? text : "";
    cJSON_free(text);
    m_response.errorcode = context->errcode;
    m_response.message = context->errmsg;
    int32_t length = 0;
    const char* binary = static_cast<const char*>(grpc_get_recv_bindata(context, &length));
    m_response.binary.clear();
    if (binary != nullptr) m_response.binary.assign(binary, static_cast<size_t>(length));
    m_answered = true;
    EndRecording();
    m_changed.notify_all();
}

}  // namespace hyrpc
