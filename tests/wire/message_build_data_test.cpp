// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <climits>
#include <string>

#include <gtest/gtest.h>
#include <zamc/message.h>

#include "wire/message_build_fixture.h"

namespace {

using namespace zam::test;

constexpr const char *running = R"("datastore":"ietf-datastores:running","entity":"/m:a")";
constexpr const char *startup = "ietf-datastores:startup";

class BuildPull : public MessageBuild {
protected:
    Tree pull(int32_t version, int32_t depth, const char *datastore = nullptr) {
        return Tree{zam_message_build_pull(datastore, version, "/m:a", depth, ctx)};
    }
};

TEST_F(BuildPull, RunningIsMeantWithoutADatastore) {
    const Tree tree = pull(0, -1);
    EXPECT_EQ(to_json(tree), server_json("pull", running + std::string{R"(,"depth":-1,"version":"current")"}));
    EXPECT_EQ(to_xml(tree), server_xml("pull", xml_datastore("running") + "<entity>/m:a</entity><depth>-1</depth>"
                                                                          "<version>current</version>"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildPull, AGivenDatastoreIsSent) {
    const Tree tree = pull(0, 3, startup);
    EXPECT_EQ(to_json(tree), server_json("pull", R"("datastore":"ietf-datastores:startup","entity":"/m:a","depth":3,)"
                                                 R"("version":"current")"));
    EXPECT_EQ(to_xml(tree), server_xml("pull", xml_datastore("startup") + "<entity>/m:a</entity><depth>3</depth>"
                                                                          "<version>current</version>"));
}

TEST_F(BuildPull, OnlyVersionOneIsTheLast) {
    EXPECT_EQ(to_json(pull(1, 1)), server_json("pull", running + std::string{R"(,"depth":1,"version":"last")"}));
    for (const int32_t version : {0, 2, -1})
        EXPECT_EQ(to_json(pull(version, 1)),
                  server_json("pull", running + std::string{R"(,"depth":1,"version":"current")"}));
}

TEST_F(BuildPull, ADepthOfZeroIsSentAsZero) {
    const Tree tree = pull(0, 0);
    EXPECT_EQ(to_json(tree), server_json("pull", running + std::string{R"(,"version":"current","depth":0)"}));
    EXPECT_EQ(to_xml(tree),
              server_xml("pull", xml_datastore("running") + "<entity>/m:a</entity>"
                                                            "<version>current</version><depth>0</depth>"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildPull, TheLargestDepthIsSent) {
    EXPECT_EQ(to_json(pull(0, 65535)),
              server_json("pull", running + std::string{R"(,"depth":65535,"version":"current")"}));
}

TEST_F(BuildPull, ADepthOutsideOfTheRangeFails) {
    for (const int32_t depth : {-2, 65536, INT_MAX, INT_MIN}) {
        log.clear();
        EXPECT_FALSE(pull(0, depth));
        EXPECT_EQ(log.count(3, "Create node '/orvel-zam-server:pull/depth' unsuccessful."), 1);
    }
}

TEST_F(BuildPull, AnUnknownDatastoreFails) {
    for (const char *datastore : {"nothing", "ds:running", ""}) {
        log.clear();
        EXPECT_FALSE(pull(0, 1, datastore)) << datastore;
        EXPECT_EQ(log.count(3, "Create node '/orvel-zam-server:pull/datastore' unsuccessful."), 1);
    }
}

TEST_F(BuildPull, ANullEntityFails) {
    EXPECT_EQ(zam_message_build_pull(nullptr, 0, nullptr, 1, ctx), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] Create node '/orvel-zam-server:pull/entity' unsuccessful.\n");
}

TEST_F(BuildPull, AnEntityWithEveryCharacterIsEscaped) {
    const Tree tree{zam_message_build_pull(nullptr, 0, "/m:a[k=\"<&\\'\"]", 1, ctx)};
    EXPECT_EQ(to_json(tree), server_json("pull", R"("datastore":"ietf-datastores:running",)"
                                                 R"("entity":"/m:a[k=\"<&\\'\"]","depth":1,"version":"current")"));
    EXPECT_EQ(to_xml(tree),
              server_xml("pull", xml_datastore("running") + "<entity>/m:a[k=\"&lt;&amp;\\'\"]</entity>"
                                                            "<depth>1</depth><version>current</version>"));
}

TEST_F(BuildPull, EveryNodeThatCannotBeMadeIsNamed) {
    const auto build = [](const ly_ctx *cut) { return zam_message_build_pull(nullptr, 0, "/m:a", 1, cut); };
    expect_root_message("/orvel-zam-server:pull", build);
    expect_messages(
        "orvel-zam-server", "rpc pull { input { leaf other { type string; }",
        {{"leaf datastore { type string; }", "Create node '/orvel-zam-server:pull/datastore' unsuccessful."},
         {"leaf entity { type string; }", "Create node '/orvel-zam-server:pull/entity' unsuccessful."},
         {"leaf depth { type int32; }", "Create node '/orvel-zam-server:pull/depth' unsuccessful."},
         {"", "Create node '/orvel-zam-server:pull/version' unsuccessful."}},
        "} }", build);
}

TEST_F(BuildPull, NoMemoryAtAnyPointMakesNone) {
    for (const int32_t depth : {1, 0})
        expect_all_or_nothing(
            [depth](const ly_ctx *given) { return zam_message_build_pull(nullptr, 0, "/m:a", depth, given); });
}

class BuildPush : public MessageBuild {
protected:
    Tree push(const std::string &content, uint32_t format, const char *entity = "/m:a",
              const char *operation = "merge") {
        const Bytes given = bytes(content, format);
        return Tree{zam_message_build_push(nullptr, entity, operation, given.get(), ctx)};
    }
    static std::string json(const std::string &content, const std::string &entity = "/m:a") {
        return server_json("push", R"("datastore":"ietf-datastores:running","entity":")" + entity +
                                       R"(","operation":"merge","content":)" + content);
    }
    static constexpr const char *content_message = "Create node '/orvel-zam-server:push/content' unsuccessful.";
    static constexpr const char *encode_message = "The encode type of '/orvel-zam-server:push/content' invalid.";
};

TEST_F(BuildPush, JsonIsNamedAfterTheEntity) {
    EXPECT_EQ(to_json(push("[1,2]", 2, "/a:b/c[name='x']")), json(R"({"c":[1,2]})", "/a:b/c[name='x']"));
    EXPECT_EQ(to_json(push(R"({"k":1})", 2)), json(R"({"m:a":{"k":1}})"));
    EXPECT_EQ(to_json(push("5", 2, "/m:a/b")), json(R"({"b":"5"})", "/m:a/b"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildPush, JsonGoesOutByteForByte) {
    for (const char *text : {R"({"s":"q\"w\\e\n\u00e9","o":{},"n":null,"e":[],"d":[[1]],"x":1e3,"@s":{"m:t":1}})",
                             "{ \"a\" : [ 1 ,\t2 ] }", "[null]", "{\"\xC3\xA9\":true}"})
        EXPECT_EQ(to_json(push(text, 2)), json(R"({"m:a":)" + std::string{text} + "}"));
}

TEST_F(BuildPush, JsonForTheWholeTreeIsNotNamed) {
    EXPECT_EQ(to_json(push(R"({"m:a":{"b":1}})", 2, "/")), json(R"({"m:a":{"b":1}})", "/"));
    EXPECT_EQ(to_json(push("{}", 2, "/")), json("{}", "/"));
}

TEST_F(BuildPush, JsonWithoutTextIsAnEmptyString) {
    const zamc_bytes empty{2, 0, nullptr};
    EXPECT_EQ(to_json(Tree{zam_message_build_push(nullptr, "/m:a", "merge", &empty, ctx)}), json("\"\""));
}

TEST_F(BuildPush, JsonThatIsNoValueFails) {
    for (const char *text : {"{", "[1,", "q\"w"}) {
        log.clear();
        EXPECT_FALSE(push(text, 2)) << text;
        EXPECT_EQ(log.count(3, content_message), 1) << log.all();
    }
}

TEST_F(BuildPush, XmlStandsAsItIs) {
    const Tree tree = push(R"(<top xmlns="urn:test:main"><text>x</text><number>5</number></top>)", 1, "/test-main:top");
    EXPECT_EQ(to_xml(tree),
              server_xml("push", xml_datastore("running") +
                                     "<entity>/test-main:top</entity><operation>merge</operation><content>"
                                     R"(<top xmlns="urn:test:main"><text>x</text><number>5</number></top></content>)"));
    EXPECT_EQ(to_json(tree), json(R"({"test-main:top":{"text":"x","number":5}})", "/test-main:top"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildPush, XmlOfUnknownModulesIsKept) {
    EXPECT_EQ(to_xml(push(R"(<a xmlns="urn:m"><b c="d">x&lt;y</b></a>)", 1)),
              server_xml("push", xml_datastore("running") + "<entity>/m:a</entity><operation>merge</operation><content>"
                                                            R"(<a xmlns="urn:m"><b c="d">x&lt;y</b></a></content>)"));
}

TEST_F(BuildPush, XmlWithoutTextIsEmpty) {
    const zamc_bytes empty{1, 0, nullptr};
    const Tree tree{zam_message_build_push(nullptr, "/m:a", "merge", &empty, ctx)};
    EXPECT_EQ(to_xml(tree), server_xml("push", xml_datastore("running") +
                                                   "<entity>/m:a</entity><operation>merge</operation><content/>"));
}

TEST_F(BuildPush, XmlThatDoesNotParseFails) {
    for (const char *text : {"<a", "text", "<a></b>"}) {
        log.clear();
        EXPECT_FALSE(push(text, 1)) << text;
        EXPECT_EQ(log.count(3, content_message), 1) << log.all();
    }
}

TEST_F(BuildPush, EachOperationIsSentAsGiven) {
    for (int32_t number = 0; number < 5; ++number) {
        const char *name = zam_xlate_edit_enum2str(number);
        EXPECT_EQ(to_json(push("{}", 2, "/", name)),
                  server_json("push", R"("datastore":"ietf-datastores:running","entity":"/","operation":")" +
                                          std::string{name} + R"(","content":{})"));
    }
}

TEST_F(BuildPush, AnUnknownOperationFails) {
    for (const char *operation : {"unknown", ""}) {
        log.clear();
        EXPECT_FALSE(push("{}", 2, "/", operation));
        EXPECT_EQ(log.count(3, "Create node '/orvel-zam-server:push/operation' unsuccessful."), 1);
    }
    log.clear();
    EXPECT_FALSE(push("{}", 2, "/", nullptr));
    EXPECT_EQ(log.all(), "[WRONG] Create node '/orvel-zam-server:push/operation' unsuccessful.\n");
}

TEST_F(BuildPush, AGivenDatastoreIsSent) {
    const Bytes content = bytes("{}", 2);
    const Tree tree{zam_message_build_push(startup, "/", "replace", content.get(), ctx)};
    EXPECT_EQ(to_json(tree), server_json("push", R"("datastore":"ietf-datastores:startup","entity":"/",)"
                                                 R"("operation":"replace","content":{})"));
}

TEST_F(BuildPush, ContentOfAnotherFormatFails) {
    for (const uint32_t format : {0u, 3u, UINT32_MAX}) {
        log.clear();
        EXPECT_FALSE(push("{}", format));
        EXPECT_EQ(log.all(), "[WRONG] " + std::string{encode_message} + "\n");
    }
}

TEST_F(BuildPush, NullContentFails) {
    EXPECT_EQ(zam_message_build_push(nullptr, "/m:a", "merge", nullptr, ctx), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] " + std::string{encode_message} + "\n");
}

TEST_F(BuildPush, ANullEntityFails) {
    EXPECT_FALSE(push("{}", 2, nullptr));
    EXPECT_EQ(log.all(), "[WRONG] Create node '/orvel-zam-server:push/entity' unsuccessful.\n");
}

TEST_F(BuildPush, TheContentIsNotChanged) {
    const Bytes content = bytes(R"({"a":1})", 2);
    const Tree tree{zam_message_build_push(nullptr, "/m:a", "merge", content.get(), ctx)};
    EXPECT_STREQ(content->data, R"({"a":1})");
    EXPECT_EQ(content->length, 7);
}

TEST_F(BuildPush, EveryNodeThatCannotBeMadeIsNamed) {
    for (const uint32_t format : {1u, 2u}) {
        const Bytes content = bytes(format == 1 ? "<a xmlns=\"urn:a\"/>" : "{}", format);
        const auto build = [&](const ly_ctx *cut) {
            return zam_message_build_push(nullptr, "/m:a", "merge", content.get(), cut);
        };
        expect_root_message("/orvel-zam-server:push", build);
        expect_messages(
            "orvel-zam-server", "rpc push { input { leaf other { type string; }",
            {{"leaf datastore { type string; }", "Create node '/orvel-zam-server:push/datastore' unsuccessful."},
             {"leaf entity { type string; }", "Create node '/orvel-zam-server:push/entity' unsuccessful."},
             {"leaf operation { type string; }", "Create node '/orvel-zam-server:push/operation' unsuccessful."},
             {"", content_message}},
            "} }", build);
    }
}

TEST_F(BuildPush, NoMemoryAtAnyPointMakesNone) {
    const Bytes json_content = bytes("[1,2]", 2);
    const Bytes xml_content = bytes("<a xmlns=\"urn:a\"/>", 1);
    for (const zamc_bytes *content : {json_content.get(), xml_content.get()})
        expect_all_or_nothing(
            [&](const ly_ctx *given) { return zam_message_build_push(nullptr, "/m:a", "merge", content, given); });
}

class BuildDiff : public MessageBuild {
protected:
    Tree diff(int32_t depth, const char *datastore = nullptr) {
        return Tree{zam_message_build_diff(datastore, "/m:a", depth, ctx)};
    }
};

TEST_F(BuildDiff, RunningIsMeantWithoutADatastore) {
    const Tree tree = diff(2);
    EXPECT_EQ(to_json(tree), server_json("diff", running + std::string{R"(,"depth":2)"}));
    EXPECT_EQ(to_xml(tree), server_xml("diff", xml_datastore("running") + "<entity>/m:a</entity><depth>2</depth>"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildDiff, ADepthOfZeroIsSentAsAllLevels) {
    EXPECT_EQ(to_json(diff(0)), server_json("diff", running + std::string{R"(,"depth":-1)"}));
    EXPECT_EQ(to_json(diff(-1)), server_json("diff", running + std::string{R"(,"depth":-1)"}));
}

TEST_F(BuildDiff, AGivenDatastoreIsSent) {
    EXPECT_EQ(to_json(diff(1, startup)),
              server_json("diff", R"("datastore":"ietf-datastores:startup","entity":"/m:a","depth":1)"));
}

TEST_F(BuildDiff, ADepthOutsideOfTheRangeFails) {
    for (const int32_t depth : {-2, 65536}) {
        log.clear();
        EXPECT_FALSE(diff(depth));
        EXPECT_EQ(log.count(3, "Create node '/orvel-zam-server:diff/depth' unsuccessful."), 1);
    }
}

TEST_F(BuildDiff, ANullEntityFails) {
    EXPECT_EQ(zam_message_build_diff(nullptr, nullptr, 1, ctx), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] Create node '/orvel-zam-server:diff/entity' unsuccessful.\n");
}

TEST_F(BuildDiff, EveryNodeThatCannotBeMadeIsNamed) {
    const auto build = [](const ly_ctx *cut) { return zam_message_build_diff(nullptr, "/m:a", 1, cut); };
    expect_root_message("/orvel-zam-server:diff", build);
    expect_messages(
        "orvel-zam-server", "rpc diff { input { leaf other { type string; }",
        {{"leaf datastore { type string; }", "Create node '/orvel-zam-server:diff/datastore' unsuccessful."},
         {"leaf entity { type string; }", "Create node '/orvel-zam-server:diff/entity' unsuccessful."},
         {"", "Create node '/orvel-zam-server:diff/depth' unsuccessful."}},
        "} }", build);
}

TEST_F(BuildDiff, NoMemoryAtAnyPointMakesNone) {
    expect_all_or_nothing([](const ly_ctx *given) { return zam_message_build_diff(nullptr, "/m:a", 1, given); });
}

class BuildLocate : public MessageBuild {
protected:
    Tree locate(int32_t version, const char *datastore = nullptr) {
        return Tree{zam_message_build_locate(datastore, version, "/m:a", ctx)};
    }
};

TEST_F(BuildLocate, RunningIsMeantWithoutADatastore) {
    const Tree tree = locate(0);
    EXPECT_EQ(to_json(tree), server_json("locate", running + std::string{R"(,"version":"current")"}));
    EXPECT_EQ(to_xml(tree),
              server_xml("locate", xml_datastore("running") + "<entity>/m:a</entity><version>current</version>"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildLocate, AnyVersionButZeroIsTheLast) {
    for (const int32_t version : {1, 2, -1})
        EXPECT_EQ(to_json(locate(version)), server_json("locate", running + std::string{R"(,"version":"last")"}));
}

TEST_F(BuildLocate, AGivenDatastoreIsSent) {
    EXPECT_EQ(to_json(locate(0, startup)),
              server_json("locate", R"("datastore":"ietf-datastores:startup","entity":"/m:a","version":"current")"));
}

TEST_F(BuildLocate, ANullEntityFails) {
    EXPECT_EQ(zam_message_build_locate(nullptr, 0, nullptr, ctx), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] Create node '/orvel-zam-server:locate/entity' unsuccessful.\n");
}

TEST_F(BuildLocate, EveryNodeThatCannotBeMadeIsNamed) {
    const auto build = [](const ly_ctx *cut) { return zam_message_build_locate(nullptr, 0, "/m:a", cut); };
    expect_root_message("/orvel-zam-server:locate", build);
    expect_messages(
        "orvel-zam-server", "rpc locate { input { leaf other { type string; }",
        {{"leaf datastore { type string; }", "Create node '/orvel-zam-server:locate/datastore' unsuccessful."},
         {"leaf entity { type string; }", "Create node '/orvel-zam-server:locate/entity' unsuccessful."},
         {"", "Create node '/orvel-zam-server:locate/version' unsuccessful."}},
        "} }", build);
}

TEST_F(BuildLocate, NoMemoryAtAnyPointMakesNone) {
    expect_all_or_nothing([](const ly_ctx *given) { return zam_message_build_locate(nullptr, 0, "/m:a", given); });
}

} // namespace
