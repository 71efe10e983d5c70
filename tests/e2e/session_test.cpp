// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Sessions, activation and operations between the library and the server.
#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char interface_list[] = "/ietf-interfaces:interfaces/interface";
constexpr char eth0[] = "/ietf-interfaces:interfaces/interface[name=\"eth0\"]";
constexpr char eth1[] = "/ietf-interfaces:interfaces/interface[name=\"eth1\"]";
constexpr char set_time[] = "/ietf-system:set-current-datetime";
constexpr char set_time_json[] =
    R"({"ietf-system:set-current-datetime":{"current-datetime":"2026-11-20T12:00:00+00:00"}})";

uint32_t session_of(zamc_client *client) {
    uint32_t id = 0;
    uint32_t length = sizeof id;
    EXPECT_EQ(zamc_get_attr(client, ZAMC_ATTR_SESSION_ID, &id, &length), 0);
    return id;
}

class Session : public testing::Test {
protected:
    Server server{{.startup = two_interfaces}};
    Journal journal;
};

TEST_F(Session, EveryClientGetsAFreshNumber) {
    Operator one{server.url()};
    Operator two{server.url()};
    EXPECT_NE(session_of(one.client()), 0u);
    EXPECT_NE(session_of(two.client()), 0u);
    EXPECT_NE(session_of(one.client()), session_of(two.client()));
}

TEST_F(Session, ANewEncodingIsAnnouncedAndKeepsTheNumber) {
    Operator op{server.url()};
    const uint32_t before = session_of(op.client());
    const uint32_t xml = ZAM_ENCODE_XML;
    EXPECT_EQ(zamc_set_attr(op.client(), ZAMC_ATTR_ENCODE, &xml, sizeof xml), 0);
    EXPECT_EQ(session_of(op.client()), before);
    EXPECT_THAT(op.pull(eth1), HasSubstr("<name>eth1</name>"));
}

TEST_F(Session, AHeartbeatIsAnswered) {
    Operator op{server.url()};
    EXPECT_EQ(zamc_send_heartbeat(op.client()), 0);
}

TEST_F(Session, AClientThatAgreedToEverythingIsConsistent) {
    App app{server.url(), journal, {{.target = interface_list}}, {.replay = true}};
    const bool consistent = app.on_thread([](zamc_client *client) {
        bool result = false;
        EXPECT_EQ(zamc_consistency_check(client, &result), 0);
        return result;
    });
    EXPECT_TRUE(consistent);
}

TEST_F(Session, AReplayTellsEveryEntryThatExists) {
    App app{server.url(), journal, {{.target = interface_list, .mask = 0xF | ZAMC_SCENE_CFGR}}, {.replay = true}};
    const auto calls = journal.calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].target, eth0);
    EXPECT_TRUE(calls[0].list_more);
    EXPECT_EQ(calls[0].mask, uint32_t{ZAMC_CONFIG_CREATE | ZAMC_SCENE_CFGR});
    EXPECT_EQ(calls[1].target, eth1);
    EXPECT_FALSE(calls[1].list_more);
    EXPECT_EQ(calls[2].kind, Call::active);
}

TEST_F(Session, ADirectActivationTellsNothing) {
    App app{server.url(), journal, {{.target = interface_list}}};
    ASSERT_EQ(journal.calls().size(), 1u);
    EXPECT_EQ(journal.calls()[0].kind, Call::active);
}

TEST_F(Session, AnUnsubscribedTargetIsSilentAndItsSlotIsUsedAgain) {
    App app{server.url(), journal, {{.target = interface_list}}};
    EXPECT_EQ(app.change_subscriptions({}, {{.target = interface_list}}), 0);
    Operator op{server.url()};
    EXPECT_EQ(op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "a"), 0);
    EXPECT_EQ(app.change_subscriptions({{.target = eth1}}, {}), 0);
    EXPECT_EQ(op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "b"), 0);
    std::vector<std::string> told;
    for (const auto &call : journal.calls()) {
        if (call.kind == Call::config) told.push_back(call.target);
    }
    EXPECT_THAT(told, ElementsAre(eth1));
}

TEST_F(Session, AnXmlApplicationIsToldLikeAnyOther) {
    App app{server.url(), journal, {{.target = interface_list}}, {.encode = ZAM_ENCODE_XML}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "a"), 0);
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::config && call.target == eth1; }));
}

TEST_F(Session, AnOperationReachesItsHandlerAndItsAnswerComesBack) {
    App app{server.url(), journal, {{.target = set_time, .type = ZAMC_SUB_OPERATION}}};
    Operator op{server.url()};
    EXPECT_THAT(op.exchange(set_time_json), testing::Not(HasSubstr("rpc-error")));
    const auto found = journal.wait_for([](const Call &call) { return call.kind == Call::operation; });
    ASSERT_TRUE(found);
    EXPECT_EQ(journal.calls()[*found].input, R"({"ietf-system:current-datetime":"2026-11-20T12:00:00+00:00"})");
    EXPECT_EQ(journal.calls()[*found].input_format, uint32_t{ZAM_ENCODE_JSON});
}

TEST_F(Session, AnOperationWithoutInputReachesItsHandlerAsAnEmptyObject) {
    App app{server.url(), journal, {{.target = "/ietf-system:system-restart", .type = ZAMC_SUB_OPERATION}}};
    Operator op{server.url()};
    EXPECT_THAT(op.exchange(R"({"ietf-system:system-restart":{}})"), testing::Not(HasSubstr("rpc-error")));
    const auto found = journal.wait_for([](const Call &call) { return call.kind == Call::operation; });
    ASSERT_TRUE(found);
    EXPECT_EQ(journal.calls()[*found].input, "{}");
}

TEST_F(Session, ARefusedOperationCarriesTheHandlersCodeAndText) {
    App app{server.url(),
            journal,
            {{.target = set_time,
              .type = ZAMC_SUB_OPERATION,
              .behaviour = [](zamc_client *client, const Call &, zamc_bytes **) {
                  zamc_error_set(client, 77, "no clock");
                  return -1;
              }}}};
    Operator op{server.url()};
    EXPECT_THAT(op.exchange(set_time_json),
                testing::AllOf(HasSubstr(R"("error-app-tag":"77")"), HasSubstr("no clock")));
}

TEST_F(Session, AnOperationThatNobodyImplementsIsNotSupported) {
    Operator op{server.url()};
    EXPECT_THAT(op.exchange(set_time_json), HasSubstr("operation-not-supported"));
}

TEST_F(Session, ADeferredOperationIsAnsweredByItsNumber) {
    App app{server.url(),
            journal,
            {{.target = set_time,
              .type = ZAMC_SUB_OPERATION,
              .behaviour = [](zamc_client *, const Call &, zamc_bytes **) { return int32_t{ZAMC_REPLY_LATER}; }}}};
    auto reply = std::async(std::launch::async, [this] { return Operator{server.url()}.exchange(set_time_json); });
    const auto found = journal.wait_for([](const Call &call) { return call.kind == Call::operation; });
    ASSERT_TRUE(found);
    const uint32_t seq = journal.calls()[*found].seq;
    EXPECT_EQ(app.on_thread([=](zamc_client *client) { return zamc_reply_asyn(client, seq, nullptr); }), 0);
    EXPECT_THAT(reply.get(), testing::Not(HasSubstr("rpc-error")));
}

TEST_F(Session, AWaitingCallEndsAtOnceWhenTheServerDies) {
    App app{server.url(),
            journal,
            {{.target = set_time,
              .type = ZAMC_SUB_OPERATION,
              .behaviour = [](zamc_client *, const Call &, zamc_bytes **) { return int32_t{ZAMC_REPLY_LATER}; }}}};
    auto waiting = std::async(std::launch::async, [this] {
        Operator op{server.url()};
        zamc_bytes *request = json_bytes(set_time_json);
        zamc_bytes *reply = nullptr;
        const int32_t result = zamc_send_rpc_sync(op.client(), request, &reply, 60000);
        zamc_free_bytes(request);
        zamc_free_bytes(reply);
        return result;
    });
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::operation; }));
    server.kill();
    ASSERT_EQ(waiting.wait_for(10s), std::future_status::ready) << "it waits for its time-out";
    EXPECT_EQ(waiting.get(), -1);
}

TEST_F(Session, AnApplicationComesBackWithItsServerAndIsReplayed) {
    App app{server.url(), journal, {{.target = interface_list}}, {.reconnect = true, .replay = true}};
    const size_t before = journal.calls().size();
    server.kill();
    server.start();
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::active; }, before));
    EXPECT_TRUE(journal.wait_for([](const Call &call) { return call.target == eth1; }, before));
    Operator op{server.url()};
    EXPECT_EQ(op.push(std::string{eth1} + "/description", ZAMC_PUSH_MERGE, "again"), 0);
}

} // namespace
