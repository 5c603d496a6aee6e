#include "raw.h"

#include <hybase/hcutil/HCUnixSocket.h>

#include "packet_dump.h"

namespace hyrpc {
namespace {

// RecvAll comes through Recv, and so does not need to be told apart.
template <class Socket>
class RecordingSocket : public Socket {
  public:
    explicit RecordingSocket(Recorder& recorder) : m_recorder(recorder) {}

    int Connect(const char* host, unsigned short port, int timeout) override {
        const int result = Socket::Connect(host, port, timeout);
        if (result == 0) m_recorder.Connected();
        return result;
    }

    int Send(const char* buf, int len, int timeout) override {
        if (buf != nullptr && len > 0) m_recorder.Sending(buf, static_cast<size_t>(len));
        const int result = Socket::Send(buf, len, timeout);
        if (result < 0 && len > 0) m_recorder.SendingFailed(static_cast<size_t>(len));
        return result;
    }

    int Recv(char* buf, int len, int timeout) override {
        const int result = Socket::Recv(buf, len, timeout);
        if (result > 0) m_recorder.Received(buf, static_cast<size_t>(result));
        return result;
    }

  private:
    Recorder& m_recorder;
};

}  // namespace

void Recorder::Connected() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_connected) ShowRest();
    if (m_connected) return;
    m_connected = true;
    m_began = std::chrono::steady_clock::now();
}

void Recorder::Sending(const char* data, size_t length) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Feed(m_sent, data, length);
}

void Recorder::SendingFailed(size_t length) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_finished) return;
    m_output.Write(m_options.json ? SendFailureJson(length, Now())
                                  : SendFailureText(length, Now()));
}

void Recorder::Received(const char* data, size_t length) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Feed(m_received, data, length);
}

void Recorder::Finish() {
    std::lock_guard<std::mutex> lock(m_mutex);
    ShowRest();
}

void Recorder::ShowRest() {
    if (m_finished) return;
    m_finished = true;
    for (const PacketCutter* cutter : {&m_sent, &m_received})
        if (!cutter->Current().bytes.empty()) Show(cutter->Current());
}

void Recorder::Feed(PacketCutter& cutter, const char* data, size_t length) {
    if (m_finished) return;
    const double now_s = Now();
    while (length > 0) {
        const size_t taken = cutter.Take(data, length, now_s);
        data += taken;
        length -= taken;
        if (!cutter.Current().IsComplete()) continue;
        Show(cutter.Current());
        cutter.Next();
    }
}

void Recorder::Show(const Packet& packet) {
    m_output.Write(m_options.json ? DumpJson(packet, m_options.show_password)
                                  : DumpText(packet, m_options.show_password));
}

double Recorder::Now() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_began).count();
}

std::unique_ptr<HCSocket> NewRecordingSocket(bool unix_domain, Recorder& recorder) {
    if (unix_domain) return std::make_unique<RecordingSocket<HCUnixSocket>>(recorder);
    return std::make_unique<RecordingSocket<HCSocket>>(recorder);
}

}  // namespace hyrpc
