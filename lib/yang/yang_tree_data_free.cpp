// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// The one way out for every tree: each node is isolated before it is released, so that neither libyang nor the memory
// hooks see a link into what is gone already, and each goes back to the allocator it came from.
//
// libyang gives a parent a hash table of its children when it inserts the fourth one, a lightweight parent included.
// Nobody but libyang can release that table: a lightweight record would leak it, and a parent that outlives its
// children would keep entries that dangle. Both lose their table here first.

#include <zamc/yang_module.h>
#include <zamc/yang_tree_data.h>

#include <utility>

#include "yang/yang_internal.h"

namespace zam::yang {
namespace {

bool _is_lightweight(const lyd_node *node) {
    return node->schema && (reinterpret_cast<uintptr_t>(node->priv) & lightweight_mark);
}

// libyang exports no function that frees a table, but it frees that of a node: a copy without children takes it along.
// Without memory for the copy the table is lost, which is better than one that dangles.
void _drop_children_ht(lyd_node *node) {
    if (!node || !node->schema || !(node->schema->nodetype & LYD_NODE_INNER)) return;
    auto *inner = reinterpret_cast<lyd_node_inner *>(node);
    if (!inner->children_ht) return;

    lyd_node *children = std::exchange(inner->child, nullptr);
    lyd_node *copy = nullptr;
    if (lyd_dup_single(node, nullptr, LYD_DUP_NO_META, &copy) == LY_SUCCESS) {
        reinterpret_cast<lyd_node_inner *>(copy)->children_ht = inner->children_ht;
        lyd_free_tree(copy);
    }
    inner->children_ht = nullptr;
    inner->child = children;
}

void _isolate(lyd_node *node) {
    node->parent = nullptr;
    node->next = nullptr;
    node->prev = node;
}

void _destroy_any_tree(lyd_node *node) {
    if (!(node->schema->nodetype & LYS_ANYDATA)) return; // holds the bit of anyxml as well
    auto *any = reinterpret_cast<lyd_node_any *>(node);
    if (any->value_type != LYD_ANYDATA_DATATREE) return;
    zam_lyd_tree_destroy(std::exchange(any->value.tree, nullptr));
}

// Releases one isolated node, whose children are gone or are libyang's to free.
void _free_lyd_node(lyd_node *node) {
    if (!node) return;
    if (node->schema) _destroy_any_tree(node);
    if (!_is_lightweight(node)) {
        zam_lyd_free(node);
        return;
    }
    _drop_children_ht(node);
    zam_lyd_free_meta_siblings(node->meta);
    zam_free(node);
}

void _destroy_siblings(lyd_node *node);

void _destroy_one(lyd_node *node) {
    _isolate(node);
    // A node that is about to go needs no care for its table: libyang frees it without looking at the entries.
    lyd_node **child = child_slot(node);
    lyd_node *first = child ? std::exchange(*child, nullptr) : nullptr;
    if (first) _destroy_siblings(first);
    _free_lyd_node(node);
}

// Backwards from the last or the one before, around the ring of `prev`, to `node` itself.
void _destroy_siblings(lyd_node *node) {
    for (lyd_node *sibling = node->prev; sibling != node;) {
        if (!sibling) return;
        lyd_node *prev = sibling->prev;
        _destroy_one(sibling);
        sibling = prev;
    }
    _destroy_one(node);
}

lyd_node *_first(lyd_node *node) {
    while (node->prev && node->prev->next)
        node = node->prev;
    return node;
}

// Takes a lightweight node out of its list. libyang cannot: an entry without keys has no place in its hash table.
void _unlink_lightweight(lyd_node *node) {
    auto *parent = reinterpret_cast<lyd_node *>(node->parent);
    _drop_children_ht(parent);
    lyd_node **child = child_slot(parent);
    if (child && *child == node) *child = node->next;

    lyd_node *before = node->prev;
    lyd_node *after = node->next ? node->next : _first(node);
    after->prev = before; // the first node's `prev` is the last node, and becomes the new last
    if (before && before->next == node) before->next = node->next;
    _isolate(node);
}

} // namespace
} // namespace zam::yang

using namespace zam::yang;

void zam_lyd_tree_destroy(lyd_node *node) {
    if (!node) return;
    auto *parent = reinterpret_cast<lyd_node *>(node->parent);
    if (lyd_node **child = child_slot(parent)) {
        *child = nullptr;
        _drop_children_ht(parent);
    }
    _destroy_siblings(node);
}

void zam_lyd_tree_destroy_nosibling(lyd_node *node) {
    if (!node) return;
    if (_is_lightweight(node)) {
        _unlink_lightweight(node);
        for (lyd_node *child = zam_lyd_child(node); child; child = child->next)
            child->parent = nullptr;
    }
    _free_lyd_node(node);
}
