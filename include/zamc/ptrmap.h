/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */

/** @file
 * Map from texts or 32-bit numbers to pointers.
 *
 * The type of the keys is chosen once for a map. Wherever a function takes a `key`, it is the text itself in a map of
 * text keys, and a pointer to the 32-bit number in a map of integer keys. Keys are copied, values are not; a map owns
 * its values only if it was given a function to release them. Maps do not lock.
 */
#ifndef ZAMC_PTRMAP_H
#define ZAMC_PTRMAP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A map. */
typedef struct zam_ptrmap zam_ptrmap;

/** What the keys of a map are. */
enum zam_ptrmap_key_type {
    ZAM_PTRMAP_KEY_STRING = 0, /**< a text that ends in a NUL, compared byte by byte */
    ZAM_PTRMAP_KEY_INTEGER = 1 /**< a 32-bit number */
};

/** Releases a value; the value may be null if a null one was added. The entry has left the map by then. */
typedef void (*zam_ptrmap_free_fn)(void *value);

/** Visits a value. It may delete the entry that it is called for, and no other. */
typedef int32_t (*zam_ptrmap_visit_fn)(void *value, void *arg);

/**
 * Makes an empty map.
 *
 * @param bucket_count  at least 1; it never changes, so choose about the number of entries expected
 * @param key_type      of enum zam_ptrmap_key_type
 * @param value_free    called for values that are freed with their entry; null leaves them to the caller
 * @return the map, to be released with zam_ptrmap_destroy(), or null for an argument out of range or when there is no
 *         memory, which is logged at level 3
 */
zam_ptrmap *zam_ptrmap_create(uint32_t bucket_count, uint32_t key_type, zam_ptrmap_free_fn value_free);

/**
 * Adds an entry.
 *
 * @param map    where to
 * @param key    copied
 * @param value  the map's from then on, if it frees values; may be null
 * @return 0; -1 for a null map or key, when there is no memory, or when the key is there already: then the old value
 * stays and the refusal is logged at level 3. On -1 the value is still the caller's.
 */
int32_t zam_ptrmap_add(zam_ptrmap *map, const void *key, void *value);

/**
 * Looks for a key.
 *
 * @param map  may be null
 * @param key  the one that is looked for
 * @return its value, which stays the map's; null when there is none
 */
void *zam_ptrmap_find(zam_ptrmap *map, const void *key);

/**
 * Deletes the entry of a key, if there is one.
 *
 * @param map         null is ignored
 * @param key         need not be in it
 * @param free_value  when its lowest bit is set the value goes to the map's value_free; otherwise it is the caller's
 */
void zam_ptrmap_del(zam_ptrmap *map, const void *key, uint32_t free_value);

/**
 * Counts the entries.
 *
 * @param map  may be null
 * @return the number of entries; 0 for a null map
 */
uint32_t zam_ptrmap_size(const zam_ptrmap *map);

/**
 * Goes through the map by keys, bucket by bucket and within a bucket in the order of adding.
 *
 * @param map  may be null
 * @param key  null for the first entry; else the key of the entry before the sought one. A key that is not in the map
 *             continues with the first bucket behind the one in which it would be.
 * @return the value of that entry, or null at the end
 */
void *zam_ptrmap_getnext(zam_ptrmap *map, const void *key);

/**
 * Calls a function for every entry, in the order of zam_ptrmap_getnext().
 *
 * @param map    may be null
 * @param visit  called for each
 * @param arg    handed to it
 * @return the first result that was not 0, or 0; the walk goes to the end in any case. 0 for a null map or function.
 */
int32_t zam_ptrmap_foreach(zam_ptrmap *map, zam_ptrmap_visit_fn visit, void *arg);

/**
 * Deletes all entries and frees their values. A null map is ignored.
 *
 * @param map  stays, empty
 */
void zam_ptrmap_clear(zam_ptrmap *map);

/**
 * Clears and releases a map. A null map is ignored.
 *
 * @param map  not to be used any more
 */
void zam_ptrmap_destroy(zam_ptrmap *map);

#ifdef __cplusplus
}
#endif

#endif
