// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <string>

#include <gtest/gtest.h>
#include <zamc/yang_module.h>
#include <zamc/yang_wrap.h>

#include "support/heap.h"
#include "support/log_capture.h"
#include "support/test_schema.h"
#include "yang/yang_wrap_internal.h"

namespace {

using namespace zam::test;
using zam::yang::_get_format_by_str;
using zam::yang::_lyd_parse;

// Another kind of value for the time of a test; libyang itself keeps every anydata as a tree.
class KindOfValue {
public:
    KindOfValue(lyd_node *node, LYD_ANYDATA_VALUETYPE kind, const char *text = nullptr)
        : any_{reinterpret_cast<lyd_node_any *>(node)}, type_{any_->value_type}, value_{any_->value} {
        any_->value_type = kind;
        if (text) any_->value.str = text;
    }
    ~KindOfValue() {
        any_->value_type = type_;
        any_->value = value_;
    }
    KindOfValue(const KindOfValue &) = delete;
    KindOfValue &operator=(const KindOfValue &) = delete;

private:
    lyd_node_any *any_;
    LYD_ANYDATA_VALUETYPE type_;
    lyd_any_value value_;
};

class Anydata : public testing::Test {
protected:
    lyd_node *any() { return zam_lyd_child(tree.get()); }

    std::string dump(LYD_FORMAT format) {
        uint32_t length = 99;
        const std::string text = take(zam_anydata_dump(any(), format, &length));
        EXPECT_EQ(length, text == "(null)" ? 0 : text.size());
        return text;
    }

    const Tree tree = parse_json(
        R"({"test-main:top":{"any":{"test-main:top":{"sub":{},"text":"q\"\u00e9"},"test-main:single":"s"}}})");
    const Tree empty = parse_json(R"({"test-main:top":{"any":{}}})");
    ly_ctx *ctx = test_context();
    LogCapture log;
};

TEST_F(Anydata, ATreeIsPrintedWholeInTheFormatAskedFor) {
    EXPECT_EQ(dump(LYD_JSON), "{\"test-main:top\":{\"text\":\"q\\\"\u00e9\",\"sub\":{}},\"test-main:single\":\"s\"}");
    EXPECT_EQ(
        dump(LYD_XML),
        "<top xmlns=\"urn:test:main\"><text>q\"\u00e9</text><sub/></top><single xmlns=\"urn:test:main\">s</single>");
    EXPECT_EQ(log.all(), "");
}

TEST_F(Anydata, ADumpWithoutLengthIsTheSame) {
    const std::string text = take(zam_anydata_dump(any(), LYD_JSON, nullptr));
    EXPECT_EQ(text, dump(LYD_JSON));
}

TEST_F(Anydata, AStoredTextIsDumpedAsItIsWhateverTheFormat) {
    for (const auto kind : {LYD_ANYDATA_STRING, LYD_ANYDATA_XML, LYD_ANYDATA_JSON}) {
        const KindOfValue changed{any(), kind, " any <text> {"};
        EXPECT_EQ(dump(LYD_JSON), " any <text> {");
        EXPECT_EQ(dump(LYD_XML), " any <text> {");
    }
}

TEST_F(Anydata, BinaryContentIsNotDumped) {
    const KindOfValue changed{any(), LYD_ANYDATA_LYB};
    EXPECT_EQ(dump(LYD_JSON), "(null)");
    EXPECT_EQ(log.all(), "[WRONG] The value type (4) of anydata is not supported.\n");
}

TEST_F(Anydata, AnEmptyOneHasNoText) {
    uint32_t length = 99;
    EXPECT_EQ(zam_anydata_dump(zam_lyd_child(empty.get()), LYD_JSON, &length), nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(zam_anydata_dump(zam_lyd_child(empty.get()), LYD_XML, &length), nullptr);
}

TEST_F(Anydata, ContentThatTheSchemaDoesNotKnowIsDumpedAsValidJson) {
    const Tree unknown{zam_lyd_new_path(nullptr, ctx, "/test-main:top/any", R"({"nothing:a":{"b":"q\"\\\n"}})")};
    ASSERT_TRUE(unknown);
    EXPECT_EQ(take(zam_anydata_dump(zam_lyd_child(unknown.get()), LYD_JSON, nullptr)),
              R"({"nothing:a":{"b":"q\"\\\n"}})");
}

TEST_F(Anydata, OtherNodesAndNullAreNotDumped) {
    uint32_t length = 99;
    EXPECT_EQ(zam_anydata_dump(nullptr, LYD_JSON, &length), nullptr);
    EXPECT_EQ(zam_anydata_dump(tree.get(), LYD_JSON, &length), nullptr);
    const Tree opaque{zam_lyd_new_opaq(nullptr, ctx, "any", "{}", "test-main")};
    EXPECT_EQ(zam_anydata_dump(opaque.get(), LYD_JSON, &length), nullptr);
    EXPECT_EQ(length, 0u);
}

TEST_F(Anydata, NoMemoryDumpsNothing) {
    const auto failures = fail_each_allocation([&](bool may_fail) {
        const std::string text = take(zam_anydata_dump(any(), LYD_JSON, nullptr));
        EXPECT_TRUE(text != "(null)" || may_fail);
    });
    EXPECT_GE(failures, 1u);
}

TEST_F(Anydata, ATreeIsCopied) {
    Tree copy{zam_anydata2lyd_tree(ctx, any(), 0)};
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->parent, nullptr);
    const std::string expected = dump(LYD_JSON);
    EXPECT_EQ(to_json(copy), expected);
    copy.reset();
    EXPECT_EQ(dump(LYD_JSON), expected);
}

TEST_F(Anydata, AStoredTextIsParsedInTheFormatOfItsFirstCharacter) {
    const uint32_t options = LYD_PARSE_ONLY | LYD_PARSE_STRICT;
    for (const char *text : {R"({"test-main:single":"s"})", R"(<single xmlns="urn:test:main">s</single>)"}) {
        for (const auto kind : {LYD_ANYDATA_STRING, LYD_ANYDATA_XML, LYD_ANYDATA_JSON}) {
            const KindOfValue changed{any(), kind, text};
            EXPECT_EQ(to_json(Tree{zam_anydata2lyd_tree(ctx, any(), options)}), R"({"test-main:single":"s"})");
        }
    }
}

TEST_F(Anydata, AStoredTextIsValidatedUnlessTheOptionsSayOtherwise) {
    const KindOfValue changed{any(), LYD_ANYDATA_JSON, R"({"test-main:word":["a","a"]})"};
    EXPECT_EQ(zam_anydata2lyd_tree(ctx, any(), 0), nullptr);
    EXPECT_EQ(to_json(Tree{zam_anydata2lyd_tree(ctx, any(), LYD_PARSE_ONLY)}), R"({"test-main:word":["a","a"]})");
}

TEST_F(Anydata, AStoredTextThatDoesNotParseMakesNoTree) {
    for (const char *text : {"", "no document", "<open", R"({"test-main:nothing":1})"}) {
        const KindOfValue changed{any(), LYD_ANYDATA_STRING, text};
        EXPECT_EQ(zam_anydata2lyd_tree(ctx, any(), LYD_PARSE_ONLY | LYD_PARSE_STRICT), nullptr) << text;
    }
}

TEST_F(Anydata, BinaryContentMakesNoTree) {
    const KindOfValue changed{any(), LYD_ANYDATA_LYB};
    EXPECT_EQ(zam_anydata2lyd_tree(ctx, any(), 0), nullptr);
    EXPECT_EQ(log.all(), "[WARN] Unknown anydata type :4.\n");
}

TEST_F(Anydata, AnEmptyOneMakesNoTree) {
    EXPECT_EQ(zam_anydata2lyd_tree(ctx, zam_lyd_child(empty.get()), 0), nullptr);
}

TEST_F(Anydata, NullArgumentsAndOtherNodesMakeNoTree) {
    EXPECT_EQ(zam_anydata2lyd_tree(nullptr, any(), 0), nullptr);
    EXPECT_EQ(zam_anydata2lyd_tree(ctx, nullptr, 0), nullptr);
    EXPECT_EQ(zam_anydata2lyd_tree(ctx, tree.get(), 0), nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST(TextFormat, TheFirstCharacterTells) {
    EXPECT_EQ(_get_format_by_str("<a/>"), LYD_XML);
    EXPECT_EQ(_get_format_by_str("{}"), LYD_JSON);
    EXPECT_EQ(_get_format_by_str(" <a/>"), LYD_JSON);
    EXPECT_EQ(_get_format_by_str("5"), LYD_JSON);
    EXPECT_EQ(_get_format_by_str(""), LYD_UNKNOWN);
    EXPECT_EQ(_get_format_by_str(nullptr), LYD_UNKNOWN);
    EXPECT_EQ(static_cast<int>(LYD_UNKNOWN), 0);
}

TEST(WholeText, ItIsParsedAsDataOrAsARequest) {
    const ly_ctx *ctx = test_context();
    const LogCapture log;
    const char *data = R"({"test-main:single":"s"})";
    const char *request = R"({"test-main:run":{"speed":1}})";
    EXPECT_EQ(to_json(Tree{_lyd_parse(ctx, data, LYD_JSON, LYD_PARSE_ONLY, 0)}), data);
    EXPECT_EQ(to_json(Tree{_lyd_parse(ctx, request, LYD_JSON, 0, 1)}), request);
    EXPECT_EQ(_lyd_parse(ctx, request, LYD_JSON, LYD_PARSE_ONLY, 0), nullptr);
    EXPECT_EQ(_lyd_parse(ctx, data, LYD_JSON, 0, 1), nullptr);
    EXPECT_EQ(_lyd_parse(ctx, nullptr, LYD_JSON, 0, 0), nullptr);
    EXPECT_EQ(_lyd_parse(nullptr, data, LYD_JSON, 0, 0), nullptr);
}

} // namespace
