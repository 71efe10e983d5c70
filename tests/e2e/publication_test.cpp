// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Who is told of a change, in which order, and what a refusal does.
#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char interface_list[] = "/ietf-interfaces:interfaces/interface";
constexpr char eth0[] = "/ietf-interfaces:interfaces/interface[name=\"eth0\"]";
constexpr char eth1[] = "/ietf-interfaces:interfaces/interface[name=\"eth1\"]";
constexpr char eth2[] = "/ietf-interfaces:interfaces/interface[name=\"eth2\"]";
constexpr char eth3[] = "/ietf-interfaces:interfaces/interface[name=\"eth3\"]";
constexpr uint32_t every_scene = ZAMC_SCENE_NORMAL | ZAMC_SCENE_CFGR | ZAMC_SCENE_ROLLBACK;
constexpr uint32_t every_change = ZAMC_CONFIG_CREATE | ZAMC_CONFIG_DELETE | ZAMC_CONFIG_UPDATE | ZAMC_CONFIG_MOVE;
constexpr uint32_t everything = every_scene | every_change;

std::string interface(const std::string &name) {
    return R"([{"name":")" + name + R"(","type":"iana-if-type:ethernetCsmacd"}])";
}

// "app: what target" for each config call.
std::vector<std::string> shown(const std::vector<Call> &calls) {
    std::vector<std::string> lines;
    for (const auto &call : calls) {
        if (call.kind != Call::config) continue;
        std::string line = call.app + ":";
        if (call.mask & ZAMC_CONFIG_CREATE) line += " create";
        if (call.mask & ZAMC_CONFIG_DELETE) line += " delete";
        if (call.mask & ZAMC_CONFIG_UPDATE) line += " update";
        if (call.mask & ZAMC_CONFIG_MOVE) line += " move";
        if (call.mask & ZAMC_SCENE_CFGR) line += " replay";
        if (call.mask & ZAMC_SCENE_ROLLBACK) line += " rollback";
        line += " " + call.target;
        if (call.list_more) line += " more";
        lines.push_back(line);
    }
    return lines;
}

int32_t refuse(zamc_client *client, int32_t code, const char *text) {
    zamc_error_set(client, code, "%s", text);
    return -1;
}

class Publication : public testing::Test {
protected:
    Server server{{.startup = two_interfaces}};
    Journal journal;
};

TEST_F(Publication, AListWithoutKeysGetsOneCallForEachEntryAndMoreOnAllButTheLast) {
    App app{server.url(), journal, {{.target = interface_list}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push("/ietf-interfaces:interfaces", ZAMC_PUSH_MERGE,
                      R"({"interface":[{"name":"eth2","type":"iana-if-type:ethernetCsmacd"},
                                       {"name":"eth3","type":"iana-if-type:ethernetCsmacd"}]})"),
              0);
    EXPECT_THAT(shown(journal.calls()),
                ElementsAre(std::string{"app: create "} + eth2 + " more", std::string{"app: create "} + eth3));
}

TEST_F(Publication, ANodeThatNamesAnEntryHearsOfThatEntryOnly) {
    App app{server.url(), journal, {{.target = eth1}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(std::string{eth0} + "/description", ZAMC_PUSH_MERGE, "a"), 0);
    EXPECT_EQ(op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "b"), 0);
    EXPECT_THAT(shown(journal.calls()), ElementsAre(std::string{"app: update "} + eth1));
}

TEST_F(Publication, ADeletedAncestorDeletesTheTarget) {
    App app{server.url(), journal, {{.target = std::string{eth1} + "/enabled"}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(eth1, ZAMC_PUSH_DELETE, ""), 0);
    EXPECT_THAT(shown(journal.calls()), ElementsAre(std::string{"app: delete "} + eth1 + "/enabled"));
}

TEST_F(Publication, ACreatedAncestorCreatesTheTarget) {
    App app{server.url(), journal, {{.target = std::string{eth2} + "/type"}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(eth2, ZAMC_PUSH_CREATE, interface("eth2")), 0);
    EXPECT_THAT(shown(journal.calls()), ElementsAre(std::string{"app: create "} + eth2 + "/type"));
}

TEST_F(Publication, AMaskWithoutAKindOfChangeIsNotToldOfIt) {
    App creates{server.url(),
                journal,
                {{.target = interface_list, .mask = ZAMC_CONFIG_CREATE | ZAMC_SCENE_NORMAL}},
                {.name = "creates"}};
    App updates{server.url(),
                journal,
                {{.target = interface_list, .mask = ZAMC_CONFIG_UPDATE | ZAMC_SCENE_NORMAL}},
                {.name = "updates"}};
    App deletes{server.url(),
                journal,
                {{.target = interface_list, .mask = ZAMC_CONFIG_DELETE | ZAMC_SCENE_NORMAL}},
                {.name = "deletes"}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(eth2, ZAMC_PUSH_CREATE, interface("eth2")), 0);
    EXPECT_EQ(op.push(std::string{eth2} + "/description", ZAMC_PUSH_MERGE, "x"), 0);
    EXPECT_EQ(op.push(eth2, ZAMC_PUSH_DELETE, ""), 0);
    EXPECT_THAT(shown(journal.calls()),
                ElementsAre(std::string{"creates: create "} + eth2, std::string{"updates: update "} + eth2,
                            std::string{"deletes: delete "} + eth2));
}

TEST_F(Publication, AHandlerWithoutListMoreIsCalledAllTheSame) {
    App app{server.url(), journal, {{.target = interface_list, .type = ZAMC_SUB_CONFIG_CHANGE_BRIEF, .priority = 7}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "b"), 0);
    const auto calls = journal.calls();
    ASSERT_THAT(shown(calls), ElementsAre(std::string{"app: update "} + eth1));
    EXPECT_EQ(calls.back().priority, 7u);
}

TEST_F(Publication, LowerNumbersAreAskedFirst) {
    App last{server.url(), journal, {{.target = interface_list, .priority = 30}}, {.name = "last"}};
    App first{server.url(), journal, {{.target = interface_list, .priority = 10}}, {.name = "first"}};
    App middle{server.url(), journal, {{.target = interface_list, .priority = 20}}, {.name = "middle"}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "b"), 0);
    EXPECT_THAT(shown(journal.calls()),
                ElementsAre(std::string{"first: update "} + eth1, std::string{"middle: update "} + eth1,
                            std::string{"last: update "} + eth1));
}

TEST_F(Publication, NobodyIsAskedWhenNothingChanges) {
    App app{server.url(), journal, {{.target = interface_list}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(std::string{eth1} + "/enabled", ZAMC_PUSH_MERGE, "true"), 0);
    EXPECT_THAT(shown(journal.calls()), IsEmpty());
}

TEST_F(Publication, ARefusalLeavesEverythingAsItWasAndNamesTheClientItsCodeAndItsText) {
    App app{server.url(),
            journal,
            {{.target = interface_list,
              .behaviour = [](zamc_client *client, const Call &,
                              zamc_bytes **) { return refuse(client, 4711, "not on a \"Friday\""); }}},
            {.name = "careful"}};
    Operator op{server.url()};
    const std::string reply = op.push_reply(std::string{eth1} + "/description", "merge", "b");
    EXPECT_THAT(reply, HasSubstr("rpc-error"));
    EXPECT_THAT(reply, HasSubstr("careful"));
    EXPECT_THAT(reply, HasSubstr(R"("error-app-tag":"4711")"));
    EXPECT_THAT(reply, HasSubstr(R"(not on a \"Friday\")"));
    EXPECT_EQ(op.pull(std::string{eth1} + "/description"), "");
}

TEST_F(Publication, ARefusalWithoutAReasonSaysThatTheServiceFailed) {
    App app{server.url(),
            journal,
            {{.target = interface_list, .behaviour = [](zamc_client *, const Call &, zamc_bytes **) { return 5; }}}};
    Operator op{server.url()};
    const std::string reply = op.push_reply(std::string{eth1} + "/description", "merge", "b");
    EXPECT_THAT(reply, HasSubstr(R"("error-app-tag":"4294967293")"));
    EXPECT_THAT(reply, HasSubstr("Service process failed"));
}

TEST_F(Publication, WhoHadAgreedIsRolledBackInReverseOrderWithTheInverseChange) {
    App first{
        server.url(), journal, {{.target = interface_list, .priority = 1, .mask = everything}}, {.name = "first"}};
    App second{
        server.url(), journal, {{.target = interface_list, .priority = 2, .mask = everything}}, {.name = "second"}};
    App third{server.url(),
              journal,
              {{.target = interface_list,
                .priority = 3,
                .mask = everything,
                .behaviour = [](zamc_client *client, const Call &, zamc_bytes **) { return refuse(client, 9, "no"); }}},
              {.name = "third"}};
    App never{
        server.url(), journal, {{.target = interface_list, .priority = 4, .mask = everything}}, {.name = "never"}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(eth2, ZAMC_PUSH_CREATE, interface("eth2")), -1);
    const auto rolled_back = [](const Call &call) {
        return call.app == "first" && (call.mask & ZAMC_SCENE_ROLLBACK) != 0;
    };
    ASSERT_TRUE(journal.wait_for(rolled_back));
    EXPECT_THAT(shown(journal.calls()),
                ElementsAre(std::string{"first: create "} + eth2, std::string{"second: create "} + eth2,
                            std::string{"third: create "} + eth2, std::string{"second: delete rollback "} + eth2,
                            std::string{"first: delete rollback "} + eth2));
    EXPECT_EQ(op.pull(eth2), "");
}

TEST_F(Publication, WhoAgreedIsRolledBackWhateverScenesItsMaskNames) {
    App first{server.url(), journal, {{.target = interface_list, .priority = 1}}, {.name = "first"}};
    App second{
        server.url(),
        journal,
        {{.target = interface_list,
          .priority = 2,
          .behaviour = [](zamc_client *client, const Call &, zamc_bytes **) { return refuse(client, 9, "no"); }}},
        {.name = "second"}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "b"), -1);
    EXPECT_EQ(op.push("/ietf-system:system/contact", ZAMC_PUSH_MERGE, "me"), 0); // whatever came before is through
    EXPECT_THAT(shown(journal.calls()),
                ElementsAre(std::string{"first: update "} + eth1, std::string{"second: update "} + eth1,
                            std::string{"first: update rollback "} + eth1));
}

TEST_F(Publication, AMaskWithoutTheNormalSceneIsNotToldOfAPush) {
    App app{server.url(), journal, {{.target = interface_list, .mask = every_change | ZAMC_SCENE_CFGR}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "b"), 0);
    EXPECT_THAT(shown(journal.calls()), IsEmpty());
}

TEST_F(Publication, AnApplicationThatDoesNotAnswerInTimeCountsAsARefusal) {
    Server impatient{{.startup = two_interfaces, .arguments = {"--publish-timeout", "1"}}};
    App app{impatient.url(),
            journal,
            {{.target = interface_list,
              .behaviour = [](zamc_client *, const Call &, zamc_bytes **) { return int32_t{ZAMC_REPLY_LATER}; }}}};
    Operator op{impatient.url()};
    EXPECT_THAT(op.push_reply(std::string{eth1} + "/description", "merge", "b"), HasSubstr("rpc-error"));
    EXPECT_EQ(op.pull(std::string{eth1} + "/description"), "");
}

TEST_F(Publication, AnApplicationThatDiesWhileItIsAskedCountsAsARefusal) {
    App app{server.url(),
            journal,
            {{.target = interface_list, .behaviour = [](zamc_client *client, const Call &, zamc_bytes **) {
                  zamc_disconnect(client);
                  return 0;
              }}}};
    Operator op{server.url()};
    EXPECT_THAT(op.push_reply(std::string{eth1} + "/description", "merge", "b"), HasSubstr("rpc-error"));
    EXPECT_EQ(op.pull(std::string{eth1} + "/description"), "");
}

TEST_F(Publication, TheHandlerLearnsWhoPushed) {
    uint32_t from = 0;
    App app{server.url(),
            journal,
            {{.target = interface_list, .behaviour = [&from](zamc_client *client, const Call &, zamc_bytes **) {
                  uint32_t length = sizeof from;
                  return zamc_get_attr(client, ZAMC_ATTR_PEER_SESSION_ID, &from, &length);
              }}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "b"), 0);
    uint32_t session = 0;
    uint32_t length = sizeof session;
    EXPECT_EQ(zamc_get_attr(op.client(), ZAMC_ATTR_SESSION_ID, &session, &length), 0);
    EXPECT_NE(session, 0u);
    EXPECT_EQ(from, session);
}

TEST_F(Publication, DeferredAnswersAreGivenByNumberOrOldestFirst) {
    App app{
        server.url(), journal, {{.target = interface_list, .behaviour = [](zamc_client *, const Call &, zamc_bytes **) {
                                     return int32_t{ZAMC_REPLY_LATER};
                                 }}}};
    auto pushed = std::async(std::launch::async, [this] {
        Operator op{server.url()};
        return op.push("/ietf-interfaces:interfaces", ZAMC_PUSH_MERGE,
                       R"({"interface":[{"name":"eth0","description":"a"},{"name":"eth1","description":"b"}]})");
    });
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.target == eth1; }));
    const auto calls = journal.calls();
    const uint32_t second = calls.back().seq;
    EXPECT_NE(second, 0u);
    EXPECT_EQ(app.on_thread([=](zamc_client *client) { return zamc_reply_asyn(client, second, nullptr); }), 0);
    EXPECT_EQ(pushed.wait_for(100ms), std::future_status::timeout) << "one answer is still owed";
    EXPECT_EQ(app.on_thread([](zamc_client *client) { return zamc_reply_asyn(client, 0, nullptr); }), 0);
    EXPECT_EQ(pushed.get(), 0);
    EXPECT_EQ(app.on_thread([](zamc_client *client) { return zamc_reply_asyn(client, 0, nullptr); }), -1);
}

TEST_F(Publication, ADeferredRefusalCarriesItsCode) {
    App app{
        server.url(), journal, {{.target = interface_list, .behaviour = [](zamc_client *, const Call &, zamc_bytes **) {
                                     return int32_t{ZAMC_REPLY_LATER};
                                 }}}};
    auto reply = std::async(std::launch::async, [this] {
        Operator op{server.url()};
        return op.push_reply(std::string{eth1} + "/description", "merge", "b");
    });
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::config; }));
    app.on_thread([](zamc_client *client) {
        zamc_error_set(client, 12, "late %s", "no");
        return zamc_reply_asyn(client, 0, nullptr);
    });
    EXPECT_THAT(reply.get(), testing::AllOf(HasSubstr(R"("error-app-tag":"12")"), HasSubstr("late no")));
}

TEST_F(Publication, PushesQueueAndReadsGoOnMeanwhile) {
    App app{
        server.url(), journal, {{.target = interface_list, .behaviour = [](zamc_client *, const Call &, zamc_bytes **) {
                                     return int32_t{ZAMC_REPLY_LATER};
                                 }}}};
    const auto push = [this](const char *text) {
        return std::async(std::launch::async, [this, text] {
            Operator op{server.url()};
            return op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, text);
        });
    };
    auto one = push("one");
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::config; }));
    auto two = push("two");
    Operator reader{server.url()};
    EXPECT_EQ(reader.pull(std::string{eth1} + "/description"), "") << "not committed yet";
    const auto answer = [](zamc_client *client) { return zamc_reply_asyn(client, 0, nullptr); };
    EXPECT_EQ(app.on_thread(answer), 0);
    EXPECT_EQ(one.get(), 0);
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::config; }, 2));
    EXPECT_EQ(reader.pull(std::string{eth1} + "/description"), "one");
    EXPECT_EQ(app.on_thread(answer), 0);
    EXPECT_EQ(two.get(), 0);
    EXPECT_EQ(reader.pull(std::string{eth1} + "/description"), "two");
}

TEST_F(Publication, APushInsideAHandlerIsRefusedAndDoesNotHang) {
    int32_t inner = 1;
    App app{server.url(),
            journal,
            {{.target = interface_list, .behaviour = [&inner](zamc_client *client, const Call &, zamc_bytes **) {
                  zamc_bytes *text = json_bytes("x");
                  inner = zamc_push(client, "/ietf-system:system/contact", ZAMC_PUSH_MERGE, text);
                  zamc_free_bytes(text);
                  return 0;
              }}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "b"), 0);
    EXPECT_EQ(inner, -1);
}

TEST_F(Publication, ASynchronousCallInsideAHandlerGetsItsAnswer) {
    std::string seen;
    App app{server.url(),
            journal,
            {{.target = interface_list, .behaviour = [&seen](zamc_client *client, const Call &, zamc_bytes **) {
                  zamc_bytes *bytes = nullptr;
                  const int32_t result = zamc_pull(
                      client, 0, "/ietf-interfaces:interfaces/interface[name='eth1']/description", -1, &bytes);
                  if (bytes) seen = bytes->data;
                  zamc_free_bytes(bytes);
                  return result;
              }}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "b"), 0);
    EXPECT_EQ(seen, "b") << "who is asked sees the candidate";
}

TEST_F(Publication, TheLastVersionIsTheOneBeforeTheChange) {
    EXPECT_EQ(Operator{server.url()}.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "old"), 0);
    std::string last;
    App app{server.url(),
            journal,
            {{.target = interface_list, .behaviour = [&last](zamc_client *client, const Call &, zamc_bytes **) {
                  zamc_bytes *bytes = nullptr;
                  const int32_t result = zamc_pull(
                      client, 1, "/ietf-interfaces:interfaces/interface[name='eth1']/description", -1, &bytes);
                  if (bytes) last = bytes->data;
                  zamc_free_bytes(bytes);
                  return result;
              }}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "new"), 0);
    EXPECT_EQ(last, "old");
    EXPECT_EQ(op.pull(std::string{eth1} + "/description", -1, 1), "new") << "outside a publication both are the same";
}

} // namespace
