// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Only explicit nodes count here: a default that appears or vanishes is no change, so a container or leaf that holds
// nothing but defaults is treated as absent.
//
// Moves: among the entries of a user-ordered list that both versions have, those that are not part of a longest run
// kept in order are the ones that moved, the smallest set that explains the order. Where the push said which entries to
// move and these explain it with as few, it is those: of two neighbours that swap either may have moved.
#include "diff_build.h"

#include <algorithm>
#include <map>
#include <unordered_map>
#include <unordered_set>

#include "diff_pairs.h"

namespace zamd {
namespace {

using MovedNodes = std::unordered_set<const lyd_node *>; // of the later version

// The indexes of one longest increasing subsequence.
std::vector<std::size_t> _longest_run(const std::vector<std::size_t> &numbers) {
    constexpr std::size_t none = static_cast<std::size_t>(-1);
    std::vector<std::size_t> ends; // index of the smallest end of a run of each length
    std::vector<std::size_t> previous(numbers.size(), none);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        auto at = std::lower_bound(ends.begin(), ends.end(), numbers[i],
                                   [&](std::size_t end, std::size_t number) { return numbers[end] < number; });
        if (at != ends.begin()) previous[i] = *(at - 1);
        if (at == ends.end())
            ends.push_back(i);
        else
            *at = i;
    }
    std::vector<std::size_t> run;
    for (std::size_t i = ends.empty() ? none : ends.back(); i != none; i = previous[i])
        run.push_back(i);
    return run;
}

// Whether the entries that were asked to move are `fewest` and all others kept their order; they are `moved` then.
bool _asked_moves_explain(const std::vector<Pair> &entries, const std::vector<std::size_t> &former, std::size_t fewest,
                          MovedNodes &moved) {
    std::vector<const lyd_node *> asked;
    std::vector<std::size_t> others;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        bool marked = has_mark(entries[i].before, Mark::moved) || has_mark(entries[i].after, Mark::moved);
        if (marked)
            asked.push_back(entries[i].after);
        else
            others.push_back(former[i]);
    }
    if (asked.size() != fewest || !std::is_sorted(others.begin(), others.end())) return false;
    moved.insert(asked.begin(), asked.end());
    return true;
}

// The entries of one user-ordered list that have another place than before.
void _find_moves(const std::vector<Pair> &entries, MovedNodes &moved) {
    std::unordered_map<const lyd_node *, std::size_t> index;
    const lyd_node *first = entries.front().before;
    while (first->prev->next && first->prev->schema == first->schema)
        first = first->prev;
    for (const lyd_node *node = first; node && node->schema == first->schema; node = node->next)
        index.emplace(node, index.size());
    std::vector<std::size_t> former;
    former.reserve(entries.size());
    for (const Pair &entry : entries)
        former.push_back(index.at(entry.before));
    if (std::is_sorted(former.begin(), former.end())) return;
    std::vector<std::size_t> run = _longest_run(former);
    if (_asked_moves_explain(entries, former, entries.size() - run.size(), moved)) return;
    for (const Pair &entry : entries)
        moved.insert(entry.after);
    for (std::size_t kept : run)
        moved.erase(entries[kept].after);
}

MovedNodes _find_all_moves(const std::vector<Pair> &pairs) {
    std::map<const lysc_node *, std::vector<Pair>> lists;
    for (const Pair &pair : pairs) {
        if (pair.before && pair.after && is_user_ordered(pair.after)) lists[pair.after->schema].push_back(pair);
    }
    MovedNodes moved;
    for (const auto &[schema, entries] : lists)
        _find_moves(entries, moved);
    return moved;
}

// "[key=value]…" or the value of a leaf-list, as origin-position names an entry.
std::string _entry_name(const lyd_node *entry) {
    if (entry->schema->nodetype == LYS_LEAFLIST) return lyd_get_value(entry);
    std::string name;
    for (const lyd_node *key = lyd_child(entry); key && lysc_is_key(key->schema); key = key->next)
        name.append("[").append(key->schema->name).append("=").append(lyd_get_value(key)).append("]");
    return name;
}

std::string _position(const lyd_node *entry) {
    bool first = !entry->prev->next || entry->prev->schema != entry->schema;
    return first ? "first" : "after:" + _entry_name(entry->prev);
}

// Puts a node behind the siblings of the top level by hand: libyang would walk all of them for each.
void _append_at_top(lyd_node *&first, lyd_node *node) {
    if (!first) {
        first = node;
        return;
    }
    lyd_node *last = first->prev;
    last->next = node;
    node->prev = last;
    first->prev = node;
}

class Builder {
public:
    explicit Builder(const ly_ctx *ctx)
        : netconf_(ly_ctx_get_module_implemented(ctx, "ietf-netconf")),
          zam_(ly_ctx_get_module_implemented(ctx, "orvel-zam-server")) {}

    Result<Tree> build(lyd_node *before, lyd_node *after) {
        std::vector<Node> changes = _level(pair_siblings(before, after));
        // Those that went come last; a list of the top level is to stay in one piece all the same.
        std::map<const lysc_node *, std::size_t> order;
        for (const Node &node : changes)
            order.emplace(node->schema, order.size());
        std::stable_sort(changes.begin(), changes.end(),
                         [&](const Node &a, const Node &b) { return order[a->schema] < order[b->schema]; });
        Tree tree;
        for (Node &node : changes)
            _append_at_top(tree.root, node.release());
        if (failed_) return refusal("resource-denied", "The changes could not be recorded for want of memory.");
        return tree;
    }

private:
    std::vector<Node> _level(const std::vector<Pair> &pairs) {
        MovedNodes moved = _find_all_moves(pairs);
        std::vector<Node> changes;
        for (const Pair &pair : pairs) {
            Node change = _change(pair, moved.contains(pair.after));
            if (change) changes.push_back(std::move(change));
        }
        return changes;
    }

    Node _change(const Pair &pair, bool moved) {
        bool was = is_explicit(pair.before);
        bool is = is_explicit(pair.after);
        if (!was && !is) return nullptr;
        if (!was) return _whole(pair.after, "create");
        if (!is) return _gone(pair.before);
        Node change = pair.after->schema->nodetype & (LYS_CONTAINER | LYS_LIST) ? _inside(pair) : _value(pair);
        if (!moved) return change;
        if (!change) change = _copy(pair.after, "merge");
        _annotate(change, zam_, "origin-position", _position(pair.before));
        return change;
    }

    // A node with everything explicit below it, every node but the keys with the same operation.
    Node _whole(const lyd_node *node, const char *operation) {
        Node copy = _copy(node, operation);
        for (const lyd_node *child = lyd_child(node); child && copy; child = child->next) {
            if (!is_explicit(child) || lysc_is_key(child->schema)) continue;
            _add(copy, _whole(child, operation));
        }
        return copy;
    }

    Node _gone(const lyd_node *node) {
        Node copy = _whole(node, "delete");
        if (is_user_ordered(node)) _annotate(copy, zam_, "origin-position", _position(node));
        return copy;
    }

    Node _inside(const Pair &pair) {
        std::vector<Node> changes = _level(pair_touched_children(pair.before, pair.after));
        if (changes.empty()) return nullptr;
        Node copy = _copy(pair.after, "merge");
        for (Node &change : changes)
            _add(copy, std::move(change));
        return copy;
    }

    Node _value(const Pair &pair) {
        if (is_same_value(pair.before, pair.after)) return nullptr;
        Node copy = _copy(pair.after, "replace");
        if (pair.before->schema->nodetype & LYD_NODE_TERM)
            _annotate(copy, zam_, "origin-value", lyd_get_value(pair.before));
        return copy;
    }

    // The node itself, for a list with its keys.
    Node _copy(const lyd_node *node, const char *operation) {
        lyd_node *copy = nullptr;
        if (lyd_dup_single(node, nullptr, LYD_DUP_NO_META, &copy) != LY_SUCCESS) failed_ = true;
        Node owner(copy);
        _annotate(owner, netconf_, "operation", operation);
        return owner;
    }

    void _add(const Node &parent, Node child) {
        if (!parent || !child) return;
        if (lyd_insert_child(parent.get(), child.get()) == LY_SUCCESS)
            static_cast<void>(child.release());
        else
            failed_ = true;
    }

    void _annotate(const Node &node, const lys_module *module, const char *name, const std::string &value) {
        if (node && lyd_new_meta(nullptr, node.get(), module, name, value.c_str(), 0, nullptr) != LY_SUCCESS)
            failed_ = true;
    }

    const lys_module *netconf_;
    const lys_module *zam_;
    bool failed_ = false;
};

} // namespace

Result<Tree> build_diff(const ly_ctx *ctx, lyd_node *before, lyd_node *after) {
    return Builder(ctx).build(before, after);
}

} // namespace zamd
