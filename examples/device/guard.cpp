#include "guard.h"

#include <sys/socket.h>

#include <algorithm>

namespace hydevice {
namespace {

std::string Key(const std::string& peer, const std::string& name) { return peer + " " + name; }

}  // namespace

std::string PeerOf(const HCSocket& socket) {
    if (socket.m_szHost[0] != '\0') return socket.m_szHost;
    ucred peer{};
    socklen_t size = sizeof peer;
    getsockopt(socket.m_nSocket, SOL_SOCKET, SO_PEERCRED, &peer, &size);
    return "user " + std::to_string(peer.uid);
}

Guard::Guard(const Settings& settings)
    : m_settings(settings),
      m_accounts(settings.lock_seconds, settings.max_failures),
      m_peers(settings.lock_seconds, settings.max_peer_failures) {}

const grpcUser_t* Guard::FindAccount(const std::string& name) const {
    for (const grpcUser_t& account : m_settings.accounts)
        if (name == account.name) return &account;
    return nullptr;
}

std::string Guard::Blocked(const std::string& peer, const std::string& name) {
    const int left = std::max(SecondsLeft(m_peers, peer), SecondsLeft(m_accounts, Key(peer, name)));
    return left > 0 ? "blocked for another " + std::to_string(left) + " s" : "";
}

std::string Guard::Judge(const std::string& peer, const std::string& name, bool right) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::string blocked = Blocked(peer, name);
    if (!blocked.empty()) return blocked;
    if (right) {
        m_accounts.LoginSuccess(Key(peer, name).c_str());
        return "";
    }
    // Without the password, so that trying the same wrong one again counts, too.
    m_peers.LoginFail(peer.c_str(), nullptr);
    if (FindAccount(name) != nullptr) m_accounts.LoginFail(Key(peer, name).c_str(), nullptr);
    return "";
}

int Guard::SecondsLeft(HCLoginErrorMgr& failures, const std::string& key) const {
    int since = 0;
    if (failures.LoginCheckIsLock(key.c_str(), &since) == 0) return 0;
    return m_settings.lock_seconds - since;
}

}  // namespace hydevice
