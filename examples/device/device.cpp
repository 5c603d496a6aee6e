#include "device.h"

#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <hybase/hcutil/HCUnixSocket.h>
#include <hybase/hlog.h>
#include <hyplatform/arch.h>
#include <netinet/in.h>
#include <stdio.h>

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
    }
    return package;
}

Device::Device() {
    m_server.m_pUserparam = this;
    AddAccount("admin", "admin-secret", 0);
    AddAccount("guest", "guest-secret", 2);
}

void Device::AddAccount(const char* name, const char* password, int level) {
    grpcUser_t user{};
    snprintf(user.name, sizeof user.name, "%s", name);
    snprintf(user.passwd, sizeof user.passwd, "%s", password);
    user.level = level;
    m_server.AddAccountItem(user);
}

bool Device::Start(const Options& options) {
    m_options = options;
    ConfigureLog(m_config);
    if (!options.unix_name.empty()) {
        m_server.SetSocket(new HCUnixSocket);
        return m_server.StartService(Methods(), kBufferBytes, options.unix_name.c_str(), 0) == 0;
    }
    if (m_server.StartService(Methods(), kBufferBytes, options.ip.c_str(), options.port) != 0)
        return false;
    m_options.port = BoundPort(*m_server.m_pListenSocket);
    return true;
}

std::string Device::ListeningAt() const {
    if (!m_options.unix_name.empty()) return "unix:" + m_options.unix_name;
    return m_options.ip + ":" + std::to_string(m_options.port);
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
    ConfigureLog(config);
    return true;
}

// Setting the logger up begins a new file, so it is done only when something changes.
void Device::ConfigureLog(const Config& config) {
    if (m_log_level == config.log_level) return;
    m_log_level = config.log_level;
    hlogParam_t param = {config.log_level,    HLOG_LEVEL_INFO,    1, "",
                         m_options.log_bytes, m_options.log_files};
    snprintf(param.dir, sizeof param.dir, "%s", m_options.log_folder.c_str());
    hlog_set_param(&param);
}

const grpcUser_t* Device::FindAccount(const std::string& name) const {
    for (int i = 0; i < m_server.m_nAccountCnt; i++)
        if (name == m_server.m_pAccounts[i].name) return &m_server.m_pAccounts[i];
    return nullptr;
}

}  // namespace hydevice
