// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Bad input to documents: each call says no in its own way and leaves a line, nothing leaks, and the document stays as
// it was.
#include <functional>

#include "document_fixture.h"

namespace zam::test {
namespace {

class Refusal : public DocumentTest {
protected:
    void SetUp() override {
        parse(content);
        ASSERT_EQ(zamc_change_dir(doc, "/test-doc:box"), 0);
    }
    void TearDown() override {
        if (doc) {
            expect_unchanged();
        }
        DocumentTest::TearDown();
    }
    void expect_unchanged() {
        EXPECT_EQ(json(), content);
        EXPECT_EQ(dir(), "/test-doc:box");
    }
    // The call leaves exactly this line at this level, and whatever finer ones.
    void expect_line(int level, const std::string &line, const std::function<void()> &call) {
        log.clear();
        call();
        EXPECT_EQ(log.count(level, line), 1) << log.all();
    }
    // The call leaves a failure in the log.
    void expect_failure(const std::function<void()> &call) {
        log.clear();
        call();
        EXPECT_TRUE(log.mentions("[WRONG]")) << log.all();
    }

    static constexpr char content[] =
        R"({"test-doc:box":{"name":"a","size":-7,"on":true,"color":"blue","none":[null],"tag":["x"],)"
        R"("item":[{"id":"1","value":2}],"part":{"a":"1"}},"test-doc:alone":"b"})";
    static constexpr char no_document[] = "The document is invalid.";
    static constexpr char no_place[] = "The document has no directory, and no path is given.";
    static constexpr char no_direction[] = "The direction is invalid.";
};

TEST_F(Refusal, OfNoDocumentAtAll) {
    int number = 0;
    const std::function<void()> calls[] = {
        [] { EXPECT_EQ(zamc_format_doc(nullptr, 2), nullptr); },
        [] { EXPECT_EQ(zamc_change_dir(nullptr, "/"), -3); },
        [] { EXPECT_EQ(zamc_new_node(nullptr, "/test-doc:alone", "x"), -3); },
        [] { EXPECT_EQ(zamc_del_node(nullptr, "/test-doc:alone"), -3); },
        [] { EXPECT_EQ(zamc_node_is_present(nullptr, "/test-doc:alone"), 0); },
        [] { EXPECT_EQ(zamc_iter_doc(nullptr, ZAMC_DIRECTION_CHILD), nullptr); },
        [] { EXPECT_EQ(zamc_node_content(nullptr, "/test-doc:alone"), nullptr); },
        [&] { EXPECT_EQ(zamc_parse_node(nullptr, "/test-doc:box/size", "%d", &number), -3); },
        [] { EXPECT_EQ(zamc_format_node(nullptr, "/test-doc:alone", 2), nullptr); },
        [] { EXPECT_EQ(zamc_node_attr(nullptr, "/test-doc:alone", "operation"), nullptr); },
    };
    for (const auto &call : calls)
        expect_line(3, no_document, call);
}

TEST_F(Refusal, OfADocumentWithoutDirectoryWhereNoPathIsGiven) {
    make();
    int number = 0;
    const std::function<void()> calls[] = {
        [&] { EXPECT_EQ(zamc_new_node(doc, nullptr, "x"), -3); },
        [&] { EXPECT_EQ(zamc_del_node(doc, nullptr), -3); },
        [&] { EXPECT_EQ(zamc_node_is_present(doc, nullptr), 0); },
        [&] { EXPECT_EQ(zamc_iter_doc(doc, ZAMC_DIRECTION_CHILD), nullptr); },
        [&] { EXPECT_EQ(zamc_node_content(doc, nullptr), nullptr); },
        [&] { EXPECT_EQ(zamc_parse_node(doc, nullptr, "%d", &number), -3); },
        [&] { EXPECT_EQ(zamc_format_node(doc, nullptr, 2), nullptr); },
        [&] { EXPECT_EQ(zamc_node_attr(doc, nullptr, "operation"), nullptr); },
    };
    for (const auto &call : calls)
        expect_line(3, no_place, call);
    EXPECT_EQ(zamc_current_dir(doc), nullptr);
    EXPECT_EQ(zamc_format_doc(doc, 2), nullptr);
    parse(content);
    zamc_change_dir(doc, "/test-doc:box");
}

TEST_F(Refusal, OfNoPathFormatOrNameWhereOneIsNeeded) {
    expect_line(3, "The path is invalid.", [&] { EXPECT_EQ(zamc_change_dir(doc, nullptr), -3); });
    expect_line(3, "The scan format is invalid.", [&] { EXPECT_EQ(zamc_parse_node(doc, "size", nullptr), -3); });
    expect_line(3, "The attribute name is invalid.", [&] { EXPECT_EQ(zamc_node_attr(doc, "size", nullptr), nullptr); });
}

TEST_F(Refusal, OfBytesThatAreNone) {
    expect_line(3, "The bytes are invalid.", [] { EXPECT_EQ(zamc_parse_bytes(nullptr, "/"), nullptr); });
    expect_line(3, "The bytes are invalid.", [] { EXPECT_EQ(zamc_new_bytes("x", -1, 2), nullptr); });
    expect_line(3, "The bytes are invalid.", [] { EXPECT_EQ(zamc_new_bytes(nullptr, 1, 2), nullptr); });
    expect_line(3, "The path is invalid.", [] { EXPECT_EQ(zamc_parse_bytes(Payload{"{}"}, nullptr), nullptr); });
}

TEST_F(Refusal, OfDirectionsThatDoNotExist) {
    for (const uint32_t direction : {4u, 5u, 0x80000000u, UINT32_MAX}) {
        expect_line(3, no_direction, [&] { EXPECT_EQ(zamc_iter_doc(doc, direction), nullptr); });
        expect_unchanged();
    }
}

TEST_F(Refusal, OfFormatsThatDoNotExist) {
    for (const uint32_t format : {0u, 3u, 4u, UINT32_MAX}) {
        SCOPED_TRACE(format);
        expect_line(3, "Parse client value not successful.", [&] { EXPECT_EQ(zamc_format_doc(doc, format), nullptr); });
        expect_failure([&] { EXPECT_EQ(zamc_format_node(doc, "part", format), nullptr); });
        expect_line(3, "Parse bytes not successful, path /test-doc:box.", [&] {
            EXPECT_EQ(zamc_parse_bytes(Payload{"{}", format}, "/test-doc:box"), nullptr);
        });
        zamc_doc *other = zamc_new_doc(format);
        expect_line(3, "Build new node not successful, path /test-doc:box/name.",
                    [&] { EXPECT_EQ(zamc_new_node(other, "/test-doc:box/name", "x"), -1); });
        EXPECT_EQ(zamc_format_doc(other, 2), nullptr);
        zamc_free_doc(other);
    }
}

TEST_F(Refusal, OfAttributesThatTheNodeDoesNotHave) {
    for (const char *name : {"operation", "origin-value", "nonsense", "", "ietf-netconf:operation"})
        expect_line(7, std::string{"The node's attribute name ["} + name + "], value [null].",
                    [&] { EXPECT_EQ(zamc_node_attr(doc, "size", name), nullptr); });
}

TEST_F(Refusal, OfPathsThatDoNotParse) {
    for (const std::string path :
         {"/", "//", "/test-doc:", "/:box", "/test-doc:box[", "/test-doc:box/item[", "/test-doc:box/item[id",
          "/test-doc:box/item[id=", "/test-doc:box/item[id='1", "/test-doc:box/item[id='1'",
          "/test-doc:box/item['1'=id]", "/test-doc:box//name", "/unknown:box", "/test-doc:box/unknown", "item[id='1",
          "no path", "..", "\xff\xfe", "/test-doc:box/item[id='1']extra"}) {
        SCOPED_TRACE(path);
        expect_failure([&] { EXPECT_EQ(zamc_new_node(doc, path.c_str(), "%s", "x"), -1); });
        expect_failure([&] { EXPECT_EQ(zamc_del_node(doc, path.c_str()), -1); });
        expect_unchanged();
    }
}

TEST_F(Refusal, OfNodesThatAreNotThere) {
    int number = 4711;
    for (const std::string path : {"/test-doc:", "/test-doc:box/item[", "/test-doc:box/item[id='1", "/unknown:box",
                                   "unknown", "item[id='2']", "item[id='1']/more", "tag[.='y']", "\xff\xfe"}) {
        SCOPED_TRACE(path);
        const std::string line = "The node is not found.(cur: /test-doc:box, new : " + path + ")";
        expect_line(7, line, [&] { EXPECT_EQ(zamc_node_is_present(doc, path.c_str()), 0); });
        expect_line(7, line, [&] { EXPECT_EQ(zamc_node_content(doc, path.c_str()), nullptr); });
        expect_line(7, line, [&] { EXPECT_EQ(zamc_parse_node(doc, path.c_str(), "%d", &number), -5); });
        expect_line(7, line, [&] { EXPECT_EQ(zamc_format_node(doc, path.c_str(), 2), nullptr); });
        expect_line(7, line, [&] { EXPECT_EQ(zamc_node_attr(doc, path.c_str(), "operation"), nullptr); });
    }
    EXPECT_EQ(number, 4711);
}

TEST_F(Refusal, OfAWalkFromADirectoryThatLeadsNowhere) {
    for (const char *path : {"/test-doc:", "/test-doc:box/item[id='1", "/unknown:box"}) {
        ASSERT_EQ(zamc_change_dir(doc, path), 0); // nothing needs to be there
        for (const uint32_t direction : {0u, 1u, 2u, 3u, 4u}) {
            expect_line(7, std::string{"The node ["} + path + "] does not exist.",
                        [&] { EXPECT_EQ(zamc_iter_doc(doc, direction), nullptr); });
            EXPECT_EQ(dir(), path);
        }
    }
    ASSERT_EQ(zamc_change_dir(doc, "/test-doc:box"), 0);
}

struct Value {
    const char *path;
    const char *json;
    const char *xml;
};

TEST_F(Refusal, OfValuesThatTheTypeDoesNotTake) {
    const Value values[] = {
        {"size", "abc", "<size>abc</size>"},
        {"size", "2147483648", "<size>2147483648</size>"},
        {"size", "1.5", "<size>1.5</size>"},
        {"on", "2", "2"},
        {"on", "true", "true"},
        {"on", "1x", "<on>true</on>"},
        {"on", "4294967297", "4294967297"},
        {"color", "0", "0"},
        {"color", "red", "red"},
        {"color", "-3", "-3"},
        {"colors", "7", "7"},
        {"kind", "square", "<kind>square</kind>"},
        {"kinds", R"(["square"])", "<kinds>square</kinds>"},
        {"none", "x", "<none>x</none>"},
        {"sizes", R"(["5"])", "<sizes>256</sizes>"},
        {"tag", R"(["x")", "<tag>x"},
        {"tag[.='x']", R"(["y"])", "<tag>y</tag>"},
        {"item[id='1']/value", "256", "<value>256</value>"},
        {"item[id='1']/id", "2", "<id>2</id>"},
        {"item[id='1']", R"([{"id":"1","value":"x"}])", "<item><id>1</id><value>x</value></item>"},
        {"item", R"({"id":"1"})", "<item><id>1</id></box>"},
        {"part", R"({"a":1})", "<part><a>1</part>"},
        {"part", R"([])", "<part"},
        {"blob", "{}", "<blob/>"},
    };
    for (const Value &value : values) {
        SCOPED_TRACE(value.path);
        SCOPED_TRACE(value.json);
        expect_failure([&] { EXPECT_EQ(zamc_new_node(doc, value.path, "%s", value.json), -1); });
        expect_unchanged();
        zamc_doc *other = zamc_new_doc(1);
        EXPECT_EQ(zamc_change_dir(other, "/test-doc:box"), 0);
        expect_failure([&] { EXPECT_EQ(zamc_new_node(other, value.path, "%s", value.xml), -1) << value.xml; });
        EXPECT_EQ(zamc_format_doc(other, 1), nullptr);
        zamc_free_doc(other);
    }
}

TEST_F(Refusal, OfScansThatFindNothing) {
    int number = 4711;
    char small[3] = "ab";
    EXPECT_EQ(zamc_parse_node(doc, "name", "%d", &number), -2);
    EXPECT_EQ(zamc_parse_node(doc, "none", "%d", &number), -2);
    EXPECT_EQ(zamc_parse_node(doc, "size", "%%", &number), -2);
    EXPECT_EQ(zamc_parse_node(doc, "size", "", &number), -2);
    EXPECT_EQ(zamc_parse_node(doc, "color", "%2s", small, 1u), -2); // "-2" and its end do not fit into one byte
    expect_line(3, "The node type does not support, path part.",
                [&] { EXPECT_EQ(zamc_parse_node(doc, "part", "%d", &number), -3); });
    expect_line(4, "The nodetype is invalid.", [&] { EXPECT_EQ(zamc_node_content(doc, "part"), nullptr); });
    EXPECT_EQ(number, 4711);
}

} // namespace
} // namespace zam::test
