// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Content as requests carry it, read into a tree. Content is a fragment: the value of the place that the request names,
// wrapped in the place's own name (JSON) or element (XML). Reading gives a tree from the root: the nodes above the
// place with the keys that the path gives, and below them what the content says.
#ifndef ZAMD_EDIT_CONTENT_H
#define ZAMD_EDIT_CONTENT_H

#include <string_view>

#include "store.h"

namespace zamd {

// Stands in the name of an opaque node between that of a leaf-list and the operation on all its entries.
inline constexpr char whole_list_sign = '*';

struct Content {
    Tree tree;
    lyd_node *parent = nullptr; // of the nodes at the place; null when they are at the top
    bool given = false;         // there was content at all, be it an empty list
    Format format = Format::json;

    // The first node at the level of the place; others of its schema may follow.
    lyd_node *first() const { return parent ? lyd_child(parent) : tree.root; }
};

enum class ContentKind {
    configuration, // a push: no state data, only the wrapped value
    deletion,      // the same for entries to be deleted, where an empty string stands for no content
    answer,        // a status provider's: state data too, also a bare value or a whole document from the root
};

// The operation that a node of the content states itself; nothing when it states none.
std::string_view stated_operation(const lyd_node *node);

Result<Content> read_content(const ly_ctx *ctx, const Place &place, std::string_view text, Format format,
                             ContentKind kind);

// Creates the node that a step names below `parent` (null: at the top of `tree`). A list step has to name its entry.
Result<lyd_node *> create_step(Tree &tree, lyd_node *parent, const Step &step);

} // namespace zamd

#endif
