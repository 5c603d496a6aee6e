// Takes operator new over for the whole program: memory is refused while the flag is set.
// To be included by one file of a program.
#ifndef HYBASE_TESTS_REFUSED_NEW_H
#define HYBASE_TESTS_REFUSED_NEW_H

#include <stdlib.h>

#include <new>

inline bool refuse_new;

#define HYBASE_REPLACEMENT __attribute__((visibility("default"), noinline))

HYBASE_REPLACEMENT void* operator new(size_t size) {
    void* block = refuse_new ? nullptr : malloc(size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
HYBASE_REPLACEMENT void operator delete(void* block) noexcept { free(block); }
HYBASE_REPLACEMENT void operator delete(void* block, size_t) noexcept { free(block); }

#undef HYBASE_REPLACEMENT

#endif
