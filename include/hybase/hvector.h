/**
 * @file
 * @ingroup hvector
 * A growable vector of fixed-size items, kept by value in one contiguous block.
 */

/**
 * @addtogroup hvector
 * A growable vector of fixed-size items, kept by value in one contiguous block.
 *
 * Items are copied as plain bytes and never interpreted: when they are pointers, what they point to
 * stays the caller's. `item` always points to item_size readable bytes; it may point into the
 * vector itself. The block doubles when it is full and never shrinks.
 *
 * Results, unless said otherwise:
 *
 * | result | meaning |
 * | ---: | --- |
 * | 0 | success |
 * | -3 | index out of range (a negative one included); nothing was changed |
 * | -4 | the block could not be grown; the items are as they were, a later call tries again |
 * | -6 | a null vector, or a null item |
 *
 * An item pointer from HVector_At() lives until the next call that adds an item or destroys the
 * vector.
 *
 * @par Threads
 * Nothing locks; users that share a vector hold their own mutex around every call.
 * @{
 */
#ifndef HYBASE_HVECTOR_H
#define HYBASE_HVECTOR_H

#include <hybase/export.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A vector. What is in it is the library's own business. */
typedef struct HVector HVector;

/**
 * A new, empty vector with room for `capacity` items (8 when `capacity` is less than 1), to be
 * given to HVector_Destroy(). Null when memory is short; a block that cannot be had is reported on
 * stdout.
 */
HYBASE_API HVector* HVector_Create(uint32_t item_size, int32_t capacity);

/** Frees the vector with its block. 0 or -6. */
HYBASE_API int32_t HVector_Destroy(HVector* vector);

/** Forgets all items and keeps the room. 0 or -6. */
HYBASE_API int32_t HVector_Clear(HVector* vector);

/** Adds a copy of the item behind the last one. 0, -4 or -6. */
HYBASE_API int32_t HVector_Append(HVector* vector, const void* item);

/**
 * Puts a copy of the item at `index`, 0..count, and moves what stands there and behind it up by
 * one. 0, -3, -4 or -6.
 */
HYBASE_API int32_t HVector_Insert(HVector* vector, const void* item, int32_t index);

/** Removes the item at `index` and moves those behind it down by one. 0, -3 or -6. */
HYBASE_API int32_t HVector_Del(HVector* vector, int32_t index);

/** Overwrites the item at `index`. 0 or -6; an index out of range is -11 here, not -3. */
HYBASE_API int32_t HVector_SetAt(HVector* vector, int32_t index, const void* item);

/**
 * Exchanges two items. 0, -3 or -6. Items of 256 bytes and more need a moment's memory: when there
 * is none they stay where they are, and the result is still 0.
 */
HYBASE_API int32_t HVector_Swap(HVector* vector, int32_t a, int32_t b);

/** The item inside the vector; null for an index out of range or a null vector. */
HYBASE_API void* HVector_At(const HVector* vector, int32_t index);

/** Number of items; 0 for a null vector. */
HYBASE_API int32_t HVector_Cnt(const HVector* vector);

/**
 * Copies a vector.
 *
 * Without a destination: a new vector with the source's items and capacity, to be given to
 * HVector_Destroy(); null when memory is short.
 * With one: replaces its items by the source's and returns it. The destination keeps its own item
 * size and copies that many bytes from each item's place; bytes behind the source's last item count
 * as zero. When it cannot grow it ends with the items that had room. A vector duplicated onto
 * itself is emptied. Null for a null source.
 */
HYBASE_API HVector* HVector_Dup(const HVector* source, HVector* destination);

/** Index of the first item whose bytes equal those of `item`; -1 when there is none, or -6. */
HYBASE_API int32_t HVector_Find(const HVector* vector, const void* item);

/** Bytes of one item; 0 for a null vector. */
HYBASE_API uint32_t HVector_GetItemSize(const HVector* vector);

#ifdef __cplusplus
}
#endif

/** @} */

#endif
