#include "hybase/hcutil/HCThread.h"

#include <stdint.h>
#include <string.h>

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(HCThread) == 52);
#endif

HCThread::HCThread(const char* name, bool detached, void* userdata)
    : m_hThread(nullptr),
      m_bDetached(detached),
      m_pUserdata(userdata),
      m_bJoined(false),
      m_szName{} {
    if (name != nullptr) memcpy(m_szName, name, sizeof m_szName);
}

HCThread::~HCThread() { Join(nullptr); }

void* HCThread::OnThread(void*) { return nullptr; }

arch_thread_t HCThread::StartThread() {
    m_bJoined = false;
    auto create = m_bDetached ? arch_thread_create_detached : arch_thread_create;
    m_hThread = create(m_szName, __thread_func, this);
    return m_hThread;
}

void HCThread::Join(void** retval) {
    if (m_bJoined || m_bDetached) return;
    m_bJoined = true;
    if (m_hThread == nullptr) return;
    arch_thread_join(m_hThread, retval);
    m_hThread = nullptr;
}

void* HCThread::__thread_func(void* arg) {
    auto* thread = static_cast<HCThread*>(arg);
    return thread->OnThread(thread->m_pUserdata);
}
