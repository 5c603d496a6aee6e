/// @file
/// @ingroup sessions
/// Counts failed logins and blocks a user after too many of them.
#ifndef HYBASE_HCUTIL_HCLOGINERRORMGR_H
#define HYBASE_HCUTIL_HCLOGINERRORMGR_H

#include <hybase/export.h>
#include <hyplatform/arch.h>
#include <stdint.h>

#include <functional>
#include <map>
#include <string>

/// Counts failed logins and blocks a user after too many of them.
///
///     HCLoginErrorMgr lockout(300, 3);   // three failures block for five minutes
///     if (lockout.LoginCheckIsLock(user, nullptr)) return Refuse();
///     if (Matches(user, password)) lockout.LoginSuccess(user);
///     else lockout.LoginFail(user, password, nullptr);
///
/// Failures count together while they follow each other less than the lock time apart. A block
/// lasts the lock time, counted from the last failure reported: failures while blocked extend it.
/// Time is arch_getSystemStartupMs(): setting the clock of the device neither releases nor extends
/// a block. Everything is kept in memory and forgotten with the process.
///
/// A null `user` is nobody: nothing is recorded for it, and it is not blocked. Nothing throws; a
/// failure for which there is no memory is not recorded. How long a call takes tells nothing about
/// the password kept.
///
/// @par Threads
/// Every member but isExist() may be called by any thread; they take the one mutex.
///
/// @ingroup sessions
class HYBASE_API HCLoginErrorMgr {
  public:
    /// What is kept for a user.
    struct LoginInfo_t {
        uint64_t last_fail_ms;      ///< arch_getSystemStartupMs() at the last failure
        int32_t fail_count;         ///< failures that count together
        std::string last_password;  ///< of the last failure, empty if that came without one
    };

    /// `lock_seconds`: the lock time, at most 2147483. `max_fail_count`: the failure that blocks;
    /// with 0 or less every user with a failure is blocked.
    HCLoginErrorMgr(int lock_seconds, int max_fail_count);
    virtual ~HCLoginErrorMgr();  ///< forgets everything; no thread may be inside a call
    HCLoginErrorMgr(const HCLoginErrorMgr&) = delete;  ///< not to be copied
    HCLoginErrorMgr& operator=(const HCLoginErrorMgr&) = delete;

    /// Records a failure, which counts. `*fail_count` gets the count unless `fail_count` is null.
    void LoginFail(const char* user, int* fail_count);

    /// Records a failure with the password that was tried. The count stays as it is when that was
    /// also the password of the failure before: trying the same wrong one again counts once. A null
    /// password, as a failure without one, always counts and leaves the empty one behind.
    /// `*fail_count` gets the count unless `fail_count` is null.
    void LoginFail(const char* user, const char* password, int* fail_count);

    /// Forgets the user, who has logged in.
    void LoginSuccess(const char* user);

    /// Forgets the user, who is no longer one.
    void DeleteLoginMember(const char* user);

    /// Returns 1 when the user is blocked now, 0 otherwise. Blocked, `*seconds` gets the time since
    /// the last failure, in whole seconds - not the time left -, unless `seconds` is null.
    int LoginCheckIsLock(const char* user, int* seconds);

    /// Whether anything is kept for the user, expired or not. Takes no lock: not for use while
    /// other threads change something.
    bool isExist(const char* user);

    /// Forgets every user whose last failure is the lock time ago or longer.
    void flush();

  private:
    void _Record(const char* user, const char* password, int* fail_count);
    bool _IsExpired(const LoginInfo_t& member, uint64_t now_ms) const;

    const int32_t max_fail_count;
    const int64_t lock_time_ms;
    arch_mutex_t mutex;
    // Guarded by `mutex`. std::less<> finds a C text without making a string of it.
    std::map<std::string, LoginInfo_t, std::less<>> members;
};

#endif
