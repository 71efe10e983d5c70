// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "diff_pairs.h"

#include <unordered_set>

#include "tree.h"

namespace zamd {
void mark_children(lyd_node *parent) {
    if (!parent || has_mark(parent, Mark::here)) return;
    bool known = has_mark(parent, Mark::below);
    set_mark(parent, Mark::here);
    for (lyd_node *above = lyd_parent(parent); above && !known; above = lyd_parent(above)) {
        known = has_mark(above, Mark::here) || has_mark(above, Mark::below);
        set_mark(above, Mark::below);
    }
}

void mark_whole(lyd_node *node) {
    if (!(node->schema->nodetype & (LYS_CONTAINER | LYS_LIST))) return;
    set_mark(node, Mark::here);
    for (lyd_node *child = lyd_child(node); child; child = child->next)
        mark_whole(child);
}

void clear_marks(lyd_node *first) {
    for (lyd_node *node = first; node; node = node->next) {
        if (!marks_of(node)) continue;
        node->priv = nullptr;
        clear_marks(lyd_child(node));
    }
}

bool is_same_instance(const lyd_node *one, const lyd_node *other) {
    if (one->schema != other->schema) return false;
    if (!is_entry(one)) return true;
    return one->hash == other->hash && lyd_compare_single(one, other, 0) == LY_SUCCESS;
}

bool is_same_value(const lyd_node *one, const lyd_node *other) {
    if (one->schema->nodetype & LYD_NODE_TERM) return lyd_compare_single(one, other, 0) == LY_SUCCESS;
    // libyang takes anydata for equal whose unknown members differ.
    auto print = [](const lyd_node *node) {
        char *text = nullptr;
        lyd_print_mem(&text, node, LYD_JSON, LYD_PRINT_SHRINK);
        return Text(text);
    };
    return print(one).view() == print(other).view();
}

lyd_node *SiblingFinder::find(const lyd_node *like) {
    if (!first_) return nullptr;
    lyd_node *found = nullptr;
    if (!is_entry(like)) {
        lyd_find_sibling_val(first_, like->schema, nullptr, 0, &found);
    } else if (lyd_parent(first_)) {
        lyd_find_sibling_first(first_, like, &found);
    } else {
        found = _find_at_top(like);
    }
    return found;
}

// libyang keeps no hash table for the top level, and a search through all of it for each entry of a large list there
// would take quadratic time.
lyd_node *SiblingFinder::_find_at_top(const lyd_node *like) {
    if (!index_) {
        index_.emplace();
        for (lyd_node *node = lyd_first_sibling(first_); node; node = node->next) {
            if (node->schema && is_entry(node)) index_->emplace(node->hash, node);
        }
    }
    auto [candidate, end] = index_->equal_range(like->hash);
    for (; candidate != end; ++candidate) {
        if (is_same_instance(candidate->second, like)) return candidate->second;
    }
    return nullptr;
}

std::vector<Pair> pair_siblings(lyd_node *before, lyd_node *after) {
    std::vector<Pair> pairs;
    SiblingFinder finder(before);
    std::unordered_set<const lyd_node *> found; // counterparts from where the two lists first differ
    lyd_node *expected = before;
    lyd_node *first_unsure = nullptr;
    bool in_step = true;
    for (lyd_node *node = after; node; node = node->next) {
        lyd_node *counterpart = expected && is_same_instance(expected, node) ? expected : nullptr;
        if (!counterpart) {
            if (in_step) first_unsure = expected;
            in_step = false;
            counterpart = finder.find(node);
        }
        if (counterpart) {
            expected = counterpart->next;
            if (!in_step) found.insert(counterpart);
        }
        pairs.push_back({counterpart, node});
    }
    if (in_step) first_unsure = expected;
    for (lyd_node *node = first_unsure; node; node = node->next) {
        if (!found.contains(node)) pairs.push_back({node, nullptr});
    }
    return pairs;
}

std::vector<Pair> pair_touched_children(lyd_node *before, lyd_node *after) {
    bool marked_after = marks_of(after) != 0;
    lyd_node *marked = marked_after ? after : before;
    if (has_mark(marked, Mark::here)) return pair_siblings(lyd_child(before), lyd_child(after));
    std::vector<Pair> pairs;
    if (!has_mark(marked, Mark::below)) return pairs;
    SiblingFinder finder(lyd_child(marked_after ? before : after));
    for (lyd_node *node = lyd_child(marked); node; node = node->next) {
        if (!marks_of(node)) continue;
        lyd_node *counterpart = finder.find(node);
        pairs.push_back(marked_after ? Pair{counterpart, node} : Pair{node, counterpart});
    }
    return pairs;
}

} // namespace zamd
