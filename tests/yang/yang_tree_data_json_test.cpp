// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "yang/yang_internal.h"

#include "yang/yang_tree_data_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;
using yang::new_raw_json;

std::string repeated(std::string_view text, size_t times) {
    std::string all;
    while (times-- > 0)
        all += text;
    return all;
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
