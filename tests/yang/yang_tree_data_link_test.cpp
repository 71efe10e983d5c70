// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "yang/yang_tree_data_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;

// A list of opaque siblings, named by one letter each.
class TreeLink : public SchemaTest {
protected:
    static lyd_node *list(const std::string &letters) {
        lyd_node *first = nullptr;
        for (const char letter : letters)
            first = zam_tree_add_sibling(first, new_opaque(nullptr, std::string(1, letter).c_str(), nullptr));
        return first;
    }
};

TEST_F(TreeLink, AppendedSiblingsStandBehind) {
    const Tree first{list("abc")};
    lyd_node *other = list("de");
    EXPECT_EQ(zam_tree_add_sibling(first.get(), other), first.get());
    EXPECT_THAT(names(first.get()), ElementsAre("a", "b", "c", "d", "e"));
    EXPECT_EQ(other->next->next, nullptr);
}

TEST_F(TreeLink, AppendedSiblingsGetTheParent) {
    const Tree parent = lightweight("/test-main:top");
    zam_tree_add_child(parent.get(), list("ab"));
    EXPECT_EQ(zam_tree_add_sibling(zam_lyd_child(parent.get()), list("cd")), zam_lyd_child(parent.get()));
    EXPECT_THAT(children(parent.get()), ElementsAre("a", "b", "c", "d"));
}

TEST_F(TreeLink, AppendingNothingOrToNothingGivesTheOther) {
    const Tree some{list("a")};
    EXPECT_EQ(zam_tree_add_sibling(some.get(), nullptr), some.get());
    EXPECT_EQ(zam_tree_add_sibling(nullptr, some.get()), some.get());
    EXPECT_EQ(zam_tree_add_sibling(nullptr, nullptr), nullptr);
    EXPECT_THAT(names(some.get()), ElementsAre("a"));
}

TEST_F(TreeLink, InsertedSiblingsStandInFront) {
    lyd_node *first = list("abc");
    lyd_node *other = list("de");
    const Tree all{zam_tree_insert_sibling(first, other)};
    EXPECT_EQ(all.get(), other);
    EXPECT_THAT(names(all.get()), ElementsAre("d", "e", "a", "b", "c"));
}

TEST_F(TreeLink, InsertedSiblingsGetTheParentAndBecomeItsFirstChildren) {
    const Tree parent = lightweight("/test-main:top");
    zam_tree_add_child(parent.get(), list("ab"));
    lyd_node *other = list("cd");
    EXPECT_EQ(zam_tree_insert_sibling(zam_lyd_child(parent.get()), other), other);
    EXPECT_EQ(zam_lyd_child(parent.get()), other);
    EXPECT_THAT(children(parent.get()), ElementsAre("c", "d", "a", "b"));
}

TEST_F(TreeLink, AnOpaqueParentGetsItsNewFirstChildToo) {
    const Tree parent{new_opaque(nullptr, "strange", nullptr)};
    zam_tree_add_child(parent.get(), list("a"));
    zam_tree_insert_sibling(zam_lyd_child(parent.get()), list("b"));
    EXPECT_THAT(children(parent.get()), ElementsAre("b", "a"));
}

TEST_F(TreeLink, InsertingNothingOrBeforeNothingGivesTheOther) {
    const Tree some{list("a")};
    EXPECT_EQ(zam_tree_insert_sibling(some.get(), nullptr), some.get());
    EXPECT_EQ(zam_tree_insert_sibling(nullptr, some.get()), some.get());
    EXPECT_EQ(zam_tree_insert_sibling(nullptr, nullptr), nullptr);
    EXPECT_THAT(names(some.get()), ElementsAre("a"));
}

TEST_F(TreeLink, ChildrenAreAppendedToAnEmptyParentAndBehindOthers) {
    const Tree parent{new_opaque(nullptr, "strange", nullptr)};
    zam_tree_add_child(parent.get(), list("ab"));
    EXPECT_THAT(children(parent.get()), ElementsAre("a", "b"));
    zam_tree_add_child(parent.get(), list("cd"));
    EXPECT_THAT(children(parent.get()), ElementsAre("a", "b", "c", "d"));
}

TEST_F(TreeLink, ChildrenNeedBothSides) {
    const Tree parent = lightweight("/test-main:top");
    const Tree some{list("a")};
    zam_tree_add_child(nullptr, some.get());
    zam_tree_add_child(parent.get(), nullptr);
    zam_tree_add_child(nullptr, nullptr);
    EXPECT_EQ(zam_lyd_child(parent.get()), nullptr);
    EXPECT_THAT(names(some.get()), ElementsAre("a"));
}

TEST_F(TreeLink, ALeafTakesNoChildren) {
    const Tree leaf = parse_json(R"({"test-main:single":"x"})");
    const Tree some{list("a")};
    zam_tree_add_child(leaf.get(), some.get());
    EXPECT_THAT(names(some.get()), ElementsAre("a"));
    EXPECT_EQ(to_json(leaf), R"({"test-main:single":"x"})");
}

TEST_F(TreeLink, LinkingLeavesTheTableOfAParentAlone) {
    const Tree parent = parse_json(R"({"test-main:top":{"text":"x","number":1,"big":"2","switch":true,"either":"y"}})");
    const auto *table = inner(parent.get())->children_ht;
    ASSERT_TRUE(table);
    zam_tree_add_child(parent.get(), list("a"));
    zam_tree_insert_sibling(zam_lyd_child(parent.get()), list("b"));
    EXPECT_EQ(inner(parent.get())->children_ht, table);
    EXPECT_EQ(children(parent.get()).size(), 7u);
}

TEST_F(TreeLink, TwoErrorsOfATemplateAreLinkedAndReleased) {
    const auto error = [] { return zam_lyd_new_yangdata(module("ietf-netconf"), "yang-errors", "rpc-error"); };
    const Tree first{error()};
    zam_tree_add_sibling(first.get(), error());
    EXPECT_EQ(to_json(first), R"({"ietf-netconf:rpc-error":{},"ietf-netconf:rpc-error":{}})");
}

TEST_F(TreeLink, TheFirstChildIsThatOfEveryKindThatHasSome) {
    const Tree top = parse_json(R"({"test-main:top":{"item":[{"name":"a"}]}})");
    const lyd_node *item = zam_lyd_child(top.get());
    EXPECT_STREQ(zam_lyd_get_schema_name(item), "item");
    EXPECT_STREQ(zam_lyd_get_schema_name(zam_lyd_child(item)), "name");

    const Tree run{zam_lyd_new_inner(nullptr, module("test-main"), "run")};
    zam_lyd_new_leaf(run.get(), nullptr, "speed", "1");
    EXPECT_STREQ(zam_lyd_get_schema_name(zam_lyd_child(run.get())), "speed");
    const Tree alarm{zam_lyd_new_inner(nullptr, module("test-main"), "alarm")};
    zam_lyd_new_leaf(alarm.get(), nullptr, "message", "x");
    EXPECT_STREQ(zam_lyd_get_schema_name(zam_lyd_child(alarm.get())), "message");
    const Tree action = lightweight("/test-main:top/item/reset");
    zam_lyd_new_leaf(action.get(), nullptr, "delay", "1");
    EXPECT_STREQ(zam_lyd_get_schema_name(zam_lyd_child(action.get())), "delay");
    const Tree strange{new_opaque(nullptr, "strange", nullptr)};
    new_opaque(strange.get(), "inside", nullptr);
    EXPECT_STREQ(zam_lyd_get_schema_name(zam_lyd_child(strange.get())), "inside");
}

TEST_F(TreeLink, ALeafAnAnydataAndNullHaveNoChildren) {
    const Tree tree = parse_json(R"({"test-main:top":{"text":"x","tag":["t"],"any":{"test-main:single":"x"}}})");
    EXPECT_EQ(zam_lyd_child(child(tree.get(), "text")), nullptr);
    EXPECT_EQ(zam_lyd_child(child(tree.get(), "tag")), nullptr);
    EXPECT_EQ(zam_lyd_child(child(tree.get(), "any")), nullptr);
    EXPECT_EQ(zam_lyd_child(nullptr), nullptr);
}

TEST_F(TreeLink, AChildIsFoundByItsSchemaNode) {
    const Tree tree = parse_json(R"({"test-main:top":{"text":"x","item":[{"name":"a"},{"name":"b"}]}})");
    lyd_node *first = child(tree.get(), "item");
    EXPECT_EQ(zam_find_child_by_schema(tree.get(), schema_at("/test-main:top/item")), first);
    EXPECT_EQ(zam_find_child_by_schema(tree.get(), schema_at("/test-main:top/number")), nullptr);
}

TEST_F(TreeLink, AnOpaqueChildIsFoundByTheSchemaNodeOfItsName) {
    const Tree tree = lightweight("/test-main:top");
    lyd_node *own = new_opaque(tree.get(), "number", nullptr);
    lyd_node *foreign = new_opaque(tree.get(), "extra", nullptr, "test-extra");
    EXPECT_EQ(zam_find_child_by_schema(tree.get(), schema_at("/test-main:top/number")), own);
    EXPECT_EQ(zam_find_child_by_schema(tree.get(), schema_at("/test-main:top/test-extra:extra")), foreign);
}

TEST_F(TreeLink, AnOpaqueChildOfAnOperationIsFoundInItsOutputToo) {
    const Tree run{zam_lyd_new_inner(nullptr, module("test-main"), "run")};
    lyd_node *result = new_opaque(run.get(), "result", nullptr);
    EXPECT_EQ(zam_find_child_by_schema(run.get(), output_schema_at("/test-main:run/result")), result);
}

TEST_F(TreeLink, AChildOfAnOpaqueParentIsFoundByItsOwnSchemaNode) {
    const Tree strange{new_opaque(nullptr, "top", nullptr)};
    lyd_node *number = new_opaque(strange.get(), "number", nullptr);
    EXPECT_EQ(zam_find_child_by_schema(strange.get(), schema_at("/test-main:top/number")), number);
}

TEST_F(TreeLink, NoChildIsFoundForNull) {
    const Tree tree = parse_json(R"({"test-main:top":{"text":"x"}})");
    EXPECT_EQ(zam_find_child_by_schema(nullptr, schema_at("/test-main:top/text")), nullptr);
    EXPECT_EQ(zam_find_child_by_schema(tree.get(), nullptr), nullptr);
}

TEST_F(TreeLink, AnEntryOfKeysHasNothingElse) {
    const Tree keys = parse_json(R"({"test-main:top":{"four":[{"a":"1","b":"2","c":"3","d":"4"}]}})");
    EXPECT_EQ(zam_has_non_key_child(child(keys.get(), "four")), 0);
    const Tree empty = lightweight("/test-main:top/item");
    EXPECT_EQ(zam_has_non_key_child(empty.get()), 0);
}

TEST_F(TreeLink, AnEntryWithAnotherChildHasMore) {
    const Tree leaf = parse_json(R"({"test-main:top":{"item":[{"name":"a","value":1}]}})");
    EXPECT_EQ(zam_has_non_key_child(child(leaf.get(), "item")), 1);
    const Tree box = parse_json(R"({"test-main:top":{"item":[{"name":"a","box":{}}]}})");
    EXPECT_EQ(zam_has_non_key_child(child(box.get(), "item")), 1);
    const Tree strange = lightweight("/test-main:top/item");
    new_opaque(strange.get(), "name", nullptr);
    EXPECT_EQ(zam_has_non_key_child(strange.get()), 1) << "an opaque child is no key, whatever its name";
}

TEST_F(TreeLink, OnlyAListEntryIsAskedForOtherChildren) {
    const Tree top = parse_json(R"({"test-main:top":{"text":"x"}})");
    const Tree strange{new_opaque(nullptr, "item", nullptr)};
    new_opaque(strange.get(), "value", nullptr);
    EXPECT_EQ(zam_has_non_key_child(top.get()), 0);
    EXPECT_EQ(zam_has_non_key_child(strange.get()), 0);
    EXPECT_EQ(zam_has_non_key_child(nullptr), 0);
}

class ActionSearch : public TreeLink {
protected:
    static lyd_node *light(const char *path, lyd_node *parent) {
        return zam_lyd_node_lightweight_new(schema_at(path), parent, nullptr, 0);
    }
};

TEST_F(ActionSearch, AnActionIsFoundInTheDepth) {
    const Tree top = lightweight("/test-main:top");
    ASSERT_TRUE(zam_lyd_new_leaf(top.get(), nullptr, "text", "x"));
    ASSERT_TRUE(light("/test-main:top/sub", top.get()));
    lyd_node *item = light("/test-main:top/item", top.get());
    ASSERT_TRUE(zam_lyd_new_leaf(item, nullptr, "name", "a"));
    lyd_node *action = light("/test-main:top/item/reset", item);
    EXPECT_EQ(zam_find_action_node(top.get()), action);
    EXPECT_EQ(zam_find_action_node(action), action);
}

TEST_F(ActionSearch, TheFirstInOrderOfDepthWins) {
    const Tree top = lightweight("/test-main:top");
    lyd_node *first = light("/test-main:top/item", top.get());
    lyd_node *second = light("/test-main:top/item", top.get());
    lyd_node *late = light("/test-main:top/item/reset", second);
    EXPECT_EQ(zam_find_action_node(top.get()), late);
    lyd_node *early = light("/test-main:top/item/reset", first);
    EXPECT_EQ(zam_find_action_node(top.get()), early);
}

TEST_F(ActionSearch, AnAnydataIsNotLookedInto) {
    const Tree top = lightweight("/test-main:top");
    lyd_node *action = light("/test-main:top/item/reset", nullptr);
    ASSERT_TRUE(zam_lyd_new_any(top.get(), nullptr, "any", action, LYD_ANYDATA_DATATREE));
    EXPECT_EQ(zam_find_action_node(top.get()), nullptr);
}

TEST_F(ActionSearch, AnOpaqueFirstNodeHidesAnActionBehindIt) {
    const Tree list{new_opaque(nullptr, "strange", nullptr)};
    zam_tree_add_sibling(list.get(), light("/test-main:top/item/reset", nullptr));
    EXPECT_EQ(zam_find_action_node(list.get()), nullptr);
}

TEST_F(ActionSearch, AnOpaqueNodeEndsItsOwnListOnly) {
    const Tree top = lightweight("/test-main:top");
    lyd_node *first = light("/test-main:top/item", top.get());
    ASSERT_TRUE(new_opaque(first, "strange", nullptr));
    zam_tree_add_child(first, light("/test-main:top/item/reset", nullptr));
    lyd_node *second = light("/test-main:top/item", top.get());
    lyd_node *action = light("/test-main:top/item/reset", second);
    EXPECT_EQ(zam_find_action_node(top.get()), action);
}

TEST_F(ActionSearch, WithoutAnActionThereIsNone) {
    const Tree tree = parse_json(R"({"test-main:top":{"item":[{"name":"a"}]}})");
    EXPECT_EQ(zam_find_action_node(tree.get()), nullptr);
    EXPECT_EQ(zam_find_action_node(nullptr), nullptr);
}

} // namespace
} // namespace zam::test
