/// @file
/// @ingroup runtime
/// Base of every object that owns one worker thread.
#ifndef HYBASE_HCUTIL_HCTHREAD_H
#define HYBASE_HCUTIL_HCTHREAD_H

#include <hybase/export.h>
#include <hyplatform/arch.h>

/// Base of every object that owns one worker thread.
///
/// A derived class overrides OnThread() and is started with StartThread(). Its destructor has a
/// duty: it makes the thread leave OnThread() and calls Join() before anything that OnThread() uses
/// goes away. The base's own destructor joins too, but by then the derived part is gone.
///
///     class Pump : public HCThread {
///       public:
///         Pump() : HCThread(kName, false, nullptr) {}      // const char kName[32] = "Pump";
///         ~Pump() override { m_bRun = false; Join(nullptr); }
///         void* OnThread(void*) override { while (m_bRun) ...; return nullptr; }
///
/// @par Threads
/// StartThread(), Join() and the destructor belong to one thread, the owner's.
///
/// @ingroup runtime
class HYBASE_API HCThread {
  public:
    /// `name`: exactly 32 bytes are copied as a block, so it must be readable that far whatever its
    /// text; null stands for the empty name. `detached`: nobody will join the thread, and the
    /// object must outlive its OnThread(). `userdata` is handed to OnThread(). The thread is not
    /// started yet.
    HCThread(const char* name, bool detached, void* userdata);

    /// Joins the thread, too late for a derived class: see above.
    virtual ~HCThread();
    HCThread(const HCThread&) = delete;  ///< not to be copied
    HCThread& operator=(const HCThread&) = delete;

    /// The thread body, running on the new thread; what it returns is the thread's exit value.
    virtual void* OnThread(void* userdata);

    /// Starts the thread; also again after a Join. Returns its handle (only a sign of success for a
    /// detached one), null when the system gives no thread. Nothing guards against starting twice:
    /// the first thread is then never joined.
    arch_thread_t StartThread();

    /// Waits for the thread's end and stores its exit value in `*retval` unless that is null.
    /// Returns at once, without touching `*retval`, for a detached thread, one not started, or one
    /// joined before.
    void Join(void** retval);

    /// What the platform starts: `arg` is the HCThread.
    static void* __thread_func(void* arg);

  protected:
    arch_thread_t m_hThread;  ///< null while no thread is held
    bool m_bDetached;         ///< nobody joins the thread
    void* m_pUserdata;        ///< for OnThread()
    bool m_bJoined;           ///< Join was called since the last start
    char m_szName[32];        ///< what ps shows; not terminated when 32 characters were given
};

#endif
