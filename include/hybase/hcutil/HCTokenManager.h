/// @file
/// @ingroup sessions
/// Hands out a token after a login and tells later whether it is still good, and whose it is.
#ifndef HYBASE_HCUTIL_HCTOKENMANAGER_H
#define HYBASE_HCUTIL_HCTOKENMANAGER_H

#include <hybase/export.h>
#include <hyplatform/arch.h>
#include <stdint.h>

#include <atomic>
#include <map>
#include <string>

/// @ingroup sessions
/// Whom a token belongs to.
struct LoginInfo_t {
    std::string username;  ///< name of the user
};

/// @ingroup sessions
/// What is kept for a token.
struct LoginInnerInfo_t {
    LoginInfo_t info;      ///< its owner
    uint64_t last_use_ms;  ///< its creation or last successful check
};

/// Hands out a token after a login and tells later whether it is still good, and whose it is.
///
///     HCTokenManager tokens(false, 600, 100);   // ten minutes, at most a hundred at a time
///     LoginInfo_t owner{"admin"};
///     std::string token = tokens.Create(&owner);
///     ...
///     if (!tokens.IsValid(token, &owner)) return Refuse();
///
/// A token is 31 upper-case hexadecimal digits of random. It lives until it was not used for longer
/// than the lifetime - each successful check is a use -, in Once Mode until its first successful
/// check, or until one of the operations below removes it. Time is arch_getSystemStartupMs():
/// setting the clock of the device changes nothing. Nothing runs in the background: expired tokens
/// are removed when somebody asks for them, by Flush(), and by Create() when there is no room.
///
/// What happens is logged with level TRACE; with level ERR that there is no room, nothing to flush,
/// no token to delete, or no random bytes to be had. Nothing throws; where memory is short a token
/// is not created or not valid.
///
/// @par Threads
/// Every member may be called by any thread; all but the setters take the one mutex.
///
/// @ingroup sessions
class HYBASE_API HCTokenManager {
  public:
    /// `once`: Once Mode. `lifetime` is in seconds, at most 4294967 (more wraps around); with 0 a
    /// token is good within the millisecond of its creation. `maxNum`: tokens at a time.
    HCTokenManager(bool once, unsigned int lifetime, unsigned int maxNum);
    virtual ~HCTokenManager();  ///< forgets all tokens; no thread may be inside a call
    HCTokenManager(const HCTokenManager&) = delete;  ///< not to be copied
    HCTokenManager& operator=(const HCTokenManager&) = delete;

    /// Sets the lifetime, in force from the next check on, for the tokens that are there as well.
    void SetLifeTime(unsigned int seconds);

    /// Sets how many tokens there may be at a time; those that are there already stay.
    void SetMaxNum(unsigned int n);

    /// Returns a new token for `info`, whose user is the empty name if it is null. Empty when there
    /// are too many tokens also after a Flush, or no random bytes to be had.
    std::string Create(const LoginInfo_t* info);

    /// Whether the token is good now. If so, it is used - in Once Mode used up - and its owner is
    /// copied to `*info` unless `info` is null. An expired token is removed.
    bool IsValid(const std::string& token, LoginInfo_t* info);

    /// Removes one token. Returns 0, or -1 when there is no such token.
    int Delete(const std::string& token);

    /// Removes every token of that user; none for a null name. Returns 0.
    int DeleteByUserName(const char* name);

    /// Removes all expired tokens.
    void Flush();

    /// Removes all tokens.
    void Clear();

  private:
    static std::string _Create_Str();
    bool _IsAlive(const LoginInnerInfo_t& token) const;
    void _Flush();

    std::map<std::string, LoginInnerInfo_t> m_tokens;  // guarded by m_hMutex
    std::atomic<unsigned int> m_nLifeTimeMs;
    arch_mutex_t m_hMutex;
    std::atomic<unsigned int> m_nMaxNum;
    const bool m_bOnce;
};

#endif
