// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <string>

#include <gtest/gtest.h>
#include <zamc/yang_module.h>
#include <zamc/yang_wrap.h>

#include "support/heap.h"
#include "support/log_capture.h"
#include "support/test_schema.h"

namespace {

using namespace zam::test;

constexpr uint32_t unvalidated = LYD_PARSE_ONLY | LYD_PARSE_STRICT;

class ParseMem : public testing::Test {
protected:
    Tree parse(LYD_FORMAT format, const char *path, const char *data, int32_t bare = 1) {
        const zam_mem_doc doc{path, data, format};
        return Tree{zam_parse_mem(ctx, &doc, unvalidated, bare, 0)};
    }
    // The tree that a fragment makes, in JSON whatever the format of the fragment; "" for none.
    std::string from_json(const char *path, const char *data, int32_t bare = 1) {
        return to_json(parse(LYD_JSON, path, data, bare));
    }
    std::string from_xml(const char *path, const char *data) { return to_json(parse(LYD_XML, path, data)); }

    void expect_incomplete(const char *path) {
        EXPECT_EQ(log.count(3, "Build complete message unsuccessful, path(" + std::string{path} + ")."), 1)
            << log.all();
        log.clear();
    }

    ly_ctx *ctx = test_context();
    LogCapture log;
};

TEST_F(ParseMem, ASlashParsesAWholeDocument) {
    EXPECT_EQ(from_json("/", R"({"test-main:top":{"text":"t"},"test-main:single":"s"})"),
              R"({"test-main:top":{"text":"t"},"test-main:single":"s"})");
    EXPECT_EQ(from_xml("/", R"(<top xmlns="urn:test:main"><text>t</text></top>)"), R"({"test-main:top":{"text":"t"}})");
}

TEST_F(ParseMem, ASlashWithTheOperationFlagParsesARequest) {
    const zam_mem_doc json{"/", R"({"test-main:run":{"speed":5}})", LYD_JSON};
    EXPECT_EQ(to_json(Tree{zam_parse_mem(ctx, &json, 0, 1, 1)}), R"({"test-main:run":{"speed":5}})");
    const zam_mem_doc xml{"/", R"(<run xmlns="urn:test:main"><speed>5</speed></run>)", LYD_XML};
    EXPECT_EQ(to_json(Tree{zam_parse_mem(ctx, &xml, 0, 1, 1)}), R"({"test-main:run":{"speed":5}})");
}

TEST_F(ParseMem, AnActionIsParsedWithItsParents) {
    const zam_mem_doc doc{"/", R"({"test-main:top":{"item":[{"name":"a","reset":{"delay":3}}]}})", LYD_JSON};
    EXPECT_EQ(to_json(Tree{zam_parse_mem(ctx, &doc, 0, 1, 1)}),
              R"({"test-main:top":{"item":[{"name":"a","reset":{"delay":3}}]}})");
}

TEST_F(ParseMem, ARequestIsNoData) {
    EXPECT_EQ(from_json("/", R"({"test-main:run":{"speed":5}})"), "");
}

TEST_F(ParseMem, ADocumentThatDoesNotParseGivesNothing) {
    EXPECT_EQ(from_json("/", "no document"), "");
    EXPECT_EQ(from_json("/", R"({"test-main:nothing":1})"), "");
    EXPECT_EQ(from_json("/", ""), "");
    EXPECT_EQ(from_json("/", nullptr), "");
}

TEST_F(ParseMem, WithoutContentThePathAloneMakesTheTree) {
    EXPECT_EQ(from_json("/test-main:top/sub", ""), R"({"test-main:top":{"sub":{}}})");
    EXPECT_EQ(from_json("/test-main:top/item[name='a']", nullptr), R"({"test-main:top":{"item":[{"name":"a"}]}})");
    EXPECT_EQ(from_xml("/test-main:top/text", ""), R"({"test-main:top":{"text":""}})");
    EXPECT_EQ(from_json("/test-main:top/tag[.='x']", ""), R"({"test-main:top":{"tag":["x"]}})");
    EXPECT_EQ(from_json("/test-main:top/any", ""), R"({"test-main:top":{"any":{}}})");
}

TEST_F(ParseMem, AContainerTakesItsMembersInJsonAndTheElementInXml) {
    EXPECT_EQ(from_json("/test-main:top/sub", R"({"a":"x","inner":{"c":"z"}})"),
              R"({"test-main:top":{"sub":{"a":"x","inner":{"c":"z"}}}})");
    EXPECT_EQ(from_xml("/test-main:top/sub", "<sub><a>x</a><inner><c>z</c></inner></sub>"),
              R"({"test-main:top":{"sub":{"a":"x","inner":{"c":"z"}}}})");
}

TEST_F(ParseMem, ATopContainerIsFilled) {
    EXPECT_EQ(from_json("/test-main:top", R"({"text":"x"})"), R"({"test-main:top":{"text":"x"}})");
    EXPECT_EQ(from_xml("/test-main:top", R"(<top xmlns="urn:test:main"><text>x</text></top>)"),
              R"({"test-main:top":{"text":"x"}})");
}

TEST_F(ParseMem, AContainerOfAnotherModuleIsFilled) {
    EXPECT_EQ(from_json("/test-main:top/test-extra:more", R"({"x":3})"),
              R"({"test-main:top":{"test-extra:more":{"x":3}}})");
    EXPECT_EQ(from_xml("/test-main:top/test-extra:more", R"(<more xmlns="urn:test:extra"><x>3</x></more>)"),
              R"({"test-main:top":{"test-extra:more":{"x":3}}})");
}

TEST_F(ParseMem, AContainerInsideAnEntryIsFilled) {
    EXPECT_EQ(from_json("/test-main:top/item[name='a']/box", R"({"size":3})"),
              R"({"test-main:top":{"item":[{"name":"a","box":{"size":3}}]}})");
    EXPECT_EQ(from_xml("/test-main:top/item[name='a']/box", "<box><size>3</size></box>"),
              R"({"test-main:top":{"item":[{"name":"a","box":{"size":3}}]}})");
}

TEST_F(ParseMem, AWrappedContainerIsUnwrapped) {
    EXPECT_EQ(from_json("/test-main:top/sub", R"({"sub":{"a":"x"}})", 0), R"({"test-main:top":{"sub":{"a":"x"}}})");
    EXPECT_EQ(from_json("/test-main:top/sub", R"({"a":"x"})", 0), "");
    expect_incomplete("/test-main:top/sub");
}

TEST_F(ParseMem, AListTakesItsEntries) {
    const char *expected = R"({"test-main:top":{"item":[{"name":"a","value":1},{"name":"b"}]}})";
    EXPECT_EQ(from_json("/test-main:top/item", R"([{"name":"a","value":1},{"name":"b"}])"), expected);
    EXPECT_EQ(from_xml("/test-main:top/item", "<item><name>a</name><value>1</value></item><item><name>b</name></item>"),
              expected);
}

TEST_F(ParseMem, AListEntryIsReplacedByTheContentAsAWhole) {
    const char *expected = R"({"test-main:top":{"item":[{"name":"b","value":1}]}})";
    EXPECT_EQ(from_json("/test-main:top/item[name='a']", R"([{"name":"b","value":1}])"), expected);
    EXPECT_EQ(from_xml("/test-main:top/item[name='a']", "<item><name>b</name><value>1</value></item>"), expected);
}

TEST_F(ParseMem, AListInsideAnEntryKeepsTheEntrysKeys) {
    const char *expected = R"({"test-main:top":{"item":[{"name":"a","part":[{"row":1,"column":2,"label":"l"}]}]}})";
    EXPECT_EQ(
        from_json("/test-main:top/item[name='a']/part[row='1'][column='2']", R"([{"row":1,"column":2,"label":"l"}])"),
        expected);
    EXPECT_EQ(from_xml("/test-main:top/item[name='a']/part[row='1'][column='2']",
                       "<part><row>1</row><column>2</column><label>l</label></part>"),
              expected);
    EXPECT_EQ(from_json("/test-main:top/item[name='a']/part", R"([{"row":1,"column":2,"label":"l"}])"), expected);
}

TEST_F(ParseMem, ATopListIsFilledWithAndWithoutKeys) {
    const char *expected = R"({"test-main:entry":[{"id":"1","value":2}]})";
    const char *xml = R"(<entry xmlns="urn:test:main"><id>1</id><value>2</value></entry>)";
    EXPECT_EQ(from_json("/test-main:entry", R"([{"id":"1","value":2}])"), expected);
    EXPECT_EQ(from_json("/test-main:entry[id='1']", R"([{"id":"1","value":2}])"), expected);
    EXPECT_EQ(from_xml("/test-main:entry", xml), expected);
    EXPECT_EQ(from_xml("/test-main:entry[id='1']", xml), expected);
}

TEST_F(ParseMem, AListOfAnotherModuleIsFilledWithAndWithoutKeys) {
    const char *expected = R"({"test-main:top":{"test-extra:far":[{"id":"1","value":2}]}})";
    const char *xml = R"(<far xmlns="urn:test:extra"><id>1</id><value>2</value></far>)";
    EXPECT_EQ(from_json("/test-main:top/test-extra:far", R"([{"id":"1","value":2}])"), expected);
    EXPECT_EQ(from_json("/test-main:top/test-extra:far[id='1']", R"([{"id":"1","value":2}])"), expected);
    EXPECT_EQ(from_xml("/test-main:top/test-extra:far", xml), expected);
    EXPECT_EQ(from_xml("/test-main:top/test-extra:far[id='1']", xml), expected);
}

TEST_F(ParseMem, AKeylessListIsFilled) {
    EXPECT_EQ(from_json("/test-main:top/reading", R"([{"at":1},{"at":1}])"),
              R"({"test-main:top":{"reading":[{"at":1},{"at":1}]}})");
}

TEST_F(ParseMem, AWrappedListIsUnwrapped) {
    EXPECT_EQ(from_json("/test-main:top/item", R"({"item":[{"name":"a"}]})", 0),
              R"({"test-main:top":{"item":[{"name":"a"}]}})");
    EXPECT_EQ(from_json("/test-main:top/item", "{}", 0), "");
    expect_incomplete("/test-main:top/item");
}

TEST_F(ParseMem, ALeafListTakesItsValues) {
    EXPECT_EQ(from_json("/test-main:top/tag", R"(["x","y"])"), R"({"test-main:top":{"tag":["x","y"]}})");
    EXPECT_EQ(from_xml("/test-main:top/tag", "<tag>x</tag><tag>y</tag>"), R"({"test-main:top":{"tag":["x","y"]}})");
    EXPECT_EQ(from_json("/test-main:word", R"(["x","y"])"), R"({"test-main:word":["x","y"]})");
    EXPECT_EQ(from_xml("/test-main:word", R"(<word xmlns="urn:test:main">x</word>)"), R"({"test-main:word":["x"]})");
    EXPECT_EQ(from_json("/test-main:top/test-extra:mark", R"(["x"])"),
              R"({"test-main:top":{"test-extra:mark":["x"]}})");
}

TEST_F(ParseMem, AWrappedLeafListIsUnwrapped) {
    EXPECT_EQ(from_json("/test-main:top/tag", R"({"tag":["x","y"]})", 0), R"({"test-main:top":{"tag":["x","y"]}})");
}

TEST_F(ParseMem, ALeafListOfNumbersIsRefusedInJson) {
    EXPECT_EQ(from_json("/test-main:top/count", "[1,2]"), "");
    expect_incomplete("/test-main:top/count");
    EXPECT_EQ(from_xml("/test-main:top/count", "<count>1</count><count>2</count>"),
              R"({"test-main:top":{"count":[1,2]}})");
}

TEST_F(ParseMem, ALeafListEntryThatThePathNamesMayBeTheContent) {
    EXPECT_EQ(from_json("/test-main:top/tag[.='x']", R"(["x"])"), R"({"test-main:top":{"tag":["x"]}})");
    EXPECT_EQ(from_xml("/test-main:top/tag[.='x']", "<tag>x</tag>"), R"({"test-main:top":{"tag":["x"]}})");
    EXPECT_EQ(from_xml("/test-main:top/tag[.='x']", "<tag/>"), R"({"test-main:top":{"tag":["x"]}})");
    EXPECT_EQ(from_json("/test-main:top/tag[.='x']", R"(["y"])"), "");
    expect_incomplete("/test-main:top/tag[.='x']");
}

TEST_F(ParseMem, AnIdentityLeafListEntryMayBeTheContent) {
    EXPECT_EQ(from_json("/test-main:top/shape[.='round']", R"(["round"])"),
              R"({"test-main:top":{"shape":["test-main:round"]}})");
}

TEST_F(ParseMem, ABareJsonLeafIsTheWholeFragment) {
    EXPECT_EQ(from_json("/test-main:top/text", "any text"), R"({"test-main:top":{"text":"any text"}})");
    EXPECT_EQ(from_json("/test-main:top/number", "5"), R"({"test-main:top":{"number":5}})");
    EXPECT_EQ(from_json("/test-main:top/item[name='a']/value", "5"),
              R"({"test-main:top":{"item":[{"name":"a","value":5}]}})");
    EXPECT_EQ(from_json("/test-main:top/text", R"({"text":"x"})"), R"({"test-main:top":{"text":"{\"text\":\"x\"}"}})");
}

TEST_F(ParseMem, AWrappedJsonLeafIsTheValueOfItsMember) {
    EXPECT_EQ(from_json("/test-main:top/text", R"({"text":"x y"})", 0), R"({"test-main:top":{"text":"x y"}})");
    EXPECT_EQ(from_json("/test-main:top/number", R"({"number":5})", 0), R"({"test-main:top":{"number":5}})");
    EXPECT_EQ(from_json("/test-main:top/text", R"({"text":""})", 0), R"({"test-main:top":{"text":""}})");
}

TEST_F(ParseMem, AWrappedJsonLeafWithoutAMemberFails) {
    for (const char *fragment : {"x", "{}", R"("text":)", R"("text":")"}) {
        EXPECT_EQ(from_json("/test-main:top/text", fragment, 0), "") << fragment;
        expect_incomplete("/test-main:top/text");
    }
}

TEST_F(ParseMem, AnXmlLeafIsTheTextBetweenItsTags) {
    EXPECT_EQ(from_xml("/test-main:top/text", "<text>x y</text>"), R"({"test-main:top":{"text":"x y"}})");
    EXPECT_EQ(from_xml("/test-main:top/number", "<number xmlns=\"urn:test:main\">5</number>"),
              R"({"test-main:top":{"number":5}})");
    EXPECT_EQ(from_xml("/test-main:single", "<single>s</single>"), R"({"test-main:single":"s"})");
}

TEST_F(ParseMem, AnEmptyXmlElementGivesALeafWithoutValue) {
    EXPECT_EQ(from_xml("/test-main:top/text", "<text></text>"), R"({"test-main:top":{"text":""}})");
    EXPECT_EQ(from_xml("/test-main:top/text", "<text/>"), R"({"test-main:top":{"text":""}})");
    EXPECT_EQ(from_xml("/test-main:top/flag", "<flag/>"), R"({"test-main:top":{"flag":[null]}})");
}

TEST_F(ParseMem, AnXmlLeafWithoutTagsFails) {
    for (const char *fragment : {"x", "<text", "text>x", "</text>x"}) {
        EXPECT_EQ(from_xml("/test-main:top/text", fragment), "") << fragment;
        expect_incomplete("/test-main:top/text");
    }
}

TEST_F(ParseMem, ALeafValueThatIsRefusedFails) {
    EXPECT_EQ(from_json("/test-main:top/number", "300"), "");
    EXPECT_TRUE(log.has(3, "Lyd new path(/test-main:top/number) unsuccessful."));
}

TEST_F(ParseMem, TheCallersTextIsNotChanged) {
    const std::string wrapped = R"({"text":"x"})", element = "<text>x</text>", container = R"({"sub":{"a":"x"}})";
    const std::string copies[] = {wrapped, element, container};
    (void)parse(LYD_JSON, "/test-main:top/text", wrapped.c_str(), 0);
    (void)parse(LYD_XML, "/test-main:top/text", element.c_str());
    (void)parse(LYD_JSON, "/test-main:top/sub", container.c_str(), 0);
    EXPECT_EQ(wrapped, copies[0]);
    EXPECT_EQ(element, copies[1]);
    EXPECT_EQ(container, copies[2]);
}

TEST_F(ParseMem, OperationsAndAnydataTakeNoContent) {
    EXPECT_EQ(from_json("/test-main:run", "{}"), "");
    EXPECT_EQ(log.count(3, "Unknown node type : 256."), 1);
    expect_incomplete("/test-main:run");
    EXPECT_EQ(from_json("/test-main:alarm", "{}"), "");
    EXPECT_EQ(log.count(3, "Unknown node type : 1024."), 1);
    expect_incomplete("/test-main:alarm");
    EXPECT_EQ(from_json("/test-main:top/item[name='a']/reset", "{}"), "");
    EXPECT_EQ(log.count(3, "Unknown node type : 512."), 1);
    expect_incomplete("/test-main:top/item[name='a']/reset");
    EXPECT_EQ(from_json("/test-main:top/any", "{}"), "");
    EXPECT_EQ(log.count(3, "Unknown node type : 96."), 1);
    expect_incomplete("/test-main:top/any");
}

TEST_F(ParseMem, APathThatMakesNoNodeFails) {
    EXPECT_EQ(from_json("/test-main:nothing", "{}"), "");
    EXPECT_TRUE(log.has(3, "Lyd new path(/test-main:nothing) unsuccessful."));
    EXPECT_EQ(log.count(3, "Parse path(/test-main:nothing) to node unsuccessful."), 1);
}

TEST_F(ParseMem, AKeyThatIsNotCanonicalFails) {
    EXPECT_EQ(from_json("/test-main:top/item[name='a']/part[row='007'][column='2']", "[{}]"), "");
    EXPECT_EQ(log.count(3, "Parse path(/test-main:top/item[name='a']/part[row='007'][column='2']) to node "
                           "unsuccessful."),
              1);
}

TEST_F(ParseMem, ContentThatDoesNotFitTheSchemaFails) {
    EXPECT_EQ(from_json("/test-main:top/sub", R"({"nothing":1})"), "");
    EXPECT_EQ(from_json("/test-main:top/sub", R"({"b":"x"})"), "");
    EXPECT_EQ(from_json("/test-main:top/sub", "no object"), "");
    EXPECT_EQ(from_xml("/test-main:top/sub", "<other/>"), "");
}

TEST_F(ParseMem, TheResultIsValidatedUnlessTheOptionsSayOtherwise) {
    const zam_mem_doc doc{"/test-main:top/item", R"([{"name":"a"},{"name":"a"}])", LYD_JSON};
    EXPECT_EQ(zam_parse_mem(ctx, &doc, LYD_PARSE_STRICT, 1, 0), nullptr);
    const Tree twice{zam_parse_mem(ctx, &doc, unvalidated, 1, 0)};
    EXPECT_EQ(to_json(twice), R"({"test-main:top":{"item":[{"name":"a"},{"name":"a"}]}})");
}

TEST_F(ParseMem, NullArgumentsAndOtherFormatsGiveNothing) {
    const zam_mem_doc no_path{nullptr, "{}", LYD_JSON};
    const zam_mem_doc binary{"/", "lyb", LYD_LYB};
    const zam_mem_doc unknown{"/test-main:top", "", LYD_UNKNOWN};
    const zam_mem_doc good{"/test-main:top", "", LYD_JSON};
    EXPECT_EQ(zam_parse_mem(ctx, nullptr, unvalidated, 1, 0), nullptr);
    EXPECT_EQ(zam_parse_mem(ctx, &no_path, unvalidated, 1, 0), nullptr);
    EXPECT_EQ(zam_parse_mem(ctx, &binary, unvalidated, 1, 0), nullptr);
    EXPECT_EQ(zam_parse_mem(ctx, &unknown, unvalidated, 1, 0), nullptr);
    EXPECT_EQ(zam_parse_mem(nullptr, &good, unvalidated, 1, 0), nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST_F(ParseMem, NoMemoryAtAnyPointGivesNothing) {
    const auto failures = fail_each_allocation([&](bool may_fail) {
        const Tree tree = parse(LYD_JSON, "/test-main:top/item[name='a']/part", R"([{"row":1,"column":2}])");
        const std::string text = to_json(tree);
        if (tree || !may_fail) {
            EXPECT_EQ(text, R"({"test-main:top":{"item":[{"name":"a","part":[{"row":1,"column":2}]}]}})");
        }
    });
    EXPECT_GT(failures, 10u);
    fail_each_allocation([&](bool may_fail) {
        const Tree tree = parse(LYD_XML, "/test-main:top/item[name='a']/note", "<note>n</note>");
        EXPECT_TRUE(tree || may_fail);
    });
}

} // namespace
