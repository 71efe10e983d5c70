// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <cstring>

#include "yang/yang_tree_data_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;

class LightweightNode : public SchemaTest {
protected:
    // The node for a value, as a text of its whole length.
    static lyd_node *leaf(const lysc_node *schema, lyd_node *parent, const char *value) {
        return zam_lyd_node_lightweight_new(schema, parent, value, static_cast<uint32_t>(std::strlen(value)));
    }
};

// An opaque node's name, value and module.
std::vector<std::string> texts(const lyd_node *node) {
    if (!node || node->schema) return {"not opaque"};
    const auto *strange = reinterpret_cast<const lyd_node_opaq *>(node);
    return {strange->name.name, strange->value, strange->name.module_name};
}

TEST_F(LightweightNode, AContainerHasItsSchemaItselfAndTheMarkAndNothingElse) {
    const Heap heap;
    const Tree tree = lightweight("/test-main:top/sub");
    ASSERT_TRUE(tree);
    EXPECT_EQ(heap.live(), 1u);
    lyd_node_inner expected{};
    expected.node.schema = schema_at("/test-main:top/sub");
    expected.node.prev = tree.get();
    expected.node.priv = reinterpret_cast<void *>(uintptr_t{1});
    EXPECT_EQ(std::memcmp(tree.get(), &expected, sizeof expected), 0);
}

TEST_F(LightweightNode, AListEntryHasNoKeys) {
    const Tree tree = lightweight("/test-main:top/item");
    ASSERT_TRUE(tree);
    EXPECT_TRUE(is_lightweight(tree.get()));
    EXPECT_EQ(zam_lyd_child(tree.get()), nullptr);
    EXPECT_EQ(to_json(tree), R"({"test-main:item":[{}]})");
}

TEST_F(LightweightNode, ANodeIsTheLastChildOfItsParent) {
    const Tree parent = parse_json(R"({"test-main:top":{"text":"x"}})");
    lyd_node *node = zam_lyd_node_lightweight_new(schema_at("/test-main:top/sub"), parent.get(), nullptr, 0);
    ASSERT_TRUE(node);
    EXPECT_THAT(children(parent.get()), ElementsAre("text", "sub"));
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"text":"x","sub":{}}})");
}

TEST_F(LightweightNode, AParentsHashTableDoesNotLearnOfTheNode) {
    const Tree parent = parse_json(R"({"test-main:top":{"text":"x","number":1,"big":"2","switch":true,"either":"y"}})");
    const auto *table = inner(parent.get())->children_ht;
    ASSERT_TRUE(table);
    lyd_node *node = zam_lyd_node_lightweight_new(schema_at("/test-main:top/sub"), parent.get(), nullptr, 0);
    EXPECT_EQ(inner(parent.get())->children_ht, table);
    lyd_node *found = nullptr;
    EXPECT_EQ(lyd_find_sibling_val(zam_lyd_child(parent.get()), node->schema, nullptr, 0, &found), LY_ENOTFOUND);
}

TEST_F(LightweightNode, NodesNestAndMixWithLibyangs) {
    const Heap heap;
    const Tree top = lightweight("/test-main:top");
    lyd_node *item = zam_lyd_node_lightweight_new(schema_at("/test-main:top/item"), top.get(), nullptr, 0);
    ASSERT_TRUE(leaf(schema_at("/test-main:top/item/name"), item, "a"));
    lyd_node *box = zam_lyd_node_lightweight_new(schema_at("/test-main:top/item/box"), item, nullptr, 0);
    ASSERT_TRUE(leaf(schema_at("/test-main:top/item/box/size"), box, "3"));
    EXPECT_EQ(to_json(top), R"({"test-main:top":{"item":[{"name":"a","box":{"size":3}}]}})");
    EXPECT_EQ(to_xml(top), "<top xmlns=\"urn:test:main\"><item><name>a</name><box><size>3</size></box></item></top>");
    EXPECT_EQ(heap.live(), 3u);
}

TEST_F(LightweightNode, MetadataHangsOnALightweightNode) {
    const Tree tree = lightweight("/test-main:top");
    EXPECT_EQ(zam_lyd_new_meta(tree.get(), nullptr, nullptr, "ietf-netconf:operation", "delete"), LY_SUCCESS);
    EXPECT_EQ(to_json(tree), R"({"test-main:top":{"@":{"ietf-netconf:operation":"delete"}}})");
}

TEST_F(LightweightNode, NothingIsMadeWithoutASchemaNode) {
    const LogCapture log;
    EXPECT_EQ(zam_lyd_node_lightweight_new(nullptr, nullptr, "x", 1), nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST_F(LightweightNode, NothingIsMadeBelowALeafOrAnAnydata) {
    const Tree tree = parse_json(R"({"test-main:top":{"text":"x","any":{"test-main:single":"y"}}})");
    const std::string before = to_json(tree);
    for (const char *name : {"text", "any"}) {
        lyd_node *edge = child(tree.get(), name);
        EXPECT_EQ(zam_lyd_node_lightweight_new(schema_at("/test-main:top/sub"), edge, nullptr, 0), nullptr);
        EXPECT_EQ(zam_lyd_node_lightweight_new(schema_at("/test-main:top/number"), edge, nullptr, 0), nullptr);
        EXPECT_EQ(leaf(schema_at("/test-main:top/number"), edge, "5"), nullptr);
        EXPECT_EQ(leaf(schema_at("/test-main:top/kind"), edge, "round"), nullptr);
    }
    EXPECT_EQ(to_json(tree), before);
}

TEST_F(LightweightNode, AnOperationAndANotificationAreLightweightToo) {
    const Tree run = lightweight("/test-main:run");
    const Tree alarm = lightweight("/test-main:alarm");
    EXPECT_EQ(to_json(run), R"({"test-main:run":{}})");
    EXPECT_EQ(to_json(alarm), R"({"test-main:alarm":{}})");
}

TEST_F(LightweightNode, ALeafIsLibyangs) {
    const Tree parent = lightweight("/test-main:top");
    lyd_node *node = leaf(schema_at("/test-main:top/number"), parent.get(), "007");
    ASSERT_TRUE(node);
    EXPECT_FALSE(is_lightweight(node));
    EXPECT_EQ(node->schema, schema_at("/test-main:top/number"));
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"number":7}})");
}

TEST_F(LightweightNode, AnEmptyStringMakesAnOpaqueLeaf) {
    const Tree parent = lightweight("/test-main:top");
    const lyd_node *node = zam_lyd_node_lightweight_new(schema_at("/test-main:top/text"), parent.get(), "", 0);
    EXPECT_THAT(texts(node), ElementsAre("text", "", "test-main"));
    EXPECT_EQ(parent_of(node), parent.get());
}

TEST_F(LightweightNode, ANullValueMakesAnOpaqueLeaf) {
    const Tree node{zam_lyd_node_lightweight_new(schema_at("/test-main:top/number"), nullptr, nullptr, 5)};
    EXPECT_THAT(texts(node.get()), ElementsAre("number", "", "test-main"));
    EXPECT_EQ(node->parent, nullptr);
}

TEST_F(LightweightNode, ALengthOfZeroMakesAnOpaqueLeafOfTheValueUnchanged) {
    const Tree node{zam_lyd_node_lightweight_new(schema_at("/test-main:top/number"), nullptr, "5", 0)};
    EXPECT_THAT(texts(node.get()), ElementsAre("number", "5", "test-main"));
}

TEST_F(LightweightNode, ALeafListEntryWithoutAValueIsOpaqueToo) {
    const Tree node{zam_lyd_node_lightweight_new(schema_at("/test-main:top/tag"), nullptr, "", 0)};
    EXPECT_THAT(texts(node.get()), ElementsAre("tag", "", "test-main"));
}

TEST_F(LightweightNode, TheModuleOfAnOpaqueLeafIsThatOfItsSchema) {
    const Tree parent = lightweight("/test-main:top");
    const lyd_node *node =
        zam_lyd_node_lightweight_new(schema_at("/test-main:top/test-extra:extra"), parent.get(), nullptr, 0);
    EXPECT_THAT(texts(node), ElementsAre("extra", "", "test-extra"));
}

TEST_F(LightweightNode, AnEmptyTypeTakesNoValue) {
    const Tree parent = lightweight("/test-main:top");
    const lyd_node *node = leaf(schema_at("/test-main:top/flag"), parent.get(), "ignored");
    ASSERT_TRUE(node && node->schema);
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"flag":[null]}})");
}

TEST_F(LightweightNode, AnEmptyTypeNeedsNoValue) {
    const Tree node{zam_lyd_node_lightweight_new(schema_at("/test-main:top/flag"), nullptr, nullptr, 0)};
    ASSERT_TRUE(node && node->schema);
    EXPECT_EQ(node->parent, nullptr);
    EXPECT_EQ(to_json(node), R"({"test-main:flag":[null]})");
}

TEST_F(LightweightNode, AnIdentityOfTheLeafsModuleLosesItsPrefix) {
    const Tree node{leaf(schema_at("/test-main:top/kind"), nullptr, "test-main:round")};
    EXPECT_THAT(texts(node.get()), ElementsAre("kind", "round", "test-main"));
}

TEST_F(LightweightNode, AnIdentityOfAnotherModuleStaysWhole) {
    const Tree node{leaf(schema_at("/test-main:top/kind"), nullptr, "test-extra:oval")};
    EXPECT_THAT(texts(node.get()), ElementsAre("kind", "test-extra:oval", "test-main"));
}

TEST_F(LightweightNode, AnIdentityWithoutAPrefixStaysWhole) {
    const Tree node{leaf(schema_at("/test-main:top/kind"), nullptr, "round")};
    EXPECT_THAT(texts(node.get()), ElementsAre("kind", "round", "test-main"));
}

TEST_F(LightweightNode, AnIdentityIsNeverValidated) {
    const LogCapture log;
    const Tree node{leaf(schema_at("/test-main:top/kind"), nullptr, "test-main:no:such")};
    EXPECT_THAT(texts(node.get()), ElementsAre("kind", "no:such", "test-main"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(LightweightNode, TheModulesNameCountsWhereverItStandsInAnIdentity) {
    const Tree inside{leaf(schema_at("/test-main:top/kind"), nullptr, "x:test-main:round")};
    EXPECT_THAT(texts(inside.get()), ElementsAre("kind", "test-main:round", "test-main"));
    const Tree tail{leaf(schema_at("/test-main:top/kind"), nullptr, "my-test-main:round")};
    EXPECT_THAT(texts(tail.get()), ElementsAre("kind", "round", "test-main"));
    const Tree bare{leaf(schema_at("/test-main:top/kind"), nullptr, "test-main-round")};
    EXPECT_THAT(texts(bare.get()), ElementsAre("kind", "test-main-round", "test-main"));
}

TEST_F(LightweightNode, AReferenceToAnIdentityIsTreatedAsOne) {
    const Tree node{leaf(schema_at("/test-kinds:kinds/kind-ref"), nullptr, "test-kinds:cone")};
    EXPECT_THAT(texts(node.get()), ElementsAre("kind-ref", "cone", "test-kinds"));
}

TEST_F(LightweightNode, AnIdentityKeyOfALightweightEntryIsOpaqueBelowIt) {
    const Tree entry = lightweight("/test-main:top/by-kind");
    const lyd_node *key = leaf(schema_at("/test-main:top/by-kind/kind"), entry.get(), "test-main:square");
    EXPECT_THAT(texts(key), ElementsAre("kind", "square", "test-main"));
    EXPECT_EQ(parent_of(key), entry.get());
}

TEST_F(LightweightNode, ANestedLeafWithoutAParentHasNoneAfterwards) {
    const Heap heap;
    const LogCapture log;
    const Tree node{leaf(schema_at("/test-main:top/sub/b"), nullptr, "9")};
    ASSERT_TRUE(node);
    EXPECT_EQ(node->parent, nullptr);
    EXPECT_EQ(node->prev, node.get());
    EXPECT_EQ(node->next, nullptr);
    EXPECT_EQ(to_json(node), R"({"test-main:b":9})");
    EXPECT_EQ(heap.live(), 0u) << "the parent that served is gone";
    EXPECT_EQ(log.all(), "");
}

TEST_F(LightweightNode, AListsKeyNeedsNoEntryEither) {
    const Tree node{leaf(schema_at("/test-main:top/item/part/row"), nullptr, "3")};
    ASSERT_TRUE(node);
    EXPECT_EQ(node->parent, nullptr);
    EXPECT_STREQ(zam_lyd_value_string(node.get()), "3");
}

TEST_F(LightweightNode, ALeafInNestedChoicesFindsItsDataParent) {
    const Tree node{leaf(schema_at("/test-kinds:kinds/buried"), nullptr, "found")};
    ASSERT_TRUE(node);
    EXPECT_EQ(node->parent, nullptr);
    EXPECT_STREQ(zam_lyd_value_string(node.get()), "found");
}

TEST_F(LightweightNode, ATopLeafNeedsNoParent) {
    const Tree node{leaf(schema_at("/test-main:single"), nullptr, "x")};
    EXPECT_EQ(to_json(node), R"({"test-main:single":"x"})");
}

TEST_F(LightweightNode, ALeafOfAnOperationIsMadeWithoutTheOperation) {
    const Tree input{leaf(schema_at("/test-kinds:compute/p"), nullptr, "1")};
    const Tree output{leaf(output_schema_at("/test-kinds:compute/result"), nullptr, "2")};
    const Tree choice{leaf(output_schema_at("/test-kinds:compute/answer"), nullptr, "x")};
    ASSERT_TRUE(input && output && choice);
    EXPECT_EQ(input->parent, nullptr);
    EXPECT_EQ(output->parent, nullptr);
    EXPECT_EQ(output->schema, output_schema_at("/test-kinds:compute/result"));
    EXPECT_STREQ(zam_lyd_value_string(output.get()), "2");
    EXPECT_STREQ(zam_lyd_value_string(choice.get()), "x");
}

TEST_F(LightweightNode, ALeafOfAnActionsOutputIsFoundAfterTheInputWasTried) {
    const Tree action = lightweight("/test-main:top/item/reset");
    const LogCapture log;
    const lyd_node *node = leaf(output_schema_at("/test-main:top/item/reset/done"), action.get(), "true");
    ASSERT_TRUE(node);
    EXPECT_EQ(node->schema, output_schema_at("/test-main:top/item/reset/done"));
    EXPECT_EQ(log.count(3, "[libyang]New input leaf(done) unsuccessful, value : true"), 1);
    EXPECT_FALSE(log.mentions("New output leaf"));
}

TEST_F(LightweightNode, AValueThatNeitherInputNorOutputTakesIsRefused) {
    const Heap heap;
    for (const bool with_parent : {true, false}) {
        const Tree parent = with_parent ? lightweight("/test-main:top") : Tree{};
        const LogCapture log;
        EXPECT_EQ(leaf(schema_at("/test-main:top/number"), parent.get(), "many"), nullptr);
        EXPECT_EQ(log.count(3, "[libyang]New input leaf(number) unsuccessful, value : many"), 1);
        EXPECT_EQ(log.count(3, "[libyang]New output leaf(number) unsuccessful, value : many."), 1);
    }
    EXPECT_EQ(heap.live(), 0u);
}

TEST_F(LightweightNode, AListEntryIsFoundByName) {
    const Tree parent = lightweight("/test-main:top");
    lyd_node *entry = zam_lyd_node_lightweight_new_list(parent.get(), "ordered");
    ASSERT_TRUE(entry);
    EXPECT_TRUE(is_lightweight(entry));
    EXPECT_EQ(entry->schema, schema_at("/test-main:top/ordered"));
    EXPECT_THAT(children(parent.get()), ElementsAre("ordered"));
}

TEST_F(LightweightNode, AListEntryByNameIsMadeBelowLibyangsNodesToo) {
    const Tree parent = parse_json(R"({"test-main:top":{"item":[{"name":"a"}]}})");
    lyd_node *entry = zam_lyd_node_lightweight_new_list(parent.get(), "item");
    ASSERT_TRUE(entry);
    EXPECT_THAT(children(parent.get()), ElementsAre("item", "item"));
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"item":[{"name":"a"},{}]}})");
}

TEST_F(LightweightNode, OnlyAListOfExactlyThatNameIsAnEntry) {
    const Tree parent = lightweight("/test-main:top");
    EXPECT_EQ(zam_lyd_node_lightweight_new_list(parent.get(), "sub"), nullptr) << "a container";
    EXPECT_EQ(zam_lyd_node_lightweight_new_list(parent.get(), "tag"), nullptr) << "a leaf-list";
    EXPECT_EQ(zam_lyd_node_lightweight_new_list(parent.get(), "ite"), nullptr);
    EXPECT_EQ(zam_lyd_node_lightweight_new_list(parent.get(), "Item"), nullptr);
    EXPECT_EQ(zam_lyd_node_lightweight_new_list(parent.get(), ""), nullptr);
    EXPECT_EQ(zam_lyd_child(parent.get()), nullptr);
}

TEST_F(LightweightNode, NoListIsFoundWithoutAParentItsSchemaOrAName) {
    const Tree parent = lightweight("/test-main:top");
    const Tree strange{new_opaque(nullptr, "top", nullptr)};
    const Tree text{leaf(schema_at("/test-main:single"), nullptr, "x")};
    EXPECT_EQ(zam_lyd_node_lightweight_new_list(nullptr, "item"), nullptr);
    EXPECT_EQ(zam_lyd_node_lightweight_new_list(strange.get(), "item"), nullptr);
    EXPECT_EQ(zam_lyd_node_lightweight_new_list(text.get(), "item"), nullptr);
    EXPECT_EQ(zam_lyd_node_lightweight_new_list(parent.get(), nullptr), nullptr);
}

TEST_F(LightweightNode, WithoutMemoryNoNodeIsMadeAndNothingLinked) {
    const Tree parent = parse_json(R"({"test-main:top":{"text":"x"}})");
    const lysc_node *schema = schema_at("/test-main:top/item");
    const uint64_t failed = fail_each_allocation([&](bool expect_failure) {
        lyd_node *entry = zam_lyd_node_lightweight_new(schema, parent.get(), nullptr, 0);
        lyd_node *named = zam_lyd_node_lightweight_new_list(parent.get(), "item");
        if (!expect_failure) {
            EXPECT_TRUE(entry && named);
        }
        EXPECT_EQ(children(parent.get()).size(), size_t{1} + (entry != nullptr) + (named != nullptr));
        zam_lyd_tree_destroy_nosibling(entry);
        zam_lyd_tree_destroy_nosibling(named);
    });
    EXPECT_EQ(failed, 2u);
    EXPECT_THAT(children(parent.get()), ElementsAre("text"));
}

TEST_F(LightweightNode, WithoutMemoryNoDetachedLeafIsMade) {
    const lysc_node *schema = schema_at("/test-main:top/sub/b");
    uint64_t refused = 0;
    const uint64_t failed = fail_each_allocation([&](bool) {
        const Tree node{leaf(schema, nullptr, "9")};
        if (!node) ++refused;
    });
    EXPECT_EQ(refused, failed);
    EXPECT_EQ(failed, 1u);
}

} // namespace
} // namespace zam::test
