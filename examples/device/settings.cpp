#include "settings.h"

#include <hybase/hcutil/HCParseIni.h>
#include <stdio.h>
#include <stdlib.h>

#include "quiet_log.h"

namespace hydevice {
namespace {

// The settings of one file. The first thing wrong is kept, everything after it is not looked at.
class Reader {
  public:
    Reader(const std::string& path, std::string& error) : m_path(path), m_error(error) {}

    bool Load() {
        if (m_ini.LoadFile(m_path) != 0) m_error = m_path + ": cannot be read";
        return m_error.empty();
    }

    // Null when the file has no such section.
    HCIniSection* Section(const char* name, bool required) {
        HCIniSection* section = m_ini.GetSection(name);
        if (section == nullptr && required && m_error.empty())
            m_error = m_path + ": section [" + name + "] is missing";
        return section;
    }

    void Text(const char* section, const char* key, std::string& value) {
        std::string found;
        if (Find(section, key, found)) value = found;
    }

    void Number(const char* section, const char* key, int least, int most, int& value) {
        std::string found;
        if (!Find(section, key, found)) return;
        char* end = nullptr;
        const long number = strtol(found.c_str(), &end, 10);
        if (end == found.c_str() || *end != '\0' || number < least || number > most)
            return Complain(section, key,
                            "'" + found + "' is no number from " + std::to_string(least) + " to " +
                                std::to_string(most));
        value = static_cast<int>(number);
    }

    void Complain(const std::string& section, const std::string& key, const std::string& what) {
        if (m_error.empty()) m_error = m_path + ": [" + section + "] " + key + ": " + what;
    }

    bool Good() const { return m_error.empty(); }

  private:
    bool Find(const char* section, const char* key, std::string& value) {
        if (!m_error.empty()) return false;
        HCIniSection* found = m_ini.GetSection(section);
        return found != nullptr && found->GetValue(key, value) == 0;
    }

    const std::string m_path;
    std::string& m_error;
    HCParseIni m_ini;
};

grpcUser_t Account(const std::string& name, int level, const std::string& password) {
    grpcUser_t user{};
    snprintf(user.name, sizeof user.name, "%s", name.c_str());
    snprintf(user.passwd, sizeof user.passwd, "%s", password.c_str());
    user.level = level;
    return user;
}

// name=level;password
void AddAccount(Reader& reader, const std::string& name, const std::string& value,
                std::vector<grpcUser_t>& accounts) {
    const size_t separator = value.find(';');
    char* end = nullptr;
    const long level = strtol(value.c_str(), &end, 10);
    const bool level_ok = separator != std::string::npos && separator > 0 &&
                          end == value.c_str() + separator && level >= 0 && level <= 9;
    const std::string password = level_ok ? value.substr(separator + 1) : "";
    if (!level_ok || password.empty() || password.size() >= sizeof(grpcUser_t::passwd) ||
        name.empty() || name.size() >= sizeof(grpcUser_t::name))
        return reader.Complain("accounts", name, "must be name=level;password, level 0 to 9");
    // The engine checks names that are no account against the last record: it is no account's.
    if (accounts.size() >= GRPC_ACCOUNT_MAX - 1)
        return reader.Complain("accounts", name, "there are 31 accounts already");
    accounts.push_back(Account(name, static_cast<int>(level), password));
}

void ReadAccounts(Reader& reader, std::vector<grpcUser_t>& accounts) {
    HCIniSection* section = reader.Section("accounts", true);
    if (section == nullptr) return;
    accounts.clear();
    std::string name;
    std::string value;
    section->SeekSet();
    while (reader.Good() && section->GetNext(name, value) == 0)
        if (!name.empty()) AddAccount(reader, name, value, accounts);
    if (accounts.empty()) reader.Complain("accounts", "name", "there is no account");
}

constexpr int kNoLimit = 0;

const struct {
    const char* key;
    int HCNetLimits::*limit;
    int most;
} kLimits[] = {
    {"max_clients", &HCNetLimits::max_clients, 10000},
    {"max_clients_per_address", &HCNetLimits::max_clients_per_address, 10000},
    {"max_packet_bytes", &HCNetLimits::max_packet_bytes, 1 << 30},
    {"login_sec", &HCNetLimits::login_sec, 3600},
    {"packet_sec", &HCNetLimits::packet_sec, 3600},
    {"max_unsent_bytes", &HCNetLimits::max_unsent_bytes, 1 << 30},
    {"unsent_sec", &HCNetLimits::unsent_sec, 3600},
    {"min_bytes_per_sec", &HCNetLimits::min_bytes_per_sec, 1 << 30},
    {"stranger_records_per_sec", &HCNetLimits::stranger_records_per_sec, 1000000},
    {"max_pending_logins", &HCNetLimits::max_pending_logins, 10000},
    {"backlog", &HCNetLimits::backlog, 65535},
};

// Relative names are looked for beside the settings file.
std::string BesideFile(const std::string& path, const std::string& name) {
    const size_t slash = path.rfind('/');
    if (name.empty() || name[0] == '/' || slash == std::string::npos) return name;
    return path.substr(0, slash + 1) + name;
}

}  // namespace

std::vector<grpcUser_t> DefaultAccounts() {
    return {Account("admin", 0, "admin-secret"), Account("guest", 2, "guest-secret")};
}

HCNetLimits DefaultLimits() {
    HCNetLimits limits;
    limits.max_clients = 250;
    limits.max_clients_per_address = 250;
    limits.max_packet_bytes = 17 << 20;
    limits.login_sec = 10;
    limits.packet_sec = 60;
    limits.max_unsent_bytes = 32 << 20;
    limits.unsent_sec = 60;
    limits.min_bytes_per_sec = 1000;
    limits.stranger_records_per_sec = 10;
    return limits;
}

bool LoadSettings(const std::string& path, Settings& settings, std::string& error) {
    QuietLog quiet;  // what is not set is no failure
    Reader reader(path, error);
    if (!reader.Load() || reader.Section("net", true) == nullptr) return false;

    settings.file = path;
    reader.Text("net", "ip", settings.ip);
    reader.Number("net", "port", 0, 65535, settings.port);
    reader.Text("net", "unix", settings.unix_name);
    ReadAccounts(reader, settings.accounts);
    reader.Number("login", "max_failures", 1, 1000, settings.max_failures);
    reader.Number("login", "max_peer_failures", 1, 100000, settings.max_peer_failures);
    reader.Number("login", "lock_seconds", 1, 86400, settings.lock_seconds);
    reader.Number("login", "token_seconds", 1, 86400, settings.token_seconds);
    const int accounts = static_cast<int>(settings.accounts.size());
    reader.Number("login", "max_tokens", accounts, 100000, settings.max_tokens);
    for (const auto& row : kLimits)
        reader.Number("limits", row.key, kNoLimit, row.most, settings.limits.*row.limit);
    reader.Text("log", "dir", settings.log_folder);
    reader.Number("log", "bytes", 1024, 1 << 30, settings.log_bytes);
    reader.Number("log", "files", 1, 10000, settings.log_files);
    reader.Number("log", "level", 0, 5, settings.log_level);
    if (settings.log_folder.size() >= sizeof(hlogParam_t::dir))
        reader.Complain("log", "dir", "has more than 255 characters");
    reader.Text("channels", "csv", settings.channels_csv);
    settings.channels_csv = BesideFile(path, settings.channels_csv);
    reader.Text("osd", "font_cn", settings.font_cn);
    reader.Text("osd", "font_en", settings.font_en);
    settings.font_cn = BesideFile(path, settings.font_cn);
    settings.font_en = BesideFile(path, settings.font_en);
    return reader.Good();
}

}  // namespace hydevice
