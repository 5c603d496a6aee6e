// How long a packet under way may take.
#ifndef HYBASE_HCUTIL_TRANSFER_WATCH_H
#define HYBASE_HCUTIL_TRANSFER_WATCH_H

#include <hybase/hcutil/HCNetLimits.h>
#include <stdint.h>

class TransferWatch {
  public:
    // Whether the limits say anything; otherwise the waits of the socket hold.
    static bool ForReceiving(const HCNetLimits& limits) {
        return limits.packet_sec > 0 || limits.min_bytes_per_sec > 0;
    }
    static bool ForSending(const HCNetLimits& limits) {
        return limits.unsent_sec > 0 || limits.min_bytes_per_sec > 0;
    }

    static TransferWatch Receiving(const HCNetLimits& limits) {
        return TransferWatch(limits.packet_sec, limits.min_bytes_per_sec);
    }

    // Without limits: the waits of HCSocket::Send, `timeout_us` in all and 1 second for room.
    static TransferWatch Sending(const HCNetLimits& limits, int timeout_us);

    // Bytes were sent or received.
    void Moved(int64_t bytes);

    // Milliseconds that the next wait may take; 0 when the transfer has had its time. `waited_ms`:
    // what the last wait took.
    int64_t LeftMs(int64_t waited_ms = 0);

  private:
    TransferWatch(int longest_sec, int least_bytes_per_sec);

    int64_t end_ms_;         // of the whole packet
    int64_t wait_left_ms_;   // that may be spent waiting
    int64_t least_per_sec_;  // bytes; 0: any
    int64_t checked_ms_;     // until when debt_ is counted
    int64_t debt_ = 0;       // bytes that the transfer has fallen behind least_per_sec_, times 1000
};

#endif
