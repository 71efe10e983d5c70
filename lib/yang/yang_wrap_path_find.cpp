// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// Nodes and leaf values by path. The search goes one level deeper for each segment, so its depth is bounded by the
// segments of the path, whatever the depth of the tree. Names are compared before schema nodes are asked for: that of
// an opaque node costs a walk through the schema.

#include <cstdarg>
#include <cstring>

#include <zamc/logger.h>
#include <zamc/utils.h>
#include <zamc/vector.h>

#include "platform/bounded.h"
#include "yang/yang_wrap_internal.h"

namespace zam::yang {
namespace {

constexpr uint32_t leaf_text_size = 256; // room for most leaf values without growing

bool _is_named(const lyd_node *node, const char *name) {
    const char *own = zam_lyd_get_schema_name(node);
    return own && strcmp(own, name) == 0;
}

bool _value_is(const lyd_node *node, const char *expected) {
    const char *value = zam_get_leaf_value(node);
    return value && strcmp(value, expected) == 0;
}

// Identities compare without their module: the leaf's value text has dropped its own module's name as well.
bool _leaf_value_matches(const lyd_node *leaf, const char *expected) {
    if (zam_lys_realtype(zam_lyd_get_schema(leaf, nullptr)) != LY_TYPE_IDENT) return _value_is(leaf, expected);
    const char *colon = strchr(expected, ':');
    return _value_is(leaf, colon ? colon + 1 : expected);
}

bool _key_matches(const lyd_node *entry, const zam_path_key *key) {
    for (const lyd_node *child = zam_lyd_child(entry); child; child = child->next) {
        if (_is_named(child, key->name)) return _leaf_value_matches(child, key->value);
    }
    return false;
}

bool _keys_match(const lyd_node *entry, const zam_vector *keys) {
    const uint32_t count = zam_vector_size(keys);
    for (uint32_t i = 0; i < count; ++i) {
        const auto *key = static_cast<const zam_path_key *>(zam_vector_get(keys, i));
        if (key && !_key_matches(entry, key)) return false;
    }
    return true;
}

bool _predicates_match(const lyd_node *node, const lysc_node *schema, const zam_vector *keys) {
    if (schema->nodetype == LYS_LIST) return _keys_match(node, keys);
    if (schema->nodetype != LYS_LEAFLIST) return true;
    const auto *key = static_cast<const zam_path_key *>(zam_vector_get(keys, 0));
    return !key || _value_is(node, key->value);
}

// The schema node of a node that the segment names, or null.
const lysc_node *_match(const lyd_node *node, const zam_path_node *segment) {
    if (!_is_named(node, segment->name)) return nullptr;
    const lysc_node *schema = zam_lyd_get_schema(node, nullptr);
    const lys_module *module = zam_lyd_node_module(node);
    if (!schema || !module) return nullptr;
    if (segment->prefix && strcmp(module->name, segment->prefix) != 0) return nullptr;
    return !segment->keys || _predicates_match(node, schema, segment->keys) ? schema : nullptr;
}

lyd_node *_search_below(const lyd_node *node, const char *path);

// Searches `text` among `first` and the siblings that follow it; `path` is what the messages show.
lyd_node *_search(lyd_node *first, const char *text, const char *path) {
    uint32_t used = 0;
    const owned_segment segment{zam_get_path_node(text, &used)};
    if (!segment) {
        zam_log_printf(ZAM_LOG_WRONG, "Get path node from path(%s) unsuccessful.\n", path);
        return nullptr;
    }
    const char *rest = text + used;
    for (lyd_node *node = first; node; node = node->next) {
        const lysc_node *schema = _match(node, segment.get());
        if (!schema) continue;
        if (zam_is_edge_node(schema) || *rest == '\0') return node;
        // The step over the "/" is not taken back: a path is expected to single out one node on every level but the
        // last, so a second match after a miss is reported instead of searched.
        if (*rest != '/') {
            zam_log_printf(ZAM_LOG_WRONG, "Path(%s)[%s] format incorrect.\n", path, rest);
            return nullptr;
        }
        if (*++rest == '\0') return node;
        if (lyd_node *hit = _search_below(node, rest)) return hit;
    }
    zam_log_printf(ZAM_LOG_DEBUG, "Node does not exist, path(%s).\n", path);
    return nullptr;
}

lyd_node *_search_below(const lyd_node *node, const char *path) {
    lyd_node *child = zam_lyd_child(node);
    if (child) return _search(child, path, path);
    zam_log_printf(ZAM_LOG_DEBUG, "Node does not exist, path(%s).\n", path);
    return nullptr;
}

const lyd_node *_find_leaf(lyd_node *tree, const char *path) {
    const lyd_node *node = zam_lyd_find_path(tree, path);
    if (!node) return nullptr;
    if (zam_lys_nodetype(zam_lyd_get_schema(node, nullptr)) & (LYS_LEAF | LYS_LEAFLIST)) return node;
    zam_log_printf(ZAM_LOG_WRONG, "Node %s is not leaf/leaflist.\n", zam_lyd_get_schema_name(node));
    return nullptr;
}

} // namespace
} // namespace zam::yang

using namespace zam::yang;

lyd_node *zam_lyd_find_path(lyd_node *tree, const char *path) {
    if (!tree || !path) return nullptr;
    if (strcmp(path, "/") == 0) return tree;
    return *path == '/' ? _search(tree, path + 1, path) : _search_below(tree, path);
}

const char *zam_leaf_get_raw(lyd_node *tree, const char *path) {
    const lyd_node *leaf = _find_leaf(tree, path);
    return leaf ? zam_lyd_value_string(leaf) : nullptr;
}

int32_t zam_leaf_getf(lyd_node *tree, const char *path, const char *format, ...) {
    const char *value = zam_leaf_get_raw(tree, path);
    if (!value || !format) return 0;
    va_list args;
    va_start(args, format);
    const int32_t count = vsscanf_s(value, format, args);
    va_end(args);
    return count;
}

int32_t zam_leaf_setf(lyd_node *parent, const char *name, const char *format, ...) {
    if (!parent || !name || !format) return -1;
    const zam::runtime::owned<zam_rw_bytes, zam_rw_bytes_free> text{zam_rw_bytes_new(leaf_text_size)};
    if (!text) return -1;
    va_list args;
    va_start(args, format);
    const int32_t result = zam_rw_bytes_vpushf(text.get(), format, args);
    va_end(args);
    if (result != 0) return -1;
    return zam_lyd_new_leaf(parent, nullptr, name, text->data) ? 0 : -1;
}
