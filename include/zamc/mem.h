/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */

/** @file
 * Memory hooks.
 *
 * Every allocation of the library goes through these functions, and an application can put an allocator of its own
 * behind them. Whatever the library hands out for the caller to keep is released with zam_free(), unless a function
 * says otherwise.
 *
 * The hooks are plain process-wide data without a lock: set them once, before the first allocation and before threads
 * start, and leave them. A block is released through the hook that is installed at that moment, so changing hooks while
 * blocks live hands them to the wrong allocator.
 */
#ifndef ZAMC_MEM_H
#define ZAMC_MEM_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include <zamc/attributes.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Allocates `size` bytes. `file` and `line` name the place in the source that asks; `file` lives as long as the
 *  library. Returns null when there is no memory. May be called from any thread that uses the library. */
typedef void *(*zam_malloc_fn)(uint32_t size, const char *file, uint32_t line);

/** Allocates `count` elements of `size` bytes each, all zero. The product may exceed 32 bits: refuse it then. */
typedef void *(*zam_calloc_fn)(uint32_t count, uint32_t size, const char *file, uint32_t line);

/** Releases a block of either function above. Never called with null. */
typedef void (*zam_free_fn)(void *block);

/** The three hooks. A null one means the system library for that operation. `allocate` and `release` belong together:
 *  install both or neither. */
typedef struct zam_mem_funs {
    zam_malloc_fn allocate;        /**< also serves the text functions below */
    zam_calloc_fn allocate_zeroed; /**< when null, zeroed blocks come from `allocate` and are cleared */
    zam_free_fn release;           /**< takes back what the other two gave */
} zam_mem_funs;

/** The hooks in force; all null until zam_mem_init() or the application sets them. */
extern zam_mem_funs g_nyb_mem_funs;

/**
 * Installs hooks.
 *
 * First tells the system library's allocator, on every call, to serve blocks of 131072 bytes and more by mmap, so that
 * large buffers go back to the system when they are released.
 *
 * @param funs  copied to g_nyb_mem_funs, all three at once, null entries included; null leaves the hooks alone
 * @return 0
 */
int32_t zam_mem_init(const zam_mem_funs *funs);

/**
 * Allocates a block of `size` bytes, not initialised.
 *
 * @param size  in bytes
 * @param file  where the caller is, for the hook
 * @param line  the line there
 * @return the block, or null; then "Malloc %d bytes unsuccessful.\n" has been logged at level 3
 */
void *zam_malloc_f(uint32_t size, const char *file, uint32_t line);

/**
 * Allocates a zeroed block of `count` elements of `size` bytes.
 *
 * Without an `allocate_zeroed` hook the block comes from zam_malloc_f(), under this module's own file and line. A
 * product beyond 32 bits fails there as a lack of memory does.
 *
 * @param count  of elements
 * @param size   of one, in bytes
 * @param file   where the caller is, for the hook
 * @param line   the line there
 * @return the block, or null, which has been logged at level 3: "Calloc %d bytes unsuccessful.\n" with the size of one
 *         element, or zam_malloc_f()'s message
 */
void *zam_calloc_f(uint32_t count, uint32_t size, const char *file, uint32_t line);

/**
 * Releases a block of these functions. Null is ignored.
 *
 * @param block  not to be used any more
 */
void zam_free(void *block);

/**
 * Copies a text.
 *
 * @param text  ended by a NUL; may be null
 * @param file  where the caller is, for the hook
 * @param line  the line there
 * @return the copy, to be released with zam_free(); null for a null text or when there is no memory
 */
char *zam_strdup_f(const char *text, const char *file, uint32_t line);

/**
 * Copies at most `length` characters of a text, which need not end within them, and ends the copy.
 *
 * With an `allocate` hook the block always has `length` + 1 bytes, also for a shorter text.
 *
 * @param text    may be null
 * @param length  in bytes, without the terminator of the copy
 * @param file    where the caller is, for the hook
 * @param line    the line there
 * @return the copy, to be released with zam_free(); null for a null text or when there is no memory
 */
char *zam_strndup_f(const char *text, uint32_t length, const char *file, uint32_t line);

/**
 * Formats into a new text.
 *
 * The text lies on the heap that zam_free() serves: with an `allocate` hook it is copied there.
 *
 * @param out     receives the text, to be released with zam_free(), or null on failure
 * @param format  printf format of the text
 * @param args    undefined after the call, as with vprintf
 * @return the length of the text in bytes, or -1 for a format that fails, a null argument, or no memory
 */
int32_t zam_vasprintf(char **out, const char *format, va_list args) ZAM_PRINTF(2, 0);

/**
 * As zam_vasprintf(), with the values as arguments.
 *
 * @param out     as there
 * @param format  as there
 * @return as there
 */
int32_t zam_asprintf(char **out, const char *format, ...) ZAM_PRINTF(2, 3);

/** @name The allocating functions, attributed to the line that calls them
 * @{ */
/** zam_malloc_f() */
#define zam_malloc(size) zam_malloc_f((size), __FILE__, __LINE__)
/** zam_calloc_f() */
#define zam_calloc(count, size) zam_calloc_f((count), (size), __FILE__, __LINE__)
/** zam_strdup_f() */
#define zam_strdup(text) zam_strdup_f((text), __FILE__, __LINE__)
/** zam_strndup_f() */
#define zam_strndup(text, length) zam_strndup_f((text), (length), __FILE__, __LINE__)
/** @} */

#ifdef __cplusplus
}
#endif

#endif
