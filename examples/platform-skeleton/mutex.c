/* Mutexes: those of the system, handed to whoever has waited longest. */
#include <hyplatform/arch.h>
#include <pthread.h>
#include <stdlib.h>

struct arch_mutex_s {
    pthread_mutex_t mutex;
};

/* Without CONFIG_FUTEX_PI the kernel cannot hand over; an ordinary mutex does then. */
static int init(pthread_mutex_t* mutex) {
    pthread_mutexattr_t attr;
    if (pthread_mutexattr_init(&attr) != 0) return -1;
    pthread_mutexattr_setprotocol(&attr, PTHREAD_PRIO_INHERIT);
    int result = pthread_mutex_init(mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    return result == 0 ? 0 : pthread_mutex_init(mutex, NULL);
}

arch_mutex_t arch_mutex_create(void) {
    arch_mutex_t handle = malloc(sizeof *handle);
    if (handle == NULL || init(&handle->mutex) == 0) return handle;
    free(handle);
    return NULL;
}

int arch_mutex_lock(arch_mutex_t mutex) {
    return mutex != NULL && pthread_mutex_lock(&mutex->mutex) == 0 ? 0 : -1;
}

int arch_mutex_unlock(arch_mutex_t mutex) {
    return mutex != NULL && pthread_mutex_unlock(&mutex->mutex) == 0 ? 0 : -1;
}

int arch_mutex_delete(arch_mutex_t mutex) {
    if (mutex == NULL) return -1;
    int result = pthread_mutex_destroy(&mutex->mutex) == 0 ? 0 : -1;
    free(mutex);
    return result;
}
