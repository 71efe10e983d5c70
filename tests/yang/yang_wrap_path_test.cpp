// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <string>

#include <gtest/gtest.h>
#include <zamc/yang_module.h>
#include <zamc/yang_wrap.h>

#include "support/heap.h"
#include "support/log_capture.h"
#include "support/test_schema.h"

namespace {

using namespace zam::test;

class NodePath : public testing::Test {
protected:
    static std::string path_of(const lyd_node *node) { return take(zam_lyd_path(node)); }

    // The path of the node that a path leads to in a tree.
    static std::string path_at(const Tree &tree, const char *path) {
        const lyd_node *node = zam_lyd_find_path(tree.get(), path);
        EXPECT_NE(node, nullptr) << path;
        return path_of(node);
    }

    // The deepest first child of a tree made along a path.
    static std::string path_of_made(const char *path, const char *value = nullptr) {
        const Tree tree{zam_lyd_new_path(nullptr, test_context(), path, value)};
        lyd_node *node = tree.get();
        while (lyd_node *child = zam_lyd_child(node))
            node = child->prev;
        return path_of(node);
    }

    ly_ctx *ctx = test_context();
    LogCapture log{3};
};

TEST_F(NodePath, TheModuleStandsWhereItChanges) {
    const Tree top =
        parse_json(R"({"test-main:top":{"text":"t","sub":{"inner":{"c":"z"}},"test-extra:more":{"x":1}}})");
    EXPECT_EQ(path_of(top.get()), "/test-main:top");
    EXPECT_EQ(path_at(top, "text"), "/test-main:top/text");
    EXPECT_EQ(path_at(top, "sub/inner/c"), "/test-main:top/sub/inner/c");
    EXPECT_EQ(path_at(top, "more"), "/test-main:top/test-extra:more");
    EXPECT_EQ(path_at(top, "more/x"), "/test-main:top/test-extra:more/x");
}

TEST_F(NodePath, AnEntryBringsEachOfItsKeysInChildOrder) {
    const Tree top =
        parse_json(R"({"test-main:top":{"item":[{"name":"a","value":1,"part":[{"row":1,"column":2,"label":"l"}]}],)"
                   R"("four":[{"a":"1","b":"2","c":"3","d":"4"}]}})");
    EXPECT_EQ(path_at(top, "item"), R"(/test-main:top/item[name="a"])");
    EXPECT_EQ(path_at(top, "item/value"), R"(/test-main:top/item[name="a"]/value)");
    EXPECT_EQ(path_at(top, "item/name"), R"(/test-main:top/item[name="a"]/name)");
    EXPECT_EQ(path_at(top, "item/part/label"), R"(/test-main:top/item[name="a"]/part[row="1"][column="2"]/label)");
    EXPECT_EQ(path_at(top, "four"), R"(/test-main:top/four[a="1"][b="2"][c="3"][d="4"])");
}

TEST_F(NodePath, AnEntryOfAnotherModuleKeepsItsKeysBare) {
    const Tree top = parse_json(R"({"test-main:top":{"test-extra:far":[{"id":"1","value":2}]}})");
    EXPECT_EQ(path_at(top, "far/id"), R"(/test-main:top/test-extra:far[id="1"]/id)");
}

// No module can declare it today, so the leaf gets a schema node of the other module for the length of the test.
TEST_F(NodePath, AKeyOfAnotherModuleThanItsEntryHasItsPrefix) {
    const Tree top = parse_json(R"({"test-main:top":{"item":[{"name":"a","value":1}]}})");
    lyd_node *key = zam_lyd_find_path(top.get(), "item/name");
    ASSERT_NE(key, nullptr);
    const lysc_node *own_schema = key->schema;
    lysc_node_leaf foreign = *reinterpret_cast<const lysc_node_leaf *>(own_schema);
    foreign.module = zam_ly_ctx_get_module(ctx, "test-extra");
    key->schema = &foreign.node;
    const std::string key_path = path_of(key);
    const std::string sibling_path = path_of(key->next);
    key->schema = own_schema;
    EXPECT_EQ(key_path, R"(/test-main:top/item[test-extra:name="a"]/test-extra:name)");
    EXPECT_EQ(sibling_path, R"(/test-main:top/item[test-extra:name="a"]/value)");
}

TEST_F(NodePath, ALeafListEntryBringsItsValue) {
    const Tree top = parse_json(R"({"test-main:top":{"tag":["x y"],"count":[5],"test-extra:mark":["m"]}})");
    EXPECT_EQ(path_at(top, "tag"), R"(/test-main:top/tag[.="x y"])");
    EXPECT_EQ(path_at(top, "count"), R"(/test-main:top/count[.="5"])");
    EXPECT_EQ(path_at(top, "mark"), R"(/test-main:top/test-extra:mark[.="m"])");
}

TEST_F(NodePath, QuotesAndBackslashesAreEscaped) {
    const Tree top = parse_json(R"({"test-main:top":{"item":[{"name":"q\"\\"}],"tag":["\"\\\""]}})");
    EXPECT_EQ(path_at(top, "item"), R"(/test-main:top/item[name="q\"\\"])");
    EXPECT_EQ(path_at(top, "tag"), R"(/test-main:top/tag[.="\"\\\""])");
}

TEST_F(NodePath, AnIdentityLosesTheModuleOfItsLeaf) {
    const Tree top =
        parse_json(R"({"test-main:top":{"by-kind":[{"kind":"test-main:round"}],"shape":["test-main:round"]}})");
    EXPECT_EQ(path_at(top, "by-kind"), R"(/test-main:top/by-kind[kind="round"])");
    EXPECT_EQ(path_at(top, "shape"), R"(/test-main:top/shape[.="round"])");
}

TEST_F(NodePath, AnIdentityOfAnotherModuleKeepsIt) {
    const Tree top = parse_json(R"({"test-main:top":{"by-kind":[{"kind":"test-extra:oval"}]}})");
    EXPECT_EQ(path_at(top, "by-kind"), R"(/test-main:top/by-kind[kind="test-extra:oval"])");
}

TEST_F(NodePath, NodesOfEveryMakeHaveOne) {
    EXPECT_EQ(path_of_made("/test-main:top/item"), "/test-main:top/item");
    EXPECT_EQ(path_of_made("/test-main:top/item[name='a']/value"), R"(/test-main:top/item[name="a"]/value)");
    EXPECT_EQ(path_of_made("/test-main:top/text"), "/test-main:top/text");
    EXPECT_EQ(path_of_made("/test-main:top/tag"), "/test-main:top/tag");
    EXPECT_EQ(path_of_made("/test-main:top/tag[.='x']"), R"(/test-main:top/tag[.="x"])");
    EXPECT_EQ(path_of_made("/test-main:top/any"), "/test-main:top/any");
    EXPECT_EQ(path_of_made("/test-main:top/test-extra:more/x"), "/test-main:top/test-extra:more/x");
}

TEST_F(NodePath, OperationsHaveOne) {
    EXPECT_EQ(path_of_made("/test-main:run/speed", "1"), "/test-main:run/speed");
    EXPECT_EQ(path_of_made("/test-main:alarm/message", "m"), "/test-main:alarm/message");
    EXPECT_EQ(path_of_made("/test-main:top/item[name='a']/reset/delay", "1"),
              R"(/test-main:top/item[name="a"]/reset/delay)");
}

TEST_F(NodePath, ManyPiecesAreJoined) {
    const Tree top = parse_json(R"({"test-main:top":{"four":[{"a":"1","b":"2","c":"3","d":"4"}],)"
                                R"("item":[{"name":"n","part":[{"row":1,"column":2,"label":"l"}]}]}})");
    const std::string name(3000, 'n');
    const Tree made{zam_lyd_new_path(nullptr, ctx, ("/test-main:top/item[name='" + name + "']/box/size").c_str(), "1")};
    EXPECT_EQ(path_at(made, "item/box/size"), "/test-main:top/item[name=\"" + name + "\"]/box/size");
    EXPECT_EQ(path_at(top, "four/d"), R"(/test-main:top/four[a="1"][b="2"][c="3"][d="4"]/d)");
}

TEST_F(NodePath, ItLeadsBackToTheNode) {
    const Tree top =
        parse_json(R"({"test-main:top":{"item":[{"name":"a"},{"name":"b","part":[{"row":1,"column":2,"label":"l"}]}],)"
                   R"("tag":["x","y"],"test-extra:far":[{"id":"q\"'","value":2}]}})");
    for (const char *path : {"item[name='b']/part", "tag[.='y']", "far/value"}) {
        lyd_node *node = zam_lyd_find_path(top.get(), path);
        ASSERT_NE(node, nullptr) << path;
        EXPECT_EQ(zam_lyd_find_path(top.get(), path_of(node).c_str()), node) << path;
    }
}

TEST_F(NodePath, ANodeThatTheSchemaDoesNotKnowHasNone) {
    const Tree top = parse_json(R"({"test-main:top":{"text":"t"}})");
    lyd_node *stranger = zam_lyd_new_opaq(top.get(), ctx, "stranger", "s", "test-main");
    ASSERT_NE(stranger, nullptr);
    EXPECT_EQ(zam_lyd_path(stranger), nullptr);
}

TEST_F(NodePath, ANodeBelowOneThatTheSchemaDoesNotKnowHasNone) {
    const Tree stranger{zam_lyd_new_opaq(nullptr, ctx, "stranger", nullptr, "test-main")};
    lyd_node *child = zam_lyd_new_opaq(stranger.get(), ctx, "text", "s", "test-main");
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(zam_lyd_path(child), nullptr);
}

TEST_F(NodePath, NullHasNone) {
    EXPECT_EQ(zam_lyd_path(nullptr), nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST_F(NodePath, NoMemoryAtAnyPointGivesNone) {
    const Tree top =
        parse_json(R"({"test-main:top":{"item":[{"name":"a","part":[{"row":1,"column":2,"label":"l"}]}]}})");
    const lyd_node *label = zam_lyd_find_path(top.get(), "item/part/label");
    ASSERT_NE(label, nullptr);
    const auto failures = fail_each_allocation([&](bool may_fail) {
        const std::string path = path_of(label);
        if (path != "(null)" || !may_fail) {
            EXPECT_EQ(path, R"(/test-main:top/item[name="a"]/part[row="1"][column="2"]/label)");
        }
    });
    EXPECT_GT(failures, 8u);
}

} // namespace
