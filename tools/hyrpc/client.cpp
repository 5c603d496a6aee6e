#include "client.h"

#include <cjson/cJSON.h>
#include <hybase/cjson_value.h>
#include <hybase/hcutil/HCUnixSocket.h>
#include <string.h>

namespace hyrpc {
namespace {

constexpr int kBufferBytes = 64 * 1024;  // grows by itself for larger packets
constexpr int kConnectAttempts = 3;      // a connect waits its time-out that often
constexpr auto kStatePoll = std::chrono::milliseconds(20);

HCSocket* NewSocket(const Address& address) {
    if (address.unix_domain) return new HCUnixSocket;
    return new HCSocket;
}

}  // namespace

Client::Client(const Options& options, FILE* notifications)
    : m_options(options),
      m_notifications(notifications),
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
    Start(m_methods, kBufferBytes, address.host.c_str(), address.port, false, NewSocket(address));

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
    m_changed.wait(
        lock, [this] { return m_failed || (m_options.count > 0 && m_printed >= m_options.count); });
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
    if (ev != NPE_LOGIN_OK) m_failed = true;
    m_changed.notify_all();
}

void Client::PkgReceived(unsigned int type, char* data, int len) {
    if (type == 0 && m_options.mode == Mode::kWatch) {
        PrintNotification(data);
        return;
    }
    // The engine keeps the place of the last binary data; only what this message brings counts
    // here.
    m_pGrpc->recv_bin = nullptr;
    m_pGrpc->recv_bin_len = 0;
    HCTCPGrpcClient::PkgReceived(type, data, len);
}

void Client::PrintNotification(const char* text) {
    cJSON* tree = cJSON_Parse(text);
    if (tree == nullptr) return;
    char* line = cJSON_PrintUnformatted(tree);
    cJSON_Delete(tree);
    if (line == nullptr) return;

    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_options.count == 0 || m_printed < m_options.count) {
        fprintf(m_notifications, "%s\n", line);
        fflush(m_notifications);
        m_printed++;
    }
    cJSON_free(line);
    m_changed.notify_all();
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
    m_changed.notify_all();
}

}  // namespace hyrpc
