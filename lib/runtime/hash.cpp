// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// A chained hash table of list nodes with a fixed number of buckets, header and buckets in one block.
//
// What a key is, is the creator's business: its index function places it and its compare function knows it again in a
// node. A node is on the list of its bucket and on no other, which tells whether it is in the table at all.
#include <zamc/hash.h>

#include <span>

#include <zamc/logger.h>

#include "runtime/hash_internal.h"
#include "runtime/mem_internal.h"

using zam::runtime::mem_new;

namespace {

// The bucket of a key, or null when the creator's index function names none that exists.
zam_dlist *_bucket(const zam_hash *hash, const void *key) {
    const uint32_t index = hash->index(key, hash->bucket_count);
    return index < hash->bucket_count ? &hash->buckets[index] : nullptr;
}

std::span<zam_dlist> _buckets(const zam_hash *hash) {
    return {hash->buckets, hash->bucket_count};
}

} // namespace

zam_hash *zam_hash_create(uint32_t bucket_count, zam_hash_index_fn index, zam_hash_compare_fn compare) {
    if (bucket_count == 0 || !index || !compare) return nullptr;
    auto *hash = mem_new<zam_hash>(uint64_t{bucket_count} * sizeof(zam_dlist));
    if (!hash) {
        zam_log_printf(ZAM_LOG_EMERG, "[Hash] Allocate memory for hash_table failed.\n");
        return nullptr;
    }
    *hash = {bucket_count, index, compare, reinterpret_cast<zam_dlist *>(hash + 1)};
    return hash;
}

int32_t zam_hash_append(zam_hash *hash, zam_dlist_node *node, const void *key) {
    if (!hash || !node || !key) {
        zam_log_printf(ZAM_LOG_WRONG, "[Hash] Add hash node input invalid.\n");
        return -1;
    }
    zam_dlist *bucket = _bucket(hash, key);
    if (!bucket) {
        zam_log_printf(ZAM_LOG_WRONG, "[Hash] Append hash list index invalid.\n");
        return -1;
    }
    return zam_dlist_append(bucket, node);
}

int32_t zam_hash_remove(zam_hash *hash, zam_dlist_node *node, const void *key) {
    if (!hash || !node || !key) {
        zam_log_printf(ZAM_LOG_WRONG, "[Hash] Remove hash node input invalid.\n");
        return -1;
    }
    zam_dlist *bucket = _bucket(hash, key);
    if (!bucket) {
        zam_log_printf(ZAM_LOG_WRONG, "[Hash] Remove hash index invalid.\n");
        return -1;
    }
    zam_dlist_remove(bucket, node);
    return 0;
}

zam_dlist_node *zam_hash_find(zam_hash *hash, const void *key) {
    if (!hash || !key) {
        zam_log_printf(ZAM_LOG_DEBUG, "[Hash] Find hash node input invalid.\n");
        return nullptr;
    }
    const zam_dlist *bucket = _bucket(hash, key);
    if (!bucket) {
        zam_log_printf(ZAM_LOG_WRONG, "[Hash] Find hash index invalid.\n");
        return nullptr;
    }
    zam_dlist_node *node = bucket->head;
    while (node && hash->compare(node, key) != 0)
        node = node->next;
    return node;
}

zam_dlist *zam_hash_get_list(zam_hash *hash, const void *key) {
    if (!hash || !key) {
        zam_log_printf(ZAM_LOG_WRONG, "[Hash] Get hash list input invalid.\n");
        return nullptr;
    }
    zam_dlist *bucket = _bucket(hash, key);
    if (!bucket) zam_log_printf(ZAM_LOG_WRONG, "[Hash] Get hash list index invalid.\n");
    return bucket;
}

uint32_t zam_hash_num(const zam_hash *hash) {
    if (!hash) return 0;
    uint32_t count = 0;
    for (const zam_dlist &bucket : _buckets(hash))
        count += bucket.count;
    return count;
}

void zam_hash_free(zam_hash *hash, zam_dlist_free_fn free_function) {
    if (!hash) return;
    for (zam_dlist &bucket : _buckets(hash))
        zam_dlist_free(&bucket, free_function);
    zam_free(hash);
}

uint32_t zam_str_hash(const char *text) {
    uint32_t hash = 0;
    if (!text) return hash;
    // Characters count as signed on every platform, so that a text has one hash everywhere.
    for (; *text != '\0'; text++)
        hash = hash * 131 + static_cast<uint32_t>(static_cast<signed char>(*text));
    return hash;
}
