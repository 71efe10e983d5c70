// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>

#include "support/test_schema.h"
#include "yang/yang_module_fixture.h"
#include "yang/yang_module_scan_internal.h"

namespace zam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using yang::find_child;
using yang::find_module;
using yang::object_members;

std::vector<std::string> names_in(std::string_view object) {
    std::vector<std::string> names;
    for (object_members members{object}; members.next();)
        names.emplace_back(members.name());
    return names;
}

TEST(ObjectMembers, AreThoseDirectlyInTheObject) {
    EXPECT_THAT(names_in(R"({"a":1,"b":{"c":{"d":1},"e":2},"f":[{"g":1},{"h":2}],"i":null})"),
                ElementsAre("a", "b", "f", "i"));
    EXPECT_THAT(names_in(R"({"m:a":"x","@m:a":{"y:z":"1"},"a":2,"a":3})"), ElementsAre("m:a", "@m:a", "a", "a"));
}

TEST(ObjectMembers, AreNotFoundInStrings) {
    EXPECT_THAT(names_in(R"({"a":"}","b":"{\"x\":1,","c":"\\","d":["\"],","{"],"e":"\\\"}"})"),
                ElementsAre("a", "b", "c", "d", "e"));
    EXPECT_THAT(names_in(R"({"a":"x","b":"y"})"), ElementsAre("a", "b"));
}

TEST(ObjectMembers, HaveTheirNamesAsTheyAreWritten) {
    EXPECT_THAT(names_in(R"({"a\"b":1,"\u00e9":2,"c\\":3,"{":4,",":5})"),
                ElementsAre(R"(a\"b)", R"(\u00e9)", R"(c\\)", "{", ","));
    EXPECT_THAT(names_in(R"({"":1,"a":"","":[]})"), ElementsAre("", "a", ""));
}

TEST(ObjectMembers, StandBetweenBlanks) {
    EXPECT_THAT(names_in(" \t\r\n{ \"a\" : 1 ,\n\"b\" : [ 1 , 2 ] , \"c\":{ \"d\" : 5 } } "),
                ElementsAre("a", "b", "c"));
}

TEST(ObjectMembers, AreNoneWhereThereIsNoObject) {
    for (const char *text : {"", "  ", "{}", " { } ", "[]", R"([{"a":1}])", R"("{\"a\":1}")", "5", "null", "true"})
        EXPECT_THAT(names_in(text), IsEmpty()) << text;
}

TEST(ObjectMembers, EndWithTheObject) {
    EXPECT_THAT(names_in(R"({"a":{"b":1}},"c":2,"d":{"e":3})"), ElementsAre("a"));
    EXPECT_THAT(names_in(R"({},"c":2})"), IsEmpty());
    object_members members{R"({"a":1}, "b":2)"};
    EXPECT_TRUE(members.next());
    EXPECT_FALSE(members.next());
    EXPECT_FALSE(members.next());
}

TEST(ObjectMembers, AreParts) {
    const std::string_view text = R"({"one":{"a":1},"two":2})";
    object_members members{text};
    ASSERT_TRUE(members.next());
    EXPECT_EQ(members.name().data(), text.data() + 2);
    EXPECT_EQ(yang::string_end(text, 1), 5u);
    EXPECT_EQ(yang::string_end(R"("a\"\\")", 0), 6u);
    EXPECT_EQ(yang::string_end(R"("")", 0), 1u);
}

// Modules and nodes by name

TEST(FindModule, KnowsTheImplementedOnesByTheirWholeNames) {
    const ly_ctx *ctx = test_context();
    EXPECT_EQ(find_module(ctx, "test-main"), ly_ctx_get_module_implemented(ctx, "test-main"));
    EXPECT_NE(find_module(ctx, "test-main"), nullptr);
    EXPECT_EQ(find_module(ctx, std::string_view{"test-main:top", 9}), find_module(ctx, "test-main"));
    for (const char *name : {"", "test-mai", "test-mainx", "test", "Test-main", "nowhere", " test-main"})
        EXPECT_EQ(find_module(ctx, name), nullptr) << name;
}

TEST(FindModule, DoesNotKnowWhatIsOnlyImported) {
    const layer::Context ctx{zam_ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY)};
    const lys_module *imported = ly_ctx_get_module_latest(ctx.get(), "ietf-yang-types");
    if (!imported) imported = ly_ctx_get_module_latest(ctx.get(), "ietf-inet-types");
    ASSERT_NE(imported, nullptr);
    ASSERT_FALSE(imported->implemented);
    EXPECT_EQ(find_module(ctx.get(), imported->name), nullptr);
}

class FindChild : public testing::Test {
protected:
    const lys_module *main_ = find_module(test_context(), "test-main");
    const lys_module *extra_ = find_module(test_context(), "test-extra");
    const lysc_node *top_ = schema_at("/test-main:top");
};

TEST_F(FindChild, FindsNodesAtTheTopAndBelow) {
    EXPECT_EQ(find_child(nullptr, main_, "top", 0), top_);
    EXPECT_EQ(find_child(top_, main_, "any", 0), schema_at("/test-main:top/any"));
    EXPECT_EQ(find_child(schema_at("/test-main:top/item"), main_, "name", 0), schema_at("/test-main:top/item/name"));
    EXPECT_EQ(find_child(nullptr, main_, "nothere", 0), nullptr);
    EXPECT_EQ(find_child(top_, main_, "top", 0), nullptr);
    EXPECT_EQ(find_child(nullptr, main_, "any", 0), nullptr);
}

TEST_F(FindChild, ComparesWholeNamesOfTheirModule) {
    const std::string_view longer = "textual";
    EXPECT_EQ(find_child(top_, main_, longer, 0), nullptr);
    EXPECT_EQ(find_child(top_, main_, yang::text_before(longer, 4), 0), schema_at("/test-main:top/text"));
    EXPECT_EQ(find_child(top_, main_, yang::text_before(longer, 3), 0), nullptr);
    EXPECT_EQ(find_child(top_, extra_, "extra", 0), schema_at("/test-main:top/test-extra:extra"));
    EXPECT_EQ(find_child(top_, main_, "extra", 0), nullptr);
    EXPECT_EQ(find_child(top_, extra_, "text", 0), nullptr);
}

TEST_F(FindChild, HasNoneWithoutAModuleOrAName) {
    EXPECT_EQ(find_child(nullptr, nullptr, "top", 0), nullptr);
    EXPECT_EQ(find_child(top_, nullptr, "text", 0), nullptr);
    EXPECT_EQ(find_child(nullptr, main_, "", 0), nullptr);
    EXPECT_EQ(find_child(top_, main_, "", 0), nullptr);
    EXPECT_EQ(find_child(nullptr, main_, yang::text_before("top", 0), 0), nullptr);
}

TEST_F(FindChild, PassesThroughChoices) {
    const lysc_node *left = find_child(top_, main_, "left", 0);
    ASSERT_NE(left, nullptr);
    EXPECT_STREQ(left->name, "left");
    EXPECT_EQ(left->nodetype, LYS_LEAF);
    EXPECT_EQ(find_child(top_, main_, "way", 0), nullptr);
}

TEST_F(FindChild, TakesTheDirectionOfAnOperation) {
    const lysc_node *run = find_child(nullptr, main_, "run", 0);
    ASSERT_NE(run, nullptr);
    EXPECT_EQ(run->nodetype, LYS_RPC);
    EXPECT_NE(find_child(run, main_, "content", 0), nullptr);
    EXPECT_EQ(find_child(run, main_, "content", LYS_GETNEXT_OUTPUT), nullptr);
    EXPECT_NE(find_child(run, main_, "result", LYS_GETNEXT_OUTPUT), nullptr);
    EXPECT_EQ(find_child(run, main_, "result", 0), nullptr);
    const lysc_node *alarm = find_child(nullptr, main_, "alarm", 0);
    ASSERT_NE(alarm, nullptr);
    EXPECT_EQ(alarm->nodetype, LYS_NOTIF);
}

} // namespace
} // namespace zam::test
