// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <libyang/plugins_types.h>

#include "yang/yang_tree_data_fixture.h"

namespace zam::test {
namespace {

class TreeValue : public SchemaTest {
protected:
    // A tree with one leaf of the container of types.
    static Tree with(const std::string &leaf, const std::string &json) {
        return parse_json(R"({"test-kinds:kinds":{")" + leaf + R"(":)" + json + "}}");
    }
    static uintptr_t number(const std::string &leaf, const std::string &json) {
        const Tree tree = with(leaf, json);
        return zam_lyd_get_value(zam_lyd_child(tree.get()));
    }
    static size_t bitmap_size(const lyd_node *leaf) {
        const auto *type = reinterpret_cast<const lysc_node_leaf *>(leaf->schema)->type;
        return lyplg_type_bits_bitmap_size(reinterpret_cast<const lysc_type_bits *>(type));
    }
};

const char *text_at(uintptr_t value) {
    return reinterpret_cast<const char *>(value);
}

TEST_F(TreeValue, ALeafsTextIsTheCanonicalOne) {
    const Tree tree = with("ratio", R"("1.500")");
    EXPECT_STREQ(zam_lyd_value_string(zam_lyd_child(tree.get())), "1.5");
}

TEST_F(TreeValue, ALeafListEntryHasItsText) {
    const Tree tree = with("levels", "[7,8]");
    EXPECT_STREQ(zam_lyd_value_string(zam_lyd_child(tree.get())->next), "8");
}

TEST_F(TreeValue, AnIdentitysCanonicalTextNamesItsModule) {
    const Tree tree = with("kind", R"("cone")");
    EXPECT_STREQ(zam_lyd_value_string(zam_lyd_child(tree.get())), "test-kinds:cone");
}

TEST_F(TreeValue, ABitsTextIsMadeWhenItIsAskedFor) {
    const Tree tree = with("bits1", R"("four one")");
    EXPECT_STREQ(zam_lyd_value_string(zam_lyd_child(tree.get())), "one four");
}

TEST_F(TreeValue, AnOpaqueNodeHasTheTextItWasGiven) {
    const Tree node{new_opaque(nullptr, "number", "007")};
    EXPECT_STREQ(zam_lyd_value_string(node.get()), "007");
}

TEST_F(TreeValue, NodesWithoutAValueHaveNoText) {
    const Tree tree = parse_json(R"({"test-main:top":{"item":[{"name":"a"}],"any":{}}})");
    EXPECT_EQ(zam_lyd_value_string(nullptr), nullptr);
    EXPECT_EQ(zam_lyd_value_string(tree.get()), nullptr);
    EXPECT_EQ(zam_lyd_value_string(child(tree.get(), "item")), nullptr);
    EXPECT_EQ(zam_lyd_value_string(child(tree.get(), "any")), nullptr);
    const Tree light = lightweight("/test-main:top");
    EXPECT_EQ(zam_lyd_value_string(light.get()), nullptr);
}

TEST_F(TreeValue, MetadataHasItsCanonicalText) {
    const Tree tree = lightweight("/test-main:top");
    ASSERT_EQ(zam_lyd_new_meta(tree.get(), nullptr, nullptr, "test-kinds:stamp", "007"), LY_SUCCESS);
    EXPECT_STREQ(zam_lyd_meta_value(tree->meta), "7");
    EXPECT_EQ(zam_lyd_meta_value(nullptr), nullptr);
}

TEST_F(TreeValue, SmallBitmapsAreNumbers) {
    EXPECT_EQ(number("bits1", R"("one two four last")"), 0x8Bu);
    EXPECT_EQ(number("bits2", R"("low high")"), 0x8001u);
    EXPECT_EQ(number("bits4", R"("low high")"), 0x80000001u);
}

TEST_F(TreeValue, NoBitIsTheNumberZero) {
    EXPECT_EQ(number("bits1", R"("")"), 0u);
    EXPECT_EQ(number("bits4", R"("")"), 0u);
}

TEST_F(TreeValue, OfEightBytesOfBitsTheFirstFourCount) {
    const Tree tree = with("bits8", R"("low top beyond")");
    ASSERT_EQ(bitmap_size(zam_lyd_child(tree.get())), 8u);
    EXPECT_EQ(zam_lyd_get_value(zam_lyd_child(tree.get())), 0x80000001u);
}

TEST_F(TreeValue, ALargerBitmapIsGivenByItsAddress) {
    const Tree tree = with("bits9", R"("low beyond")");
    const lyd_node *leaf = zam_lyd_child(tree.get());
    ASSERT_EQ(bitmap_size(leaf), 9u);
    const char *bitmap = text_at(zam_lyd_get_value(leaf));
    EXPECT_EQ(bitmap[0], 1);
    EXPECT_EQ(bitmap[7], 0);
    EXPECT_EQ(bitmap[8], 1);
}

TEST_F(TreeValue, AnEnumerationIsItsItemsValue) {
    EXPECT_EQ(number("level", R"("above")"), 40u);
    EXPECT_EQ(number("level", R"("even")"), 0xFFFFFFFCu) << "one more than the item before";
    EXPECT_EQ(static_cast<int32_t>(number("level", R"("below")")), -5);
}

TEST_F(TreeValue, ABooleanIsZeroOrOne) {
    const Tree on = parse_json(R"({"test-main:top":{"switch":true}})");
    const Tree off = parse_json(R"({"test-main:top":{"switch":false}})");
    EXPECT_EQ(zam_lyd_get_value(zam_lyd_child(on.get())), 1u);
    EXPECT_EQ(zam_lyd_get_value(zam_lyd_child(off.get())), 0u);
}

TEST_F(TreeValue, EverythingElseIsItsText) {
    const Tree tree =
        parse_json(R"({"test-kinds:kinds":{"number":7,"plain":"p","ratio":"2.5","kind":"test-main:round"}})");
    for (const lyd_node *leaf = zam_lyd_child(tree.get()); leaf; leaf = leaf->next) {
        EXPECT_EQ(text_at(zam_lyd_get_value(leaf)), zam_lyd_value_string(leaf)) << zam_lyd_get_schema_name(leaf);
    }
    EXPECT_STREQ(text_at(zam_lyd_get_value(child(tree.get(), "number"))), "7");
    EXPECT_STREQ(text_at(zam_lyd_get_value(child(tree.get(), "kind"))), "test-main:round");
}

TEST_F(TreeValue, AReferenceHasTheValueOfWhatItRefersTo) {
    EXPECT_EQ(number("level-ref", R"("above")"), 40u);
    const Tree tree = with("number-ref", "7");
    EXPECT_STREQ(text_at(zam_lyd_get_value(zam_lyd_child(tree.get()))), "7");
}

TEST_F(TreeValue, AUnionIsItsText) {
    const Tree tree = with("mixed", "true");
    EXPECT_STREQ(text_at(zam_lyd_get_value(zam_lyd_child(tree.get()))), "true");
}

TEST_F(TreeValue, AnOpaqueNodeIsItsText) {
    const Tree node{new_opaque(nullptr, "switch", "true")};
    EXPECT_EQ(text_at(zam_lyd_get_value(node.get())), zam_lyd_value_string(node.get()));
}

TEST_F(TreeValue, NodesWithoutAValueAreZero) {
    const Tree tree = parse_json(R"({"test-main:top":{"any":{}}})");
    EXPECT_EQ(zam_lyd_get_value(nullptr), 0u);
    EXPECT_EQ(zam_lyd_get_value(tree.get()), 0u);
    EXPECT_EQ(zam_lyd_get_value(zam_lyd_child(tree.get())), 0u);
}

TEST_F(TreeValue, AValueThatChangesHasItsNewText) {
    const Tree tree = with("bits1", R"("one")");
    lyd_node *leaf = zam_lyd_child(tree.get());
    EXPECT_STREQ(zam_lyd_value_string(leaf), "one");
    ASSERT_EQ(zam_lyd_change_leaf(leaf, "two"), LY_SUCCESS);
    EXPECT_STREQ(zam_lyd_value_string(leaf), "two");
    EXPECT_EQ(zam_lyd_get_value(leaf), 2u);
}

} // namespace
} // namespace zam::test
