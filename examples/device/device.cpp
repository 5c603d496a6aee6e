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

// The port that the system chose when none was given.
unsigned short BoundPort(const HCSocket& socket) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(socket.m_nSocket, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

}  // namespace

Device::Device(const Settings& settings)
    : m_settings(settings), m_guard(m_settings), m_sessions(m_settings), m_server(m_guard) {
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
    m_server.SetLimits(m_settings.limits);
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

// Takes the same time wherever the two differ, so that nobody finds a password letter by letter.
static bool SamePassword(const std::string& given, const char (&expected)[128]) {
    char padded[sizeof expected] = {};
    given.copy(padded, sizeof padded - 1);
    volatile bool different = given.size() >= sizeof padded;
    for (size_t i = 0; i < sizeof padded; i++) different = different | (padded[i] != expected[i]);
    return !different;
}

bool Device::LogIn(const std::string& peer, const std::string& name, const std::string& password,
                   std::string& token, int& level, std::string& error) {
    const grpcUser_t* account = m_guard.FindAccount(name);
    const bool right = account != nullptr && SamePassword(password, account->passwd);
    error = m_guard.Judge(peer, name, right);
    if (!error.empty()) return false;
    if (!right) {
        error = "wrong name or password";
        if (!m_guard.Blocked(peer, name).empty())
            error += ", blocked for " + std::to_string(m_settings.lock_seconds) + " s";
        return false;
    }
    token = m_sessions.Create(name);
    level = account->level;
    if (token.empty()) error = "there is no token to be had";
    return !token.empty();
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
