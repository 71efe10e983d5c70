// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// A growable array of pointers whose items keep their index for life.
//
// Header and slots are one block. A null slot is free, and the next add takes the lowest free one; a full vector moves
// to a block of twice the capacity, with every slot at its old index, which is why callers hold it by a pointer that
// zam_vector_add may rewrite. `used` counts adds minus removes.
#include <zamc/vector.h>

#include <algorithm>
#include <span>
#include <utility>

#include <zamc/logger.h>

#include "runtime/mem_internal.h"

using zam::runtime::mem_new;

// The slots follow behind.
struct alignas(void *) zam_vector {
    uint32_t capacity;
    uint32_t used;
};

namespace {

std::span<void *> _slots(zam_vector *vector) {
    return {reinterpret_cast<void **>(vector + 1), vector->capacity};
}

zam_vector *_vector_alloc(uint64_t capacity) {
    auto *vector = mem_new<zam_vector>(capacity * sizeof(void *));
    if (vector) vector->capacity = static_cast<uint32_t>(capacity);
    return vector;
}

zam_vector *_vector_expand(zam_vector *vector) {
    zam_vector *larger = _vector_alloc(uint64_t{2} * vector->capacity);
    if (!larger) {
        zam_log_printf(ZAM_LOG_EMERG, "[Vector] Alloc memory for expand vector failed\n");
        return nullptr;
    }
    std::ranges::copy(_slots(vector), _slots(larger).begin());
    larger->used = vector->capacity;
    return larger;
}

} // namespace

zam_vector *zam_vector_init(uint32_t capacity) {
    return capacity == 0 ? nullptr : _vector_alloc(capacity);
}

int32_t zam_vector_add(zam_vector **vector, void *item, uint32_t *index) {
    if (!vector || !*vector || !item) return -1;
    const auto slots = _slots(*vector);
    const auto slot = static_cast<uint32_t>(std::ranges::find(slots, nullptr) - slots.begin());
    if (slot == slots.size()) {
        zam_vector *larger = _vector_expand(*vector);
        if (!larger) return -1;
        zam_free(*vector);
        *vector = larger;
    }
    _slots(*vector)[slot] = item;
    (*vector)->used++;
    if (index) *index = slot;
    return 0;
}

void *zam_vector_get(const zam_vector *vector, uint32_t index) {
    if (!vector) return nullptr;
    if (index >= vector->capacity) {
        zam_log_printf(ZAM_LOG_WRONG, "[Vector] Index to get is illegal.\n");
        return nullptr;
    }
    return _slots(const_cast<zam_vector *>(vector))[index];
}

void zam_vector_remove(zam_vector *vector, uint32_t index, zam_vector_free_fn free_function) {
    if (!vector) return;
    if (index >= vector->capacity) {
        zam_log_printf(ZAM_LOG_WRONG, "[Vector] Index to be deleted is illegal.\n");
        return;
    }
    void *item = std::exchange(_slots(vector)[index], nullptr);
    vector->used--;                         // also for a slot that was free: callers only remove what they added
    if (free_function) free_function(item); // last: it may add, and the vector may move
}

void zam_vector_free(zam_vector *vector, zam_vector_free_fn free_function) {
    if (!vector) return;
    if (free_function) {
        for (void *item : _slots(vector)) {
            if (item) free_function(item);
        }
    }
    zam_free(vector);
}

uint32_t zam_vector_size(const zam_vector *vector) {
    return vector ? vector->capacity : 0;
}

uint32_t zam_vector_used(const zam_vector *vector) {
    return vector ? vector->used : 0;
}
