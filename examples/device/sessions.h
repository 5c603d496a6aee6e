// Who is logged in.
#pragma once

#include <hybase/hcutil/HCTokenManager.h>

#include <deque>
#include <map>
#include <string>

#include "settings.h"

namespace hydevice {

// Every account has the same share of the tokens. When a user has used up his, his oldest token
// goes: whatever one user does, the others can log in. One thread at a time.
class Sessions {
  public:
    explicit Sessions(const Settings& settings);

    // A new token for the user; empty when no random bytes are to be had.
    std::string Create(const std::string& name);

    // False when there is no such token.
    bool Delete(const std::string& token);

    // The user a token belongs to. False when it is not good any more.
    bool Owner(const std::string& token, std::string& name);

  private:
    void Forget(const std::string& token);

    const size_t m_share;
    HCTokenManager m_tokens;
    std::map<std::string, std::deque<std::string>> m_by_user;  // tokens, oldest first
};

}  // namespace hydevice
