#include "hybase/hcutil/HCLazyDelete.h"

#include <stdint.h>

#include <chrono>
#include <new>
#include <thread>

#include "hybase/hcutil/HCMutex.h"

namespace {

constexpr char kThreadName[32] = "GarbageCollector";
constexpr int32_t kPollPeriodUs = 500000;
constexpr int kMinDelaySec = 1;
constexpr int kMaxDelaySec = 1000;
constexpr int kBadDelay = -3;
constexpr int32_t kInitialCapacity = 64;

struct PendingItem {
    HCLazyDelItem* item;
    int32_t left_us;
};

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(PendingItem) == 8 && sizeof(HCLazyDelete) == 64 && sizeof(HCMutex) == 8);
#endif

}  // namespace

HCLazyDelItem::~HCLazyDelItem() = default;

HCLazyDelete* HCLazyDelete::instance() {
    // Never deleted: objects may still be handed over while the process ends.
    static HCLazyDelete* const collector = new (std::nothrow) HCLazyDelete;
    return collector;
}

HCLazyDelete::HCLazyDelete()
    : HCThread(kThreadName, false, nullptr),
      m_pPending(nullptr),
      m_bRun(true),
      m_hMutex(arch_mutex_create()) {
    // Without a mutex there is no list either: AddItem then refuses everything.
    if (m_hMutex != nullptr) m_pPending = HVector_Create(sizeof(PendingItem), kInitialCapacity);
    StartThread();
}

HCLazyDelete::~HCLazyDelete() {
    m_bRun = false;
    Join(nullptr);
    HVector_Destroy(m_pPending);
    arch_mutex_delete(m_hMutex);
}

int HCLazyDelete::AddItem(HCLazyDelItem* item, int delaySec) {
    if (delaySec < kMinDelaySec || delaySec > kMaxDelaySec) return kBadDelay;
    PendingItem entry = {item, delaySec * 1000000};
    HCMutex lock(m_hMutex);
    return HVector_Append(m_pPending, &entry);
}

void* HCLazyDelete::OnThread(void*) {
    while (m_bRun) {
        std::this_thread::sleep_for(std::chrono::microseconds(kPollPeriodUs));
        DeleteDue();
    }
    return nullptr;
}

// One poll. Items are deleted with the mutex held, so none is added in the middle of a pass.
void HCLazyDelete::DeleteDue() {
    HCMutex lock(m_hMutex);
    // Downwards, so that removing an entry leaves the indexes still to come valid.
    for (int32_t i = HVector_Cnt(m_pPending) - 1; i >= 0; i--) {
        auto* entry = static_cast<PendingItem*>(HVector_At(m_pPending, i));
        entry->left_us -= kPollPeriodUs;
        if (entry->left_us >= 1) continue;
        delete entry->item;
        HVector_Del(m_pPending, i);
    }
}
