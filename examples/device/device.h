// A small device: an RPC server, what its methods work on, notifications, logs.
#pragma once

#include <hybase/hcutil/HCTCPGrpcServer.h>

#include <atomic>
#include <mutex>
#include <string>

#include "config.h"

namespace hydevice {

struct Options {
    std::string ip = "127.0.0.1";
    unsigned short port = 8600;  // 0: a free one
    std::string unix_name;       // not empty: an abstract Unix socket instead of TCP
    std::string log_folder;      // empty: no log files
    int log_bytes = 65536;       // size at which a log file is full
    int log_files = 5;           // how many are kept
};

// The methods that callers may use; ends with a row without a name.
grpcMethod_t* Methods();

class Server : public HCTCPGrpcServer {
  public:
    ~Server() override { StopService(); }

    HCNetPackage* CreateServer() override;
};

class Device {
  public:
    Device();

    // Begins to listen. False when the address cannot be had.
    bool Start(const Options& options);

    // Where it listens: "127.0.0.1:8600" or "unix:NAME".
    std::string ListeningAt() const;

    // To be called every second: tells every connected client when it is time to.
    void Tick();

    Config GetConfig();

    // Changes settings as ApplyConfig does and puts them into effect.
    bool SetConfig(const cJSON* json, std::string& error);

    // The account of that name, null when there is none.
    const grpcUser_t* FindAccount(const std::string& name) const;

    // Requests served since the start or the last reset. Handlers of one server never run at the
    // same time, notifications come from another thread.
    std::atomic<int> m_served{0};

  private:
    void AddAccount(const char* name, const char* password, int level);
    void ConfigureLog(const Config& config);

    Options m_options;
    int m_ticks = 0;
    int m_events = 0;
    int m_log_level = -1;  // in effect; changed by Start, then by handlers only
    std::mutex m_mutex;
    Config m_config;  // guarded by m_mutex
    Server m_server;  // last: its threads end before the members they use
};

}  // namespace hydevice
