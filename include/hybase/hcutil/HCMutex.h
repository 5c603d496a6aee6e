/// @file
/// @ingroup runtime
/// A scoped lock over a platform mutex.
#ifndef HYBASE_HCUTIL_HCMUTEX_H
#define HYBASE_HCUTIL_HCMUTEX_H

#include <hybase/export.h>
#include <hyplatform/arch.h>

/// A scoped lock over a platform mutex.
///
///     HCMutex lock(m_hMutex);   // locked until the end of the block, on every way out of it
///
/// For the stack only. It neither creates nor deletes the mutex; whoever owns that does.
///
/// @ingroup runtime
class HYBASE_API HCMutex {
  public:
    /// Blocks until the mutex is had. Not recursive: the thread must not hold it already.
    explicit HCMutex(arch_mutex_t mutex) : m_hMutex(mutex) { arch_mutex_lock(m_hMutex); }

    /// Gives the mutex back.
    virtual ~HCMutex() { arch_mutex_unlock(m_hMutex); }
    HCMutex(const HCMutex&) = delete;  ///< not to be copied
    HCMutex& operator=(const HCMutex&) = delete;

  private:
    arch_mutex_t m_hMutex;
};

#endif
