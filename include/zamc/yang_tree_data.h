/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_YANG_TREE_DATA_H
#define ZAMC_YANG_TREE_DATA_H

#include <stdint.h>

#include <libyang/libyang.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * Making, linking, reading and destroying libyang data trees.
 *
 * The trees of this library hold libyang's own nodes, opaque nodes (libyang's, without a schema node) and lightweight
 * nodes: records with the layout of `struct lyd_node_inner` that come from the memory hooks and stand for inner nodes
 * that libyang would not create alone, such as a list entry whose keys are not known yet. A lightweight node carries
 * bit 0 of `priv`; applications leave `priv` of the nodes of these trees alone.
 *
 * Such a tree can be printed and duplicated by libyang (a duplicate holds libyang's own nodes only) and can take
 * further nodes of libyang. It is not for libyang's validation, searches by key or free functions:
 * zam_lyd_tree_destroy() is the way to free every tree that this library made or handed out.
 *
 * A tree belongs to one thread at a time. Unless said otherwise a null node gives null or 0, messages go out at
 * level 3, and a new node belongs to its parent, or to the caller when it has none.
 */

/**
 * @name Nodes of the input of an operation, and of data
 *
 * Each creates the child `name` of `parent`, or a top-level node when `parent` is null, and returns it; null after a
 * log line when libyang refuses. `module` is the module that defines the node; null stands for the parent's module and
 * is refused when there is no parent or an opaque one. A node that another module augments into the parent needs that
 * module. libyang puts a child at its place in schema order, before all opaque ones.
 * @{
 */

/**
 * A container, an operation or a notification.
 *
 * @param parent where it becomes a child, or null
 * @param module of the node; null for that of the parent
 * @param name the node's
 * @return the node; null after a log line when libyang refuses
 */
struct lyd_node *zam_lyd_new_inner(struct lyd_node *parent, const struct lys_module *module, const char *name);

/**
 * A list entry.
 *
 * @param parent where it becomes a child, or null
 * @param module of the node; null for that of the parent
 * @param name the node's
 * @param keys its key predicates, as in `[k='v']`; null makes an entry of a list without keys
 * @return the node; null after a log line when libyang refuses
 */
struct lyd_node *zam_lyd_new_list(struct lyd_node *parent, const struct lys_module *module, const char *name,
                                  const char *keys);

/**
 * A leaf or leaf-list entry.
 *
 * @param parent where it becomes a child, or null
 * @param module of the node; null for that of the parent
 * @param name the node's
 * @param value its text, copied and checked against the type; null is ""
 * @return the node; null after a log line when libyang refuses
 */
struct lyd_node *zam_lyd_new_leaf(struct lyd_node *parent, const struct lys_module *module, const char *name,
                                  const char *value);

/**
 * An anydata or anyxml node.
 *
 * With LYD_ANYDATA_DATATREE `value` is a tree (or null) that the new node takes over; it stays the caller's when the
 * call fails. With any other type it is a text, which is copied: libyang parses the text of an anydata at once, an
 * object in JSON or elements in XML, and refuses all else. No text and the empty text make an empty node.
 *
 * @param parent where it becomes a child, or null
 * @param module of the node; null for that of the parent
 * @param name the node's
 * @param value a tree or a text, as `type` says
 * @param type kind of the value
 * @return the node; null after a log line when libyang refuses
 */
struct lyd_node *zam_lyd_new_any(struct lyd_node *parent, const struct lys_module *module, const char *name,
                                 const void *value, LYD_ANYDATA_VALUETYPE type);
/** @} */

/**
 * @name Nodes of the output of an operation
 *
 * As their counterparts for the input; below an operation they find the nodes of its output.
 * @{
 */

/**
 * A container.
 *
 * @param parent where it becomes a child, or null
 * @param module of the node; null for that of the parent
 * @param name the node's
 * @return the node; null after a log line when libyang refuses
 */
struct lyd_node *zam_lyd_new_output_inner(struct lyd_node *parent, const struct lys_module *module, const char *name);
/**
 * A list entry.
 *
 * @param parent where it becomes a child, or null
 * @param module of the node; null for that of the parent
 * @param name the node's
 * @param keys as for zam_lyd_new_list()
 * @return the node; null after a log line when libyang refuses
 */
struct lyd_node *zam_lyd_new_output_list(struct lyd_node *parent, const struct lys_module *module, const char *name,
                                         const char *keys);
/**
 * A leaf or leaf-list entry.
 *
 * @param parent where it becomes a child, or null
 * @param module of the node; null for that of the parent
 * @param name the node's
 * @param value as for zam_lyd_new_leaf()
 * @return the node; null after a log line when libyang refuses
 */
struct lyd_node *zam_lyd_new_output_leaf(struct lyd_node *parent, const struct lys_module *module, const char *name,
                                         const char *value);
/**
 * An anydata or anyxml node.
 *
 * @param parent where it becomes a child, or null
 * @param module of the node; null for that of the parent
 * @param name the node's
 * @param value as for zam_lyd_new_any()
 * @param type as there
 * @return the node; null after a log line when libyang refuses
 */
struct lyd_node *zam_lyd_new_output_any(struct lyd_node *parent, const struct lys_module *module, const char *name,
                                        const void *value, LYD_ANYDATA_VALUETYPE type);
/** @} */

/**
 * Gives a leaf another value.
 *
 * @param node a leaf with a schema node
 * @param value checked against the type
 * @return libyang's code, LY_SUCCESS (0) when the value has changed. Every other code is logged, also LY_ENOT and
 *         LY_EEXIST, by which libyang says that the value was the same.
 */
LY_ERR zam_lyd_change_leaf(struct lyd_node *node, const char *value);

/**
 * Copies one node.
 *
 * @param node of any kind
 * @param options those of lyd_dup_single(), such as LYD_DUP_RECURSIVE for the descendants
 * @return the copy, without parent, for the caller to destroy; null after a log line on failure
 */
struct lyd_node *zam_lyd_dup(const struct lyd_node *node, uint32_t options);

/**
 * Makes a top node of a yang-data template (RFC 8040).
 *
 * With `yang_data_name` only the first extension instance of that name is tried, without it every instance of the
 * module in turn, whatever its kind, until one holds a top node `name`.
 *
 * @param module that has the template
 * @param yang_data_name the template's, or null
 * @param name the node's
 * @return the node, for the caller to destroy; null after a log line for each instance that refused, and silently when
 *         the module has no instance to try
 */
struct lyd_node *zam_lyd_new_yangdata(const struct lys_module *module, const char *yang_data_name, const char *name);

/**
 * A node made whatever libyang thinks of it.
 *
 * - An inner schema node makes a lightweight node, linked as the last child; the keys of a list entry are the caller's
 *   to add.
 * - A leaf or leaf-list makes a node of libyang: an opaque one when `value` is null or `value_length` 0 (unless the
 *   type is empty), and for every identity, which is thus never validated here, without the prefix of the leaf's own
 *   module (the text after its first colon, when that module's name and a colon stand in it). Any other value must suit
 *   the type; it is tried as input first and as output then, each refusal with its log line. A leaf without `parent`
 *   is created as if it had one and has none afterwards.
 *
 * @param schema what it is a node of
 * @param parent where it becomes a child, or null
 * @param value ended by a NUL, or null
 * @param value_length in bytes, of which only zero or not counts
 * @return the node; null when `schema` is null, `parent` is of a kind without children, libyang refuses, or (without a
 *         line of its own) memory is short
 */
struct lyd_node *zam_lyd_node_lightweight_new(const struct lysc_node *schema, struct lyd_node *parent,
                                              const char *value, uint32_t value_length);

/**
 * A lightweight entry of a list that is found among the children of the parent's schema node (choices are not looked
 * through).
 *
 * @param parent where it becomes the last child
 * @param name the list's
 * @return the entry; null when either is null, the parent is opaque or there is no such list
 */
struct lyd_node *zam_lyd_node_lightweight_new_list(struct lyd_node *parent, const char *name);

/**
 * Goes to the first child.
 *
 * @param node of any kind
 * @return the child; null when there is none or the node is of a kind without children
 */
struct lyd_node *zam_lyd_child(const struct lyd_node *node);

/**
 * The value of a node as text.
 *
 * @param node of any kind
 * @return the canonical text of a leaf or leaf-list entry, the text of an opaque node, null for any other. It belongs
 *         to the tree and lives as long as the node and its value.
 */
const char *zam_lyd_value_string(const struct lyd_node *node);

/**
 * The value of metadata as text.
 *
 * @param meta of a node
 * @return the canonical text, which belongs to the tree
 */
const char *zam_lyd_meta_value(const struct lyd_meta *meta);

/**
 * The value as a number, or as a pointer in a number wide enough for one:
 *
 * - an enumeration: the item's value in the low 32 bits, to be read as a signed 32-bit number;
 * - a boolean: 0 or 1;
 * - bits whose bitmap takes 1, 2 or 4 bytes: the bitmap; of one of 8 bytes the first 4 only, that is the positions
 *   0 to 31; of a larger one the address;
 * - everything else, unions included: the address of the text that zam_lyd_value_string() returns, 0 for none.
 *
 * @param node a leaf or leaf-list entry
 * @return the value; addresses are borrowed from the tree
 */
uintptr_t zam_lyd_get_value(const struct lyd_node *node);

/**
 * @name Linking by hand
 *
 * These splice whole sibling lists, given by their first nodes, through `parent`, `next`, `prev` and `child` alone.
 * They leave libyang's hash tables as they are, so that libyang may not find such nodes: they serve trees that are
 * printed or parsed again. A list that is given must not be linked elsewhere.
 * @{
 */

/**
 * Appends a list to another one, whose parent it gets.
 *
 * @param first the first node of one list, or null
 * @param other the first node of the list to append, or null
 * @return `first`; when that is null, `other`
 */
struct lyd_node *zam_tree_add_sibling(struct lyd_node *first, struct lyd_node *other);

/**
 * Puts a list in front of another one, whose parent it gets.
 *
 * @param first the first node of one list, or null
 * @param other the first node of the list to put in front, or null
 * @return `other`; when that is null, `first`
 */
struct lyd_node *zam_tree_insert_sibling(struct lyd_node *first, struct lyd_node *other);

/**
 * Appends a list to the children of a node.
 *
 * @param parent nothing happens for null and for a kind without children
 * @param list the first node of the list; nothing happens for null
 */
void zam_tree_add_child(struct lyd_node *parent, struct lyd_node *list);
/** @} */

/**
 * Looks for a child by its schema node, also the one that an opaque node would have; see zam_lyd_get_schema().
 *
 * @param node whose children
 * @param schema of the same context
 * @return the first such child; null when there is none
 */
struct lyd_node *zam_find_child_by_schema(const struct lyd_node *node, const struct lysc_node *schema);

/**
 * Tells whether a list entry holds more than its keys.
 *
 * @param node of any kind
 * @return 1 when it is a list entry with a child that is no key leaf (an opaque one is none), else 0
 */
int32_t zam_has_non_key_child(const struct lyd_node *node);

/**
 * Looks for an action, depth first, in a list of siblings and their descendants. An opaque node ends the search of its
 * own sibling list, the search of the list above goes on.
 *
 * @param first the first sibling
 * @return the first action; null when there is none
 */
struct lyd_node *zam_find_action_node(struct lyd_node *first);

/**
 * Frees a node of any kind with all its siblings, whichever of them is given, and all their descendants, trees inside
 * anydata included. The parent stays, without children. Null is ignored.
 *
 * @param node not to be used any more
 */
void zam_lyd_tree_destroy(struct lyd_node *node);

/**
 * Frees one node. A node of libyang and an opaque one go with their descendants. A lightweight node goes alone: its
 * children stay alive without a parent, as siblings of each other, and are the caller's. Null is ignored.
 *
 * @param node not to be used any more
 */
void zam_lyd_tree_destroy_nosibling(struct lyd_node *node);

#ifdef __cplusplus
}
#endif

#endif
