// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// The path of a node. The walk goes from the node upwards, so the pieces come in reverse: the predicates of a node
// before its name, the last key before the first. They are joined from the last one back into a buffer of their size.

#include <cstring>

#include <zamc/vector.h>

#include "platform/bounded.h"
#include "yang/yang_wrap_internal.h"

namespace zam::yang {
namespace {

using runtime::owned_text;

constexpr uint32_t first_pieces = 8; // names and keys of most paths

struct path_pieces {
    zam_vector *texts = zam_vector_init(first_pieces);
    uint64_t size = 1; // of the joined path with its terminator

    path_pieces() = default;
    path_pieces(const path_pieces &) = delete;
    path_pieces &operator=(const path_pieces &) = delete;
    ~path_pieces() { zam_vector_free(texts, zam_free); }
};

ZAM_PRINTF(2, 3) bool _add_piece(path_pieces &pieces, const char *format, ...) {
    char *text = nullptr;
    va_list args;
    va_start(args, format);
    const int32_t length = zam_vasprintf(&text, format, args);
    va_end(args);
    owned_text piece{length < 0 ? nullptr : text};
    if (!piece || zam_vector_add(&pieces.texts, piece.get(), nullptr) != 0) return false;
    (void)piece.release();
    pieces.size += static_cast<uint32_t>(length);
    return true;
}

owned_text _escaped_value(const lyd_node *leaf) {
    return owned_text{zam_add_escape_character(zam_get_leaf_value(leaf))};
}

bool _add_key(path_pieces &pieces, const lyd_node *leaf, const lys_module *entry_module) {
    const lys_module *module = zam_lyd_node_module(leaf);
    const char *name = zam_lyd_get_schema_name(leaf);
    const owned_text value = _escaped_value(leaf);
    if (!module || !name || !value) return false;
    if (module == entry_module) return _add_piece(pieces, "[%s=\"%s\"]", name, value.get());
    return _add_piece(pieces, "[%s:%s=\"%s\"]", module->name, name, value.get());
}

bool _is_key(const lyd_node *node) {
    const lysc_node *schema = zam_lyd_get_schema(node, nullptr);
    return schema && schema->nodetype == LYS_LEAF && (schema->flags & LYS_KEY);
}

bool _add_keys(path_pieces &pieces, const lyd_node *entry, const lys_module *module) {
    const lyd_node *first = zam_lyd_child(entry);
    if (!first) return true;
    for (const lyd_node *child = first->prev;; child = child->prev) {
        if (_is_key(child) && !_add_key(pieces, child, module)) return false;
        if (child == first) return true;
    }
}

// An opaque entry with the empty text stands for "no value yet".
bool _has_value(const lyd_node *node) {
    const char *value = zam_get_leaf_value(node);
    return value && (node->schema || *value);
}

bool _add_predicates(path_pieces &pieces, const lyd_node *node, const lysc_node *schema, const lys_module *module) {
    if (schema->nodetype == LYS_LIST) return _add_keys(pieces, node, module);
    if (schema->nodetype != LYS_LEAFLIST || !_has_value(node)) return true;
    const owned_text value = _escaped_value(node);
    return value && _add_piece(pieces, "[.=\"%s\"]", value.get());
}

bool _add_node(path_pieces &pieces, const lyd_node *node, const lyd_node *parent) {
    const lysc_node *schema = zam_lyd_get_schema(node, nullptr);
    const lys_module *module = zam_lyd_node_module(node);
    if (!schema || !module || !_add_predicates(pieces, node, schema, module)) return false;
    if (parent && zam_lyd_node_module(parent) == module) return _add_piece(pieces, "/%s", schema->name);
    return _add_piece(pieces, "/%s:%s", module->name, schema->name);
}

char *_join(const path_pieces &pieces) {
    if (pieces.size > UINT32_MAX) return nullptr;
    const auto size = static_cast<uint32_t>(pieces.size);
    owned_text path{static_cast<char *>(zam_calloc(1, size))};
    if (!path) return nullptr;
    uint32_t used = 0;
    for (uint32_t i = zam_vector_used(pieces.texts); i-- > 0;) {
        const auto *piece = static_cast<const char *>(zam_vector_get(pieces.texts, i));
        if (!piece || strcat_s(path.get() + used, size - used, piece) != 0) return nullptr;
        used += static_cast<uint32_t>(strlen(piece));
    }
    return path.release();
}

} // namespace
} // namespace zam::yang

using namespace zam::yang;

char *zam_lyd_path(const lyd_node *node) {
    if (!node) return nullptr;
    path_pieces pieces;
    if (!pieces.texts) return nullptr;
    while (node) {
        const lyd_node *parent = node->parent ? &node->parent->node : nullptr;
        if (!_add_node(pieces, node, parent)) return nullptr;
        node = parent;
    }
    return _join(pieces);
}
