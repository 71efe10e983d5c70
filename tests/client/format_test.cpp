// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <cstring>

#include "document_fixture.h"

namespace zam::test {
namespace {

using namespace std::string_literals;

// Bytes objects

class Bytes : public DocumentTest {};

TEST_F(Bytes, TheyAreATerminatedCopyInOneBlock) {
    std::string source = "abcdef";
    heap.reset_count();
    zamc_bytes *bytes = zamc_new_bytes(source.data(), 3, 1);
    EXPECT_EQ(heap.allocations(), 1u);
    source.assign(6, 'x');
    EXPECT_EQ(bytes->format, 1u);
    EXPECT_EQ(bytes->length, 3);
    EXPECT_STREQ(bytes->data, "abc");
    EXPECT_EQ(static_cast<void *>(bytes->data), static_cast<void *>(bytes + 1));
    zamc_free_bytes(bytes);
}

TEST_F(Bytes, ALengthOfZeroHasNoData) {
    for (const char *data : {static_cast<const char *>(nullptr), "abc"}) {
        zamc_bytes *bytes = zamc_new_bytes(data, 0, 2);
        ASSERT_NE(bytes, nullptr);
        EXPECT_EQ(bytes->length, 0);
        EXPECT_EQ(bytes->data, nullptr);
        zamc_free_bytes(bytes);
    }
}

TEST_F(Bytes, TheyMayHoldAnything) {
    const std::string source = "a\0b\xFF"s;
    zamc_bytes *bytes = zamc_new_bytes(source.data(), 4, 77);
    EXPECT_EQ(bytes->format, 77u);
    EXPECT_EQ(take_bytes(bytes), source);
}

TEST_F(Bytes, ANegativeLengthAndMissingDataMakeNone) {
    EXPECT_EQ(zamc_new_bytes("abc", -1, 2), nullptr);
    EXPECT_EQ(zamc_new_bytes("abc", INT32_MIN, 2), nullptr);
    EXPECT_EQ(zamc_new_bytes(nullptr, 1, 2), nullptr);
    heap.fail_at(1);
    EXPECT_EQ(zamc_new_bytes("abc", 3, 2), nullptr);
    zamc_free_bytes(nullptr);
}

// Documents as a whole

class Document : public DocumentTest {};

TEST_F(Document, ANewOneIsEmpty) {
    make(1);
    EXPECT_EQ(doc->format, 1u);
    EXPECT_EQ(dir(), "(null)");
    EXPECT_EQ(zamc_format_doc(doc, 2), nullptr);
    EXPECT_EQ(zamc_iter_doc(doc, 1), nullptr);
    EXPECT_EQ(zamc_node_is_present(doc, "/test-doc:box"), 0);
}

TEST_F(Document, WithoutModulesOfTheApplicationThereIsNone) {
    client::_clients_ctx()->modules_loaded = 0;
    EXPECT_EQ(zamc_new_doc(2), nullptr);
    client::_clients_ctx()->modules_loaded = 1;
    EXPECT_EQ(log.count(3, "The client does not load modules, please load modules."), 1);
}

TEST_F(Document, NullIsTakenEverywhere) {
    zamc_free_doc(nullptr);
    EXPECT_EQ(zamc_parse_bytes(nullptr, "/"), nullptr);
    EXPECT_EQ(zamc_parse_bytes(Payload{"{}"}, nullptr), nullptr);
    EXPECT_EQ(zamc_format_doc(nullptr, 2), nullptr);
    EXPECT_EQ(zamc_change_dir(nullptr, "/"), -3);
    EXPECT_EQ(zamc_current_dir(nullptr), nullptr);
    EXPECT_EQ(zamc_iter_doc(nullptr, 0), nullptr);
    make();
    EXPECT_EQ(zamc_change_dir(doc, nullptr), -3);
}

// Parsing

TEST_F(Document, AWholeOneIsParsedAtTheRoot) {
    const std::string payload = R"({"test-doc:box":{"name":"a","item":[{"id":"1","value":2}]},"test-doc:alone":"b"})";
    parse(payload);
    EXPECT_EQ(doc->format, 2u);
    EXPECT_EQ(dir(), "/");
    EXPECT_EQ(json(), payload);
    EXPECT_FALSE(log.has(6, "The client does not load modules, please load modules."));
}

TEST_F(Document, AWholeOneInXmlIsParsedAtTheRoot) {
    const std::string payload =
        R"(<box xmlns="urn:test:doc"><name>a</name></box><alone xmlns="urn:test:doc">b</alone>)";
    parse(payload, "/", 1);
    EXPECT_EQ(doc->format, 1u);
    EXPECT_EQ(xml(), payload);
}

TEST_F(Document, WithoutModulesOfTheApplicationParsingGoesOnWithALine) {
    client::_clients_ctx()->modules_loaded = 0;
    parse(R"({"test-doc:alone":"b"})");
    client::_clients_ctx()->modules_loaded = 1;
    EXPECT_EQ(log.count(6, "The client does not load modules, please load modules."), 1);
}

TEST_F(Document, AValueIsParsedAtItsPath) {
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"/test-doc:box", R"({"name":"a"})", R"({"test-doc:box":{"name":"a"}})"},
        {"/test-doc:box/part", R"({"a":"x"})", R"({"test-doc:box":{"part":{"a":"x"}}})"},
        {"/test-doc:box/item", R"([{"id":"1","value":2},{"id":"2"}])",
         R"({"test-doc:box":{"item":[{"id":"1","value":2},{"id":"2"}]}})"},
        {"/test-doc:box/item[id='1']", R"([{"id":"1","value":2}])",
         R"({"test-doc:box":{"item":[{"id":"1","value":2}]}})"},
        {"/test-doc:box/item[id='1']/more", R"({"x":"y"})",
         R"({"test-doc:box":{"item":[{"id":"1","more":{"x":"y"}}]}})"},
        {"/test-doc:box/tag", R"(["x","y"])", R"({"test-doc:box":{"tag":["x","y"]}})"},
        {"/test-doc:box/name", "plain text", R"({"test-doc:box":{"name":"plain text"}})"},
        {"/test-doc:box/size", "-7", R"({"test-doc:box":{"size":-7}})"},
    };
    for (const auto &[path, value, whole] : cases) {
        parse(value, path);
        EXPECT_EQ(json(), whole);
        EXPECT_EQ(dir(), path);
    }
}

TEST_F(Document, AnElementIsParsedAtItsPath) {
    const auto box = [](const std::string &inside) { return "<box xmlns=\"urn:test:doc\">" + inside + "</box>"; };
    const std::tuple<const char *, std::string, std::string> cases[] = {
        {"/test-doc:box", box("<name>a</name>"), box("<name>a</name>")},
        {"/test-doc:box/part", "<part><a>x</a></part>", box("<part><a>x</a></part>")},
        {"/test-doc:box/item", "<item><id>1</id><value>2</value></item><item><id>2</id></item>",
         box("<item><id>1</id><value>2</value></item><item><id>2</id></item>")},
        {"/test-doc:box/item[id='1']", "<item><id>1</id><value>2</value></item>",
         box("<item><id>1</id><value>2</value></item>")},
        {"/test-doc:box/tag", "<tag>x</tag><tag>y</tag>", box("<tag>x</tag><tag>y</tag>")},
        {"/test-doc:box/name", "<name>text</name>", box("<name>text</name>")},
    };
    for (const auto &[path, value, whole] : cases) {
        parse(value, path, 1);
        EXPECT_EQ(xml(), whole);
        EXPECT_EQ(dir(), path);
    }
}

TEST_F(Document, ParsingLeavesTheCallersTextAsItIs) {
    const std::string element = "<name>text</name>";
    const Payload payload{element, 1};
    doc = zamc_parse_bytes(payload, "/test-doc:box/name");
    EXPECT_NE(doc, nullptr);
    EXPECT_EQ(payload.get()->data, element);
    const std::string wrong = R"({"inner":{"b":5}})";
    const Payload refused{wrong};
    EXPECT_EQ(zamc_parse_bytes(refused, "/test-doc:box/part"), nullptr);
    EXPECT_EQ(refused.get()->data, wrong);
}

TEST_F(Document, WhatIsNoDataIsParsedAsAnOperation) {
    parse(R"({"test-doc:go":{"speed":3}})");
    EXPECT_EQ(text(zamc_node_content(doc, "/test-doc:go/speed")), "3");
    parse(R"(<go xmlns="urn:test:doc"><speed>4</speed></go>)", "/", 1);
    EXPECT_EQ(text(zamc_node_content(doc, "/test-doc:go/speed")), "4");
}

TEST_F(Document, AnEmptyPayloadIsThePathAlone) {
    parse("", "/test-doc:box/item[id='1']");
    EXPECT_EQ(json(), R"({"test-doc:box":{"item":[{"id":"1"}]}})");
}

TEST_F(Document, WhatDoesNotParseMakesNoDocument) {
    const std::tuple<const char *, const char *, uint32_t> cases[] = {
        {"nonsense", "/", 2},
        {"{", "/", 2},
        {"", "/", 2},
        {R"({"test-doc:box":{"size":"abc"}})", "/", 2},
        {"<box>", "/", 1},
        {"x", "/test-doc:unknown", 2},
        {"x", "/unknown:box/name", 2},
        {"x", "no path", 2},
        {"abc", "/test-doc:box/size", 2},
        {"{}", "/test-doc:box/blob", 2},
        {"{}", "/", 0},
        {"{}", "/", 3},
    };
    for (const auto &[payload, path, format] : cases)
        EXPECT_EQ(zamc_parse_bytes(Payload{payload, format}, path), nullptr) << payload << " at " << path;
}

TEST_F(Document, WithoutASchemaContextNothingIsParsed) {
    ly_ctx *context = std::exchange(client::_clients_ctx()->context, nullptr);
    EXPECT_EQ(zamc_parse_bytes(Payload{"{}"}, "/"), nullptr);
    EXPECT_EQ(zamc_parse_bytes(Payload{"x"}, "/test-doc:box/name"), nullptr);
    client::_clients_ctx()->context = context;
}

// Printing

TEST_F(Document, ItIsPrintedInEitherFormatWhateverItsOwn) {
    parse(R"({"test-doc:box":{"name":"a<b","on":true,"kind":"test-doc:round","none":[null]}})");
    const std::string in_xml = xml();
    EXPECT_EQ(in_xml, "<box xmlns=\"urn:test:doc\"><name>a&lt;b</name><on>true</on>"
                      "<kind xmlns:td=\"urn:test:doc\">td:round</kind><none/></box>");
    const std::string in_json = json();
    parse(in_xml, "/", 1);
    EXPECT_EQ(json(), in_json);
    parse(in_json);
    EXPECT_EQ(xml(), in_xml);
}

TEST_F(Document, AFormatThatCannotBePrintedGivesNothing) {
    parse(R"({"test-doc:alone":"b"})");
    for (const uint32_t format : {0u, 3u}) {
        log.clear();
        EXPECT_EQ(zamc_format_doc(doc, format), nullptr);
        EXPECT_EQ(log.count(3, "Parse client value not successful."), 1);
    }
}

TEST(DocumentMemory, EachAllocationThatFailsMakesNoDocumentOrAWholeOne) {
    load_document_module();
    LogCapture log;
    for (const auto &[payload, path] : {std::pair{R"({"test-doc:box":{"name":"a"}})", "/"},
                                        {R"([{"id":"1","value":2}])", "/test-doc:box/item[id='1']"},
                                        {"text", "/test-doc:box/name"}}) {
        fail_each_allocation([payload = payload, path = path](bool failing) {
            zamc_bytes *bytes = zamc_new_bytes(payload, static_cast<int32_t>(strlen(payload)), 2);
            zamc_doc *doc = zamc_parse_bytes(bytes, path);
            EXPECT_TRUE(failing || doc);
            if (doc) {
                EXPECT_STREQ(zamc_current_dir(doc), path);
            }
            zamc_bytes *printed = zamc_format_doc(doc, 2);
            EXPECT_TRUE(failing || printed);
            zamc_free_bytes(printed);
            zamc_free_doc(doc);
            zamc_free_bytes(bytes);
        });
    }
}

// The directory

TEST_F(Document, ADirectoryIsJoinedAsPlainText) {
    make();
    EXPECT_EQ(zamc_change_dir(doc, "a"), 0);
    EXPECT_EQ(dir(), "a");
    EXPECT_EQ(zamc_change_dir(doc, "b"), 0);
    EXPECT_EQ(dir(), "a/b");
    EXPECT_EQ(zamc_change_dir(doc, "/x"), 0);
    EXPECT_EQ(dir(), "/x");
    EXPECT_EQ(zamc_change_dir(doc, ".."), 0);
    EXPECT_EQ(dir(), "/x/..");
    EXPECT_EQ(zamc_change_dir(doc, "/x/"), 0);
    EXPECT_EQ(zamc_change_dir(doc, "c"), 0);
    EXPECT_EQ(dir(), "/x/c");
    EXPECT_EQ(zamc_change_dir(doc, "/"), 0);
    EXPECT_EQ(zamc_change_dir(doc, "c"), 0);
    EXPECT_EQ(dir(), "/c");
    EXPECT_EQ(zamc_change_dir(doc, ""), 0);
    EXPECT_EQ(dir(), "/c/");
}

TEST_F(Document, WithoutMemoryTheOldDirectoryStays) {
    make();
    EXPECT_EQ(zamc_change_dir(doc, "/old"), 0);
    for (const char *path : {"new", "/new"}) {
        heap.fail_at(1);
        EXPECT_EQ(zamc_change_dir(doc, path), -2);
        EXPECT_EQ(dir(), "/old");
    }
}

TEST_F(Document, AFullPathStandsForTheDirectoryWithoutAPath) {
    const auto full = [](const char *from, const char *path) { return take(client::_build_full_path(from, path)); };
    EXPECT_EQ(full("/a", nullptr), "/a");
    EXPECT_EQ(full(nullptr, "b"), "b");
    EXPECT_EQ(full("/a", "/b"), "/b");
    EXPECT_EQ(full("/a", "b"), "/a/b");
    EXPECT_EQ(full("/a/", "b"), "/a/b");
    EXPECT_EQ(full("/", "b"), "/b");
    EXPECT_EQ(full("", "b"), "/b");
}

// Walking

class Walk : public DocumentTest {
protected:
    void SetUp() override {
        parse(R"({"test-doc:box":{"name":"a","tag":["x","y"],"item":[{"id":"1","value":2},{"id":"2"}],"part":{}},)"
              R"("test-doc:alone":"z"})");
    }
    // The name returned and the directory after a step.
    std::string step(uint32_t direction) {
        const std::string name = text(zamc_iter_doc(doc, direction));
        return name + " " + dir();
    }
    void go(const char *path) { ASSERT_EQ(zamc_change_dir(doc, path), 0); }
};

TEST_F(Walk, ItGoesDownAlongAndUp) {
    go("/test-doc:box");
    EXPECT_EQ(step(ZAMC_DIRECTION_CHILD), "name /test-doc:box/name");
    EXPECT_EQ(step(ZAMC_DIRECTION_NEXT), R"(tag /test-doc:box/tag[.="x"])");
    EXPECT_EQ(step(ZAMC_DIRECTION_NEXT), R"(tag /test-doc:box/tag[.="y"])");
    EXPECT_EQ(step(ZAMC_DIRECTION_NEXT), R"(item /test-doc:box/item[id="1"])");
    EXPECT_EQ(step(ZAMC_DIRECTION_CHILD), R"(id /test-doc:box/item[id="1"]/id)");
    EXPECT_EQ(step(ZAMC_DIRECTION_NEXT), R"(value /test-doc:box/item[id="1"]/value)");
    EXPECT_EQ(step(ZAMC_DIRECTION_PARENT), R"(item /test-doc:box/item[id="1"])");
    EXPECT_EQ(step(ZAMC_DIRECTION_NEXT), R"(item /test-doc:box/item[id="2"])");
    EXPECT_EQ(step(ZAMC_DIRECTION_PREVIOUS), R"(item /test-doc:box/item[id="1"])");
    EXPECT_EQ(step(ZAMC_DIRECTION_PARENT), "box /test-doc:box");
    EXPECT_EQ(step(ZAMC_DIRECTION_NEXT), "alone /test-doc:alone");
}

TEST_F(Walk, FromTheRootItStartsAtTheFirstNode) {
    EXPECT_EQ(dir(), "/");
    EXPECT_EQ(step(ZAMC_DIRECTION_CHILD), "name /test-doc:box/name"); // the root stands for the first node itself
}

TEST_F(Walk, ThePreviousOfTheFirstIsTheLast) {
    go("/test-doc:box/name");
    EXPECT_EQ(step(ZAMC_DIRECTION_PREVIOUS), "part /test-doc:box/part");
    go("/test-doc:box");
    EXPECT_EQ(step(ZAMC_DIRECTION_PREVIOUS), "alone /test-doc:alone");
    go("/test-doc:box/item[id='2']/id");
    EXPECT_EQ(step(ZAMC_DIRECTION_PREVIOUS), R"(id /test-doc:box/item[id="2"]/id)"); // an only child
}

TEST_F(Walk, AtATopLevelNodeThereIsNoParent) {
    go("/test-doc:box");
    EXPECT_EQ(step(ZAMC_DIRECTION_PARENT), "(null) /test-doc:box");
    EXPECT_EQ(log.count(7, "Get node failed, curent path /test-doc:box."), 1);
}

TEST_F(Walk, BehindTheLastAndBelowAnEmptyContainerThereIsNothing) {
    go("/test-doc:alone");
    EXPECT_EQ(step(ZAMC_DIRECTION_NEXT), "(null) /test-doc:alone");
    EXPECT_EQ(log.count(7, "Get node failed, curent path /test-doc:alone."), 1);
    go("/test-doc:box/part");
    EXPECT_EQ(step(ZAMC_DIRECTION_CHILD), "(null) /test-doc:box/part");
    EXPECT_EQ(log.count(7, "Get node failed, curent path /test-doc:box/part."), 1);
}

TEST_F(Walk, ALeafHasNoChildren) {
    go("/test-doc:box/name");
    EXPECT_EQ(step(ZAMC_DIRECTION_CHILD), "(null) /test-doc:box/name");
    EXPECT_EQ(log.count(7, "The node [/test-doc:box/name] is edge node."), 1);
}

TEST_F(Walk, AnUnknownDirectionLeadsNowhere) {
    for (const uint32_t direction : {4u, 4294967295u})
        EXPECT_EQ(step(direction), "(null) /");
    EXPECT_EQ(log.count(3, "The direction is invalid."), 2);
}

TEST_F(Walk, FromADirectoryWithoutANodeItLeadsNowhere) {
    go("/test-doc:box/size");
    EXPECT_EQ(step(ZAMC_DIRECTION_PARENT), "(null) /test-doc:box/size");
    EXPECT_EQ(log.count(7, "The node [/test-doc:box/size] does not exist."), 1);
}

TEST_F(Walk, WithoutADirectoryItLeadsNowhere) {
    make();
    ASSERT_EQ(zamc_new_node(doc, "/test-doc:alone", "x"), 0);
    EXPECT_EQ(zamc_iter_doc(doc, ZAMC_DIRECTION_NEXT), nullptr);
}

TEST_F(Walk, WithoutMemoryTheDirectoryStays) {
    go("/test-doc:box/item[id='1']");
    for (uint64_t n = 1;; ++n) {
        heap.fail_at(n);
        const char *name = zamc_iter_doc(doc, ZAMC_DIRECTION_NEXT);
        const bool failed = heap.failed();
        heap.fail_at(0);
        EXPECT_EQ(dir(), name ? "/test-doc:box/item[id=\"2\"]" : "/test-doc:box/item[id='1']") << n;
        if (!failed) break;
        go("/test-doc:box/item[id='1']");
        ASSERT_LT(n, 1000u);
    }
}

} // namespace
} // namespace zam::test
