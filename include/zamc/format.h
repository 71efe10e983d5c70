/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_FORMAT_H
#define ZAMC_FORMAT_H

#include <stdint.h>

#include <zamc/attributes.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
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
/**
 * Releases a bytes object; null is ignored.
 *
 * @param bytes  not to be used any more
 */
void zamc_free_bytes(zamc_bytes *bytes);

/** A document: a format, a data tree and a current directory (the data path from which relative paths start). */
typedef struct zamc_doc zamc_doc;

/** Where zamc_iter_doc() moves. */
enum zamc_direction {
    ZAMC_DIRECTION_PARENT = 0,   /**< the node above */
    ZAMC_DIRECTION_CHILD = 1,    /**< the first node below */
    ZAMC_DIRECTION_PREVIOUS = 2, /**< the sibling before */
    ZAMC_DIRECTION_NEXT = 3      /**< the sibling behind */
};

/**
 * Makes an empty document to be filled with zamc_new_node() and zamc_del_node().
 * @param format  1 XML, 2 JSON: the form in which values are given to zamc_new_node()
 * @return the document, the caller's to free with zamc_free_doc(); null when no module was loaded with
 *         zamc_load_module(), or when memory is short
 */
zamc_doc *zamc_new_doc(uint32_t format);
/**
 * Releases a document with its tree and directory; null is ignored.
 *
 * @param doc  not to be used any more
 */
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
 * @param doc     stays as it is
 * @param format  1 XML, 2 JSON
 * @return a new object, the caller's to free; null for a null or empty document or when it cannot be printed
 */
zamc_bytes *zamc_format_doc(zamc_doc *doc, uint32_t format);
/**
 * Sets the current directory. A relative path is joined to the old directory as text: "." and ".." have no meaning.
 * That there is a node at the directory is not required.
 * @param doc   whose directory it is
 * @param path  absolute or relative; copied
 * @return 0, -3 for a null argument, -2 when memory is short (the old directory stays)
 */
int32_t zamc_change_dir(zamc_doc *doc, const char *path);
/**
 * The current directory.
 *
 * @param doc  null has none
 * @return text borrowed until the document changes; null while none is set
 */
const char *zamc_current_dir(const zamc_doc *doc);
/**
 * Adds a node with the operation "merge", together with the ancestors on its path.
 * @param doc     unchanged on failure
 * @param path    absolute, or relative to the directory; null for the directory itself
 * @param format  printf-style value; null or an empty result makes the node without a value, as for an empty leaf, a
 *                list entry whose keys the path gives, or an entry of a leaf-list that it names (`search[.='a']`).
 *                Booleans and enumerations are given by their numbers ("%d" with 1, 0 or the value of the enum), in
 *                leaf-lists too; a text that is no number is refused. Any other leaf is given as bare text in a JSON
 *                document and as an element in an XML one, whose text counts as it stands, without "</", "></" and "/>"
 *                in it: no entity is resolved, and identities carry the name of their module, not a prefix. Containers,
 *                lists and leaf-lists are given as the value in the document's format: an object, an array, or the
 *                complete elements. An array of numbers is refused; entries of such a leaf-list are named by the path.
 * @return 0, -3 for a null document or no place to start from, -2 when memory is short, -1 when the path or the value
 * is refused; the document is unchanged then
 */
int32_t zamc_new_node(zamc_doc *doc, const char *path, const char *format, ...) ZAM_PRINTF(3, 4);
/**
 * Adds a node with the operation "delete" and without a value.
 *
 * @param doc   unchanged on failure
 * @param path  absolute, or relative to the directory; null for the directory itself
 * @return as zamc_new_node()
 */
int32_t zamc_del_node(zamc_doc *doc, const char *path);
/**
 * Looks for a node.
 *
 * @param doc   null holds none
 * @param path  absolute, or relative to the directory; null for the directory itself
 * @return 1 when the document holds a node there, else 0
 */
int32_t zamc_node_is_present(zamc_doc *doc, const char *path);
/**
 * Moves the directory from its node to a neighbour. Made for documents that were parsed: in one that was built by
 * zamc_new_node() and zamc_del_node() several nodes may have the same path, and a path leads to the first of them.
 * @param doc        whose directory moves
 * @param direction  0 parent, 1 first child, 2 previous sibling (of a first sibling: the last one), 3 next sibling
 * @return the schema name of the node reached, borrowed from the schema; null when there is none, with the directory
 *         unchanged
 */
const char *zamc_iter_doc(zamc_doc *doc, uint32_t direction);
/**
 * The value text of a leaf or leaf-list entry; identities of the leaf's own module come without their prefix.
 * @param doc   null holds nothing
 * @param path  absolute, or relative to the directory; null for the directory itself
 * @return text borrowed until the document changes; null when there is no such node or it is no leaf
 */
const char *zamc_node_content(zamc_doc *doc, const char *path);
/**
 * Reads a leaf with a scanf-style format. Enumerations and booleans are scanned as their numbers.
 * @param doc     stays as it is
 * @param path    absolute, or relative to the directory; null for the directory itself
 * @param format  each %s, %c and %[ takes a pointer and then the size of its buffer in bytes (32-bit unsigned); a text
 *                that does not fit is not stored
 * @return 0 when at least one item was read, -3 for an invalid argument or a node that is no leaf, -5 when there is no
 *         node, -1 for a node without schema, -2 when nothing could be read
 */
int32_t zamc_parse_node(zamc_doc *doc, const char *path, const char *format, ...);
/**
 * Prints one node: of a leaf its value text; else, in XML the elements of the node and the siblings after it, in JSON
 * the value of the first member that is printed so, without its name.
 * @param doc     stays as it is
 * @param path    absolute, or relative to the directory; null for the directory itself
 * @param format  1 XML, 2 JSON
 * @return a new object of `format`, the caller's to free; null when there is no such node
 */
zamc_bytes *zamc_format_node(zamc_doc *doc, const char *path, uint32_t format);
/**
 * The value of a node's metadata. "operation" is inherited from the nearest ancestor that states one (RFC 6241, 7.2).
 * @param doc   null holds nothing
 * @param path  absolute, or relative to the directory; null for the directory itself
 * @param name  the metadata's name without its module: "operation", "origin-value", "origin-position"
 * @return text borrowed until the document changes; null when there is none
 */
const char *zamc_node_attr(zamc_doc *doc, const char *path, const char *name);

#ifdef __cplusplus
}
#endif

#endif
