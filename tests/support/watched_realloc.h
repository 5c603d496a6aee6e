// Takes realloc over for the whole program: watches blocks grow and refuses them on demand.
// To be included by one file of a program.
#ifndef HYBASE_TESTS_WATCHED_REALLOC_H
#define HYBASE_TESTS_WATCHED_REALLOC_H

#include <dlfcn.h>
#include <stddef.h>

// Of the calling thread: the bytes it asked for last, and whether it is refused.
inline thread_local size_t realloc_bytes;
inline thread_local bool realloc_refuses;

// Not instrumented, no guarded static: threads that are not fully set up yet come here as well.
extern "C" __attribute__((visibility("default"), no_sanitize("thread"))) void* realloc(
    void* block, size_t bytes) noexcept {
    static void* real;
    if (real == nullptr) real = dlsym(RTLD_NEXT, "realloc");
    realloc_bytes = bytes;
    if (realloc_refuses) return nullptr;
    return reinterpret_cast<decltype(&realloc)>(real)(block, bytes);
}

#endif
