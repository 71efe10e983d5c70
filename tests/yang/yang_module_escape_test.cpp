// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Nodes without a schema come out of the printer as valid JSON, whatever they hold.
#include "yang/yang_module_internal.h"

#include <vector>

#include "support/files.h"
#include "support/heap.h"
#include "yang/yang_internal.h"
#include "yang/yang_module_fixture.h"

namespace {

using namespace zam::test;
using namespace zam::test::layer;
using testing::IsEmpty;

class OpaqueJson : public SampleTest {
protected:
    Tree unknown(const char *text, LYD_FORMAT format = LYD_JSON) const {
        return Tree{zam_lyd_parse_data_mem(ctx(), text, format, LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0)};
    }
    // Parsed and printed again.
    std::string again(const char *text, LYD_FORMAT format = LYD_JSON) const {
        const Tree tree = unknown(text, format);
        return tree ? print_json(tree.get()) : "(not parsed)";
    }
};

bool is_json(const std::string &text) {
    return zam::yang::scan_json(text).well_formed;
}

// Name and value pointers of a tree, to see that printing leaves them alone.
std::vector<const char *> pointers(const lyd_node *first) {
    std::vector<const char *> found;
    for (const lyd_node *node = first; node; node = node->next) {
        if (node->schema) {
            const auto inner = pointers(lyd_child(node));
            found.insert(found.end(), inner.begin(), inner.end());
            continue;
        }
        const auto *const opaque = reinterpret_cast<const lyd_node_opaq *>(node);
        found.push_back(opaque->name.name);
        found.push_back(opaque->name.module_name);
        found.push_back(opaque->value);
        const auto inner = pointers(opaque->child);
        found.insert(found.end(), inner.begin(), inner.end());
    }
    return found;
}

TEST_F(OpaqueJson, QuotesAndBackslashesStayEscaped) {
    EXPECT_EQ(again(R"({"sample:x":"q\"w\\e"})"), R"({"sample:x":"q\"w\\e"})");
}

TEST_F(OpaqueJson, ControlCharactersStayEscaped) {
    EXPECT_EQ(again(R"({"sample:x":"a\nb\tc\rd"})"), R"({"sample:x":"a\nb\tc\rd"})");
}

TEST_F(OpaqueJson, NonAsciiStays) {
    EXPECT_EQ(again("{\"sample:x\":\"h\u00e9\u20ac\U0001F600\"}"), "{\"sample:x\":\"h\u00e9\u20ac\U0001F600\"}");
}

TEST_F(OpaqueJson, EveryByteOfAValueReadsBackTheSame) {
    std::string value;
    for (char c = 1; c < 127; ++c)
        value += c;
    const Tree node{zam_lyd_new_opaq(nullptr, ctx(), "x", value.c_str(), "sample")};
    ASSERT_TRUE(node);
    const std::string text = print_json(node.get());
    EXPECT_TRUE(is_json(text)) << text;
    // libyang itself takes no control characters but the blanks, even escaped; what it takes must come back.
    std::string readable;
    for (const char c : value)
        if (c >= 0x20 || c == '\n' || c == '\t' || c == '\r') readable += c;
    const Tree plain{zam_lyd_new_opaq(nullptr, ctx(), "x", readable.c_str(), "sample")};
    const Tree back = unknown(print_json(plain.get()).c_str());
    ASSERT_TRUE(back);
    EXPECT_EQ(reinterpret_cast<const lyd_node_opaq *>(back.get())->value, readable);
}

TEST_F(OpaqueJson, NestedObjectsAreReached) {
    EXPECT_EQ(again(R"({"sample:top":{"x":{"y":{"z":"\"deep\""}}}})"),
              R"({"sample:top":{"x":{"y":{"z":"\"deep\""}}}})");
}

TEST_F(OpaqueJson, TheInsideOfAnydataIsReached) {
    EXPECT_EQ(again(R"({"sample:top":{"blob":{"any:x":"\"deep\"","any:y":[{"z":"\\"},{"z":"b"}]}}})"),
              R"({"sample:top":{"blob":{"any:x":"\"deep\"","any:y":[{"z":"\\"},{"z":"b"}]}}})");
}

TEST_F(OpaqueJson, ArraysStayTogether) {
    EXPECT_EQ(again(R"({"sample:x":["\"a","b\\","c"]})"), R"({"sample:x":["\"a","b\\","c"]})");
    EXPECT_EQ(again(R"({"sample:x":[{"k":"\"1"},{"k":"2"}]})"), R"({"sample:x":[{"k":"\"1"},{"k":"2"}]})");
}

TEST_F(OpaqueJson, NamesAreEscaped) {
    const Tree tree{zam_lyd_new_opaq(nullptr, ctx(), "a\"b", "v", "sample")};
    ASSERT_TRUE(tree);
    EXPECT_EQ(print_json(tree.get()), R"({"sample:a\"b":"v"})");
    EXPECT_EQ(print_json(tree.get(), 0), R"({"sample:a\"b":"v"})");
}

TEST_F(OpaqueJson, ArraysUnderAnEscapedNameStayTogether) {
    EXPECT_EQ(again(R"({"sample:a\"b":["x","y"],"sample:c":["z"]})"), R"({"sample:a\"b":["x","y"],"sample:c":["z"]})");
    EXPECT_EQ(again(R"({"sample:a\"b":[{"k":1},{"k":2}]})"), R"({"sample:a\"b":[{"k":1},{"k":2}]})");
}

TEST_F(OpaqueJson, ModuleNamesAreEscaped) {
    const Tree tree{zam_lyd_new_opaq(nullptr, ctx(), "x", "v", "mod\"ule")};
    ASSERT_TRUE(tree);
    EXPECT_EQ(print_json(tree.get()), R"({"mod\"ule:x":"v"})");
}

TEST_F(OpaqueJson, NumbersAndBooleansStayBare) {
    EXPECT_EQ(again(R"({"sample:x":12,"sample:y":true,"sample:z":-1.5})"),
              R"({"sample:x":12,"sample:y":true,"sample:z":-1.5})");
}

TEST_F(OpaqueJson, ValuesOfXmlAreQuotedUnlessTheyAreNumbersOrBooleans) {
    const std::string text = again(
        R"(<r xmlns="urn:none"><a>t</a><b>007</b><c>x&quot;y</c><d>5</d><e>true</e><f>-</f><g>1e</g></r>)", LYD_XML);
    EXPECT_TRUE(is_json(text)) << text;
    EXPECT_THAT(text, testing::HasSubstr(R"("a":"t")"));
    EXPECT_THAT(text, testing::HasSubstr(R"("b":"007")"));
    EXPECT_THAT(text, testing::HasSubstr(R"("c":"x\"y")"));
    EXPECT_THAT(text, testing::HasSubstr(R"("f":"-")"));
    EXPECT_THAT(text, testing::HasSubstr(R"("g":"1e")"));
}

TEST_F(OpaqueJson, AttributesAreEscaped) {
    const Tree node{zam_lyd_new_opaq(nullptr, ctx(), "extra", "v", "other")};
    ASSERT_EQ(zam_lyd_new_meta(node.get(), "sample", "mark", nullptr, "q\"w\\e\n"), LY_SUCCESS);
    const std::string text = print_json(node.get());
    EXPECT_TRUE(is_json(text)) << text;
    EXPECT_THAT(text, testing::HasSubstr(R"("sample:mark":"q\"w\\e)"));
}

TEST_F(OpaqueJson, OnlyWhatIsPrintedIsTouched) {
    const Tree first{zam_lyd_new_opaq(nullptr, ctx(), "x", "\"1", "sample")};
    lyd_node *const second = zam_lyd_new_opaq(nullptr, ctx(), "y", "\"2", "sample");
    ASSERT_EQ(lyd_insert_sibling(first.get(), second, nullptr), LY_SUCCESS);
    EXPECT_EQ(print_json(first.get(), 0), R"({"sample:x":"\"1"})");
    EXPECT_EQ(print_json(second, LYD_PRINT_WITHSIBLINGS), R"({"sample:y":"\"2"})");
    EXPECT_EQ(print_json(first.get()), R"({"sample:x":"\"1","sample:y":"\"2"})");
}

TEST_F(OpaqueJson, TheTreeIsAsBeforeAfterwards) {
    const Tree tree = unknown(R"({"sample:top":{"x":"\"","y":["\\","b"],"z":{"w":"\n"}},"sample:v":"\""})");
    ASSERT_TRUE(tree);
    const auto before = pointers(tree.get());
    print_json(tree.get());
    EXPECT_EQ(pointers(tree.get()), before);
}

TEST_F(OpaqueJson, XmlIsLeftToLibyang) {
    const Tree tree = unknown(R"({"sample:top":{"x":"q\"<\\"}})");
    ASSERT_TRUE(tree);
    EXPECT_THAT(print_xml(tree.get()), testing::HasSubstr(">q\"&lt;\\<"));
}

TEST_F(OpaqueJson, FilesAreValidToo) {
    const TempDir dir;
    const Tree tree = unknown(R"({"sample:x":"q\"w\\e\n"})");
    ASSERT_TRUE(tree);
    FILE *const file = std::fopen(dir.path("out").c_str(), "w");
    ASSERT_TRUE(file);
    EXPECT_EQ(zam_lyd_print_file(file, tree.get(), LYD_JSON, LYD_PRINT_SHRINK | LYD_PRINT_WITHSIBLINGS), LY_SUCCESS);
    std::fclose(file);
    EXPECT_EQ(read_file(dir.path("out")), R"({"sample:x":"q\"w\\e\n"})");
}

TEST_F(OpaqueJson, WithoutMemoryNothingIsPrintedAndNothingChanged) {
    const Tree tree = unknown(R"({"sample:top":{"x":"\"","y":["\\","b\""],"z":{"w":"\n"}},"sample:v":"\""})");
    ASSERT_TRUE(tree);
    const auto before = pointers(tree.get());
    const uint64_t failures = fail_each_allocation([&](bool expect_failure) {
        LogCapture log;
        char *text = nullptr;
        const LY_ERR result = zam_lyd_print_mem(&text, tree.get(), LYD_JSON, LYD_PRINT_WITHSIBLINGS);
        const Text owned{text};
        EXPECT_EQ(pointers(tree.get()), before);
        if (result == LY_SUCCESS) {
            EXPECT_TRUE(text && is_json(text));
            return;
        }
        EXPECT_TRUE(expect_failure);
        EXPECT_EQ(result, LY_EMEM);
        EXPECT_EQ(text, nullptr);
        EXPECT_EQ(log.count(3, "[libyang]Print mem unsuccessful, ret : 1"), 1);
    });
    EXPECT_GE(failures, 4u);
}

} // namespace
