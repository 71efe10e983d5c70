// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Paths as the protocol writes them: "/module:name/name[key='value']/other:name". A step without a module name is of
// the module of the step above it. This is deliberately not XPath: no axis, function or operator is understood, so a
// path from a peer costs its length and nothing more. Choice and case names may stand in a path or be left out.
#ifndef ZAMD_STORE_PATH_H
#define ZAMD_STORE_PATH_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <libyang/libyang.h>

#include "error.h"

namespace zamd {

// One step of a path below the root.
struct Step {
    const lysc_node *schema = nullptr;
    // What names one entry: the canonical values of a list's keys in the schema's order, or a leaf-list's value. Empty
    // when the step names none.
    std::vector<std::string> values;
    uint32_t position = 0; // of an entry of a list without key statement, counted from 1; 0 for none

    bool names_entry() const { return !values.empty() || position != 0; }
    // "[key='value']…", "[.='value']", "[3]" or nothing, as paths carry it.
    std::string predicates() const;
    // The node is of this step's schema and, where the step names an entry, that one. A position is not looked at.
    bool matches(const lyd_node *node) const;
};

// A node of the schema, with the keys that the path gave on the way to it. Copies are cheap.
class Place {
public:
    // The whole datastore.
    Place() = default;

    // "/" or an absolute path. An unknown node or a key of the wrong type is an error that says which step.
    static Result<Place> find(const ly_ctx *ctx, std::string_view path);

    bool is_root() const { return steps_.empty(); }
    const std::vector<Step> &steps() const { return steps_; }
    const lysc_node *schema() const { return steps_.empty() ? nullptr : steps_.back().schema; } // null for "/"

    // A list or leaf-list as a whole: its last step names no entry.
    bool is_all_entries() const;
    // Every list and leaf-list above the last step (and, with `itself`, the last one too) names its entry.
    bool is_one_instance(bool itself = true) const;

    std::string schema_path() const; // "/module:name/name", without keys, choices and cases: fit for comparing
    std::string data_path() const;   // with the keys as given

    // This place is at or above `other`: all its steps are the first of the other's, and where both name an entry it
    // is the same one.
    bool covers(const Place &other) const;
    // One of the two is at or above the other.
    bool meets(const Place &other) const { return covers(other) || other.covers(*this); }

private:
    std::vector<Step> steps_;
};

// The node of this schema among `first` and the siblings after it; for a list or leaf-list the one that `step` names
// or, when it names none, the first. Null when there is none.
lyd_node *find_step(const lyd_node *first, const Step &step);

// "/module:name/name[key="value"]": the normal form of the clients' paths, where a backslash goes before
// each quote and backslash of a value.
std::string instance_path(const lyd_node *node);
// The predicates that tell a list or leaf-list entry from the others of its list.
std::string entry_predicates(const lyd_node *node);

// A text from a peer, cut to a length fit for messages.
std::string shown(std::string_view text);

} // namespace zamd

#endif
