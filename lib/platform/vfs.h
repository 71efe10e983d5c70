// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The platform's virtual file system, as far as the log file needs it. Where there is none, stdio serves. A platform
// with a file system of its own names its header at configure time; the handle may be of any type that FOpen returns
// and a null pointer clears.
#ifndef ZAMC_PLATFORM_VFS_H
#define ZAMC_PLATFORM_VFS_H

#ifdef ZAMC_PLATFORM_VFS_HEADER
#include ZAMC_PLATFORM_VFS_HEADER
#else

#include <cstdarg>
#include <cstdio>

#include <zamc/attributes.h>

extern "C++" {

inline FILE *ZRT_VFS_FOpen(const char *path, const char *mode) {
    return fopen(path, mode);
}

ZAM_PRINTF(2, 3) inline int ZRT_VFS_FPrintf(FILE *file, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int length = vfprintf(file, format, args);
    va_end(args);
    return length;
}

inline int ZRT_VFS_FFlush(FILE *file) {
    return fflush(file);
}

inline int ZRT_VFS_FClose(FILE *file) {
    return fclose(file);
}

} // extern "C++"

#endif
#endif
