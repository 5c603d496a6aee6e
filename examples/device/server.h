// The connections of the device: who may come in, and what a caller is answered.
#pragma once

#include <hybase/hcutil/HCTCPGrpcServer.h>

#include <string>

#include "guard.h"

namespace hydevice {

constexpr int32_t kRefused = -2;  // the error of a call by somebody who may not make it

// Ends the connection of a call as soon as its answer is sent. In a handler or a send hook.
void HangUp(_grpc_t* context);

// Who makes a call, as the guard knows him. In a handler or a send hook.
std::string PeerOf(_grpc_t* context);

class Server : public HCTCPGrpcServer {
  public:
    explicit Server(Guard& guard) : m_guard(guard) {}
    ~Server() override { StopService(); }

    bool CheckPasswd(const char* data, int len, HCSocket* sock, std::string& message) override;
    HCNetPackage* CreateServer() override;

  private:
    static int32_t Send(_grpc_t* context, const char* text, int32_t length);
    int32_t Answer(_grpc_t* context, const char* text, int32_t length);

    Guard& m_guard;
};

}  // namespace hydevice
