/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
#ifndef ZAMC_YANG_MODULE_H
#define ZAMC_YANG_MODULE_H

#include <dirent.h>
#include <stdint.h>
#include <stdio.h>

#include <libyang/libyang.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @file
 * The access layer over libyang: contexts and modules, parsing, printing, metadata and opaque nodes, and loading
 * modules from files.
 *
 * Two rules hold for every function that calls libyang: what makes an object returns it, or null on failure, and what
 * only succeeds or fails returns libyang's code, 0 being success. Failures are logged with a message that begins with
 * "[libyang]", at level 3 unless said otherwise; libyang's own error stays with the context for zam_ly_errmsg() and its
 * kin. Null arguments fail like bad ones. Nothing here locks: a context may be read by many threads, each data tree
 * belongs to one thread at a time, and nobody may read a context while modules are added to it.
 */

/**
 * @name Contexts and modules
 * @{
 */

/**
 * Makes a context.
 *
 * @param dir Directory to search for imports; null for none.
 * @param options LY_CTX_ options of libyang.
 * @return The context, to be released with zam_ly_ctx_destroy(); null on failure.
 */
struct ly_ctx *zam_ly_ctx_new(const char *dir, uint16_t options);

/**
 * Adds a directory to those that the context searches for imports.
 *
 * @param ctx Whose imports.
 * @param dir Of module files.
 * @return LY_EEXIST, logged as a failure, when it is one of them already; LY_EINVAL when it is no readable directory.
 */
LY_ERR zam_ly_ctx_set_searchdir(struct ly_ctx *ctx, const char *dir);

/**
 * The yang-library data (RFC 8525) that describes the context. The content identifier is the context's change count as
 * a decimal number. The context must hold a module ietf-yang-library.
 *
 * @param ctx The one described.
 * @return The tree with its siblings, the caller's; null on failure.
 */
struct lyd_node *zam_ly_ctx_get_yanglib_data(const struct ly_ctx *ctx);

/**
 * Destroys a context; all trees in it must be gone.
 *
 * @param ctx Not to be used any more.
 */
void zam_ly_ctx_destroy(struct ly_ctx *ctx);

/**
 * Compiles the modules parsed since the last time, in a context with LY_CTX_EXPLICIT_COMPILE. Before that they are of
 * no use. On failure libyang takes all of them out of the context; also on success it may rebuild older modules, so
 * that schema nodes found before, and trees, are void.
 *
 * @param ctx Made with LY_CTX_EXPLICIT_COMPILE.
 * @return Libyang's code.
 */
LY_ERR zam_ly_ctx_compile(struct ly_ctx *ctx);

/**
 * Sets who is asked for imports, and its data, which must live as long as it stands; null removes it.
 *
 * @param ctx Whose imports.
 * @param callback As libyang describes it; null removes it.
 * @param user_data Handed to the callback.
 */
void zam_ly_ctx_set_module_imp_clb(struct ly_ctx *ctx, ly_module_imp_clb callback, void *user_data);

/**
 * Walks over the modules of a context.
 *
 * @param ctx Whose modules.
 * @param index 0 for the first module; moved on by each call.
 * @return The module, of the context; null, with a line at level 7, after the last.
 */
struct lys_module *zam_ly_ctx_get_module_iter(const struct ly_ctx *ctx, uint32_t *index);

/**
 * Looks for an implemented module.
 *
 * @param ctx Where to look.
 * @param name Without a revision.
 * @return The module, of the context; null when there is none, logged at level 7, and silently for a null name.
 */
struct lys_module *zam_ly_ctx_get_module(const struct ly_ctx *ctx, const char *name);

/**
 * Parses a module from a NUL-terminated text. A text of a module that is there already in that revision gives that one.
 * A failure takes out every module that was parsed since the last compilation.
 *
 * @param ctx Where to.
 * @param text Ended by a NUL.
 * @param format LYS_IN_YANG or LYS_IN_YIN.
 * @return The module, of the context; null on failure.
 */
struct lys_module *zam_lys_parse_mem(struct ly_ctx *ctx, const char *text, LYS_INFORMAT format);

/**
 * Parses a module from a file.
 *
 * @param ctx Where to.
 * @param path The file's.
 * @param format LYS_IN_YANG or LYS_IN_YIN.
 * @return As zam_lys_parse_mem().
 */
struct lys_module *zam_lys_parse_path(struct ly_ctx *ctx, const char *path, LYS_INFORMAT format);

/**
 * Implements a module.
 *
 * @param module Of a context.
 * @param features Names of the features to enable, ended by a null; the name "*" stands for all. Null leaves them.
 * @return Libyang's code.
 */
LY_ERR zam_lys_set_implemented(struct lys_module *module, const char **features);

/**
 * Walks over schema nodes.
 *
 * @param last The node before; null to start.
 * @param parent The node whose children are walked over; null for the top nodes of `module`.
 * @param module Ignored with a parent. A module that is not compiled yet has no nodes.
 * @param options LYS_GETNEXT_ options of libyang.
 * @return The next node, of the context; null after the last.
 */
const struct lysc_node *zam_lys_getnext(const struct lysc_node *last, const struct lysc_node *parent,
                                        const struct lys_module *module, uint32_t options);

/**
 * The path of a schema node.
 *
 * @param node Of a context.
 * @param type LYSC_PATH_DATA leaves out what data does not show (input, output, choice, case), LYSC_PATH_LOG does not.
 * @return A text to be released with the system's free(); null on failure.
 */
char *zam_lys_data_path(const struct lysc_node *node, LYSC_PATH_TYPE type);

/** @} */

/**
 * @name libyang's errors
 *
 * libyang keeps one error for each thread and context: the last. The texts are its own, void with the next error.
 * @{
 */

/**
 * The validation code of the last error.
 *
 * @param ctx Whose error.
 * @return Libyang's LYVE_ code; LYVE_SUCCESS when there is no error.
 */
LY_VECODE zam_ly_vecode(const struct ly_ctx *ctx);
/**
 * The message of the last error. It quotes data of users: never a format for printf.
 *
 * @param ctx Whose error.
 * @return The message; null when there is no error.
 */
const char *zam_ly_errmsg(const struct ly_ctx *ctx);
/**
 * The path of the node that the last error is about.
 *
 * @param ctx Whose error.
 * @return The path; null when there is no error, or no path was recorded.
 */
const char *zam_ly_errpath(const struct ly_ctx *ctx);
/**
 * The error-app-tag (RFC 7950, section 15) of the last error.
 *
 * @param ctx Whose error.
 * @return The tag; null when there is none.
 */
const char *zam_ly_errapptag(const struct ly_ctx *ctx);
/**
 * Forgets all errors of the calling thread in that context.
 *
 * @param ctx Whose errors.
 */
void zam_ly_err_clean(struct ly_ctx *ctx);

/**
 * Sets libyang's log handler for the process; null gives it back to libyang, which writes to stderr.
 *
 * @param callback As libyang describes it.
 * @param path Whether libyang works out the path of the node that a message is about, 0 or 1. Without it
 * zam_ly_errpath() gives nothing.
 */
void zam_ly_set_log_clb(ly_log_clb callback, int32_t path);

/**
 * The library's handler for zam_ly_set_log_clb(): libyang's errors go out at level 3, all else at level 7.
 *
 * @param level Libyang's.
 * @param message What it says.
 * @param path The node that it is about, or null.
 */
void zam_libyang_log(LY_LOG_LEVEL level, const char *message, const char *path);

/** @} */

/**
 * @name Input handles and sets
 * @{
 */

/**
 * Releases a set; what is in it stays.
 *
 * @param set Not to be used any more.
 */
void zam_ly_set_free(struct ly_set *set);
/**
 * Releases an input handle; the text or file behind it stays.
 *
 * @param in Not to be used any more.
 */
void zam_ly_in_free(struct ly_in *in);
/**
 * Opens a file for parsing.
 * @param path The file's.
 * @return The handle, to be released with zam_ly_in_free(); null on failure.
 */
struct ly_in *zam_ly_in_new_filepath(const char *path);
/**
 * Opens a NUL-terminated text for parsing; the text must outlive the handle. It is logged at level 7.
 *
 * @param text Ended by a NUL.
 * @return The handle, to be released with zam_ly_in_free(); null on failure.
 */
struct ly_in *zam_ly_in_new_memory(const char *text);

/** @} */

/**
 * @name Data parsing
 *
 * The trees belong to the caller; a failed parse leaves none behind. A text that holds no data ("", blanks, "{}") is no
 * failure, and gives null as well.
 *
 * Texts come from peers, and libyang takes some of them badly: it crashes on arrays directly inside arrays, recurses as
 * deep as they nest, needs a time that grows with the square of the number of equal values in one place, and leaks the
 * content of an anydata that it refuses. Texts in memory are therefore looked through first. Refused, as a failed parse
 * with a line at level 3 that names the reason and the offset in bytes, are
 * - JSON (RFC 7951, RFC 8259) that is not exactly one well-formed value, or that holds an array directly inside an
 *   array, an exponent of more than three digits, a letter, digit or other character of YANG names that is written as
 *   an escape in the name of a member, or metadata (RFC 7952) that does not stand right behind the member it is for,
 *   where that is an array, or qualified and directly in an anydata;
 * - JSON with an anydata or anyxml of several nodes (members, or elements of a member) of which one does not parse or
 *   is an RPC or a notification (one that stands there alone is read), and with more than 8 anydata inside one another.
 *   Content of several nodes is read twice, content of one, such as a single top-level container, is not;
 * - XML with markup that does not end, or with an end tag too many;
 * - in both, more than 1,024 levels, and the same value more than about a thousand times in one array or element; in
 *   JSON also the same name more than about three thousand times in one object (RFC 7493 allows it once).
 * @{
 */

/**
 * Takes that look at a text without parsing it, for whoever gives a text from a peer to libyang himself.
 *
 * @param ctx With the modules of the data; null for a look that needs no schema, which leaves anydata out.
 * @param text Ended by a NUL; null and blank texts have no fault.
 * @param format LYD_XML or LYD_JSON; nothing is known about other formats.
 * @param[out] offset Where the fault is, in bytes from the start of the text; may be null.
 * @return What is wrong with the text, a constant; null if it may be parsed. That says nothing about whether it fits
 * the schema. After a fault libyang's last error is the one of the content that does not parse, or none.
 */
const char *zam_lyd_text_fault(const struct ly_ctx *ctx, const char *text, LYD_FORMAT format, size_t *offset);

/**
 * Parses data from a NUL-terminated text, which is logged at level 7. Content of several nodes in an anydata in JSON is
 * not validated itself, nor completed by defaults.
 *
 * @param ctx With the modules of the data.
 * @param text Ended by a NUL.
 * @param format LYD_XML or LYD_JSON.
 * @param parse_options LYD_PARSE_ options of libyang.
 * @param validate_options LYD_VALIDATE_ options of libyang; without LYD_VALIDATE_PRESENT the mandatory nodes of every
 * module of the context are asked for.
 * @return The tree from its first node on; null on failure and when there is no data.
 */
struct lyd_node *zam_lyd_parse_data_mem(const struct ly_ctx *ctx, const char *text, LYD_FORMAT format,
                                        uint32_t parse_options, uint32_t validate_options);

/**
 * Parses data from a file.
 *
 * @param ctx With the modules of the data.
 * @param path The file's.
 * @param format LYD_XML or LYD_JSON.
 * @param parse_options As for zam_lyd_parse_data_mem().
 * @param validate_options As there.
 * @return As there.
 */
struct lyd_node *zam_lyd_parse_data_path(const struct ly_ctx *ctx, const char *path, LYD_FORMAT format,
                                         uint32_t parse_options, uint32_t validate_options);

/**
 * Parses an operation from a NUL-terminated text.
 *
 * @param ctx With the module of the operation.
 * @param text Ended by a NUL.
 * @param format LYD_XML or LYD_JSON.
 * @param type LYD_TYPE_RPC_YANG for a request, LYD_TYPE_REPLY_YANG for a reply. In a reply the output nodes are
 * children of the operation's node.
 * @return The tree from its root on; null if the text is no such operation, logged at level 7 only, because callers
 * also use this to find out.
 */
struct lyd_node *zam_lyd_parse_op(const struct ly_ctx *ctx, const char *text, LYD_FORMAT format, enum lyd_type type);

/**
 * Parses an instance of a yang-data template (RFC 8040, section 8).
 *
 * @param ctx With the module.
 * @param module_name Name of the implemented module that has the template.
 * @param in Where the text is; not released.
 * @param format LYD_XML or LYD_JSON.
 * @param parse_options LYD_PARSE_ options of libyang. LYD_PARSE_ORDERED is always added: libyang never returns from
 * looking for the place of a second top node of a template.
 * @param validate_options LYD_VALIDATE_ options of libyang.
 * @param yang_data_name Name of the template. A name that the module does not have fails like a text that does not
 * parse.
 * @return The tree; null on failure and when there is no data.
 */
struct lyd_node *zam_lyd_parse_ext_data(const struct ly_ctx *ctx, const char *module_name, struct ly_in *in,
                                        LYD_FORMAT format, uint32_t parse_options, uint32_t validate_options,
                                        const char *yang_data_name);

/** @} */

/**
 * @name Data trees
 * @{
 */

/**
 * All instances of a schema node in a tree.
 *
 * @param tree Any node of it; its whole tree is searched.
 * @param schema Of the same context.
 * @return A set, maybe an empty one, to be released with zam_ly_set_free(); null on failure.
 */
struct ly_set *zam_lyd_find_instance(const struct lyd_node *tree, const struct lysc_node *schema);

/**
 * Goes to the first of the siblings of a node.
 *
 * @param node May be null.
 * @return That node; null for null.
 */
struct lyd_node *zam_lyd_first_sibling(const struct lyd_node *node);
/**
 * Takes a node with its children out of its tree; it is the caller's then.
 *
 * @param node Null is ignored.
 */
void zam_lyd_unlink(struct lyd_node *node);
/**
 * Frees a node with its children, but not its siblings. Not for trees that hold lightweight nodes.
 *
 * @param node Not to be used any more.
 */
void zam_lyd_free(struct lyd_node *node);
/**
 * Frees a metadata instance and those after it.
 *
 * @param meta Not to be used any more.
 */
void zam_lyd_free_meta_siblings(struct lyd_meta *meta);

/**
 * Prints a tree into memory, without indentation or line breaks (LYD_PRINT_SHRINK is always added).
 *
 * JSON comes out valid also where the tree has opaque nodes with quotes, backslashes or control characters in a name or
 * value. For this such nodes point at other texts during the call; the tree is as before when it returns.
 *
 * @param text Receives the text, to be released with the system's free(); null on failure, and for no tree.
 * @param tree Printed alone, or with its siblings as the options say.
 * @param format LYD_XML or LYD_JSON.
 * @param options LYD_PRINT_ options of libyang.
 * @return libyang's code. No tree is nothing to print: 0, no text, and the failure line with ret 0 in the log. So look
 * at the text, not only at the result. LY_EMEM when memory ran out.
 */
LY_ERR zam_lyd_print_mem(char **text, const struct lyd_node *tree, LYD_FORMAT format, uint32_t options);

/**
 * Prints a tree into a stream; JSON is made valid as zam_lyd_print_mem() does it.
 *
 * @param stream Open for writing.
 * @param tree As for zam_lyd_print_mem().
 * @param format LYD_XML or LYD_JSON.
 * @param options LYD_PRINT_ options of libyang, taken as they are.
 * @return Libyang's code.
 */
LY_ERR zam_lyd_print_file(FILE *stream, const struct lyd_node *tree, LYD_FORMAT format, uint32_t options);

/**
 * Makes an opaque node: one without a schema.
 *
 * @param parent Where it becomes the last child; null for a node of its own.
 * @param ctx Its context; may be null with a parent.
 * @param name The node's.
 * @param value Its value; null for an empty one.
 * @param module_name Name of its module; needed.
 * @return The node, of the parent if there is one, else the caller's; null on failure.
 */
struct lyd_node *zam_lyd_new_opaq(struct lyd_node *parent, const struct ly_ctx *ctx, const char *name,
                                  const char *value, const char *module_name);

/**
 * Gives a node a metadata instance (RFC 7952), or an opaque node an attribute.
 *
 * @param node What is to carry it.
 * @param attr_module Name of the attribute's module; for opaque nodes only, and null for none.
 * @param attr_name Name of the attribute, without the module; for opaque nodes only.
 * @param name Name of the metadata with its module, as in "ietf-netconf:operation"; not for opaque nodes.
 * @param value Checked against the annotation's type for a node with a schema.
 * @return LY_EINVAL, unlogged, for a null node.
 */
LY_ERR zam_lyd_new_meta(struct lyd_node *node, const char *attr_module, const char *attr_name, const char *name,
                        const char *value);

/**
 * The module of a node.
 *
 * That of an opaque node is the one that its name refers to, by namespace or by name as the format goes that it came
 * from, and none if that is not implemented. One whose name refers to none has the module of its nearest ancestor with
 * a schema; opaque ancestors are passed over, whatever they refer to.
 *
 * @param node Of any kind.
 * @return The module, of the context; null when there is none.
 */
const struct lys_module *zam_lyd_node_module(const struct lyd_node *node);

/** @} */

/**
 * @name Module files
 * @{
 */

/**
 * Makes the lock of the imported texts anew. It is ready without this call too.
 * @return 0 or an errno value.
 */
int32_t zam_module_init(void);
/**
 * Destroys that lock; no directory load may be under way. One that comes later finds it ready.
 * @return As above.
 */
int32_t zam_module_exit(void);

/**
 * Loads the module of one file into a context, with all its features. It is parsed only: a context with
 * LY_CTX_EXPLICIT_COMPILE has to be compiled afterwards.
 *
 * A file whose text has the words "submodule " and "belongs-to " anywhere is taken for a submodule and skipped, since
 * its module brings it in; a module that merely mentions both is skipped too.
 *
 * @param ctx Where to.
 * @param dir Where the file is.
 * @param file_name With its extension.
 * @param format LYS_IN_YANG or LYS_IN_YIN.
 * @return 0, also for a skipped file; negative on failure.
 */
int32_t zam_load_module(struct ly_ctx *ctx, const char *dir, const char *file_name, LYS_INFORMAT format);

/**
 * Loads all module files of a directory into a context and compiles it: first those that end in ".yang", then those
 * that end in ".yin", each kind in the order of the names.
 *
 * A file is skipped when the context has an implemented module of its name up to the first "." or "@". Files that fail
 * do not stop the others. Imports are looked for as "name.yang" (for YIN files "name.yin"), without a revision, in the
 * directory and then in /usr/local/conf/nyblib/modules, and nowhere else. This takes the place of the context's import
 * callback, which is none when the call returns.
 *
 * The texts of imports are kept for later loads until zam_free_module_map().
 *
 * @param ctx Where to.
 * @param dir Of the module files.
 * @return The sum of the two kinds, each 0, or -1 when a file failed, the context did not compile or the directory
 * cannot be read: so -2 means both. -1 for a null argument.
 */
int32_t zam_load_directory(struct ly_ctx *ctx, const char *dir);

/** Releases the texts kept for imports, of all contexts. No directory load may be under way. */
void zam_free_module_map(void);

/** @} */

/**
 * @name The status of a schema reload
 *
 * For servers: a number, 0 for none, that one thread sets and another waits for. The library gives the others no
 * meaning and does not use it itself.
 * @{
 */

/**
 * Sets the status to 0 and makes its lock and condition anew. Nobody may use them.
 * @return 0 or an errno value.
 */
int32_t zam_reload_schema_init(void);
/**
 * Sets the status and wakes one waiter.
 * @param status Any number; waiters go on for all but 0.
 * @return 0 or an errno value.
 */
int32_t zam_notify_reload_schema_status(uint32_t status);
/**
 * Waits up to 60 seconds of the real-time clock until the status is not 0.
 * @return The status, 0 if it stayed that.
 */
uint32_t zam_wait_reload_schema_status(void);
/**
 * Sets the status to 0; a wait does not.
 * @return 0 or an errno value.
 */
int32_t zam_reset_schema_status(void);

/** @} */

/**
 * @name Directories of module directories
 * @{
 */

/**
 * Filter for scandir().
 *
 * @param entry May be null.
 * @return 1 for a directory other than "." and "..", 0 for all else and for null.
 */
int32_t nyb_is_directory(const struct dirent *entry);
/**
 * Releases what scandir() gave: the first `count` entries and the array.
 *
 * @param list As scandir() gave it; null is ignored.
 * @param count As scandir() returned it.
 */
void nyb_free_file_list(struct dirent **list, int32_t count);
/**
 * Loads every directory that is in `dir` into the context, in the order of the names, with zam_load_directory(), whose
 * failures are logged but do not count here.
 *
 * @param ctx Where to.
 * @param dir Of directories of module files.
 * @return 0, also for a null argument and when there is nothing to read; -1 when memory ran out.
 */
int32_t nyb_load_sub_schema_ctx(struct ly_ctx *ctx, const char *dir);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
