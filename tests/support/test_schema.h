// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Three small modules with one node of every kind, loaded into the shared schema context; the text is in the source
// file.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include <libyang/libyang.h>
#include <zamc/mem.h>
#include <zamc/yang_tree_data.h>

namespace zam::test {

// The shared context with the protocol's modules and the test modules `test-main`, `test-extra`, which augments
// the first, and `test-kinds`. The first call loads them: make it before any data tree exists and outside of the life
// of a Heap.
ly_ctx *test_context();

struct free_tree {
    void operator()(lyd_node *tree) const { zam_lyd_tree_destroy(tree); }
};
using Tree = std::unique_ptr<lyd_node, free_tree>;

// A tree of the test modules, or of any other, from JSON as data that is not validated; fails the test when it does not
// parse.
Tree parse_json(const std::string &text);

// Printed without blanks, with empty containers; "" for null. Siblings are printed only on demand.
std::string to_json(const lyd_node *tree, bool siblings = false);
std::string to_xml(const lyd_node *tree, bool siblings = false);
inline std::string to_json(const Tree &tree) {
    return to_json(tree.get(), true);
}
inline std::string to_xml(const Tree &tree) {
    return to_xml(tree.get(), true);
}

// The text of a function that hands out a new one, which is released; "(null)" for null.
std::string take(char *text);

// The schema node at a schema path such as "/test-main:top/item"; fails the test when there is none.
const lysc_node *schema_at(const char *path);

// A text in a block of its own, released with the hooks that made it.
using Text = std::unique_ptr<char, decltype([](char *text) { zam_free(text); })>;

} // namespace zam::test
