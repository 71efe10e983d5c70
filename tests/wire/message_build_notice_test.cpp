// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <string>

#include <gtest/gtest.h>
#include <zamc/message.h>

#include "wire/message_build_fixture.h"

namespace {

using namespace zam::test;

class BuildNotify : public MessageBuild {
protected:
    Tree notify(const std::string &data, uint32_t format, const char *name = "APPINFO") {
        const Bytes given = bytes(data, format);
        return Tree{zam_message_build_notify(name, given.get(), ctx)};
    }
    static std::string json(const std::string &data) {
        return server_json("notify", R"("streams":{"stream":[{"name":"APPINFO"}]},"data":)" + data);
    }
    static std::string xml(const std::string &data) {
        return server_xml("notify", "<streams><stream><name>APPINFO</name></stream></streams>" + data);
    }
    static constexpr const char *data_message = "Create node '/orvel-zam-server:notify/data' unsuccessful.";
    static constexpr const char *encode_message = "The encode type of  '/orvel-zam-server:notify/data' invalid.";
};

TEST_F(BuildNotify, JsonStandsBesideTheStreamUnwrapped) {
    EXPECT_EQ(to_json(notify(R"({"m:event":{"a":1}})", 2)), json(R"({"m:event":{"a":1}})"));
    EXPECT_EQ(to_json(notify("[1,2]", 2)), json("[1,2]"));
    EXPECT_EQ(to_json(notify("5", 2)), json("5"));
    EXPECT_EQ(to_json(notify("\"text\"", 2)), json("\"text\""));
    EXPECT_EQ(to_json(notify("{}", 2)), json("{}"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildNotify, JsonGoesOutByteForByte) {
    for (const char *text : {R"({"s":"q\"w\\e\n","o":{},"n":null,"e":[],"x":1e3})", "{ \"a\" : 1 }", " [ 1 ] "})
        EXPECT_EQ(to_json(notify(text, 2)), json(text));
}

TEST_F(BuildNotify, XmlStandsBesideTheStream) {
    const Tree tree = notify(R"(<alarm xmlns="urn:test:main"><message>hot</message></alarm>)", 1);
    EXPECT_EQ(to_xml(tree), xml(R"(<data><alarm xmlns="urn:test:main"><message>hot</message></alarm></data>)"));
    EXPECT_EQ(to_json(tree), json(R"({"test-main:alarm":{"message":"hot"}})"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildNotify, WithoutTextTheDataIsEmpty) {
    const zamc_bytes no_json{2, 0, nullptr}, no_xml{1, 0, nullptr};
    EXPECT_EQ(to_json(Tree{zam_message_build_notify("APPINFO", &no_json, ctx)}), json("{}"));
    EXPECT_EQ(to_xml(Tree{zam_message_build_notify("APPINFO", &no_xml, ctx)}), xml("<data/>"));
}

TEST_F(BuildNotify, DataThatDoesNotParseFails) {
    EXPECT_FALSE(notify("<a", 1));
    EXPECT_EQ(log.count(3, data_message), 1);
    EXPECT_FALSE(notify("{", 2));
    EXPECT_EQ(log.count(3, data_message), 2);
}

TEST_F(BuildNotify, DataOfAnotherFormatFails) {
    for (const uint32_t format : {0u, 3u}) {
        log.clear();
        EXPECT_FALSE(notify("{}", format));
        EXPECT_EQ(log.all(), "[WRONG] " + std::string{encode_message} + "\n");
    }
}

TEST_F(BuildNotify, NullDataFails) {
    EXPECT_EQ(zam_message_build_notify("APPINFO", nullptr, ctx), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] " + std::string{encode_message} + "\n");
}

TEST_F(BuildNotify, ANullNameFails) {
    EXPECT_FALSE(notify("{}", 2, nullptr));
    EXPECT_EQ(log.all(), "[WRONG] Create node '/orvel-zam-server:notify/.../name' unsuccessful.\n");
}

TEST_F(BuildNotify, EveryNodeThatCannotBeMadeIsNamed) {
    for (const uint32_t format : {1u, 2u}) {
        const Bytes data = bytes(format == 1 ? "<a xmlns=\"urn:a\"/>" : "{}", format);
        const auto build = [&](const ly_ctx *cut) { return zam_message_build_notify("APPINFO", data.get(), cut); };
        expect_root_message("/orvel-zam-server:notify", build);
        expect_messages("orvel-zam-server", "rpc notify { input { leaf other { type string; }",
                        {{"", "Create node '/orvel-zam-server:notify/streams' unsuccessful."}}, "} }", build);
        expect_messages("orvel-zam-server", "rpc notify { input { container streams {",
                        {{"list stream { leaf other { type string; } }",
                          "Create node '/orvel-zam-server:notify/.../stream' unsuccessful."},
                         {"", "Create node '/orvel-zam-server:notify/.../name' unsuccessful."}},
                        "} } }", build);
        expect_messages("orvel-zam-server",
                        "rpc notify { input { container streams { list stream { leaf name { type string; } } }",
                        {{"", data_message}}, "} }", build);
    }
}

TEST_F(BuildNotify, NoMemoryAtAnyPointMakesNone) {
    const Bytes json_data = bytes("{\"a\":1}", 2);
    const Bytes xml_data = bytes("<a xmlns=\"urn:a\"/>", 1);
    for (const zamc_bytes *data : {json_data.get(), xml_data.get()})
        expect_all_or_nothing([&](const ly_ctx *given) { return zam_message_build_notify("APPINFO", data, given); });
}

class BuildPublishOutput : public MessageBuild {
protected:
    Tree output(const std::string &reply, uint32_t format) {
        const Bytes given = bytes(reply, format);
        return Tree{zam_message_build_publish_output(given.get(), ctx)};
    }
    static std::string json(const std::string &data) { return R"({"orvel-zam-client:publish":{"data":)" + data + "}}"; }
    static std::string xml(const std::string &data) {
        return "<publish xmlns=\"" + std::string{client_ns} + "\">" + data + "</publish>";
    }
};

TEST_F(BuildPublishOutput, WithoutAReplyTheDataIsEmpty) {
    const Tree tree{zam_message_build_publish_output(nullptr, ctx)};
    EXPECT_EQ(to_json(tree), json("{}"));
    EXPECT_EQ(to_xml(tree), xml("<data/>"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildPublishOutput, AReplyOfNoLengthIsEmptyWhateverItsFormat) {
    for (const uint32_t format : {0u, 1u, 2u, 3u})
        EXPECT_EQ(to_json(output("", format)), json("{}")) << format;
}

TEST_F(BuildPublishOutput, JsonStandsAsItIs) {
    for (const char *text : {R"({"m:a":{"b":"q\"\\\n","c":[],"d":{}}})", "[1, 2]", "\"s\"", "7", "{ }", "{}"})
        EXPECT_EQ(to_json(output(text, 2)), json(text));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildPublishOutput, XmlStandsAsItIs) {
    const Tree tree = output(R"(<top xmlns="urn:test:main"><text>x</text></top>)", 1);
    EXPECT_EQ(to_xml(tree), xml(R"(<data><top xmlns="urn:test:main"><text>x</text></top></data>)"));
    EXPECT_EQ(to_json(tree), json(R"({"test-main:top":{"text":"x"}})"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildPublishOutput, AnotherFormatFailsWithoutALine) {
    for (const uint32_t format : {0u, 3u})
        EXPECT_FALSE(output("{}", format));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildPublishOutput, AReplyWithoutItsTextFails) {
    const zamc_bytes no_json{2, 5, nullptr}, no_xml{1, 5, nullptr};
    EXPECT_EQ(zam_message_build_publish_output(&no_json, ctx), nullptr);
    EXPECT_EQ(zam_message_build_publish_output(&no_xml, ctx), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] Parse rpc output/get result in format 2 unsuccessful.\n"
                         "[WRONG] Parse rpc output/get result in format 1 unsuccessful.\n");
}

TEST_F(BuildPublishOutput, AReplyThatDoesNotParseFails) {
    const char *message = "Create node '/orvel-zam-client:publish/data' unsuccessful.";
    EXPECT_FALSE(output("<a", 1));
    EXPECT_EQ(log.count(3, message), 1);
    EXPECT_FALSE(output("{", 2));
    EXPECT_EQ(log.count(3, message), 2);
}

TEST_F(BuildPublishOutput, EveryNodeThatCannotBeMadeIsNamed) {
    const Bytes json_reply = bytes("{}", 2);
    const Bytes xml_reply = bytes("<a xmlns=\"urn:a\"/>", 1);
    for (const zamc_bytes *reply :
         {static_cast<const zamc_bytes *>(nullptr), static_cast<const zamc_bytes *>(json_reply.get()),
          static_cast<const zamc_bytes *>(xml_reply.get())}) {
        const auto build = [reply](const ly_ctx *cut) { return zam_message_build_publish_output(reply, cut); };
        expect_root_message("/orvel-zam-client:publish", build);
        expect_messages("orvel-zam-client", "",
                        {{"rpc publish;", "Create node '/orvel-zam-client:publish' unsuccessful."},
                         {"", "Create node '/orvel-zam-client:publish/data' unsuccessful."}},
                        "", build);
    }
}

TEST_F(BuildPublishOutput, NoMemoryAtAnyPointMakesNone) {
    const Bytes reply = bytes("{\"a\":1}", 2);
    expect_all_or_nothing([&](const ly_ctx *given) { return zam_message_build_publish_output(reply.get(), given); });
}

using BuildAppinfo = MessageBuild;

TEST_F(BuildAppinfo, ItHoldsTheText) {
    const Tree tree{zam_message_build_appinfo("a <b> \"c\"", ctx)};
    EXPECT_EQ(to_json(tree), server_json("appinfo", R"("data":"a <b> \"c\"")"));
    EXPECT_EQ(to_xml(tree), server_xml("appinfo", "<data>a &lt;b&gt; \"c\"</data>"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildAppinfo, AnEmptyTextIsSent) {
    EXPECT_EQ(to_json(Tree{zam_message_build_appinfo("", ctx)}), server_json("appinfo", R"("data":"")"));
}

TEST_F(BuildAppinfo, NullArgumentsFailWithoutALine) {
    EXPECT_EQ(zam_message_build_appinfo(nullptr, ctx), nullptr);
    EXPECT_EQ(zam_message_build_appinfo("text", nullptr), nullptr);
    EXPECT_EQ(zam_message_build_appinfo(nullptr, nullptr), nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildAppinfo, ARootThatCannotBeMadeIsNamed) {
    const Context cut = schema("orvel-zam-server", "");
    EXPECT_EQ(zam_message_build_appinfo("text", cut.get()), nullptr);
    EXPECT_EQ(log.count(3, "Create node '/orvel-zam-server:appinfo' unsuccessful."), 1);
}

TEST_F(BuildAppinfo, ALeafThatCannotBeMadeIsNotNamed) {
    const Context cut = schema("orvel-zam-server", "notification appinfo;");
    EXPECT_EQ(zam_message_build_appinfo("text", cut.get()), nullptr);
    EXPECT_FALSE(log.mentions("Create node"));
}

TEST_F(BuildAppinfo, NoMemoryAtAnyPointMakesNone) {
    expect_all_or_nothing([](const ly_ctx *given) { return zam_message_build_appinfo("text", given); });
}

} // namespace
