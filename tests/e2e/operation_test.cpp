// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Operations: from a caller through the server to the application that carries them out, and their answers back.
#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char tune[] = "/radio:tune";
constexpr char play[] = "/radio:radio/preset/play";
constexpr char restart[] = "/ietf-system:system-restart";
constexpr char presets[] = R"({"radio:radio":{"preset":[{"name":"one"},{"name":"two"}]}})";

std::string tune_json(uint32_t frequency) {
    return R"({"radio:tune":{"frequency":)" + std::to_string(frequency) + "}}";
}
std::string tune_xml(uint32_t frequency) {
    return R"(<tune xmlns="urn:zamc:test:radio"><frequency>)" + std::to_string(frequency) + "</frequency></tune>";
}

zamc_bytes *bytes_of(const std::string &text, uint32_t format) {
    return zamc_new_bytes(text.data(), static_cast<int32_t>(text.size()), format);
}

int32_t later(zamc_client *, const Call &, zamc_bytes **) {
    return ZAMC_REPLY_LATER;
}

bool is_operation(const Call &call) {
    return call.kind == Call::operation;
}

int32_t answer(App &app, uint32_t seq, const std::string &output, uint32_t format) {
    return app.on_thread([&](zamc_client *client) {
        zamc_bytes *bytes = bytes_of(output, format);
        const int32_t result = zamc_reply_asyn(client, seq, bytes);
        zamc_free_bytes(bytes);
        return result;
    });
}

// The encodings of the caller and of the application that carries the operation out.
struct Encodings {
    const char *name;
    uint32_t caller;
    uint32_t provider;
};

class Operation : public testing::TestWithParam<Encodings> {
protected:
    bool caller_xml() const { return GetParam().caller == ZAM_ENCODE_XML; }
    bool provider_xml() const { return GetParam().provider == ZAM_ENCODE_XML; }
    std::string call(const std::string &json, const std::string &xml) {
        Operator op{server.url(), GetParam().caller};
        return op.exchange(caller_xml() ? xml : json, GetParam().caller);
    }
    std::string call_tune(uint32_t frequency = 101) { return call(tune_json(frequency), tune_xml(frequency)); }
    std::future<std::string> call_tune_meanwhile(uint32_t frequency) {
        return std::async(std::launch::async, [=, this] { return call_tune(frequency); });
    }
    // An application that carries the operation out as `behaviour` says.
    App tuner(Behaviour behaviour = {}) {
        return App{server.url(),
                   journal,
                   {{.target = tune, .type = ZAMC_SUB_OPERATION, .behaviour = std::move(behaviour)}},
                   options()};
    }
    App::Options options() const { return {.encode = GetParam().provider}; }
    std::string song(const std::string &text) const {
        return provider_xml() ? R"(<song xmlns="urn:zamc:test:radio">)" + text + "</song>"
                              : R"({"radio:song":")" + text + R"("})";
    }
    std::string tuned(const std::string &text) const {
        return caller_xml() ? R"(<tune xmlns="urn:zamc:test:radio"><song>)" + text + "</song></tune>"
                            : R"({"radio:tune":{"song":")" + text + R"("}})";
    }
    Behaviour answers_with(const std::string &json, const std::string &xml) const {
        return [text = provider_xml() ? xml : json, format = GetParam().provider](zamc_client *, const Call &,
                                                                                  zamc_bytes **output) {
            *output = bytes_of(text, format);
            return 0;
        };
    }
    // A member of an error, as the caller reads it.
    std::string member(const std::string &name, const std::string &value) const {
        return caller_xml() ? "<" + name + ">" + value + "</" + name + ">" : "\"" + name + "\":\"" + value + "\"";
    }
    testing::Matcher<std::string> an_error(const std::string &code, const std::string &text) const {
        return AllOf(HasSubstr("rpc-error"), HasSubstr(member("error-tag", "operation-failed")),
                     HasSubstr(member("error-app-tag", code)), HasSubstr(text));
    }
    testing::Matcher<std::string> not_supported() const {
        return AllOf(HasSubstr("rpc-error"), HasSubstr(member("error-tag", "operation-not-supported")));
    }

    DescriptorCheck descriptors;
    Server server{{.startup = presets, .modules = real_models_and_radio()}};
    Journal journal;
};

INSTANTIATE_TEST_SUITE_P(Encodings, Operation,
                         testing::Values(Encodings{"JsonByJson", ZAM_ENCODE_JSON, ZAM_ENCODE_JSON},
                                         Encodings{"JsonByXml", ZAM_ENCODE_JSON, ZAM_ENCODE_XML},
                                         Encodings{"XmlByJson", ZAM_ENCODE_XML, ZAM_ENCODE_JSON},
                                         Encodings{"XmlByXml", ZAM_ENCODE_XML, ZAM_ENCODE_XML}),
                         [](const auto &given) { return given.param.name; });

TEST_P(Operation, InputGoesInTheApplicationsEncodingAndOutputComesInTheCallers) {
    App app = tuner(answers_with(R"({"radio:signal":-3,"radio:song":"a \"b\" <c> \\ ü"})",
                                 R"(<signal xmlns="urn:zamc:test:radio">-3</signal>)"
                                 R"(<song xmlns="urn:zamc:test:radio">a "b" &lt;c&gt; \ ü</song>)"));
    EXPECT_EQ(call_tune(),
              caller_xml()
                  ? R"(<tune xmlns="urn:zamc:test:radio"><signal>-3</signal><song>a "b" &lt;c&gt; \ ü</song></tune>)"
                  : R"({"radio:tune":{"signal":-3,"song":"a \"b\" <c> \\ ü"}})");
    const auto found = journal.wait_for(is_operation);
    ASSERT_TRUE(found);
    const Call seen = journal.calls()[*found];
    EXPECT_EQ(seen.input, provider_xml() ? R"(<frequency xmlns="urn:zamc:test:radio">101</frequency>)"
                                         : R"({"radio:frequency":101})");
    EXPECT_EQ(seen.input_format, GetParam().provider);
    EXPECT_NE(seen.seq, 0u);
}

TEST_P(Operation, WithoutInputTheHandlerGetsAnEmptyObjectOrAnEmptyText) {
    App app{server.url(), journal, {{.target = restart, .type = ZAMC_SUB_OPERATION}}, options()};
    EXPECT_EQ(call(R"({"ietf-system:system-restart":{}})",
                   R"(<system-restart xmlns="urn:ietf:params:xml:ns:yang:ietf-system"/>)"),
              "");
    const auto found = journal.wait_for(is_operation);
    ASSERT_TRUE(found);
    EXPECT_EQ(journal.calls()[*found].input, provider_xml() ? "" : "{}");
    EXPECT_EQ(journal.calls()[*found].input_format, GetParam().provider);
}

TEST_P(Operation, WithoutOutputTheAnswerIsEmpty) {
    App app = tuner();
    EXPECT_EQ(call_tune(), "");
}

TEST_P(Operation, AnActionReachesItsHandlerAndItsOutputComesBackInItsPlace) {
    App app{server.url(),
            journal,
            {{.target = play,
              .type = ZAMC_SUB_OPERATION,
              .behaviour = answers_with(R"({"radio:song":"la"})", R"(<song xmlns="urn:zamc:test:radio">la</song>)")}},
            options()};
    EXPECT_EQ(call(R"({"radio:radio":{"preset":[{"name":"two","play":{"volume":5}}]}})",
                   R"(<radio xmlns="urn:zamc:test:radio"><preset><name>two</name><play><volume>5</volume></play>)"
                   "</preset></radio>"),
              caller_xml()
                  ? R"(<radio xmlns="urn:zamc:test:radio"><preset><name>two</name><play><song>la</song></play>)"
                    "</preset></radio>"
                  : R"({"radio:radio":{"preset":[{"name":"two","play":{"song":"la"}}]}})");
    const auto found = journal.wait_for(is_operation);
    ASSERT_TRUE(found);
    EXPECT_EQ(journal.calls()[*found].input,
              provider_xml() ? R"(<volume xmlns="urn:zamc:test:radio">5</volume>)" : R"({"radio:volume":5})");
}

TEST_P(Operation, AnActionOfOneEntryIsNoOtherEntrys) {
    App app{server.url(),
            journal,
            {{.target = "/radio:radio/preset[name='one']/play", .type = ZAMC_SUB_OPERATION}},
            options()};
    const auto call_play = [this](const std::string &name) {
        return call(R"({"radio:radio":{"preset":[{"name":")" + name + R"(","play":{}}]}})",
                    R"(<radio xmlns="urn:zamc:test:radio"><preset><name>)" + name + "</name><play/></preset></radio>");
    };
    EXPECT_EQ(call_play("one"), "");
    EXPECT_THAT(call_play("two"), not_supported());
}

TEST_P(Operation, DeferredAnswersAreGivenByTheirNumbers) {
    App app = tuner(later);
    auto first = call_tune_meanwhile(1);
    const auto one = journal.wait_for(is_operation);
    ASSERT_TRUE(one);
    auto second = call_tune_meanwhile(2);
    const auto two = journal.wait_for(is_operation, *one + 1);
    ASSERT_TRUE(two);
    const auto calls = journal.calls();
    EXPECT_NE(calls[*one].seq, calls[*two].seq);
    EXPECT_EQ(answer(app, calls[*two].seq, song("two"), GetParam().provider), 0);
    EXPECT_EQ(second.get(), tuned("two"));
    EXPECT_EQ(first.wait_for(0s), std::future_status::timeout);
    EXPECT_EQ(answer(app, calls[*one].seq, song("one"), GetParam().provider), 0);
    EXPECT_EQ(first.get(), tuned("one"));
    EXPECT_EQ(answer(app, calls[*one].seq, song("one"), GetParam().provider), -1) << "nothing is owed any more";
}

TEST_P(Operation, DeferredAnswersWithoutANumberGoToTheOldest) {
    App app = tuner(later);
    auto first = call_tune_meanwhile(1);
    const auto one = journal.wait_for(is_operation);
    ASSERT_TRUE(one);
    auto second = call_tune_meanwhile(2);
    ASSERT_TRUE(journal.wait_for(is_operation, *one + 1));
    EXPECT_EQ(answer(app, 0, song("one"), GetParam().provider), 0);
    EXPECT_EQ(first.get(), tuned("one"));
    EXPECT_EQ(second.wait_for(0s), std::future_status::timeout);
    EXPECT_EQ(app.on_thread([](zamc_client *client) { return zamc_reply_asyn(client, 0, nullptr); }), 0);
    EXPECT_EQ(second.get(), "");
}

TEST_P(Operation, ADeferredRefusalCarriesItsCodeAndText) {
    App app = tuner(later);
    auto reply = call_tune_meanwhile(1);
    ASSERT_TRUE(journal.wait_for(is_operation));
    EXPECT_EQ(app.on_thread([](zamc_client *client) {
        zamc_error_set(client, 12, "no %s", "antenna");
        return zamc_reply_asyn(client, 0, nullptr);
    }),
              0);
    EXPECT_THAT(reply.get(), an_error("12", "no antenna"));
}

TEST_P(Operation, ARefusalCarriesTheHandlersCodeAndText) {
    App app = tuner([](zamc_client *client, const Call &, zamc_bytes **) {
        zamc_error_set(client, -7, "100%% static: %d", 3);
        return 1;
    });
    EXPECT_THAT(call_tune(), an_error("4294967289", "100% static: 3"));
}

TEST_P(Operation, ACodeRecordedBesidesSuccessIsARefusalAllTheSame) {
    App app = tuner([](zamc_client *client, const Call &, zamc_bytes **) {
        zamc_error_set(client, 5, nullptr);
        return 0;
    });
    EXPECT_THAT(call_tune(), an_error("5", ""));
}

TEST_P(Operation, ARefusalWithoutAReasonSaysThatTheServiceFailed) {
    App app = tuner([](zamc_client *, const Call &, zamc_bytes **) { return -1; });
    EXPECT_THAT(call_tune(), an_error("4294967293", "Service process failed"));
}

TEST_P(Operation, OutputThatIsNotWellFormedIsARefusal) {
    App app = tuner(answers_with(R"({"radio:song":)", "<song>"));
    EXPECT_THAT(call_tune(), HasSubstr("rpc-error"));
    EXPECT_THAT(call_tune(), HasSubstr("app")) << "the connection goes on";
}

TEST_P(Operation, OutputThatTheModelDoesNotKnowIsARefusalThatNamesTheClient) {
    App app = tuner(answers_with(R"({"radio:smell":"x"})", R"(<smell xmlns="urn:zamc:test:radio">x</smell>)"));
    EXPECT_THAT(call_tune(), AllOf(HasSubstr("rpc-error"), HasSubstr("'app'"), HasSubstr(tune), HasSubstr("smell")));
}

TEST_P(Operation, InputThatTheModelDoesNotKnowIsRefusedAndNobodyIsAsked) {
    App app = tuner();
    journal.clear();
    EXPECT_THAT(
        call(R"({"radio:tune":{"station":1}})", R"(<tune xmlns="urn:zamc:test:radio"><station>1</station></tune>)"),
        AllOf(HasSubstr("rpc-error"), HasSubstr("station")));
    EXPECT_THAT(journal.calls(), IsEmpty());
}

TEST_P(Operation, NobodyToCarryItOutMakesItUnsupported) {
    EXPECT_THAT(call_tune(), AllOf(not_supported(), HasSubstr(tune)));
    {
        App app = tuner();
        EXPECT_EQ(call_tune(), "");
        EXPECT_EQ(app.change_subscriptions({}, {{.target = tune, .type = ZAMC_SUB_OPERATION}}), 0);
        EXPECT_THAT(call_tune(), not_supported());
        EXPECT_EQ(app.change_subscriptions({{.target = tune, .type = ZAMC_SUB_OPERATION}}, {}), 0);
        EXPECT_EQ(call_tune(), "");
    }
    EXPECT_THAT(call_tune(), not_supported());
}

TEST_P(Operation, ASubscriptionWithoutAHandlerDoesNotProcessIt) {
    App app{server.url(), journal, {}, options()};
    app.on_thread([](zamc_client *client) {
        zamc_sub_node node{};
        node.target = tune;
        node.type = ZAMC_SUB_OPERATION;
        EXPECT_EQ(zamc_subscribe(client, &node), 0);
        return 0;
    });
    EXPECT_EQ(app.change_subscriptions({}, {}), 0);
    EXPECT_THAT(call_tune(), an_error("4294967292", "Message is not processed"));
}

// The server gives the number back that came with a subscription: here one that leads nowhere, or to somebody else.
TEST_P(Operation, ANumberThatLeadsToAnotherSubscriptionOrToNoneDoesNotProcessIt) {
    App app{server.url(),
            journal,
            {{.target = "/radio:radio/motto"}, {.target = restart, .type = ZAMC_SUB_OPERATION}},
            options()};
    for (const char *number : {"0", "2", "99", "18446744073709551615"}) {
        const std::string text = R"({"orvel-zam-server:subscribe":{"subscriptions":{"subscription":[{"target":")" +
                                 std::string{tune} + R"(","sub-type":"operation","priv-data":")" + number + R"("}]}}})";
        app.on_thread([&](zamc_client *client) {
            zamc_bytes *request = json_bytes(text);
            zamc_bytes *reply = nullptr;
            EXPECT_EQ(zamc_send_rpc_sync(client, request, &reply, 20000), 0);
            EXPECT_EQ(reply, nullptr) << reply->data;
            zamc_free_bytes(reply);
            zamc_free_bytes(request);
            return 0;
        });
        EXPECT_EQ(app.change_subscriptions({}, {}), 0);
        EXPECT_THAT(call_tune(), an_error("4294967292", "Message is not processed")) << number;
    }
    for (const auto &call : journal.calls())
        EXPECT_EQ(call.kind, Call::active);
}

TEST_P(Operation, AnApplicationMayCallItsOwnOperation) {
    App app{
        server.url(),
        journal,
        {{.target = tune,
          .type = ZAMC_SUB_OPERATION,
          .behaviour = answers_with(R"({"radio:song":"mine"})", R"(<song xmlns="urn:zamc:test:radio">mine</song>)")}},
        options()};
    std::promise<std::string> replied;
    const auto note = [](zamc_client *, const zam_message *reply, void *arg) {
        static_cast<std::promise<std::string> *>(arg)->set_value(reply ? std::string(reply->data, reply->length) : "");
        return 0;
    };
    app.on_thread([&](zamc_client *client) {
        zamc_bytes *request = bytes_of(caller_xml() ? tune_xml(1) : tune_json(1), GetParam().caller);
        EXPECT_EQ(zamc_send_rpc_asyn(client, request, note, &replied), 0);
        zamc_free_bytes(request);
        return 0;
    });
    auto reply = replied.get_future();
    ASSERT_EQ(reply.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(reply.get(), tuned("mine"));
}

TEST_P(Operation, AnApplicationThatGoesWhileItIsAskedMakesItFailAtOnce) {
    App app = tuner([](zamc_client *client, const Call &, zamc_bytes **) {
        zamc_disconnect(client);
        return 0;
    });
    EXPECT_THAT(call_tune(), AllOf(HasSubstr("rpc-error"), HasSubstr("'app'")));
}

TEST(OperationTime, AnApplicationThatDoesNotAnswerInTimeMakesItFailAndItsLateAnswerIsDropped) {
    Server server{{.modules = real_models_and_radio(), .arguments = {"--publish-timeout", "0.2"}}};
    Journal journal;
    App app{server.url(), journal, {{.target = tune, .type = ZAMC_SUB_OPERATION, .behaviour = later}}};
    Operator op{server.url()};
    EXPECT_THAT(op.exchange(tune_json(1)), AllOf(HasSubstr("rpc-error"), HasSubstr("'app'")));
    EXPECT_EQ(answer(app, 0, R"({"radio:song":"late"})", ZAM_ENCODE_JSON), 0);
    EXPECT_EQ(app.on_thread([](zamc_client *client) { return zamc_send_heartbeat(client); }), 0);
    EXPECT_EQ(zamc_send_heartbeat(op.client()), 0);
    EXPECT_EQ(zamc_run(op.client(), 0), 0);
}

} // namespace
