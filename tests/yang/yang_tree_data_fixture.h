// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What the tests of building, linking and destroying data trees share.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <libyang/libyang.h>
#include <zamc/yang_module.h>
#include <zamc/yang_tree_data.h>
#include <zamc/yang_wrap.h>

#include "support/heap.h"
#include "support/log_capture.h"
#include "support/test_schema.h"

namespace zam::test {

// The test modules are loaded before any test of the suite, and libyang's lines go to the library's logger.
class SchemaTest : public testing::Test {
protected:
    static void SetUpTestSuite() { test_context(); }

    static const lys_module *module(const char *name) { return zam_ly_ctx_get_module(test_context(), name); }
};

// The schema node at a path of an operation's output.
inline const lysc_node *output_schema_at(const char *path) {
    const lysc_node *schema = lys_find_path(test_context(), nullptr, path, 1);
    EXPECT_NE(schema, nullptr) << path;
    return schema;
}

inline lyd_node *parent_of(const lyd_node *node) {
    return reinterpret_cast<lyd_node *>(node->parent);
}

inline lyd_node_inner *inner(lyd_node *node) {
    return reinterpret_cast<lyd_node_inner *>(node);
}

inline lyd_node_opaq *opaque(lyd_node *node) {
    return reinterpret_cast<lyd_node_opaq *>(node);
}

inline bool is_lightweight(const lyd_node *node) {
    return (reinterpret_cast<uintptr_t>(node->priv) & 1) != 0;
}

// A node that stands for `path` without one of libyang's.
inline Tree lightweight(const char *path) {
    return Tree{zam_lyd_node_lightweight_new(schema_at(path), nullptr, nullptr, 0)};
}

inline lyd_node *new_opaque(lyd_node *parent, const char *name, const char *value, const char *module = "test-main") {
    return zam_lyd_new_opaq(parent, test_context(), name, value, module);
}

// The child of a name, for a test that knows that it is there.
inline lyd_node *child(const lyd_node *parent, const std::string &name) {
    for (lyd_node *node = zam_lyd_child(parent); node; node = node->next)
        if (name == zam_lyd_get_schema_name(node)) return node;
    ADD_FAILURE() << "no child " << name;
    return nullptr;
}

// Names in the order of a list that starts at `first`; fails the test when its links are not what a list's are.
inline std::vector<std::string> names(const lyd_node *first, const lyd_node *parent = nullptr) {
    std::vector<std::string> found;
    const lyd_node *last = nullptr;
    for (const lyd_node *node = first; node; last = node, node = node->next) {
        found.emplace_back(zam_lyd_get_schema_name(node));
        EXPECT_EQ(parent_of(node), parent) << found.back();
        if (last) {
            EXPECT_EQ(node->prev, last) << found.back();
        }
    }
    if (first) {
        EXPECT_EQ(first->prev, last) << "the first node knows the last";
    }
    return found;
}

inline std::vector<std::string> children(const lyd_node *parent) {
    return names(zam_lyd_child(parent), parent);
}

} // namespace zam::test
