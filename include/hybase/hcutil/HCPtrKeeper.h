/// @file
/// @ingroup runtime
/// Gives out integer handles for pointers, so that a late user finds out that an object is gone
/// instead of touching it.
#ifndef HYBASE_HCUTIL_HCPTRKEEPER_H
#define HYBASE_HCUTIL_HCPTRKEEPER_H

#include <hybase/export.h>
#include <hyplatform/arch.h>

#include <map>

/// Gives out integer handles for pointers, so that a late user finds out that an object is gone
/// instead of touching it.
///
///     HCPtrKeeper::Value_t* value = keeper.GetAndLock(handle);
///     if (value->ptr != nullptr) ...   // nobody can Delete the handle meanwhile
///     keeper.Unlock(handle);           // always
///
/// @par Threads
/// Every member may be called by any thread. Between GetAndLock() and Unlock() all other users
/// wait, and the holder itself must not call Add(), Delete() or GetAndLock() of the same keeper.
///
/// @ingroup runtime
class HYBASE_API HCPtrKeeper {
  public:
    /// What is kept for a handle.
    struct Value_t {
        void* ptr;       ///< never freed here
        int type;        ///< the caller's
        long long data;  ///< the caller's
    };

    HCPtrKeeper();                             ///< no handles
    virtual ~HCPtrKeeper();                    ///< forgets all handles; nobody may hold the lock
    HCPtrKeeper(const HCPtrKeeper&) = delete;  ///< not to be copied
    HCPtrKeeper& operator=(const HCPtrKeeper&) = delete;

    /// Registers a pointer. Returns its handle: 1, 2, 3, ... in order, never used again; 0, which
    /// is no handle, when memory is short.
    long Add(void* ptr, int type, long long data);

    /// Takes the keeper's lock and returns the entry, which may be changed until Unlock. Never
    /// null: an unknown handle gets a new entry of null, 0 and 0 that stays until its Delete, or
    /// until Add gives that handle.
    Value_t* GetAndLock(long handle);

    /// Gives the lock back; the handle does not matter.
    void Unlock(long handle);

    /// Forgets the handle. What it pointed to is the caller's to free.
    void Delete(long handle);

  private:
    long m_nNextHandle;  // guarded, like the map, by m_hMutex
    arch_mutex_t m_hMutex;
    std::map<long, Value_t> m_values;
};

#endif
