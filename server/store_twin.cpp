// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Following: one tree takes over what differs in the other, everything this time: defaults, flags, the order of
// entries. It costs the length of the touched child lists. A tree that cannot follow is given up and copied anew when
// it is needed, so following never has to succeed.
#include "store_twin.h"

#include "diff_pairs.h"
#include "store_copy.h"

namespace zamd {
namespace {

class Follower {
public:
    explicit Follower(Tree &tree) : tree_(tree), top_level_(tree) {}

    bool follow_level(lyd_node *parent, const std::vector<Pair> &pairs) {
        for (const Pair &pair : pairs) {
            bool done = !pair.after    ? _remove(pair.before)
                        : !pair.before ? _add(parent, pair.after)
                                       : _follow(pair.before, pair.after);
            if (!done) return false;
        }
        return true;
    }

    // For a level of which all nodes are paired.
    bool follow_whole_level(lyd_node *parent, const std::vector<Pair> &pairs) {
        return follow_level(parent, pairs) && _follow_order(parent, pairs);
    }

private:
    bool _remove(lyd_node *node) {
        top_level_.forget();
        detach(tree_, node);
        lyd_free_tree(node);
        return true;
    }

    bool _add(lyd_node *parent, const lyd_node *model) {
        lyd_node *copy = nullptr;
        if (lyd_dup_single(model, nullptr, LYD_DUP_RECURSIVE | LYD_DUP_WITH_FLAGS, &copy) != LY_SUCCESS) return false;
        Node owner(copy);
        if (parent ? lyd_insert_child(parent, copy) != LY_SUCCESS : !top_level_.insert(copy)) return false;
        static_cast<void>(owner.release());
        return true;
    }

    bool _follow(lyd_node *node, lyd_node *model) {
        bool inner = node->schema->nodetype & (LYS_CONTAINER | LYS_LIST);
        if (!inner && !is_same_value(node, model)) {
            lyd_node *parent = lyd_parent(node);
            return _remove(node) && _add(parent, model);
        }
        if (inner && !_follow_children(node, model)) return false;
        node->flags =
            model->flags; // last: libyang keeps changing the default flag of containers as their children come and go
        return true;
    }

    bool _follow_children(lyd_node *node, lyd_node *model) {
        bool whole = has_mark(node, Mark::here) || has_mark(model, Mark::here);
        auto pairs = pair_touched_children(node, model);
        return whole ? follow_whole_level(node, pairs) : follow_level(node, pairs);
    }

    bool _follow_order(lyd_node *parent, const std::vector<Pair> &pairs) {
        SiblingFinder finder(parent ? lyd_child(parent) : tree_.root);
        lyd_node *previous = nullptr;
        for (const Pair &pair : pairs) {
            const lyd_node *model = pair.after;
            if (!model || !is_entry(model)) continue;
            if (previous && previous->schema != model->schema) previous = nullptr;
            lyd_node *node = pair.before ? pair.before : finder.find(model);
            if (!node || !_put_behind(parent, node, previous)) return false;
            previous = node;
        }
        return true;
    }

    // libyang moves entries of user-ordered lists only. Another entry is put in again, which makes it the last; all
    // that come after it follow in the same way.
    bool _put_behind(lyd_node *parent, lyd_node *node, lyd_node *previous) {
        if (is_user_ordered(node)) return bool(move_entry(tree_, node, previous));
        bool first = !node->prev->next || node->prev->schema != node->schema;
        if (previous ? previous->next == node : first) return true;
        top_level_.forget();
        detach(tree_, node);
        if (parent ? lyd_insert_child(parent, node) == LY_SUCCESS : top_level_.insert(node)) return true;
        lyd_free_tree(node);
        return false;
    }

    Tree &tree_;
    TopLevel top_level_;
};

} // namespace

Result<Tree> copy_tree(const Tree &tree) {
    Tree copy;
    if (tree.root &&
        lyd_dup_siblings(tree.root, nullptr, LYD_DUP_RECURSIVE | LYD_DUP_WITH_FLAGS, &copy.root) != LY_SUCCESS)
        return refusal("resource-denied", "The datastore could not be copied for want of memory.");
    return copy;
}

Result<Tree *> Twin::draft() {
    if (!has_draft_) {
        auto copy = copy_tree(committed_);
        if (!copy) return std::move(copy).error();
        draft_ = std::move(*copy);
        has_draft_ = true;
    }
    return &draft_;
}

void Twin::commit() {
    std::swap(committed_, draft_);
    _follow(draft_, committed_);
    clear_marks(committed_.root);
}

void Twin::restore() {
    if (!has_draft_) return;
    _follow(draft_, committed_);
    clear_marks(draft_.root);
}

void Twin::drop() {
    draft_.reset();
    has_draft_ = false;
}

void Twin::_follow(Tree &follower, Tree &leader) {
    if (!Follower(follower).follow_whole_level(nullptr, pair_siblings(follower.root, leader.root))) drop();
}

} // namespace zamd
