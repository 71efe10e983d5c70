// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <climits>
#include <string>

#include <gtest/gtest.h>
#include <zamc/attributes.h>
#include <zamc/message.h>

#include "wire/message_build_fixture.h"
#include "wire/message_build_internal.h"

namespace {

using namespace zam::test;
using zam::wire::_new_encode_leaf;

class BuildRegister : public MessageBuild {
protected:
    Tree build(const zam_register_attrs &attrs, const char *name = "app") {
        return Tree{zam_message_build_register(name, &attrs, ctx)};
    }
    static std::string json(const std::string &attributes) {
        return server_json("register", R"("name":"app","attribute":{)" + attributes + "}");
    }

    zam_register_attrs usual{2, 0, nullptr, 1};
};

TEST_F(BuildRegister, TheUsualAttributesAreAllSent) {
    const Tree tree = build(usual);
    EXPECT_EQ(to_json(tree), json(R"("api-version":"v2","deadline":0,"encode":"json")"));
    EXPECT_EQ(to_xml(tree),
              server_xml("register", "<name>app</name><attribute><api-version>v2</api-version><deadline>0</deadline>"
                                     "<encode>json</encode></attribute>"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildRegister, DependentClientsAreSentWhenThereAreAny) {
    usual.dependent_clients = "one two";
    const Tree tree = build(usual);
    EXPECT_EQ(to_json(tree), json(R"("api-version":"v2","deadline":0,"encode":"json","dependent-clients":"one two")"));
    EXPECT_EQ(to_xml(tree),
              server_xml("register",
                         "<name>app</name><attribute><api-version>v2</api-version><deadline>0</deadline>"
                         "<encode>json</encode><dependent-clients>one two</dependent-clients></attribute>"));
}

TEST_F(BuildRegister, AnEmptyTextOfDependentClientsIsNotSent) {
    usual.dependent_clients = "";
    EXPECT_EQ(to_json(build(usual)), json(R"("api-version":"v2","deadline":0,"encode":"json")"));
}

TEST_F(BuildRegister, OnlyApiVersionOneSendsTheSecondVersion) {
    for (const uint32_t number : {0u, 2u, UINT32_MAX}) {
        usual.api_version = number;
        EXPECT_EQ(to_json(build(usual)), json(R"("api-version":"v1","deadline":0,"encode":"json")")) << number;
    }
}

TEST_F(BuildRegister, TheDeadlineIsSentAsGiven) {
    for (const int32_t deadline : {30, -1, INT_MAX, INT_MIN}) {
        usual.deadline = deadline;
        EXPECT_EQ(to_json(build(usual)),
                  json(R"("api-version":"v2","deadline":)" + std::to_string(deadline) + R"(,"encode":"json")"));
    }
}

TEST_F(BuildRegister, EachEncodingHasItsName) {
    const char *names[] = {"unknown", "xml", "json", "gpb"};
    for (int32_t number = 0; number < 4; ++number) {
        usual.encode = number;
        EXPECT_EQ(to_json(build(usual)),
                  json(R"("api-version":"v2","deadline":0,"encode":")" + std::string{names[number]} + "\""));
    }
}

TEST_F(BuildRegister, AnEncodingWithoutANameFails) {
    for (const int32_t number : {4, -1}) {
        log.clear();
        usual.encode = number;
        EXPECT_FALSE(build(usual));
        EXPECT_EQ(log.all(), "[WRONG] Find enum name unsuccessful.\n"
                             "[WRONG] Create node '/orvel-zam-server:register/attribute/encode' unsuccessful.\n");
    }
}

TEST_F(BuildRegister, ANullNameFails) {
    EXPECT_FALSE(build(usual, nullptr));
    EXPECT_EQ(log.all(), "[WRONG] Create node '/orvel-zam-server:register/name' unsuccessful.\n");
}

TEST_F(BuildRegister, AnEmptyNameIsSent) {
    EXPECT_EQ(to_json(build(usual, "")),
              server_json("register", R"("name":"","attribute":{"api-version":"v2","deadline":0,"encode":"json"})"));
}

TEST_F(BuildRegister, NullAttributesFail) {
    EXPECT_EQ(zam_message_build_register("app", nullptr, ctx), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] Create node '/orvel-zam-server:register/attribute' unsuccessful.\n");
}

TEST_F(BuildRegister, EveryNodeThatCannotBeMadeIsNamed) {
    usual.dependent_clients = "one";
    const auto register_in = [this](const ly_ctx *cut) { return zam_message_build_register("app", &usual, cut); };
    expect_root_message("/orvel-zam-server:register", register_in);
    expect_messages("orvel-zam-server", "rpc register { input {",
                    {{"leaf name { type string; }", "Create node '/orvel-zam-server:register/name' unsuccessful."},
                     {"", "Create node '/orvel-zam-server:register/attribute' unsuccessful."}},
                    "leaf other { type string; } } }", register_in);
    expect_messages(
        "orvel-zam-server", "rpc register { input { leaf name { type string; } container attribute {",
        {{"leaf api-version { type string; }",
          "Create node '/orvel-zam-server:register/attribute/api-version' unsuccessful."},
         {"leaf deadline { type int32; }", "Create node '/orvel-zam-server:register/attribute/deadline' unsuccessful."},
         {"leaf encode { type enumeration { enum json { value 2; } } }",
          "Create node '/orvel-zam-server:register/attribute/encode' unsuccessful."},
         {"", "Create node '/orvel-zam-server:register/attribute/dependent-clients' unsuccessful."}},
        "} } }", register_in);
}

TEST_F(BuildRegister, NoMemoryAtAnyPointMakesNone) {
    usual.dependent_clients = "one";
    expect_all_or_nothing([this](const ly_ctx *given) { return zam_message_build_register("app", &usual, given); });
}

TEST_F(BuildRegister, TheEncodeLeafIsMadeFromTheSchemasNames) {
    const Tree root{zam_lyd_new_path(nullptr, ctx, "/orvel-zam-server:register/attribute", nullptr)};
    ASSERT_TRUE(root);
    lyd_node *attribute = zam_lyd_child(root.get());
    EXPECT_EQ(_new_encode_leaf(attribute, ctx, 1), 0);
    EXPECT_EQ(to_json(root), server_json("register", R"("attribute":{"encode":"xml"})"));
    EXPECT_EQ(log.all(), "");
    EXPECT_EQ(_new_encode_leaf(attribute, ctx, 9), -1);
    EXPECT_EQ(log.all(), "[WRONG] Find enum name unsuccessful.\n");
    EXPECT_EQ(_new_encode_leaf(nullptr, ctx, 1), -1);
}

using BuildActivate = MessageBuild;

TEST_F(BuildActivate, ItReplaysOrNot) {
    const Tree replay{zam_message_build_activate(1, ctx)};
    EXPECT_EQ(to_json(replay), server_json("activate", R"("mode":"replay")"));
    EXPECT_EQ(to_xml(replay), server_xml("activate", "<mode>replay</mode>"));
    const Tree direct{zam_message_build_activate(0, ctx)};
    EXPECT_EQ(to_json(direct), server_json("activate", R"("mode":"direct")"));
    EXPECT_EQ(to_xml(direct), server_xml("activate", "<mode>direct</mode>"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildActivate, AnyNumberButZeroReplays) {
    for (const int32_t number : {2, -1})
        EXPECT_EQ(to_json(Tree{zam_message_build_activate(number, ctx)}),
                  server_json("activate", R"("mode":"replay")"));
}

TEST_F(BuildActivate, EveryNodeThatCannotBeMadeIsNamed) {
    const auto activate = [](const ly_ctx *cut) { return zam_message_build_activate(1, cut); };
    expect_root_message("/orvel-zam-server:activate", activate);
    expect_messages("orvel-zam-server", "",
                    {{"rpc activate;", "Create node '/orvel-zam-server:activate' unsuccessful."},
                     {"", "Create node '/orvel-zam-server:activate/mode' unsuccessful."}},
                    "", activate);
}

TEST_F(BuildActivate, NoMemoryAtAnyPointMakesNone) {
    expect_all_or_nothing([](const ly_ctx *given) { return zam_message_build_activate(1, given); });
}

using BuildDeactivate = MessageBuild;

TEST_F(BuildDeactivate, ItHasNoInput) {
    const Tree tree{zam_message_build_deactivate(ctx)};
    EXPECT_EQ(to_json(tree), server_json("deactivate", ""));
    EXPECT_EQ(to_xml(tree), server_xml("deactivate", ""));
}

TEST_F(BuildDeactivate, ARootThatCannotBeMadeIsNamed) {
    expect_root_message("/orvel-zam-server:deactivate", zam_message_build_deactivate);
}

TEST_F(BuildDeactivate, NoMemoryAtAnyPointMakesNone) {
    expect_all_or_nothing(zam_message_build_deactivate);
}

using BuildVerify = MessageBuild;

TEST_F(BuildVerify, ItNamesTheClient) {
    const Tree tree{zam_message_build_verify_cfg("app", ctx)};
    EXPECT_EQ(to_json(tree), server_json("verify-configuration", R"("name":"app")"));
    EXPECT_EQ(to_xml(tree), server_xml("verify-configuration", "<name>app</name>"));
    EXPECT_EQ(log.all(), "");
}

TEST_F(BuildVerify, ANullNameFails) {
    EXPECT_EQ(zam_message_build_verify_cfg(nullptr, ctx), nullptr);
    EXPECT_EQ(log.all(), "[WRONG] Create node '/orvel-zam-server:verify-configuration/name' unsuccessful.\n");
}

TEST_F(BuildVerify, EveryNodeThatCannotBeMadeIsNamed) {
    const auto verify = [](const ly_ctx *cut) { return zam_message_build_verify_cfg("app", cut); };
    expect_root_message("/orvel-zam-server:verify-configuration", verify);
    expect_messages(
        "orvel-zam-server", "",
        {{"rpc verify-configuration;", "Create node '/orvel-zam-server:verify-configuration' unsuccessful."},
         {"", "Create node '/orvel-zam-server:verify-configuration/name' unsuccessful."}},
        "", verify);
}

TEST_F(BuildVerify, NoMemoryAtAnyPointMakesNone) {
    expect_all_or_nothing([](const ly_ctx *given) { return zam_message_build_verify_cfg("app", given); });
}

} // namespace
