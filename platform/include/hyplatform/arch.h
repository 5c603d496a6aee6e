/**
 * @file
 * @ingroup arch
 * What the library asks of the system: mutexes, threads, clocks, random bytes.
 */

/**
 * @addtogroup arch
 * What the library asks of the system: mutexes, threads, clocks, random bytes.
 *
 * libhyplatform.so is the implementation for Linux. A device maker may put another one in its place
 * (CMake: `-DHYBASE_PLATFORM=<target>`); hybase itself calls nothing but what stands here. A
 * program that defines one of these functions itself takes it over, hybase's calls included; tests
 * use that to hold the clock in their hands.
 *
 * @par Results
 * Handles are pointers, null on failure; functions with an int result give 0 for success and -1 (or
 * a negative errno value where said so) for failure.
 *
 * @par Threads
 * Every function may be called by any thread.
 * @{
 */
#ifndef HYPLATFORM_ARCH_H
#define HYPLATFORM_ARCH_H

#include <hyplatform/abi.h>
#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Marks a function as part of the interface of libhyplatform.so. */
#define HYPLATFORM_API __attribute__((visibility("default")))

/**
 * @name Mutexes
 * Not recursive.
 * @{
 */

/**
 * A mutex, not recursive. Many threads behind one mutex get it in the order in which they came,
 * where the kernel can do that (CONFIG_FUTEX_PI): no connection of many waits much longer than the
 * others.
 */
typedef struct arch_mutex_s* arch_mutex_t;

/** A new, unlocked mutex, to be given to arch_mutex_delete(); null when memory is short. */
HYPLATFORM_API arch_mutex_t arch_mutex_create(void);

/** Waits until the mutex is had. 0, or -1 for a null handle or a misuse that the system noticed. */
HYPLATFORM_API int arch_mutex_lock(arch_mutex_t mutex);

/** Gives the mutex back; only the thread that locked it may. Results as of arch_mutex_lock(). */
HYPLATFORM_API int arch_mutex_unlock(arch_mutex_t mutex);

/** Frees a mutex that nobody holds or waits for. Results as of arch_mutex_lock(). */
HYPLATFORM_API int arch_mutex_delete(arch_mutex_t mutex);
/** @} */

/**
 * @name Threads
 * @{
 */

/**
 * A thread. Threads inherit the signal mask of their creator and have a stack of
 * HYBASE_THREAD_STACK_KIB KiB (a build setting, default 256, at least 160): a 32-bit process can
 * hold hundreds.
 */
typedef struct arch_thread_s* arch_thread_t;

/**
 * Runs entry(arg) on a new thread. `name` is what ps and a debugger show: its first 15 characters,
 * which need no terminator (a null name stands for the empty one). The handle must be given to
 * arch_thread_join() exactly once. Null when `entry` is null or the thread cannot be had; entry is
 * then never called.
 */
HYPLATFORM_API arch_thread_t arch_thread_create(const char* name, void* (*entry)(void*), void* arg);

/**
 * As arch_thread_create(), for a thread that nobody waits for. The result only tells that the
 * thread was started: what it points to is freed by the thread itself and must not be used.
 */
HYPLATFORM_API arch_thread_t arch_thread_create_detached(const char* name, void* (*entry)(void*),
                                                         void* arg);

/**
 * Waits until the thread has ended, stores its exit value in `*retval` unless `retval` is null, and
 * frees the handle. -1 for a null handle.
 */
HYPLATFORM_API int arch_thread_join(arch_thread_t thread, void** retval);

/** Names the calling thread; the first 15 characters count. -1 for a null name. */
HYPLATFORM_API int arch_thread_setname(const char* name);
/** @} */

/**
 * @name Clocks
 * @{
 */

/** Wall-clock seconds since 1970. May jump in either direction. */
HYPLATFORM_API time_t arch_time(void);

/** Wall-clock microseconds since 1970. May jump in either direction. */
HYPLATFORM_API int64_t arch_gettimeofday(void);

/** Milliseconds since the system started, suspended time included. Never goes back. */
HYPLATFORM_API int64_t arch_getSystemStartupMs(void);

/**
 * As localtime_r(3): fills `*out` and returns it, null when the year does not fit.
 */
HYPLATFORM_API struct tm* arch_localtime_r(const time_t* seconds, struct tm* out);

/** As gmtime_r(3): the same in UTC. */
HYPLATFORM_API struct tm* arch_gmtime_r(const time_t* seconds, struct tm* out);
/** @} */

/**
 * @name Random bytes
 * @{
 */

/**
 * Fills `buf[0..len-1]` with bytes fit for keys, getrandom(2). Returns 0; -1 for a null buffer, a
 * negative length or when the system has none to give; the buffer is then not to be used.
 */
HYPLATFORM_API int arch_rand_bytes(void* buf, int len);
/** @} */

#ifdef __cplusplus
}
#endif

/** @} */

#endif
