// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <array>
#include <string>

#include <gtest/gtest.h>
#include <zamc/yang_module.h>
#include <zamc/yang_wrap.h>

#include "support/heap.h"
#include "support/log_capture.h"
#include "support/test_schema.h"

namespace {

using namespace zam::test;

class FindPath : public testing::Test {
protected:
    lyd_node *find(const char *path) { return zam_lyd_find_path(tree.get(), path); }

    // What was found, by its value or, of an inner node, by its JSON.
    std::string found(const char *path) {
        const lyd_node *node = find(path);
        if (!node) return "nothing";
        const char *value = zam_lyd_value_string(node);
        return value ? value : to_json(node);
    }

    const Tree tree = parse_json(R"({
      "test-main:top": {
        "text": "t", "number": 5, "kind": "test-main:round",
        "sub": {"a": "s", "b": 3, "inner": {"c": "z"}},
        "item": [{"name": "a"}, {"name": "b", "value": 2, "part": [{"row": 1, "column": 1, "label": "one"},
                                                                   {"row": 1, "column": 2, "label": "two"}]}],
        "by-kind": [{"kind": "test-main:round", "value": 1}, {"kind": "test-extra:oval", "value": 2}],
        "tag": ["x", "y"], "shape": ["test-main:square", "test-main:round"], "any": {"test-main:single": "in"},
        "test-extra:extra": "e", "test-extra:far": [{"id": "1", "value": 9}]
      },
      "test-main:entry": [{"id": "1", "value": 1}, {"id": "2", "value": 2}],
      "test-main:single": "alone"
    })");
    ly_ctx *ctx = test_context();
    LogCapture log;
};

TEST_F(FindPath, ASlashIsTheGivenNodeItself) {
    EXPECT_EQ(find("/"), tree.get());
    lyd_node *text = find("text");
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(zam_lyd_find_path(text, "/"), text);
}

TEST_F(FindPath, AnAbsolutePathStartsAmongTheNodeAndItsFollowers) {
    EXPECT_EQ(find("/test-main:top"), tree.get());
    EXPECT_EQ(found("/test-main:top/text"), "t");
    EXPECT_EQ(found("/test-main:single"), "alone");
    EXPECT_EQ(found("/test-main:entry[id='2']/value"), "2");
    EXPECT_EQ(log.all(), "");
}

TEST_F(FindPath, SiblingsBeforeTheGivenNodeAreNotSearched) {
    lyd_node *single = find("/test-main:single");
    ASSERT_NE(single, nullptr);
    EXPECT_EQ(zam_lyd_find_path(single, "/test-main:top"), nullptr);
    EXPECT_EQ(log.all(), "[DEBUG] Node does not exist, path(/test-main:top).\n");
}

TEST_F(FindPath, ARelativePathStartsAmongTheChildren) {
    EXPECT_EQ(found("text"), "t");
    EXPECT_EQ(found("sub/inner/c"), "z");
    EXPECT_EQ(found("sub/inner"), R"({"test-main:inner":{"c":"z"}})");
}

TEST_F(FindPath, AStepWithoutPrefixMatchesTheNameInAnyModule) {
    EXPECT_EQ(found("extra"), "e");
    EXPECT_EQ(found("/top/far/value"), "9");
}

TEST_F(FindPath, APrefixMustBeTheNameOfTheNodesModule) {
    EXPECT_EQ(found("test-extra:extra"), "e");
    EXPECT_EQ(found("test-main:sub/test-main:a"), "s");
    EXPECT_EQ(found("test-main:extra"), "nothing");
    EXPECT_EQ(found("tx:extra"), "nothing");
    EXPECT_EQ(log.count(7, "Node does not exist, path(test-main:extra)."), 1);
    EXPECT_EQ(log.count(7, "Node does not exist, path(tx:extra)."), 1);
}

TEST_F(FindPath, ANodeThatDoesNotExistIsATrace) {
    EXPECT_EQ(find("nothing"), nullptr);
    EXPECT_EQ(log.all(), "[DEBUG] Node does not exist, path(nothing).\n");
}

TEST_F(FindPath, ANodeWithoutChildrenHasNothingBelow) {
    const Tree empty = parse_json(R"({"test-main:top":{}})");
    EXPECT_EQ(zam_lyd_find_path(empty.get(), "text"), nullptr);
    EXPECT_EQ(log.all(), "[DEBUG] Node does not exist, path(text).\n");
}

TEST_F(FindPath, AMalformedStepIsAFailure) {
    EXPECT_EQ(find("9nothing"), nullptr);
    EXPECT_EQ(log.count(3, "Get path node from path(9nothing) unsuccessful."), 1);
    EXPECT_EQ(find("item[name=]"), nullptr);
    EXPECT_EQ(log.count(3, "Get path node from path(item[name=]) unsuccessful."), 1);
    EXPECT_EQ(find(""), nullptr);
    EXPECT_EQ(log.count(3, "Get path node from path() unsuccessful."), 1);
    EXPECT_FALSE(log.mentions("does not exist"));
}

TEST_F(FindPath, AMalformedStepFurtherOnIsAFailure) {
    EXPECT_EQ(find("/test-main:top//text"), nullptr);
    EXPECT_EQ(log.count(3, "Get path node from path(/text) unsuccessful."), 1);
}

TEST_F(FindPath, ALeafEndsTheSearchEvenWhenThePathGoesOn) {
    EXPECT_EQ(found("text/more/steps"), "t");
    EXPECT_EQ(found("text]"), "t");
    EXPECT_EQ(found("tag[.='y']/more"), "y");
    EXPECT_EQ(found("any/single"), R"({"test-main:any":{"single":"in"}})");
    EXPECT_EQ(log.all(), "");
}

TEST_F(FindPath, ASlashAtTheEndIsAccepted) {
    EXPECT_EQ(found("sub/inner/"), R"({"test-main:inner":{"c":"z"}})");
    EXPECT_EQ(find("/test-main:top/"), tree.get());
}

TEST_F(FindPath, SomethingElseThanASlashAfterAnInnerNodeIsAFailure) {
    EXPECT_EQ(find("sub]a"), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] Path(sub]a)[]a] format incorrect.\n");
}

TEST_F(FindPath, ASecondMatchAfterAMissIsAFailureInsteadOfASearch) {
    EXPECT_EQ(find("item/value"), nullptr);
    EXPECT_EQ(log.all(), "[DEBUG] Node does not exist, path(value).\n"
                         "[WRONG] Path(item/value)[value] format incorrect.\n");
}

TEST_F(FindPath, AFirstMatchThatHoldsTheRestIsFound) {
    EXPECT_EQ(found("item/name"), "a");
    EXPECT_EQ(found("item"), R"({"test-main:item":[{"name":"a"}]})");
}

TEST_F(FindPath, APredicateSelectsTheEntry) {
    EXPECT_EQ(found("item[name='b']/value"), "2");
    EXPECT_EQ(found(R"(item[name="b"]/value)"), "2");
    EXPECT_EQ(found("item[name=b]/value"), "2");
    EXPECT_EQ(found("item[name='c']"), "nothing");
}

TEST_F(FindPath, EveryKeyOfThePredicatesMustMatch) {
    EXPECT_EQ(found("item[name='b']/part[row='1'][column='2']/label"), "two");
    EXPECT_EQ(found("item[name='b']/part[column='2'][row='1']/label"), "two");
    EXPECT_EQ(found("item[name='b']/part[column='2']/label"), "two");
    EXPECT_EQ(found("item[name='b']/part[row='2'][column='2']"), "nothing");
}

TEST_F(FindPath, AnEntryWithoutTheNamedChildDoesNotMatch) {
    EXPECT_EQ(found("item[nothing='a']"), "nothing");
    EXPECT_EQ(found("item[value='2']/name"), "b");
    EXPECT_EQ(log.count(7, "Node does not exist, path(item[nothing='a'])."), 1);
}

TEST_F(FindPath, ALeafListEntryIsSelectedByItsValueWhateverThePredicatesName) {
    EXPECT_EQ(found("tag[.='y']"), "y");
    EXPECT_EQ(found("tag[any='y']"), "y");
    EXPECT_EQ(found("tag[.='z']"), "nothing");
    EXPECT_EQ(found("tag"), "x");
}

TEST_F(FindPath, OtherNodesIgnorePredicates) {
    EXPECT_EQ(found("sub[a='other']/a"), "s");
    EXPECT_EQ(found("text[.='other']"), "t");
}

TEST_F(FindPath, AnIdentityKeyMatchesWithAndWithoutAModule) {
    EXPECT_EQ(found("by-kind[kind='test-main:round']/value"), "1");
    EXPECT_EQ(found("by-kind[kind='round']/value"), "1");
    EXPECT_EQ(found("by-kind[kind='other:round']/value"), "1");
    EXPECT_EQ(found("by-kind[kind='square']"), "nothing");
}

TEST_F(FindPath, AnIdentityKeyOfAnotherModuleNeverMatches) {
    EXPECT_EQ(found("by-kind[kind='test-extra:oval']"), "nothing");
    EXPECT_EQ(found("by-kind[kind='oval']"), "nothing");
}

TEST_F(FindPath, AnIdentityLeafListEntryMatchesWithoutItsModule) {
    EXPECT_EQ(found("shape[.='round']"), "test-main:round");
    EXPECT_EQ(found("shape[.='test-main:round']"), "nothing");
}

TEST_F(FindPath, NodesOfEveryMakeAreFound) {
    const Tree made{
        zam_lyd_new_path(nullptr, ctx, "/test-main:top/item[name='a']/part[row='1'][column='2']/label", nullptr)};
    ASSERT_TRUE(made);
    const lyd_node *label = zam_lyd_find_path(made.get(), "/test-main:top/item[name='a']/part[row='1']/label");
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(label->schema, nullptr);
}

TEST_F(FindPath, ANodeThatTheSchemaDoesNotKnowIsNotFound) {
    ASSERT_NE(zam_lyd_new_opaq(tree.get(), ctx, "stranger", "s", "test-main"), nullptr);
    EXPECT_EQ(find("stranger"), nullptr);
    EXPECT_EQ(log.count(7, "Node does not exist, path(stranger)."), 1);
}

TEST_F(FindPath, NullArgumentsFindNothing) {
    EXPECT_EQ(zam_lyd_find_path(nullptr, "/"), nullptr);
    EXPECT_EQ(zam_lyd_find_path(nullptr, "text"), nullptr);
    EXPECT_EQ(find(nullptr), nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST_F(FindPath, NoMemoryAtAnyPointFindsNothing) {
    const auto failures = fail_each_allocation([&](bool may_fail) {
        const lyd_node *label = find("/test-main:top/item[name='b']/part[row='1'][column='2']/label");
        EXPECT_TRUE(label || may_fail);
    });
    EXPECT_GT(failures, 8u);
}

using LeafValue = FindPath;

TEST_F(LeafValue, TheRawTextIsTheCanonicalOne) {
    EXPECT_STREQ(zam_leaf_get_raw(tree.get(), "text"), "t");
    EXPECT_STREQ(zam_leaf_get_raw(tree.get(), "number"), "5");
    EXPECT_STREQ(zam_leaf_get_raw(tree.get(), "kind"), "test-main:round");
    EXPECT_STREQ(zam_leaf_get_raw(tree.get(), "/test-main:top/tag[.='y']"), "y");
    EXPECT_EQ(log.all(), "");
}

TEST_F(LeafValue, TheRawTextOfAnOpaqueLeafIsItsOwn) {
    ASSERT_NE(zam_lyd_new_opaq(tree.get(), ctx, "mode", "odd", "test-main"), nullptr);
    EXPECT_STREQ(zam_leaf_get_raw(tree.get(), "mode"), "odd");
}

TEST_F(LeafValue, AnInnerNodeHasNoRawText) {
    EXPECT_EQ(zam_leaf_get_raw(tree.get(), "sub"), nullptr);
    EXPECT_EQ(zam_leaf_get_raw(tree.get(), "any"), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] Node sub is not leaf/leaflist.\n"
                         "[WRONG] Node any is not leaf/leaflist.\n");
}

TEST_F(LeafValue, AMissingLeafHasNoRawText) {
    EXPECT_EQ(zam_leaf_get_raw(tree.get(), "nothing"), nullptr);
    EXPECT_EQ(zam_leaf_get_raw(nullptr, "text"), nullptr);
    EXPECT_EQ(zam_leaf_get_raw(tree.get(), nullptr), nullptr);
    EXPECT_EQ(log.all(), "[DEBUG] Node does not exist, path(nothing).\n");
}

TEST_F(LeafValue, AFormatReadsTheText) {
    unsigned number = 0;
    EXPECT_EQ(zam_leaf_getf(tree.get(), "number", "%u", &number), 1);
    EXPECT_EQ(number, 5u);
    std::array<char, 16> module{}, name{};
    EXPECT_EQ(zam_leaf_getf(tree.get(), "kind", "%[^:]:%s", module.data(), 16u, name.data(), 16u), 2);
    EXPECT_STREQ(module.data(), "test-main");
    EXPECT_STREQ(name.data(), "round");
}

TEST_F(LeafValue, ATextThatDoesNotFitIsNotRead) {
    std::array<char, 4> module{'?', '?', '?', '?'};
    EXPECT_EQ(zam_leaf_getf(tree.get(), "kind", "%s", module.data(), 4u), 0);
    EXPECT_STREQ(module.data(), "");
}

TEST_F(LeafValue, ATextThatIsNoNumberReadsNothing) {
    int number = 77;
    EXPECT_EQ(zam_leaf_getf(tree.get(), "text", "%d", &number), 0);
    EXPECT_EQ(number, 77);
}

TEST_F(LeafValue, AnInnerNodeReadsNothing) {
    int number = 77;
    EXPECT_EQ(zam_leaf_getf(tree.get(), "sub", "%d", &number), 0);
    EXPECT_EQ(number, 77);
    EXPECT_EQ(log.all(), "[WRONG] Node sub is not leaf/leaflist.\n");
}

TEST_F(LeafValue, AMissingLeafReadsNothing) {
    int number = 77;
    EXPECT_EQ(zam_leaf_getf(tree.get(), "nothing", "%d", &number), 0);
    EXPECT_EQ(zam_leaf_getf(nullptr, "number", "%d", &number), 0);
    EXPECT_EQ(zam_leaf_getf(tree.get(), nullptr, "%d", &number), 0);
    EXPECT_EQ(zam_leaf_getf(tree.get(), "number", nullptr), 0);
    EXPECT_EQ(number, 77);
}

TEST_F(LeafValue, AFormattedTextMakesALeaf) {
    const Tree top = parse_json(R"({"test-main:top":{}})");
    EXPECT_EQ(zam_leaf_setf(top.get(), "text", "%s-%d", "a", 7), 0);
    EXPECT_EQ(zam_leaf_setf(top.get(), "number", "%u", 200u), 0);
    EXPECT_EQ(to_json(top), R"({"test-main:top":{"text":"a-7","number":200}})");
    EXPECT_EQ(log.all(), "");
}

TEST_F(LeafValue, ALongFormattedTextMakesALeaf) {
    const Tree top = parse_json(R"({"test-main:top":{}})");
    for (const size_t length : {255, 256, 257, 5000}) {
        const std::string text(length, 'x');
        const Tree made = parse_json(R"({"test-main:top":{}})");
        EXPECT_EQ(zam_leaf_setf(made.get(), "text", "%s", text.c_str()), 0);
        EXPECT_EQ(zam_leaf_get_raw(made.get(), "text"), text);
    }
}

TEST_F(LeafValue, ALeafThatIsRefusedIsAFailure) {
    const Tree top = parse_json(R"({"test-main:top":{}})");
    EXPECT_EQ(zam_leaf_setf(top.get(), "number", "%d", 300), -1);
    EXPECT_TRUE(log.has(3, "[libyang]New input leaf(number) unsuccessful, value : 300"));
    EXPECT_EQ(zam_leaf_setf(top.get(), "nothing", "%d", 3), -1);
    EXPECT_EQ(zam_leaf_setf(top.get(), "extra", "%s", "of the other module"), -1);
    EXPECT_EQ(to_json(top), R"({"test-main:top":{}})");
}

TEST_F(LeafValue, NullArgumentsMakeNoLeaf) {
    const Tree top = parse_json(R"({"test-main:top":{}})");
    int32_t (*const unchecked)(lyd_node *, const char *, const char *, ...) = zam_leaf_setf;
    EXPECT_EQ(zam_leaf_setf(nullptr, "number", "%d", 3), -1);
    EXPECT_EQ(zam_leaf_setf(top.get(), nullptr, "%d", 3), -1);
    EXPECT_EQ(unchecked(top.get(), "number", nullptr), -1);
    EXPECT_EQ(to_json(top), R"({"test-main:top":{}})");
}

TEST_F(LeafValue, NoMemoryMakesNoLeaf) {
    const std::string text(1000, 'x');
    const auto failures = fail_each_allocation([&](bool may_fail) {
        const Tree top = parse_json(R"({"test-main:top":{}})");
        const int32_t result = zam_leaf_setf(top.get(), "text", "%s", text.c_str());
        EXPECT_TRUE(result == 0 || (may_fail && result == -1));
        if (result != 0) {
            EXPECT_EQ(to_json(top), R"({"test-main:top":{}})");
        }
    });
    EXPECT_GE(failures, 2u);
}

} // namespace
