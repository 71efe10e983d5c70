/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_YANG_WRAP_H
#define ZAMC_YANG_WRAP_H

/**
 * @file
 * Nodes by path, content of anydata, error trees, and questions to schema and data nodes.
 */

#include <stdint.h>

#include <libyang/libyang.h>
#include <zamc/attributes.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @name Nodes by path
 *
 * Paths follow the grammar of <zamc/path.h>: "/module:name/child[key='value']", each predicate naming one key, or "."
 * for the value of a leaf-list entry. Trees that these functions build mix libyang's nodes with nodes of our own and
 * with opaque ones: release them with zam_lyd_tree_destroy only. No function keeps state; a tree belongs to one thread
 * at a time.
 * @{
 */

/** A text and the place in the data that it belongs to, as zam_parse_mem takes it. All texts are borrowed. */
typedef struct zam_mem_doc {
    const char *path;  /**< absolute path of the node that the text is the content of, or "/": a whole document */
    const char *data;  /**< the text; null and "" mean no content */
    LYD_FORMAT format; /**< LYD_XML or LYD_JSON */
} zam_mem_doc;

/**
 * Creates the nodes along a path.
 *
 * A step without prefix belongs to the module of the step before it. A list step makes a new entry, with the keys of
 * its predicates; an entry that is there already is not looked for. A leaf without a value is made as an opaque node
 * (of type empty: as itself), and so is the entry of a leaf-list. The value goes to each leaf, leaf-list and anydata
 * step of the path; where a predicate gives a value too (the key leaf of the entry, the entry of a leaf-list) both must
 * be the same. An anydata without value is made empty.
 *
 * On failure the new branch is destroyed together with all its siblings: below an existing parent this frees the
 * parent's other children as well, and callers count on a parent that holds nothing half done.
 *
 * @param parent the node to build below; null builds a new tree.
 * @param ctx the schema context; may be null when there is a parent.
 * @param path without parent an absolute path, else one relative to the parent.
 * @param value the text of the last node, or null.
 * @return the topmost node made (it belongs to the parent, or without one to the caller), or the key leaf of the parent
 *         that was there already; null on failure, after a line at level 3 except for a null argument and a path that
 *         does not begin with a well-formed step.
 */
struct lyd_node *zam_lyd_new_path(struct lyd_node *parent, const struct ly_ctx *ctx, const char *path,
                                  const char *value);

/**
 * Finds a node by path.
 *
 * An absolute path is matched against the given node and the siblings behind it, a relative one against the node's
 * children. A step without prefix matches the name in any module; predicates count for list entries (every key named
 * must be there and equal) and leaf-lists, whose value is compared whatever name the predicate gives. A key of type
 * identityref is compared without the module of the identity, so identities of foreign modules never match. A leaf,
 * leaf-list, anydata or anyxml ends the search even when the path goes on.
 *
 * A path is expected to single out one node on each level above the last: when the rest of the path is not found below
 * a first match, a second match on that level is reported as a malformed path instead of being searched.
 *
 * @param tree where to look
 * @param path absolute or relative
 * @return the node, borrowed from its tree; the tree itself for "/"; null when there is none (a line at level 7), when
 *         the path is malformed (a line at level 3), and for null arguments.
 */
struct lyd_node *zam_lyd_find_path(struct lyd_node *tree, const char *path);

/**
 * The absolute path of a node: module names where the module changes, every key of an entry in double quotes, with a
 * backslash before each double quote and backslash, and the value of a leaf-list entry as [.="value"].
 *
 * @param node of any kind
 * @return a new text to release with zam_free; null when the node or one above it is not known to the schema, for null,
 *         and without memory.
 */
char *zam_lyd_path(const struct lyd_node *node);

/**
 * Creates one leaf below a node, in the parent's module, with a text formatted as by printf.
 *
 * @param parent where it becomes a child
 * @param name the leaf's
 * @param format printf format of the value
 * @return 0; -1 for null arguments, when the text cannot be formatted or libyang refuses the leaf.
 */
int32_t zam_leaf_setf(struct lyd_node *parent, const char *name, const char *format, ...) ZAM_PRINTF(3, 4);

/**
 * The canonical text of a leaf or leaf-list entry found as by zam_lyd_find_path; of an opaque node its text as it is.
 *
 * @param tree where to look
 * @param path absolute or relative
 * @return the text, which belongs to the tree; null when nothing is found, or another kind of node (a line at level 3).
 */
const char *zam_leaf_get_raw(struct lyd_node *tree, const char *path);

/**
 * Reads the text of a leaf with a scanf format. Each %s, %c and %[ takes two arguments: the buffer and its size in
 * bytes, 32 bits unsigned; a text that does not fit counts as not read and leaves "".
 *
 * @param tree where to look
 * @param path absolute or relative
 * @param format scanf format
 * @return the number of items read, or -1 when the text ends before the first; 0 when there is no such leaf.
 */
int32_t zam_leaf_getf(struct lyd_node *tree, const char *path, const char *format, ...);

/**
 * Parses a text as the content of the node at a path. The caller's texts are never changed.
 *
 * With path "/" the text is a whole document. Without text the path alone makes the tree, its last node empty. Else, by
 * the kind of the node at the path:
 *
 * - container: in JSON the object of its members, in XML the whole element;
 * - list: in JSON the array of its entries, in XML one or more elements. What the path's predicates name is replaced by
 *   the content, which must hold the keys itself;
 * - leaf-list: in JSON an array of strings (arrays of numbers and booleans are refused), in XML the elements. An empty
 *   element leaves what the path says;
 * - leaf: in XML the element, whose text is taken as it stands; in JSON the bare text, without quotes, or with `bare`
 *   zero an object with the one member.
 *
 * The text is put into the printed form of the path by plain search. A key value in the path that holds {}, []
 * or }], or an empty key, is mistaken for the place of the content.
 *
 * @param ctx the schema context
 * @param doc the text, its format, and its place
 * @param options libyang's LYD_PARSE options for data; the result is validated with LYD_VALIDATE_PRESENT unless they
 *        hold LYD_PARSE_ONLY. Without meaning for an operation.
 * @param bare non-zero when a JSON text is the bare content; zero when it is wrapped as {"name": content}.
 * @param is_operation non-zero to parse the complete text as the request of an RPC or action.
 * @return a new tree to release with zam_lyd_tree_destroy; null on failure, after a line at level 3 from the step that
 *         failed. RPCs, actions, notifications and anydata take no content here.
 */
struct lyd_node *zam_parse_mem(const struct ly_ctx *ctx, const zam_mem_doc *doc, uint32_t options, int32_t bare,
                               uint8_t is_operation);

/** @} */

/**
 * @name Anydata
 * @{
 */

/**
 * The content of an anydata or anyxml node as text: a tree is printed without blanks in the format asked for, a stored
 * text is given as it is, whatever the format.
 *
 * @param node of any kind
 * @param format LYD_XML or LYD_JSON
 * @param length takes the length in bytes without the terminator; 0 when there is no text. May be null.
 * @return a new text to release with zam_free; null for an empty anydata, for any other node, for binary content (a
 * line at level 3), and when it cannot be printed.
 */
char *zam_anydata_dump(const struct lyd_node *node, LYD_FORMAT format, uint32_t *length);

/**
 * The content of an anydata or anyxml node as a tree: a copy of a stored tree, or a stored text parsed with `options`
 * (LYD_PARSE...) and LYD_VALIDATE_PRESENT, as XML when it begins with "<", else as JSON.
 *
 * @param ctx the schema context
 * @param node of any kind
 * @param options LYD_PARSE options of libyang
 * @return a new tree to release with zam_lyd_tree_destroy; null for null arguments, an empty anydata, any other node,
 *         binary content (a line at level 4), and a text that does not parse.
 */
struct lyd_node *zam_anydata2lyd_tree(const struct ly_ctx *ctx, const struct lyd_node *node, uint32_t options);

/**
 * Takes the value out of a pull reply in JSON: for path "/" the whole `data` object, else the value of its first
 * member. A string comes unescaped in UTF-8, anything else as printed. The halves of a surrogate pair are decoded each
 * by itself, U+FFFE and U+FFFF to four bytes, and a character of `\\uXXXX` that is no hexadecimal digit is skipped.
 *
 * The reply is expected as the server prints it: without blanks between tokens, `data` last, nothing after the last
 * brace.
 *
 * @param path as it was asked for
 * @param json the reply, ended by a NUL
 * @return a new text to release with zam_free; null when the reply holds no data, for null, and without memory.
 */
char *zam_get_value(const char *path, const char *json);

/**
 * Names JSON content after the last node of a path: {"name":content} for a content that begins with "{" or "[", else
 * {"name":"content"}, the content as it stands, without escaping. The name keeps the module prefix that the path's last
 * step has, and loses its predicates.
 *
 * @param path of the node whose content it is
 * @param content ended by a NUL, or null
 * @return a new text to release with zam_free: a copy of the content for path "/", two double quotes for null content;
 *         null for a null path and without memory.
 */
char *zam_add_name(const char *path, const char *content);

/** @} */

/**
 * @name Error trees
 * @{
 */

/**
 * Builds an rpc-error (RFC 6241, section 4.3) from the yang-data template `yang-errors` of the built-in ietf-netconf.
 * error-severity is never set.
 *
 * @param ctx the schema context
 * @param type "transport", "rpc", "protocol" or "application".
 * @param tag the error-tag; any text.
 * @param app_tag the error-app-tag, or null for none.
 * @param path the instance path of the node in error, or null for none.
 * @param format the error-message in the manner of printf, or null for none.
 * @return a new tree to release with zam_lyd_tree_destroy; null for a null context, and after a line at level 3 when
 * the context has no such template (the line names ietf-restconf) or a leaf is refused.
 */
struct lyd_node *zam_create_error(struct ly_ctx *ctx, const char *type, const char *tag, const char *app_tag,
                                  const char *path, const char *format, ...) ZAM_PRINTF(6, 7);

/**
 * Builds an rpc-error of type "protocol" from libyang's last error in the context and this thread, and clears libyang's
 * errors whether or not it could be built. The tag follows from libyang's validation code: "syntax", "invalid-value",
 * "semantic" or "operation-failed" (also without a code). libyang's message is the format of the error-message, so that
 * "%%" becomes "%"; a message that holds any other conversion, quoted from the data it complains about, stands as it
 * is.
 *
 * @param ctx the schema context
 * @return a new tree to release with zam_lyd_tree_destroy, or null as from zam_create_error.
 */
struct lyd_node *zam_get_ly_error(struct ly_ctx *ctx);

/**
 * Appends an error tree, with its siblings, behind the last sibling of another one, which owns it from then on.
 *
 * @param tree where to
 * @param error the other tree's from then on, when the result is 0
 * @return 0; -1 when either is null, when both are the same list, and when the error hangs below another node.
 */
int32_t zam_merge_error(struct lyd_node *tree, struct lyd_node *error);

/**
 * Tells whether a node is an rpc-error, opaque or not.
 *
 * @param node may be null
 * @return 1 when it is named rpc-error and belongs to ietf-netconf, else 0
 */
int32_t zam_is_rpc_error_node(const struct lyd_node *node);

/** @} */

/**
 * @name Schema nodes
 *
 * Questions to compiled schema nodes. They are borrowed from their context, as is everything returned unless said
 * otherwise, until the context compiles again: loading a module may rebuild them all. Null gives null or 0.
 * @{
 */

/**
 * The schema node above, choices and cases included.
 *
 * @param node of a context
 * @return the node above; for the children of an operation its input or output node; null at the top
 */
const struct lysc_node *zam_lys_parent(const struct lysc_node *node);

/**
 * The module that defines a node.
 *
 * @param node of a context
 * @return the module
 */
const struct lys_module *zam_lys_node_module(const struct lysc_node *node);

/**
 * Keeps a pointer of the application's with a schema node.
 *
 * @param node of a context
 * @param value never looked into
 * @return the pointer before
 */
void *zam_lys_set_private(const struct lysc_node *node, void *value);

/**
 * The built-in type that the type of a leaf or leaf-list derives from.
 *
 * @param node of a context
 * @return the type; LY_TYPE_UNKNOWN (0) for any other node
 */
LY_DATA_TYPE zam_lys_type_base(const struct lysc_node *node);

/**
 * As zam_lys_type_base(), but for a leafref the base of the type that it refers to.
 *
 * @param node of a context
 * @return as zam_lys_type_base()
 */
LY_DATA_TYPE zam_lys_realtype(const struct lysc_node *node);

/**
 * The kind of a node.
 *
 * @param node of a context
 * @return one of libyang's LYS_ values
 */
uint16_t zam_lys_nodetype(const struct lysc_node *node);

/**
 * Goes to the first child.
 *
 * @param node of a context
 * @return the child; that of the input for an operation
 */
const struct lysc_node *zam_lys_child(const struct lysc_node *node);

/**
 * Counts the keys of a list.
 *
 * @param node of a context
 * @return the number of keys; 0 for any other node
 */
uint32_t zam_lys_list_key_num(const struct lysc_node *node);

/**
 * The value that a leaf has by default.
 *
 * @param node of a context
 * @return its canonical text; null when it has none
 */
const char *zam_lys_get_default_value(const struct lysc_node *node);

/**
 * Goes up, past choices and cases.
 *
 * @param node of a context
 * @return the nearest schema node above that is neither; null at the top
 */
const struct lysc_node *zam_lys_parent_without_choice(const struct lysc_node *node);

/**
 * The schema node that a data path leads to, by libyang's search. Keys and a trailing slash are taken off the path
 * first. Choices, cases, input and output are no steps of such a path.
 *
 * @param ctx where to look
 * @param context_node where a relative path starts
 * @param path an absolute one needs the module's name at its first step
 * @param output below an operation the input's nodes are found, or, when it is not 0, the output's
 * @return the node; null after a level-3 line when the path cannot be read, has more than 1024 steps or leads nowhere
 */
const struct lysc_node *zam_lys_find_path(const struct ly_ctx *ctx, const struct lysc_node *context_node,
                                          const char *path, int32_t output);

/**
 * The schema node that a path leads to, by zam_find_schema_by_path().
 *
 * @param ctx where to look
 * @param context_node where a path starts that does not begin with "/"
 * @param path from the root when it begins with "/", whatever `context_node` is
 * @return the node; null for null, the empty path and a path that leads nowhere
 */
const struct lysc_node *zam_schema_find(const struct ly_ctx *ctx, const struct lysc_node *context_node,
                                        const char *path);

/**
 * The name of an enumeration leaf's item.
 *
 * @param node of a context
 * @param value the item's
 * @return the name; null when there is no such item or it is no enumeration
 */
const char *zam_find_enum_name(const struct lysc_node *node, int32_t value);

/**
 * The value text of a bits leaf: the names of the bits in the order of the type, with one blank between. Bits at
 * positions from 32 on are never named.
 *
 * @param node of a context
 * @param mask which bits, bit 0 for position 0
 * @return a new text, to be released with zam_free(); null when no bit is set or the leaf is not of type bits; without
 *         memory null after "Build bits buf unsuccessful, leaf : %s."
 */
char *zam_build_bits_buf(const struct lysc_node *node, uint32_t mask);

/**
 * Tells whether a node has no children by its kind.
 *
 * @param node of a context
 * @return 1 for leaf, leaf-list, anyxml and anydata, else 0
 */
int32_t zam_is_edge_node(const struct lysc_node *node);
/** @} */

/**
 * @name Datastores (RFC 8342)
 * @{
 */

/**
 * Tells whether a datastore holds configuration. A name with a colon is compared with the prefixed forms only, so that
 * another module's "operational" counts as a configuration datastore.
 *
 * @param name with or without the prefix "ietf-datastores:"; may be null
 * @return 0 for "operational", "temporary-operational", the same two with the prefix, and null; 1 for every other name
 */
int32_t zam_is_config_datastore(const char *name);

/**
 * libyang's options to parse the data of a datastore with. They are strict.
 *
 * @param datastore null is refused
 * @param parse_only not 0 leaves validation out
 * @param kind 0 and 2 leave state data out, when the datastore holds configuration
 * @return the options; 0 for null, after "Missing datastore when calculate options."
 */
uint32_t zam_calc_parse_opt(const char *datastore, int32_t parse_only, int32_t kind);
/** @} */

/**
 * @name Data nodes
 *
 * Questions to data nodes of any kind, opaque ones included. Texts and nodes are borrowed from the tree or its context
 * unless said otherwise. Null gives null or 0.
 * @{
 */

/**
 * The name of a node.
 *
 * @param node of any kind
 * @return the name of its schema node; an opaque node's own name
 */
const char *zam_lyd_get_schema_name(const struct lyd_node *node);

/**
 * The name of a node's module. An opaque node that names none has that of the nearest node above that does. One that
 * was read from XML names a namespace.
 *
 * @param node of any kind
 * @return the name; null when no implemented module has the namespace. A node of unknown origin gives null after "Get
 *         module name unsuccessful , unknown format."
 */
const char *zam_lyd_get_module_name(const struct lyd_node *node);

/**
 * The node and the siblings behind it as text without indentation, empty containers included.
 *
 * @param node where to begin
 * @param format LYD_XML or LYD_JSON
 * @param length receives the length in bytes without the terminator, and 0 on failure; may be null
 * @return the text, libyang's, to be released with the system's free(); null after "Dump tree '%s:%s' unsuccessful."
 *         when there is none
 */
char *zam_lyd_tree_dump(const struct lyd_node *node, LYD_FORMAT format, uint32_t *length);

/**
 * As zam_lyd_tree_dump(), for the node alone with its descendants.
 *
 * @param node what is printed
 * @param format LYD_XML or LYD_JSON
 * @param length as there
 * @return as there
 */
char *zam_lyd_tree_dump_nosibling(const struct lyd_node *node, LYD_FORMAT format, uint32_t *length);

/**
 * The value of a node as text, as zam_lyd_value_string() gives it. An identity loses the prefix of the leaf's own
 * module; those of other modules keep theirs.
 *
 * @param node a leaf, leaf-list entry or opaque node
 * @return the text, borrowed from the tree; null for any other node
 */
const char *zam_get_leaf_value(const struct lyd_node *node);

/**
 * The text of a node's metadata (RFC 7952), or of an opaque node's attribute.
 *
 * @param node of any kind
 * @param name without prefix
 * @return the text of the first of that name; null when there is none
 */
const char *zam_get_node_meta_value(const struct lyd_node *node, const char *name);

/**
 * The schema node of a data node, or the one that an opaque node would have by its name and module: below `parent` when
 * that is given, else below the nearest node above that has a schema node, else at the top. The input of an operation
 * is searched before its output.
 *
 * @param node of any kind
 * @param parent where to look for that of an opaque node, or null
 * @return the schema node; null when there is none or an opaque node's module is not known. Each search that fails
 *         leaves its level-3 line
 */
const struct lysc_node *zam_lyd_get_schema(const struct lyd_node *node, const struct lysc_node *parent);

/**
 * The kind of a node's schema node.
 *
 * @param node of any kind
 * @return one of libyang's LYS_ values; 0 for an opaque node
 */
uint16_t zam_lyd_get_nodetype(const struct lyd_node *node);

/**
 * A copy with a backslash before each backslash and double quote.
 *
 * @param text may be null
 * @return a new text, to be released with zam_free(); null for null
 */
char *zam_add_escape_character(const char *text);

/**
 * Logs the names of the node and of the siblings behind it, when the log level is 7.
 *
 * @param node where to begin
 */
void zam_logout_lyd_tree(const struct lyd_node *node);
/** @} */

#ifdef __cplusplus
}
#endif

#endif
