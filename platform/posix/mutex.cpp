#include <errno.h>
#include <linux/futex.h>
#include <pthread.h>
#include <stdint.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <new>

#include "hyplatform/arch.h"

struct arch_mutex_s {
    pthread_mutex_t mutex;
};

namespace {

// Whether the kernel knows mutexes with priority inheritance (CONFIG_FUTEX_PI): giving one back
// that is not held is refused then, and unknown otherwise.
bool HasPriorityInheritance() {
    uint32_t word = 0;
    const long result =
        syscall(SYS_futex, &word, FUTEX_UNLOCK_PI | FUTEX_PRIVATE_FLAG, 0, nullptr, nullptr, 0);
    return result == 0 || errno != ENOSYS;
}

// Mutexes with priority inheritance are handed to whoever has waited longest. An ordinary one goes
// to whoever comes by first: with 200 connections behind one mutex single calls then wait for more
// than a tenth of a second, where all others take milliseconds.
bool Init(pthread_mutex_t* mutex) {
    static const bool fair = HasPriorityInheritance();
    pthread_mutexattr_t attr;
    if (pthread_mutexattr_init(&attr) != 0) return false;
    if (fair) pthread_mutexattr_setprotocol(&attr, PTHREAD_PRIO_INHERIT);
    const bool done = pthread_mutex_init(mutex, &attr) == 0;
    pthread_mutexattr_destroy(&attr);
    return done;
}

}  // namespace

arch_mutex_t arch_mutex_create(void) {
    auto* handle = new (std::nothrow) arch_mutex_s;
    if (handle == nullptr || Init(&handle->mutex)) return handle;
    delete handle;
    return nullptr;
}

int arch_mutex_lock(arch_mutex_t mutex) {
    if (mutex == nullptr) return -1;
    return pthread_mutex_lock(&mutex->mutex) == 0 ? 0 : -1;
}

int arch_mutex_unlock(arch_mutex_t mutex) {
    if (mutex == nullptr) return -1;
    return pthread_mutex_unlock(&mutex->mutex) == 0 ? 0 : -1;
}

int arch_mutex_delete(arch_mutex_t mutex) {
    if (mutex == nullptr) return -1;
    int result = pthread_mutex_destroy(&mutex->mutex) == 0 ? 0 : -1;
    delete mutex;
    return result;
}
