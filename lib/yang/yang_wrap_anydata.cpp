// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// Anydata read back out, as text and as a tree. libyang parses the text of an anydata at once, so its value is a tree;
// texts occur with anyxml.

#include <cstring>

#include <zamc/logger.h>

#include "yang/yang_wrap_internal.h"

namespace zam::yang {
namespace {

using runtime::system_text;

constexpr uint32_t whole_text = LYD_PRINT_WITHSIBLINGS | LYD_PRINT_KEEPEMPTYCONT;

// The record of an anydata or anyxml node; an opaque node has none.
const lyd_node_any *_as_any(const lyd_node *node) {
    const bool is_any = node && node->schema && (node->schema->nodetype & (LYS_ANYDATA | LYS_ANYXML));
    return is_any ? reinterpret_cast<const lyd_node_any *>(node) : nullptr;
}

char *_copy(const char *text, uint32_t *length) {
    if (!text) return nullptr;
    char *copy = zam_strdup(text);
    if (copy && length) *length = static_cast<uint32_t>(strlen(copy));
    return copy;
}

char *_print_value(const lyd_node *tree, LYD_FORMAT format, uint32_t *length) {
    if (!tree) return nullptr; // an empty anydata is no failure, and the printer would report one
    char *printed = nullptr;
    const LY_ERR result = zam_lyd_print_mem(&printed, tree, format, whole_text);
    const system_text text{printed};
    return result == LY_SUCCESS ? _copy(printed, length) : nullptr;
}

// A copy of the value tree, taken out of a copy of the node.
lyd_node *_dup_value(const lyd_node *node) {
    lyd_node *copy = zam_lyd_dup(node, 0);
    if (!copy) return nullptr;
    auto *any = reinterpret_cast<lyd_node_any *>(copy);
    lyd_node *tree = any->value.tree;
    any->value.tree = nullptr;
    zam_lyd_tree_destroy(copy);
    return tree;
}

} // namespace

LYD_FORMAT _get_format_by_str(const char *text) {
    if (!text || *text == '\0') return LYD_UNKNOWN;
    return *text == '<' ? LYD_XML : LYD_JSON;
}

lyd_node *_lyd_parse(const ly_ctx *ctx, const char *text, LYD_FORMAT format, uint32_t options, uint8_t is_operation) {
    if (!ctx || !text) return nullptr;
    if (is_operation) return zam_lyd_parse_op(ctx, text, format, LYD_TYPE_RPC_YANG);
    return zam_lyd_parse_data_mem(ctx, text, format, options, LYD_VALIDATE_PRESENT);
}

} // namespace zam::yang

using namespace zam::yang;

char *zam_anydata_dump(const lyd_node *node, LYD_FORMAT format, uint32_t *length) {
    if (length) *length = 0;
    const lyd_node_any *any = _as_any(node);
    if (!any) return nullptr;
    switch (any->value_type) {
    case LYD_ANYDATA_DATATREE: return _print_value(any->value.tree, format, length);
    case LYD_ANYDATA_STRING:
    case LYD_ANYDATA_XML:
    case LYD_ANYDATA_JSON: return _copy(any->value.str, length);
    default:
        zam_log_printf(ZAM_LOG_WRONG, "The value type (%u) of anydata is not supported.\n", any->value_type);
        return nullptr;
    }
}

lyd_node *zam_anydata2lyd_tree(const ly_ctx *ctx, const lyd_node *node, uint32_t options) {
    const lyd_node_any *any = _as_any(node);
    if (!ctx || !any) return nullptr;
    switch (any->value_type) {
    case LYD_ANYDATA_DATATREE: return _dup_value(node);
    case LYD_ANYDATA_STRING:
    case LYD_ANYDATA_XML:
    case LYD_ANYDATA_JSON:
        if (!any->value.str) return nullptr;
        return zam_lyd_parse_data_mem(ctx, any->value.str, _get_format_by_str(any->value.str), options,
                                      LYD_VALIDATE_PRESENT);
    default: zam_log_printf(ZAM_LOG_WARN, "Unknown anydata type :%u.\n", any->value_type); return nullptr;
    }
}
