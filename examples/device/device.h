// A small device: an RPC server, what its methods work on, notifications, logs.
#pragma once

#include <cjson/cJSON.h>
#include <hybase/hcutil/HCCsv.h>

#include <atomic>
#include <mutex>
#include <string>

#include "config.h"
#include "guard.h"
#include "server.h"
#include "sessions.h"
#include "settings.h"

namespace hydevice {

// The methods that callers may use; ends with a row without a name.
grpcMethod_t* Methods();

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
    // not, and for how long the peer is blocked.
    bool LogIn(const std::string& peer, const std::string& name, const std::string& password,
               std::string& token, int& level, std::string& error);

    // The table of channels: an array of objects, one a row, with the headings as keys.
    cJSON* ListChannels();

    // Calls served since the start or the last reset.
    std::atomic<int> m_served{0};

    Guard& GetGuard() { return m_guard; }
    Sessions& GetSessions() { return m_sessions; }  // for handlers

  private:
    void ConfigureLog(int level);
    bool LoadChannels();
    bool LoadFonts();

    Settings m_settings;
    Guard m_guard;
    Sessions m_sessions;
    int m_ticks = 0;
    int m_events = 0;
    int m_log_level = -1;  // in effect
    HCCsv m_channels;
    std::mutex m_mutex;
    Config m_config;  // guarded by m_mutex
    Server m_server;  // last: its threads end before the members they use
};

}  // namespace hydevice
