// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "store_copy.h"

#include <cstring>

#include <zamc/yang_module.h>

#include "diff_pairs.h"

namespace zamd {
namespace {

Error _no_memory() {
    return refusal("resource-denied", "The data could not be copied for want of memory.");
}

// While it lives, `node` is the last of its siblings, so that a printer that goes through siblings stops after it.
class LastSibling {
public:
    explicit LastSibling(lyd_node *node) : node_(node), next_(node->next) { node_->next = nullptr; }
    ~LastSibling() { node_->next = next_; }
    LastSibling(const LastSibling &) = delete;
    LastSibling &operator=(const LastSibling &) = delete;

private:
    lyd_node *node_;
    lyd_node *next_;
};

// The node with its keys and metadata, inserted below `parent` when there is one.
lyd_node *_copy_single(const lyd_node *node, lyd_node *parent) {
    lyd_node *copy = nullptr;
    lyd_dup_single(node, nullptr, 0, &copy);
    if (copy && parent && lyd_insert_child(parent, copy) != LY_SUCCESS) {
        lyd_free_tree(copy);
        copy = nullptr;
    }
    return copy;
}

// False when memory ran out; `parent` holds what was copied until then.
bool _copy_children(const lyd_node *node, lyd_node *parent, int32_t depth) {
    if (depth == 0) return true;
    for (const lyd_node *child = lyd_child(node); child; child = child->next) {
        if (!is_explicit(child) || lysc_is_key(child->schema)) continue;
        lyd_node *copy = _copy_single(child, parent);
        if (!copy || !_copy_children(child, copy, depth == all_levels ? depth : depth - 1)) return false;
    }
    return true;
}

Node _copy_limited(const lyd_node *node, int32_t depth) {
    Node copy(_copy_single(node, nullptr));
    if (copy && !_copy_children(node, copy.get(), depth)) return nullptr;
    return copy;
}

// Copies a node and what is above it, each with its keys; returns the copy of the node itself, null without memory.
lyd_node *_copy_above(const lyd_node *node, Tree &tree) {
    const lyd_node *above = lyd_parent(node);
    lyd_node *parent = above ? _copy_above(above, tree) : nullptr;
    if (above && !parent) return nullptr;
    lyd_node *copy = _copy_single(node, parent);
    if (!above) tree.root = copy;
    return copy;
}

// The first node at the place; `first` becomes the first of its siblings.
lyd_node *_find(lyd_node *&first, const Place &place) {
    lyd_node *node = nullptr;
    for (const Step &step : place.steps()) {
        if (node) first = lyd_child(node);
        node = find_step(first, step);
        if (!node) break;
    }
    return node;
}

// The last entry of the list or leaf-list that `node` is the first one of, often the last sibling of all.
lyd_node *_last_entry(lyd_node *node, const lyd_node *first) {
    if (first->prev->schema == node->schema) return first->prev;
    while (node->next && node->next->schema == node->schema)
        node = node->next;
    return node;
}

} // namespace

Result<void> needs_keys_above(const Place &place) {
    if (place.is_one_instance(false)) return {};
    return bad_request("missing-element", "The path \"" + shown(place.data_path()) +
                                              "\" has to name the entry of each list above its last step.");
}

std::vector<lyd_node *> select(lyd_node *first, const Place &place) {
    std::vector<lyd_node *> nodes;
    for (lyd_node *node = _find(first, place); node && node->schema == place.schema(); node = node->next) {
        nodes.push_back(node);
        if (!place.is_all_entries()) break;
    }
    return nodes;
}

Result<Tree> copy_nodes(const std::vector<lyd_node *> &nodes, int32_t depth) {
    Tree copies;
    lyd_node *last = nullptr;
    for (const lyd_node *node : nodes) {
        if (!is_explicit(node)) continue;
        lyd_node *copy = _copy_limited(node, depth).release();
        if (!copy) return _no_memory();
        // Linked by hand: at the top libyang would walk through all of them for each.
        if (!last) {
            copies.root = copy;
        } else {
            last->next = copy;
            copy->prev = last;
            copies.root->prev = copy;
        }
        last = copy;
    }
    return copies;
}

Result<Tree> copy_branch(lyd_node *first, const Place &place, int32_t depth) {
    if (auto keys = needs_keys_above(place); !keys) return std::move(keys).error();
    std::vector<lyd_node *> nodes = select(first, place);
    if (place.is_root()) {
        for (lyd_node *node = first; node; node = node->next)
            nodes.push_back(node);
    }
    // "/" stands above the top nodes, which are the first of its levels.
    auto copies = copy_nodes(nodes, place.is_root() && depth != all_levels ? depth - 1 : depth);
    if (!copies || !copies->root || !lyd_parent(nodes.front())) return copies;
    Tree branch;
    lyd_node *parent = _copy_above(lyd_parent(nodes.front()), branch);
    // This takes along the siblings of the first copy.
    if (!parent || lyd_insert_child(parent, copies->root) != LY_SUCCESS) return _no_memory();
    copies->root = nullptr;
    return branch;
}

Result<Text> print_siblings(const lyd_node *first, Format format, bool empty_too) {
    if (!first) return Text(::strdup(format == Format::json ? "{}" : ""));
    char *text = nullptr;
    uint32_t options = LYD_PRINT_WITHSIBLINGS | (empty_too ? LYD_PRINT_KEEPEMPTYCONT : 0);
    LY_ERR result = zam_lyd_print_mem(&text, first, static_cast<LYD_FORMAT>(format), options);
    Text owner(text);
    if (result != LY_SUCCESS) return refusal("operation-failed", "The data could not be printed.");
    return owner;
}

Result<Text> print_selected(lyd_node *first, const Place &place, Format format) {
    lyd_node *node = _find(first, place);
    if (!node) return print_siblings(nullptr, format, false);
    LastSibling last(place.is_all_entries() ? _last_entry(node, first) : node);
    return print_siblings(node, format, false);
}

bool TopLevel::insert(lyd_node *node) {
    lyd_node *last = std::exchange(last_, node);
    bool follows = last && last->schema == node->schema && (!last->next || last->next->schema != node->schema);
    if (!follows) return lyd_insert_sibling(tree_.root, node, &tree_.root) == LY_SUCCESS;
    node->prev = last;
    node->next = last->next;
    (node->next ? node->next : tree_.root)->prev = node;
    last->next = node;
    return true;
}

void detach(Tree &tree, lyd_node *node) {
    if (tree.root == node) tree.root = node->next;
    lyd_unlink_tree(node);
}

Result<bool> move_entry(Tree &tree, lyd_node *node, lyd_node *previous) {
    bool top = !lyd_parent(node);
    lyd_node *first = nullptr;
    if (!previous) first = find_step(top ? tree.root : lyd_child(lyd_parent(node)), Step{node->schema, {}, 0});
    if (node == previous || node == first || (previous && previous->next == node)) return false;
    if (top && tree.root == node) tree.root = node->next;
    LY_ERR result = previous ? lyd_insert_after(previous, node) : lyd_insert_before(first, node);
    if (top) tree.root = lyd_first_sibling(tree.root);
    if (result != LY_SUCCESS) return refusal("operation-failed", "An entry could not be moved.", instance_path(node));
    return true;
}

} // namespace zamd
