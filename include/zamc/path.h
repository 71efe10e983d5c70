/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_PATH_H
#define ZAMC_PATH_H

#include <stdint.h>

#include <libyang/libyang.h>
#include <zamc/vector.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * The language of paths, and what is done with them: read segment by segment, written in one normal form, resolved to
 * schema nodes.
 *
 *     path       = ["/"] segment {"/" segment} ["/"]
 *     segment    = identifier [":" identifier] {predicate}
 *     predicate  = "[" key "=" value "]"
 *     key        = "." | [identifier ":"] identifier
 *     identifier = (letter | "_") {letter | digit | "-" | "_" | "."}
 *
 * No blanks are skipped; every character counts. Letters and digits are those of the current locale, byte by byte. The
 * key "." followed by "=" selects a leaf-list entry by its value. A value is
 * - in double quotes: up to the next double quote; a backslash takes the next character as it is;
 * - in single quotes: up to the next single quote, without escapes;
 * - without quotes: one character or more, up to the first "]".
 *
 * A path is read in time proportional to its length. Nothing is kept between calls, and all functions may be called
 * from any thread.
 */

/** One key of a list entry, or the value of a leaf-list entry. */
typedef struct zam_path_key {
    char *name;  /**< the key leaf without prefix, or "." */
    char *value; /**< without quotes, escapes resolved; may be empty */
} zam_path_key;

/** One segment. Everything in it belongs to it. */
typedef struct zam_path_node {
    char *prefix;     /**< the module's name as written, or null */
    char *name;       /**< the node's name */
    zam_vector *keys; /**< zam_path_key pointers in the order written; null without predicates */
} zam_path_node;

/**
 * Reads the segment that a text begins with. The character behind it is not looked at.
 *
 * Syntax errors are logged after the message of the step that failed: a character that begins no identifier ("Get
 * identifier from path(%s) unsuccessful."), a key name or a value that cannot be read ("Get key name from path(%s)
 * unsuccessful.", "Get key value from path(%s) unsuccessful."), a predicate that does not end ("Key format incorrect in
 * path(%s)."). The last one also refuses a segment of more than 256 keys: more than any list has, and a bound on the
 * work that one segment can ask for.
 *
 * @param text      ended by a NUL; may go on behind the segment
 * @param position  the number of bytes of the segment is added to it; unchanged on failure. May be null
 * @return the segment, to be released with zam_free_path_node(); null without memory and on a syntax error
 */
zam_path_node *zam_get_path_node(const char *text, uint32_t *position);

/**
 * Releases a path node and sets the caller's pointer to null.
 *
 * @param node  address of the caller's pointer
 */
void zam_free_path_node(zam_path_node **node);

/**
 * The normal form of a path: prefixes of segments as written, key names without prefix, key values in double quotes
 * with a backslash before each backslash and double quote. A trailing slash is kept; "" and "/" are their own normal
 * forms.
 *
 * @param path       as described above
 * @param keep_keys  0 leaves the predicates out
 * @return a new text, to be released with zam_free(); null on any error
 */
char *zam_format_data_path(const char *path, int32_t keep_keys);

/**
 * As zam_format_data_path() with the keys kept, for a path that holds a "["; any other is copied unchecked.
 *
 * @param path  may be null
 * @return a new text, to be released with zam_free(); null for null and on any error
 */
char *zam_format_path(const char *path);

/**
 * The schema node that a path leads to.
 *
 * Without `start` the path is absolute: its first character is skipped and its first segment needs a prefix, the name
 * of an implemented module. With `start` it is relative to that node and to its module. A step is the child of that
 * name in the module of its prefix, or, without one, of the node above. Choices and cases are steps that must be named.
 * A segment "input" or "output" is skipped, and after "output" operations show their outputs instead of their inputs,
 * for the rest of the path. Keys are ignored, as is one trailing slash.
 *
 * A segment that is followed by anything but "/" or the end stops the walk without an error: the node reached before it
 * is the result, which for the first segment is `start`. The path "/" gives null.
 *
 * @param ctx    where to look
 * @param start  where a relative path begins; null for an absolute one
 * @param path   as described above
 * @return the node, which belongs to the context and lives until its schema is compiled again; null when there is none
 */
const struct lysc_node *zam_find_schema_by_path(const struct ly_ctx *ctx, const struct lysc_node *start,
                                                const char *path);

/**
 * The schema path, with choices, cases, input and output, of the node that a data path leads to (through
 * zam_lys_find_path()).
 *
 * @param ctx   where to look
 * @param path  an absolute data path
 * @return a new text, to be released with zam_free(); null when the path is null, leads nowhere or cannot be printed
 */
char *zam_format_data2schema(const struct ly_ctx *ctx, const char *path);

#ifdef __cplusplus
}
#endif

#endif
