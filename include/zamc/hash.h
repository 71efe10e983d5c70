/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */

/** @file
 * Hash table: a fixed number of buckets, each a list of nodes.
 *
 * What a key is and how a node carries it is up to the creator's two functions. The table compares no keys when it
 * appends: several nodes may have the same one. It does not own its nodes and does not lock.
 */
#ifndef ZAMC_HASH_H
#define ZAMC_HASH_H

#include <stdint.h>

#include <zamc/dlist.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A hash table. */
typedef struct zam_hash zam_hash;

/** Places a key: returns a bucket index below `bucket_count`, the same one every time. */
typedef uint32_t (*zam_hash_index_fn)(const void *key, uint32_t bucket_count);

/** Returns 0 when the node has this key. */
typedef int32_t (*zam_hash_compare_fn)(const zam_dlist_node *node, const void *key);

/**
 * Makes an empty table.
 *
 * @param bucket_count  at least 1; it never changes
 * @param index         places keys
 * @param compare       tells nodes apart
 * @return the table, to be released with zam_hash_free(). Null for a missing argument, silently, or when there is no
 *         memory, which is logged at level 0.
 */
zam_hash *zam_hash_create(uint32_t bucket_count, zam_hash_index_fn index, zam_hash_compare_fn compare);

/**
 * Adds a node at the end of its key's bucket. The node must be on no list.
 *
 * @param hash  where to
 * @param node  stays the caller's, and on its list until it is removed
 * @param key   the node's, as the functions of the table understand it
 * @return 0; -1 for a null argument or a bucket index out of range, which is logged at level 3
 */
int32_t zam_hash_append(zam_hash *hash, zam_dlist_node *node, const void *key);

/**
 * Takes a node out of its key's bucket. A node that is not in there stays as it is, which is no failure.
 *
 * @param hash  where from
 * @param node  stays the caller's
 * @param key   the one that the node was added with
 * @return 0; -1 for a null argument or a bucket index out of range, which is logged at level 3
 */
int32_t zam_hash_remove(zam_hash *hash, zam_dlist_node *node, const void *key);

/**
 * Looks for a key.
 *
 * @param hash  where to look
 * @param key   the one that is looked for
 * @return the first node with this key in the order of its bucket; null when there is none, for a null argument (logged
 *         at level 7), and for a bucket index out of range (level 3)
 */
zam_dlist_node *zam_hash_find(zam_hash *hash, const void *key);

/**
 * The bucket of a key, also when it is empty.
 *
 * @param hash  whose bucket
 * @param key   need not be in it
 * @return the bucket, which belongs to the table; null for a null argument or a bucket index out of range, which is
 *         logged at level 3
 */
zam_dlist *zam_hash_get_list(zam_hash *hash, const void *key);

/**
 * Counts the nodes.
 *
 * @param hash  may be null
 * @return the number of nodes in all buckets; 0 for a null table
 */
uint32_t zam_hash_num(const zam_hash *hash);

/**
 * Releases a table, after zam_dlist_free() on each bucket with this function, which may be null. A null table is
 *  ignored.
 *
 * @param hash           not to be used any more
 * @param free_function  for each node; null clears the nodes
 */
void zam_hash_free(zam_hash *hash, zam_dlist_free_fn free_function);

/**
 * Hash of a text: h * 131 + c over its characters, modulo 2^32, starting from 0.
 *
 * Characters count as signed 8-bit numbers on every platform, so bytes from 0x80 on subtract; values that were stored
 * or exchanged depend on it.
 *
 * @param text  ended by a NUL; may be null
 * @return the hash; 0 for an empty or a null text
 */
uint32_t zam_str_hash(const char *text);

#ifdef __cplusplus
}
#endif

#endif
