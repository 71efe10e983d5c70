// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "e2e/document_nodes.h"

#include <cstdlib>
#include <cstring>

namespace zam::test {
namespace {

constexpr uint32_t parse_options = LYD_PARSE_ONLY | LYD_PARSE_STRICT;

// A data path is an expression that selects its nodes, of a list or leaf-list without predicates all.
ly_set *_select(const lyd_node *tree, const std::string &path) {
    ly_set *nodes = nullptr;
    EXPECT_TRUE(!tree || lyd_find_xpath(tree, path.c_str(), &nodes) == LY_SUCCESS) << path;
    return nodes;
}

} // namespace

ByLibyang::ByLibyang(const std::string &text, uint32_t format) {
    lyd_node *parsed = nullptr;
    EXPECT_EQ(lyd_parse_data_mem(zam_clients_schema_ctx(), text.c_str(), format == ZAM_ENCODE_XML ? LYD_XML : LYD_JSON,
                                 parse_options, 0, &parsed),
              LY_SUCCESS)
        << text;
    while (parsed) {
        lyd_node *next = parsed->next;
        lyd_unlink_tree(parsed);
        EXPECT_EQ(lyd_merge_tree(&tree_, parsed, LYD_MERGE_DESTRUCT), LY_SUCCESS);
        parsed = next;
    }
}

lyd_node *ByLibyang::find(const std::string &path) const {
    ly_set *nodes = _select(tree_, path);
    lyd_node *node = nodes && nodes->count > 0 ? nodes->dnodes[0] : nullptr;
    ly_set_free(nodes, nullptr);
    return node;
}

std::string ByLibyang::value(const std::string &path) const {
    const lyd_node *node = find(path);
    return node ? lyd_get_value(node) ? lyd_get_value(node) : "" : "(none)";
}

std::string ByLibyang::operation(const std::string &path) const {
    const lyd_node *node = find(path);
    for (const lyd_meta *meta = node ? node->meta : nullptr; meta; meta = meta->next) {
        if (strcmp(meta->name, "operation") == 0) return lyd_get_meta_value(meta);
    }
    return "(none)";
}

void ByLibyang::remove(const std::string &path) {
    ly_set *nodes = _select(tree_, path);
    EXPECT_TRUE(nodes && nodes->count > 0) << path;
    for (uint32_t i = 0; nodes && i < nodes->count; ++i) {
        if (nodes->dnodes[i] == tree_) tree_ = tree_->next;
        lyd_free_tree(nodes->dnodes[i]);
    }
    ly_set_free(nodes, nullptr);
}

std::string ByLibyang::json() const {
    char *text = nullptr;
    EXPECT_TRUE(!tree_ ||
                lyd_print_mem(&text, tree_, LYD_JSON, LYD_PRINT_SHRINK | LYD_PRINT_WITHSIBLINGS) == LY_SUCCESS);
    const std::string printed = text ? text : "";
    std::free(text);
    return printed;
}

} // namespace zam::test
