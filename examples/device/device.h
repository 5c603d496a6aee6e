// A small device: an RPC server, what its methods work on, and a notification every second.
#pragma once

#include <hybase/hcutil/HCTCPGrpcServer.h>

#include <atomic>
#include <string>

namespace hydevice {

struct Options {
    std::string ip = "127.0.0.1";
    unsigned short port = 8600;  // 0: a free one
    std::string unix_name;       // not empty: an abstract Unix socket instead of TCP
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

    // Tells every connected client that another second has passed.
    void NotifyEvent();

    // The account of that name, null when there is none.
    const grpcUser_t* FindAccount(const std::string& name) const;

    // Requests served since the start or the last reset. Handlers of one server never run at the same
    // time, notifications come from another thread.
    std::atomic<int> m_served{0};

  private:
    void AddAccount(const char* name, const char* password, int level);

    Options m_options;
    int m_events = 0;
    Server m_server;  // last: its threads end before the members they use
};

}  // namespace hydevice
