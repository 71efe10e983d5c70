// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Searching, freeing and printing data trees, opaque nodes and metadata.
#include <zamc/yang_module.h>

#include <cstdio>

#include <malloc.h>

#include "support/files.h"
#include "yang/yang_module_fixture.h"

namespace {

using namespace zam::test;
using namespace zam::test::layer;
using testing::HasSubstr;
using testing::IsEmpty;

using LibyangTree = SampleTest;
using LibyangPrint = SampleTest;
using LibyangOpaque = SampleTest;
using LibyangMeta = SampleTest;
using LibyangNodeModule = SampleTest;

constexpr const char *two_items = R"({"sample:top":{"item":[{"name":"a"},{"name":"b"}]}})";
constexpr const char *two_tops = R"({"sample:top":{"note":"x"},"sample:second":{"note":"y"}})";

// Validation puts empty containers between.
lyd_node *last_child(const lyd_node *parent) {
    return lyd_child(parent)->prev;
}

TEST_F(LibyangTree, FindInstanceGivesAllInstances) {
    const Tree tree = parse(two_items);
    LogCapture log;
    const Set set{zam_lyd_find_instance(tree.get(), schema("/sample:top/item/name"))};
    ASSERT_TRUE(set);
    ASSERT_EQ(set->count, 2u);
    EXPECT_STREQ(lyd_get_value(set->dnodes[0]), "a");
    EXPECT_STREQ(lyd_get_value(set->dnodes[1]), "b");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangTree, FindInstanceLooksBelowAnOperationWithoutItsInputLevel) {
    const Tree tree{zam_lyd_parse_op(ctx(), R"({"sample:run":{"speed":3}})", LYD_JSON, LYD_TYPE_RPC_YANG)};
    const Set set{zam_lyd_find_instance(tree.get(), schema("/sample:run/speed"))};
    ASSERT_TRUE(set);
    EXPECT_EQ(set->count, 1u);
}

TEST_F(LibyangTree, FindInstanceGivesAnEmptySetWhenThereIsNone) {
    const Tree tree = parse(two_items);
    const Set set{zam_lyd_find_instance(tree.get(), schema("/sample:top/note"))};
    ASSERT_TRUE(set);
    EXPECT_EQ(set->count, 0u);
}

TEST_F(LibyangTree, FindInstanceWithoutASchemaNodeFails) {
    const Tree tree = parse(two_items);
    LogCapture log;
    EXPECT_FALSE(zam_lyd_find_instance(tree.get(), nullptr));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(3, "[libyang]Get path by schema node for set unsuccessful."), 1);
}

TEST_F(LibyangTree, FindInstanceWithoutATreeFails) {
    LogCapture log;
    EXPECT_FALSE(zam_lyd_find_instance(nullptr, schema("/sample:top/note")));
    EXPECT_EQ(log.count(3, "[libyang]Find set unsuccessful ret : 3."), 1);
}

TEST_F(LibyangTree, FirstSiblingGoesBackToTheStart) {
    const Tree tree = parse(two_tops);
    EXPECT_EQ(zam_lyd_first_sibling(tree->next), tree.get());
    EXPECT_EQ(zam_lyd_first_sibling(tree.get()), tree.get());
    EXPECT_FALSE(zam_lyd_first_sibling(nullptr));
}

TEST_F(LibyangTree, UnlinkTakesANodeWithItsChildrenOut) {
    const Tree tree = parse(two_items);
    lyd_node *const item = lyd_child(tree.get());
    zam_lyd_unlink(item);
    const Tree taken{item};
    EXPECT_FALSE(item->parent);
    EXPECT_STREQ(lyd_get_value(lyd_child(item)), "a");
    EXPECT_EQ(print_json(tree.get()), R"({"sample:top":{"item":[{"name":"b"}]}})");
    zam_lyd_unlink(nullptr);
}

TEST_F(LibyangTree, FreeLeavesTheSiblings) {
    const Tree tree = parse(two_items);
    zam_lyd_free(lyd_child(tree.get()));
    EXPECT_EQ(print_json(tree.get()), R"({"sample:top":{"item":[{"name":"b"}]}})");
    zam_lyd_free(nullptr);
}

TEST_F(LibyangTree, FreeMetaSiblingsFreesAllFromTheGivenOneOn) {
    const Tree tree = parse(two_tops);
    ASSERT_EQ(zam_lyd_new_meta(tree.get(), nullptr, nullptr, "sample:mark", "red"), LY_SUCCESS);
    ASSERT_EQ(zam_lyd_new_meta(tree.get(), nullptr, nullptr, "sample:mark", "blue"), LY_SUCCESS);
    ASSERT_TRUE(tree->meta && tree->meta->next);
    zam_lyd_free_meta_siblings(tree->meta);
    EXPECT_FALSE(tree->meta);
    zam_lyd_free_meta_siblings(nullptr);
}

TEST_F(LibyangPrint, MemIsAlwaysShrunk) {
    const Tree tree = parse(two_items);
    EXPECT_EQ(print_json(tree.get(), 0), two_items);
    EXPECT_EQ(print_xml(tree.get(), 0),
              R"(<top xmlns="urn:sample"><item><name>a</name></item><item><name>b</name></item></top>)");
}

TEST_F(LibyangPrint, MemPrintsSiblingsOnlyWhenToldTo) {
    const Tree tree = parse(two_tops);
    EXPECT_EQ(print_json(tree.get(), LYD_PRINT_WITHSIBLINGS), two_tops);
    EXPECT_EQ(print_json(tree.get(), 0), R"({"sample:top":{"note":"x"}})");
}

TEST_F(LibyangPrint, MemKeepsEmptyContainersOnlyWhenToldTo) {
    const Tree tree = parse(R"({"sample:top":{"note":"x","empty":{}}})");
    EXPECT_EQ(print_json(tree.get(), LYD_PRINT_KEEPEMPTYCONT), R"({"sample:top":{"note":"x","empty":{}}})");
    EXPECT_EQ(print_json(tree.get(), 0), R"({"sample:top":{"note":"x"}})");
}

TEST_F(LibyangPrint, MemOfNoTreeGivesNoTextButSuccessAndOneLine) {
    for (const LYD_FORMAT format : {LYD_JSON, LYD_XML}) {
        char place = 0;
        char *text = &place;
        LogCapture log;
        EXPECT_EQ(zam_lyd_print_mem(&text, nullptr, format, 5), LY_SUCCESS);
        EXPECT_EQ(text, nullptr);
        ASSERT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.count(3, "[libyang]Print mem unsuccessful, ret : 0"), 1);
    }
}

TEST_F(LibyangPrint, MemFailureGivesLibyangsCodeAndNoText) {
    const Tree tree = parse(two_items);
    char place = 0;
    char *text = &place;
    LogCapture log;
    const LY_ERR result = zam_lyd_print_mem(&text, tree.get(), LYD_UNKNOWN, 0);
    EXPECT_NE(result, LY_SUCCESS);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(log.count(3, "[libyang]Print mem unsuccessful, ret : " + std::to_string(result)), 1);
}

// An anydata that claims to hold text is what libyang's printers refuse in the middle of their work.
TEST_F(LibyangPrint, MemFailureHalfwayFreesThePartThatWasPrinted) {
    const Tree tree = parse(R"({"sample:top":{"note":"x","blob":{}}})");
    auto *const blob = reinterpret_cast<lyd_node_any *>(last_child(tree.get()));
    ASSERT_STREQ(blob->schema->name, "blob");
    ASSERT_FALSE(blob->value.tree);
    blob->value_type = LYD_ANYDATA_LYB;
    char *text = nullptr;
    LogCapture log;
    const LY_ERR result = zam_lyd_print_mem(&text, tree.get(), LYD_JSON, 0);
    EXPECT_NE(result, LY_SUCCESS);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(log.count(3, "[libyang]Print mem unsuccessful, ret : " + std::to_string(result)), 1);
    blob->value_type = LYD_ANYDATA_DATATREE;
}

TEST_F(LibyangPrint, MemWithoutAPlaceForTheTextIsRefused) {
    const Tree tree = parse(two_items);
    LogCapture log;
    EXPECT_EQ(zam_lyd_print_mem(nullptr, tree.get(), LYD_JSON, 0), LY_EINVAL);
}

TEST_F(LibyangPrint, FileGetsTheOptionsAsTheyAre) {
    const TempDir dir;
    const Tree tree = parse(R"({"sample:top":{"note":"x"}})");
    for (const auto &[options, expected] : std::initializer_list<std::pair<uint32_t, const char *>>{
             {0, "{\n  \"sample:top\": {\n    \"note\": \"x\"\n  }\n}\n"},
             {LYD_PRINT_SHRINK, R"({"sample:top":{"note":"x"}})"}}) {
        FILE *const file = std::fopen(dir.path("out").c_str(), "w");
        ASSERT_TRUE(file);
        LogCapture log;
        EXPECT_EQ(zam_lyd_print_file(file, tree.get(), LYD_JSON, options), LY_SUCCESS);
        EXPECT_THAT(log.lines(), IsEmpty());
        std::fclose(file);
        EXPECT_EQ(read_file(dir.path("out")), expected);
    }
}

TEST_F(LibyangPrint, FileFailureIsLoggedWithItsCode) {
    const Tree tree = parse(two_items);
    LogCapture log;
    EXPECT_EQ(zam_lyd_print_file(nullptr, tree.get(), LYD_JSON, 0), LY_EINVAL);
    EXPECT_EQ(log.count(3, "[libyang]Print file unsuccessful, ret : 3"), 1);
}

TEST_F(LibyangPrint, FileOfNoTreeDoesNotCrash) {
    const TempDir dir;
    FILE *const file = std::fopen(dir.path("out").c_str(), "w");
    ASSERT_TRUE(file);
    LogCapture log;
    zam_lyd_print_file(file, nullptr, LYD_JSON, LYD_PRINT_SHRINK);
    std::fclose(file);
}

TEST_F(LibyangOpaque, ANodeOfItsOwnHasNameValueAndModuleButNoPrefix) {
    LogCapture log;
    const Tree node{zam_lyd_new_opaq(nullptr, ctx(), "extra", "v", "sample")};
    ASSERT_TRUE(node);
    EXPECT_THAT(log.lines(), IsEmpty());
    const auto *const opaque = reinterpret_cast<const lyd_node_opaq *>(node.get());
    EXPECT_FALSE(node->schema);
    EXPECT_STREQ(opaque->name.name, "extra");
    EXPECT_STREQ(opaque->name.module_name, "sample");
    EXPECT_FALSE(opaque->name.prefix);
    EXPECT_STREQ(opaque->value, "v");
}

TEST_F(LibyangOpaque, WithAParentItBecomesTheLastChild) {
    const Tree tree = parse(R"({"sample:top":{"note":"x"}})");
    const lyd_node *const node = zam_lyd_new_opaq(tree.get(), nullptr, "extra", "v", "sample");
    ASSERT_TRUE(node);
    EXPECT_EQ(last_child(tree.get()), node);
    EXPECT_EQ(print_json(tree.get()), R"({"sample:top":{"note":"x","extra":"v"}})");
}

TEST_F(LibyangOpaque, AnOpaqueParentNeedsTheModule) {
    const Tree parent{zam_lyd_new_opaq(nullptr, ctx(), "outer", nullptr, "sample")};
    ASSERT_TRUE(parent);
    LogCapture log;
    EXPECT_FALSE(zam_lyd_new_opaq(parent.get(), nullptr, "inner", "v", nullptr));
    EXPECT_EQ(log.count(3, "[libyang]New opaq unsuccessful, name : inner, value : v, module : (null), ret : 3"), 1);
    EXPECT_TRUE(zam_lyd_new_opaq(parent.get(), nullptr, "inner", "v", "sample"));
}

TEST_F(LibyangOpaque, AFailureNamesWhatWasAskedFor) {
    LogCapture log;
    EXPECT_FALSE(zam_lyd_new_opaq(nullptr, nullptr, "extra", "v", "sample"));
    EXPECT_EQ(log.count(3, "[libyang]New opaq unsuccessful, name : extra, value : v, module : sample, ret : 3"), 1);
    EXPECT_FALSE(zam_lyd_new_opaq(nullptr, ctx(), nullptr, nullptr, nullptr));
    EXPECT_EQ(log.count(3, "[libyang]New opaq unsuccessful, name : (null), value : (null), module : (null), ret : 3"),
              1);
}

TEST_F(LibyangMeta, NoNodeIsRefusedWithoutALine) {
    LogCapture log;
    EXPECT_EQ(zam_lyd_new_meta(nullptr, "sample", "mark", "sample:mark", "red"), LY_EINVAL);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangMeta, ADataNodeGetsMetadataByTheQualifiedName) {
    const Tree tree = parse(two_tops);
    LogCapture log;
    EXPECT_EQ(zam_lyd_new_meta(tree.get(), "ignored", "also-ignored", "sample:mark", "red"), LY_SUCCESS);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(7, "[libyang]New meta, node_name: top, attr_module: ignored, attr_name: also-ignored, name: "
                           "sample:mark, val_str: red"),
              1);
    ASSERT_TRUE(tree->meta);
    EXPECT_STREQ(tree->meta->name, "mark");
    EXPECT_STREQ(lyd_get_meta_value(tree->meta), "red");
    EXPECT_STREQ(tree->meta->annotation->module->name, "sample");
}

TEST_F(LibyangMeta, TheDefaultFlagOfTheNodeStays) {
    const Tree tree = parse(two_tops);
    tree->flags |= LYD_DEFAULT;
    ASSERT_EQ(zam_lyd_new_meta(tree.get(), nullptr, nullptr, "sample:mark", "red"), LY_SUCCESS);
    EXPECT_TRUE(tree->flags & LYD_DEFAULT);
}

TEST_F(LibyangMeta, AValueThatTheAnnotationRefusesFails) {
    const Tree tree = parse(two_tops);
    LogCapture log;
    const LY_ERR result = zam_lyd_new_meta(tree.get(), nullptr, nullptr, "sample:mark", "green");
    EXPECT_EQ(result, LY_EVALID);
    EXPECT_EQ(log.count(3, "[libyang]New meta unsuccessful, name: sample:mark, value: green, ret : 7"), 1);
    EXPECT_EQ(log.count(7, "[libyang]New meta, node_name: top, attr_module: (null), attr_name: (null), name: "
                           "sample:mark, val_str: green"),
              1);
    EXPECT_FALSE(tree->meta);
}

TEST_F(LibyangMeta, AnUnknownAnnotationFails) {
    const Tree tree = parse(two_tops);
    for (const char *name : {"sample:none", "no-such-module:mark", "mark"}) {
        LogCapture log;
        const LY_ERR result = zam_lyd_new_meta(tree.get(), nullptr, nullptr, name, "red");
        EXPECT_NE(result, LY_SUCCESS) << name;
        EXPECT_EQ(log.count(3, "[libyang]New meta unsuccessful, name: " + std::string{name} +
                                   ", value: red, ret : " + std::to_string(result)),
                  1);
    }
}

TEST_F(LibyangMeta, NullNamesAndValuesFail) {
    const Tree tree = parse(two_tops);
    const Tree opaque{zam_lyd_new_opaq(nullptr, ctx(), "extra", "v", "sample")};
    LogCapture log;
    EXPECT_NE(zam_lyd_new_meta(tree.get(), nullptr, nullptr, nullptr, nullptr), LY_SUCCESS);
    EXPECT_EQ(zam_lyd_new_meta(opaque.get(), nullptr, nullptr, nullptr, nullptr), LY_EINVAL);
    EXPECT_EQ(log.count(3, "[libyang]New attr unsuccessful, name: (null), value: (null), ret : 3"), 1);
}

TEST_F(LibyangMeta, AnOpaqueNodeGetsAnAttributeByTheSecondAndThirdArgument) {
    const Tree node{zam_lyd_new_opaq(nullptr, ctx(), "extra", "v", "sample")};
    LogCapture log;
    EXPECT_EQ(zam_lyd_new_meta(node.get(), "sample", "mark", "other:ignored", "anything"), LY_SUCCESS);
    EXPECT_EQ(log.count(7, "[libyang]New meta, node_name: extra, attr_module: sample, attr_name: mark, name: "
                           "other:ignored, val_str: anything"),
              1);
    const auto *const opaque = reinterpret_cast<const lyd_node_opaq *>(node.get());
    ASSERT_TRUE(opaque->attr);
    EXPECT_STREQ(opaque->attr->name.name, "mark");
    EXPECT_STREQ(opaque->attr->name.module_name, "sample");
    EXPECT_STREQ(opaque->attr->value, "anything");
}

TEST_F(LibyangMeta, AnAttributeMayHaveNoModule) {
    const Tree node{zam_lyd_new_opaq(nullptr, ctx(), "extra", "v", "sample")};
    LogCapture log;
    EXPECT_EQ(zam_lyd_new_meta(node.get(), nullptr, "mark", nullptr, "red"), LY_SUCCESS);
    const lyd_attr *const attribute = reinterpret_cast<const lyd_node_opaq *>(node.get())->attr;
    ASSERT_TRUE(attribute);
    EXPECT_STREQ(attribute->name.name, "mark");
    EXPECT_FALSE(attribute->name.module_name);
}

// A parser at the other end drops an attribute without a namespace.
TEST_F(LibyangMeta, AnAttributeKeepsItsModuleInXml) {
    const Tree top = parse(R"({"sample:top":{"note":"x"}})");
    lyd_node *const node = zam_lyd_new_opaq(top.get(), nullptr, "extra", "v", "sample");
    ASSERT_EQ(zam_lyd_new_meta(node, "sample", "mark", nullptr, "red"), LY_SUCCESS);
    const std::string xml = print_xml(top.get());
    const Tree again{
        zam_lyd_parse_data_mem(ctx(), xml.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_OPAQ, LYD_VALIDATE_PRESENT)};
    ASSERT_TRUE(again) << xml;
    const auto *const extra = reinterpret_cast<const lyd_node_opaq *>(last_child(again.get()));
    ASSERT_TRUE(extra->attr) << xml;
    EXPECT_STREQ(extra->attr->name.name, "mark");
    EXPECT_STREQ(extra->attr->name.module_ns, "urn:sample");
    EXPECT_STREQ(extra->attr->value, "red");
}

TEST_F(LibyangMeta, AnAttributePrintsAsMetadataInJson) {
    const Tree node{zam_lyd_new_opaq(nullptr, ctx(), "extra", "v", "other")};
    ASSERT_EQ(zam_lyd_new_meta(node.get(), "sample", "mark", nullptr, "red"), LY_SUCCESS);
    EXPECT_EQ(print_json(node.get()), R"({"other:extra":"v","@other:extra":{"sample:mark":"red"}})");
}

TEST_F(LibyangNodeModule, NoNodeHasNone) {
    LogCapture log;
    EXPECT_FALSE(zam_lyd_node_module(nullptr));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LibyangNodeModule, ADataNodeHasThatOfItsSchema) {
    const Tree tree = parse(two_tops);
    EXPECT_EQ(zam_lyd_node_module(tree.get()), module());
}

TEST_F(LibyangNodeModule, AnOpaqueNodeOfJsonIsLookedUpByName) {
    const Tree node{zam_lyd_new_opaq(nullptr, ctx(), "extra", "v", "sample")};
    EXPECT_EQ(zam_lyd_node_module(node.get()), module());
}

TEST_F(LibyangNodeModule, AnOpaqueNodeOfXmlIsLookedUpByNamespace) {
    const Tree tree{zam_lyd_parse_data_mem(ctx(), R"(<extra xmlns="urn:sample">v</extra>)", LYD_XML,
                                           LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0)};
    ASSERT_TRUE(tree && !tree->schema);
    EXPECT_EQ(zam_lyd_node_module(tree.get()), module());
}

TEST_F(LibyangNodeModule, AModuleThatIsNotImplementedIsNotFound) {
    LogCapture log;
    const Tree json{zam_lyd_new_opaq(nullptr, ctx(), "extra", "v", "no-such-module")};
    EXPECT_FALSE(zam_lyd_node_module(json.get()));
    const Tree xml{zam_lyd_parse_data_mem(ctx(), R"(<extra xmlns="urn:none">v</extra>)", LYD_XML,
                                          LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0)};
    ASSERT_TRUE(xml);
    EXPECT_FALSE(zam_lyd_node_module(xml.get()));
}

TEST_F(LibyangNodeModule, AnyOtherFormatIsUnknown) {
    const Tree node{zam_lyd_new_opaq(nullptr, ctx(), "extra", "v", "sample")};
    auto *const opaque = reinterpret_cast<lyd_node_opaq *>(node.get());
    const LY_VALUE_FORMAT format = opaque->format;
    opaque->format = LY_VALUE_LYB;
    LogCapture log;
    EXPECT_FALSE(zam_lyd_node_module(node.get()));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count(3, "Get module name unsuccessful , unknown format(" + std::to_string(LY_VALUE_LYB) + ")."), 1);
    opaque->format = format;
}

// Takes the module away from an opaque node, as a node without a prefix in JSON below another opaque one has it.
lyd_node *_without_module(lyd_node *node) {
    auto *const opaque = reinterpret_cast<lyd_node_opaq *>(node);
    lydict_remove(opaque->ctx, opaque->name.module_name);
    opaque->name.module_name = nullptr;
    return node;
}

TEST_F(LibyangNodeModule, WithoutAReferenceItIsThatOfTheNearestAncestorWithASchema) {
    const Tree tree = parse(R"({"sample:top":{"note":"x"}})");
    lyd_node *const outer = zam_lyd_new_opaq(tree.get(), nullptr, "outer", nullptr, "no-such-module");
    lyd_node *const inner = _without_module(zam_lyd_new_opaq(outer, nullptr, "inner", "v", "sample"));
    EXPECT_EQ(zam_lyd_node_module(inner), module()) << "opaque ancestors do not count";
}

TEST_F(LibyangNodeModule, WithoutAReferenceUnderAnOpaqueRootThereIsNone) {
    const Tree root{zam_lyd_new_opaq(nullptr, ctx(), "outer", nullptr, "sample")};
    lyd_node *const inner = _without_module(zam_lyd_new_opaq(root.get(), nullptr, "inner", "v", "sample"));
    LogCapture log;
    EXPECT_FALSE(zam_lyd_node_module(inner));
    EXPECT_THAT(log.lines(), IsEmpty());
}

} // namespace
