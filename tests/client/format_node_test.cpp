// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <cstring>

#include "document_fixture.h"

namespace zam::test {
namespace {

const std::string merge = R"({"ietf-netconf:operation":"merge"})";
const std::string remove = R"({"ietf-netconf:operation":"delete"})";

// Documents built node by node.
class Edit : public DocumentTest {
protected:
    void SetUp() override { make(); }
    static std::string box(const std::string &members) { return R"({"test-doc:box":{)" + members + "}}"; }
    static std::string box_xml(const std::string &inside) { return "<box xmlns=\"urn:test:doc\">" + inside + "</box>"; }
    // How libyang writes the operation of an element.
    static std::string operation_xml(const std::string &name) {
        return " xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" nc:operation=\"" + name + "\"";
    }
    std::string operation(const char *path) { return text(zamc_node_attr(doc, path, "operation")); }
};

TEST_F(Edit, ANumberStandsForABoolean) {
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/on", "%d", 1), 0);
    EXPECT_EQ(json(), box(R"("on":true,"@on":)" + merge));
    make();
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/on", "%d", 0), 0);
    EXPECT_EQ(json(), box(R"("on":false,"@on":)" + merge));
}

TEST_F(Edit, AnyOtherNumberIsNoBoolean) {
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/on", "%d", 2), -1);
    EXPECT_EQ(log.count(3, "Schema node on value 2 not found."), 1);
    EXPECT_EQ(log.count(3, "Dump value not successful."), 1);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/on", "%d", -1), -1);
    EXPECT_EQ(log.count(3, "Schema node on value -1 not found."), 1);
    EXPECT_EQ(zamc_format_doc(doc, 2), nullptr);
}

TEST_F(Edit, ANumberStandsForAnEnum) {
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/color", "%d", 5), 0);
    EXPECT_EQ(json(), box(R"("color":"green","@color":)" + merge));
    make(1);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/color", "%d", -2), 0);
    EXPECT_EQ(xml(), box_xml("<color" + operation_xml("merge") + ">blue</color>"));
}

TEST_F(Edit, ANumberWithoutAnEnumIsRefused) {
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/color", "%d", 9), -1);
    EXPECT_EQ(log.count(3, "Schema node color value 9 not found."), 1);
    EXPECT_EQ(log.count(3, "Dump value not successful."), 1);
}

TEST_F(Edit, ANumberStandsForAnEnumOfALeafList) {
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/colors", "%d", 5), 0);
    EXPECT_EQ(json(), box(R"("colors":["green"],"@colors":[)" + merge + "]"));
    make(1);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/colors", "%d", 1), 0);
    EXPECT_EQ(xml(), box_xml("<colors" + operation_xml("merge") + ">red</colors>"));
}

TEST_F(Edit, ANumberStandsForABooleanInXml) {
    make(1);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/on", "%d", 1), 0);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/flags", "%d", 0), 0);
    EXPECT_EQ(xml(), box_xml("<on" + operation_xml("merge") + ">true</on>") +
                         box_xml("<flags" + operation_xml("merge") + ">false</flags>"));
}

TEST_F(Edit, ANumberStandsForABooleanOfALeafList) {
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/flags", "%d", 1), 0);
    EXPECT_EQ(json(), box(R"("flags":[true],"@flags":[)" + merge + "]"));
    make();
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/flags[.='false']", "%d", 0), 0);
    EXPECT_EQ(json(), box(R"("flags":[false],"@flags":[)" + merge + "]"));
    make();
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/flags", "%d", 2), -1);
    EXPECT_EQ(log.count(3, "Schema node flags value 2 not found."), 1);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/flags[.='false']", "%d", 1), -1);
    EXPECT_EQ(zamc_format_doc(doc, 2), nullptr);
}

TEST_F(Edit, APathThatNamesAValueOfALeafListNeedsNoOther) {
    for (const uint32_t format : {1u, 2u}) {
        for (const auto &[path, members] :
             {std::pair{"sizes[.='5']", R"("sizes":[5],"@sizes":[)"},
              std::pair{"tag[.='a b']", R"("tag":["a b"],"@tag":[)"},
              std::pair{"flags[.='true']", R"("flags":[true],"@flags":[)"},
              std::pair{"kinds[.='round']", R"("kinds":["test-doc:round"],"@kinds":[)"}}) {
            make(format);
            ASSERT_EQ(zamc_change_dir(doc, "/test-doc:box"), 0);
            EXPECT_EQ(zamc_new_node(doc, path, nullptr), 0) << path;
            EXPECT_EQ(json(), box(members + merge + "]"));
            EXPECT_EQ(zamc_node_is_present(doc, path), 1) << path;
        }
    }
}

// Arrays of numbers are not spliced, and no value is taken for an array.
TEST_F(Edit, AValueOfALeafListIsGivenAsAnArrayOfTextsOrAsAnElement) {
    for (const char *value : {"a", "\"a\"", "[5]"}) {
        EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/tag[.='a']", "%s", value), -1) << value;
        EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/sizes", "%s", value), -1) << value;
    }
    EXPECT_EQ(log.count(3, "Build complete message unsuccessful, path(/test-doc:box/tag[.='a'])."), 3);
    make(1);
    for (const char *path : {"/test-doc:box/size", "/test-doc:box/tag", "/test-doc:box/item[id='1']/value"}) {
        EXPECT_EQ(zamc_new_node(doc, path, "%s", "5"), -1) << path;
        EXPECT_EQ(log.count(3, std::string{"Build new node not successful, path "} + path + "."), 1);
    }
    EXPECT_EQ(zamc_format_doc(doc, 2), nullptr);
}

TEST_F(Edit, AnIdentityOfALeafListIsFoundWithAndWithoutItsModule) {
    for (const char *path : {"/test-doc:box/kinds[.='round']", "/test-doc:box/kinds[.='test-doc:round']"}) {
        make();
        EXPECT_EQ(zamc_del_node(doc, path), 0) << path;
        EXPECT_EQ(json(), box(R"("kinds":["test-doc:round"],"@kinds":[)" + remove + "]"));
        EXPECT_EQ(operation("/test-doc:box/kinds[.='round']"), "delete");
    }
    make();
    EXPECT_EQ(zamc_del_node(doc, "/test-doc:box/kinds[.='square']"), -1);
    EXPECT_EQ(zamc_format_doc(doc, 2), nullptr);
}

// What stands between the tags is the value: nothing is resolved, and nothing needs to be.
TEST_F(Edit, TheTextOfAnElementStandsAsItIs) {
    make(1);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/name", "<name>%s</name>", "1 < 2 & \"3\" &lt; 4"), 0);
    EXPECT_EQ(text(zamc_node_content(doc, "/test-doc:box/name")), "1 < 2 & \"3\" &lt; 4");
    EXPECT_EQ(xml(), box_xml("<name" + operation_xml("merge") + ">1 &lt; 2 &amp; \"3\" &amp;lt; 4</name>"));
}

TEST_F(Edit, AValueIsFormatted) {
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/name", "%s-%03d \"%c\"", "a", 7, 'z'), 0);
    EXPECT_EQ(json(), box(R"("name":"a-007 \"z\"","@name":)" + merge));
}

TEST_F(Edit, ALongValueIsTakenWhole) {
    const std::string value(5000, 'x');
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/name", "%s", value.c_str()), 0);
    EXPECT_EQ(text(zamc_node_content(doc, "/test-doc:box/name")), value);
}

TEST_F(Edit, AnXmlDocumentTakesElements) {
    make(1);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/name", "<name>%s</name>", "a"), 0);
    EXPECT_EQ(xml(), box_xml("<name" + operation_xml("merge") + ">a</name>"));
}

TEST_F(Edit, ContainersListsAndLeafListsTakeValuesOfTheFormat) {
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/part", "%s", R"({"a":"x"})"), 0);
    EXPECT_EQ(json(), box(R"("part":{"@":)" + merge + R"(,"a":"x"})"));
    make();
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/item[id='1']", "%s", R"([{"id":"1","value":2}])"), 0);
    EXPECT_EQ(json(), box(R"("item":[{"@":)" + merge + R"(,"id":"1","value":2}])"));
    make();
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/tag[.='x']", "%s", R"(["x"])"), 0);
    EXPECT_EQ(json(), box(R"("tag":["x"],"@tag":[)" + merge + "]"));
}

TEST_F(Edit, WithoutAValueThePathAloneIsMade) {
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/item[id='1']", nullptr), 0);
    EXPECT_EQ(json(), box(R"("item":[{"@":)" + merge + R"(,"id":"1"}])"));
    make();
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/part", "%s", ""), 0);
    EXPECT_EQ(json(), box(R"("part":{"@":)" + merge + "}"));
    make();
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/none", nullptr), 0);
    EXPECT_EQ(json(), box(R"("none":[null],"@none":)" + merge));
}

TEST_F(Edit, WithoutAValueABooleanOrEnumIsMadeEmpty) {
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/on", nullptr), 0);
    EXPECT_EQ(operation("/test-doc:box/on"), "merge");
    EXPECT_EQ(text(zamc_node_content(doc, "/test-doc:box/on")), "");
}

TEST_F(Edit, APathIsTakenFromTheDirectory) {
    ASSERT_EQ(zamc_change_dir(doc, "/test-doc:box"), 0);
    EXPECT_EQ(zamc_new_node(doc, "name", "a"), 0);
    EXPECT_EQ(zamc_del_node(doc, "/test-doc:alone"), 0);
    ASSERT_EQ(zamc_change_dir(doc, "/test-doc:box/size"), 0);
    EXPECT_EQ(zamc_new_node(doc, nullptr, "%d", 3), 0);
    EXPECT_EQ(json(), R"({"test-doc:box":{"name":"a","@name":)" + merge +
                          R"(},"test-doc:alone":"","@test-doc:alone":)" + remove +
                          R"(,"test-doc:box":{"size":3,"@size":)" + merge + "}}");
}

TEST_F(Edit, WithoutADocumentOrAPlaceItIsRefused) {
    EXPECT_EQ(zamc_new_node(nullptr, "/test-doc:alone", "x"), -3);
    EXPECT_EQ(zamc_new_node(doc, nullptr, "x"), -3);
    EXPECT_EQ(zamc_del_node(nullptr, "/test-doc:alone"), -3);
    EXPECT_EQ(zamc_del_node(doc, nullptr), -3);
}

TEST_F(Edit, WhatIsRefusedLeavesTheDocumentAsItWas) {
    ASSERT_EQ(zamc_new_node(doc, "/test-doc:alone", "x"), 0);
    const std::string before = json();
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/unknown", "x"), -1);
    EXPECT_EQ(zamc_new_node(doc, "/unknown:box", "x"), -1);
    EXPECT_EQ(zamc_new_node(doc, "no path", "x"), -1);
    EXPECT_EQ(zamc_new_node(doc, "relative", "x"), -1);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/size", "abc"), -1);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/part", "%s", R"({"unclosed":)"), -1);
    EXPECT_EQ(zamc_new_node(doc, "/", "%s", "x"), -1);
    EXPECT_EQ(zamc_del_node(doc, "/test-doc:box/unknown"), -1);
    EXPECT_EQ(zamc_del_node(doc, "/test-doc:box/item[id="), -1);
    EXPECT_EQ(json(), before);
}

TEST_F(Edit, WithoutASchemaContextNothingIsMade) {
    ly_ctx *context = std::exchange(client::_clients_ctx()->context, nullptr);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:alone", "x"), -1);
    EXPECT_EQ(zamc_del_node(doc, "/test-doc:alone"), -1);
    client::_clients_ctx()->context = context;
}

TEST_F(Edit, ADeletedNodeHasTheOperationAndNoValue) {
    EXPECT_EQ(zamc_del_node(doc, "/test-doc:box/name"), 0);
    EXPECT_EQ(json(), box(R"("name":"","@name":)" + remove));
    EXPECT_EQ(operation("/test-doc:box/name"), "delete");
    EXPECT_EQ(text(zamc_node_content(doc, "/test-doc:box/name")), "");
}

TEST_F(Edit, ContainersEntriesAndValuesAreDeletedToo) {
    EXPECT_EQ(zamc_del_node(doc, "/test-doc:box/part"), 0);
    EXPECT_EQ(json(), box(R"("part":{"@":)" + remove + "}"));
    make();
    EXPECT_EQ(zamc_del_node(doc, "/test-doc:box/item[id='1']"), 0);
    EXPECT_EQ(json(), box(R"("item":[{"@":)" + remove + R"(,"id":"1"}])"));
    make();
    EXPECT_EQ(zamc_del_node(doc, "/test-doc:box/tag[.='x']"), 0);
    EXPECT_EQ(json(), box(R"("tag":["x"],"@tag":[)" + remove + "]"));
}

TEST_F(Edit, InXmlTheOperationKeepsItsNamespace) {
    make(1);
    EXPECT_EQ(zamc_del_node(doc, "/test-doc:box/name"), 0);
    EXPECT_EQ(zamc_del_node(doc, "/test-doc:box/item[id='1']"), 0);
    const std::string printed = xml();
    parse(printed, "/", 1);
    ASSERT_EQ(zamc_change_dir(doc, "/test-doc:box"), 0);
    EXPECT_THAT(printed, testing::HasSubstr("urn:ietf:params:xml:ns:netconf:base:1.0"));
    EXPECT_EQ(operation("/test-doc:box/name"), "delete");
}

TEST_F(Edit, SeveralNodesStandSideBySide) {
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/item[id='1']/value", "%d", 1), 0);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:alone", "x"), 0);
    EXPECT_EQ(zamc_del_node(doc, "/test-doc:box/item[id='2']"), 0);
    EXPECT_EQ(json(), R"({"test-doc:box":{"item":[{"id":"1","value":1,"@value":)" + merge +
                          R"(}]},"test-doc:alone":"x","@test-doc:alone":)" + merge +
                          R"(,"test-doc:box":{"item":[{"@":)" + remove + R"(,"id":"2"}]}})");
}

// What is printed in one format and read back is the same in the other.
TEST_F(Edit, ADocumentSurvivesTheTripThroughEitherFormat) {
    EXPECT_EQ(
        zamc_new_node(doc, "/test-doc:box", "%s",
                      R"({"name":"<&\"\\ é","size":-7,"on":true,"color":"blue","kind":"round","none":[null],)"
                      R"("tag":["b","a"],"item":[{"id":"x'y","value":255},{"id":"2","more":{"x":""}}],"part":{}})"),
        0);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:alone", "%s", "tail"), 0);
    const std::string in_json = json();
    const std::string in_xml = xml();
    parse(in_xml, "/", 1);
    EXPECT_EQ(xml(), in_xml);
    EXPECT_EQ(json(), in_json);
    parse(in_json);
    EXPECT_EQ(xml(), in_xml);
    EXPECT_EQ(json(), in_json);
    EXPECT_EQ(operation("/test-doc:box"), "merge");
    EXPECT_EQ(operation("/test-doc:alone"), "merge");
    EXPECT_EQ(operation("/test-doc:box/item[id=\"x'y\"]/value"), "merge");
    EXPECT_EQ(text(zamc_node_content(doc, "/test-doc:box/name")), "<&\"\\ é");
    EXPECT_EQ(text(zamc_node_content(doc, "/test-doc:box/kind")), "round");
}

TEST(EditMemory, EachAllocationThatFailsLeavesTheDocumentUsable) {
    load_document_module();
    LogCapture log;
    for (const char *path : {"/test-doc:box/name", "/test-doc:box/color", "/test-doc:box/item[id='1']/value",
                             "/test-doc:box/tag[.='x']"}) {
        fail_each_allocation([path](bool failing) {
            zamc_doc *doc = zamc_new_doc(2);
            const int32_t made = zamc_new_node(doc, path, "%s", strstr(path, "tag") ? "[\"x\"]" : "1");
            const int32_t deleted = zamc_del_node(doc, path);
            EXPECT_TRUE(failing || (made == 0 && deleted == 0)) << path;
            const int32_t present = zamc_node_is_present(doc, path);
            EXPECT_TRUE(failing || present == 1) << path;
            zamc_node_attr(doc, path, "operation");
            zamc_free_bytes(zamc_format_node(doc, path, 2));
            zamc_free_doc(doc);
        });
    }
}

TEST_F(Edit, WithoutMemoryForTheValueOrThePathItFailsAsSuch) {
    heap.fail_at(1);
    EXPECT_EQ(zamc_new_node(doc, "/test-doc:box/name", "a"), -2); // the buffer of the value
    heap.fail_at(1);
    EXPECT_EQ(zamc_del_node(doc, "/test-doc:box/name"), -2); // the path
    EXPECT_EQ(zamc_format_doc(doc, 2), nullptr);
}

// Reading

class Read : public DocumentTest {
protected:
    void SetUp() override {
        parse(R"({"test-doc:box":{"name":"a b","size":-7,"on":true,"color":"blue","kind":"test-doc:round",)"
              R"("tag":["x","y"],"item":[{"id":"1","value":2},{"id":"2"}],"part":{"a":"1","inner":{"b":"2"}}}})");
        ASSERT_EQ(zamc_change_dir(doc, "/test-doc:box"), 0);
    }
    std::string content(const char *path) { return text(zamc_node_content(doc, path)); }
    std::string node(const char *path, uint32_t format = 2) { return take_bytes(zamc_format_node(doc, path, format)); }
};

TEST_F(Read, ANodeIsPresentOrNot) {
    for (const char *path : {"/test-doc:box", "name", "item[id='2']", "item[id='1']/value", "tag[.='y']", "", "part/"})
        EXPECT_EQ(zamc_node_is_present(doc, path), 1) << path;
    EXPECT_EQ(zamc_node_is_present(doc, nullptr), 1);
    for (const char *path : {"none", "item[id='3']", "item[id='2']/value", "/test-doc:alone", "un known"})
        EXPECT_EQ(zamc_node_is_present(doc, path), 0) << path;
    EXPECT_TRUE(log.has(7, "The node is not found.(cur: /test-doc:box, new : none)"));
    EXPECT_EQ(zamc_node_is_present(nullptr, "name"), 0);
    make();
    EXPECT_EQ(zamc_node_is_present(doc, nullptr), 0);
    EXPECT_EQ(zamc_node_is_present(doc, "name"), 0);
    EXPECT_TRUE(log.has(7, "The node is not found.(cur: null, new : name)"));
}

TEST_F(Read, TheContentOfALeafIsItsValue) {
    EXPECT_EQ(content("name"), "a b");
    EXPECT_EQ(content("size"), "-7");
    EXPECT_EQ(content("on"), "true");
    EXPECT_EQ(content("color"), "blue");
    EXPECT_EQ(content("kind"), "round"); // the own module's identities come bare
    EXPECT_EQ(content("tag"), "x");
    EXPECT_EQ(content("tag[.='y']"), "y");
    EXPECT_EQ(content("/test-doc:box/item[id='1']/value"), "2");
    ASSERT_EQ(zamc_change_dir(doc, "name"), 0);
    EXPECT_EQ(content(nullptr), "a b");
}

TEST_F(Read, AnotherNodeHasNoContent) {
    EXPECT_EQ(content("part"), "(null)");
    EXPECT_EQ(content("item[id='1']"), "(null)");
    EXPECT_EQ(log.count(4, "The nodetype is invalid."), 2);
    EXPECT_EQ(content("none"), "(null)");
    EXPECT_EQ(zamc_node_content(nullptr, "name"), nullptr);
    EXPECT_EQ(log.count(4, "The nodetype is invalid."), 2);
}

TEST_F(Read, AnEnumerationOrBooleanIsScannedAsItsNumber) {
    int number = 99;
    EXPECT_EQ(zamc_parse_node(doc, "color", "%d", &number), 0);
    EXPECT_EQ(number, -2);
    EXPECT_EQ(zamc_parse_node(doc, "on", "%d", &number), 0);
    EXPECT_EQ(number, 1);
    parse(R"({"test-doc:box":{"on":false,"flags":[true]}})");
    EXPECT_EQ(zamc_parse_node(doc, "/test-doc:box/on", "%d", &number), 0);
    EXPECT_EQ(number, 0);
    EXPECT_EQ(zamc_parse_node(doc, "/test-doc:box/flags", "%d", &number), 0);
    EXPECT_EQ(number, 1);
}

TEST_F(Read, AnotherLeafIsScannedAsItsText) {
    int number = 0;
    char first[8], second[8], exact[2], tight[1];
    EXPECT_EQ(zamc_parse_node(doc, "size", "%d", &number), 0);
    EXPECT_EQ(number, -7);
    EXPECT_EQ(zamc_parse_node(doc, "name", "%s %s", first, sizeof first, second, sizeof second), 0);
    EXPECT_STREQ(first, "a");
    EXPECT_STREQ(second, "b");
    EXPECT_EQ(zamc_parse_node(doc, "tag[.='y']", "%s", exact, sizeof exact), 0);
    EXPECT_STREQ(exact, "y");
    EXPECT_EQ(zamc_parse_node(doc, "kind", "%s", first, sizeof first), 0);
    EXPECT_STREQ(first, "round");
    EXPECT_EQ(zamc_parse_node(doc, "tag[.='y']", "%s", tight, sizeof tight), -2); // no room
}

TEST_F(Read, AFormatThatFindsNothingFails) {
    int number = 0;
    EXPECT_EQ(zamc_parse_node(doc, "name", "%d", &number), -2);
    EXPECT_EQ(zamc_parse_node(doc, "name", "nothing to store"), -2);
}

TEST_F(Read, ScanningWhatIsNoLeafIsRefused) {
    int number = 0;
    EXPECT_EQ(zamc_parse_node(doc, "part", "%d", &number), -3);
    EXPECT_EQ(log.count(3, "The node type does not support, path part."), 1);
    EXPECT_EQ(zamc_parse_node(doc, nullptr, "%d", &number), -3);
    EXPECT_EQ(zamc_parse_node(doc, "none", "%d", &number), -5);
    EXPECT_EQ(zamc_parse_node(nullptr, "name", "%d", &number), -3);
    EXPECT_EQ(zamc_parse_node(doc, "name", nullptr), -3);
    make();
    EXPECT_EQ(zamc_parse_node(doc, nullptr, "%d", &number), -3);
}

TEST_F(Read, AnEmptyEditNodeHasNothingToScan) {
    make();
    int number = 0;
    ASSERT_EQ(zamc_del_node(doc, "/test-doc:box/color"), 0);
    EXPECT_EQ(zamc_parse_node(doc, "/test-doc:box/color", "%d", &number), -2);
}

TEST_F(Read, ALeafIsFormattedAsItsText) {
    EXPECT_EQ(node("name"), "a b");
    EXPECT_EQ(node("kind"), "test-doc:round"); // in its canonical form
    EXPECT_EQ(node("on", 1), "true");
    zamc_bytes *bytes = zamc_format_node(doc, "size", 1);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(bytes->format, 1u);
    EXPECT_EQ(take_bytes(bytes), "-7");
}

TEST_F(Read, AnotherNodeIsFormattedWithoutItsNameInJson) {
    EXPECT_EQ(node("part"), R"({"a":"1","inner":{"b":"2"}})");
    EXPECT_EQ(node("part/inner"), R"({"b":"2"})");
    ASSERT_EQ(zamc_change_dir(doc, "part"), 0);
    EXPECT_EQ(node(nullptr), R"({"a":"1","inner":{"b":"2"}})");
}

TEST_F(Read, WhatFollowsANodeIsPrintedBehindIt) {
    EXPECT_EQ(node("item[id='1']"), R"([{"id":"1","value":2},{"id":"2"}],"test-doc:part":{"a":"1","inner":{"b":"2"}})");
    EXPECT_EQ(node("item[id='2']", 1), R"(<item xmlns="urn:test:doc"><id>2</id></item>)"
                                       R"(<part xmlns="urn:test:doc"><a>1</a><inner><b>2</b></inner></part>)");
}

TEST_F(Read, AnotherNodeIsFormattedWithItsNameInXml) {
    EXPECT_EQ(node("part", 1), R"(<part xmlns="urn:test:doc"><a>1</a><inner><b>2</b></inner></part>)");
}

TEST_F(Read, WhatIsNotThereIsNotFormatted) {
    EXPECT_EQ(zamc_format_node(doc, "none", 2), nullptr);
    EXPECT_EQ(zamc_format_node(nullptr, "name", 2), nullptr);
    EXPECT_EQ(zamc_format_node(doc, "part", 0), nullptr);
    make();
    EXPECT_EQ(zamc_format_node(doc, nullptr, 2), nullptr);
}

TEST_F(Read, WithoutMemoryForThePathNothingIsRead) {
    int number = 0;
    const auto fails = [this](const std::function<void()> &call) {
        log.clear();
        heap.fail_at(1);
        call();
        EXPECT_EQ(log.count(3, "Build full path not successful. (cur: /test-doc:box, new : size)."), 1);
    };
    fails([&] { EXPECT_EQ(zamc_parse_node(doc, "size", "%d", &number), -3); });
    fails([&] { EXPECT_EQ(zamc_node_is_present(doc, "size"), 0); });
    fails([&] { EXPECT_EQ(zamc_node_content(doc, "size"), nullptr); });
    fails([&] { EXPECT_EQ(zamc_format_node(doc, "size", 2), nullptr); });
    fails([&] { EXPECT_EQ(zamc_node_attr(doc, "size", "operation"), nullptr); });
}

// Metadata

class Attr : public DocumentTest {
protected:
    void SetUp() override {
        parse(R"({"test-doc:box":{"@":{"ietf-netconf:operation":"delete"},"name":"n",)"
              R"("@name":{"orvel-zam-server:origin-value":"old"},)"
              R"("item":[{"@":{"ietf-netconf:operation":"replace","orvel-zam-server:origin-position":"first"},)"
              R"("id":"1","value":2,"@value":{"ietf-netconf:operation":"create"},"more":{"x":"y"}}]},)"
              R"("test-doc:alone":"z"})");
    }
    std::string attr(const char *path, const char *name = "operation") { return text(zamc_node_attr(doc, path, name)); }
};

TEST_F(Attr, ANodesOwnMetadataIsRead) {
    EXPECT_EQ(attr("/test-doc:box"), "delete");
    EXPECT_EQ(attr("/test-doc:box/name", "origin-value"), "old");
    EXPECT_EQ(attr("/test-doc:box/item[id='1']", "origin-position"), "first");
    EXPECT_EQ(attr("/test-doc:box/item[id='1']/value"), "create");
    EXPECT_TRUE(log.has(7, "The node's attribute name [origin-value], value [old]."));
}

TEST_F(Attr, TheOperationIsInheritedFromTheNearestAncestor) {
    EXPECT_EQ(attr("/test-doc:box/name"), "delete");
    EXPECT_EQ(attr("/test-doc:box/item[id='1']"), "replace");
    EXPECT_EQ(attr("/test-doc:box/item[id='1']/more/x"), "replace");
    EXPECT_TRUE(log.has(7, "The node's attribute name [operation], value [delete]."));
}

TEST_F(Attr, NothingElseIsInherited) {
    EXPECT_EQ(attr("/test-doc:box/item[id='1']/value", "origin-position"), "(null)");
    EXPECT_EQ(attr("/test-doc:box/name", "ietf-netconf:operation"), "(null)");
    EXPECT_EQ(attr("/test-doc:alone"), "(null)");
    EXPECT_TRUE(log.has(7, "The node's attribute name [operation], value [null]."));
}

TEST_F(Attr, TheDirectoryIsAsBefore) {
    ASSERT_EQ(zamc_change_dir(doc, "/test-doc:box/item[id='1']/more"), 0);
    EXPECT_EQ(attr("x"), "replace");
    EXPECT_EQ(attr(nullptr), "replace");
    EXPECT_EQ(attr("/test-doc:alone"), "(null)");
    EXPECT_EQ(dir(), "/test-doc:box/item[id='1']/more");
    make();
    ASSERT_EQ(zamc_new_node(doc, "/test-doc:alone", "x"), 0);
    EXPECT_EQ(attr("/test-doc:alone"), "merge");
    EXPECT_EQ(dir(), "(null)");
}

TEST_F(Attr, WithoutMemoryTheDirectoryIsAsBefore) {
    ASSERT_EQ(zamc_change_dir(doc, "/test-doc:box/item[id='1']"), 0);
    for (uint64_t n = 1;; ++n) {
        heap.fail_at(n);
        const char *value = zamc_node_attr(doc, "more/x", "operation");
        const bool failed = heap.failed();
        heap.fail_at(0);
        EXPECT_EQ(dir(), "/test-doc:box/item[id='1']") << n;
        if (!failed) {
            EXPECT_EQ(text(value), "replace");
            break;
        }
        ASSERT_LT(n, 1000u);
    }
}

TEST_F(Attr, WithoutANodeOrANameThereIsNone) {
    EXPECT_EQ(zamc_node_attr(nullptr, "/test-doc:box", "operation"), nullptr);
    EXPECT_EQ(zamc_node_attr(doc, "/test-doc:box", nullptr), nullptr);
    EXPECT_EQ(attr("/test-doc:box/size"), "(null)");
    make();
    EXPECT_EQ(zamc_node_attr(doc, nullptr, "operation"), nullptr);
}

} // namespace
} // namespace zam::test
