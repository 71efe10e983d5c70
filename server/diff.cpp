// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Reading a Diff: the part of it at a place, and what it did to the instances of a place.
#include <cstring>

#include "diff_pairs.h"
#include "store.h"
#include "store_copy.h"

namespace zamd {
namespace {

const char *_annotation(const lyd_node *node, const char *name) {
    for (const lyd_meta *meta = node->meta; meta; meta = meta->next) {
        if (std::strcmp(meta->name, name) == 0) return lyd_get_meta_value(meta);
    }
    return nullptr;
}

What _what(const lyd_node *node) {
    const char *operation = _annotation(node, "operation");
    std::string_view word = operation ? operation : "";
    if (word == "create") return What::created;
    if (word == "delete") return What::deleted;
    return _annotation(node, "origin-position") ? What::moved : What::updated;
}

// Goes down the steps of a place, through every entry where a step names none.
void _collect(const lyd_node *first, const std::vector<Step> &steps, std::size_t depth, std::vector<Touched> &found) {
    const Step &step = steps[depth];
    for (const lyd_node *node = first; node; node = node->next) {
        if (!step.matches(node)) continue;
        if (depth + 1 == steps.size())
            found.push_back({instance_path(node), _what(node)});
        else
            _collect(lyd_child(node), steps, depth + 1, found);
    }
}

} // namespace

std::vector<Touched> Diff::touched(const Place &place) const {
    std::vector<Touched> found;
    if (place.is_root() && !empty()) found.push_back({"/", What::updated});
    if (!place.is_root()) _collect(edits_.root, place.steps(), 0, found);
    return found;
}

Result<Text> Diff::print(const Place &place, int32_t depth, Format format) const {
    if (place.is_root() && depth == all_levels) return print_siblings(edits_.root, format, true);
    auto part = copy_branch(edits_.root, place, depth);
    if (!part) return std::move(part).error();
    return print_siblings(part->root, format, true);
}

} // namespace zamd
