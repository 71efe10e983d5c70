// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Comparing two versions of a tree where, and only where, one of them was touched.
//
// Whoever edits a tree marks what it does in the nodes themselves (the `priv` that libyang leaves to its user): a node
// whose children came, went, moved or changed value is marked "here", the nodes above it "below", and an entry that was
// asked to have another place in its list "moved". Only one of the two versions carries marks. A marked node is
// compared with its counterpart, an unmarked one is known to be the same; so comparing costs the length of the touched
// child lists, not the size of the tree. The top level has no node to carry a mark and is always compared.
#ifndef ZAMD_DIFF_PAIRS_H
#define ZAMD_DIFF_PAIRS_H

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include <libyang/libyang.h>

namespace zamd {

enum class Mark : uintptr_t { below = 1, here = 2, moved = 4 };

inline uintptr_t marks_of(const lyd_node *node) {
    return reinterpret_cast<uintptr_t>(node->priv);
}
inline bool has_mark(const lyd_node *node, Mark mark) {
    return marks_of(node) & static_cast<uintptr_t>(mark);
}
inline void set_mark(lyd_node *node, Mark mark) {
    node->priv = reinterpret_cast<void *>(marks_of(node) | static_cast<uintptr_t>(mark));
}

// The children of `parent` (null: the top level) are no longer what they were.
void mark_children(lyd_node *parent);
// A node that was just put in may stand where another of its name stood: everything in it is to be compared.
void mark_whole(lyd_node *node);
// Takes back all marks at and below these siblings.
void clear_marks(lyd_node *first);

// A node and its counterpart in the other version; one of them is null for a node that came or went.
struct Pair {
    lyd_node *before;
    lyd_node *after;
};

// All siblings of two versions of one level, in the order of `after`, those that went last.
std::vector<Pair> pair_siblings(lyd_node *before, lyd_node *after);
// The children of two versions of a node that may differ.
std::vector<Pair> pair_touched_children(lyd_node *before, lyd_node *after);

// Finds counterparts among siblings: the instance with the same keys or value, for other nodes that of the same schema
// node. Quick below the top level through libyang's hashes, at the top level through an index of its own.
class SiblingFinder {
public:
    explicit SiblingFinder(lyd_node *first) : first_(first) {}
    lyd_node *find(const lyd_node *like);

private:
    lyd_node *_find_at_top(const lyd_node *like);

    lyd_node *first_;
    std::optional<std::unordered_multimap<uint32_t, lyd_node *>> index_;
};

// The two nodes are versions of the same instance.
bool is_same_instance(const lyd_node *one, const lyd_node *other);
// Values of two leaves or the contents of two anydata nodes are equal.
bool is_same_value(const lyd_node *one, const lyd_node *other);

// Data that somebody set, not a default that holds for want of it.
inline bool is_explicit(const lyd_node *node) {
    return node && !(node->flags & LYD_DEFAULT);
}
inline bool is_entry(const lyd_node *node) {
    return node->schema->nodetype & (LYS_LIST | LYS_LEAFLIST);
}
inline bool is_user_ordered(const lyd_node *node) {
    return is_entry(node) && lysc_is_userordered(node->schema);
}

} // namespace zamd

#endif
