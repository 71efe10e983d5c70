// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <climits>
#include <string>

#include "yang/yang_tree_data_fixture.h"

namespace zam::test {
namespace {

class SchemaNode : public SchemaTest {
protected:
    static const lysc_node *kind(const char *leaf) {
        return schema_at(("/test-kinds:kinds/" + std::string{leaf}).c_str());
    }
};

TEST_F(SchemaNode, NullIsAnsweredWithNothing) {
    int value = 0;
    EXPECT_EQ(zam_lys_parent(nullptr), nullptr);
    EXPECT_EQ(zam_lys_node_module(nullptr), nullptr);
    EXPECT_EQ(zam_lys_set_private(nullptr, &value), nullptr);
    EXPECT_EQ(zam_lys_type_base(nullptr), LY_TYPE_UNKNOWN);
    EXPECT_EQ(zam_lys_realtype(nullptr), LY_TYPE_UNKNOWN);
    EXPECT_EQ(zam_lys_nodetype(nullptr), 0);
    EXPECT_EQ(zam_lys_child(nullptr), nullptr);
    EXPECT_EQ(zam_lys_list_key_num(nullptr), 0u);
    EXPECT_EQ(zam_lys_get_default_value(nullptr), nullptr);
    EXPECT_EQ(zam_lys_parent_without_choice(nullptr), nullptr);
    EXPECT_EQ(zam_find_enum_name(nullptr, 0), nullptr);
    EXPECT_EQ(zam_build_bits_buf(nullptr, 1), nullptr);
    EXPECT_EQ(zam_is_edge_node(nullptr), 0);
}

TEST_F(SchemaNode, TheParentIsTheNodeAboveOrNone) {
    EXPECT_EQ(zam_lys_parent(kind("number")), schema_at("/test-kinds:kinds"));
    EXPECT_EQ(zam_lys_parent(schema_at("/test-kinds:kinds")), nullptr);
    EXPECT_EQ(zam_lys_nodetype(zam_lys_parent(kind("buried"))), LYS_CASE);
}

TEST_F(SchemaNode, TheModuleIsTheOneThatDefinesTheNode) {
    EXPECT_STREQ(zam_lys_node_module(schema_at("/test-main:top"))->name, "test-main");
    EXPECT_STREQ(zam_lys_node_module(schema_at("/test-main:top/test-extra:extra"))->name, "test-extra");
}

TEST_F(SchemaNode, ThePrivatePointerIsKeptAndThePreviousReturned) {
    int first = 0;
    int second = 0;
    const lysc_node *node = kind("number");
    void *before = zam_lys_set_private(node, &first);
    EXPECT_EQ(node->priv, &first);
    EXPECT_EQ(zam_lys_set_private(node, &second), &first);
    EXPECT_EQ(zam_lys_set_private(node, before), &second);
    EXPECT_EQ(node->priv, before);
}

TEST_F(SchemaNode, TheBaseTypeIsLibyangsNumber) {
    EXPECT_EQ(zam_lys_type_base(kind("bits1")), 7);
    EXPECT_EQ(zam_lys_type_base(schema_at("/test-main:top/switch")), 8);
    EXPECT_EQ(zam_lys_type_base(schema_at("/test-main:top/flag")), 10);
    EXPECT_EQ(zam_lys_type_base(kind("level")), 11);
    EXPECT_EQ(zam_lys_type_base(kind("kind")), 12);
    EXPECT_EQ(zam_lys_type_base(kind("number-ref")), 14);
    EXPECT_EQ(zam_lys_type_base(kind("levels")), LY_TYPE_UINT8) << "a leaf-list";
}

TEST_F(SchemaNode, OnlyLeavesAndLeafListsHaveAType) {
    for (const char *path : {"/test-kinds:kinds", "/test-kinds:kinds/keyed", "/test-kinds:kinds/blob",
                             "/test-kinds:kinds/markup", "/test-kinds:compute", "/test-kinds:event"}) {
        EXPECT_EQ(zam_lys_type_base(schema_at(path)), LY_TYPE_UNKNOWN) << path;
        EXPECT_EQ(zam_lys_realtype(schema_at(path)), LY_TYPE_UNKNOWN) << path;
    }
}

TEST_F(SchemaNode, TheRealTypeOfAReferenceIsThatOfItsTarget) {
    EXPECT_EQ(zam_lys_realtype(kind("number-ref")), LY_TYPE_UINT8);
    EXPECT_EQ(zam_lys_realtype(kind("kind-ref")), LY_TYPE_IDENT);
    EXPECT_EQ(zam_lys_realtype(kind("number")), LY_TYPE_UINT8);
    EXPECT_EQ(zam_lys_realtype(kind("levels")), LY_TYPE_UINT8);
}

TEST_F(SchemaNode, TheNodeTypeIsLibyangsNumber) {
    EXPECT_EQ(zam_lys_nodetype(schema_at("/test-kinds:kinds")), 1);
    EXPECT_EQ(zam_lys_nodetype(kind("number")), 4);
    EXPECT_EQ(zam_lys_nodetype(kind("levels")), 8);
    EXPECT_EQ(zam_lys_nodetype(kind("keyed")), 16);
    EXPECT_EQ(zam_lys_nodetype(zam_lys_parent(zam_lys_parent(kind("buried")))), 2);
    EXPECT_EQ(zam_lys_nodetype(schema_at("/test-kinds:compute")), LYS_RPC);
}

TEST_F(SchemaNode, TheFirstChildIsThatOfTheSchema) {
    EXPECT_STREQ(zam_lys_child(kind("keyed"))->name, "b") << "keys come first, in the order of the key statement";
    EXPECT_EQ(zam_lys_child(kind("number")), nullptr);
    EXPECT_EQ(zam_lys_child(schema_at("/test-main:top/present")), nullptr);
    EXPECT_EQ(zam_lys_nodetype(zam_lys_child(zam_lys_parent(zam_lys_parent(kind("buried"))))), LYS_CASE);
}

TEST_F(SchemaNode, TheKeysOfAListAreCounted) {
    EXPECT_EQ(zam_lys_list_key_num(kind("keyed")), 2u);
    EXPECT_EQ(zam_lys_list_key_num(kind("keyless")), 0u);
    EXPECT_EQ(zam_lys_list_key_num(schema_at("/test-main:top/four")), 4u);
    EXPECT_EQ(zam_lys_list_key_num(schema_at("/test-main:top/item")), 1u);
    EXPECT_EQ(zam_lys_list_key_num(schema_at("/test-kinds:kinds")), 0u);
    EXPECT_EQ(zam_lys_list_key_num(kind("levels")), 0u);
}

TEST_F(SchemaNode, ADefaultIsTheCanonicalText) {
    EXPECT_STREQ(zam_lys_get_default_value(kind("number")), "7");
    EXPECT_STREQ(zam_lys_get_default_value(kind("ratio")), "1.5");
    EXPECT_STREQ(zam_lys_get_default_value(schema_at("/test-main:top/switch")), "true");
}

TEST_F(SchemaNode, ANodeThatIsNoLeafWithADefaultHasNone) {
    EXPECT_EQ(zam_lys_get_default_value(kind("level")), nullptr);
    EXPECT_EQ(zam_lys_get_default_value(kind("levels")), nullptr) << "a leaf-list";
    EXPECT_EQ(zam_lys_get_default_value(kind("keyed")), nullptr);
}

TEST_F(SchemaNode, TheParentWithoutChoicesIsTheNearestOtherNode) {
    EXPECT_EQ(zam_lys_parent_without_choice(kind("buried")), schema_at("/test-kinds:kinds"));
    EXPECT_EQ(zam_lys_parent_without_choice(kind("number")), schema_at("/test-kinds:kinds"));
    EXPECT_EQ(zam_lys_parent_without_choice(schema_at("/test-kinds:kinds")), nullptr);
}

TEST_F(SchemaNode, OnlyEdgesAreEdges) {
    for (const char *path :
         {"/test-main:top/text", "/test-main:top/tag", "/test-main:top/any", "/test-main:top/xml", "/test-main:single"})
        EXPECT_EQ(zam_is_edge_node(schema_at(path)), 1) << path;
    for (const char *path :
         {"/test-main:top", "/test-main:top/item", "/test-main:run", "/test-main:alarm", "/test-main:top/item/reset"})
        EXPECT_EQ(zam_is_edge_node(schema_at(path)), 0) << path;
    EXPECT_EQ(zam_is_edge_node(zam_lys_parent(kind("buried"))), 0) << "a case";
}

class SchemaPath : public SchemaTest {
protected:
    static const lysc_node *find(const char *path, int32_t output = 0, const lysc_node *start = nullptr) {
        return zam_lys_find_path(test_context(), start, path, output);
    }
};

TEST_F(SchemaPath, ADataPathIsFoundWithItsKeysTakenOff) {
    const LogCapture log;
    EXPECT_EQ(find("/test-main:top/item[name='x']/value"), schema_at("/test-main:top/item/value"));
    EXPECT_EQ(log.count(7, "[libyang] Format path : /test-main:top/item/value"), 1);
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(SchemaPath, ATrailingSlashIsTaken) {
    EXPECT_EQ(find("/test-main:top/"), schema_at("/test-main:top"));
}

TEST_F(SchemaPath, ARelativePathStartsAtTheContextNode) {
    const lysc_node *top = schema_at("/test-main:top");
    EXPECT_EQ(find("item/name", 0, top), schema_at("/test-main:top/item/name"));
    EXPECT_EQ(find("test-extra:extra", 0, top), schema_at("/test-main:top/test-extra:extra"));
    EXPECT_EQ(zam_lys_find_path(nullptr, top, "text", 0), schema_at("/test-main:top/text"));
}

TEST_F(SchemaPath, ChoicesAreNoSteps) {
    EXPECT_TRUE(find("/test-kinds:kinds/buried"));
    EXPECT_EQ(find("/test-kinds:kinds/outer/deep/inner/deeper/buried"), nullptr);
}

TEST_F(SchemaPath, AnOperationsOutputIsFoundOnDemand) {
    EXPECT_EQ(find("/test-kinds:compute/result", 1), output_schema_at("/test-kinds:compute/result"));
    EXPECT_TRUE(find("/test-kinds:compute/p", 0));
    EXPECT_EQ(find("/test-kinds:compute/p", 1), nullptr);
    EXPECT_EQ(find("/test-kinds:compute/result", 0), nullptr);
}

TEST_F(SchemaPath, APathThatLeadsNowhereIsLoggedAsGiven) {
    const LogCapture log;
    EXPECT_EQ(find("/test-main:top/item[name='x']/bogus/"), nullptr);
    EXPECT_EQ(
        log.count(
            3, "[libyang]Get lys_node by path unsuccessful, path : /test-main:top/item[name='x']/bogus/, output : 0."),
        1);
    EXPECT_EQ(find("/test-kinds:compute/p", 1), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]Get lys_node by path unsuccessful, path : /test-kinds:compute/p, output : 1."), 1);
}

TEST_F(SchemaPath, APathThatCannotBeReadFails) {
    for (const char *path : {"/test-main:top/1", "//", "/test-main:top/item[name=]", "/test-main:top x"}) {
        const LogCapture log;
        EXPECT_EQ(find(path), nullptr);
        EXPECT_EQ(
            log.count(3, "[libyang]Get lys_node by path unsuccessful, path : " + std::string{path} + ", output : 0."),
            1);
        EXPECT_FALSE(log.mentions("Format path :"));
    }
}

TEST_F(SchemaPath, PathsThatLibyangDoesNotTakeAreRefused) {
    for (const char *path : {"", "/", "top", "/top", "test-main:top", "/nowhere:top", "/test-main:top/test-main:1"})
        EXPECT_EQ(find(path), nullptr) << path;
    EXPECT_EQ(find(nullptr), nullptr);
    EXPECT_EQ(zam_lys_find_path(nullptr, nullptr, "/test-main:top", 0), nullptr);
}

TEST_F(SchemaPath, APathOfTooManyStepsIsRefused) {
    std::string path = "/test-main:top";
    for (int i = 0; i < 100'000; ++i)
        path += "/sub";
    EXPECT_EQ(find(path.c_str()), nullptr);
}

TEST_F(SchemaPath, WithoutMemoryNothingIsFound) {
    const lysc_node *expected = schema_at("/test-main:top/item");
    uint64_t refused = 0;
    const uint64_t failed = fail_each_allocation([&](bool) {
        const lysc_node *node = find("/test-main:top/item[name='x']");
        EXPECT_TRUE(!node || node == expected);
        if (!node) ++refused;
    });
    EXPECT_EQ(refused, failed);
    EXPECT_GT(failed, 2u);
}

TEST_F(SchemaPath, ASchemaNodeIsFoundFromTheRootOrBelowANode) {
    const lysc_node *sub = schema_at("/test-main:top/sub");
    EXPECT_EQ(zam_schema_find(test_context(), nullptr, "/test-main:top/sub"), sub);
    EXPECT_EQ(zam_schema_find(test_context(), sub, "/test-main:top/sub"), sub) << "the node is ignored";
    EXPECT_EQ(zam_schema_find(test_context(), sub, "inner/c"), schema_at("/test-main:top/sub/inner/c"));
    EXPECT_EQ(zam_schema_find(test_context(), sub, "/inner/c"), nullptr);
}

TEST_F(SchemaPath, ASchemaNodeIsFoundThroughItsChoices) {
    EXPECT_EQ(zam_schema_find(test_context(), nullptr, "/test-kinds:kinds/outer/deep/inner/deeper/buried"),
              schema_at("/test-kinds:kinds/buried"));
    EXPECT_EQ(zam_schema_find(test_context(), nullptr, "/test-kinds:compute/output/result"),
              output_schema_at("/test-kinds:compute/result"));
}

TEST_F(SchemaPath, NoSchemaNodeIsFoundWithoutAPath) {
    const LogCapture log;
    EXPECT_EQ(zam_schema_find(test_context(), nullptr, nullptr), nullptr);
    EXPECT_EQ(zam_schema_find(test_context(), schema_at("/test-main:top"), ""), nullptr);
    EXPECT_EQ(zam_schema_find(nullptr, nullptr, "/test-main:top"), nullptr);
    EXPECT_EQ(zam_schema_find(test_context(), nullptr, "/"), nullptr);
    EXPECT_EQ(log.all(), "");
}

class Enumeration : public SchemaNode {};

TEST_F(Enumeration, AnItemIsNamedByItsValue) {
    EXPECT_STREQ(zam_find_enum_name(kind("level"), -5), "below");
    EXPECT_STREQ(zam_find_enum_name(kind("level"), -4), "even");
    EXPECT_STREQ(zam_find_enum_name(kind("level"), 40), "above");
}

TEST_F(Enumeration, AValueThatIsNotAssignedHasNoName) {
    for (const int32_t value : {0, 1, 2, 41, INT_MAX, INT_MIN})
        EXPECT_EQ(zam_find_enum_name(kind("level"), value), nullptr) << value;
}

TEST_F(Enumeration, OnlyAnEnumerationHasItems) {
    EXPECT_EQ(zam_find_enum_name(kind("number"), 7), nullptr);
    EXPECT_EQ(zam_find_enum_name(kind("bits1"), 0), nullptr);
    EXPECT_EQ(zam_find_enum_name(schema_at("/test-kinds:kinds"), 0), nullptr);
}

class Bits : public SchemaNode {
protected:
    static std::string named(const char *leaf, uint32_t mask) { return take(zam_build_bits_buf(kind(leaf), mask)); }
};

TEST_F(Bits, TheNamesOfTheSetBitsStandInTheOrderOfTheType) {
    EXPECT_EQ(named("bits1", 0x9), "one four");
    EXPECT_EQ(named("bits1", 0x8B), "one two four last");
    EXPECT_EQ(named("bits1", 0x2), "two");
    EXPECT_EQ(named("bits4", 0x80000001), "low high");
}

TEST_F(Bits, PositionsWithoutABitAreIgnored) {
    EXPECT_EQ(named("bits1", 0xFFFFFFFF), "one two four last");
    EXPECT_EQ(named("bits1", 0x4), "(null)");
}

TEST_F(Bits, PositionsFrom32OnAreNeverNamed) {
    EXPECT_EQ(named("bits8", 0xFFFFFFFF), "low top");
    EXPECT_EQ(named("bits9", 0xFFFFFFFF), "low");
}

TEST_F(Bits, NoSetBitIsNoText) {
    const LogCapture log;
    EXPECT_EQ(named("bits1", 0), "(null)");
    EXPECT_EQ(log.all(), "");
}

TEST_F(Bits, OnlyABitsTypeHasBits) {
    EXPECT_EQ(named("level", 1), "(null)");
    EXPECT_EQ(take(zam_build_bits_buf(schema_at("/test-kinds:kinds"), 1)), "(null)");
}

TEST_F(Bits, TheTextIsTheValueOfALeaf) {
    const Text value{zam_build_bits_buf(kind("bits1"), 0x81)};
    const Tree leaf{zam_lyd_node_lightweight_new(kind("bits1"), nullptr, value.get(), 8)};
    ASSERT_TRUE(leaf);
    EXPECT_EQ(zam_lyd_get_value(leaf.get()), 0x81u);
}

TEST_F(Bits, WithoutMemoryTheLeafIsNamed) {
    const lysc_node *leaf = kind("bits1");
    uint64_t refused = 0;
    const uint64_t failed = fail_each_allocation([&](bool) {
        const LogCapture log;
        const Text names{zam_build_bits_buf(leaf, 0xF)};
        if (!names) ++refused;
        EXPECT_EQ(log.count(3, "Build bits buf unsuccessful, leaf : bits1."), names ? 0 : 1);
    });
    EXPECT_EQ(refused, failed);
    EXPECT_GE(failed, 1u);
}

} // namespace
} // namespace zam::test
