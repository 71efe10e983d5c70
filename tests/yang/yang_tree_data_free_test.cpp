// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "yang/yang_tree_data_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;

// The hooks see lightweight nodes only; what libyang allocates is checked where the build has a leak checker.
class TreeRelease : public SchemaTest {
protected:
    static lyd_node *light(const char *path, lyd_node *parent) {
        return zam_lyd_node_lightweight_new(schema_at(path), parent, nullptr, 0);
    }
    static lyd_node *light_leaf(const char *path, lyd_node *parent, const char *value) {
        return zam_lyd_node_lightweight_new(schema_at(path), parent, value, 1);
    }
};

TEST_F(TreeRelease, NothingIsReleasedForNull) {
    zam_lyd_tree_destroy(nullptr);
    zam_lyd_tree_destroy_nosibling(nullptr);
}

TEST_F(TreeRelease, AnySiblingTakesAllAndLeavesTheParentWithoutChildren) {
    for (const int given : {0, 1, 2, 3, 4}) {
        const Heap heap;
        const Tree parent = lightweight("/test-main:top");
        std::vector<lyd_node *> siblings;
        for (int i = 0; i < 5; ++i)
            siblings.push_back(light("/test-main:top/item", parent.get()));
        ASSERT_EQ(heap.live(), 6u);
        zam_lyd_tree_destroy(siblings.at(static_cast<size_t>(given)));
        EXPECT_EQ(heap.live(), 1u) << "given " << given << ":\n" << heap.live_sites();
        EXPECT_EQ(inner(parent.get())->child, nullptr);
    }
}

TEST_F(TreeRelease, SiblingsWithoutAParentGoTogether) {
    for (const int given : {0, 1, 2}) {
        const Heap heap;
        std::vector<lyd_node *> siblings;
        for (int i = 0; i < 3; ++i) {
            siblings.push_back(light("/test-main:top/item", nullptr));
            if (i > 0) zam_tree_add_sibling(siblings.front(), siblings.back());
        }
        zam_lyd_tree_destroy(siblings.at(static_cast<size_t>(given)));
        EXPECT_EQ(heap.live(), 0u);
    }
}

TEST_F(TreeRelease, AMixedTreeGoesToTheAllocatorsItCameFrom) {
    const Heap heap;
    lyd_node *top = light("/test-main:top", nullptr);
    lyd_node *item = light("/test-main:top/item", top);
    ASSERT_TRUE(light_leaf("/test-main:top/item/name", item, "a"));
    ASSERT_TRUE(zam_lyd_new_inner(item, nullptr, "box"));
    lyd_node *strange = new_opaque(item, "strange", nullptr);
    lyd_node *below = light("/test-main:top/item/part", nullptr);
    zam_tree_add_child(strange, below);
    ASSERT_TRUE(light_leaf("/test-main:top/item/part/row", below, "1"));
    EXPECT_EQ(heap.live(), 3u);
    zam_lyd_tree_destroy(top);
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST_F(TreeRelease, LightweightNodesBelowLibyangsGoToTheHooks) {
    Tree tree = parse_json(R"({"test-main:top":{"sub":{"a":"x"}}})");
    const Heap heap;
    lyd_node *box = light("/test-main:top/sub/inner", child(tree.get(), "sub"));
    ASSERT_TRUE(light_leaf("/test-main:top/sub/inner/c", box, "x"));
    EXPECT_EQ(heap.live(), 1u);
    tree.reset();
    EXPECT_EQ(heap.live(), 0u);
}

TEST_F(TreeRelease, MetadataOfALightweightNodeGoesWithIt) {
    const Heap heap;
    Tree tree = lightweight("/test-main:top");
    ASSERT_EQ(zam_lyd_new_meta(tree.get(), nullptr, nullptr, "ietf-netconf:operation", "merge"), LY_SUCCESS);
    ASSERT_EQ(zam_lyd_new_meta(tree.get(), nullptr, nullptr, "test-kinds:stamp", "4"), LY_SUCCESS);
    tree.reset();
    EXPECT_EQ(heap.live(), 0u);
}

TEST_F(TreeRelease, ATreeInsideAnAnydataGoesWithIt) {
    const Heap heap;
    const Tree top = lightweight("/test-main:top");
    lyd_node *inside = light("/test-main:top/item", nullptr);
    zam_tree_add_sibling(inside, light("/test-main:top/item", nullptr));
    ASSERT_TRUE(light("/test-main:top/item/box", inside));
    ASSERT_TRUE(zam_lyd_new_any(top.get(), nullptr, "any", inside, LYD_ANYDATA_DATATREE));
    EXPECT_EQ(heap.live(), 4u);
    zam_lyd_tree_destroy(zam_lyd_child(top.get()));
    EXPECT_EQ(heap.live(), 1u) << heap.live_sites();
}

TEST_F(TreeRelease, AnAnydataAloneTakesItsTreeAlong) {
    const Heap heap;
    const Tree top = lightweight("/test-main:top");
    lyd_node *any =
        zam_lyd_new_any(top.get(), nullptr, "any", light("/test-main:top/item", nullptr), LYD_ANYDATA_DATATREE);
    ASSERT_TRUE(any);
    zam_lyd_tree_destroy_nosibling(any);
    EXPECT_EQ(heap.live(), 1u);
    EXPECT_EQ(zam_lyd_child(top.get()), nullptr);
}

TEST_F(TreeRelease, AnydataInsideAnydataGoesToo) {
    const Heap heap;
    Tree outer = lightweight("/test-main:top");
    lyd_node *middle = light("/test-main:top", nullptr);
    ASSERT_TRUE(zam_lyd_new_any(middle, nullptr, "any", light("/test-main:top/item", nullptr), LYD_ANYDATA_DATATREE));
    ASSERT_TRUE(zam_lyd_new_any(outer.get(), nullptr, "any", middle, LYD_ANYDATA_DATATREE));
    EXPECT_EQ(heap.live(), 3u);
    outer.reset();
    EXPECT_EQ(heap.live(), 0u);
}

TEST_F(TreeRelease, ATreeInsideAnAnyxmlGoesWithIt) {
    const Heap heap;
    Tree top = lightweight("/test-main:top");
    ASSERT_TRUE(
        zam_lyd_new_any(top.get(), nullptr, "xml", light("/test-main:top/item", nullptr), LYD_ANYDATA_DATATREE));
    top.reset();
    EXPECT_EQ(heap.live(), 0u);
}

TEST_F(TreeRelease, ATextInsideAnAnyxmlIsLibyangs) {
    Tree top = lightweight("/test-main:top");
    ASSERT_TRUE(zam_lyd_new_any(top.get(), nullptr, "xml", "words", LYD_ANYDATA_STRING));
    top.reset();
}

TEST_F(TreeRelease, AnEmptyAnydataIsReleased) {
    Tree top = lightweight("/test-main:top");
    ASSERT_TRUE(zam_lyd_new_any(top.get(), nullptr, "any", nullptr, LYD_ANYDATA_DATATREE));
    top.reset();
}

TEST_F(TreeRelease, ParsedAndOpaqueTreesAreReleased) {
    lyd_node *tree = nullptr;
    ASSERT_EQ(lyd_parse_data_mem(test_context(), R"({"test-main:top":{"text":"x","what":{"is":["t","h"]}},"no:t":1})",
                                 LYD_JSON, LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0, &tree),
              LY_SUCCESS);
    zam_lyd_tree_destroy(tree);
}

TEST_F(TreeRelease, AnAttributeOfAnOpaqueNodeGoesWithIt) {
    Tree strange{new_opaque(nullptr, "strange", "1")};
    ASSERT_EQ(zam_lyd_new_meta(strange.get(), "ietf-netconf", "operation", nullptr, "delete"), LY_SUCCESS);
    strange.reset();
}

TEST_F(TreeRelease, AMissingBackLinkEndsTheWalkBeforeTheGivenNode) {
    const Heap heap;
    lyd_node *node = light("/test-main:top", nullptr);
    node->prev = nullptr;
    zam_lyd_tree_destroy(node);
    EXPECT_EQ(heap.live(), 1u);
    node->prev = node;
    zam_lyd_tree_destroy(node);
    EXPECT_EQ(heap.live(), 0u);
}

TEST_F(TreeRelease, ATableOfChildrenOfALightweightNodeIsNotLeaked) {
    const Heap heap;
    Tree entry = lightweight("/test-main:top/four");
    for (const char *key : {"a", "b", "c", "d"})
        ASSERT_TRUE(zam_lyd_new_leaf(entry.get(), nullptr, key, "1"));
    ASSERT_TRUE(inner(entry.get())->children_ht) << "libyang makes one with the fourth child";
    entry.reset();
    EXPECT_EQ(heap.live(), 0u);
}

TEST_F(TreeRelease, AParentThatLivesOnLosesTheTableOfItsChildren) {
    const Tree parent = parse_json(R"({"test-main:top":{"text":"x","number":1,"big":"2","switch":true,"either":"y"}})");
    ASSERT_TRUE(inner(parent.get())->children_ht);
    zam_lyd_tree_destroy(child(parent.get(), "big"));
    EXPECT_EQ(inner(parent.get())->children_ht, nullptr);
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{}})");
}

TEST_F(TreeRelease, AParentThatLivesOnTakesNewChildrenAndFindsThem) {
    const Tree parent = parse_json(R"({"test-main:top":{"text":"x","number":1,"big":"2","switch":true,"either":"y"}})");
    zam_lyd_tree_destroy(zam_lyd_child(parent.get()));
    for (const char *tag : {"a", "b", "c", "d", "e"})
        ASSERT_TRUE(zam_lyd_new_leaf(parent.get(), nullptr, "tag", tag));
    lyd_node *found = nullptr;
    EXPECT_EQ(lyd_find_sibling_val(zam_lyd_child(parent.get()), schema_at("/test-main:top/tag"), "d", 1, &found),
              LY_SUCCESS);
    EXPECT_EQ(lyd_find_sibling_val(zam_lyd_child(parent.get()), schema_at("/test-main:top/text"), nullptr, 0, &found),
              LY_ENOTFOUND);
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"tag":["a","b","c","d","e"]}})");
}

TEST_F(TreeRelease, ALightweightParentThatLivesOnLosesTheTableToo) {
    const Heap heap;
    const Tree entry = lightweight("/test-main:top/four");
    for (const char *key : {"a", "b", "c", "d"})
        ASSERT_TRUE(zam_lyd_new_leaf(entry.get(), nullptr, key, "1"));
    zam_lyd_tree_destroy(zam_lyd_child(entry.get()));
    EXPECT_EQ(inner(entry.get())->children_ht, nullptr);
    ASSERT_TRUE(zam_lyd_new_leaf(entry.get(), nullptr, "a", "2"));
    EXPECT_EQ(to_json(entry), R"({"test-main:four":[{"a":"2"}]})");
    EXPECT_EQ(heap.live(), 1u);
}

TEST_F(TreeRelease, AnOpaqueParentThatLivesOnLosesItsChildren) {
    const Tree parent{new_opaque(nullptr, "strange", nullptr)};
    ASSERT_TRUE(new_opaque(parent.get(), "a", "1"));
    ASSERT_TRUE(new_opaque(parent.get(), "b", "2"));
    zam_lyd_tree_destroy(zam_lyd_child(parent.get())->next);
    EXPECT_EQ(zam_lyd_child(parent.get()), nullptr);
}

TEST_F(TreeRelease, OneNodeOfLibyangTakesItsSubtreeAndLeavesItsSiblings) {
    const Tree tree = parse_json(R"({"test-main:top":{"text":"x","sub":{"a":"y","inner":{"c":"z"}},"tag":["t"]}})");
    zam_lyd_tree_destroy_nosibling(child(tree.get(), "sub"));
    EXPECT_THAT(children(tree.get()), ElementsAre("text", "tag"));
    EXPECT_EQ(to_json(tree), R"({"test-main:top":{"text":"x","tag":["t"]}})");
}

TEST_F(TreeRelease, OneOpaqueNodeTakesItsSubtreeAndLeavesItsSiblings) {
    const Tree parent{new_opaque(nullptr, "strange", nullptr)};
    lyd_node *first = new_opaque(parent.get(), "a", nullptr);
    ASSERT_TRUE(new_opaque(first, "deep", "1"));
    ASSERT_TRUE(new_opaque(parent.get(), "b", "2"));
    zam_lyd_tree_destroy_nosibling(first);
    EXPECT_THAT(children(parent.get()), ElementsAre("b"));
}

TEST_F(TreeRelease, OneLightweightNodeLeavesItsChildrenAlive) {
    const Heap heap;
    lyd_node *item = light("/test-main:top/item", nullptr);
    ASSERT_TRUE(light("/test-main:top/item/box", item));
    ASSERT_TRUE(light("/test-main:top/item/part", item));
    lyd_node *left = zam_lyd_child(item);
    zam_lyd_tree_destroy_nosibling(item);
    EXPECT_EQ(heap.live(), 2u);
    EXPECT_THAT(names(left), ElementsAre("box", "part"));
    zam_lyd_tree_destroy(left);
    EXPECT_EQ(heap.live(), 0u);
}

TEST_F(TreeRelease, OneLightweightNodeLeavesItsListWherever) {
    const std::vector<std::string> paths{"/test-main:top/sub", "/test-main:top/item", "/test-main:top/four"};
    for (const char *gone : {"sub", "item", "four"}) {
        const Heap heap;
        const Tree parent = lightweight("/test-main:top");
        for (const std::string &path : paths)
            ASSERT_TRUE(light(path.c_str(), parent.get()));
        zam_lyd_tree_destroy_nosibling(child(parent.get(), gone));
        EXPECT_EQ(heap.live(), 3u);
        EXPECT_EQ(children(parent.get()).size(), 2u) << gone;
    }
}

TEST_F(TreeRelease, OneLightweightNodeLeavesAParentWithATable) {
    const Tree parent = parse_json(R"({"test-main:top":{"text":"x","number":1,"big":"2","switch":true,"either":"y"}})");
    const Heap heap;
    const LogCapture log;
    zam_lyd_tree_destroy_nosibling(light("/test-main:top/item", parent.get()));
    EXPECT_EQ(heap.live(), 0u);
    EXPECT_EQ(log.all(), "") << "libyang is not asked to take it out of its table";
    EXPECT_EQ(children(parent.get()).size(), 5u);
    EXPECT_TRUE(zam_lyd_new_leaf(parent.get(), nullptr, "tag", "t"));
}

TEST_F(TreeRelease, OneLightweightNodeThatGotItsKeyLeavesNoEntryInItsParentsTable) {
    const Tree parent = parse_json(R"({"test-main:top":{"text":"x","number":1,"big":"2","switch":true,"either":"y"}})");
    lyd_node *item = light("/test-main:top/item", parent.get());
    ASSERT_TRUE(light_leaf("/test-main:top/item/name", item, "a")) << "libyang may enter the item in the table now";
    const Tree key{zam_lyd_child(item)};
    zam_lyd_tree_destroy_nosibling(item);
    EXPECT_EQ(inner(parent.get())->children_ht, nullptr);
    EXPECT_EQ(children(parent.get()).size(), 5u);
    lyd_node *again = zam_lyd_new_list(parent.get(), nullptr, "item", "[name='a']");
    ASSERT_TRUE(again);
    lyd_node *found = nullptr;
    EXPECT_EQ(lyd_find_sibling_val(zam_lyd_child(parent.get()), again->schema, "[name='a']", 0, &found), LY_SUCCESS);
    EXPECT_EQ(found, again);
}

TEST_F(TreeRelease, OneLightweightNodeGivesItsTableBack) {
    const Heap heap;
    lyd_node *entry = light("/test-main:top/four", nullptr);
    for (const char *key : {"a", "b", "c", "d"})
        ASSERT_TRUE(zam_lyd_new_leaf(entry, nullptr, key, "1"));
    const Tree keys{zam_lyd_child(entry)};
    zam_lyd_tree_destroy_nosibling(entry);
    EXPECT_EQ(heap.live(), 0u);
    EXPECT_THAT(names(keys.get()), ElementsAre("a", "b", "c", "d"));
}

TEST_F(TreeRelease, ReleaseNeedsNoMemory) {
    Heap heap;
    Tree tree = lightweight("/test-main:top");
    for (int i = 0; i < 3; ++i) {
        lyd_node *entry = light("/test-main:top/four", tree.get());
        for (const char *key : {"a", "b", "c", "d"})
            ASSERT_TRUE(zam_lyd_new_leaf(entry, nullptr, key, "1"));
    }
    heap.fail_at(1, true);
    tree.reset();
    EXPECT_FALSE(heap.failed());
    EXPECT_EQ(heap.live(), 0u);
}

TEST_F(TreeRelease, ADeepTreeIsReleased) {
    constexpr int depth = 5000;
    const Heap heap;
    lyd_node *top = light("/test-main:top", nullptr);
    lyd_node *deepest = top;
    for (int i = 0; i < depth; ++i)
        deepest = light("/test-main:top", deepest);
    EXPECT_EQ(heap.live(), size_t{depth} + 1);
    zam_lyd_tree_destroy(top);
    EXPECT_EQ(heap.live(), 0u);
}

} // namespace
} // namespace zam::test
