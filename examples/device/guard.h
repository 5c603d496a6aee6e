// Blocks peers that guess passwords.
#pragma once

#include <hybase/hcutil/HCLoginErrorMgr.h>
#include <hybase/hcutil/HCSocket.h>

#include <mutex>
#include <string>

#include "settings.h"

namespace hydevice {

// Who is at the other end: an address, or the user of a program on this machine.
std::string PeerOf(const HCSocket& socket);

// Wrong passwords count twice: for the peer and the account it tries, and, with a higher limit, for
// the peer whatever it tries. Both block that peer only: if the account itself were blocked,
// anybody could keep the administrator out by failing in his name. Names that are no account count
// for the peer alone, because a peer can invent any number of them. Any thread.
class Guard {
  public:
    explicit Guard(const Settings& settings);  // which must outlive the guard

    const grpcUser_t* FindAccount(const std::string& name) const;

    // "blocked for another N s" when the peer may not use the name now, otherwise empty. An empty
    // name: whether it may use any.
    std::string Blocked(const std::string& peer, const std::string& name);

    // Takes note of a password or digest that a peer gave, right or wrong. The result is that of
    // Blocked() before: the try of a blocked peer counts for nothing and must get nothing.
    std::string Judge(const std::string& peer, const std::string& name, bool right);

  private:
    int SecondsLeft(HCLoginErrorMgr& failures, const std::string& key) const;

    const Settings& m_settings;
    std::mutex m_mutex;  // makes one step of looking and counting
    HCLoginErrorMgr m_accounts;
    HCLoginErrorMgr m_peers;
};

}  // namespace hydevice
