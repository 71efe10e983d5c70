// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The hash table's record, for the map that walks its buckets.
#ifndef ZAMC_RUNTIME_HASH_INTERNAL_H
#define ZAMC_RUNTIME_HASH_INTERNAL_H

#include <zamc/hash.h>

// The bucket array follows behind, in the same block.
struct zam_hash {
    uint32_t bucket_count;
    zam_hash_index_fn index;
    zam_hash_compare_fn compare;
    zam_dlist *buckets;
};

#endif
