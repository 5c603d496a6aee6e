/// @file
/// @ingroup runtime
/// Deletes objects some seconds after they were given up, so that threads which still hold a
/// pointer obtained just before do not touch freed memory.
#ifndef HYBASE_HCUTIL_HCLAZYDELETE_H
#define HYBASE_HCUTIL_HCLAZYDELETE_H

#include <hybase/export.h>
#include <hybase/hcutil/HCThread.h>
#include <hybase/hvector.h>

#include <atomic>

/// @ingroup runtime
/// What can be deleted late. The destructor runs on the collector's thread with the collector's
/// mutex held: it must not call HCLazyDelete::AddItem(), and it should be quick.
class HYBASE_API HCLazyDelItem {
  public:
    virtual ~HCLazyDelItem();  ///< on the collector's thread, if it comes to that
};

/// Deletes objects some seconds after they were given up, so that threads which still hold a
/// pointer obtained just before do not touch freed memory.
///
/// One collector serves the whole process. Its thread, "GarbageCollector", looks at the pending
/// items twice a second.
///
/// @ingroup runtime
class HYBASE_API HCLazyDelete : public HCThread {
  public:
    /// The collector, created and started by the first call; any thread may be first. It lives
    /// until the process ends. Null when there was no memory for it.
    static HCLazyDelete* instance();

    /// Joins the thread (half a second at most). Items still pending are not deleted. The library
    /// never calls this for the instance.
    ~HCLazyDelete() override;

    /// Hands the item over, to be deleted at the 2 * delaySec-th look from now: that is delaySec -
    /// 0.5 to delaySec seconds (1..1000) from now. A null item is accepted and dropped. Returns 0;
    /// -3 for a delay out of range, -4 or -6 when memory is short: the item is then still the
    /// caller's. Any thread; takes m_hMutex.
    int AddItem(HCLazyDelItem* item, int delaySec);

    /// The collector's thread.
    void* OnThread(void* userdata) override;

  private:
    HCLazyDelete();  // starts the thread at once, so nothing may derive from this class
    void DeleteDue();

    HVector* m_pPending;  // guarded by m_hMutex
    std::atomic<bool> m_bRun;
    arch_mutex_t m_hMutex;
};

#endif
