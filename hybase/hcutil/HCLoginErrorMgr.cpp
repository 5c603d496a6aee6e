#include "hybase/hcutil/HCLoginErrorMgr.h"

#include <limits.h>
#include <string.h>

#include <algorithm>
#include <new>

#include "hybase/hcutil/HCMutex.h"
#include "hybase/hlog.h"

namespace {

uint64_t NowMs() { return static_cast<uint64_t>(arch_getSystemStartupMs()); }

// The product as 32 bits give it; through unsigned, so that it wraps instead of overflowing.
int64_t LockTimeMs(int seconds) {
    return static_cast<int32_t>(static_cast<uint32_t>(seconds) * 1000U);
}

// Looks at every byte of `given` whatever was kept, so that the time it takes depends on nothing
// but what the caller sent.
bool IsSamePassword(const std::string& kept, const char* given) {
    const size_t length = strlen(given);
    unsigned int difference = kept.size() != length ? 1 : 0;
    for (size_t i = 0; i < length; ++i) {
        difference |= static_cast<unsigned char>(kept.c_str()[std::min(i, kept.size())] ^ given[i]);
    }
    return difference == 0;
}

}  // namespace

HCLoginErrorMgr::HCLoginErrorMgr(int lock_seconds, int max_fail_count)
    : max_fail_count(max_fail_count),
      lock_time_ms(LockTimeMs(lock_seconds)),
      mutex(arch_mutex_create()) {}

HCLoginErrorMgr::~HCLoginErrorMgr() { arch_mutex_delete(mutex); }

void HCLoginErrorMgr::LoginFail(const char* user, int* fail_count) {
    _Record(user, nullptr, fail_count);
}

void HCLoginErrorMgr::LoginFail(const char* user, const char* password, int* fail_count) {
    _Record(user, password, fail_count);
}

void HCLoginErrorMgr::LoginSuccess(const char* user) {
    if (user == nullptr) return;
    HCMutex lock(mutex);
    const auto found = members.find(user);
    if (found != members.end()) members.erase(found);
}

void HCLoginErrorMgr::DeleteLoginMember(const char* user) { LoginSuccess(user); }

int HCLoginErrorMgr::LoginCheckIsLock(const char* user, int* seconds) {
    if (user == nullptr) return 0;
    flush();
    {
        HCMutex lock(mutex);
        const auto found = members.find(user);
        if (found == members.end()) return 0;
        LoginInfo_t& member = found->second;
        const uint64_t now_ms = NowMs();
        // It may have expired since the flush.
        if (_IsExpired(member, now_ms)) member.fail_count = 0;
        if (member.fail_count < max_fail_count) return 0;
        // The time gone by and not the time left is what callers expect here.
        if (seconds != nullptr) *seconds = static_cast<int>((now_ms - member.last_fail_ms) / 1000);
    }
    // File and line are part of the interface, so they are not those of this code.
    hlog_printf_ex(HLOG_LEVEL_DEBUG, "hcutil/HCLoginErrorMgr", "LoginCheckIsLock", 66,
                   "user Blocked now\n");
    return 1;
}

bool HCLoginErrorMgr::isExist(const char* user) {
    return user != nullptr && members.find(user) != members.end();
}

void HCLoginErrorMgr::flush() {
    HCMutex lock(mutex);
    const uint64_t now_ms = NowMs();
    for (auto it = members.begin(); it != members.end();) {
        it = _IsExpired(it->second, now_ms) ? members.erase(it) : std::next(it);
    }
}

void HCLoginErrorMgr::_Record(const char* user, const char* password, int* fail_count) {
    if (user == nullptr) return;
    HCMutex lock(mutex);
    const uint64_t now_ms = NowMs();
    try {
        // Before anything is counted, and always anew: how long it takes tells nothing about the
        // password kept.
        std::string tried = password != nullptr ? password : "";
        LoginInfo_t& member = members[user];
        // What no flush has removed yet counts for nothing.
        if (_IsExpired(member, now_ms)) member = LoginInfo_t{};
        const bool counted = member.fail_count > 0 && password != nullptr &&
                             IsSamePassword(member.last_password, password);
        if (!counted && member.fail_count < INT_MAX) ++member.fail_count;
        member.last_fail_ms = now_ms;
        if (fail_count != nullptr) *fail_count = member.fail_count;
        member.last_password.swap(tried);
    } catch (const std::bad_alloc&) {
    }
}

// Unsigned, so that a negative lock time never ends.
bool HCLoginErrorMgr::_IsExpired(const LoginInfo_t& member, uint64_t now_ms) const {
    return now_ms - member.last_fail_ms >= static_cast<uint64_t>(lock_time_ms);
}
