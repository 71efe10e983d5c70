// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <cstring>

#include "yang/yang_tree_data_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;

class TreeNode : public SchemaTest {
protected:
    static Tree top() { return Tree{zam_lyd_new_inner(nullptr, module("test-main"), "top")}; }
    static Tree operation(const char *module_name, const char *name) {
        return Tree{zam_lyd_new_inner(nullptr, module(module_name), name)};
    }
};

// A tree that only an anydata would hold.
Tree content() {
    return parse_json(R"({"test-main:single":"inside"})");
}

TEST_F(TreeNode, AnInnerNodeIsATopNodeWithoutAParent) {
    const Tree node = top();
    ASSERT_TRUE(node);
    EXPECT_EQ(node->parent, nullptr);
    EXPECT_EQ(to_json(node), R"({"test-main:top":{}})");
}

TEST_F(TreeNode, AnOperationAndANotificationAreInnerNodes) {
    EXPECT_EQ(to_json(operation("test-main", "run")), R"({"test-main:run":{}})");
    EXPECT_EQ(to_json(operation("test-main", "alarm")), R"({"test-main:alarm":{}})");
}

TEST_F(TreeNode, AnInnerNodeIsAChildOfItsParent) {
    const Tree parent = top();
    lyd_node *node = zam_lyd_new_inner(parent.get(), nullptr, "sub");
    ASSERT_TRUE(node);
    EXPECT_EQ(parent_of(node), parent.get());
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"sub":{}}})");
}

TEST_F(TreeNode, AnInnerNodeThatTheSchemaDoesNotHaveIsRefused) {
    const LogCapture log;
    EXPECT_EQ(zam_lyd_new_inner(nullptr, module("test-main"), "nowhere"), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]New input inner(nowhere) unsuccessful."), 1);
}

TEST_F(TreeNode, AListEntryIsMadeByItsKeys) {
    const Tree parent = top();
    ASSERT_TRUE(zam_lyd_new_list(parent.get(), nullptr, "item", "[name='x']"));
    ASSERT_TRUE(zam_lyd_new_list(parent.get(), nullptr, "four", "[d='4'][c='3'][b='2'][a='1']"));
    EXPECT_EQ(to_json(parent),
              R"({"test-main:top":{"item":[{"name":"x"}],"four":[{"a":"1","b":"2","c":"3","d":"4"}]}})");
}

TEST_F(TreeNode, AListWithoutKeysNeedsNone) {
    const Tree parent = operation("test-main", "top");
    ASSERT_TRUE(zam_lyd_new_list(parent.get(), nullptr, "reading", nullptr));
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"reading":[{}]}})");
}

TEST_F(TreeNode, AListEntryWithoutAllItsKeysIsRefused) {
    const Tree parent = top();
    const LogCapture log;
    EXPECT_EQ(zam_lyd_new_list(parent.get(), nullptr, "item", "[value='1']"), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]New input list(item) unsuccessful, keys : [value='1']."), 1);
    EXPECT_EQ(children(parent.get()).size(), 0u);
}

TEST_F(TreeNode, ALeafTakesItsValue) {
    const Tree parent = top();
    const lyd_node *leaf = zam_lyd_new_leaf(parent.get(), nullptr, "number", "007");
    ASSERT_TRUE(leaf);
    EXPECT_STREQ(zam_lyd_value_string(leaf), "7");
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"number":7}})");
}

TEST_F(TreeNode, ALeafListEntryIsMadeLikeALeaf) {
    const Tree parent = top();
    ASSERT_TRUE(zam_lyd_new_leaf(parent.get(), nullptr, "tag", "a"));
    ASSERT_TRUE(zam_lyd_new_leaf(parent.get(), nullptr, "tag", "b"));
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"tag":["a","b"]}})");
}

TEST_F(TreeNode, ALeafThatItsTypeForbidsIsRefusedWithoutAFullStop) {
    const Tree parent = top();
    const LogCapture log;
    EXPECT_EQ(zam_lyd_new_leaf(parent.get(), nullptr, "number", "300"), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]New input leaf(number) unsuccessful, value : 300"), 1);
}

TEST_F(TreeNode, ChildrenStandInSchemaOrderAndOpaqueOnesLast) {
    const Tree parent = top();
    ASSERT_TRUE(new_opaque(parent.get(), "strange", "1"));
    ASSERT_TRUE(zam_lyd_new_leaf(parent.get(), nullptr, "number", "1"));
    ASSERT_TRUE(zam_lyd_new_leaf(parent.get(), nullptr, "text", "a"));
    EXPECT_THAT(children(parent.get()), ElementsAre("text", "number", "strange"));
}

TEST_F(TreeNode, ANodeOfAnotherModuleNeedsItsModule) {
    const Tree parent = top();
    const LogCapture log;
    EXPECT_EQ(zam_lyd_new_leaf(parent.get(), nullptr, "extra", "x"), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]New input leaf(extra) unsuccessful, value : x"), 1);
    EXPECT_TRUE(zam_lyd_new_leaf(parent.get(), module("test-extra"), "extra", "x"));
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"test-extra:extra":"x"}})");
}

TEST_F(TreeNode, AnAnydataTakesATreeOver) {
    const Tree parent = top();
    Tree tree = content();
    lyd_node *any = zam_lyd_new_any(parent.get(), nullptr, "any", tree.get(), LYD_ANYDATA_DATATREE);
    ASSERT_TRUE(any);
    EXPECT_EQ(reinterpret_cast<lyd_node_any *>(any)->value.tree, tree.release());
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"any":{"single":"inside"}}})");
}

TEST_F(TreeNode, AnAnydataCopiesAnyOtherValue) {
    const Tree parent = top();
    std::string text = R"({"test-main:single":"copied"})";
    ASSERT_TRUE(zam_lyd_new_any(parent.get(), nullptr, "any", text.c_str(), LYD_ANYDATA_JSON));
    text.assign(text.size(), 'x');
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"any":{"single":"copied"}}})");
}

TEST_F(TreeNode, AnAnyxmlKeepsItsText) {
    const Tree parent = top();
    std::string text = "plain";
    ASSERT_TRUE(zam_lyd_new_any(parent.get(), nullptr, "xml", text.c_str(), LYD_ANYDATA_STRING));
    text.assign(text.size(), 'x');
    EXPECT_EQ(to_xml(parent), "<top xmlns=\"urn:test:main\"><xml>plain</xml></top>");
}

TEST_F(TreeNode, AnAnydataWithoutAValueIsEmptyForEveryType) {
    for (const LYD_ANYDATA_VALUETYPE type :
         {LYD_ANYDATA_DATATREE, LYD_ANYDATA_STRING, LYD_ANYDATA_XML, LYD_ANYDATA_JSON}) {
        const Tree parent = top();
        EXPECT_TRUE(zam_lyd_new_any(parent.get(), nullptr, "any", nullptr, type)) << type;
        EXPECT_EQ(to_json(parent), R"({"test-main:top":{"any":{}}})") << type;
    }
}

TEST_F(TreeNode, AnAnydataWithAnEmptyTextIsEmpty) {
    const Tree parent = top();
    EXPECT_TRUE(zam_lyd_new_any(parent.get(), nullptr, "any", "", LYD_ANYDATA_STRING));
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"any":{}}})");
}

TEST_F(TreeNode, ARefusedAnydataLeavesTheTreeToTheCaller) {
    const Tree parent = top();
    const Tree tree = content();
    const LogCapture log;
    EXPECT_EQ(zam_lyd_new_any(parent.get(), nullptr, "nothing", tree.get(), LYD_ANYDATA_DATATREE), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]New input any(nothing) unsuccessful, ret : 5."), 1);
    EXPECT_EQ(to_json(tree), R"({"test-main:single":"inside"})");
}

TEST_F(TreeNode, AnAnydataTextThatDoesNotParseIsRefused) {
    const Tree parent = top();
    const LogCapture log;
    EXPECT_EQ(zam_lyd_new_any(parent.get(), nullptr, "any", "words", LYD_ANYDATA_STRING), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]New input any(any) unsuccessful, ret : 3."), 1);
}

TEST_F(TreeNode, OutputNodesAreFoundBelowAnOperation) {
    const Tree root = operation("test-kinds", "compute");
    ASSERT_TRUE(zam_lyd_new_output_leaf(root.get(), nullptr, "result", "5"));
    ASSERT_TRUE(zam_lyd_new_output_inner(root.get(), nullptr, "found"));
    ASSERT_TRUE(zam_lyd_new_output_list(root.get(), nullptr, "row", "[id='r']"));
    Tree tree = content();
    ASSERT_TRUE(zam_lyd_new_output_any(root.get(), nullptr, "rest", tree.get(), LYD_ANYDATA_DATATREE));
    tree.release();
    EXPECT_EQ(to_json(root), R"({"test-kinds:compute":{"result":5,"found":{},"row":[{"id":"r"}],)"
                             R"("rest":{"test-main:single":"inside"}}})");
}

TEST_F(TreeNode, AnOutputAnydataCopiesText) {
    const Tree root = operation("test-kinds", "compute");
    std::string text = R"({"test-main:single":"copied"})";
    ASSERT_TRUE(zam_lyd_new_output_any(root.get(), nullptr, "rest", text.c_str(), LYD_ANYDATA_JSON));
    text.assign(text.size(), 'x');
    EXPECT_EQ(to_json(root), R"({"test-kinds:compute":{"rest":{"test-main:single":"copied"}}})");
}

TEST_F(TreeNode, TheRootOfAnOutputMayBeMadeEitherWay) {
    const Tree root{zam_lyd_new_output_inner(nullptr, module("test-kinds"), "compute")};
    EXPECT_EQ(to_json(root), R"({"test-kinds:compute":{}})");
}

TEST_F(TreeNode, InputNodesAreNoOutputNodes) {
    const Tree root = operation("test-kinds", "compute");
    const LogCapture log;
    EXPECT_EQ(zam_lyd_new_output_inner(root.get(), nullptr, "given"), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]New output inner(given) unsuccessful."), 1);
    EXPECT_EQ(zam_lyd_new_output_leaf(root.get(), nullptr, "p", "1"), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]New output leaf(p) unsuccessful, value : 1."), 1);
    EXPECT_EQ(zam_lyd_new_output_list(root.get(), nullptr, "given", "[id='1']"), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]New output list(given) unsuccessful, keys : [id='1']."), 1);
    EXPECT_EQ(zam_lyd_new_output_any(root.get(), nullptr, "given", nullptr, LYD_ANYDATA_DATATREE), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]New output any(given) unsuccessful, ret : 5."), 1);
}

TEST_F(TreeNode, OutputNodesAreNoInputNodes) {
    const Tree root = operation("test-kinds", "compute");
    EXPECT_EQ(zam_lyd_new_inner(root.get(), nullptr, "found"), nullptr);
    EXPECT_EQ(zam_lyd_new_leaf(root.get(), nullptr, "result", "1"), nullptr);
    EXPECT_EQ(zam_lyd_new_list(root.get(), nullptr, "row", "[id='1']"), nullptr);
    EXPECT_EQ(zam_lyd_new_any(root.get(), nullptr, "rest", nullptr, LYD_ANYDATA_DATATREE), nullptr);
    EXPECT_EQ(to_json(root), R"({"test-kinds:compute":{}})");
}

using InnerMaker = lyd_node *(*)(lyd_node *, const lys_module *);
constexpr InnerMaker makers[] = {
    [](lyd_node *parent, const lys_module *module) { return zam_lyd_new_inner(parent, module, "sub"); },
    [](lyd_node *parent, const lys_module *module) { return zam_lyd_new_list(parent, module, "item", "[name='x']"); },
    [](lyd_node *parent, const lys_module *module) { return zam_lyd_new_leaf(parent, module, "text", "x"); },
    [](lyd_node *parent, const lys_module *module) {
        return zam_lyd_new_any(parent, module, "any", nullptr, LYD_ANYDATA_DATATREE);
    },
    [](lyd_node *parent, const lys_module *module) { return zam_lyd_new_output_inner(parent, module, "sub"); },
    [](lyd_node *parent, const lys_module *module) {
        return zam_lyd_new_output_list(parent, module, "item", "[name='x']");
    },
    [](lyd_node *parent, const lys_module *module) { return zam_lyd_new_output_leaf(parent, module, "text", "x"); },
    [](lyd_node *parent, const lys_module *module) {
        return zam_lyd_new_output_any(parent, module, "any", nullptr, LYD_ANYDATA_DATATREE);
    },
};

TEST_F(TreeNode, NoMakerTakesAnOpaqueParentWithoutAModule) {
    const Tree parent{new_opaque(nullptr, "top", nullptr)};
    for (const InnerMaker make : makers) {
        const LogCapture log;
        EXPECT_EQ(make(parent.get(), nullptr), nullptr);
        EXPECT_TRUE(log.mentions("unsuccessful"));
    }
    EXPECT_EQ(children(parent.get()).size(), 0u);
}

TEST_F(TreeNode, NoMakerWorksWithoutAParentAndAModule) {
    for (const InnerMaker make : makers) {
        const LogCapture log;
        EXPECT_EQ(make(nullptr, nullptr), nullptr);
        EXPECT_TRUE(log.mentions("unsuccessful"));
    }
}

TEST_F(TreeNode, NoMakerCrashesOnANullName) {
    const Tree parent = top();
    EXPECT_EQ(zam_lyd_new_inner(parent.get(), nullptr, nullptr), nullptr);
    EXPECT_EQ(zam_lyd_new_list(parent.get(), nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(zam_lyd_new_leaf(parent.get(), nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(zam_lyd_new_any(parent.get(), nullptr, nullptr, nullptr, LYD_ANYDATA_STRING), nullptr);
    EXPECT_EQ(zam_lyd_new_output_inner(parent.get(), nullptr, nullptr), nullptr);
    EXPECT_EQ(zam_lyd_new_output_list(parent.get(), nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(zam_lyd_new_output_leaf(parent.get(), nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(zam_lyd_new_output_any(parent.get(), nullptr, nullptr, nullptr, LYD_ANYDATA_STRING), nullptr);
}

TEST_F(TreeNode, MakersWorkBelowALightweightNode) {
    const Tree parent = lightweight("/test-main:top");
    ASSERT_TRUE(zam_lyd_new_leaf(parent.get(), nullptr, "text", "x"));
    ASSERT_TRUE(zam_lyd_new_inner(parent.get(), nullptr, "sub"));
    EXPECT_EQ(to_json(parent), R"({"test-main:top":{"text":"x","sub":{}}})");
}

TEST_F(TreeNode, ALeafChangesItsValue) {
    const Tree tree = parse_json(R"({"test-main:top":{"number":5}})");
    const LogCapture log;
    EXPECT_EQ(zam_lyd_change_leaf(child(tree.get(), "number"), "6"), LY_SUCCESS);
    EXPECT_EQ(to_json(tree), R"({"test-main:top":{"number":6}})");
    EXPECT_EQ(log.all(), "");
}

TEST_F(TreeNode, TheSameValueAgainIsLoggedAsAFailure) {
    const Tree tree = parse_json(R"({"test-main:top":{"number":5}})");
    const LogCapture log;
    EXPECT_EQ(zam_lyd_change_leaf(child(tree.get(), "number"), "5"), LY_ENOT);
    EXPECT_EQ(log.count(3, "[libyang]Change leaf value unsuccessful, value : 5, ret : 11."), 1);
}

TEST_F(TreeNode, AValueThatTheTypeForbidsLeavesTheOldOne) {
    const Tree tree = parse_json(R"({"test-main:top":{"number":5}})");
    const LogCapture log;
    EXPECT_EQ(zam_lyd_change_leaf(child(tree.get(), "number"), "x"), LY_EVALID);
    EXPECT_EQ(log.count(3, "[libyang]Change leaf value unsuccessful, value : x, ret : 7."), 1);
    EXPECT_EQ(to_json(tree), R"({"test-main:top":{"number":5}})");
}

TEST_F(TreeNode, OnlyALeafCanChange) {
    const Tree tree = top();
    const Tree strange{new_opaque(nullptr, "top", nullptr)};
    EXPECT_NE(zam_lyd_change_leaf(nullptr, "1"), LY_SUCCESS);
    EXPECT_NE(zam_lyd_change_leaf(tree.get(), "1"), LY_SUCCESS);
    EXPECT_NE(zam_lyd_change_leaf(strange.get(), "1"), LY_SUCCESS);
}

TEST_F(TreeNode, AChangeToNoTextIsAChangeToTheEmptyOne) {
    const Tree tree = parse_json(R"({"test-main:top":{"text":"x"}})");
    EXPECT_EQ(zam_lyd_change_leaf(child(tree.get(), "text"), nullptr), LY_SUCCESS);
    EXPECT_EQ(to_json(tree), R"({"test-main:top":{"text":""}})");
}

TEST_F(TreeNode, ACopyHasNoParentAndOnDemandItsDescendants) {
    const Tree tree = parse_json(R"({"test-main:top":{"sub":{"a":"x","inner":{"c":"y"}},"text":"t"}})");
    const lyd_node *sub = child(tree.get(), "sub");
    const Tree alone{zam_lyd_dup(sub, 0)};
    const Tree whole{zam_lyd_dup(sub, LYD_DUP_RECURSIVE)};
    ASSERT_TRUE(alone && whole);
    EXPECT_EQ(alone->parent, nullptr);
    EXPECT_EQ(zam_lyd_child(alone.get()), nullptr);
    EXPECT_EQ(whole->parent, nullptr);
    EXPECT_EQ(whole->next, nullptr);
    EXPECT_EQ(to_json(whole), R"({"test-main:sub":{"a":"x","inner":{"c":"y"}}})");
}

TEST_F(TreeNode, ACopyOfALightweightNodeIsLibyangs) {
    const Tree tree = lightweight("/test-main:top");
    ASSERT_TRUE(zam_lyd_new_leaf(tree.get(), nullptr, "text", "x"));
    const Tree copy{zam_lyd_dup(tree.get(), LYD_DUP_RECURSIVE)};
    ASSERT_TRUE(copy);
    EXPECT_FALSE(is_lightweight(copy.get()));
    EXPECT_EQ(to_json(copy), R"({"test-main:top":{"text":"x"}})");
}

TEST_F(TreeNode, ACopyOfNothingIsALoggedFailure) {
    const LogCapture log;
    EXPECT_EQ(zam_lyd_dup(nullptr, 0), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]Dup unsuccessful, ret : 3."), 1);
}

class YangDataNode : public SchemaTest {
protected:
    static const lys_module *kinds() { return module("test-kinds"); }
};

TEST_F(YangDataNode, ANamedTemplateHoldsItsTopNode) {
    const Tree node{zam_lyd_new_yangdata(kinds(), "second-data", "two")};
    ASSERT_TRUE(node);
    EXPECT_EQ(node->parent, nullptr);
    ASSERT_TRUE(zam_lyd_new_leaf(node.get(), nullptr, "b", "x"));
    EXPECT_EQ(to_json(node), R"({"test-kinds:two":{"b":"x"}})");
}

TEST_F(YangDataNode, ANamedTemplateWithoutTheNodeFailsOnce) {
    const LogCapture log;
    EXPECT_EQ(zam_lyd_new_yangdata(kinds(), "first-data", "two"), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]New yangdata(two) unsuccessful, ret : 5."), 1);
    EXPECT_FALSE(log.mentions("yangdata(second-data)"));
}

TEST_F(YangDataNode, AnUnknownTemplateIsSilence) {
    const LogCapture log;
    EXPECT_EQ(zam_lyd_new_yangdata(kinds(), "third-data", "two"), nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST_F(YangDataNode, WithoutATemplateEveryInstanceIsTriedInTurn) {
    const LogCapture log;
    const Tree node{zam_lyd_new_yangdata(kinds(), nullptr, "two")};
    EXPECT_EQ(to_json(node), R"({"test-kinds:two":{}})");
    EXPECT_EQ(log.count(3, "[libyang]New yangdata(first-data)(two) unsuccessful, ret : 5."), 1);
    EXPECT_FALSE(log.mentions("New yangdata(second-data)"));
}

TEST_F(YangDataNode, WithoutATemplateEveryFailureHasItsLine) {
    const LogCapture log;
    EXPECT_EQ(zam_lyd_new_yangdata(kinds(), nullptr, "three"), nullptr);
    EXPECT_EQ(log.count(3, "[libyang]New yangdata(first-data)(three) unsuccessful, ret : 5."), 1);
    EXPECT_EQ(log.count(3, "[libyang]New yangdata(second-data)(three) unsuccessful, ret : 5."), 1);
    EXPECT_EQ(log.count(3, "[libyang]New yangdata(stamp)(three) unsuccessful, ret : 5."), 1);
}

TEST_F(YangDataNode, AModuleWithoutExtensionsOrNoModuleHasNone) {
    const LogCapture log;
    EXPECT_EQ(zam_lyd_new_yangdata(nullptr, nullptr, "one"), nullptr);
    EXPECT_EQ(zam_lyd_new_yangdata(module("test-main"), nullptr, "top"), nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST_F(YangDataNode, ANullNameIsRefused) {
    EXPECT_EQ(zam_lyd_new_yangdata(kinds(), "first-data", nullptr), nullptr);
    EXPECT_EQ(zam_lyd_new_yangdata(kinds(), nullptr, nullptr), nullptr);
}

TEST_F(YangDataNode, TheLibrarysOwnErrorTemplateIsFound) {
    const Tree node{zam_lyd_new_yangdata(module("ietf-netconf"), "yang-errors", "rpc-error")};
    EXPECT_EQ(to_json(node), R"({"ietf-netconf:rpc-error":{}})");
}

} // namespace
} // namespace zam::test
