// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Single nodes of a document: edit nodes that carry the operation they ask for, values, printed nodes, metadata.
//
// A new node is a tree of its own, from the root down to the node, put beside those that the document has already: the
// server merges them, so they need not be merged here.

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <zamc/logger.h>
#include <zamc/message.h>
#include <zamc/utils.h>

#include "client/format_internal.h"
#include "platform/bounded.h"

namespace zam::client {
namespace {

using runtime::owned_text;

constexpr uint32_t value_capacity = 256; // most values are shorter
constexpr char oper_name[] = "operation";

// Booleans and enumerations are passed by their numbers; every other type by its text.
const lysc_node *_get_special_node(const ly_ctx *ctx, const char *path) {
    const lysc_node *schema = zam_lys_find_path(ctx, nullptr, path, 0);
    if ((zam_lys_nodetype(schema) & (LYS_LEAF | LYS_LEAFLIST)) == 0) return nullptr;
    const LY_DATA_TYPE type = zam_lys_type_base(schema);
    return type == LY_TYPE_BOOL || type == LY_TYPE_ENUM ? schema : nullptr;
}

// What is no number of 32 bits stands for nothing: "true" is not taken for 0.
const char *_number_name(const lysc_node *schema, const char *text) {
    char *end = nullptr;
    const long number = strtol(text, &end, 10);
    if (end == text || *end != '\0' || number < INT32_MIN || number > INT32_MAX) return nullptr;
    if (zam_lys_type_base(schema) == LY_TYPE_ENUM) return zam_find_enum_name(schema, static_cast<int32_t>(number));
    if (number == 1) return "true";
    return number == 0 ? "false" : nullptr;
}

// An array of JSON booleans, which have no quotes, is not spliced into a document: such an entry is made at its path.
bool _is_made_at_path(const lysc_node *schema, uint32_t format) {
    return format == ZAM_ENCODE_JSON && zam_lys_nodetype(schema) == LYS_LEAFLIST &&
           zam_lys_type_base(schema) == LY_TYPE_BOOL;
}

// The value that stands for a number, in the form in which a fragment of the format is parsed.
char *_dup_value(const lysc_node *schema, const char *text, uint32_t format) {
    const char *name = _number_name(schema, text);
    if (!name) {
        const auto number = static_cast<int32_t>(strtol(text, nullptr, 10));
        zam_log_printf(ZAM_LOG_WRONG, "Schema node %s value %d not found.\n", schema->name, number);
        return nullptr;
    }
    const bool is_leaf = zam_lys_nodetype(schema) == LYS_LEAF;
    if (_is_made_at_path(schema, format) || (format == ZAM_ENCODE_JSON && is_leaf)) return zam_strdup(name);
    char *value = nullptr;
    int32_t length = -1;
    if (format == ZAM_ENCODE_JSON) {
        length = zam_asprintf(&value, "[\"%s\"]", name);
    } else if (format == ZAM_ENCODE_XML) {
        length = zam_asprintf(&value, "<%s>%s</%s>", schema->name, name, schema->name);
    }
    return length < 0 ? nullptr : value;
}

lyd_node *_parse_value(const ly_ctx *ctx, const char *path, const char *value, uint32_t format) {
    owned_text converted;
    if (value && *value != '\0') {
        if (const lysc_node *special = _get_special_node(ctx, path)) {
            converted.reset(_dup_value(special, value, format));
            if (!converted) {
                zam_log_printf(ZAM_LOG_WRONG, "Dump value not successful.\n");
                return nullptr;
            }
            if (_is_made_at_path(special, format)) return zam_lyd_new_path(nullptr, ctx, path, converted.get());
            value = converted.get();
        }
    }
    const zam_mem_doc text{path, value, lyd_format(format)};
    return zam_parse_mem(ctx, &text, LYD_PARSE_ONLY, 1, 0);
}

// An identity that a leaf-list's path names. It comes opaque: JSON would show it outside an array, and it would be
// found under its bare name only.
bool _is_opaque_identity(const lyd_node *node) {
    if (node->schema) return false;
    const lysc_node *schema = zam_lyd_get_schema(node, nullptr);
    const char *value = zam_lyd_value_string(node);
    return zam_lys_nodetype(schema) == LYS_LEAFLIST && zam_lys_realtype(schema) == LY_TYPE_IDENT && value && *value;
}

// A node of libyang's own takes the opaque one's place. Null when the type refuses the identity.
lyd_node *_settle_identity(yang::owned_tree &tree, lyd_node *opaque) {
    const lysc_node *schema = zam_lyd_get_schema(opaque, nullptr);
    auto *parent = reinterpret_cast<lyd_node *>(opaque->parent);
    lyd_node *node = zam_lyd_new_leaf(parent, schema->module, schema->name, zam_lyd_value_string(opaque));
    if (!node) return nullptr;
    if (parent) {
        zam_lyd_tree_destroy_nosibling(opaque);
    } else {
        tree.reset(node);
    }
    return node;
}

// The node that the path names in a tree just made for it.
lyd_node *_made_node(yang::owned_tree &tree, const char *path) {
    lyd_node *last = tree.get();
    while (lyd_node *child = zam_lyd_child(last))
        last = child->prev; // the last of the children
    return _is_opaque_identity(last) ? _settle_identity(tree, last) : zam_lyd_find_path(tree.get(), path);
}

lyd_node *_build_new_node(const char *path, int32_t operation, const char *value, uint32_t format) {
    const ly_ctx *ctx = zam_clients_schema_ctx();
    if (!ctx) return nullptr;
    yang::owned_tree tree{_parse_value(ctx, path, value, format)};
    if (!tree) return nullptr;
    lyd_node *node = _made_node(tree, path);
    if (!node) return nullptr;
    if (zam_lyd_new_meta(node, "ietf-netconf", oper_name, "ietf-netconf:operation",
                         zam_xlate_edit_enum2str(operation)) != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "Insert attr not successful.\n");
        return nullptr;
    }
    return tree.release();
}

int32_t _add_edit(zamc_doc *doc, const char *path, int32_t operation, const char *value) {
    const owned_text full{_build_full_path(doc->dir, path)};
    if (!full) return -2;
    lyd_node *tree = _build_new_node(full.get(), operation, value, doc->format);
    if (!tree) {
        zam_log_printf(ZAM_LOG_WRONG, "Build new node not successful, path %s.\n", full.get());
        return -1;
    }
    doc->tree = zam_tree_add_sibling(doc->tree, tree);
    return 0;
}

// Numbers for enumerations and booleans, as zamc_new_node takes them; the text for every other type.
const char *_scan_text(const lyd_node *node, const lysc_node *schema, char (&number)[16]) {
    const LY_DATA_TYPE type = zam_lys_realtype(schema);
    if ((type != LY_TYPE_ENUM && type != LY_TYPE_BOOL) || !node->schema) return zam_get_leaf_value(node);
    const auto value = static_cast<int32_t>(zam_lyd_get_value(node));
    return sprintf_s(number, sizeof number, "%d", value) < 0 ? nullptr : number;
}

// The value of the first member, without the name and the braces around it.
zamc_bytes *_member_value(const char *text, uint32_t format) {
    const char *name_end = strstr(text, "\":");
    if (!name_end) return nullptr;
    const char *value = name_end + 2;
    const size_t rest = strlen(value);
    if (rest < 1 || rest > INT32_MAX) return nullptr;
    return zamc_new_bytes(value, static_cast<int32_t>(rest - 1), format);
}

zamc_bytes *_text_bytes(const char *text, uint32_t format) {
    const size_t length = text ? strlen(text) : 0;
    return length > INT32_MAX ? nullptr : zamc_new_bytes(text, static_cast<int32_t>(length), format);
}

// The operation that the nearest ancestor states. Walks the document's directory up; the caller puts it back.
const char *_get_parent_oper(zamc_doc *doc) {
    while (zamc_iter_doc(doc, ZAMC_DIRECTION_PARENT)) {
        const lyd_node *node = zam_lyd_find_path(doc->tree, doc->dir);
        const char *value = zam_get_node_meta_value(node, oper_name);
        if (value) return value;
    }
    return nullptr;
}

const char *_inherited_oper(zamc_doc *doc, const char *path) {
    char *full = _build_full_path(doc->dir, path);
    if (!full) return nullptr;
    char *kept = doc->dir;
    doc->dir = full;
    const char *value = _get_parent_oper(doc);
    zam_free(doc->dir);
    doc->dir = kept;
    return value;
}

} // namespace
} // namespace zam::client

using namespace zam;
using namespace zam::client;

int32_t zamc_new_node(zamc_doc *doc, const char *path, const char *format, ...) {
    if (!has_place(doc, path)) return -3;
    const runtime::owned<zam_rw_bytes, zam_rw_bytes_free> value{zam_rw_bytes_new(value_capacity)};
    if (!value) return -2;
    if (format) {
        va_list args;
        va_start(args, format);
        const int32_t result = zam_rw_bytes_vpushf(value.get(), format, args);
        va_end(args);
        if (result != 0) return -2;
    }
    return _add_edit(doc, path, ZAMC_PUSH_MERGE, value->data);
}

int32_t zamc_del_node(zamc_doc *doc, const char *path) {
    if (!has_place(doc, path)) return -3;
    return _add_edit(doc, path, ZAMC_PUSH_DELETE, nullptr);
}

int32_t zamc_node_is_present(zamc_doc *doc, const char *path) {
    lyd_node *node = nullptr;
    return has_place(doc, path) && _get_current_node(doc, path, &node) == 0 ? 1 : 0;
}

const char *zamc_node_content(zamc_doc *doc, const char *path) {
    lyd_node *node = nullptr;
    if (!has_place(doc, path) || _get_current_node(doc, path, &node) != 0) return nullptr;
    if (!is_leaf(node)) {
        zam_log_printf(ZAM_LOG_WARN, "The nodetype is invalid.\n");
        return nullptr;
    }
    return zam_get_leaf_value(node);
}

int32_t zamc_parse_node(zamc_doc *doc, const char *path, const char *format, ...) {
    if (!has_place(doc, path)) return -3;
    if (!format) {
        zam_log_printf(ZAM_LOG_WRONG, "The scan format is invalid.\n");
        return -3;
    }
    lyd_node *node = nullptr;
    const int32_t found = _get_current_node(doc, path, &node);
    if (found != 0) return found;
    const lysc_node *schema = zam_lyd_get_schema(node, nullptr);
    if (!schema) return -1;
    if ((zam_lys_nodetype(schema) & (LYS_LEAF | LYS_LEAFLIST)) == 0) {
        zam_log_printf(ZAM_LOG_WRONG, "The node type does not support, path %s.\n", path ? path : doc->dir);
        return -3;
    }
    char number[16] = "";
    const char *text = _scan_text(node, schema, number);
    if (!text) return -2;
    va_list args;
    va_start(args, format);
    const int items = vsscanf_s(text, format, args);
    va_end(args);
    return items < 1 ? -2 : 0;
}

zamc_bytes *zamc_format_node(zamc_doc *doc, const char *path, uint32_t format) {
    lyd_node *node = nullptr;
    if (!has_place(doc, path) || _get_current_node(doc, path, &node) != 0) return nullptr;
    if (is_leaf(node)) return _text_bytes(zam_lyd_value_string(node), format);
    const runtime::system_text text{zam_lyd_tree_dump(node, lyd_format(format), nullptr)};
    if (!text) return nullptr;
    return format == ZAM_ENCODE_JSON ? _member_value(text.get(), format) : _text_bytes(text.get(), format);
}

const char *zamc_node_attr(zamc_doc *doc, const char *path, const char *name) {
    lyd_node *node = nullptr;
    if (!has_place(doc, path)) return nullptr;
    if (!name) {
        zam_log_printf(ZAM_LOG_WRONG, "The attribute name is invalid.\n");
        return nullptr;
    }
    if (_get_current_node(doc, path, &node) != 0) return nullptr;
    const char *value = zam_get_node_meta_value(node, name);
    if (!value && strcmp(name, oper_name) == 0) value = _inherited_oper(doc, path);
    zam_log_printf(ZAM_LOG_DEBUG, "The node's attribute name [%s], value [%s].\n", name, value ? value : "null");
    return value;
}
