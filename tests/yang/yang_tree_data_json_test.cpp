// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "yang/yang_internal.h"

#include "yang/yang_tree_data_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;
using yang::json_depth_max;
using yang::json_scan;
using yang::new_raw_json;
using yang::scan_json;

std::string repeated(std::string_view text, size_t times) {
    std::string all;
    while (times-- > 0)
        all += text;
    return all;
}

TEST(ScanJson, TakesEveryKindOfValue) {
    for (const std::string text : {"{}",
                                   "[]",
                                   "\"\"",
                                   "true",
                                   "false",
                                   "null",
                                   "0",
                                   "-0",
                                   "-1",
                                   "10",
                                   "1.5",
                                   "1e3",
                                   "1E+3",
                                   "1.25e-10",
                                   R"({"a":1})",
                                   R"({"a":{"b":[1,"x",null,true,{}]},"c":[]})",
                                   R"(["\"\\\/\b\f\n\r\t\u00e9\uD83D\uDE00"])",
                                   " \t\r\n{ \"a\" : [ 1 , 2 ] , \"b\" : { } } \n",
                                   R"({"":""})",
                                   R"({"a":1,"a":2})",
                                   "\"\x7f\"",
                                   "\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\""}) {
        const json_scan scan = scan_json(text);
        EXPECT_TRUE(scan.well_formed) << text;
        EXPECT_EQ(scan.offset, text.size()) << text;
    }
}

TEST(ScanJson, RefusesWhatIsNoValue) {
    for (const std::string text : {"",
                                   " ",
                                   "{",
                                   "}",
                                   "[",
                                   "]",
                                   "{]",
                                   "[}",
                                   "\"",
                                   "\"a",
                                   "tru",
                                   "True",
                                   "nul",
                                   "NaN",
                                   "Infinity",
                                   "+1",
                                   "-",
                                   "01",
                                   "-01",
                                   ".5",
                                   "1.",
                                   "1.e3",
                                   "1e",
                                   "1e+",
                                   "0x10",
                                   "1_0",
                                   "{,}",
                                   "[,]",
                                   "[1,]",
                                   "[1 2]",
                                   "{\"a\"}",
                                   "{\"a\":}",
                                   "{\"a\":1,}",
                                   "{a:1}",
                                   "{'a':1}",
                                   "{\"a\" 1}",
                                   "{\"a\":1 \"b\":2}",
                                   "{1:2}",
                                   "{\"a\":1,2}",
                                   "1 2",
                                   "{}{}",
                                   "{} x",
                                   "[1]]",
                                   "{\"a\":1}}",
                                   "'a'",
                                   "// c\n1",
                                   "<a/>"}) {
        EXPECT_FALSE(scan_json(text).well_formed) << text;
    }
}

TEST(ScanJson, RefusesBadEscapesAndControlCharacters) {
    for (const std::string text : {R"("\x")", R"("\u12")", R"("\u12g4")", R"("\U0041")", R"("\)", R"("\")", R"("\u)",
                                   "\"a\nb\"", "\"\t\"", "\"\x1f\""}) {
        EXPECT_FALSE(scan_json(text).well_formed) << text;
    }
    EXPECT_FALSE(scan_json(std::string_view{"\"a\0b\"", 5}).well_formed);
    EXPECT_FALSE(scan_json(std::string_view{"{}\0", 3}).well_formed);
}

TEST(ScanJson, RefusesTextThatIsNotUtf8) {
    for (const std::string text :
         {"\"\x80\"", "\"\xC3\"", "\"\xC3(\"", "\"\xC0\x80\"", "\"\xC1\xBF\"", "\"\xE0\x80\x80\"", "\"\xE2\x82\"",
          "\"\xED\xA0\x80\"", "\"\xED\xBF\xBF\"", "\"\xF0\x80\x80\x80\"", "\"\xF4\x90\x80\x80\"",
          "\"\xF5\x80\x80\x80\"", "\"\xF8\x88\x80\x80\x80\"", "\"\xFF\"", "\"\xFE\"", "\xEF\xBB\xBF{}"}) {
        EXPECT_FALSE(scan_json(text).well_formed) << testing::PrintToString(text);
    }
}

TEST(ScanJson, TellsWhereTheFaultIs) {
    EXPECT_EQ(scan_json("").offset, 0u);
    EXPECT_EQ(scan_json(R"({"a":x})").offset, 5u);
    EXPECT_EQ(scan_json(R"({"a":1}tail)").offset, 7u);
    EXPECT_EQ(scan_json(R"([1,2)").offset, 4u);
}

TEST(ScanJson, NoticesAnArrayDirectlyInAnArray) {
    EXPECT_TRUE(scan_json("[[1]]").nested_arrays);
    EXPECT_TRUE(scan_json(R"({"a":[1,[]]})").nested_arrays);
    EXPECT_FALSE(scan_json(R"([{"a":[1]},2])").nested_arrays);
    EXPECT_FALSE(scan_json(R"({"a":["[["]})").nested_arrays);
}

TEST(ScanJson, TakesBracketsUpToTheLimit) {
    const size_t limit = json_depth_max;
    EXPECT_TRUE(scan_json(repeated("[", limit) + repeated("]", limit)).well_formed);
    EXPECT_TRUE(scan_json(repeated(R"({"a":)", limit) + "1" + repeated("}", limit)).well_formed);
    EXPECT_FALSE(scan_json(repeated("[", limit + 2) + repeated("]", limit + 2)).well_formed);
    EXPECT_FALSE(scan_json(repeated(R"({"a":)", limit + 1) + "1" + repeated("}", limit + 1)).well_formed);
}

TEST(ScanJson, DoesNotRunOutOfStack) {
    EXPECT_FALSE(scan_json(repeated("[", 10'000'000)).well_formed);
}

// JSON in the anydata of an RPC's input, printed with the RPC around it.
class RawJson : public SchemaTest {
protected:
    static constexpr const char *begin = R"({"test-main:run":{)";

    static Tree run() { return Tree{zam_lyd_new_inner(nullptr, module("test-main"), "run")}; }

    static std::string printed(const std::string &text) {
        const Tree root = run();
        EXPECT_TRUE(new_raw_json(root.get(), nullptr, "content", text.c_str(), false)) << text;
        return to_json(root);
    }
    static std::string expected(const std::string &text) { return begin + (R"("content":)" + text) + "}}"; }
};

TEST_F(RawJson, AnObjectGoesOutByteForByte) {
    for (const std::string text :
         {R"({"a":"q\"w\\e\n\u00e9\/"})", R"({"a":{}})", R"({"a":null})", R"({"a":[]})", R"({"a":[[1],[]]})",
          R"({"a":1e3})", R"({"a":-0.50E+10})", R"({"a":"x","@a":{"m:n":"v"}})", R"({"@a":{"m:n":1}})",
          R"({"m:a":{"b":[{"c":1},{"c":2}]},"n:d":true,"e":"5"})", R"({"a":"<&>'"})", R"({"a":5})", R"({"a":"5"})",
          "{\"a\":\"\xE2\x82\xAC\"}", R"({"a.b-c_d":1})", R"({"a b":1})", R"({"a":1,"a":2})"}) {
        EXPECT_EQ(printed(text), expected(text));
    }
}

TEST_F(RawJson, BlanksGoOutAsTheyCame) {
    for (const std::string text : {R"({ "a":1})", R"({"a": 1})", R"({"a" :1})", R"({"a":1 })", R"( {"a":1})",
                                   R"({"a":1} )", "{ }", "\n{\n\t\"a\" : [ 1 ,\r\n 2 ]\n}\n", " [ ] "}) {
        EXPECT_EQ(printed(text), expected(text));
    }
}

TEST_F(RawJson, AnyOtherValueGoesOutByteForByteToo) {
    for (const std::string text :
         {"[1,2]", "[]", "[[]]", "5", "-1.5e3", "true", "false", "null", R"("x")", R"("")", R"("q\"\\")"}) {
        EXPECT_EQ(printed(text), expected(text));
    }
}

TEST_F(RawJson, FirstNamesThatNeedEscapesGoOutAsWritten) {
    for (const std::string text :
         {R"({"a\"b":1})", R"({"a\\":1})", R"({"\u0061":1})", R"({"":1})", R"({"a\n":{"b":2}})", R"({"x":{"":""}})"}) {
        EXPECT_EQ(printed(text), expected(text));
    }
}

TEST_F(RawJson, TheEmptyObjectIsAnEmptyAnydata) {
    const Tree root = run();
    const lyd_node *any = new_raw_json(root.get(), nullptr, "content", "{}", false);
    ASSERT_TRUE(any && any->schema);
    EXPECT_EQ(reinterpret_cast<const lyd_node_any *>(any)->value.tree, nullptr);
    EXPECT_EQ(to_json(root), expected("{}"));
}

TEST_F(RawJson, AnObjectIsAnAnydataOfTheSchema) {
    const Tree root = run();
    const lyd_node *any = new_raw_json(root.get(), nullptr, "content", R"({"a":1})", false);
    ASSERT_TRUE(any);
    EXPECT_EQ(any->schema, schema_at("/test-main:run/content"));
    EXPECT_EQ(parent_of(any), root.get());
}

TEST_F(RawJson, AnyOtherValueIsAnOpaqueLeafOfTheAnydatasName) {
    const Tree root = run();
    const lyd_node *leaf = new_raw_json(root.get(), nullptr, "content", "[1]", false);
    ASSERT_TRUE(leaf);
    EXPECT_EQ(leaf->schema, nullptr);
    EXPECT_STREQ(zam_lyd_get_schema_name(leaf), "content");
    EXPECT_STREQ(zam_lyd_get_module_name(leaf), "test-main");
}

TEST_F(RawJson, AValueStandsBehindTheOtherMembers) {
    const Tree root = run();
    ASSERT_TRUE(new_raw_json(root.get(), nullptr, "content", "[1]", false));
    ASSERT_TRUE(zam_lyd_new_leaf(root.get(), nullptr, "speed", "3"));
    EXPECT_EQ(to_json(root), R"({"test-main:run":{"speed":3,"content":[1]}})");
}

TEST_F(RawJson, TheTextIsCopied) {
    const Tree root = run();
    std::string text = R"({"a":"b"})";
    ASSERT_TRUE(new_raw_json(root.get(), nullptr, "content", text.c_str(), false));
    text.assign(text.size(), 'x');
    EXPECT_EQ(to_json(root), expected(R"({"a":"b"})"));
}

TEST_F(RawJson, ACopyOfTheTreePrintsTheSameText) {
    for (const std::string text : {R"({"a":"q\"w","b":[]})", R"([1, "\n"])"}) {
        const Tree root = run();
        ASSERT_TRUE(new_raw_json(root.get(), nullptr, "content", text.c_str(), false));
        const Tree copy{zam_lyd_dup(root.get(), LYD_DUP_RECURSIVE)};
        EXPECT_EQ(to_json(copy), expected(text));
    }
}

TEST_F(RawJson, ALargeTextGoesOutWhole) {
    const std::string text = R"({"a":[)" + repeated(R"({"b":"c\\"},)", 100'000) + "0]}";
    EXPECT_EQ(printed(text), expected(text));
}

TEST_F(RawJson, AnOutputHoldsJsonToo) {
    const Tree root{zam_lyd_new_inner(nullptr, module("test-kinds"), "compute")};
    ASSERT_TRUE(new_raw_json(root.get(), nullptr, "rest", R"({"a": []})", true));
    EXPECT_EQ(to_json(root), R"({"test-kinds:compute":{"rest":{"a": []}}})");
}

TEST_F(RawJson, TheAnydataOfALightweightParentIsFound) {
    const Tree root = lightweight("/test-main:top");
    ASSERT_TRUE(new_raw_json(root.get(), module("test-main"), "any", R"({"a": []})", false));
    EXPECT_EQ(to_json(root), R"({"test-main:top":{"any":{"a": []}}})");
}

TEST_F(RawJson, TextThatIsNotOneValueIsRefused) {
    for (const std::string text : {"", " ", "{", R"({"a":1}})", R"({"a":1},"b":{})", R"({"a":1} x)", R"({"a":1]})",
                                   "words", R"({"a":"b)", "{\"a\":\"\x01\"}", "{\"a\":\"\xFF\"}"}) {
        const Tree root = run();
        const LogCapture log;
        EXPECT_EQ(new_raw_json(root.get(), nullptr, "content", text.c_str(), false), nullptr) << text;
        ASSERT_EQ(log.lines().size(), 1u) << text;
        EXPECT_EQ(log.lines().front().level, 3);
        EXPECT_EQ(to_json(root), R"({"test-main:run":{}})");
    }
}

TEST_F(RawJson, OnlyAnAnydataTakesJson) {
    const Tree root = run();
    for (const char *name : {"speed", "nothing", ""}) {
        const LogCapture log;
        EXPECT_EQ(new_raw_json(root.get(), nullptr, name, "{}", false), nullptr) << name;
        ASSERT_FALSE(log.lines().empty());
        EXPECT_EQ(log.lines().back().level, 3);
    }
    const Tree compute{zam_lyd_new_inner(nullptr, module("test-kinds"), "compute")};
    EXPECT_EQ(new_raw_json(compute.get(), nullptr, "rest", "{}", false), nullptr) << "one of the output";
    EXPECT_EQ(to_json(compute), R"({"test-kinds:compute":{}})");
}

TEST_F(RawJson, NullArgumentsMakeNothing) {
    const Tree root = run();
    const Tree strange{new_opaque(nullptr, "run", nullptr)};
    EXPECT_EQ(new_raw_json(nullptr, module("test-main"), "content", "{}", false), nullptr);
    EXPECT_EQ(new_raw_json(root.get(), nullptr, nullptr, "{}", false), nullptr);
    EXPECT_EQ(new_raw_json(root.get(), nullptr, "content", nullptr, false), nullptr);
    EXPECT_EQ(new_raw_json(strange.get(), module("test-main"), "content", "{}", false), nullptr);
}

TEST_F(RawJson, WithoutMemoryNothingIsAttached) {
    const uint64_t failed = fail_each_allocation([](bool expect_failure) {
        const Tree root{zam_lyd_new_inner(nullptr, module("test-main"), "run")};
        const lyd_node *any = new_raw_json(root.get(), nullptr, "content", R"({"a":1})", false);
        if (!expect_failure) {
            EXPECT_TRUE(any);
        }
        EXPECT_EQ(children(root.get()).size(), any ? 1u : 0u);
    });
    EXPECT_EQ(failed, 1u);
}

TEST_F(RawJson, TheTreeIsReleasedWhole) {
    const Heap heap;
    for (const char *text : {"{}", R"({"a":1})", "[1]"}) {
        Tree root = lightweight("/test-main:run");
        ASSERT_TRUE(new_raw_json(root.get(), nullptr, "content", text, false));
        root.reset();
        EXPECT_EQ(heap.live(), 0u);
    }
}

} // namespace
} // namespace zam::test
