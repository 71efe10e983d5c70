// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <fcntl.h>

#include "client/client_ctx_internal.h"
#include "client_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;

const std::string register_json =
    R"({"orvel-zam-server:register":{"name":"tester","attribute":{"api-version":"v2","deadline":0,"encode":"json"}}})";

class Client : public ClientTest {
protected:
    // The whole answer to `register` of the next connections.
    void answer_register(const std::string &payload) {
        peer.answer_with([payload](const Frame &frame) { return std::vector{Peer::reply_to(frame, payload)}; });
    }
    int32_t try_connect() { return zamc_connect(client, peer.url().c_str()); }
    void replace_client(const char *name, uint32_t encode) {
        zamc_client_free(client);
        client = zamc_client_new(name, encode);
        ASSERT_NE(client, nullptr);
    }
};

TEST_F(Client, ANullNameAndEncodingZeroNameItNullAndReadAsJson) {
    replace_client(nullptr, 0);
    ASSERT_GE(try_connect(), 0);
    EXPECT_EQ(
        peer.wait_for_request("register"),
        request(
            0,
            R"({"orvel-zam-server:register":{"name":"null","attribute":{"api-version":"v2","deadline":0,"encode":"json"}}})"));
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_ENCODE), 0u);
    EXPECT_EQ(client::_get_encode(client), 2u);
}

TEST_F(Client, TheNameIsCopied) {
    std::string name = "short-lived";
    replace_client(name.c_str(), 2);
    name.assign(name.size(), 'x');
    EXPECT_STREQ(client->name, "short-lived");
}

TEST_F(Client, AFreshOneIsNotConnected) {
    zamc_bytes *out = nullptr;
    EXPECT_EQ(zamc_run(client, 0), -1);
    EXPECT_EQ(zamc_pull(client, 0, "/", -1, &out), -1);
    EXPECT_EQ(zamc_send_message(client, ZAM_MESSAGE_OTHER_3, Payload{"x"}), -1);
    EXPECT_EQ(zamc_send_rpc_asyn(client, Payload{"x"}, nullptr, nullptr), -1);
    EXPECT_EQ(zamc_activate(client, 0, nullptr, nullptr), -1);
    EXPECT_EQ(peer.connections(), 0);
}

TEST_F(Client, NullIsFreedAndDisconnectedWithoutHarm) {
    zamc_client_free(nullptr);
    zamc_disconnect(nullptr);
    zamc_disconnect(client);
}

TEST(ClientMemory, EachAllocationThatFailsMakesNoClientAndLeavesNothing) {
    test_context();
    const DescriptorCheck descriptors;
    LogCapture log;
    bool object = false, attributes = false;
    const uint64_t failed = fail_each_allocation([&](bool failing) {
        log.clear();
        zamc_client *client = zamc_client_new("tester", 2);
        EXPECT_TRUE(failing || client);
        if (!client) {
            object |= log.count(0, "Allocate memory for client not successful.") == 1;
            attributes |= log.count(3, "Init client attr not successful.") == 1;
        }
        zamc_client_free(client);
    });
    EXPECT_GE(failed, 14u); // the object, its engine, its name and ten attributes
    EXPECT_TRUE(object);
    EXPECT_TRUE(attributes);
}

TEST(ClientMemory, EachAllocationThatFailsLeavesTheClientUnconnectedOrConnected) {
    test_context();
    const DescriptorCheck descriptors;
    LogCapture log;
    Peer peer;
    fail_each_allocation([&](bool failing) {
        zamc_client *client = zamc_client_new("tester", 2);
        if (!client) return;
        const uint32_t patience_ms = 300;
        zamc_set_attr(client, ZAMC_ATTR_SYNC_TIMEOUT, &patience_ms, sizeof patience_ms);
        const int32_t fd = zamc_connect(client, peer.url().c_str());
        EXPECT_EQ(fd >= 0, client->connector != nullptr);
        EXPECT_TRUE(failing || fd >= 0);
        zamc_client_free(client);
    });
}

// Connecting

TEST_F(Client, ConnectingReturnsTheNonBlockingSocketAndRegisters) {
    const int32_t fd = try_connect();
    ASSERT_GE(fd, 0);
    EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_THAT(peer.received(), ElementsAre(request(0, register_json)));
    EXPECT_TRUE(log.has(7, "Client:tester send register rpc."));
    EXPECT_TRUE(log.has(7, "[Client]:tester send RPC:" + register_json + "."));
    EXPECT_TRUE(log.has(7, R"([Client]:tester wait rpc reply:{"orvel-zam-server:register":{"session-id":7}}.)"));
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_SESSION_ID), 7u);
}

TEST_F(Client, AClientForXmlRegistersInXml) {
    replace_client("tester", 1);
    ASSERT_GE(try_connect(), 0);
    EXPECT_THAT(peer.received(),
                ElementsAre(request(0,
                                    std::string{"<register xmlns=\""} + server_xmlns +
                                        "\"><name>tester</name><attribute><api-version>v2</api-version><deadline>0"
                                        "</deadline><encode>xml</encode></attribute></register>",
                                    1)));
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_SESSION_ID), 7u);
}

TEST_F(Client, TheRegistrationCarriesTheAttributesThatWereSetBefore) {
    set_attr<int32_t>(ZAMC_ATTR_DEADLINE, -30);
    set_attr<uint32_t>(ZAMC_ATTR_API_VERSION, 0);
    zamc_set_attr(client, ZAMC_ATTR_DEP_CLIENTS, "one two", 8);
    ASSERT_GE(try_connect(), 0);
    EXPECT_EQ(
        peer.received().at(0).payload,
        R"({"orvel-zam-server:register":{"name":"tester","attribute":{"api-version":"v1","deadline":-30,"encode":"json","dependent-clients":"one two"}}})");
}

TEST_F(Client, ConnectingWithANullArgumentIsRefused) {
    EXPECT_EQ(zamc_connect(nullptr, peer.url().c_str()), -3);
    EXPECT_EQ(zamc_connect(client, nullptr), -3);
    EXPECT_EQ(log.count(3, "zamc connect input null paras."), 2);
    EXPECT_EQ(peer.connections(), 0);
}

TEST_F(Client, ConnectingWhereNobodyListensFailsBeforeRegistering) {
    EXPECT_EQ(zamc_connect(client, "unix:///nobody/listens/here"), -1);
    EXPECT_EQ(zamc_connect(client, "nonsense"), -1);
    EXPECT_FALSE(log.has(3, "[client]exec_register not successful."));
    EXPECT_EQ(client->connector, nullptr);
}

TEST_F(Client, ConnectingAgainDropsTheOldConnectionFirst) {
    connect();
    connect();
    EXPECT_EQ(log.count(6, "Client reconnect to server."), 1);
    EXPECT_EQ(peer.connections(), 2);
    EXPECT_THAT(peer.received(), ElementsAre(request(0, register_json), request(1, register_json)));
}

TEST_F(Client, ARefusedRegistrationDisconnects) {
    answer_register(error_json("5", "no"));
    EXPECT_EQ(try_connect(), -1);
    EXPECT_EQ(log.count(3, "[client]exec_register not successful."), 1);
    EXPECT_EQ(client->connector, nullptr);
    EXPECT_EQ(zamc_run(client, 0), -1);
}

TEST_F(Client, ARegistrationThatCannotBeBuiltDisconnectsWithNothingSent) {
    replace_client("tester", 9); // no encoding has this number
    EXPECT_EQ(try_connect(), -1);
    EXPECT_TRUE(log.has(3, "Find enum name unsuccessful."));
    EXPECT_EQ(log.count(3, "[client]exec_register not successful."), 1);
    EXPECT_EQ(client->connector, nullptr);
    EXPECT_TRUE(peer.received().empty());
}

TEST_F(Client, AServerThatClosesInsteadOfAnsweringEndsTheRegistrationAtOnce) {
    peer.answer_with([this](const Frame &) {
        peer.drop_connection();
        return std::vector<Frame>{};
    });
    EXPECT_EQ(try_connect(), -1); // the time-out of five minutes would be noticed
    EXPECT_EQ(log.count(3, "[client]exec_register not successful."), 1);
    EXPECT_EQ(client->connector, nullptr);
}

TEST_F(Client, ASilentServerEndsTheRegistrationAfterTheSyncTimeout) {
    peer.answer_with([](const Frame &) { return std::vector<Frame>{}; });
    set_attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT, 20);
    EXPECT_EQ(try_connect(), -1);
    EXPECT_EQ(log.count(6, "Rpc reply wait is timeout(client name=tester, seq=0)."), 1);
    EXPECT_TRUE(log.has(7, "[Client]:tester wait rpc reply error."));
    EXPECT_EQ(client->connector, nullptr);
}

TEST_F(Client, ARegisterReplyWithoutSessionIdIsAccepted) {
    for (const char *payload :
         {R"({"orvel-zam-server:register":{}})", R"({"orvel-zam-server:register":{"session-id":0}})"}) {
        log.clear();
        answer_register(payload);
        EXPECT_GE(try_connect(), 0);
        EXPECT_EQ(log.count(6, "Register reply without winId"), 1);
        EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_SESSION_ID), 0u);
    }
}

TEST_F(Client, AnEmptyRegisterReplyIsAcceptedUnread) {
    for (const char *payload : {"", "<ok/>"}) {
        log.clear();
        answer_register(payload);
        EXPECT_GE(try_connect(), 0);
        EXPECT_TRUE(log.has(7, "[Client]:tester wait rpc reply ok."));
        EXPECT_FALSE(log.has(6, "Register reply without winId"));
    }
}

TEST_F(Client, TheLargestSessionIdIsKept) {
    answer_register(R"({"orvel-zam-server:register":{"session-id":4294967295}})");
    ASSERT_GE(try_connect(), 0);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_SESSION_ID), 4294967295u);
}

TEST_F(Client, ARegisterReplyThatDoesNotParseIsAFailure) {
    for (const char *payload : {"{}", "{", "nonsense", R"({"orvel-zam-server:register":{"session-id":-1}})"}) {
        answer_register(payload);
        EXPECT_EQ(try_connect(), -1) << payload;
        EXPECT_EQ(client->connector, nullptr);
    }
}

TEST_F(Client, ASuccessfulConnectMakesEverySubscriptionPending) {
    Handler handler;
    for (const char *target : {"/test-main:top/text", "/test-main:top/number", "/test-main:top/big"}) {
        const zamc_sub_node node = config_sub(target, 1, 0, &handler);
        ASSERT_EQ(zamc_subscribe(client, &node), 0);
    }
    suber_at(client, 0)->status = 0x008;
    suber_at(client, 1)->status = 0x204;
    connect();
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}, {1, 0x101}, {2, 0x101}}));
}

TEST_F(Client, AFailedConnectLeavesTheSubscriptionsAsTheyAre) {
    Handler handler;
    const zamc_sub_node node = config_sub("/test-main:top/text", 1, 0, &handler);
    ASSERT_EQ(zamc_subscribe(client, &node), 0);
    suber_at(client, 0)->status = 0x102;
    answer_register(error_json("5", "no"));
    EXPECT_EQ(try_connect(), -1);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x102}}));
}

TEST_F(Client, ASuccessfulConnectEndsAnActivationThatTheOldConnectionLeftUnfinished) {
    connect();
    ASSERT_EQ(zamc_activate(client, 0, nullptr, nullptr), 0);
    ASSERT_EQ(zamc_activate(client, 0, nullptr, nullptr), -1);
    connect();
    EXPECT_EQ(zamc_activate(client, 0, nullptr, nullptr), 0);
    connect();
    EXPECT_EQ(zamc_deactivate(client), 0);
}

TEST_F(Client, AFailedConnectDoesNotEndAnActivation) {
    connect();
    ASSERT_EQ(zamc_activate(client, 0, nullptr, nullptr), 0);
    answer_register(error_json("5", "no"));
    EXPECT_EQ(try_connect(), -1);
    EXPECT_EQ(client->activation_busy, 1);
}

// The end of a connection

TEST_F(Client, AClosedConnectionMakesEverySubscriptionPendingAndLeavesTheActivationUnfinished) {
    Handler handler;
    const zamc_sub_node node = config_sub("/test-main:top/text", 1, 0, &handler);
    ASSERT_EQ(zamc_subscribe(client, &node), 0);
    connect();
    ASSERT_EQ(zamc_activate(client, 0, nullptr, nullptr), 0);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x104}}));
    peer.drop_connection();
    run_until_closed();
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}}));
    EXPECT_EQ(client->activation_busy, 1);
    EXPECT_EQ(zamc_deactivate(client), -1);
    EXPECT_EQ(log.count(3, "Client is in activate/deactivate process, please try deactivate again later."), 1);
}

TEST_F(Client, AClosedConnectionWithoutSubscriptionsIsHarmless) {
    connect();
    peer.drop_connection();
    run_until_closed();
    EXPECT_EQ(zamc_run(client, 1000), -1);
}

TEST_F(Client, DisconnectingSendsNothingAndTheClientCanConnectAgain) {
    connect();
    zamc_disconnect(client);
    EXPECT_EQ(client->connector, nullptr);
    EXPECT_EQ(zamc_run(client, 0), -1);
    EXPECT_EQ(zamc_send_message(client, ZAM_MESSAGE_OTHER_3, Payload{"x"}), -1);
    connect();
    EXPECT_FALSE(log.has(6, "Client reconnect to server."));
    EXPECT_THAT(peer.received(), ElementsAre(request(0, register_json), request(1, register_json)));
}

TEST_F(Client, AClientConnectsAgainAfterTheServerHasGone) {
    connect();
    peer.drop_connection();
    run_until_closed();
    connect();
    EXPECT_EQ(log.count(6, "Client reconnect to server."), 1);
    EXPECT_EQ(zamc_run(client, 0), 0);
}

TEST_F(Client, WhatTheOldConnectionLeftUnreadIsNotReadOnTheNext) {
    Handler handler;
    zamc_set_message_recv_cb(client, Handler::message, &handler);
    connect();
    peer.send_raw(encode({Kind::other2, 0, 2, "whole"}) + encode({Kind::other2, 0, 2, "cut"}).substr(0, 17));
    connect();
    peer.send({Kind::other2, 0, 2, "new"});
    run_until_calls(handler, 1);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 new"));
}

TEST_F(Client, FreeingWithEverythingInFlightLeavesNothing) {
    Handler handler;
    handler.act = [](zamc_client *) { return ZAMC_REPLY_LATER; };
    zamc_set_message_recv_cb(client, Handler::message, &handler);
    const zamc_sub_node node = config_sub("/test-main:top/text", 5, 0, &handler);
    ASSERT_EQ(zamc_subscribe(client, &node), 0);
    connect();
    peer.answer_with([](const Frame &) { return std::vector<Frame>{}; });
    ASSERT_EQ(zamc_send_rpc_asyn(client, Payload{"first"}, Handler::replied, &handler), 0);
    ASSERT_EQ(zamc_send_rpc_asyn(client, Payload{"second"}, nullptr, nullptr), 0);
    peer.send(request(40, Publication{}.json()));
    run_until_calls(handler, 1);
    zamc_error_set(client, 5, "never %s", "sent");
    peer.send_raw(encode({Kind::other2, 0, 2, "unread"}));
    zamc_client_free(client);
    client = nullptr;
    EXPECT_THAT(handler.calls, ElementsAre("config 129 5 0 /test-main:top/text")); // nobody hears of the lost requests
}

// The consistency check

class Consistency : public ConnectedTest {
protected:
    void answer(const std::string &payload) {
        peer.answer_with([payload](const Frame &frame) { return std::vector{Peer::reply_to(frame, payload)}; });
    }
    bool consistent = true;
};

TEST_F(Consistency, TheServersYesIsHandedOut) {
    answer(R"({"orvel-zam-server:verify-configuration":{"consistent":"consistent"}})");
    consistent = false;
    EXPECT_EQ(zamc_consistency_check(client, &consistent), 0);
    EXPECT_TRUE(consistent);
    EXPECT_THAT(sent_so_far(),
                ElementsAre(request(1, R"({"orvel-zam-server:verify-configuration":{"name":"tester"}})")));
}

TEST_F(Consistency, TheServersNoIsHandedOut) {
    answer(R"({"orvel-zam-server:verify-configuration":{"consistent":"inconsistent"}})");
    EXPECT_EQ(zamc_consistency_check(client, &consistent), 0);
    EXPECT_FALSE(consistent);
}

TEST_F(Consistency, AnAnswerInXmlIsReadAsXml) {
    peer.answer_with([](const Frame &frame) {
        return std::vector{Frame{Kind::reply, frame.seq, 1,
                                 std::string{"<verify-configuration xmlns=\""} + server_xmlns +
                                     "\"><consistent>consistent</consistent></verify-configuration>"}};
    });
    EXPECT_EQ(zamc_consistency_check(client, &consistent), 0);
    EXPECT_TRUE(consistent);
}

TEST_F(Consistency, AnAnswerWithoutTheLeafIsAFailure) {
    answer(R"({"orvel-zam-server:verify-configuration":{}})");
    EXPECT_EQ(zamc_consistency_check(client, &consistent), -1);
    EXPECT_FALSE(consistent);
}

TEST_F(Consistency, AnEmptyAnswerMeansNo) {
    answer("");
    EXPECT_EQ(zamc_consistency_check(client, &consistent), 0);
    EXPECT_FALSE(consistent);
}

TEST_F(Consistency, AnErrorAnswerIsAFailure) {
    answer(error_json("1", "no"));
    EXPECT_EQ(zamc_consistency_check(client, &consistent), -1);
    EXPECT_FALSE(consistent);
}

TEST_F(Consistency, NullArgumentsAreRefused) {
    EXPECT_EQ(zamc_consistency_check(nullptr, &consistent), -1);
    EXPECT_EQ(zamc_consistency_check(client, nullptr), -1);
}

TEST_F(Client, TheConsistencyCheckNeedsASchemaContext) {
    bool consistent = true;
    ly_ctx *context = std::exchange(client::_clients_ctx()->context, nullptr);
    EXPECT_EQ(zamc_consistency_check(client, &consistent), -1);
    client::_clients_ctx()->context = context;
    EXPECT_FALSE(consistent);
    EXPECT_FALSE(log.has(3, "Build verify-configuration rpc not successful."));
}

TEST_F(Client, TheConsistencyCheckNeedsAConnection) {
    bool consistent = true;
    EXPECT_EQ(zamc_consistency_check(client, &consistent), -1);
    EXPECT_FALSE(consistent);
}

TEST_F(Client, AConsistencyRequestThatCannotBeBuiltIsLogged) {
    for (uint64_t n = 1; !log.has(3, "Build verify-configuration rpc not successful."); ++n) {
        bool consistent = true;
        heap.fail_at(n);
        EXPECT_EQ(zamc_consistency_check(client, &consistent), -1);
        EXPECT_FALSE(consistent);
        ASSERT_TRUE(heap.failed()) << "built whatever fails";
    }
    heap.fail_at(0);
}

} // namespace
} // namespace zam::test
