// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Selecting, copying and printing parts of trees.
#ifndef ZAMD_STORE_COPY_H
#define ZAMD_STORE_COPY_H

#include <vector>

#include "store.h"

namespace zamd {

// The nodes at a place: the node, or every entry of a list that the last step does not name, adjacent siblings in
// their order. Nothing for "/". The place has to name its entry wherever a list stands above its last step.
std::vector<lyd_node *> select(lyd_node *first, const Place &place);

// An error unless every list above the last step names its entry.
Result<void> needs_keys_above(const Place &place);

// A copy of the explicit nodes at `place` down to `depth` levels below it, with the nodes above it, their keys and all
// metadata. Entries keep their keys below the last level as well.
Result<Tree> copy_branch(lyd_node *first, const Place &place, int32_t depth);
// The same without what is above: the copies are siblings at the top.
Result<Tree> copy_nodes(const std::vector<lyd_node *> &nodes, int32_t depth);

// Prints these siblings from `first` on, without blanks. Containers that hold nothing are printed if `empty_too`.
Result<Text> print_siblings(const lyd_node *first, Format format, bool empty_too);
// Prints the nodes that select() finds, and nothing else, straight from their tree.
Result<Text> print_selected(lyd_node *first, const Place &place, Format format);

// Inserts nodes at the top of a tree. libyang walks the whole top level for each; here the entries of one list that
// come one after the other are linked behind each other at once.
class TopLevel {
public:
    explicit TopLevel(Tree &tree) : tree_(tree) {}

    bool insert(lyd_node *node);       // false when libyang refuses it; the node is still the caller's then
    void forget() { last_ = nullptr; } // nodes were moved or taken away by others

private:
    Tree &tree_;
    lyd_node *last_ = nullptr;
};

// Takes a node out of its tree; it is the caller's then.
void detach(Tree &tree, lyd_node *node);
// Puts an entry of a user-ordered list behind another of its list or, without one, before the first of them. True when
// it stood elsewhere before.
Result<bool> move_entry(Tree &tree, lyd_node *node, lyd_node *previous);

} // namespace zamd

#endif
