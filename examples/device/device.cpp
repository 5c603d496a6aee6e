#include "device.h"

#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <hybase/hcutil/HCPainter.h>
#include <hybase/hcutil/HCUnixSocket.h>
#include <hybase/hlog.h>
#include <hyplatform/arch.h>
#include <netinet/in.h>
#include <stdio.h>

#include "quiet_log.h"

namespace hydevice {
namespace {

constexpr int kBufferBytes = 64 * 1024;  // grows by itself for larger requests

// The engine leaves the place of the last binary data in the context, so a request without any
// would show its handler those of an earlier one. Every request that parses is answered, and every
// answer comes through here.
std::atomic<grpcSendFunc> g_send_response{nullptr};

int32_t SendAndForgetBinary(_grpc_t* context, const char* data, int32_t len) {
    context->recv_bin = nullptr;
    context->recv_bin_len = 0;
    return g_send_response.load()(context, data, len);
}

// The port that the system chose when none was given.
unsigned short BoundPort(const HCSocket& socket) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(socket.m_nSocket, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

}  // namespace

HCNetPackage* Server::CreateServer() {
    HCNetPackage* package = HCTCPGrpcServer::CreateServer();
    if (auto* connection = dynamic_cast<_TCPServer*>(package)) {
        g_send_response = connection->m_pGrpc->send;
        connection->m_pGrpc->send = SendAndForgetBinary;
        // An unknown name is checked against an empty password at the level of the last record,
        // which nobody has set: it must not be 0, the level that may do everything.
        if (m_nAccountCnt < GRPC_ACCOUNT_MAX)
            connection->m_pGrpc->s_accounts[GRPC_ACCOUNT_MAX - 1].level = INT32_MAX;
    }
    return package;
}

Device::Device(const Settings& settings)
    : m_settings(settings),
      m_tokens(false, settings.token_seconds, settings.max_tokens),
      m_lockout(settings.lock_seconds, settings.max_failures) {
    m_config.log_level = settings.log_level;
    m_server.m_pUserparam = this;
    for (grpcUser_t& account : m_settings.accounts) m_server.AddAccountItem(account);
}

bool Device::Start(std::string& error) {
    if (!m_settings.log_folder.empty()) ConfigureLog(m_config.log_level);
    if (!LoadChannels()) {
        error = m_settings.file + ": [channels] csv: cannot read " + m_settings.channels_csv;
        return false;
    }
    if (!LoadFonts()) {
        error = m_settings.file + ": [osd] font_cn, font_en: cannot read " + m_settings.font_cn +
                " and " + m_settings.font_en;
        return false;
    }
    const bool unix_domain = !m_settings.unix_name.empty();
    if (unix_domain) m_server.SetSocket(new HCUnixSocket);
    const std::string& host = unix_domain ? m_settings.unix_name : m_settings.ip;
    const auto port = static_cast<unsigned short>(m_settings.port);
    if (m_server.StartService(Methods(), kBufferBytes, host.c_str(), port) != 0) {
        error = "cannot listen at " + ListeningAt();
        return false;
    }
    if (!unix_domain) m_settings.port = BoundPort(*m_server.m_pListenSocket.load());
    return true;
}

std::string Device::ListeningAt() const {
    if (!m_settings.unix_name.empty()) return "unix:" + m_settings.unix_name;
    return m_settings.ip + ":" + std::to_string(m_settings.port);
}

void Device::Tick() {
    const int period = GetConfig().event_seconds;
    if (++m_ticks % period != 0) return;
    cJSON* json = cJSON_CreateObject();
    cJSON_AddNumberToObject(json, "number", ++m_events);
    cJSON_AddNumberToObject(json, "uptime_ms", static_cast<double>(arch_getSystemStartupMs()));
    m_server.Send2Client(nullptr, "event", json, nullptr, 0);
    cJSON_Delete(json);
}

// ---- Settings that change while the device runs ----

Config Device::GetConfig() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_config;
}

bool Device::SetConfig(const cJSON* json, std::string& error) {
    Config config = GetConfig();
    if (!ApplyConfig(json, config, error)) return false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_config = config;
    }
    if (!m_settings.log_folder.empty()) ConfigureLog(config.log_level);
    return true;
}

// Setting the logger up begins a new file, so it is done only when something changes.
void Device::ConfigureLog(int level) {
    if (m_log_level == level) return;
    m_log_level = level;
    hlogParam_t param = {level, HLOG_LEVEL_INFO, 1, "", m_settings.log_bytes, m_settings.log_files};
    snprintf(param.dir, sizeof param.dir, "%s", m_settings.log_folder.c_str());
    hlog_set_param(&param);
}

// ---- Users ----

const grpcUser_t* Device::FindAccount(const std::string& name) const {
    for (const grpcUser_t& account : m_settings.accounts)
        if (name == account.name) return &account;
    return nullptr;
}

bool Device::LogIn(const std::string& name, const std::string& password, std::string& token,
                   int& level, std::string& error) {
    int since = 0;
    if (m_lockout.LoginCheckIsLock(name.c_str(), &since) != 0) {
        error = "blocked for another " + std::to_string(m_settings.lock_seconds - since) + " s";
        return false;
    }
    const grpcUser_t* account = FindAccount(name);
    if (account == nullptr || password != account->passwd) {
        int failures = 0;
        // Without the password, so that trying the same wrong one again counts, too.
        m_lockout.LoginFail(name.c_str(), &failures);
        error = "wrong name or password";
        if (failures >= m_settings.max_failures)
            error += ", blocked for " + std::to_string(m_settings.lock_seconds) + " s";
        return false;
    }
    m_lockout.LoginSuccess(name.c_str());
    const LoginInfo_t owner{name};
    token = m_tokens.Create(&owner);
    level = account->level;
    if (token.empty()) error = "too many users are logged in";
    return !token.empty();
}

bool Device::LogOut(const std::string& token) { return m_tokens.Delete(token) == 0; }

bool Device::TokenOwner(const std::string& token, std::string& name) {
    LoginInfo_t owner;
    if (!m_tokens.IsValid(token, &owner)) return false;
    name = owner.username;
    return true;
}

// ---- Channels ----

bool Device::LoadChannels() {
    if (m_settings.channels_csv.empty()) return true;
    QuietLog quiet;
    return m_channels.Open(m_settings.channels_csv.c_str()) == 0;
}

bool Device::LoadFonts() {
    if (m_settings.font_cn.empty() && m_settings.font_en.empty()) return true;
    QuietLog quiet;
    return HCPainter::LoadFontFile(m_settings.font_cn, m_settings.font_en) == 0;
}

cJSON* Device::ListChannels() {
    cJSON* list = cJSON_CreateArray();
    if (m_settings.channels_csv.empty()) return list;
    std::string key;
    std::string value;
    for (int row = 2; row <= m_channels.GetRowCnt(); row++) {
        cJSON* channel = cJSON_CreateObject();
        for (int col = 1; col <= m_channels.GetColumnCnt(); col++)
            cJSON_AddStringToObject(channel, m_channels.GetValue(1, col, key).c_str(),
                                    m_channels.GetValue(row, col, value).c_str());
        cJSON_AddItemToArray(list, channel);
    }
    return list;
}

}  // namespace hydevice
