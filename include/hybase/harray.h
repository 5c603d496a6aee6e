/**
 * @file
 * @ingroup harray
 * Inserting, removing and exchanging items in an array that the caller owns.
 */

/**
 * @addtogroup harray
 * Inserting, removing and exchanging items in an array that the caller owns.
 *
 * `base` is the array, `*count` the number of items in use (always the first ones), `item_size` the
 * bytes of one item. Items are copied as plain bytes. Nothing is allocated for the array and its
 * capacity is the caller's business: there must be room for one more item before an insertion.
 *
 * @par Threads
 * Nothing locks.
 * @{
 */
#ifndef HYBASE_HARRAY_H
#define HYBASE_HARRAY_H

#include <hybase/export.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Puts a copy of the item at `index`, 0..*count, moves what stands there and behind it up by one
 * and increments `*count`. `item` may point into the array. Returns 0; -1 for an index out of range
 * or a null argument, nothing is changed then.
 */
HYBASE_API int32_t HArray_Insert(void* base, int32_t* count, uint32_t item_size, int32_t index,
                                 const void* item);

/**
 * Removes the item at `index`, 0..*count-1, moves those behind it down by one, zeroes the slot that
 * became free and decrements `*count`. Returns 0; -1 as above.
 */
HYBASE_API int32_t HArray_Remove(void* base, int32_t* count, uint32_t item_size, int32_t index);

/**
 * Exchanges two items; the indexes are not checked against the array's end. Always returns 0:
 * nothing happens for a negative index, or when an item of 256 bytes or more finds no memory for
 * the moment it is set aside.
 */
HYBASE_API int32_t HArray_Exchange(void* base, uint32_t item_size, int32_t a, int32_t b);

#ifdef __cplusplus
}
#endif

/** @} */

#endif
