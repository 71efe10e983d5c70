// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The memory hooks.
//
// g_nyb_mem_funs decides per operation: a null slot means the system library. Everything that zam_free may be given has
// to come from the heap that the release slot serves, so text that the system library allocated (strdup, vasprintf) is
// kept only while no allocate hook is installed, and copied onto the hooked heap otherwise.
//
// The hooks take 32-bit sizes. A size beyond that never reaches an allocator shortened: it fails as a lack of memory.
#include <zamc/mem.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>

#include <zamc/logger.h>

#include "platform/bounded.h"
#include "runtime/mem_internal.h"

using zam::runtime::owned_text;
using zam::runtime::system_text;

zam_mem_funs g_nyb_mem_funs = {};

namespace {

constexpr int mmap_threshold = 0x20000; // larger blocks go back to the system as soon as they are released

void *_refuse_size(uint64_t size) {
    zam_log_printf(ZAM_LOG_WRONG, "Calloc %d bytes unsuccessful.\n",
                   static_cast<int>(std::min<uint64_t>(size, INT32_MAX)));
    return nullptr;
}

} // namespace

int32_t zam_mem_init(const zam_mem_funs *funs) {
    mallopt(M_MMAP_THRESHOLD, mmap_threshold);
    if (funs) g_nyb_mem_funs = *funs;
    return 0;
}

void *zam_malloc_f(uint32_t size, const char *file, uint32_t line) {
    void *block = g_nyb_mem_funs.allocate ? g_nyb_mem_funs.allocate(size, file, line) : malloc(size);
    if (!block) zam_log_printf(ZAM_LOG_WRONG, "Malloc %d bytes unsuccessful.\n", static_cast<int>(size));
    return block;
}

void *zam_calloc_f(uint32_t count, uint32_t size, const char *file, uint32_t line) {
    if (g_nyb_mem_funs.allocate_zeroed) {
        void *block = g_nyb_mem_funs.allocate_zeroed(count, size, file, line);
        return block ? block : _refuse_size(size);
    }
    const uint64_t total = static_cast<uint64_t>(count) * size;
    if (total > UINT32_MAX) return _refuse_size(size);
    void *block = zam_malloc_f(static_cast<uint32_t>(total), __FILE__, __LINE__);
    if (block) memset_s(block, total, 0, total);
    return block;
}

void zam_free(void *block) {
    if (!block) return;
    if (g_nyb_mem_funs.release) {
        g_nyb_mem_funs.release(block);
    } else {
        free(block);
    }
}

char *zam_strdup_f(const char *text, const char *file, uint32_t line) {
    if (!text) return nullptr;
    if (!g_nyb_mem_funs.allocate) return strdup(text);
    const size_t length = strlen(text);
    if (length >= UINT32_MAX) return nullptr;
    const auto size = static_cast<uint32_t>(length + 1);
    owned_text copy{static_cast<char *>(zam_malloc_f(size, file, line))};
    if (!copy || strcpy_s(copy.get(), size, text) != 0) return nullptr;
    return copy.release();
}

char *zam_strndup_f(const char *text, uint32_t length, const char *file, uint32_t line) {
    if (!text) return nullptr;
    if (!g_nyb_mem_funs.allocate) return strndup(text, length);
    if (length == UINT32_MAX) return nullptr;
    const uint32_t size = length + 1;
    owned_text copy{static_cast<char *>(zam_malloc_f(size, file, line))};
    if (!copy || strncpy_s(copy.get(), size, text, length) != 0) return nullptr;
    copy.get()[length] = '\0';
    return copy.release();
}

int32_t zam_vasprintf(char **out, const char *format, va_list args) {
    if (!out || !format) return -1;
    char *formatted = nullptr;
    const int length = vasprintf(&formatted, format, args);
    *out = length < 0 ? nullptr : formatted;
    if (length < 0 || !g_nyb_mem_funs.allocate) return length;
    const system_text text{formatted};
    *out = zam_strdup_f(text.get(), __FILE__, __LINE__);
    return *out ? length : -1;
}

int32_t zam_asprintf(char **out, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t length = zam_vasprintf(out, format, args);
    va_end(args);
    return length;
}

namespace zam::runtime {

void *mem_zeroed(uint64_t size, const char *file, uint32_t line) {
    return size > UINT32_MAX ? _refuse_size(size) : zam_calloc_f(1, static_cast<uint32_t>(size), file, line);
}

} // namespace zam::runtime
