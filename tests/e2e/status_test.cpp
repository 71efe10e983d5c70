// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Reading the operational datastore: configuration and what its providers answer, in one piece or not at all.
#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::AllOf;
using testing::Combine;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::Values;

constexpr char radio[] = R"({"radio:radio":{"volume":3,"preset":[{"name":"one","frequency":98}]},
                             "radio:room":[{"name":"hall"}]})";
constexpr char state_path[] = "/radio:radio/state";
constexpr uint32_t json = ZAM_ENCODE_JSON;
constexpr uint32_t xml = ZAM_ENCODE_XML;

Server::Options radio_server(std::vector<std::string> arguments = {}) {
    return {.startup = radio, .modules = real_models_and_radio(), .arguments = std::move(arguments)};
}

zamc_bytes *bytes_of(const std::string &text, uint32_t format) {
    return zamc_new_bytes(text.data(), static_cast<int32_t>(text.size()), format);
}

Behaviour answers(std::string text, uint32_t format = json) {
    return [text = std::move(text), format](zamc_client *, const Call &, zamc_bytes **output) {
        *output = bytes_of(text, format);
        return 0;
    };
}

int32_t answer_later(zamc_client *, const Call &, zamc_bytes **) {
    return ZAMC_REPLY_LATER;
}

Subscription provider(const std::string &target, Behaviour behaviour) {
    return {.target = target, .type = ZAMC_SUB_STATUS_QUERY, .behaviour = std::move(behaviour)};
}

bool is_query(const Call &call) {
    return call.kind == Call::status;
}

// The queries of an application so far, by their targets.
std::vector<std::string> queried(const Journal &journal, const std::string &app) {
    std::vector<std::string> targets;
    for (const auto &call : journal.calls())
        if (is_query(call) && call.app == app) targets.push_back(call.target);
    return targets;
}

// One who looks at the operational datastore.
class Watcher : public Operator {
public:
    explicit Watcher(const Server &server, uint32_t encode = json) : Operator{server.url(), encode, "watcher"} {
        datastore("ietf-datastores:operational");
    }
    std::string error(const std::string &path = state_path) {
        return exchange(R"({"orvel-zam-server:pull":{"datastore":"ietf-datastores:operational","entity":")" + path +
                        R"("}})");
    }
};

class Status : public testing::Test {
protected:
    int32_t reply(App &app, uint32_t seq, const std::string &text) {
        return app.on_thread([&](zamc_client *client) {
            zamc_bytes *bytes = bytes_of(text, json);
            const int32_t result = zamc_reply_asyn(client, seq, bytes);
            zamc_free_bytes(bytes);
            return result;
        });
    }
    std::future<std::string> pulling(const std::string &path) {
        return std::async(std::launch::async, [this, path] { return Watcher{server}.pull(path); });
    }

    DescriptorCheck descriptors;
    Server server{radio_server()};
    Journal journal;
};

TEST_F(Status, WithoutProvidersIsTheConfiguration) {
    Watcher watcher{server};
    EXPECT_EQ(watcher.pull("/radio:radio"), R"({"volume":3,"preset":[{"name":"one","frequency":98}]})");
    EXPECT_EQ(watcher.pull(state_path), "");
}

TEST_F(Status, AProviderAtThePathIsAskedForItsTarget) {
    App app{server.url(), journal, {provider(state_path, answers(R"({"signal":-3})"))}};
    Watcher watcher{server};
    EXPECT_EQ(watcher.pull(state_path), R"({"signal":-3})");
    EXPECT_EQ(queried(journal, "app"), std::vector<std::string>{state_path});
}

TEST_F(Status, AProviderBelowThePathAddsToTheConfiguration) {
    App app{server.url(), journal, {provider(state_path, answers(R"({"signal":-3})"))}};
    Watcher watcher{server};
    const std::string both = R"({"volume":3,"preset":[{"name":"one","frequency":98}],"state":{"signal":-3}})";
    EXPECT_EQ(watcher.pull("/radio:radio"), both);
    EXPECT_EQ(watcher.pull("/"), R"({"radio:radio":)" + both + R"(,"radio:room":[{"name":"hall"}]})");
}

TEST_F(Status, AProviderAboveThePathAnswersMoreThanIsShown) {
    App app{server.url(), journal, {provider(state_path, answers(R"({"signal":-3,"uptime":"77"})"))}};
    Watcher watcher{server};
    EXPECT_EQ(watcher.pull("/radio:radio/state/signal"), "-3");
    EXPECT_EQ(watcher.pull("/radio:radio/state/uptime"), "77");
    EXPECT_EQ(queried(journal, "app"), (std::vector<std::string>{state_path, state_path}));
}

TEST_F(Status, AProviderOfSomethingElseIsNotAsked) {
    App app{server.url(), journal, {provider(state_path, answers(R"({"signal":-3})"))}};
    Watcher watcher{server};
    EXPECT_EQ(watcher.pull("/radio:radio/volume"), "3");
    EXPECT_EQ(watcher.pull("/radio:room"), R"([{"name":"hall"}])");
    EXPECT_THAT(queried(journal, "app"), IsEmpty());
}

TEST_F(Status, TheConfigurationAloneAsksNobody) {
    App app{server.url(), journal, {provider(state_path, answers(R"({"signal":-3})"))}};
    Operator op{server.url()};
    EXPECT_EQ(op.pull("/radio:radio"), R"({"volume":3,"preset":[{"name":"one","frequency":98}]})");
    EXPECT_THAT(queried(journal, "app"), IsEmpty());
}

TEST_F(Status, AProviderIsAskedFromItsActivationToItsDeactivation) {
    App app{server.url(), journal, {provider(state_path, answers(R"({"signal":-3})"))}};
    Watcher watcher{server};
    EXPECT_EQ(watcher.pull(state_path), R"({"signal":-3})");
    EXPECT_EQ(app.on_thread([](zamc_client *client) { return zamc_deactivate(client); }), 0);
    EXPECT_EQ(watcher.pull(state_path), "");
}

TEST_F(Status, TheAnswerForAnEntryJoinsThatEntry) {
    App app{server.url(), journal, {provider("/radio:radio", answers(R"({"preset":[{"name":"one"}],"volume":3})"))}};
    Watcher watcher{server};
    EXPECT_EQ(watcher.pull("/radio:radio/preset"), R"([{"name":"one","frequency":98}])");
}

TEST_F(Status, AListWithoutKeysKeepsEveryEntryOfTheAnswer) {
    App app{server.url(),
            journal,
            {provider(state_path, answers(R"({"heard":[{"title":"a"},{"title":"a"},{"title":"b","artist":"c"}]})"))}};
    Watcher watcher{server};
    EXPECT_EQ(watcher.pull("/radio:radio/state/heard"), R"([{"title":"a"},{"title":"a"},{"title":"b","artist":"c"}])");
}

TEST_F(Status, TheLevelsBelowThePathAreCountedInTheAnswerToo) {
    App app{server.url(), journal, {provider(state_path, answers(R"({"signal":-3})"))}};
    Watcher watcher{server};
    EXPECT_EQ(watcher.pull("/radio:radio", 1), R"({"volume":3,"preset":[{"name":"one"}],"state":{}})");
    EXPECT_EQ(watcher.pull("/radio:radio", 2),
              R"({"volume":3,"preset":[{"name":"one","frequency":98}],"state":{"signal":-3}})");
}

TEST_F(Status, AProviderThatHasNothingToSayLeavesTheConfiguration) {
    App silent{server.url(), journal, {provider(state_path, nullptr)}, {.name = "silent"}};
    App empty{server.url(), journal, {provider(state_path, answers("{}"))}, {.name = "empty"}};
    App blank{server.url(), journal, {provider(state_path, answers(""))}, {.name = "blank"}};
    Watcher watcher{server};
    EXPECT_EQ(watcher.pull("/radio:radio"), R"({"volume":3,"preset":[{"name":"one","frequency":98}]})");
    EXPECT_EQ(journal.calls().size(), 6u) << "three activations, three queries";
}

TEST_F(Status, SeveralProvidersAreAskedAtOnceAndMayAnswerInAnyOrder) {
    App one{server.url(), journal, {provider("/radio:radio/state/signal", answer_later)}, {.name = "one"}};
    App two{server.url(), journal, {provider("/radio:radio/state/uptime", answer_later)}, {.name = "two"}};
    App three{server.url(), journal, {provider("/radio:radio/state/heard", answer_later)}, {.name = "three"}};
    auto pulled = pulling(state_path);
    for (const char *name : {"one", "two", "three"})
        ASSERT_TRUE(journal.wait_for([&](const Call &call) { return is_query(call) && call.app == name; })) << name;
    EXPECT_EQ(reply(three, 0, R"([{"title":"a"}])"), 0);
    EXPECT_EQ(reply(one, 0, "-3"), 0);
    EXPECT_EQ(pulled.wait_for(50ms), std::future_status::timeout) << "one answer is still owed";
    EXPECT_EQ(reply(two, 0, "77"), 0);
    EXPECT_THAT(pulled.get(), AllOf(HasSubstr(R"("signal":-3)"), HasSubstr(R"("uptime":"77")"),
                                    HasSubstr(R"("heard":[{"title":"a"}])")));
}

TEST_F(Status, SeveralTargetsOfOneProviderAreAskedAtOnceToo) {
    App app{server.url(),
            journal,
            {provider("/radio:radio/state/signal", answer_later), provider("/radio:radio/state/uptime", answer_later)}};
    auto pulled = pulling(state_path);
    ASSERT_TRUE(journal.wait_for(is_query));
    const auto second = journal.wait_for(is_query, *journal.wait_for(is_query) + 1);
    ASSERT_TRUE(second);
    const auto calls = journal.calls();
    const bool signal_first = calls[*second].target == "/radio:radio/state/uptime";
    EXPECT_EQ(reply(app, calls[*second].seq, signal_first ? "77" : "-3"), 0);
    EXPECT_EQ(reply(app, calls[*second - 1].seq, signal_first ? "-3" : "77"), 0);
    EXPECT_THAT(pulled.get(), AllOf(HasSubstr(R"("signal":-3)"), HasSubstr(R"("uptime":"77")")));
}

TEST_F(Status, TwoReadersAreServedAtTheSameTime) {
    App app{server.url(), journal, {provider(state_path, answer_later)}};
    auto first = pulling("/radio:radio/state/signal");
    ASSERT_TRUE(journal.wait_for(is_query));
    const size_t seen = journal.calls().size();
    auto second = pulling("/radio:radio/state/uptime");
    ASSERT_TRUE(journal.wait_for(is_query, seen)) << "the first has no answer yet";
    const auto calls = journal.calls();
    EXPECT_EQ(reply(app, calls[seen].seq, R"({"signal":-9,"uptime":"2"})"), 0);
    EXPECT_EQ(second.get(), "2");
    EXPECT_EQ(reply(app, calls[seen - 1].seq, R"({"signal":-1,"uptime":"1"})"), 0);
    EXPECT_EQ(first.get(), "-1");
}

TEST_F(Status, AProviderThatAnswersLaterIsWaitedForWhileOthersRead) {
    App app{server.url(), journal, {provider(state_path, answer_later)}};
    auto pulled = pulling(state_path);
    ASSERT_TRUE(journal.wait_for(is_query));
    Watcher other{server};
    EXPECT_EQ(other.pull("/radio:radio/volume"), "3");
    EXPECT_EQ(other.push("/radio:radio/night", ZAMC_PUSH_MERGE, "true"), -1) << "nothing is pushed to operational";
    EXPECT_EQ(reply(app, 0, R"({"signal":-5})"), 0);
    EXPECT_EQ(pulled.get(), R"({"signal":-5})");
}

TEST_F(Status, AFailingProviderFailsThePullWithItsNameCodeAndText) {
    App app{server.url(),
            journal,
            {provider(state_path,
                      [](zamc_client *client, const Call &, zamc_bytes **) {
                          zamc_error_set(client, 77, "no \"antenna\" at %s", "all");
                          return -1;
                      })},
            {.name = "aerial"}};
    Watcher watcher{server};
    EXPECT_THAT(watcher.error(), AllOf(StartsWith(R"({"ietf-netconf:rpc-error":{)"), HasSubstr("aerial"),
                                       HasSubstr(R"("error-app-tag":"77")"), HasSubstr(R"(no \"antenna\" at all)"),
                                       HasSubstr(R"("error-path":"/radio:radio/state")")));
    zamc_bytes *out = nullptr;
    EXPECT_EQ(zamc_pull(watcher.client(), 0, "/radio:radio", -1, &out), -1);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(watcher.pull("/radio:radio/volume"), "3") << "what it does not provide is not touched by it";
}

TEST_F(Status, AProviderThatFailsWithoutAReasonFailedAsAService) {
    App app{
        server.url(), journal, {provider(state_path, [](zamc_client *, const Call &, zamc_bytes **) { return 5; })}};
    EXPECT_THAT(Watcher{server}.error(), AllOf(HasSubstr("'app'"), HasSubstr(R"("error-app-tag":"4294967293")"),
                                               HasSubstr("Service process failed")));
}

TEST_F(Status, OneFailureOfSeveralEndsThePullAndALateAnswerHarmsNothing) {
    App slow{server.url(), journal, {provider("/radio:radio/state/uptime", answer_later)}, {.name = "slow"}};
    App broken{server.url(),
               journal,
               {provider("/radio:radio/state/signal", [](zamc_client *, const Call &, zamc_bytes **) { return 1; })},
               {.name = "broken"}};
    Watcher watcher{server};
    EXPECT_THAT(watcher.error(), AllOf(HasSubstr("broken"), Not(HasSubstr("slow"))));
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return is_query(call) && call.app == "slow"; }));
    EXPECT_EQ(reply(slow, 0, "77"), 0);
    const size_t seen = journal.calls().size();
    auto pulled = pulling("/radio:radio/state/uptime");
    ASSERT_TRUE(journal.wait_for(is_query, seen));
    EXPECT_EQ(reply(slow, 0, "78"), 0);
    EXPECT_EQ(pulled.get(), "78");
}

TEST_F(Status, AProviderThatDoesNotAnswerInTimeFailsThePull) {
    Server impatient{radio_server({"--publish-timeout", "0.1"})};
    App app{impatient.url(), journal, {provider(state_path, answer_later)}, {.name = "sleeper"}};
    Watcher watcher{impatient};
    EXPECT_THAT(watcher.error(), AllOf(HasSubstr("rpc-error"), HasSubstr("sleeper"), HasSubstr("0.1 s")));
    ASSERT_TRUE(journal.wait_for(is_query));
    EXPECT_EQ(reply(app, 0, R"({"signal":-3})"), 0) << "too late, and dropped";
    EXPECT_EQ(watcher.pull("/radio:radio/volume"), "3");
}

TEST_F(Status, AProviderThatDiesFailsThePullAtOnceAndIsNotAskedAgain) {
    App app{server.url(),
            journal,
            {provider(state_path,
                      [](zamc_client *client, const Call &, zamc_bytes **) {
                          zamc_disconnect(client);
                          return 0;
                      })},
            {.name = "mortal"}};
    Watcher watcher{server};
    EXPECT_THAT(watcher.error(), AllOf(HasSubstr("rpc-error"), HasSubstr("mortal"), HasSubstr("closed")));
    EXPECT_EQ(watcher.pull("/radio:radio"), R"({"volume":3,"preset":[{"name":"one","frequency":98}]})");
}

TEST_F(Status, AReaderThatDiesMeanwhileLeavesTheProviderAnsweringInPeace) {
    App app{server.url(), journal, {provider(state_path, answer_later)}};
    {
        Watcher impatient{server};
        zamc_bytes *request =
            bytes_of(R"({"orvel-zam-server:pull":{"datastore":"ietf-datastores:operational","entity":"/"}})", json);
        EXPECT_EQ(zamc_send_rpc_asyn(impatient.client(), request, nullptr, nullptr), 0);
        zamc_free_bytes(request);
        ASSERT_TRUE(journal.wait_for(is_query));
    }
    EXPECT_EQ(reply(app, 0, R"({"signal":-3})"), 0);
    const size_t seen = journal.calls().size();
    auto pulled = pulling(state_path);
    ASSERT_TRUE(journal.wait_for(is_query, seen));
    EXPECT_EQ(reply(app, 0, R"({"signal":-4})"), 0);
    EXPECT_EQ(pulled.get(), R"({"signal":-4})");
}

struct Form {
    const char *name;
    const char *target;
    uint32_t format;
    const char *text;
};

class UnusableAnswer : public testing::TestWithParam<Form> {
protected:
    DescriptorCheck descriptors;
    Server server{radio_server()};
    Journal journal;
};
constexpr Form unusable[] = {
    {"BrokenJson", state_path, json, R"({"signal":)"},
    {"NoJson", state_path, json, "hello"},
    {"UnknownNode", state_path, json, R"({"wings":2})"},
    {"WrongType", state_path, json, R"({"signal":"loud"})"},
    {"OutOfRange", state_path, json, R"({"signal":128})"},
    {"ArrayForAContainer", state_path, json, "[1]"},
    {"NestedArrays", "/radio:radio/state/heard", json, "[[[]]]"},
    {"BrokenXml", state_path, xml, "<state><signal>"},
    {"OtherElement", state_path, xml, "<wings/>"},
    {"XmlForALeaf", "/radio:radio/state/signal", xml, "<uptime>3</uptime>"},
    {"XmlMarkedAsJson", state_path, json, "<state/>"},
};
INSTANTIATE_TEST_SUITE_P(, UnusableAnswer, testing::ValuesIn(unusable),
                         [](const auto &form) { return form.param.name; });

TEST_P(UnusableAnswer, FailsThePullWithTheProvidersName) {
    App app{server.url(),
            journal,
            {provider(GetParam().target, answers(GetParam().text, GetParam().format))},
            {.name = "mumbler"}};
    Watcher watcher{server};
    EXPECT_THAT(watcher.error(), AllOf(HasSubstr("rpc-error"), HasSubstr("mumbler"), HasSubstr("error-message")));
    EXPECT_EQ(watcher.pull("/radio:radio/volume"), "3");
}

class UsableAnswer : public testing::TestWithParam<Form> {
protected:
    DescriptorCheck descriptors;
    Server server{radio_server()};
    Journal journal;
};
constexpr Form usable[] = {
    {"JsonValue", state_path, json, R"({"signal":-3})"},
    {"JsonNamed", state_path, json, R"({"state":{"signal":-3}})"},
    {"JsonQualified", state_path, json, R"({"radio:state":{"signal":-3}})"},
    {"JsonDocument", state_path, json, R"({"radio:radio":{"state":{"signal":-3}}})"},
    {"JsonLeafValue", "/radio:radio/state/signal", json, "-3"},
    {"JsonLeafNamed", "/radio:radio/state/signal", json, R"({"signal":-3})"},
    {"XmlElement", state_path, xml, "<state><signal>-3</signal></state>"},
    {"XmlElementWithNamespace", state_path, xml, R"(<state xmlns="urn:zamc:test:radio"><signal>-3</signal></state>)"},
    {"XmlLeafElement", "/radio:radio/state/signal", xml, "<signal>-3</signal>"},
    {"XmlDocument", state_path, xml,
     R"(<radio xmlns="urn:zamc:test:radio"><state><signal>-3</signal></state></radio>)"},
};
INSTANTIATE_TEST_SUITE_P(, UsableAnswer, testing::ValuesIn(usable), [](const auto &form) { return form.param.name; });

TEST_P(UsableAnswer, IsWhatAReaderSees) {
    App app{server.url(), journal, {provider(GetParam().target, answers(GetParam().text, GetParam().format))}};
    Watcher watcher{server};
    EXPECT_EQ(watcher.pull(state_path), R"({"signal":-3})");
    EXPECT_EQ(watcher.pull("/radio:radio/state/signal"), "-3");
}

// The encodings of the provider's session, of its answer and of the reader.
class StatusEncodings : public testing::TestWithParam<std::tuple<uint32_t, uint32_t, uint32_t>> {
protected:
    DescriptorCheck descriptors;
    Server server{radio_server()};
    Journal journal;
};
std::string encoding_name(uint32_t encode) {
    return encode == json ? "Json" : "Xml";
}
INSTANTIATE_TEST_SUITE_P(, StatusEncodings, Combine(Values(json, xml), Values(json, xml), Values(json, xml)),
                         [](const auto &all) {
                             return encoding_name(std::get<0>(all.param)) + "ProviderAnswers" +
                                    encoding_name(std::get<1>(all.param)) + "To" +
                                    encoding_name(std::get<2>(all.param));
                         });

TEST_P(StatusEncodings, DoNotMatterToEachOther) {
    const auto [provides, answer, reads] = GetParam();
    App app{server.url(),
            journal,
            {provider(state_path, answer == json ? answers(R"({"heard":[{"title":"a<b & \"c\""}]})")
                                                 : answers("<state><heard><title>a&lt;b &amp; \"c\"</title></heard>"
                                                           "</state>",
                                                           xml))},
            {.encode = provides}};
    Watcher watcher{server, reads};
    EXPECT_EQ(watcher.pull(state_path),
              reads == json
                  ? R"({"heard":[{"title":"a<b & \"c\""}]})"
                  : R"(<state xmlns="urn:zamc:test:radio"><heard><title>a&lt;b &amp; "c"</title></heard></state>)");
    EXPECT_EQ(queried(journal, "app"), std::vector<std::string>{state_path});
}

} // namespace
