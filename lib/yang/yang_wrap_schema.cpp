// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// What the library asks compiled schema nodes: navigation, types, enumerations and bits, and look-up by path. Nothing
// is kept between calls, for compiling again rebuilds the schema and leaves older nodes dangling.

#include <zamc/logger.h>
#include <zamc/path.h>
#include <zamc/yang_wrap.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/bounded.h"
#include "yang/yang_internal.h"

namespace zam::yang {
namespace {

using runtime::owned_text;

// The type of a leaf or leaf-list, null for any other node.
const lysc_type *_type(const lysc_node *node) {
    if (!node) return nullptr;
    if (node->nodetype == LYS_LEAF) return reinterpret_cast<const lysc_node_leaf *>(node)->type;
    if (node->nodetype == LYS_LEAFLIST) return reinterpret_cast<const lysc_node_leaflist *>(node)->type;
    return nullptr;
}

bool _is_set(const lysc_type_bitenum_item &bit, uint32_t mask) {
    return bit.position < 32 && (mask >> bit.position & 1);
}

std::span<lysc_type_bitenum_item> _bits(const lysc_node *node) {
    if (zam_lys_type_base(node) != LY_TYPE_BITS) return {};
    return sized_array(reinterpret_cast<const lysc_type_bits *>(_type(node))->bits);
}

// The set names and a blank, or the terminator, behind each.
size_t _names_size(const lysc_node *node, uint32_t mask) {
    size_t size = 0;
    for (const lysc_type_bitenum_item &bit : _bits(node))
        if (_is_set(bit, mask)) size += std::strlen(bit.name) + 1;
    return size;
}

// libyang reads a path in time that grows with the square of its steps. Far more than any schema is deep, and cheap.
constexpr std::ptrdiff_t steps_max = 1024;

bool _is_too_deep(std::string_view path) {
    return std::ranges::count(path, '/') > steps_max;
}

// libyang takes neither a trailing slash nor the empty path that remains of a lone one.
void _cut_trailing_slash(char *path) {
    size_t length = std::strlen(path);
    if (length > 0 && path[length - 1] == '/') path[length - 1] = '\0';
}

const lysc_node *_find_path(const ly_ctx *ctx, const lysc_node *context_node, const char *path, bool output) {
    owned_text schema_path{zam_format_data_path(path, 0)};
    if (!schema_path || (!ctx && !context_node)) return nullptr;
    _cut_trailing_slash(schema_path.get());
    zam_log_printf(ZAM_LOG_DEBUG, "[libyang] Format path : %s\n", schema_path.get());
    if (!*schema_path || _is_too_deep(schema_path.get())) return nullptr;
    return lys_find_path(ctx, context_node, schema_path.get(), output);
}

} // namespace
} // namespace zam::yang

using namespace zam::yang;

const lysc_node *zam_lys_parent(const lysc_node *node) {
    return node ? node->parent : nullptr;
}

const lys_module *zam_lys_node_module(const lysc_node *node) {
    return node ? node->module : nullptr;
}

void *zam_lys_set_private(const lysc_node *node, void *value) {
    if (!node) return nullptr;
    // The pointer is the application's own field in libyang's otherwise constant record.
    return std::exchange(const_cast<lysc_node *>(node)->priv, value);
}

LY_DATA_TYPE zam_lys_type_base(const lysc_node *node) {
    const lysc_type *type = _type(node);
    return type ? type->basetype : LY_TYPE_UNKNOWN;
}

LY_DATA_TYPE zam_lys_realtype(const lysc_node *node) {
    const lysc_type *type = _type(node);
    if (type && type->basetype == LY_TYPE_LEAFREF) type = reinterpret_cast<const lysc_type_leafref *>(type)->realtype;
    return type ? type->basetype : LY_TYPE_UNKNOWN;
}

uint16_t zam_lys_nodetype(const lysc_node *node) {
    return node ? node->nodetype : LYS_UNKNOWN;
}

const lysc_node *zam_lys_child(const lysc_node *node) {
    return node ? lysc_node_child(node) : nullptr;
}

uint32_t zam_lys_list_key_num(const lysc_node *node) {
    uint32_t count = 0;
    if (zam_lys_nodetype(node) != LYS_LIST) return count;
    for (const lysc_node *child = lysc_node_child(node); child; child = child->next)
        if (child->nodetype == LYS_LEAF && (child->flags & LYS_KEY)) count++;
    return count;
}

const char *zam_lys_get_default_value(const lysc_node *node) {
    if (zam_lys_nodetype(node) != LYS_LEAF) return nullptr;
    const lyd_value *value = reinterpret_cast<const lysc_node_leaf *>(node)->dflt;
    return value ? lyd_value_get_canonical(node->module->ctx, value) : nullptr;
}

const lysc_node *zam_lys_parent_without_choice(const lysc_node *node) {
    const lysc_node *parent = zam_lys_parent(node);
    while (parent && (parent->nodetype & (LYS_CHOICE | LYS_CASE)))
        parent = parent->parent;
    return parent;
}

const lysc_node *zam_lys_find_path(const ly_ctx *ctx, const lysc_node *context_node, const char *path, int32_t output) {
    const lysc_node *node = _find_path(ctx, context_node, path, output != 0);
    if (!node)
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]Get lys_node by path unsuccessful, path : %s, output : %u.\n",
                       shown(path), static_cast<uint32_t>(output));
    return node;
}

const lysc_node *zam_schema_find(const ly_ctx *ctx, const lysc_node *context_node, const char *path) {
    if (!path || !*path) return nullptr;
    return zam_find_schema_by_path(ctx, *path == '/' ? nullptr : context_node, path);
}

const char *zam_find_enum_name(const lysc_node *node, int32_t value) {
    if (zam_lys_type_base(node) != LY_TYPE_ENUM) return nullptr;
    for (const lysc_type_bitenum_item &item : sized_array(reinterpret_cast<const lysc_type_enum *>(_type(node))->enums))
        if (item.value == value) return item.name;
    return nullptr;
}

char *zam_build_bits_buf(const lysc_node *node, uint32_t mask) {
    size_t size = _names_size(node, mask);
    if (size == 0) return nullptr;
    owned_text names{static_cast<char *>(zam_malloc(static_cast<uint32_t>(size)))};
    size_t length = 0;
    for (const lysc_type_bitenum_item &bit : _bits(node)) {
        if (!names || !_is_set(bit, mask)) continue;
        size_t room = size - length;
        int written = snprintf_s(names.get() + length, room, room - 1, "%s%s", length ? " " : "", bit.name);
        if (written < 0) {
            names.reset();
        } else {
            length += static_cast<size_t>(written);
        }
    }
    if (!names) zam_log_printf(ZAM_LOG_WRONG, "Build bits buf unsuccessful, leaf : %s.\n", node->name);
    return names.release();
}

int32_t zam_is_edge_node(const lysc_node *node) {
    return (zam_lys_nodetype(node) & (LYS_LEAF | LYS_LEAFLIST | LYS_ANYXML | LYS_ANYDATA)) ? 1 : 0;
}
