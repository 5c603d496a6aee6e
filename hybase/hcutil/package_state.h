// What a packet connection keeps besides its public fields.
#ifndef HYBASE_HCUTIL_PACKAGE_STATE_H
#define HYBASE_HCUTIL_PACKAGE_STATE_H

#include <hybase/hcutil/HCNetPackage.h>
#include <stdint.h>

#include <atomic>
#include <mutex>

struct HCNetPackage::State {
    HCNetLimits limits;
    std::mutex record;  // guards m_pPasswd and m_nPasswdLen

    // Held to shut the descriptor down from another thread, and by the connection thread to enter
    // NPS_CONNECTING and to give the socket up. In between the descriptor stays as it is, unless
    // the state is NPS_CONNECTING. Taken behind m_hSendMutex.
    std::mutex descriptor;

    std::atomic<int> senders{0};     // threads that hold m_hSendMutex or wait for it
    std::atomic<int64_t> unsent{0};  // bytes of packets that wait to be sent
    std::atomic<int> pins{0};        // broadcasts that use the connection; see packet_broadcast.h

    // Of a client, on the thread that connects.
    std::atomic<int64_t> admitted_ms{0};  // when it was let in; 0 since a loss was looked at
    int quick_losses = 0;                 // in a row
};

#endif
