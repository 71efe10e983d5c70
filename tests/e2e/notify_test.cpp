// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Notifications: what the server does with them, and the way of a handler's words to the operator. And whether a client
// agrees with what stands in the datastore.
#include <gmock/gmock.h>

#include "e2e/app.h"
#include "support/raw_client.h"

namespace {

using namespace zam::test;
using testing::HasSubstr;
using testing::Not;

constexpr char interface_list[] = "/ietf-interfaces:interfaces/interface";
constexpr char eth1_description[] = "/ietf-interfaces:interfaces/interface[name='eth1']/description";
constexpr char set_time[] = "/ietf-system:set-current-datetime";
constexpr char set_time_json[] =
    R"({"ietf-system:set-current-datetime":{"current-datetime":"2026-11-20T12:00:00+00:00"}})";

std::string push_of(const std::string &text) {
    return R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running","entity":")" +
           std::string{eth1_description} + R"(","operation":"merge","content":{"description":")" + text + R"("}}})";
}

Behaviour saying(std::string text) {
    return [text](zamc_client *client, const Call &, zamc_bytes **) {
        return zamc_cli_printf(client, "%s", text.c_str());
    };
}

int32_t notify(zamc_client *client, const char *stream, const std::string &text) {
    zamc_bytes *data = json_bytes(text);
    const int32_t result = zamc_notify(client, stream, data);
    zamc_free_bytes(data);
    return result;
}

class Notify : public testing::Test {
protected:
    // What a raw operator receives from a push on, to the reply.
    std::vector<Frame> push(RawClient &client, const std::string &text = "new") {
        std::vector<Frame> frames;
        EXPECT_TRUE(client.send({Kind::request, 77, 2, push_of(text)}));
        while (auto frame = client.receive()) {
            frames.push_back(*frame);
            if (frame->kind == Kind::reply) break;
        }
        return frames;
    }

    DescriptorCheck descriptors;
    Server server{{.startup = two_interfaces}};
    Journal journal;
};

TEST_F(Notify, ANotificationOnAnyStreamStandsInTheLog) {
    Operator op{server.url()};
    EXPECT_EQ(notify(op.client(), "NETCONF", R"({"anything:at-all":{"x":"say \"a\""}})"), 0);
    EXPECT_THAT(server.log(), HasSubstr(R"(notifies on stream NETCONF: {"anything:at-all":{"x":"say \"a\""}})"));
}

TEST_F(Notify, AHandlersWordsReachTheOperatorBeforeTheReply) {
    App app{server.url(), journal, {{.target = interface_list, .behaviour = saying("cabling checked")}}};
    RawClient op{server.url()};
    ASSERT_TRUE(op.enter("raw"));
    const auto frames = push(op);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0], (Frame{Kind::other2, 0, 2, R"({"orvel-zam-server:appinfo":{"data":"cabling checked"}})"}));
    EXPECT_EQ(frames[1], (Frame{Kind::reply, 77, 2, ""}));
}

TEST_F(Notify, TheOperatorsEncodingDecidesHowTheyLook) {
    App app{server.url(),
            journal,
            {{.target = interface_list, .behaviour = saying("a <b> & \"c\"\n\xC3\xA9")}},
            {.encode = ZAM_ENCODE_JSON}};
    RawClient op{server.url()};
    ASSERT_TRUE(op.enter("raw", 1));
    const auto frames = push(op);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].encoding, 1u);
    EXPECT_EQ(frames[0].payload, "<appinfo xmlns=\"urn:orvel:params:xml:ns:yang:orvel-zam-server\"><data>a &lt;b&gt; "
                                 "&amp; \"c\"\n\xC3\xA9</data></appinfo>");
}

TEST_F(Notify, NobodyElseHearsThem) {
    App app{server.url(), journal, {{.target = interface_list, .behaviour = saying("psst")}}};
    RawClient other{server.url()};
    ASSERT_TRUE(other.enter("other"));
    RawClient op{server.url()};
    ASSERT_TRUE(op.enter("raw"));
    EXPECT_EQ(push(op).size(), 2u);
    EXPECT_EQ(other.ask(R"({"orvel-zam-server:pull":{"entity":"/ietf-system:system"}})"),
              R"({"orvel-zam-server:pull":{"entity":"/ietf-system:system","data":{}}})")
        << "and nothing came before that answer";
}

TEST_F(Notify, ThoseOfARollbackReachTheOperatorToo) {
    App first{server.url(),
              journal,
              {{.target = interface_list,
                .priority = 1,
                .behaviour =
                    [](zamc_client *client, const Call &call, zamc_bytes **) {
                        if (call.mask & ZAMC_SCENE_ROLLBACK) return zamc_cli_printf(client, "undone");
                        return 0;
                    }}},
              {.name = "first"}};
    App second{server.url(),
               journal,
               {{.target = interface_list,
                 .priority = 2,
                 .behaviour =
                     [](zamc_client *client, const Call &, zamc_bytes **) {
                         zamc_error_set(client, 7, "no");
                         return -1;
                     }}},
               {.name = "second"}};
    RawClient op{server.url()};
    ASSERT_TRUE(op.enter("raw"));
    const auto frames = push(op);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].payload, R"({"orvel-zam-server:appinfo":{"data":"undone"}})");
    EXPECT_THAT(frames[1].payload, HasSubstr("rpc-error"));
}

TEST_F(Notify, TheCallerOfAnOperationHearsItsHandler) {
    App app{server.url(),
            journal,
            {{.target = set_time, .type = ZAMC_SUB_OPERATION, .behaviour = saying("setting the clock")}}};
    RawClient op{server.url()};
    ASSERT_TRUE(op.enter("raw"));
    ASSERT_TRUE(op.send({Kind::request, 5, 2, set_time_json}));
    const auto words = op.receive();
    ASSERT_TRUE(words);
    EXPECT_EQ(words->kind, Kind::other2);
    EXPECT_EQ(words->payload, R"({"orvel-zam-server:appinfo":{"data":"setting the clock"}})");
    const auto reply = op.receive();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->seq, 5u);
}

TEST_F(Notify, WithoutAnOperatorTheWordsAreOnlyLogged) {
    App app{server.url(), journal, {{.target = interface_list, .behaviour = saying("replayed")}}, {.replay = true}};
    EXPECT_EQ(app.on_thread([](zamc_client *client) { return zamc_cli_printf(client, "just so"); }), 0);
    EXPECT_THAT(server.log(), HasSubstr("replayed"));
    EXPECT_THAT(server.log(), HasSubstr("just so"));
}

TEST_F(Notify, AnOperatorWhoLeftIsMissedByNobody) {
    std::promise<void> asked;
    std::promise<void> left;
    App app{server.url(),
            journal,
            {{.target = interface_list, .behaviour = [&](zamc_client *client, const Call &, zamc_bytes **) {
                  asked.set_value();
                  left.get_future().wait();
                  return zamc_cli_printf(client, "anybody there?");
              }}}};
    {
        RawClient op{server.url()};
        ASSERT_TRUE(op.enter("leaver"));
        ASSERT_TRUE(op.send({Kind::request, 1, 2, push_of("new")}));
        asked.get_future().wait();
    }
    left.set_value();
    Operator op{server.url()};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{10};
    while (op.pull(eth1_description) != "new" && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    EXPECT_EQ(op.pull(eth1_description), "new") << "the handler agreed";
}

TEST_F(Notify, OnTheTerminalsStreamOnlyANotificationIsTaken) {
    Operator op{server.url()};
    EXPECT_EQ(notify(op.client(), "APPINFO", R"({"ietf-interfaces:interfaces":{}})"), -1);
    EXPECT_THAT(op.exchange(R"({"orvel-zam-server:notify":{"streams":{"stream":[{"name":"APPINFO"}]},)"
                            R"("data":{"orvel-zam-server:register":{}}}})"),
                AllOf(HasSubstr("invalid-value"), HasSubstr("The data for stream APPINFO is no notification.")));
}

TEST_F(Notify, AMissingArgumentIsInvalid) {
    Operator op{server.url()};
    zamc_bytes *data = json_bytes("{}");
    EXPECT_EQ(zamc_notify(nullptr, "NETCONF", data), -3);
    EXPECT_EQ(zamc_notify(op.client(), nullptr, data), -3);
    EXPECT_EQ(zamc_notify(op.client(), "NETCONF", nullptr), -3);
    zamc_free_bytes(data);
}

class Consistency : public Notify {
protected:
    static bool check(zamc_client *client) {
        bool consistent = true;
        EXPECT_EQ(zamc_consistency_check(client, &consistent), 0);
        return consistent;
    }
    static bool consistent(App &app) { return app.on_thread(check); }
    std::string verify(const std::string &name) {
        return Operator{server.url()}.exchange(R"({"orvel-zam-server:verify-configuration":{"name":")" + name +
                                               R"("}})");
    }
    bool refusing = false;
    const Behaviour behaviour = [this](zamc_client *, const Call &, zamc_bytes **) { return refusing ? -1 : 0; };
};

TEST_F(Consistency, IsGivenToWhoWasReplayedAndAgreed) {
    App app{server.url(), journal, {{.target = interface_list, .behaviour = behaviour}}, {.replay = true}};
    EXPECT_TRUE(consistent(app));
    EXPECT_EQ(verify("app"), R"({"orvel-zam-server:verify-configuration":{"consistent":"consistent"}})");
}

TEST_F(Consistency, IsNotGivenToWhoNeverHeardOfWhatExists) {
    App app{server.url(), journal, {{.target = interface_list}}};
    EXPECT_FALSE(consistent(app));
}

TEST_F(Consistency, IsGivenWhereNothingExists) {
    App app{server.url(), journal, {{.target = "/ietf-system:system"}}};
    EXPECT_TRUE(consistent(app));
}

TEST_F(Consistency, IsLostWithARefusedReplay) {
    refusing = true;
    App app{server.url(), journal, {{.target = interface_list, .behaviour = behaviour}}, {.replay = true}};
    EXPECT_FALSE(consistent(app));
}

TEST_F(Consistency, StaysWithWhoRefusedAChangeThatWasTakenBack) {
    App app{server.url(), journal, {{.target = interface_list, .behaviour = behaviour}}, {.replay = true}};
    app.on_thread([this](zamc_client *) { return refusing = true; });
    EXPECT_EQ(Operator{server.url()}.push(eth1_description, ZAMC_PUSH_MERGE, "x"), -1);
    EXPECT_TRUE(consistent(app));
}

TEST_F(Consistency, IsLostByWhoRefusesARollback) {
    App first{server.url(),
              journal,
              {{.target = interface_list,
                .priority = 1,
                .behaviour = [](zamc_client *, const Call &call,
                                zamc_bytes **) { return call.mask & ZAMC_SCENE_ROLLBACK ? -1 : 0; }}},
              {.name = "first", .replay = true}};
    App second{server.url(),
               journal,
               {{.target = interface_list, .priority = 2, .behaviour = behaviour}},
               {.name = "second", .replay = true}};
    second.on_thread([this](zamc_client *) { return refusing = true; });
    EXPECT_EQ(Operator{server.url()}.push(eth1_description, ZAMC_PUSH_MERGE, "x"), -1);
    EXPECT_FALSE(consistent(first));
    EXPECT_TRUE(consistent(second));
}

TEST_F(Consistency, OfANameThatNobodyHasIsNotThere) {
    EXPECT_EQ(verify("ghost"), R"({"orvel-zam-server:verify-configuration":{"consistent":"inconsistent"}})");
}

TEST_F(Consistency, IsAnsweredInXmlToo) {
    App app{server.url(), journal, {{.target = interface_list}}, {.encode = ZAM_ENCODE_XML, .replay = true}};
    EXPECT_TRUE(consistent(app));
    EXPECT_EQ(Operator{server.url()}.exchange(
                  R"(<verify-configuration xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server">)"
                  "<name>ghost</name></verify-configuration>",
                  ZAM_ENCODE_XML),
              R"(<verify-configuration xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server">)"
              "<consistent>inconsistent</consistent></verify-configuration>");
}

TEST_F(Consistency, NeedsAConnection) {
    bool consistent = true;
    zamc_client *client = zamc_client_new("app", ZAM_ENCODE_JSON);
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(zamc_consistency_check(client, &consistent), -1);
    EXPECT_FALSE(consistent);
    EXPECT_EQ(zamc_consistency_check(nullptr, &consistent), -1);
    zamc_client_free(client);
}

} // namespace
