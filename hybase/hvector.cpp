#include "hybase/hvector.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "hybase/harray.h"
#include "hybase/print.h"

struct HVector {
    int32_t capacity;
    int32_t count;
    uint32_t item_size;
    unsigned char* data;
    // What `data` really holds. Smaller than `capacity` after a growth that failed, else the same.
    int32_t slots;
};

#if UINTPTR_MAX == UINT32_MAX
static_assert(offsetof(HVector, count) == 4 && offsetof(HVector, item_size) == 8 &&
              offsetof(HVector, data) == 12);
#endif

namespace {

constexpr int32_t kNotFound = -1;
constexpr int32_t kBadIndex = -3;
constexpr int32_t kNoMemory = -4;
constexpr int32_t kNullHandle = -6;
constexpr int32_t kBadIndexOfSetAt = -11;
constexpr int32_t kDefaultCapacity = 8;

// Bytes of a block; false when a size_t cannot hold them, *bytes then has their low part.
bool BlockBytes(int32_t capacity, uint32_t item_size, size_t* bytes) {
    return !__builtin_mul_overflow(static_cast<size_t>(capacity), item_size, bytes);
}

// An empty block is still a block: malloc(0) may be null, and realloc to 0 bytes frees.
size_t AtLeastOne(size_t bytes) { return bytes != 0 ? bytes : 1; }

bool HasIndex(const HVector* vector, int32_t index) { return index >= 0 && index < vector->count; }

unsigned char* Slot(const HVector* vector, int32_t index) {
    return vector->data + static_cast<size_t>(index) * vector->item_size;
}

struct TwoWords {
    uint64_t first, second;
    bool operator==(const TwoWords& other) const {
        return first == other.first && second == other.second;
    }
};

template <typename Word>
Word LoadWord(const void* from) {
    Word word;
    memcpy(&word, from, sizeof word);
    return word;
}

template <typename Word>
void StoreWord(void* to, Word word) {
    memcpy(to, &word, sizeof word);
}

// The usual sizes are moved through registers instead of by a call. Slot and item may overlap.
inline void CopyItem(void* slot, const void* item, uint32_t item_size) {
    switch (item_size) {
        case sizeof(uint32_t):
            return StoreWord(slot, LoadWord<uint32_t>(item));
        case sizeof(uint64_t):
            return StoreWord(slot, LoadWord<uint64_t>(item));
        case sizeof(TwoWords): {
            auto words = LoadWord<TwoWords>(item);
            // Not joined into one wide load: that would wait until the words of an item which its
            // owner has just filled in have reached the cache, and double the time of an append.
            asm("" : "+r"(words.first), "+r"(words.second));
            return StoreWord(slot, words);
        }
        default:
            memmove(slot, item, item_size);
    }
}

// Out of line: adding an item comes here once in a doubling.
__attribute__((noinline)) bool Grow(HVector* vector) {
    if (vector->count >= vector->capacity) {
        if (vector->capacity > INT32_MAX / 2) return false;
        // Set before the block is had, and deliberately kept when it cannot be had.
        vector->capacity *= 2;
    }
    size_t bytes;
    if (!BlockBytes(vector->capacity, vector->item_size, &bytes)) return false;
    void* data = realloc(vector->data, AtLeastOne(bytes));
    if (data == nullptr) return false;
    vector->data = static_cast<unsigned char*>(data);
    vector->slots = vector->capacity;
    return true;
}

// Makes room for one more item. *item follows the block when it points into it and the block moves.
bool MakeRoom(HVector* vector, const void** item) {
    uintptr_t offset =
        reinterpret_cast<uintptr_t>(*item) - reinterpret_cast<uintptr_t>(vector->data);
    bool own = offset < static_cast<size_t>(vector->slots) * vector->item_size;
    if (!Grow(vector)) return false;
    if (own) *item = vector->data + offset;
    return true;
}

__attribute__((noinline)) int32_t AppendGrowing(HVector* vector, const void* item) {
    if (!MakeRoom(vector, &item)) return kNoMemory;
    return HVector_Append(vector, item);
}

HVector* NewVector(uint32_t item_size, int32_t capacity) {
    auto* vector = static_cast<HVector*>(malloc(sizeof(HVector)));
    if (vector == nullptr) return nullptr;
    vector->capacity = capacity;
    vector->count = 0;
    vector->item_size = item_size;
    vector->slots = capacity;

    size_t bytes;
    bool fits = BlockBytes(capacity, item_size, &bytes);
    vector->data = fits ? static_cast<unsigned char*>(malloc(AtLeastOne(bytes))) : nullptr;
    return vector;
}

// Items of the size of `Word`: compared in registers.
template <typename Word>
int32_t FindWord(const HVector* vector, const void* item) {
    auto wanted = LoadWord<Word>(item);
    const unsigned char* slot = vector->data;
    for (int32_t i = 0; i < vector->count; i++, slot += sizeof(Word))
        if (LoadWord<Word>(slot) == wanted) return i;
    return kNotFound;
}

int32_t FindAnySize(const HVector* vector, const void* item) {
    for (int32_t i = 0; i < vector->count; i++)
        if (memcmp(Slot(vector, i), item, vector->item_size) == 0) return i;
    return kNotFound;
}

// Appends `size` readable bytes as one item; what the item has beyond them becomes zero.
int32_t AppendPadded(HVector* vector, const void* bytes, size_t size) {
    int32_t index = vector->count;
    if (index >= vector->slots && !Grow(vector)) return kNoMemory;
    unsigned char* slot = Slot(vector, index);
    memcpy(slot, bytes, size);
    memset(slot + size, 0, vector->item_size - size);
    vector->count++;
    return 0;
}

HVector* DupInto(const HVector* source, HVector* destination) {
    HVector_Clear(destination);  // the source as well when it is the same: nothing is left to copy
    // The destination's items may be wider than the source's: never read behind the last of these.
    const unsigned char* end = Slot(source, source->count);
    for (int32_t i = 0; i < source->count; i++) {
        const unsigned char* item = Slot(source, i);
        size_t readable = std::min<size_t>(static_cast<size_t>(end - item), destination->item_size);
        if (AppendPadded(destination, item, readable) != 0) break;
    }
    return destination;
}

}  // namespace

HVector* HVector_Create(uint32_t item_size, int32_t capacity) {
    if (capacity < 1) capacity = kDefaultCapacity;
    HVector* vector = NewVector(item_size, capacity);
    if (vector == nullptr || vector->data != nullptr) return vector;
    free(vector);
    size_t bytes;
    BlockBytes(capacity, item_size, &bytes);
    Print("failed malloc memory: %d in HVector_Create\n", static_cast<int>(bytes));
    return nullptr;
}

int32_t HVector_Destroy(HVector* vector) {
    if (vector == nullptr) return kNullHandle;
    free(vector->data);
    free(vector);
    return 0;
}

int32_t HVector_Clear(HVector* vector) {
    if (vector == nullptr) return kNullHandle;
    vector->count = 0;
    return 0;
}

int32_t HVector_Append(HVector* vector, const void* item) {
    if (vector == nullptr || item == nullptr) return kNullHandle;
    if (vector->count >= vector->slots) return AppendGrowing(vector, item);
    CopyItem(Slot(vector, vector->count++), item, vector->item_size);
    return 0;
}

int32_t HVector_Insert(HVector* vector, const void* item, int32_t index) {
    if (vector == nullptr || item == nullptr) return kNullHandle;
    if (index < 0 || index > vector->count) return kBadIndex;
    if (vector->count >= vector->slots && !MakeRoom(vector, &item)) return kNoMemory;
    return HArray_Insert(vector->data, &vector->count, vector->item_size, index, item);
}

int32_t HVector_Del(HVector* vector, int32_t index) {
    if (vector == nullptr) return kNullHandle;
    if (!HasIndex(vector, index)) return kBadIndex;
    vector->count--;
    size_t behind = static_cast<size_t>(vector->count - index) * vector->item_size;
    unsigned char* slot = Slot(vector, index);
    memmove(slot, slot + vector->item_size, behind);
    return 0;
}

int32_t HVector_SetAt(HVector* vector, int32_t index, const void* item) {
    if (vector == nullptr || item == nullptr) return kNullHandle;
    if (!HasIndex(vector, index)) return kBadIndexOfSetAt;
    CopyItem(Slot(vector, index), item, vector->item_size);
    return 0;
}

int32_t HVector_Swap(HVector* vector, int32_t a, int32_t b) {
    if (vector == nullptr) return kNullHandle;
    if (!HasIndex(vector, a) || !HasIndex(vector, b)) return kBadIndex;
    return HArray_Exchange(vector->data, vector->item_size, a, b);
}

void* HVector_At(const HVector* vector, int32_t index) {
    if (vector == nullptr || !HasIndex(vector, index)) return nullptr;
    return Slot(vector, index);
}

int32_t HVector_Cnt(const HVector* vector) { return vector != nullptr ? vector->count : 0; }

HVector* HVector_Dup(const HVector* source, HVector* destination) {
    if (source == nullptr) return nullptr;
    if (destination != nullptr) return DupInto(source, destination);

    HVector* copy = NewVector(source->item_size, source->capacity);
    if (copy == nullptr) return nullptr;
    if (copy->data == nullptr) {
        free(copy);
        return nullptr;
    }
    copy->count = source->count;
    memcpy(copy->data, source->data, static_cast<size_t>(source->slots) * source->item_size);
    return copy;
}

int32_t HVector_Find(const HVector* vector, const void* item) {
    if (vector == nullptr || item == nullptr) return kNullHandle;
    switch (vector->item_size) {
        case 4:
            return FindWord<uint32_t>(vector, item);
        case 8:
            return FindWord<uint64_t>(vector, item);
        case 16:
            return FindWord<TwoWords>(vector, item);
        default:
            return FindAnySize(vector, item);
    }
}

uint32_t HVector_GetItemSize(const HVector* vector) {
    return vector != nullptr ? vector->item_size : 0;
}
