/* Threads with a name and a bounded stack. */
#include <hyplatform/arch.h>
#include <pthread.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
enum { STACK_BYTES = 1024 * 1024 }; /* instrumented code takes more */
#else
enum { STACK_BYTES = 256 * 1024 };
#endif
enum { NAME_CAPACITY = 16 }; /* of the kernel, with the terminator */

struct arch_thread_s {
    pthread_t thread;
    void* (*entry)(void*);
    void* arg;
    bool detached;
    char name[NAME_CAPACITY];
};

/* A name may be an array of 32 bytes without a terminator: no more than what is kept is read. */
static void copy_name(char out[NAME_CAPACITY], const char* name) {
    size_t length = strnlen(name, NAME_CAPACITY - 1);
    memcpy(out, name, length);
    out[length] = '\0';
}

/* Nobody joins a detached thread: it frees its handle itself. */
static void* run(void* param) {
    arch_thread_t handle = param;
    void* (*entry)(void*) = handle->entry;
    void* arg = handle->arg;
    pthread_setname_np(pthread_self(), handle->name);
    if (handle->detached) free(handle);
    return entry(arg);
}

static int launch(arch_thread_t handle, pthread_t* thread) {
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) return -1;
    pthread_attr_setstacksize(&attr, STACK_BYTES);
    if (handle->detached) pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    int result = pthread_create(thread, &attr, run, handle);
    pthread_attr_destroy(&attr);
    return result;
}

static arch_thread_t create(const char* name, void* (*entry)(void*), void* arg, bool detached) {
    arch_thread_t handle = entry != NULL ? malloc(sizeof *handle) : NULL;
    if (handle == NULL) return NULL;
    handle->entry = entry;
    handle->arg = arg;
    handle->detached = detached;
    copy_name(handle->name, name != NULL ? name : "");
    pthread_t thread;
    if (launch(handle, &thread) != 0) {
        free(handle);
        return NULL;
    }
    /* A detached thread may have freed the handle by now. */
    if (!detached) handle->thread = thread;
    return handle;
}

arch_thread_t arch_thread_create(const char* name, void* (*entry)(void*), void* arg) {
    return create(name, entry, arg, false);
}

arch_thread_t arch_thread_create_detached(const char* name, void* (*entry)(void*), void* arg) {
    return create(name, entry, arg, true);
}

int arch_thread_join(arch_thread_t thread, void** retval) {
    if (thread == NULL) return -1;
    int result = pthread_join(thread->thread, retval) == 0 ? 0 : -1;
    free(thread);
    return result;
}

int arch_thread_setname(const char* name) {
    char kept[NAME_CAPACITY];
    if (name == NULL) return -1;
    copy_name(kept, name);
    return pthread_setname_np(pthread_self(), kept) == 0 ? 0 : -1;
}
