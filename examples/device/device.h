// A small device: an RPC server, what its methods work on, notifications, logs.
#pragma once

#include <cjson/cJSON.h>
#include <hybase/hcutil/HCCsv.h>
#include <hybase/hcutil/HCLoginErrorMgr.h>
#include <hybase/hcutil/HCTCPGrpcServer.h>
#include <hybase/hcutil/HCTokenManager.h>

#include <atomic>
#include <mutex>
#include <string>

#include "config.h"
#include "settings.h"

namespace hydevice {

// The methods that callers may use; ends with a row without a name.
grpcMethod_t* Methods();

class Server : public HCTCPGrpcServer {
  public:
    ~Server() override { StopService(); }

    HCNetPackage* CreateServer() override;
};

// Handlers of one server never run at the same time; the main thread calls Tick meanwhile.
class Device {
  public:
    explicit Device(const Settings& settings);

    // Begins to listen. False with one line in `error`.
    bool Start(std::string& error);

    // Where it listens: "127.0.0.1:8600" or "unix:NAME".
    std::string ListeningAt() const;

    // To be called every second: tells every connected client when it is time to.
    void Tick();

    // What can be set while the device runs.
    Config GetConfig();
    bool SetConfig(const cJSON* json, std::string& error);  // as ApplyConfig

    // Checks a password. On success a new token and the user's level; otherwise `error` says why
    // not, and for how long the user is blocked.
    bool LogIn(const std::string& name, const std::string& password, std::string& token, int& level,
               std::string& error);
    bool LogOut(const std::string& token);

    // The user a token belongs to. False when it is not good any more.
    bool TokenOwner(const std::string& token, std::string& name);

    // The table of channels: an array of objects, one a row, with the headings as keys.
    cJSON* ListChannels();

    // Calls served since the start or the last reset.
    std::atomic<int> m_served{0};

  private:
    const grpcUser_t* FindAccount(const std::string& name) const;
    void ConfigureLog(int level);
    bool LoadChannels();
    bool LoadFonts();

    Settings m_settings;
    int m_ticks = 0;
    int m_events = 0;
    int m_log_level = -1;  // in effect
    HCTokenManager m_tokens;
    HCLoginErrorMgr m_lockout;
    HCCsv m_channels;
    std::mutex m_mutex;
    Config m_config;  // guarded by m_mutex
    Server m_server;  // last: its threads end before the members they use
};

}  // namespace hydevice
