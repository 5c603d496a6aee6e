// Shows what truly travels on a connection: a socket that records its bytes.
#pragma once

#include <hybase/hcutil/HCSocket.h>
#include <chrono>
#include <memory>
#include <mutex>

#include "options.h"
#include "output.h"
#include "packet_cutter.h"

namespace hyrpc {

// Prints each packet of a connection when its last byte has travelled. Any thread.
class Recorder {
  public:
    Recorder(const Options& options, Output& output) : m_options(options), m_output(output) {}

    // The time counts from the first call on. A second connection is not recorded.
    void Connected();

    // Bytes about to be sent: told before, so that no answer to them can come earlier.
    void Sending(const char* data, size_t length);
    void SendingFailed(size_t length);

    void Received(const char* data, size_t length);

    // Shows what came of a packet without its end, and records nothing more. Calling it again does
    // nothing.
    void Finish();

  private:
    void ShowRest();
    void Feed(PacketCutter& cutter, const char* data, size_t length);
    void Show(const Packet& packet);
    double Now() const;

    const Options& m_options;
    Output& m_output;
    std::mutex m_mutex;  // guards what follows
    bool m_connected = false;
    bool m_finished = false;
    std::chrono::steady_clock::time_point m_began;
    PacketCutter m_sent{true};
    PacketCutter m_received{false};
};

// An HCUnixSocket or HCSocket that tells `recorder`, which must outlive it.
std::unique_ptr<HCSocket> NewRecordingSocket(bool unix_domain, Recorder& recorder);

}  // namespace hyrpc
