// One packet to many connections, none of which waits for another.
#ifndef HYBASE_HCUTIL_PACKET_BROADCAST_H
#define HYBASE_HCUTIL_PACKET_BROADCAST_H

#include <hybase/hcutil/HCNetPackage.h>
#include <poll.h>

#include <memory>
#include <optional>

#include "hybase/hcutil/packet_io.h"

// Connections pinned stay until the broadcast is destroyed. They are pinned during a walk over the
// service; sending needs no lock of the service.
class PacketBroadcast {
  public:
    // For `most` connections. Without memory none can be pinned.
    explicit PacketBroadcast(int most);
    ~PacketBroadcast();
    PacketBroadcast(const PacketBroadcast&) = delete;
    PacketBroadcast& operator=(const PacketBroadcast&) = delete;

    // False when there is no place.
    bool Pin(HCNetPackage& connection);

    // Sends `data[0..length-1]` to all as SendPkg does. Those without room are waited for together,
    // each as long as SendPkg would wait for it alone. Returns the result of the last one, -1 when
    // there is none.
    int Send(unsigned int type, const char* data, int length, int wait_sec);

  private:
    enum class Stage {
        kBusy,     // another thread is sending
        kSending,  // m_hSendMutex is held
        kFailed,   // the loss is not reported yet
        kAlone,    // left to SendPkg
        kDone
    };
    struct Entry {
        HCNetPackage* connection;
        Stage stage;
        int result;
        std::optional<PacketOut> packet;
        std::optional<TransferWatch> watch;
    };

    void Begin(Entry& entry, unsigned int type, const Pieces& pieces);
    void Push(Entry& entry, int64_t waited_ms);
    void Fail(Entry& entry);
    bool Any(Stage stage) const;
    int64_t WaitForRoom();

    const int most_;
    int count_ = 0;
    std::unique_ptr<Entry[]> entries_;
    std::unique_ptr<pollfd[]> polled_;
};

#endif
