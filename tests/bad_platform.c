/*
 * Platform libraries with one fault each, chosen by -DFAULT_NAME, for the test of hyplatform-check.
 * What a fault leaves alone is found in libhyplatform, which all but one are linked with.
 */
#include <dlfcn.h>
#include <hyplatform/arch.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>

/* The sound function of libhyplatform. */
#define REAL(name) (__extension__(__typeof__(&name)) dlsym(RTLD_NEXT, #name))

#if defined(FAULT_LOCKS_NOBODY_OUT)
int arch_mutex_lock(arch_mutex_t mutex) { return mutex != NULL ? 0 : -1; }
int arch_mutex_unlock(arch_mutex_t mutex) { return mutex != NULL ? 0 : -1; }

#elif defined(FAULT_KEEPS_LOCKED)
int arch_mutex_unlock(arch_mutex_t mutex) { return mutex != NULL ? 0 : -1; }

#elif defined(FAULT_CLOCK_GOES_BACK)
int64_t arch_getSystemStartupMs(void) {
    static int calls;
    return REAL(arch_getSystemStartupMs)() - (++calls % 1000 == 0 ? 5 : 0);
}

#elif defined(FAULT_RANDOM_IS_FORKED)
/* Seeded well, once: a forked process goes on with the same numbers. */
int arch_rand_bytes(void* buf, int len) {
    static __thread uint64_t state;
    unsigned char* out = buf;
    if (buf == NULL || len < 0) return -1;
    if (state == 0 && getrandom(&state, sizeof state, 0) != sizeof state) return -1;
    for (int i = 0; i < len; ++i) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        out[i] = (unsigned char)(state >> 56);
    }
    return 0;
}

#elif defined(FAULT_LOSES_EXIT_VALUE)
int arch_thread_join(arch_thread_t thread, void** retval) {
    (void)retval;
    return REAL(arch_thread_join)(thread, NULL);
}

#elif defined(FAULT_READS_NAME_TO_ITS_END)
int arch_thread_setname(const char* name) {
    char kept[16] = "";
    if (name == NULL) return -1;
    size_t length = 0;
    while (*(const volatile char*)(name + length) != '\0') ++length;
    memcpy(kept, name, length < 15 ? length : 15);
    return pthread_setname_np(pthread_self(), kept) == 0 ? 0 : -1;
}

#elif defined(FAULT_LEAVES_STACKS)
arch_thread_t arch_thread_create_detached(const char* name, void* (*entry)(void*), void* arg) {
    return REAL(arch_thread_create)(name, entry, arg);
}

#elif defined(FAULT_STARTS_NOTHING)
static void* nothing(void* arg) { return arg; }
arch_thread_t arch_thread_create(const char* name, void* (*entry)(void*), void* arg) {
    return REAL(arch_thread_create)(name, entry != NULL ? entry : nothing, arg);
}

#elif defined(FAULT_IS_NOT_COMPLETE)
/* Linked with nothing: these are all it has. */
arch_mutex_t arch_mutex_create(void) { return malloc(1); }
time_t arch_time(void) { return time(NULL); }
#endif
