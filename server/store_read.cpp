// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Reading. Nothing is copied unless a depth, a provider's answer or a diff asks for it.
#include "diff_build.h"
#include "diff_pairs.h"
#include "edit_content.h"
#include "store.h"
#include "store_copy.h"
#include "store_error.h"
#include "store_impl.h"

namespace zamd {
namespace {

void _collect(const lyd_node *first, const std::vector<Step> &steps, std::size_t depth,
              std::vector<std::string> &found) {
    const Step &step = steps[depth];
    auto visit = [&](const lyd_node *node) {
        if (!is_explicit(node)) return;
        if (depth + 1 == steps.size())
            found.push_back(instance_path(node));
        else
            _collect(lyd_child(node), steps, depth + 1, found);
    };
    const lyd_node *node = find_step(first, step);
    bool every = (step.schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) && !step.names_entry();
    for (; node && node->schema == step.schema; node = every ? node->next : nullptr)
        visit(node);
}

Result<Text> _print(lyd_node *first, const Place &place, int32_t depth, Format format) {
    if (depth <= 0 && place.is_root()) return print_siblings(first, format, false);
    if (depth <= 0) return print_selected(first, place, format);
    std::vector<lyd_node *> nodes = select(first, place);
    if (place.is_root()) {
        for (lyd_node *node = first; node; node = node->next)
            nodes.push_back(node);
    }
    // "/" stands above the top nodes, which are the first level below it.
    auto copies = copy_nodes(nodes, place.is_root() ? depth - 1 : depth);
    if (!copies) return std::move(copies).error();
    return print_siblings(copies->root, format, true);
}

// The configuration at a place, defaults included, from the root.
Result<Tree> _copy_configuration(const Tree &tree, const Place &place) {
    if (place.is_root()) return copy_tree(tree);
    Tree copy;
    lyd_node *parent = nullptr;
    for (lyd_node *node : select(tree.root, place)) {
        lyd_node *dup = nullptr;
        uint32_t options = LYD_DUP_RECURSIVE | LYD_DUP_WITH_FLAGS;
        bool first = !copy.root;
        if (first) options |= LYD_DUP_WITH_PARENTS;
        LY_ERR result = lyd_dup_single(node, nullptr, options, &dup);
        if (result != LY_SUCCESS) return refusal("resource-denied", "The data could not be copied for want of memory.");
        if (first) {
            parent = lyd_parent(dup);
            for (copy.root = dup; lyd_parent(copy.root);)
                copy.root = lyd_parent(copy.root);
        } else {
            result = parent ? lyd_insert_child(parent, dup) : lyd_insert_sibling(copy.root, dup, &copy.root);
            if (result != LY_SUCCESS) lyd_free_tree(dup);
        }
    }
    return copy;
}

Error _provider_error(const StateAnswer &answer, const Error &cause) {
    Error error = refusal("operation-failed",
                          "The status provider \"" + answer.provider + "\" gave an unusable answer: " + cause.message,
                          cause.path.empty() ? answer.target : cause.path);
    error.app_tag = cause.app_tag;
    return error;
}

} // namespace

Result<Text> Store::pull(Datastore datastore, View view, const Place &place, int32_t depth, Format format) const {
    if (auto keys = needs_keys_above(place); !keys) return std::move(keys).error();
    return _print(impl_->tree(datastore, view).root, place, depth, format);
}

Result<Text> Store::pull_operational(View view, const Place &place, int32_t depth, Format format,
                                     std::span<const StateAnswer> answers) const {
    if (answers.empty()) return pull(Datastore::operational, view, place, depth, format);
    if (auto keys = needs_keys_above(place); !keys) return std::move(keys).error();
    auto merged = _copy_configuration(impl_->tree(Datastore::operational, view), place);
    if (!merged) return std::move(merged).error();
    for (const StateAnswer &answer : answers) {
        auto target = Place::find(ctx_, answer.target);
        if (!target) return _provider_error(answer, target.error());
        auto content = read_content(ctx_, *target, answer.text, answer.format, ContentKind::answer);
        if (!content) return _provider_error(answer, content.error());
        if (!content->tree.root) continue;
        LibyangErrors errors(ctx_);
        // Taken apart by the merge, whatever comes of it.
        lyd_node *state = std::exchange(content->tree.root, nullptr);
        if (lyd_merge_siblings(&merged->root, state, LYD_MERGE_DESTRUCT) != LY_SUCCESS)
            return _provider_error(answer, errors.take("it does not fit the configuration."));
    }
    return _print(merged->root, place, depth, format);
}

Result<Neighbours> Store::locate(Datastore datastore, View view, const Place &place) const {
    std::string path = place.data_path();
    if (auto keys = needs_keys_above(place); !keys) return std::move(keys).error();
    bool entry = !place.is_root() && (place.schema()->nodetype & (LYS_LIST | LYS_LEAFLIST)) && place.is_one_instance();
    if (!entry || !lysc_is_userordered(place.schema()))
        return bad_request("invalid-value", "\"" + shown(path) + "\" is no entry of a user-ordered list.", path);
    std::vector<lyd_node *> found = select(impl_->tree(datastore, view).root, place);
    if (found.empty()) return refusal("data-missing", "\"" + shown(path) + "\" does not exist.", path);
    const lyd_node *node = found.front();
    Neighbours neighbours;
    if (node->prev->next && node->prev->schema == node->schema) neighbours.previous = instance_path(node->prev);
    if (node->next && node->next->schema == node->schema) neighbours.next = instance_path(node->next);
    return neighbours;
}

std::vector<std::string> Store::instances(const Place &place) const {
    std::vector<std::string> found;
    const Tree &tree = impl_->running.committed();
    if (place.is_root() && tree) found.emplace_back("/");
    if (!place.is_root()) _collect(tree.root, place.steps(), 0, found);
    return found;
}

Result<Diff> Store::creation(const Place &place) const {
    const auto existing = copy_branch(impl_->running.committed().root, place, all_levels);
    if (!existing) return existing.error();
    auto diff = build_diff(ctx_, nullptr, existing->root);
    if (!diff) return std::move(diff).error();
    return Diff(std::move(*diff));
}

const Tree &Store::Impl::tree(Datastore datastore, View view) const {
    const Twin &twin = datastore == Datastore::startup && startup ? *startup : running;
    bool candidate = view == View::candidate && pending == Datastore::running && datastore != Datastore::startup;
    return candidate ? twin.edited_draft() : twin.committed();
}

} // namespace zamd
