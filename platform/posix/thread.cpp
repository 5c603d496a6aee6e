#include <pthread.h>
#include <string.h>

#include <new>

#include "hyplatform/arch.h"

namespace {
constexpr size_t kStackBytes = HYBASE_THREAD_STACK_KIB * 1024UL;
constexpr size_t kNameCapacity = 16;  // TASK_COMM_LEN of the kernel, with the terminator
}  // namespace

struct arch_thread_s {
    pthread_t thread;
    void* (*entry)(void*);
    void* arg;
    bool detached;
    char name[kNameCapacity];
};

namespace {

// Names may come as 32-byte blocks without a terminator, so no more than what is kept is read.
void CopyName(char (&out)[kNameCapacity], const char* name) {
    size_t length = strnlen(name, kNameCapacity - 1);
    memcpy(out, name, length);
    out[length] = '\0';
}

void* RunThread(void* param) {
    auto* handle = static_cast<arch_thread_s*>(param);
    pthread_setname_np(pthread_self(), handle->name);
    auto* entry = handle->entry;
    void* arg = handle->arg;
    // Nobody joins a detached thread, so it frees its handle; its creator never looks at it again.
    if (handle->detached) delete handle;
    return entry(arg);
}

bool Launch(arch_thread_s* handle, pthread_t* thread) {
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) return false;
    pthread_attr_setstacksize(&attr, kStackBytes);
    if (handle->detached) pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    bool started = pthread_create(thread, &attr, RunThread, handle) == 0;
    pthread_attr_destroy(&attr);
    return started;
}

arch_thread_t Create(const char* name, void* (*entry)(void*), void* arg, bool detached) {
    if (entry == nullptr) return nullptr;
    auto* handle = new (std::nothrow) arch_thread_s;
    if (handle == nullptr) return nullptr;
    handle->entry = entry;
    handle->arg = arg;
    handle->detached = detached;
    CopyName(handle->name, name != nullptr ? name : "");

    pthread_t thread;
    if (!Launch(handle, &thread)) {
        delete handle;
        return nullptr;
    }
    // A detached thread may have freed the handle by now.
    if (!detached) handle->thread = thread;
    return handle;
}

}  // namespace

arch_thread_t arch_thread_create(const char* name, void* (*entry)(void*), void* arg) {
    return Create(name, entry, arg, false);
}

arch_thread_t arch_thread_create_detached(const char* name, void* (*entry)(void*), void* arg) {
    return Create(name, entry, arg, true);
}

int arch_thread_join(arch_thread_t thread, void** retval) {
    if (thread == nullptr) return -1;
    int result = pthread_join(thread->thread, retval) == 0 ? 0 : -1;
    delete thread;
    return result;
}

int arch_thread_setname(const char* name) {
    if (name == nullptr) return -1;
    char kept[kNameCapacity];
    CopyName(kept, name);
    return pthread_setname_np(pthread_self(), kept) == 0 ? 0 : -1;
}
