// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <array>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>
#include <zamc/yang_module.h>
#include <zamc/yang_wrap.h>

#include "support/heap.h"
#include "support/log_capture.h"
#include "support/test_schema.h"
#include "yang/yang_internal.h"

namespace {

using namespace zam::test;

class NewPath : public testing::Test {
protected:
    static Tree make(const char *path, const char *value = nullptr) {
        return Tree{zam_lyd_new_path(nullptr, test_context(), path, value)};
    }
    static std::string json_of(const char *path, const char *value = nullptr) { return to_json(make(path, value)); }

    // A container with more children than libyang keeps without a hash table.
    static Tree full_top() {
        return parse_json(
            R"({"test-main:top":{"text":"t","number":1,"big":"2","mode":"fast","ratio":"1.5","switch":true}})");
    }

    static bool is_lightweight(const lyd_node *node) {
        return reinterpret_cast<uintptr_t>(node->priv) & zam::yang::lightweight_mark;
    }

    ly_ctx *ctx = test_context();
    LogCapture log;
};

TEST_F(NewPath, AListStepMakesALightweightEntryWithItsKey) {
    const Tree top = make("/test-main:top/item[name='a']/value", "7");
    ASSERT_TRUE(top);
    EXPECT_STREQ(top->schema->name, "top");
    EXPECT_FALSE(is_lightweight(top.get()));
    const lyd_node *entry = zam_lyd_child(top.get());
    ASSERT_TRUE(entry);
    EXPECT_STREQ(entry->schema->name, "item");
    EXPECT_TRUE(is_lightweight(entry));
    EXPECT_EQ(to_json(top), R"({"test-main:top":{"item":[{"name":"a","value":7}]}})");
    EXPECT_EQ(to_xml(top), R"(<top xmlns="urn:test:main"><item><name>a</name><value>7</value></item></top>)");
    EXPECT_EQ(log.all(), "");
}

TEST_F(NewPath, AKeyGivenTwiceWithDifferentValuesFailsAndEmptiesTheParent) {
    const Tree top = full_top();
    EXPECT_EQ(zam_lyd_new_path(top.get(), ctx, "item[name='a']/name", "b"), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] Leaf node(name) value is unsuccessful. [a] [b]\n"
                         "[WRONG] New node(name) unsuccessful.\n"
                         "[WRONG] Lyd new path(item[name='a']/name) unsuccessful.\n");
    EXPECT_EQ(zam_lyd_child(top.get()), nullptr);
}

TEST_F(NewPath, AParentEmptiedByAFailureTakesNewChildren) {
    const Tree top = full_top();
    ASSERT_EQ(zam_lyd_new_path(top.get(), ctx, "item[name='a']/name", "b"), nullptr);
    for (const char *name : {"text", "sub/a", "left"})
        EXPECT_NE(zam_lyd_new_path(top.get(), ctx, name, "x"), nullptr);
    EXPECT_EQ(to_json(top), R"({"test-main:top":{"text":"x","sub":{"a":"x"},"left":"x"}})");
}

TEST_F(NewPath, AKeyGivenTwiceWithTheSameValueIsAcceptedOnce) {
    EXPECT_EQ(json_of("/test-main:top/item[name='a']/name", "a"), R"({"test-main:top":{"item":[{"name":"a"}]}})");
    EXPECT_EQ(json_of("/test-main:top/item[name='a']/name"), R"({"test-main:top":{"item":[{"name":"a"}]}})");
    EXPECT_EQ(log.all(), "");
}

TEST_F(NewPath, AnIdentityKeyGivenTwiceIsComparedWithoutItsOwnModule) {
    EXPECT_EQ(json_of("/test-main:top/by-kind[kind='test-main:round']/kind", "round"),
              R"({"test-main:top":{"by-kind":[{"kind":"test-main:round"}]}})");
}

TEST_F(NewPath, ALeafThatAnEntryHasIsReused) {
    const Tree top = parse_json(R"({"test-main:top":{"item":[{"name":"a","value":5}]}})");
    lyd_node *entry = zam_lyd_child(top.get());
    lyd_node *name = zam_lyd_child(entry);
    EXPECT_EQ(zam_lyd_new_path(entry, ctx, "name", nullptr), name);
    EXPECT_EQ(zam_lyd_new_path(entry, ctx, "name", "a"), name);
    EXPECT_EQ(zam_lyd_new_path(entry, ctx, "value", "5"), name->next);
    EXPECT_EQ(to_json(top), R"({"test-main:top":{"item":[{"name":"a","value":5}]}})");
}

TEST_F(NewPath, ALeafThatAnEntryHasWithAnotherValueIsRefusedAndTheEntryStays) {
    const Tree top = parse_json(R"({"test-main:top":{"item":[{"name":"a","value":5}]}})");
    EXPECT_EQ(zam_lyd_new_path(zam_lyd_child(top.get()), ctx, "value", "6"), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] Leaf node(value) value is unsuccessful. [5] [6]\n"
                         "[WRONG] New node(value) unsuccessful.\n"
                         "[WRONG] Lyd new path(value) unsuccessful.\n");
    EXPECT_EQ(to_json(top), R"({"test-main:top":{"item":[{"name":"a","value":5}]}})");
}

TEST_F(NewPath, ALeafStepWithoutAValueMakesAnOpaqueLeaf) {
    const Tree top = make("/test-main:top/number");
    ASSERT_TRUE(top);
    const lyd_node *leaf = zam_lyd_child(top.get());
    ASSERT_TRUE(leaf);
    EXPECT_EQ(leaf->schema, nullptr);
    EXPECT_EQ(to_json(top), R"({"test-main:top":{"number":""}})");
    EXPECT_EQ(to_xml(top), R"(<top xmlns="urn:test:main"><number/></top>)");
}

TEST_F(NewPath, ALeafOfTypeEmptyWithoutAValueIsANodeOfItsOwn) {
    const Tree top = make("/test-main:top/flag");
    ASSERT_TRUE(top);
    const lyd_node *leaf = zam_lyd_child(top.get());
    ASSERT_TRUE(leaf);
    EXPECT_STREQ(leaf->schema->name, "flag");
    EXPECT_EQ(to_json(top), R"({"test-main:top":{"flag":[null]}})");
    EXPECT_EQ(to_xml(top), R"(<top xmlns="urn:test:main"><flag/></top>)");
}

struct TypedValue {
    const char *leaf;
    const char *value;
    const char *json;
};

TEST_F(NewPath, LeavesOfEveryTypeTakeTheirValue) {
    const std::array values{
        TypedValue{"text", "a b", "\"a b\""},
        TypedValue{"number", "255", "255"},
        TypedValue{"big", "18446744073709551615", "\"18446744073709551615\""},
        TypedValue{"kind", "round", "\"test-main:round\""},
        TypedValue{"kind", "test-main:square", "\"test-main:square\""},
        TypedValue{"kind", "test-extra:oval", "\"test-extra:oval\""},
        TypedValue{"flag", "", "[null]"},
        TypedValue{"colors", "blue red", "\"red blue\""},
        TypedValue{"mode", "slow", "\"slow\""},
        TypedValue{"either", "12", "12"},
        TypedValue{"either", "auto", "\"auto\""},
        TypedValue{"ratio", "1.50", "\"1.5\""},
        TypedValue{"switch", "false", "false"},
    };
    for (const TypedValue &typed : values) {
        const std::string path = std::string{"/test-main:top/"} + typed.leaf;
        const std::string json = std::string{R"({"test-main:top":{")"} + typed.leaf + "\":" + typed.json + "}}";
        EXPECT_EQ(json_of(path.c_str(), typed.value), json);
    }
    EXPECT_EQ(log.all(), "");
}

TEST_F(NewPath, AValueThatItsTypeRefusesFails) {
    EXPECT_FALSE(make("/test-main:top/number", "300"));
    EXPECT_TRUE(log.has(3, "[libyang]New input leaf(number) unsuccessful, value : 300"));
    EXPECT_TRUE(log.has(3, "New node(number) unsuccessful."));
    EXPECT_TRUE(log.has(3, "Lyd new path(/test-main:top/number) unsuccessful."));
}

TEST_F(NewPath, ALeafListPredicateIsTheEntrysValue) {
    EXPECT_EQ(json_of("/test-main:word[.='x']"), R"({"test-main:word":["x"]})");
    EXPECT_EQ(json_of("/test-main:word[.='x']", "x"), R"({"test-main:word":["x"]})");
    EXPECT_EQ(json_of("/test-main:top/count[.='5']"), R"({"test-main:top":{"count":[5]}})");
    EXPECT_EQ(log.all(), "");
}

TEST_F(NewPath, ALeafListPredicateAndAnotherValueFail) {
    EXPECT_FALSE(make("/test-main:word[.='x']", "y"));
    EXPECT_EQ(log.all(), "[WRONG] Leaflist node(word) value is unsuccessful. [x] [y]\n"
                         "[WRONG] New node(word) unsuccessful.\n"
                         "[WRONG] Lyd new path(/test-main:word[.='x']) unsuccessful.\n");
}

TEST_F(NewPath, ALeafListStepWithoutPredicateTakesTheValue) {
    EXPECT_EQ(json_of("/test-main:top/tag", "x"), R"({"test-main:top":{"tag":["x"]}})");
    EXPECT_EQ(json_of("/test-main:top/count", "5"), R"({"test-main:top":{"count":[5]}})");
}

TEST_F(NewPath, ALeafListStepWithoutPredicateAndValueMakesAnOpaqueLeaf) {
    const Tree top = make("/test-main:top/tag");
    ASSERT_TRUE(top);
    const lyd_node *leaf = zam_lyd_child(top.get());
    ASSERT_TRUE(leaf);
    EXPECT_EQ(leaf->schema, nullptr);
    EXPECT_EQ(to_json(top), R"({"test-main:top":{"tag":""}})");
    EXPECT_EQ(to_xml(top), R"(<top xmlns="urn:test:main"><tag/></top>)");
}

TEST_F(NewPath, ALeafListPredicateThatItsTypeRefusesFails) {
    EXPECT_FALSE(make("/test-main:top/count[.='many']"));
    EXPECT_TRUE(log.has(3, "New node(count) unsuccessful."));
    EXPECT_TRUE(log.has(3, "Lyd new path(/test-main:top/count[.='many']) unsuccessful."));
}

TEST_F(NewPath, AnAnydataTakesTheValueAsItsContent) {
    EXPECT_EQ(json_of("/test-main:top/any", R"({"test-extra:rpc-error":{"error-type":"e"}})"),
              R"({"test-main:top":{"any":{"test-extra:rpc-error":{"error-type":"e"}}}})");
    EXPECT_EQ(json_of("/test-main:top/any", R"(<single xmlns="urn:test:main">s</single>)"),
              R"({"test-main:top":{"any":{"single":"s"}}})");
}

TEST_F(NewPath, AnAnydataWithoutValueIsMadeEmpty) {
    EXPECT_EQ(json_of("/test-main:top/any"), R"({"test-main:top":{"any":{}}})");
    EXPECT_EQ(json_of("/test-main:top/any", ""), R"({"test-main:top":{"any":{}}})");
    EXPECT_EQ(to_xml(make("/test-main:top/any")), R"(<top xmlns="urn:test:main"><any/></top>)");
    EXPECT_EQ(log.all(), "");
}

TEST_F(NewPath, AnAnydataRefusesATextThatIsNoDocument) {
    EXPECT_FALSE(make("/test-main:top/any", "5"));
    EXPECT_TRUE(log.mentions("[libyang]New input any(any) unsuccessful, ret : "));
    EXPECT_TRUE(log.has(3, "New node(any) unsuccessful."));
    EXPECT_TRUE(log.has(3, "Lyd new path(/test-main:top/any) unsuccessful."));
}

TEST_F(NewPath, AnAnyxmlIsMadeEmptyOrKeepsTheValueAsItIs) {
    const Tree empty = make("/test-main:top/xml");
    ASSERT_TRUE(empty);
    EXPECT_STREQ(zam_lyd_child(empty.get())->schema->name, "xml");
    const Tree filled = make("/test-main:top/xml", "any <text>");
    ASSERT_TRUE(filled);
    EXPECT_EQ(take(zam_anydata_dump(zam_lyd_child(filled.get()), LYD_XML, nullptr)), "any <text>");
}

TEST_F(NewPath, OperationsAndNotificationsAreSteps) {
    EXPECT_EQ(json_of("/test-main:run/speed", "5"), R"({"test-main:run":{"speed":5}})");
    EXPECT_EQ(json_of("/test-main:run"), R"({"test-main:run":{}})");
    EXPECT_EQ(json_of("/test-main:alarm/message", "hot"), R"({"test-main:alarm":{"message":"hot"}})");
    EXPECT_EQ(json_of("/test-main:top/item[name='a']/reset/delay", "3"),
              R"({"test-main:top":{"item":[{"name":"a","reset":{"delay":3}}]}})");
    EXPECT_EQ(log.all(), "");
}

TEST_F(NewPath, ChoicesAndCasesAreLookedThrough) {
    EXPECT_EQ(json_of("/test-main:top/left", "l"), R"({"test-main:top":{"left":"l"}})");
    EXPECT_EQ(json_of("/test-main:top/right/speed", "9"), R"({"test-main:top":{"right":{"speed":9}}})");
    EXPECT_FALSE(make("/test-main:top/way/left", "l"));
    EXPECT_TRUE(log.has(3, "Lyd new path(/test-main:top/way/left) unsuccessful."));
}

TEST_F(NewPath, AStepOfAnotherModuleNeedsItsPrefix) {
    EXPECT_EQ(json_of("/test-main:top/test-extra:extra", "e"), R"({"test-main:top":{"test-extra:extra":"e"}})");
    EXPECT_FALSE(make("/test-main:top/extra", "e"));
    EXPECT_EQ(log.all(), "[WRONG] Lyd new path(/test-main:top/extra) unsuccessful.\n");
}

TEST_F(NewPath, AStepWithoutPrefixBelongsToTheModuleOfTheStepBefore) {
    EXPECT_EQ(json_of("/test-main:top/test-extra:more/x", "3"), R"({"test-main:top":{"test-extra:more":{"x":3}}})");
    EXPECT_EQ(json_of("/test-main:top/test-extra:far[id='1']/value", "2"),
              R"({"test-main:top":{"test-extra:far":[{"id":"1","value":2}]}})");
    EXPECT_EQ(json_of("/test-main:top/test-main:sub/test-main:inner/c", "z"),
              R"({"test-main:top":{"sub":{"inner":{"c":"z"}}}})");
    EXPECT_FALSE(make("/test-main:top/test-extra:more/test-main:x", "3"));
}

TEST_F(NewPath, AForeignPrefixFindsNoOwnNode) {
    EXPECT_FALSE(make("/test-main:top/test-extra:text", "x"));
    EXPECT_EQ(log.all(), "[WRONG] Lyd new path(/test-main:top/test-extra:text) unsuccessful.\n");
}

TEST_F(NewPath, AStepBelowAForeignParentBelongsToTheParentsModule) {
    const Tree top = make("/test-main:top/test-extra:more");
    ASSERT_TRUE(top);
    ASSERT_NE(zam_lyd_new_path(zam_lyd_child(top.get()), nullptr, "x", "4"), nullptr);
    EXPECT_EQ(to_json(top), R"({"test-main:top":{"test-extra:more":{"x":4}}})");
}

TEST_F(NewPath, EveryKeyOfAPredicateBecomesALeafInSchemaOrder) {
    EXPECT_EQ(json_of("/test-main:top/item[name='a']/part[column='2'][row='1']/label", "l"),
              R"({"test-main:top":{"item":[{"name":"a","part":[{"row":1,"column":2,"label":"l"}]}]}})");
    EXPECT_EQ(json_of("/test-main:top/four[d='4'][a='1'][c='3'][b='2']"),
              R"({"test-main:top":{"four":[{"a":"1","b":"2","c":"3","d":"4"}]}})");
}

TEST_F(NewPath, QuotedKeysKeepBracketsAndSlashes) {
    EXPECT_EQ(json_of("/test-main:top/item[name='a/b[c]']/note", "n"),
              R"({"test-main:top":{"item":[{"name":"a/b[c]","note":"n"}]}})");
    EXPECT_EQ(json_of(R"(/test-main:top/item[name="q\"u"])"), R"({"test-main:top":{"item":[{"name":"q\"u"}]}})");
}

TEST_F(NewPath, AListStepWithoutPredicatesMakesAnEntryWithoutKeys) {
    EXPECT_EQ(json_of("/test-main:top/item"), R"({"test-main:top":{"item":[{}]}})");
    EXPECT_EQ(json_of("/test-main:top/item/value", "7"), R"({"test-main:top":{"item":[{"value":7}]}})");
    EXPECT_EQ(json_of("/test-main:top/reading/at", "9"), R"({"test-main:top":{"reading":[{"at":9}]}})");
    EXPECT_EQ(json_of("/test-main:entry[id='1']/value", "7"), R"({"test-main:entry":[{"id":"1","value":7}]})");
}

TEST_F(NewPath, AKeyThatTheListDoesNotHaveFails) {
    EXPECT_FALSE(make("/test-main:top/item[nam='a']"));
    EXPECT_TRUE(log.has(3, "New node(item) unsuccessful."));
    EXPECT_TRUE(log.has(3, "Lyd new path(/test-main:top/item[nam='a']) unsuccessful."));
}

TEST_F(NewPath, AKeyThatItsTypeRefusesFails) {
    EXPECT_FALSE(make("/test-main:top/item[name='a']/part[row='1'][column='x']"));
    EXPECT_TRUE(log.has(3, "[libyang]New input leaf(column) unsuccessful, value : x"));
    EXPECT_TRUE(log.has(3, "New node(part) unsuccessful."));
}

TEST_F(NewPath, BelowAParentTheTopOfTheNewBranchIsReturned) {
    const Tree top = parse_json(R"({"test-main:top":{"text":"t"}})");
    lyd_node *made = zam_lyd_new_path(top.get(), nullptr, "sub/inner/c", "z");
    ASSERT_NE(made, nullptr);
    EXPECT_STREQ(made->schema->name, "sub");
    EXPECT_EQ(&made->parent->node, top.get());
    EXPECT_EQ(to_json(top), R"({"test-main:top":{"text":"t","sub":{"inner":{"c":"z"}}}})");
}

TEST_F(NewPath, BelowAnEntryMadeHereMoreCanBeMade) {
    const Tree top = make("/test-main:top/item[name='a']");
    ASSERT_TRUE(top);
    ASSERT_NE(zam_lyd_new_path(zam_lyd_child(top.get()), nullptr, "box/size", "3"), nullptr);
    EXPECT_EQ(to_json(top), R"({"test-main:top":{"item":[{"name":"a","box":{"size":3}}]}})");
}

TEST_F(NewPath, AFailureAtTheFirstStepLeavesTheParentAsItWas) {
    const Tree top = full_top();
    const std::string before = to_json(top);
    EXPECT_EQ(zam_lyd_new_path(top.get(), ctx, "nothing", "x"), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] Lyd new path(nothing) unsuccessful.\n");
    EXPECT_EQ(to_json(top), before);
}

TEST_F(NewPath, ASlashAtTheEndIsAccepted) {
    EXPECT_EQ(json_of("/test-main:top/sub/"), R"({"test-main:top":{"sub":{}}})");
    EXPECT_EQ(json_of("/test-main:top/number/", "5"), R"({"test-main:top":{"number":5}})");
}

TEST_F(NewPath, AStepBelowALeafFails) {
    EXPECT_FALSE(make("/test-main:top/text/more", "x"));
    EXPECT_EQ(log.all(), "[WRONG] Lyd new path(/test-main:top/text/more) unsuccessful.\n");
}

TEST_F(NewPath, AStepThatIsMalformedAfterTheFirstFails) {
    for (const char *path : {"/test-main:top//sub", "/test-main:top/9sub", "/test-main:top/item[name='a"}) {
        log.clear();
        EXPECT_FALSE(make(path)) << path;
        EXPECT_TRUE(log.has(3, "Lyd new path(" + std::string{path} + ") unsuccessful.")) << log.all();
    }
}

TEST_F(NewPath, SomethingElseThanASlashAfterAStepFails) {
    for (const char *path : {"/test-main:top]sub", "/test-main:top sub", "/test-main:top/sub@a"}) {
        log.clear();
        EXPECT_FALSE(make(path)) << path;
        EXPECT_EQ(log.all(), "[WRONG] Lyd new path(" + std::string{path} + ") unsuccessful.\n");
    }
}

TEST_F(NewPath, AnUnknownModuleFails) {
    EXPECT_FALSE(make("/nothing:top"));
    EXPECT_TRUE(log.has(3, "Lyd new path(/nothing:top) unsuccessful."));
}

TEST_F(NewPath, AFirstStepWithoutPrefixFails) {
    EXPECT_FALSE(make("/top"));
    EXPECT_TRUE(log.has(3, "Lyd new path(/top) unsuccessful."));
}

TEST_F(NewPath, WithoutParentThePathMustBeAbsolute) {
    EXPECT_FALSE(make("test-main:top"));
    EXPECT_FALSE(make(""));
    EXPECT_EQ(log.all(), "");
}

TEST_F(NewPath, AFirstStepThatIsMalformedGivesNothingAndNoLineOfItsOwn) {
    const Tree top = full_top();
    EXPECT_FALSE(make("/"));
    EXPECT_FALSE(make("/9top"));
    EXPECT_EQ(zam_lyd_new_path(top.get(), ctx, "/test-main:sub", nullptr), nullptr);
    EXPECT_EQ(zam_lyd_new_path(top.get(), ctx, "", nullptr), nullptr);
    EXPECT_FALSE(log.mentions("Lyd new path("));
}

TEST_F(NewPath, NullArgumentsGiveNothing) {
    const Tree top = full_top();
    EXPECT_EQ(zam_lyd_new_path(nullptr, nullptr, "/test-main:top", nullptr), nullptr);
    EXPECT_EQ(zam_lyd_new_path(nullptr, ctx, nullptr, nullptr), nullptr);
    EXPECT_EQ(zam_lyd_new_path(top.get(), ctx, nullptr, nullptr), nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST_F(NewPath, AParentThatTheSchemaDoesNotKnowFailsEvenForATopName) {
    const Tree stranger{zam_lyd_new_opaq(nullptr, ctx, "stranger", nullptr, "test-main")};
    ASSERT_TRUE(stranger);
    EXPECT_EQ(zam_lyd_new_path(stranger.get(), ctx, "single", "x"), nullptr);
    EXPECT_TRUE(log.has(3, "Lyd new path(single) unsuccessful."));
    EXPECT_EQ(zam_lyd_child(stranger.get()), nullptr);
}

TEST_F(NewPath, ATemplateContainerIsNoStep) {
    EXPECT_FALSE(make("/ietf-netconf:rpc-error"));
    EXPECT_EQ(log.all(), "[WRONG] Lyd new path(/ietf-netconf:rpc-error) unsuccessful.\n");
}

TEST_F(NewPath, AStepPerLevelMakesNoLimit) {
    std::string path = "/test-main:top/item[name='";
    path += std::string(5000, 'n') + "']/part[row='1'][column='2']/label";
    const Tree top = make(path.c_str(), "l");
    ASSERT_TRUE(top);
    EXPECT_NE(to_json(top).find(std::string(5000, 'n')), std::string::npos);
}

TEST_F(NewPath, NoMemoryAtAnyPointMakesNothing) {
    const auto failures = fail_each_allocation([&](bool may_fail) {
        const Tree top = make("/test-main:top/item[name='a']/part[row='1'][column='2']/label", "l");
        EXPECT_TRUE(top || may_fail);
        if (top) {
            EXPECT_EQ(to_json(top),
                      R"({"test-main:top":{"item":[{"name":"a","part":[{"row":1,"column":2,"label":"l"}]}]}})");
        }
    });
    EXPECT_GT(failures, 10u);
}

TEST_F(NewPath, NoMemoryBelowAParentLeavesAUsableParent) {
    fail_each_allocation([&](bool may_fail) {
        const Tree top = full_top();
        lyd_node *made = zam_lyd_new_path(top.get(), ctx, "item[name='a']/box/size", "3");
        EXPECT_TRUE(made || may_fail);
        EXPECT_NE(zam_lyd_new_leaf(top.get(), nullptr, "left", "x"), nullptr);
    });
}

} // namespace
