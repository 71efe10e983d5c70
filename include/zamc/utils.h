/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */

/** @file
 * Byte buffer, string builder, date-times, identifiers and other small helpers.
 *
 * None of the objects here locks; each belongs to one owner at a time.
 */
#ifndef ZAMC_UTILS_H
#define ZAMC_UTILS_H

#include <stdarg.h>
#include <stdint.h>
#include <time.h>

#include <zamc/attributes.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Encodings, as frames, the attribute `encode` and bytes objects number them. */
enum zam_encode {
    ZAM_ENCODE_UNKNOWN = 0, /**< left open */
    ZAM_ENCODE_XML = 1,     /**< XML, as YANG has it in RFC 7950 */
    ZAM_ENCODE_JSON = 2,    /**< JSON, as YANG has it in RFC 7951 */
    ZAM_ENCODE_GPB = 3      /**< has its number in frames; nothing here reads or writes it */
};

/** @name Byte buffer
 * @{ */

/**
 * A growable byte buffer.
 *
 * The content is data[0] to data[length - 1], and the byte behind it is 0 after every operation that succeeds, so it
 * also reads as a text; length is always below capacity then. Pointers into `data` are void after the next operation.
 */
typedef struct zam_rw_bytes {
    uint32_t capacity; /**< bytes allocated */
    uint32_t length;   /**< bytes in use */
    char *data;        /**< a block from the memory hooks, or null when capacity is 0 */
} zam_rw_bytes;

/**
 * Makes an empty buffer of exactly `capacity` zeroed bytes.
 *
 * @param capacity  in bytes
 * @return the buffer, to be released with zam_rw_bytes_free(). Null for capacity 0, silently, or when there is no
 * memory, which is logged at level 0.
 */
zam_rw_bytes *zam_rw_bytes_new(uint32_t capacity);

/**
 * Releases a buffer of zam_rw_bytes_new() and its content. Null is ignored.
 *
 * @param buffer  not to be used any more
 */
void zam_rw_bytes_free(zam_rw_bytes *buffer);

/**
 * Appends bytes.
 *
 * If they and the terminator do not fit, the block grows to the next multiple of 8192 bytes above what is then in use,
 * or of 2 MiB if its capacity was 65536 or more.
 *
 * @param buffer  where to
 * @param data    outside the buffer. Null reserves: the length advances over whatever the block holds there.
 * @param length  number of bytes
 * @return 0, or -1 with the buffer as it was: no memory, which is logged at level 0 (a size that would not fit 32 bits
 *         counts as that), or a null buffer
 */
int32_t zam_rw_bytes_push(zam_rw_bytes *buffer, const void *data, uint32_t length);

/**
 * Puts bytes before the content. The buffer grows as in zam_rw_bytes_push().
 *
 * @param buffer  where to
 * @param data    outside the buffer. With null nothing moves: the reserved bytes are at the end, as with
 *                zam_rw_bytes_push(), on which callers that fill a reserved area rely.
 * @param length  number of bytes
 * @return as zam_rw_bytes_push()
 */
int32_t zam_rw_bytes_push_front(zam_rw_bytes *buffer, const void *data, uint32_t length);

/**
 * Appends a formatted text. If it and its terminator do not fit, the block gets exactly the size that they need.
 *
 * @param buffer  where to
 * @param format  printf format of the text
 * @return 0; -1 with the buffer as it was for a null argument, a format that fails (logged at level 3) or no memory
 */
int32_t zam_rw_bytes_pushf(zam_rw_bytes *buffer, const char *format, ...) ZAM_PRINTF(2, 3);

/**
 * As zam_rw_bytes_pushf(), with the values as a list.
 *
 * @param buffer  where to
 * @param format  printf format of the text
 * @param args    undefined after the call
 * @return as zam_rw_bytes_pushf()
 */
int32_t zam_rw_bytes_vpushf(zam_rw_bytes *buffer, const char *format, va_list args) ZAM_PRINTF(2, 0);

/**
 * Drops the first `length` bytes; all of them if there are no more.
 *
 * If then less than half of a block above 8192 bytes is in use, the block shrinks to the next multiple of 8192 bytes
 * above what is in use. That needs memory for a moment: without it the block stays as large as it is.
 *
 * @param buffer  null is ignored
 * @param length  number of bytes
 */
void zam_rw_bytes_pop_front(zam_rw_bytes *buffer, uint32_t length);

/**
 * Drops the last `length` bytes, otherwise as zam_rw_bytes_pop_front().
 *
 * @param buffer  null is ignored
 * @param length  number of bytes
 */
void zam_rw_bytes_pop_back(zam_rw_bytes *buffer, uint32_t length);

/**
 * Moves the content to a block of exactly `capacity` bytes. Without memory, which is logged at level 0, nothing
 * changes.
 *
 * @param buffer    null is ignored
 * @param capacity  above the length: what does not fit is lost though `length` still counts it, until the next push or
 *                  pop puts it right. 0 releases the block and makes the whole record zero.
 */
void zam_rw_bytes_resize(zam_rw_bytes *buffer, uint32_t capacity);

/** @} */
/** @name String builder
 * @{ */

/** Size of a string builder's inline storage in bytes, terminator included. */
enum { ZAM_STRING_INLINE = 128 };

/**
 * A text under construction, embedded in the caller's record. Short texts need no allocation.
 *
 * All zero, or zam_init_string(), is an empty one. As `text` may point into the record, the record must not be copied
 * or moved. zam_reset_string() releases what it holds.
 */
typedef struct zam_string {
    char *text;                          /**< the text, ended by a NUL; null before the first use */
    uint32_t length;                     /**< characters, without the terminator */
    uint32_t capacity;                   /**< bytes that `text` has room for, terminator included */
    char inline_text[ZAM_STRING_INLINE]; /**< where `text` points while it is short */
} zam_string;

/**
 * Makes an empty text in inline storage, without releasing anything: for a record that was not used before.
 *
 * @param string  its content is not looked at; null is ignored
 */
void zam_init_string(zam_string *string);

/**
 * Releases a block if there is one, and makes the text empty.
 *
 * @param string  usable again; null is ignored
 */
void zam_reset_string(zam_string *string);

/**
 * Appends characters. If they and the terminator do not fit, the text moves to a block of capacity + `length` + 1
 * bytes, but at least of twice the capacity.
 *
 * @param string  where to
 * @param data    need not end in a NUL; null appends nothing
 * @param length  number of characters
 * @return the whole text, which stays the builder's and may move with the next call; null when there is no memory,
 * which is logged at level 3 and leaves the text as it was, or for a null builder
 */
char *zam_put_string(zam_string *string, const char *data, uint32_t length);

/** @} */
/** @name Errors, numbers, formats
 * @{ */

/**
 * The text of an error number.
 *
 * @param errnum  an errno value
 * @return the text, never null, valid until the same thread calls again
 */
const char *zam_get_str_error(int32_t errnum);

/**
 * Adds without wrapping.
 *
 * @param a  one number
 * @param b  the other
 * @return the sum, or 0xFFFFFFFFFFFFFFFF when it does not fit
 */
uint64_t zam_uint64_safe_add(uint64_t a, uint64_t b);

/**
 * From a data format of libyang to an encoding.
 *
 * @param format  libyang's LYD_FORMAT
 * @return of enum zam_encode: 1 XML, 2 JSON; 0 for LYB and anything else
 */
uint32_t zam_lydfmt2ownfmt(uint32_t format);

/**
 * From an encoding to a data format of libyang.
 *
 * @param encode  of enum zam_encode
 * @return libyang's LYD_FORMAT: 1 for XML, 2 for JSON; 0 for gpb and anything else
 */
uint32_t zam_ownfmt2lydfmt(uint32_t encode);

/** @} */
/** @name Time and identifiers
 * @{ */

/**
 * Reads a date-time of RFC 3339, section 5.6 (YANG's date-and-time), such as "2026-11-15T08:01:55.5+02:00".
 *
 * The fraction is skipped, the character between date and time may be any, and values are not checked: mktime puts
 * ranges right. Two things differ from the RFC and stay so for the callers that rely on them: date and time are taken
 * in the local time zone of the process before a numeric offset is subtracted, so the result is exact in a process that
 * runs in UTC; and the offset has the sign of its hours alone, so "-00:30" counts as 30 minutes ahead.
 *
 * @param text  ended by a NUL
 * @param time  receives the time in seconds since 1970; unchanged on failure
 * @return 0; -1 for a null argument, a text of fewer than 20 characters, or a separator or offset out of place, which
 * is logged at level 3, and, silently, when mktime gives -1
 */
int32_t zam_datetime2time(const char *text, time_t *time);

/**
 * Writes a time as a date-time of RFC 3339 in UTC, such as "1970-01-01T00:00:00+00:00".
 *
 * @param time  in seconds since 1970
 * @param text  receives a new text, to be released with zam_free(); unchanged on failure
 * @return 0; -1 for a null argument or a time that has no calendar date, silently, or no memory, which is logged at
 * level 3
 */
int32_t zam_time2datetime(time_t time, char **text);

/**
 * Makes an identifier in the form of a version 4 UUID (RFC 4122, section 4.4): 36 characters in lower case.
 *
 * Enough to tell things of one process apart, not to keep a secret or to be unique: it is seeded with the microsecond
 * within the current second, so that two calls within one microsecond give the same text. No byte is ever ff.
 *
 * @return a new text, to be released with zam_free(), or null when there is no memory
 */
char *zam_get_uuid(void);

/**
 * Milliseconds of the wall clock in signed 32 bits, sign-extended. For differences of less than 24 days, taken in 32
 * bits.
 *
 * @return the time in ms; it wraps every 49.7 days and may be negative
 */
int64_t zam_get_ms(void);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
