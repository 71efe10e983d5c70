// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// Creation along a path. Each segment is looked up in the schema below the place reached so far and its node is made
// there; the place then moves to the new node. A place knows its schema node even when its data node is opaque, so the
// schema is walked once and never searched for again.
//
// A list entry gets its keys before it is linked: when a key is refused, nothing of the entry was ever in the tree.

#include <cstring>
#include <utility>

#include <zamc/logger.h>
#include <zamc/vector.h>

#include "yang/yang_wrap_internal.h"

namespace zam::yang {
namespace {

constexpr uint32_t data_kinds =
    LYS_CONTAINER | LYS_LEAF | LYS_LEAFLIST | LYS_LIST | LYS_ANYXML | LYS_ANYDATA | LYS_RPC | LYS_ACTION | LYS_NOTIF;

// Where the next node goes; node and schema are null above the top level.
struct place {
    lyd_node *node;
    const lysc_node *schema;
    const lys_module *module;
};

// One node to be made.
struct step {
    place at;
    const lysc_node *schema;
    const zam_path_node *segment;
    const char *value; // null when none was given
};

// What was made so far: `top` is the caller's result, `made` takes it back until all went well. They differ only when
// the path names a key leaf that its entry already has: that one stays.
struct branch {
    lyd_node *top = nullptr;
    owned_tree made;
};

const zam_path_key *_first_key(const zam_path_node *segment) {
    return segment->keys ? static_cast<const zam_path_key *>(zam_vector_get(segment->keys, 0)) : nullptr;
}

uint32_t _length(const char *text) {
    return static_cast<uint32_t>(strlen(text));
}

bool _is_named(const lysc_node *schema, const zam_path_node *segment, const lys_module *module) {
    if (!(schema->nodetype & data_kinds) || strcmp(schema->name, segment->name) != 0) return false;
    return segment->prefix ? strcmp(schema->module->name, segment->prefix) == 0 : schema->module == module;
}

const lysc_node *_find_step(const place &at, const zam_path_node *segment) {
    const lysc_node *child = nullptr;
    while ((child = zam_lys_getnext(child, at.schema, at.module, 0)) != nullptr) {
        if (_is_named(child, segment, at.module)) return child;
    }
    return nullptr;
}

lyd_node *_new_operation(const step &step) {
    return zam_lyd_new_inner(step.at.node, step.schema->module, step.schema->name);
}

lyd_node *_new_container(const step &step) {
    lyd_node *node = zam_lyd_new_inner(step.at.node, step.schema->module, step.schema->name);
    if (node || step.at.node) return node;
    return zam_lyd_new_yangdata(step.schema->module, nullptr, step.schema->name);
}

lyd_node *_new_list(const step &step) {
    owned_tree entry{zam_lyd_node_lightweight_new(step.schema, nullptr, nullptr, 0)};
    if (!entry) return nullptr;
    const uint32_t count = zam_vector_size(step.segment->keys);
    for (uint32_t i = 0; i < count; ++i) {
        const auto *key = static_cast<const zam_path_key *>(zam_vector_get(step.segment->keys, i));
        if (key && !zam_lyd_new_leaf(entry.get(), step.schema->module, key->name, key->value)) return nullptr;
    }
    zam_tree_add_child(step.at.node, entry.get());
    return entry.release();
}

// The leaf of a list entry that is there already, as a key that the predicate gave.
lyd_node *_existing_leaf(const step &step) {
    if (!step.at.schema || step.at.schema->nodetype != LYS_LIST) return nullptr;
    for (lyd_node *child = zam_lyd_child(step.at.node); child; child = child->next) {
        const char *name = zam_lyd_get_schema_name(child);
        if (name && strcmp(name, step.schema->name) == 0) return child;
    }
    return nullptr;
}

lyd_node *_reuse_leaf(lyd_node *leaf, const step &step) {
    if (!step.value) return leaf;
    const char *value = zam_get_leaf_value(leaf);
    if (value && strcmp(value, step.value) == 0) return leaf;
    zam_log_printf(ZAM_LOG_WRONG, "Leaf node(%s) value is unsuccessful. [%s] [%s]\n", step.schema->name,
                   value ? value : "", step.value);
    return nullptr;
}

lyd_node *_new_leaf(const step &step) {
    if (lyd_node *leaf = _existing_leaf(step)) return _reuse_leaf(leaf, step);
    if (!step.value) return zam_lyd_node_lightweight_new(step.schema, step.at.node, nullptr, 0);
    return zam_lyd_new_leaf(step.at.node, step.schema->module, step.schema->name, step.value);
}

lyd_node *_new_leaflist_entry(const step &step, const char *named) {
    if (step.value && strcmp(named, step.value) != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Leaflist node(%s) value is unsuccessful. [%s] [%s]\n", step.schema->name, named,
                       step.value);
        return nullptr;
    }
    return zam_lyd_node_lightweight_new(step.schema, step.at.node, named, _length(named));
}

lyd_node *_new_leaflist(const step &step) {
    if (const zam_path_key *key = _first_key(step.segment)) return _new_leaflist_entry(step, key->value);
    if (step.value) return zam_lyd_new_leaf(step.at.node, step.schema->module, step.schema->name, step.value);
    lyd_node *node = zam_lyd_node_lightweight_new(step.schema, step.at.node, nullptr, 0);
    if (!node) zam_log_printf(ZAM_LOG_WRONG, "Create node (%s) unsuccessful.\n", step.schema->name);
    return node;
}

// libyang parses the text of an anydata at once and refuses the empty one: without text the node is made empty.
lyd_node *_new_any(const step &step) {
    const char *text = step.value && *step.value ? step.value : nullptr;
    return zam_lyd_new_any(step.at.node, step.schema->module, step.schema->name, text, LYD_ANYDATA_STRING);
}

struct creator {
    uint16_t nodetype;
    lyd_node *(*create)(const step &step);
};

constexpr creator creators[] = {
    {LYS_CONTAINER, _new_container}, {LYS_LIST, _new_list},        {LYS_LEAF, _new_leaf},
    {LYS_LEAFLIST, _new_leaflist},   {LYS_ANYXML, _new_any},       {LYS_ANYDATA, _new_any},
    {LYS_RPC, _new_operation},       {LYS_ACTION, _new_operation}, {LYS_NOTIF, _new_operation},
};

lyd_node *_new_node(const step &step) {
    lyd_node *node = nullptr;
    for (const creator &creator : creators) {
        if (creator.nodetype == step.schema->nodetype) node = creator.create(step);
    }
    if (!node) zam_log_printf(ZAM_LOG_WRONG, "New node(%s) unsuccessful.\n", step.schema->name);
    return node;
}

owned_segment _next_segment(const char *&text) {
    uint32_t used = 0;
    owned_segment segment{zam_get_path_node(text, &used)};
    text += used;
    return segment;
}

// Makes one node per segment; false when a segment has no schema node, or its node cannot be made.
bool _grow(place at, owned_segment segment, const char *rest, const char *value, branch &branch) {
    for (;;) {
        if (*rest != '\0' && *rest != '/') return false;
        const lysc_node *schema = _find_step(at, segment.get());
        if (!schema) return false;
        const step step{at, schema, segment.get(), value};
        const bool reused = !branch.top && schema->nodetype == LYS_LEAF && _existing_leaf(step);
        lyd_node *node = _new_node(step);
        if (!node) return false;
        if (!branch.top) {
            branch.top = node;
            if (!reused) branch.made.reset(node);
        }
        if (rest[0] == '\0' || rest[1] == '\0') return true;
        at = {node, schema, schema->module};
        segment = _next_segment(++rest);
        if (!segment) return false;
    }
}

// A parent that the schema does not know has no place for new nodes.
bool _find_start(const ly_ctx *ctx, lyd_node *parent, const zam_path_node *segment, place &start) {
    if (!parent) {
        start = {nullptr, nullptr, zam_ly_ctx_get_module(ctx, segment->prefix)};
        return start.module != nullptr;
    }
    start = {parent, zam_lyd_get_schema(parent, nullptr), zam_lyd_node_module(parent)};
    return start.schema && start.module;
}

} // namespace
} // namespace zam::yang

using namespace zam::yang;

lyd_node *zam_lyd_new_path(lyd_node *parent, const ly_ctx *ctx, const char *path, const char *value) {
    if (!path || (!parent && !ctx)) return nullptr;
    if (!parent && *path != '/') return nullptr;
    const char *rest = parent ? path : path + 1;
    owned_segment segment = _next_segment(rest);
    if (!segment) return nullptr;

    place start{};
    branch branch;
    if (!_find_start(ctx, parent, segment.get(), start) || !_grow(start, std::move(segment), rest, value, branch)) {
        zam_log_printf(ZAM_LOG_WRONG, "Lyd new path(%s) unsuccessful.\n", path);
        return nullptr;
    }
    (void)branch.made.release();
    return branch.top;
}
