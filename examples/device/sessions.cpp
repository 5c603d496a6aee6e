#include "sessions.h"

#include <algorithm>

namespace hydevice {

Sessions::Sessions(const Settings& settings)
    : m_share(static_cast<size_t>(settings.max_tokens) / settings.accounts.size()),
      m_tokens(false, settings.token_seconds, settings.max_tokens) {}

std::string Sessions::Create(const std::string& name) {
    std::deque<std::string>& tokens = m_by_user[name];
    if (tokens.size() >= m_share) {
        m_tokens.Delete(tokens.front());
        tokens.pop_front();
    }
    const LoginInfo_t owner{name};
    std::string token = m_tokens.Create(&owner);
    if (!token.empty()) tokens.push_back(token);
    return token;
}

bool Sessions::Delete(const std::string& token) {
    Forget(token);
    return m_tokens.Delete(token) == 0;
}

bool Sessions::Owner(const std::string& token, std::string& name) {
    LoginInfo_t owner;
    if (!m_tokens.IsValid(token, &owner)) {
        Forget(token);
        return false;
    }
    name = owner.username;
    return true;
}

void Sessions::Forget(const std::string& token) {
    for (auto& [name, tokens] : m_by_user)
        tokens.erase(std::remove(tokens.begin(), tokens.end(), token), tokens.end());
}

}  // namespace hydevice
