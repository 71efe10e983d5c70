// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Bounds-checked copies and formats, under the names of C11 Annex K. The C library of our systems has none, and the
// packaged substitutes cap sizes far below what a connector carries, so these are ours: no cap below half the address
// space, no process-wide handler, one or two comparisons over the C library's own function.
//
// Common to all of them:
//   - `size` is what the destination holds, in bytes; a size above half the address space is a negative number that
//     went astray and is refused (EINVAL), and nothing is written.
//   - The copying functions return 0, or EINVAL for a null pointer or overlapping blocks, or ERANGE for a destination
//     that is too small. The formatting ones return the number of characters written, or -1.
//   - A text in the destination always ends. A refused text copy leaves an empty text; a refused block copy leaves the
//     destination as it was.
//
// C++ linkage keeps the names away from a library that an application may link beside us. A platform with functions of
// its own names their header at configure time.
#ifndef ZAMC_PLATFORM_BOUNDED_H
#define ZAMC_PLATFORM_BOUNDED_H

#ifdef ZAMC_PLATFORM_BOUNDED_HEADER
#include ZAMC_PLATFORM_BOUNDED_HEADER
#else

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <zamc/attributes.h>

namespace zam::platform {

constexpr size_t bounded_max = SIZE_MAX / 2;

inline bool blocks_overlap(const void *a, const void *b, size_t count) {
    const auto first = reinterpret_cast<uintptr_t>(a);
    const auto second = reinterpret_cast<uintptr_t>(b);
    return (first > second ? first - second : second - first) < count;
}

// Leaves an empty text where there is room for one, and hands the error through.
inline int refuse_text(char *dst, size_t size, int error) {
    if (dst && size > 0 && size <= bounded_max) *dst = '\0';
    return error;
}

} // namespace zam::platform

extern "C++" {

// Copies `count` bytes; no bytes are a success whatever the pointers are.
inline int memcpy_s(void *dst, size_t size, const void *src, size_t count) {
    if (count == 0) return 0;
    if (!dst || !src || size > zam::platform::bounded_max) return EINVAL;
    if (count > size) return ERANGE;
    if (zam::platform::blocks_overlap(dst, src, count)) return EINVAL;
    memcpy(dst, src, count);
    return 0;
}

// As memcpy_s, for blocks that may overlap.
inline int memmove_s(void *dst, size_t size, const void *src, size_t count) {
    if (count == 0) return 0;
    if (!dst || !src || size > zam::platform::bounded_max) return EINVAL;
    if (count > size) return ERANGE;
    memmove(dst, src, count);
    return 0;
}

// Fills `count` bytes. The stores happen even when nothing reads them afterwards, so it may wipe a secret.
inline int memset_s(void *dst, size_t size, int value, size_t count) {
    if (count == 0) return 0;
    if (!dst || size > zam::platform::bounded_max) return EINVAL;
    if (count > size) return ERANGE;
    memset(dst, value, count);
    __asm__ volatile("" : : "r"(dst) : "memory");
    return 0;
}

// Copies at most `count` characters of a text and ends it; `size` has to hold them and the terminator.
inline int strncpy_s(char *dst, size_t size, const char *src, size_t count) {
    if (!dst || !src || size == 0 || size > zam::platform::bounded_max) {
        return zam::platform::refuse_text(dst, size, EINVAL);
    }
    const size_t length = strnlen(src, count < size ? count : size);
    if (length >= size) return zam::platform::refuse_text(dst, size, ERANGE);
    if (zam::platform::blocks_overlap(dst, src, length + 1)) return zam::platform::refuse_text(dst, size, EINVAL);
    memcpy(dst, src, length);
    dst[length] = '\0';
    return 0;
}

// Copies a whole text with its terminator.
inline int strcpy_s(char *dst, size_t size, const char *src) {
    return strncpy_s(dst, size, src, zam::platform::bounded_max);
}

// Appends a text; a destination that does not end within `size` is refused (EINVAL).
inline int strcat_s(char *dst, size_t size, const char *src) {
    if (!dst || !src || size > zam::platform::bounded_max) return zam::platform::refuse_text(dst, size, EINVAL);
    const size_t used = strnlen(dst, size);
    if (used == size) return zam::platform::refuse_text(dst, size, EINVAL);
    const int result = strncpy_s(dst + used, size - used, src, zam::platform::bounded_max);
    return result == 0 ? 0 : zam::platform::refuse_text(dst, size, result);
}

// Formats a text that has to fit: returns its length, or -1 and leaves an empty text.
int sprintf_s(char *dst, size_t size, const char *format, ...) ZAM_PRINTF(3, 4);

// Formats at most `count` characters (and never more than `size` holds): returns the length, or -1 when the text was
// cut; what fitted stays in the destination.
int snprintf_s(char *dst, size_t size, size_t count, const char *format, ...) ZAM_PRINTF(4, 5);
int vsnprintf_s(char *dst, size_t size, size_t count, const char *format, va_list args) ZAM_PRINTF(4, 0);

// Reads values from a text by a scanf format, in which each %s, %c and %[ takes two arguments: the destination and, as
// a 32-bit unsigned number or anything as wide, its size in bytes. A text that does not fit, or whose destination lies
// over the text that is read, is a failed conversion and leaves an empty one. Returns the number of values assigned, -1
// when the text ended before the first. Wide characters, the allocating "m" and numbered arguments are failed
// conversions.
int vsscanf_s(const char *text, const char *format, va_list args);

} // extern "C++"

#endif
#endif
