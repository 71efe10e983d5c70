// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "platform/bounded.h"

#ifndef ZAMC_PLATFORM_BOUNDED_HEADER

#include <cstdio>

int vsnprintf_s(char *dst, size_t size, size_t count, const char *format, va_list args) {
    if (!dst || !format || size == 0 || size > zam::platform::bounded_max) {
        return zam::platform::refuse_text(dst, size, -1);
    }
    const size_t room = count < size ? count + 1 : size;
    const int length = vsnprintf(dst, room, format, args);
    if (length < 0) return zam::platform::refuse_text(dst, size, -1);
    return static_cast<size_t>(length) < room ? length : -1;
}

int snprintf_s(char *dst, size_t size, size_t count, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int length = vsnprintf_s(dst, size, count, format, args);
    va_end(args);
    return length;
}

int sprintf_s(char *dst, size_t size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int length = vsnprintf_s(dst, size, zam::platform::bounded_max, format, args);
    va_end(args);
    return length < 0 ? zam::platform::refuse_text(dst, size, -1) : length;
}

#endif
