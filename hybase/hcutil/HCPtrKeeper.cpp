#include "hybase/hcutil/HCPtrKeeper.h"

#include <stddef.h>
#include <stdint.h>

#include <new>

#include "hybase/hcutil/HCMutex.h"

#if UINTPTR_MAX == UINT32_MAX
using Value_t = HCPtrKeeper::Value_t;
static_assert(offsetof(Value_t, type) == 4 && offsetof(Value_t, data) == 8 &&
              sizeof(Value_t) == 16);
#endif

HCPtrKeeper::HCPtrKeeper() : m_nNextHandle(1), m_hMutex(arch_mutex_create()) {}

HCPtrKeeper::~HCPtrKeeper() { arch_mutex_delete(m_hMutex); }

long HCPtrKeeper::Add(void* ptr, int type, long long data) {
    HCMutex lock(m_hMutex);
    long handle = m_nNextHandle;
    try {
        m_values[handle] = {ptr, type, data};
    } catch (const std::bad_alloc&) {
        return 0;
    }
    // Through unsigned, so that the highest handle wraps instead of overflowing.
    m_nNextHandle = static_cast<long>(static_cast<unsigned long>(handle) + 1);
    return handle;
}

HCPtrKeeper::Value_t* HCPtrKeeper::GetAndLock(long handle) {
    arch_mutex_lock(m_hMutex);
    try {
        return &m_values[handle];
    } catch (const std::bad_alloc&) {
        // Not registered, and no memory to keep that in mind: this thread gets an entry to look at.
        static thread_local Value_t unknown;
        unknown = {};
        return &unknown;
    }
}

void HCPtrKeeper::Unlock(long) { arch_mutex_unlock(m_hMutex); }

void HCPtrKeeper::Delete(long handle) {
    HCMutex lock(m_hMutex);
    m_values.erase(handle);
}
