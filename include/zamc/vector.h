/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */

/** @file
 * Vector: a growable array of pointers.
 *
 * An item keeps its index for as long as it is in the vector, so an index may serve as a handle. A removed item leaves
 * a free slot, a null one, that a later add uses again. To visit all items go through the indices 0 to
 * zam_vector_size() - 1 and skip what is null.
 *
 * A vector does not own its items and does not lock.
 */
#ifndef ZAMC_VECTOR_H
#define ZAMC_VECTOR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A vector; header and slots are one block that an add may move. */
typedef struct zam_vector zam_vector;

/** Releases one item. zam_vector_remove() also calls it for a free slot, with null. */
typedef void (*zam_vector_free_fn)(void *item);

/**
 * Makes an empty vector.
 *
 * @param capacity  number of slots, at least 1
 * @return the vector, to be released with zam_vector_free(), or null for capacity 0 or when there is no memory
 */
zam_vector *zam_vector_init(uint32_t capacity);

/**
 * Stores an item in the lowest free slot. A full vector doubles its capacity, and the item goes to the first new slot.
 *
 * @param vector  address of the caller's pointer, which is rewritten when the vector grows
 * @param item    not null
 * @param index   receives the item's index; may be null
 * @return 0; -1 for a null argument, or when there is no memory, which leaves the vector as it was (level 0, "[Vector]
 *         Alloc memory for expand vector failed\n")
 */
int32_t zam_vector_add(zam_vector **vector, void *item, uint32_t *index);

/**
 * Reads a slot.
 *
 * @param vector  may be null
 * @param index   below the capacity
 * @return the item; null for a free slot, a null vector, or an index that is not below the capacity, which is logged at
 *         level 3
 */
void *zam_vector_get(const zam_vector *vector, uint32_t index);

/**
 * Clears a slot. An index that is not below the capacity is logged at level 3 and nothing happens.
 *
 * The number of occupied slots goes down by one in any case: remove only what is there.
 *
 * @param vector         null is ignored
 * @param index          of an occupied slot
 * @param free_function  called with the slot's former content, also if that is null; may itself be null, and may use
 *                       the vector
 */
void zam_vector_remove(zam_vector *vector, uint32_t index, zam_vector_free_fn free_function);

/**
 * Releases a vector, after calling the function, if there is one, for each of its items. The function must not use the
 *  vector. A null vector is ignored.
 *
 * @param vector         not to be used any more
 * @param free_function  may be null: then the items stay as they are
 */
void zam_vector_free(zam_vector *vector, zam_vector_free_fn free_function);

/**
 * The capacity: number of slots, free ones included.
 *
 * @param vector  may be null
 * @return the capacity; 0 for a null vector
 */
uint32_t zam_vector_size(const zam_vector *vector);

/**
 * The number of occupied slots: adds minus removes.
 *
 * @param vector  may be null
 * @return the number; 0 for a null vector
 */
uint32_t zam_vector_used(const zam_vector *vector);

#ifdef __cplusplus
}
#endif

#endif
