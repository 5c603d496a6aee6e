#include <pthread.h>

#include <new>

#include "hyplatform/arch.h"

struct arch_mutex_s {
    pthread_mutex_t mutex;
};

arch_mutex_t arch_mutex_create(void) {
    auto* handle = new (std::nothrow) arch_mutex_s;
    if (handle == nullptr) return nullptr;
    if (pthread_mutex_init(&handle->mutex, nullptr) != 0) {
        delete handle;
        return nullptr;
    }
    return handle;
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
