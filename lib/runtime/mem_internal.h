// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Allocation through the hooks, with an owner for every block.
#ifndef ZAMC_RUNTIME_MEM_INTERNAL_H
#define ZAMC_RUNTIME_MEM_INTERNAL_H

#include <cstdint>
#include <cstdlib>
#include <memory>

#include <zamc/mem.h>

namespace zam::runtime {

// Calls a free function as a deleter: owned<zam_thing, zam_thing_free>.
template <auto Free>
struct free_with {
    template <typename T>
    void operator()(T *object) const {
        Free(object);
    }
};

template <typename T, auto Free>
using owned = std::unique_ptr<T, free_with<Free>>;

// Text and records from the hooks, released with zam_free.
using owned_text = owned<char, zam_free>;
template <typename T>
using owned_block = owned<T, zam_free>;

// Text that libyang or libc allocated with the system allocator.
using system_text = owned<char, std::free>;

// A zeroed block of a size computed from what a caller or a peer said: one that the hooks' 32 bits cannot express is
// logged and null, like any allocation that fails.
void *mem_zeroed(uint64_t size, const char *file = __builtin_FILE(), uint32_t line = __builtin_LINE());

// A zeroed record from the hooks, attributed to the line that asks for it. `extra` bytes follow the record.
template <typename T>
T *mem_new(uint64_t extra = 0, const char *file = __builtin_FILE(), uint32_t line = __builtin_LINE()) {
    return static_cast<T *>(mem_zeroed(extra > UINT32_MAX ? extra : extra + sizeof(T), file, line));
}

} // namespace zam::runtime

#endif
