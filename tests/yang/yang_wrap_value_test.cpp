// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <cstdlib>
#include <string>

#include "yang/yang_tree_data_fixture.h"

namespace zam::test {
namespace {

TEST(Datastore, OperationalAndItsTemporaryFormHoldNoConfiguration) {
    for (const char *name : {"operational", "temporary-operational", "ietf-datastores:operational",
                             "ietf-datastores:temporary-operational"})
        EXPECT_EQ(zam_is_config_datastore(name), 0) << name;
}

TEST(Datastore, EveryOtherNameHoldsConfiguration) {
    for (const char *name : {"running", "candidate", "startup", "ietf-datastores:running", "my:operational",
                             "my:temporary-operational", ":operational", "ietf-datastores:", "operational:",
                             "Operational", "operational ", "operationa", "", "ietf-datastores:operational:x"})
        EXPECT_EQ(zam_is_config_datastore(name), 1) << name;
}

TEST(Datastore, NoNameIsNone) {
    EXPECT_EQ(zam_is_config_datastore(nullptr), 0);
}

TEST(ParseOptions, AreStrictAndRefuseStateInConfiguration) {
    EXPECT_EQ(zam_calc_parse_opt("running", 1, 0), 0xB0000u);
    EXPECT_EQ(zam_calc_parse_opt("running", 0, 0), 0xA0000u);
    EXPECT_EQ(zam_calc_parse_opt("running", 0, 2), 0xA0000u);
    EXPECT_EQ(zam_calc_parse_opt("my:operational", 0, 0), 0xA0000u);
    EXPECT_EQ(zam_calc_parse_opt("running", -1, 2), 0xB0000u);
}

TEST(ParseOptions, TakeStateInOtherKindsAndDatastores) {
    EXPECT_EQ(zam_calc_parse_opt("running", 0, 1), 0x20000u);
    EXPECT_EQ(zam_calc_parse_opt("running", 0, 3), 0x20000u);
    EXPECT_EQ(zam_calc_parse_opt("running", 0, -1), 0x20000u);
    EXPECT_EQ(zam_calc_parse_opt("operational", 0, 0), 0x20000u);
    EXPECT_EQ(zam_calc_parse_opt("ietf-datastores:temporary-operational", 1, 2), 0x30000u);
}

TEST(ParseOptions, WithoutADatastoreThereAreNone) {
    const LogCapture log;
    EXPECT_EQ(zam_calc_parse_opt(nullptr, 1, 0), 0u);
    EXPECT_EQ(log.count(3, "Missing datastore when calculate options."), 1);
}

class NodeValue : public SchemaTest {
protected:
    // An opaque node whose name refers to a namespace, as one that was read from XML.
    static Tree from_xml(const std::string &text) {
        lyd_node *tree = nullptr;
        EXPECT_EQ(lyd_parse_data_mem(test_context(), text.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0, &tree),
                  LY_SUCCESS);
        return Tree{tree};
    }
    static void forget_module(lyd_node *node) {
        lydict_remove(test_context(), opaque(node)->name.module_name);
        opaque(node)->name.module_name = nullptr;
    }
};

TEST_F(NodeValue, NullIsAnsweredWithNothing) {
    EXPECT_EQ(zam_lyd_get_schema_name(nullptr), nullptr);
    EXPECT_EQ(zam_lyd_get_module_name(nullptr), nullptr);
    EXPECT_EQ(zam_get_leaf_value(nullptr), nullptr);
    EXPECT_EQ(zam_get_node_meta_value(nullptr, "x"), nullptr);
    EXPECT_EQ(zam_lyd_get_schema(nullptr, nullptr), nullptr);
    EXPECT_EQ(zam_lyd_get_schema(nullptr, schema_at("/test-main:top")), nullptr);
    EXPECT_EQ(zam_lyd_get_nodetype(nullptr), 0);
    EXPECT_EQ(zam_add_escape_character(nullptr), nullptr);
}

TEST_F(NodeValue, ANodesNameIsThatOfItsSchemaOrItsOwn) {
    const Tree tree = lightweight("/test-main:top");
    const Tree strange{new_opaque(nullptr, "strange", nullptr)};
    EXPECT_STREQ(zam_lyd_get_schema_name(tree.get()), "top");
    EXPECT_STREQ(zam_lyd_get_schema_name(strange.get()), "strange");
}

TEST_F(NodeValue, ANodesModuleIsThatOfItsSchema) {
    const Tree tree = parse_json(R"({"test-main:top":{"test-extra:extra":"x"}})");
    EXPECT_STREQ(zam_lyd_get_module_name(tree.get()), "test-main");
    EXPECT_STREQ(zam_lyd_get_module_name(child(tree.get(), "extra")), "test-extra");
}

TEST_F(NodeValue, AnOpaqueNodeNamesItsModule) {
    const Tree known{new_opaque(nullptr, "a", nullptr, "test-extra")};
    const Tree unknown{new_opaque(nullptr, "a", nullptr, "not-loaded")};
    EXPECT_STREQ(zam_lyd_get_module_name(known.get()), "test-extra");
    EXPECT_STREQ(zam_lyd_get_module_name(unknown.get()), "not-loaded");
}

TEST_F(NodeValue, AnOpaqueNodeFromXmlNamesItsModuleByNamespace) {
    const Tree known = from_xml("<strange xmlns=\"urn:test:extra\"/>");
    const Tree unknown = from_xml("<strange xmlns=\"urn:nowhere\"/>");
    EXPECT_STREQ(zam_lyd_get_module_name(known.get()), "test-extra");
    EXPECT_EQ(zam_lyd_get_module_name(unknown.get()), nullptr);
}

TEST_F(NodeValue, AnOpaqueNodeThatNamesNoModuleHasThatOfANodeAbove) {
    const Tree top = lightweight("/test-main:top");
    lyd_node *strange = new_opaque(top.get(), "strange", nullptr, "test-extra");
    lyd_node *below = new_opaque(strange, "below", nullptr);
    forget_module(below);
    EXPECT_STREQ(zam_lyd_get_module_name(below), "test-extra");
    forget_module(strange);
    EXPECT_STREQ(zam_lyd_get_module_name(below), "test-main");
    EXPECT_STREQ(zam_lyd_get_module_name(strange), "test-main");
}

TEST_F(NodeValue, ATreeThatNamesNoModuleHasNone) {
    const Tree strange{new_opaque(nullptr, "strange", nullptr)};
    forget_module(strange.get());
    EXPECT_EQ(zam_lyd_get_module_name(strange.get()), nullptr);
}

TEST_F(NodeValue, AnOpaqueNodeOfUnknownOriginHasNoModule) {
    const Tree strange{new_opaque(nullptr, "strange", nullptr)};
    opaque(strange.get())->format = LY_VALUE_CANON;
    const LogCapture log;
    EXPECT_EQ(zam_lyd_get_module_name(strange.get()), nullptr);
    EXPECT_EQ(log.count(3, "Get module name unsuccessful , unknown format."), 1);
    opaque(strange.get())->format = LY_VALUE_JSON;
}

std::string dumped(char *text, uint32_t length) {
    const std::string copy = text ? text : "(null)";
    EXPECT_EQ(length, text ? copy.size() : 0u);
    std::free(text);
    return copy;
}

TEST_F(NodeValue, ADumpHoldsTheNodeAndTheSiblingsBehindIt) {
    const Tree tree = parse_json(R"({"test-main:top":{"sub":{},"tag":["a"]},"test-main:single":"x"})");
    uint32_t length = 99;
    char *text = zam_lyd_tree_dump(tree.get(), LYD_JSON, &length);
    EXPECT_EQ(dumped(text, length), R"({"test-main:top":{"sub":{},"tag":["a"]},"test-main:single":"x"})");
    text = zam_lyd_tree_dump(tree->next, LYD_XML, nullptr);
    EXPECT_STREQ(text, R"(<single xmlns="urn:test:main">x</single>)");
    std::free(text);
}

TEST_F(NodeValue, ADumpWithoutSiblingsHoldsTheNodeAlone) {
    const Tree tree = parse_json(R"({"test-main:top":{"sub":{}},"test-main:single":"x"})");
    uint32_t length = 99;
    char *text = zam_lyd_tree_dump_nosibling(tree.get(), LYD_JSON, &length);
    EXPECT_EQ(dumped(text, length), R"({"test-main:top":{"sub":{}}})") << "empty containers are kept";
}

TEST_F(NodeValue, ADumpOfTheSecondNodeStartsThere) {
    const Tree tree = parse_json(R"({"test-main:top":{"text":"t","number":1,"big":"2"}})");
    uint32_t length = 0;
    char *text = zam_lyd_tree_dump_nosibling(child(tree.get(), "number"), LYD_JSON, &length);
    EXPECT_EQ(dumped(text, length), R"({"test-main:number":1})");
}

TEST_F(NodeValue, ADumpOfNothingFails) {
    for (const auto dump : {zam_lyd_tree_dump, zam_lyd_tree_dump_nosibling}) {
        uint32_t length = 99;
        const LogCapture log;
        EXPECT_EQ(dump(nullptr, LYD_JSON, &length), nullptr);
        EXPECT_EQ(length, 0u);
        EXPECT_TRUE(log.mentions("[WRONG] Dump tree '(null):(null)' unsuccessful.\n"));
        EXPECT_EQ(dump(nullptr, LYD_XML, nullptr), nullptr);
    }
}

TEST_F(NodeValue, ADumpInAFormatThatIsNoneFails) {
    const Tree tree = lightweight("/test-main:top");
    for (const auto dump : {zam_lyd_tree_dump, zam_lyd_tree_dump_nosibling}) {
        uint32_t length = 99;
        const LogCapture log;
        EXPECT_EQ(dump(tree.get(), LYD_UNKNOWN, &length), nullptr);
        EXPECT_EQ(length, 0u);
        EXPECT_EQ(log.count(3, "Dump tree 'test-main:top' unsuccessful."), 1);
    }
}

TEST_F(NodeValue, ALeafsValueIsItsText) {
    const Tree tree = parse_json(R"({"test-kinds:kinds":{"ratio":"1.50","levels":[3]}})");
    EXPECT_STREQ(zam_get_leaf_value(child(tree.get(), "ratio")), "1.5");
    EXPECT_EQ(zam_get_leaf_value(child(tree.get(), "ratio")), zam_lyd_value_string(child(tree.get(), "ratio")))
        << "no copy";
    EXPECT_STREQ(zam_get_leaf_value(child(tree.get(), "levels")), "3");
    EXPECT_EQ(zam_get_leaf_value(tree.get()), nullptr);
}

TEST_F(NodeValue, AnIdentityOfTheLeafsModuleLosesItsPrefix) {
    const Tree tree = parse_json(R"({"test-main:top":{"kind":"test-main:round","shape":["square"]}})");
    EXPECT_STREQ(zam_get_leaf_value(child(tree.get(), "kind")), "round");
    EXPECT_STREQ(zam_get_leaf_value(child(tree.get(), "shape")), "square");
}

TEST_F(NodeValue, AnIdentityOfAnotherModuleKeepsItsPrefix) {
    const Tree tree = parse_json(R"({"test-main:top":{"kind":"test-extra:oval"}})");
    EXPECT_STREQ(zam_get_leaf_value(child(tree.get(), "kind")), "test-extra:oval");
}

TEST_F(NodeValue, AReferenceToAnIdentityIsOne) {
    const Tree tree = parse_json(R"({"test-kinds:kinds":{"kind":"cone","kind-ref":"test-kinds:cone"}})");
    EXPECT_STREQ(zam_get_leaf_value(child(tree.get(), "kind-ref")), "cone");
}

TEST_F(NodeValue, AStringWithAColonIsNoIdentity) {
    const Tree tree = parse_json(R"({"test-main:top":{"text":"test-main:round"}})");
    EXPECT_STREQ(zam_get_leaf_value(child(tree.get(), "text")), "test-main:round");
}

TEST_F(NodeValue, AnOpaqueNodesValueIsItsTextUnchanged) {
    const Tree strange{new_opaque(nullptr, "kind", "test-main:round")};
    EXPECT_STREQ(zam_get_leaf_value(strange.get()), "test-main:round");
}

TEST_F(NodeValue, MetadataIsFoundByItsName) {
    const Tree tree = lightweight("/test-main:top");
    ASSERT_EQ(zam_lyd_new_meta(tree.get(), nullptr, nullptr, "ietf-netconf:operation", "merge"), LY_SUCCESS);
    ASSERT_EQ(zam_lyd_new_meta(tree.get(), nullptr, nullptr, "test-kinds:stamp", "+5"), LY_SUCCESS);
    EXPECT_STREQ(zam_get_node_meta_value(tree.get(), "operation"), "merge");
    EXPECT_STREQ(zam_get_node_meta_value(tree.get(), "stamp"), "5");
    EXPECT_EQ(zam_get_node_meta_value(tree.get(), "ietf-netconf:operation"), nullptr);
    EXPECT_EQ(zam_get_node_meta_value(tree.get(), "other"), nullptr);
    EXPECT_EQ(zam_get_node_meta_value(tree.get(), nullptr), nullptr);
}

TEST_F(NodeValue, TheFirstMetadataOfANameCounts) {
    const Tree tree = lightweight("/test-main:top");
    ASSERT_EQ(zam_lyd_new_meta(tree.get(), nullptr, nullptr, "test-kinds:stamp", "1"), LY_SUCCESS);
    ASSERT_EQ(zam_lyd_new_meta(tree.get(), nullptr, nullptr, "test-kinds:stamp", "2"), LY_SUCCESS);
    EXPECT_STREQ(zam_get_node_meta_value(tree.get(), "stamp"), zam_lyd_meta_value(tree->meta));
}

TEST_F(NodeValue, AnOpaqueNodesAttributeIsFoundByItsName) {
    const Tree strange{new_opaque(nullptr, "strange", nullptr)};
    ASSERT_EQ(zam_lyd_new_meta(strange.get(), "ietf-netconf", "operation", nullptr, "delete"), LY_SUCCESS);
    EXPECT_STREQ(zam_get_node_meta_value(strange.get(), "operation"), "delete");
    EXPECT_EQ(zam_get_node_meta_value(strange.get(), "other"), nullptr);
    EXPECT_EQ(zam_get_node_meta_value(strange.get(), nullptr), nullptr);
}

TEST_F(NodeValue, TheNodeTypeIsThatOfTheSchemaNode) {
    const Tree tree = lightweight("/test-main:top/item");
    const Tree strange{new_opaque(nullptr, "item", nullptr)};
    EXPECT_EQ(zam_lyd_get_nodetype(tree.get()), LYS_LIST);
    EXPECT_EQ(zam_lyd_get_nodetype(strange.get()), 0);
}

class SchemaOfNode : public SchemaTest {
protected:
    static const lysc_node *below_top(const char *name, const char *module) {
        const Tree node{new_opaque(nullptr, name, nullptr, module)};
        return zam_lyd_get_schema(node.get(), schema_at("/test-main:top"));
    }
};

TEST_F(SchemaOfNode, ANodeWithOneHasItWhateverTheParent) {
    const Tree tree = lightweight("/test-main:top");
    EXPECT_EQ(zam_lyd_get_schema(tree.get(), nullptr), schema_at("/test-main:top"));
    EXPECT_EQ(zam_lyd_get_schema(tree.get(), schema_at("/test-kinds:kinds")), schema_at("/test-main:top"));
}

TEST_F(SchemaOfNode, AnOpaqueNodeIsFoundBelowTheGivenSchemaNode) {
    EXPECT_EQ(below_top("text", "test-main"), schema_at("/test-main:top/text"));
    EXPECT_EQ(below_top("extra", "test-extra"), schema_at("/test-main:top/test-extra:extra"));
    EXPECT_EQ(below_top("extra", "test-main"), nullptr);
    EXPECT_EQ(below_top("text", "not-loaded"), nullptr);
    EXPECT_EQ(below_top("left", "test-main"), schema_at("/test-main:top/left")) << "choices are looked through";
}

TEST_F(SchemaOfNode, TheInputOfAGivenOperationIsSearchedBeforeItsOutput) {
    const lysc_node *compute = schema_at("/test-kinds:compute");
    const Tree input{new_opaque(nullptr, "p", nullptr, "test-kinds")};
    const Tree output{new_opaque(nullptr, "result", nullptr, "test-kinds")};
    const Tree neither{new_opaque(nullptr, "nothing", nullptr, "test-kinds")};
    EXPECT_EQ(zam_lyd_get_schema(input.get(), compute), schema_at("/test-kinds:compute/p"));
    const LogCapture log;
    EXPECT_EQ(zam_lyd_get_schema(output.get(), compute), output_schema_at("/test-kinds:compute/result"));
    EXPECT_EQ(log.count(3, "[libyang]Get lys_node by path unsuccessful, path : result, output : 0."), 1);
    EXPECT_EQ(zam_lyd_get_schema(neither.get(), compute), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]Get lys_node by path unsuccessful, path : nothing, output : 1."), 1);
}

TEST_F(SchemaOfNode, AnOpaqueNodeIsFoundBelowTheNearestNodeWithASchema) {
    const Tree top = lightweight("/test-main:top");
    lyd_node *item = new_opaque(top.get(), "item", nullptr);
    lyd_node *box = new_opaque(item, "box", nullptr);
    lyd_node *size = new_opaque(box, "size", "1");
    EXPECT_EQ(zam_lyd_get_schema(item, nullptr), schema_at("/test-main:top/item"));
    const LogCapture log;
    EXPECT_EQ(zam_lyd_get_schema(size, nullptr), schema_at("/test-main:top/item/box/size"));
    EXPECT_EQ(log.count(7, "[libyang] Format path : item/box/size"), 1);
}

TEST_F(SchemaOfNode, AModuleIsNamedWhereItChangesOnTheWay) {
    const Tree top = lightweight("/test-main:top");
    lyd_node *more = new_opaque(top.get(), "more", nullptr, "test-extra");
    lyd_node *x = new_opaque(more, "x", "1", "test-extra");
    lyd_node *item = new_opaque(top.get(), "item", nullptr);
    lyd_node *color = new_opaque(item, "color", "red", "test-extra");
    const LogCapture log;
    EXPECT_EQ(zam_lyd_get_schema(x, nullptr), schema_at("/test-main:top/test-extra:more/x"));
    EXPECT_EQ(log.count(7, "[libyang] Format path : test-extra:more/x"), 1);
    EXPECT_EQ(zam_lyd_get_schema(color, nullptr), schema_at("/test-main:top/item/test-extra:color"));
    EXPECT_EQ(log.count(7, "[libyang] Format path : item/test-extra:color"), 1);
}

TEST_F(SchemaOfNode, AnOpaqueTreeIsFoundFromTheRoot) {
    const Tree top{new_opaque(nullptr, "top", nullptr)};
    lyd_node *sub = new_opaque(top.get(), "sub", nullptr);
    lyd_node *extra = new_opaque(top.get(), "extra", "x", "test-extra");
    const LogCapture log;
    EXPECT_EQ(zam_lyd_get_schema(top.get(), nullptr), schema_at("/test-main:top"));
    EXPECT_EQ(log.count(7, "[libyang] Format path : /test-main:top"), 1);
    EXPECT_EQ(zam_lyd_get_schema(sub, nullptr), schema_at("/test-main:top/sub"));
    EXPECT_EQ(zam_lyd_get_schema(extra, nullptr), schema_at("/test-main:top/test-extra:extra"));
    EXPECT_EQ(log.count(7, "[libyang] Format path : /test-main:top/test-extra:extra"), 1);
}

TEST_F(SchemaOfNode, AnOpaqueNodeOfAnOutputIsFoundAfterTheInput) {
    const Tree compute{zam_lyd_new_inner(nullptr, module("test-kinds"), "compute")};
    lyd_node *found = new_opaque(compute.get(), "found", nullptr, "test-kinds");
    lyd_node *f = new_opaque(found, "f", "x", "test-kinds");
    EXPECT_EQ(zam_lyd_get_schema(f, nullptr), output_schema_at("/test-kinds:compute/found/f"));
    const Tree strange{new_opaque(nullptr, "compute", nullptr, "test-kinds")};
    lyd_node *result = new_opaque(strange.get(), "result", "1", "test-kinds");
    EXPECT_EQ(zam_lyd_get_schema(result, nullptr), output_schema_at("/test-kinds:compute/result"));
}

TEST_F(SchemaOfNode, AnOpaqueNodeOfNoSchemaHasNone) {
    const Tree unknown{new_opaque(nullptr, "nothing", nullptr)};
    const Tree foreign{new_opaque(nullptr, "top", nullptr, "not-loaded")};
    const Tree top = lightweight("/test-main:top");
    EXPECT_EQ(zam_lyd_get_schema(unknown.get(), nullptr), nullptr);
    EXPECT_EQ(zam_lyd_get_schema(foreign.get(), nullptr), nullptr);
    EXPECT_EQ(zam_lyd_get_schema(new_opaque(top.get(), "nothing", nullptr), nullptr), nullptr);
}

TEST_F(SchemaOfNode, WithoutMemoryThereIsNone) {
    const Tree top = lightweight("/test-main:top");
    const Tree root{new_opaque(nullptr, "top", nullptr)};
    lyd_node *color = new_opaque(new_opaque(top.get(), "item", nullptr), "color", nullptr, "test-extra");
    lyd_node *sub = new_opaque(root.get(), "sub", nullptr);
    const lysc_node *item = schema_at("/test-main:top/item");
    const lysc_node *expected = schema_at("/test-main:top/item/test-extra:color");
    const lysc_node *expected_sub = schema_at("/test-main:top/sub");
    // From the failure on: the search of the output would make up for one that failed for the input.
    int found = 0;
    const uint64_t failed = fail_each_allocation(
        [&](bool expect_failure) {
            const lysc_node *by_ancestors = zam_lyd_get_schema(color, nullptr);
            const lysc_node *by_root = zam_lyd_get_schema(sub, nullptr);
            const lysc_node *by_parent = zam_lyd_get_schema(color, item);
            EXPECT_TRUE(by_ancestors == expected || (expect_failure && !by_ancestors));
            EXPECT_TRUE(by_root == expected_sub || (expect_failure && !by_root));
            EXPECT_TRUE(by_parent == expected || (expect_failure && !by_parent));
            if (by_ancestors && by_root && by_parent) ++found;
        },
        true);
    EXPECT_EQ(found, 2) << "only without a failure";
    EXPECT_GT(failed, 10u);
}

TEST(Escapes, BackslashesAndDoubleQuotesGetABackslash) {
    EXPECT_EQ(take(zam_add_escape_character("plain")), "plain");
    EXPECT_EQ(take(zam_add_escape_character(R"(a"b\c)")), R"(a\"b\\c)");
    EXPECT_EQ(take(zam_add_escape_character(R"("\"\)")), R"(\"\\\"\\)");
    EXPECT_EQ(take(zam_add_escape_character("it's\n[\xC3\xA9]")), "it's\n[\xC3\xA9]");
}

TEST(Escapes, TheEmptyTextIsACopyOfItself) {
    EXPECT_EQ(take(zam_add_escape_character("")), "");
}

TEST(Escapes, WithoutMemoryThereIsNoCopy) {
    uint64_t refused = 0;
    const uint64_t failed = fail_each_allocation([&refused](bool) {
        const Text text{zam_add_escape_character("\"")};
        if (!text) ++refused;
    });
    EXPECT_EQ(refused, failed);
    EXPECT_EQ(failed, 1u);
}

class LoggedTree : public SchemaTest {};

TEST_F(LoggedTree, NamesTheNodeAndTheSiblingsBehindIt) {
    const Tree tree = parse_json(R"({"test-main:top":{"text":"x","number":1,"sub":{"a":"x"}}})");
    ASSERT_TRUE(new_opaque(tree.get(), "strange", nullptr));
    const LogCapture log{7};
    zam_logout_lyd_tree(child(tree.get(), "number"));
    EXPECT_EQ(log.all(), "[DEBUG] [Data]Schema name number.\n"
                         "[DEBUG] [Data]Schema name sub.\n"
                         "[DEBUG] [Data]Schema name strange.\n");
}

TEST_F(LoggedTree, IsSilentBelowTheTraceLevelAndForNull) {
    const Tree tree = lightweight("/test-main:top");
    {
        const LogCapture log{6};
        zam_logout_lyd_tree(tree.get());
        EXPECT_EQ(log.all(), "");
    }
    const LogCapture log{7};
    zam_logout_lyd_tree(nullptr);
    EXPECT_EQ(log.all(), "");
}

} // namespace
} // namespace zam::test
