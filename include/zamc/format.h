/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_FORMAT_H
#define ZAMC_FORMAT_H

#include <stdint.h>

#include <zamc/attributes.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Bytes objects carry a payload with its encoding between application and library; documents let an application read
 * and build data without knowing libyang, with a current directory in the manner of a shell.
 *
 * Nothing here is locked: an object belongs to one thread at a time. Unless said otherwise a function returns 0 for
 * success, -3 for an invalid argument, -2 when memory or a text conversion failed, -5 when there is no such node, and
 * -1 for any other failure, which has been logged.
 */

/** A payload. Made by zamc_new_bytes() or handed out by the library; released by zamc_free_bytes(). */
typedef struct zamc_bytes {
    uint32_t format; /**< #ZAM_ENCODE_XML or #ZAM_ENCODE_JSON */
    int32_t length;  /**< bytes, without the terminator */
    char *data;      /**< the text, terminated, in the same block as the record; null when length is 0 */
} zamc_bytes;

/**
 * Makes a bytes object with a copy of `data`.
 * @param data    `length` bytes; may be null when length is 0
 * @param length  in bytes, 0 or more
 * @param format  1 XML, 2 JSON; not checked here
 * @return the object, the caller's to free with zamc_free_bytes(); null for a negative length, for null data with a
 *         length, or when memory is short
 */
zamc_bytes *zamc_new_bytes(const void *data, int32_t length, uint32_t format);
/** Releases a bytes object; null is ignored. */
void zamc_free_bytes(zamc_bytes *bytes);

/** A document: a format, a data tree and a current directory (the data path from which relative paths start). */
typedef struct zamc_doc zamc_doc;

/** Where zamc_iter_doc() moves. */
enum zamc_direction {
    ZAMC_DIRECTION_PARENT = 0,
    ZAMC_DIRECTION_CHILD = 1,
    ZAMC_DIRECTION_PREVIOUS = 2,
    ZAMC_DIRECTION_NEXT = 3
};

/**
 * Makes an empty document to be filled with zamc_new_node() and zamc_del_node().
 * @param format  1 XML, 2 JSON: the form in which values are given to zamc_new_node()
 * @return the document, the caller's to free with zamc_free_doc(); null when no module was loaded with
 *         zamc_load_module(), or when memory is short
 */
zamc_doc *zamc_new_doc(uint32_t format);
/** Releases a document with its tree and directory; null is ignored. */
void zamc_free_doc(zamc_doc *doc);
/**
 * Reads a payload as the value of the node at `path`: "/" for a whole document, else what zamc_pull() returns for that
 * path. What is no data is tried as an operation.
 * @param bytes  the payload; left as it is
 * @param path   absolute data path; becomes the document's directory
 * @return a document of the payload's format, the caller's to free; null for a null argument or text that does not
 * parse
 */
zamc_doc *zamc_parse_bytes(const zamc_bytes *bytes, const char *path);
/**
 * Prints the whole document.
 * @param format  1 XML, 2 JSON
 * @return a new object, the caller's to free; null for a null or empty document or when it cannot be printed
 */
zamc_bytes *zamc_format_doc(zamc_doc *doc, uint32_t format);
/**
 * Sets the current directory. A relative path is joined to the old directory as text: "." and ".." have no meaning.
 * That there is a node at the directory is not required.
 * @return 0, -3 for a null argument, -2 when memory is short (the old directory stays)
 */
int32_t zamc_change_dir(zamc_doc *doc, const char *path);
/** The current directory, borrowed until the document changes; null while none is set and for a null document. */
const char *zamc_current_dir(const zamc_doc *doc);
/**
 * Adds a node with the operation "merge", together with the ancestors on its path.
 * @param path    absolute, or relative to the directory; null for the directory itself
 * @param format  printf-style value; null or an empty result makes the node without a value. Booleans and enumerations
 *                are given by their numbers ("%d" with 1, 0 or the value of the enum). Other leaves are given as bare
 *                text in a JSON document and as an element in an XML one; containers, lists and leaf-lists as the value
 *                in the document's format: an object or array, or the complete element.
 * @return 0, -3 for a null document or no place to start from, -2 when memory is short, -1 when the path or the value
 * is refused; the document is unchanged then
 */
int32_t zamc_new_node(zamc_doc *doc, const char *path, const char *format, ...) ZAM_PRINTF(3, 4);
/** Adds a node with the operation "delete" and without a value. Path and results as for zamc_new_node(). */
int32_t zamc_del_node(zamc_doc *doc, const char *path);
/** 1 when the document holds a node at the path, else 0. */
int32_t zamc_node_is_present(zamc_doc *doc, const char *path);
/**
 * Moves the directory from its node to a neighbour.
 * @param direction  0 parent, 1 first child, 2 previous sibling (of a first sibling: the last one), 3 next sibling
 * @return the schema name of the node reached, borrowed from the schema; null when there is none, with the directory
 *         unchanged
 */
const char *zamc_iter_doc(zamc_doc *doc, uint32_t direction);
/**
 * The value text of a leaf or leaf-list entry; identities of the leaf's own module come without their prefix.
 * @return text borrowed until the document changes; null when there is no such node or it is no leaf
 */
const char *zamc_node_content(zamc_doc *doc, const char *path);
/**
 * Reads a leaf with a scanf-style format. Enumerations and booleans are scanned as their numbers.
 * @param format  each %s, %c and %[ takes a pointer and then the size of its buffer in bytes (32-bit unsigned); a text
 *                that does not fit is not stored
 * @return 0 when at least one item was read, -3 for an invalid argument or a node that is no leaf, -5 when there is no
 *         node, -1 for a node without schema, -2 when nothing could be read
 */
int32_t zamc_parse_node(zamc_doc *doc, const char *path, const char *format, ...);
/**
 * Prints one node: of a leaf its value text; else, in XML the elements of the node and the siblings after it, in JSON
 * the value of the first member that is printed so, without its name.
 * @return a new object of `format`, the caller's to free; null when there is no such node
 */
zamc_bytes *zamc_format_node(zamc_doc *doc, const char *path, uint32_t format);
/**
 * The value of a node's metadata. "operation" is inherited from the nearest ancestor that states one (RFC 6241, 7.2).
 * @param name  the metadata's name without its module: "operation", "origin-value", "origin-position"
 * @return text borrowed until the document changes; null when there is none
 */
const char *zamc_node_attr(zamc_doc *doc, const char *path, const char *name);

#ifdef __cplusplus
}
#endif

#endif
