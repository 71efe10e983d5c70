// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The growable byte buffer.
//
// After every operation that succeeds the byte behind the content is 0, so the content also reads as a text, and length
// stays below capacity. The record is open: callers read straight into the block and zam_rw_bytes_resize may leave a
// length beyond its block. Every operation therefore begins by holding the length against the block (_hold).
//
// Growth is counted from the bytes in use, in steps of 8 KiB and later of 2 MiB; a pop that leaves less than half in
// use gives the rest back. Sizes are added up in 64 bits, and one that the record cannot express fails as a lack of
// memory.
#include <zamc/utils.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include <zamc/logger.h>

#include "platform/bounded.h"
#include "runtime/mem_internal.h"

using zam::runtime::mem_new;
using zam::runtime::mem_zeroed;
using zam::runtime::owned;
using zam::runtime::owned_text;
using zam::runtime::system_text;

namespace {

constexpr uint32_t small_step = 0x2000;    // 8 KiB: two pages hold a usual request
constexpr uint32_t large_step = 0x200000;  // 2 MiB: a large document arrives in few moves
constexpr uint32_t large_buffer = 0x10000; // 64 KiB: from here on the large step
constexpr uint32_t shrink_from = small_step + 1;

// The smallest multiple of the step above `size`.
constexpr uint64_t _round_up(uint64_t size, uint32_t step) {
    return (size + step) & ~uint64_t{step - 1};
}

// Makes length and capacity agree with the block there is.
void _hold(zam_rw_bytes *buffer) {
    if (!buffer->data) buffer->capacity = 0;
    buffer->length = std::min(buffer->length, buffer->capacity);
}

void _end_text(zam_rw_bytes *buffer) {
    buffer->data[buffer->length] = '\0';
}

void _install(zam_rw_bytes *buffer, owned_text &block, uint32_t capacity) {
    zam_free(buffer->data);
    buffer->data = block.release();
    buffer->capacity = capacity;
}

// A new block of that size with the first bytes of the content in it, or null; a lack of memory is logged in the words
// of the caller.
owned_text _copy_block(const zam_rw_bytes *buffer, uint64_t capacity, uint32_t length, const char *complaint) {
    owned_text block{static_cast<char *>(mem_zeroed(capacity))};
    if (!block) {
        zam_log_printf(ZAM_LOG_EMERG, "%s", complaint);
        return block;
    }
    if (memcpy_s(block.get(), capacity, buffer->data, length) != 0) block.reset();
    return block;
}

int32_t _rw_bytes_expand(zam_rw_bytes *buffer, uint32_t length) {
    const uint32_t step = buffer->capacity < large_buffer ? small_step : large_step;
    const uint64_t capacity = _round_up(uint64_t{buffer->length} + length, step);
    owned_text block =
        _copy_block(buffer, capacity, buffer->length, "Allocate memory for expand rw-bytes buffer unsuccessful.\n");
    if (!block) return -1;
    _install(buffer, block, static_cast<uint32_t>(capacity));
    return 0;
}

// Room for `length` more bytes and the terminator.
bool _make_room(zam_rw_bytes *buffer, uint32_t length) {
    _hold(buffer);
    if (uint64_t{buffer->length} + length < buffer->capacity) return true;
    return _rw_bytes_expand(buffer, length) == 0;
}

void _finish_pop(zam_rw_bytes *buffer) {
    if (buffer->capacity >= shrink_from && buffer->capacity > uint64_t{2} * buffer->length) {
        zam_rw_bytes_resize(buffer, static_cast<uint32_t>(_round_up(buffer->length, small_step)));
    }
    _end_text(buffer);
}

int32_t _push_failed() {
    zam_log_printf(ZAM_LOG_WRONG, "Push rw-bytes unsuccessful.\n");
    return -1;
}

// A format printed into a text of the system library's; null has been logged.
struct printed_text {
    system_text text;
    size_t length;
};

printed_text _print(const char *format, va_list args) ZAM_PRINTF(1, 0);

printed_text _print(const char *format, va_list args) {
    char *text = nullptr;
    size_t length = 0;
    FILE *stream = open_memstream(&text, &length);
    if (!stream) {
        zam_log_printf(ZAM_LOG_WRONG, "Open memstream unsuccessful.\n");
        return {};
    }
    const int printed = vfprintf(stream, format, args);
    const int closed = fclose(stream); // only now text and length are final
    printed_text result{system_text{text}, length};
    if (printed < 0 || closed != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Push data unsuccessful.\n");
        result.text.reset();
    }
    return result;
}

} // namespace

zam_rw_bytes *zam_rw_bytes_new(uint32_t capacity) {
    if (capacity == 0) return nullptr;
    owned<zam_rw_bytes, zam_rw_bytes_free> buffer{mem_new<zam_rw_bytes>()};
    if (!buffer) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for rw-bytes head unsuccessful.\n");
        return nullptr;
    }
    buffer->data = static_cast<char *>(zam_calloc(1, capacity));
    if (!buffer->data) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for rw-bytes buffer unsuccessful.\n");
        return nullptr;
    }
    buffer->capacity = capacity;
    return buffer.release();
}

void zam_rw_bytes_free(zam_rw_bytes *buffer) {
    if (!buffer) return;
    zam_free(buffer->data);
    zam_free(buffer);
}

int32_t zam_rw_bytes_push(zam_rw_bytes *buffer, const void *data, uint32_t length) {
    if (!buffer || !_make_room(buffer, length)) return -1;
    char *end = buffer->data + buffer->length;
    if (data && memcpy_s(end, buffer->capacity - buffer->length, data, length) != 0) return _push_failed();
    buffer->length += length;
    _end_text(buffer);
    return 0;
}

int32_t zam_rw_bytes_push_front(zam_rw_bytes *buffer, const void *data, uint32_t length) {
    if (!buffer || !_make_room(buffer, length)) return -1;
    if (data) {
        const uint32_t room = buffer->capacity - length;
        if (memmove_s(buffer->data + length, room, buffer->data, buffer->length) != 0) return _push_failed();
        if (memcpy_s(buffer->data, buffer->capacity, data, length) != 0) return _push_failed();
    }
    buffer->length += length;
    _end_text(buffer);
    return 0;
}

void zam_rw_bytes_resize(zam_rw_bytes *buffer, uint32_t capacity) {
    if (!buffer) return;
    if (capacity == 0) {
        zam_free(buffer->data);
        *buffer = {};
        return;
    }
    const uint32_t held = buffer->data ? std::min(buffer->length, buffer->capacity) : 0;
    owned_text block = _copy_block(buffer, capacity, std::min(held, capacity - 1),
                                   "Allocate memory for resize rw-bytes buffer unsuccessful.\n");
    if (block) _install(buffer, block, capacity);
}

int32_t zam_rw_bytes_vpushf(zam_rw_bytes *buffer, const char *format, va_list args) {
    if (!buffer || !format) return -1;
    const printed_text printed = _print(format, args);
    if (!printed.text) return -1;
    _hold(buffer);
    const uint64_t needed = uint64_t{buffer->length} + printed.length + 1;
    if (needed > UINT32_MAX) {
        zam_log_printf(ZAM_LOG_WRONG, "Push data unsuccessful.\n");
        return -1;
    }
    if (needed > buffer->capacity) zam_rw_bytes_resize(buffer, static_cast<uint32_t>(needed));
    if (needed > buffer->capacity) return -1;
    if (strcpy_s(buffer->data + buffer->length, printed.length + 1, printed.text.get()) != 0) return -1;
    buffer->length = static_cast<uint32_t>(needed - 1);
    _end_text(buffer);
    return 0;
}

int32_t zam_rw_bytes_pushf(zam_rw_bytes *buffer, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t result = zam_rw_bytes_vpushf(buffer, format, args);
    va_end(args);
    return result;
}

void zam_rw_bytes_pop_front(zam_rw_bytes *buffer, uint32_t length) {
    if (!buffer || !buffer->data || length == 0) return;
    _hold(buffer);
    if (buffer->capacity == 0) return;
    if (buffer->length > length) {
        buffer->length -= length;
        if (memmove_s(buffer->data, buffer->capacity, buffer->data + length, buffer->length) != 0) {
            zam_log_printf(ZAM_LOG_WRONG, "Pop rw-bytes unsuccessful, pop len: %d\n", static_cast<int>(length));
            return;
        }
    } else {
        buffer->length = 0;
    }
    _finish_pop(buffer);
}

void zam_rw_bytes_pop_back(zam_rw_bytes *buffer, uint32_t length) {
    if (!buffer || !buffer->data || length == 0) return;
    _hold(buffer);
    if (buffer->capacity == 0) return;
    buffer->length = buffer->length > length ? buffer->length - length : 0;
    _finish_pop(buffer);
}
