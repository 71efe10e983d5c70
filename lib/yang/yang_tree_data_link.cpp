// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// Linking nodes by hand, and walking them. Only `parent`, `next`, `prev` and the parent's `child` are written here;
// libyang's hash tables of children are left alone, for the trees that are linked so are printed or parsed again, never
// searched by libyang.
//
// Invariant of a sibling list: the first node's `prev` is the last node, and `next` of the last is null.

#include <zamc/yang_tree_data.h>
#include <zamc/yang_wrap.h>

#include "yang/yang_internal.h"

namespace zam::yang {
namespace {

lyd_node *_last(lyd_node *first) {
    return first->prev ? first->prev : first;
}

void _adopt(lyd_node_inner *parent, lyd_node *list) {
    for (; list; list = list->next)
        list->parent = parent;
}

bool _is_key_leaf(const lyd_node *node) {
    return node->schema && node->schema->nodetype == LYS_LEAF && (node->schema->flags & LYS_KEY);
}

} // namespace

lyd_node **child_slot(lyd_node *node) {
    if (!node) return nullptr;
    if (!node->schema) return &reinterpret_cast<lyd_node_opaq *>(node)->child;
    if (node->schema->nodetype & LYD_NODE_INNER) return &reinterpret_cast<lyd_node_inner *>(node)->child;
    return nullptr;
}

} // namespace zam::yang

using namespace zam::yang;

lyd_node *zam_lyd_child(const lyd_node *node) {
    return node ? lyd_child(node) : nullptr;
}

lyd_node *zam_tree_add_sibling(lyd_node *first, lyd_node *other) {
    if (!first || !other) return first ? first : other;
    lyd_node *last = _last(first);
    first->prev = _last(other);
    last->next = other;
    other->prev = last;
    _adopt(first->parent, other);
    return first;
}

lyd_node *zam_tree_insert_sibling(lyd_node *first, lyd_node *other) {
    if (!first || !other) return first ? first : other;
    lyd_node *last = _last(first);
    lyd_node *joint = _last(other);
    // The old list is not joined yet: only the new nodes are adopted, the old ones have their parent.
    _adopt(first->parent, other);
    joint->next = first;
    first->prev = joint;
    other->prev = last;
    lyd_node **child = child_slot(reinterpret_cast<lyd_node *>(first->parent));
    if (child && *child == first) *child = other;
    return other;
}

void zam_tree_add_child(lyd_node *parent, lyd_node *list) {
    lyd_node **child = list ? child_slot(parent) : nullptr;
    if (!child) return;
    if (*child) {
        zam_tree_add_sibling(*child, list);
    } else {
        *child = list;
        _adopt(reinterpret_cast<lyd_node_inner *>(parent), list);
    }
}

lyd_node *zam_find_child_by_schema(const lyd_node *node, const lysc_node *schema) {
    if (!node || !schema) return nullptr;
    for (lyd_node *child = zam_lyd_child(node); child; child = child->next)
        if (zam_lyd_get_schema(child, node->schema) == schema) return child;
    return nullptr;
}

int32_t zam_has_non_key_child(const lyd_node *node) {
    if (zam_lyd_get_nodetype(node) != LYS_LIST) return 0;
    for (const lyd_node *child = zam_lyd_child(node); child; child = child->next)
        if (!_is_key_leaf(child)) return 1;
    return 0;
}

lyd_node *zam_find_action_node(lyd_node *first) {
    for (lyd_node *node = first; node; node = node->next) {
        if (!node->schema) return nullptr;
        if (node->schema->nodetype == LYS_ACTION) return node;
        if (zam_is_edge_node(node->schema)) continue;
        if (lyd_node *action = zam_find_action_node(zam_lyd_child(node))) return action;
    }
    return nullptr;
}
