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
    // How the Itanium C++ ABI and its ARM variant lay out a pointer to a member function.
    struct {
        uintptr_t function;
        intptr_t adjustment;
    } pointer;
    static_assert(sizeof pointer == sizeof method, "a pointer to a member function");
    memcpy(&pointer, &method, sizeof pointer);
#if defined(__arm__) || defined(__aarch64__)
    const bool is_virtual = pointer.adjustment & 1;
    const uintptr_t offset = pointer.function;
#else
    const bool is_virtual = pointer.function & 1;
    const uintptr_t offset = pointer.function - 1;
#endif
    return is_virtual ? static_cast<int>(offset / sizeof(void*)) : -1;
}

#endif
