#include "hybase/hcutil/HCTokenManager.h"

#include <new>
#include <utility>

#include "hybase/hcutil/HCMutex.h"
#include "hybase/hlog.h"

namespace {

constexpr int kRandomBytes = 16;
// Not 32: the low half of the last byte was never part of a token, and peers know the length.
constexpr int kTokenDigits = 31;

uint64_t NowMs() { return static_cast<uint64_t>(arch_getSystemStartupMs()); }

}  // namespace

HCTokenManager::HCTokenManager(bool once, unsigned int lifetime, unsigned int maxNum)
    : m_nLifeTimeMs(lifetime * 1000),
      m_hMutex(arch_mutex_create()),
      m_nMaxNum(maxNum),
      m_bOnce(once) {}

HCTokenManager::~HCTokenManager() { arch_mutex_delete(m_hMutex); }

void HCTokenManager::SetLifeTime(unsigned int seconds) { m_nLifeTimeMs = seconds * 1000; }

void HCTokenManager::SetMaxNum(unsigned int n) { m_nMaxNum = n; }

std::string HCTokenManager::Create(const LoginInfo_t* info) {
    // Held from the test on: threads that arrive together cannot pass it together.
    HCMutex lock(m_hMutex);
    const unsigned int max = m_nMaxNum;
    if (m_tokens.size() >= max) _Flush();
    if (m_tokens.size() >= max) {
        HLOG_ERR("There are too many Client! Max Support %d!\n", static_cast<int>(max));
        return {};
    }
    try {
        std::string token = _Create_Str();
        if (token.empty()) return {};
        m_tokens.emplace(token, LoginInnerInfo_t{info != nullptr ? *info : LoginInfo_t{}, NowMs()});
        return token;
    } catch (const std::bad_alloc&) {
        return {};
    }
}

bool HCTokenManager::IsValid(const std::string& token, LoginInfo_t* info) {
    HCMutex lock(m_hMutex);
    const auto found = m_tokens.find(token);
    if (found == m_tokens.end()) {
        HLOG_TRACE("CheckToken Failed! Can't find the %s,%zu\n", token.c_str(), m_tokens.size());
        return false;
    }
    if (!_IsAlive(found->second)) {
        m_tokens.erase(found);
        return false;
    }
    try {
        if (info != nullptr) *info = found->second.info;
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (m_bOnce) {
        // The text kept here: the caller's may lie in `*info`.
        HLOG_TRACE("Have Found Token(%s), Will delete it because Once Mode!\n",
                   found->first.c_str());
        m_tokens.erase(found);
        return true;
    }
    found->second.last_use_ms = NowMs();
    return true;
}

int HCTokenManager::Delete(const std::string& token) {
    HCMutex lock(m_hMutex);
    const auto found = m_tokens.find(token);
    if (found == m_tokens.end()) {
        HLOG_ERR("User Token String Not Found!\n");
        return -1;
    }
    HLOG_TRACE("Identity(%s) is deleted!\n", token.c_str());
    m_tokens.erase(found);
    return 0;
}

int HCTokenManager::DeleteByUserName(const char* name) {
    if (name == nullptr) return 0;
    HCMutex lock(m_hMutex);
    for (auto it = m_tokens.begin(); it != m_tokens.end();) {
        if (it->second.info.username != name) {
            ++it;
            continue;
        }
        HLOG_TRACE("Identity(%s) is deleted!\n", it->first.c_str());
        it = m_tokens.erase(it);
    }
    return 0;
}

void HCTokenManager::Flush() {
    HCMutex lock(m_hMutex);
    _Flush();
}

void HCTokenManager::Clear() {
    HCMutex lock(m_hMutex);
    m_tokens.clear();
}

// A new token text; empty when there are no random bytes.
std::string HCTokenManager::_Create_Str() {
    unsigned char random[kRandomBytes];
    if (arch_rand_bytes(random, kRandomBytes) != 0) {
        HLOG_ERR("no random bytes for a token\n");
        return {};
    }
    std::string text(kTokenDigits, '\0');
    for (int i = 0; i < kTokenDigits; ++i) {
        const int digit = i % 2 == 0 ? random[i / 2] >> 4 : random[i / 2] & 0x0F;
        text[i] = "0123456789ABCDEF"[digit];
    }
    return text;
}

// An age that went below zero is one of many years here: expired.
bool HCTokenManager::_IsAlive(const LoginInnerInfo_t& token) const {
    return NowMs() - token.last_use_ms <= m_nLifeTimeMs;
}

// Flush with the mutex held; its records name the public operation, whoever called it.
void HCTokenManager::_Flush() {
    if (m_tokens.empty()) {
        hlog_printf_ex(HLOG_LEVEL_ERR, __FILE__, "Flush", __LINE__, "Don't have any Token!\n");
        return;
    }
    for (auto it = m_tokens.begin(); it != m_tokens.end();) {
        if (_IsAlive(it->second)) {
            ++it;
            continue;
        }
        hlog_printf_ex(HLOG_LEVEL_TRACE, __FILE__, "Flush", __LINE__,
                       "Identity(%s) is expired! will been deleted!\n", it->first.c_str());
        it = m_tokens.erase(it);
    }
}
