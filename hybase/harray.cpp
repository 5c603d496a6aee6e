#include "hybase/harray.h"

#include <stdlib.h>
#include <string.h>

namespace {

constexpr int32_t kBadIndex = -1;
constexpr uint32_t kStackItemBytes = 256;  // items smaller than this are exchanged without the heap

unsigned char* Slot(void* base, uint32_t item_size, int32_t index) {
    return static_cast<unsigned char*>(base) + static_cast<size_t>(index) * item_size;
}

void ExchangeThrough(void* spare, void* a, void* b, uint32_t item_size) {
    memcpy(spare, a, item_size);
    memcpy(a, b, item_size);
    memcpy(b, spare, item_size);
}

}  // namespace

int32_t HArray_Insert(void* base, int32_t* count, uint32_t item_size, int32_t index,
                      const void* item) {
    if (base == nullptr || count == nullptr || item == nullptr) return kBadIndex;
    if (index < 0 || *count < index || *count == INT32_MAX) return kBadIndex;

    unsigned char* slot = Slot(base, item_size, index);
    unsigned char* end = Slot(base, item_size, *count);
    memmove(slot + item_size, slot, static_cast<size_t>(end - slot));

    // An item that is itself one of those moved now stands one slot higher.
    auto from = reinterpret_cast<uintptr_t>(item);
    bool moved =
        from >= reinterpret_cast<uintptr_t>(slot) && from < reinterpret_cast<uintptr_t>(end);
    memmove(slot, static_cast<const unsigned char*>(item) + (moved ? item_size : 0), item_size);
    ++*count;
    return 0;
}

int32_t HArray_Remove(void* base, int32_t* count, uint32_t item_size, int32_t index) {
    if (base == nullptr || count == nullptr) return kBadIndex;
    if (index < 0 || *count <= index) return kBadIndex;

    unsigned char* slot = Slot(base, item_size, index);
    unsigned char* last = Slot(base, item_size, *count - 1);
    memmove(slot, slot + item_size, static_cast<size_t>(last - slot));
    memset(last, 0, item_size);
    --*count;
    return 0;
}

int32_t HArray_Exchange(void* base, uint32_t item_size, int32_t a, int32_t b) {
    if (base == nullptr || a < 0 || b < 0 || a == b) return 0;
    unsigned char* first = Slot(base, item_size, a);
    unsigned char* second = Slot(base, item_size, b);

    if (item_size < kStackItemBytes) {
        unsigned char spare[kStackItemBytes];
        ExchangeThrough(spare, first, second, item_size);
        return 0;
    }
    void* spare = malloc(item_size);
    if (spare == nullptr) return 0;  // deliberately no error: the items just stay where they are
    ExchangeThrough(spare, first, second, item_size);
    free(spare);
    return 0;
}
