// Where a virtual function stands in the table of its class. Programs built against an older
// library call through these numbers, so the order of virtual functions is part of the interface.
#ifndef HYBASE_TESTS_VTABLE_SLOTS_H
#define HYBASE_TESTS_VTABLE_SLOTS_H

#include <stdint.h>
#include <string.h>

// The slot of `method` (&HCSocket::Connect), -1 if it is not virtual. A virtual destructor takes
// two slots and has no pointer: the slots it leaves free tell where it stands. For a method
// inherited from a second base this is the slot in that base's own table.
template <class Method>
int VtableSlot(Method method) {
    // How the Itanium C++ ABI lays out a pointer to a member function. The mark of a virtual one is
    // an odd function word, on ARM an odd adjustment.
    uintptr_t words[2];
    static_assert(sizeof words == sizeof method, "a pointer to a member function");
    memcpy(words, &method, sizeof words);
#if defined(__arm__) || defined(__aarch64__)
    return words[1] & 1 ? static_cast<int>(words[0] / sizeof(void*)) : -1;
#else
    return words[0] & 1 ? static_cast<int>((words[0] - 1) / sizeof(void*)) : -1;
#endif
}

#endif
