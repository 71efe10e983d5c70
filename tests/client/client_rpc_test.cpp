// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "client_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A server that answers nothing by itself; the test sends the replies.
class AsynRpc : public ConnectedTest {
protected:
    void SetUp() override {
        ConnectedTest::SetUp();
        peer.answer_with([](const Frame &) { return std::vector<Frame>{}; });
    }
    // Two requests, numbered from 5 on, whose callbacks note their name ahead of what they were called with.
    void ask_twice() {
        client->send_seq = 5;
        ask("five", &five);
        ask("six", &six);
    }
    void ask(const std::string &name, Handler *handler) {
        auto act = handler->act;
        handler->act = [this, name, handler, act](zamc_client *owner) {
            order.push_back(name + ": " + handler->calls.back());
            return act(owner);
        };
        ASSERT_EQ(zamc_send_rpc_asyn(client, Payload{name}, Handler::replied, handler), 0);
    }
    void run_until_order(size_t count) {
        run_until([&] { return order.size() >= count; });
    }

    Handler five, six, later;
    std::vector<std::string> order;
};

TEST_F(AsynRpc, ARequestCarriesItsPayloadAndTheNextNumber) {
    EXPECT_EQ(zamc_send_rpc_asyn(client, Payload{"first"}, nullptr, nullptr), 0);
    EXPECT_EQ(zamc_send_rpc_asyn(client, Payload{"<second/>", 1}, nullptr, nullptr), 0);
    EXPECT_EQ(zamc_send_rpc_asyn(client, Payload{"", 3}, nullptr, nullptr), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(request(1, "first"), request(2, "<second/>", 1), request(3, "", 3)));
    EXPECT_EQ(client->send_queue.count, 3u);
}

TEST_F(AsynRpc, TheNumbersWrapAround) {
    client->send_seq = 4294967295u;
    EXPECT_EQ(zamc_send_rpc_asyn(client, Payload{"last"}, nullptr, nullptr), 0);
    EXPECT_EQ(zamc_send_rpc_asyn(client, Payload{"first"}, Handler::replied, &later), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(request(4294967295u, "last"), request(0, "first")));
    peer.send_raw(encode_all({reply(4294967295u), reply(0, "x")}));
    run_until_calls(later, 1);
    EXPECT_THAT(later.calls, ElementsAre("reply 2 x"));
}

TEST_F(AsynRpc, TheCallbackGetsTheReply) {
    ask("asked", &five);
    peer.send(reply(1, "answer", 1));
    run_until_order(1);
    EXPECT_THAT(order, ElementsAre("asked: reply 1 answer"));
    EXPECT_TRUE(log.has(7, "[RPC] receive rpc-reply :answer"));
    EXPECT_EQ(client->send_queue.count, 0u);
}

TEST_F(AsynRpc, TheReplyEndsInANul) {
    const zamc_reply_fn check = [](zamc_client *, const zam_message *message, void *arg) {
        EXPECT_EQ(message->data[message->length], '\0');
        *static_cast<bool *>(arg) = true;
        return 0;
    };
    bool called = false;
    ASSERT_EQ(zamc_send_rpc_asyn(client, Payload{"asked"}, check, &called), 0);
    peer.send_raw(encode_all({reply(1, "abc"), {Kind::rewake, 0x01010101, 2, "behind"}}));
    run_until([&] { return called; });
}

TEST_F(AsynRpc, AnEmptyReplyReachesTheCallbackAsNull) {
    ask("asked", &five);
    peer.send(reply(1));
    run_until_order(1);
    EXPECT_THAT(order, ElementsAre("asked: no reply"));
}

TEST_F(AsynRpc, ALaterReplyMakesTheEarlierRequestLost) {
    ask_twice();
    peer.send(reply(6, "answer"));
    run_until_order(2);
    EXPECT_THAT(order, ElementsAre("five: no reply", "six: reply 2 answer"));
    EXPECT_EQ(client->send_queue.count, 0u);
}

TEST_F(AsynRpc, TheReplyToALostRequestIsDropped) {
    ask_twice();
    peer.send_raw(encode_all({reply(6, "answer"), reply(5, "late")}));
    run_until_order(2);
    EXPECT_EQ(zamc_run(client, 0), 0);
    EXPECT_EQ(order.size(), 2u);
}

TEST_F(AsynRpc, AReplyThatMatchesNoRequestIsDroppedSilently) {
    zamc_set_message_recv_cb(client, Handler::message, &later);
    ask_twice();
    log.clear();
    peer.send_raw(encode_all({reply(4, "stranger"), {Kind::other2, 0, 2, "end"}}));
    run_until_calls(later, 1);
    EXPECT_THAT(order, IsEmpty());
    EXPECT_EQ(client->send_queue.count, 2u);
    for (const auto &line : log.lines())
        EXPECT_EQ(line.level, 7) << line.text;
}

TEST_F(AsynRpc, RepliesInOrderReachTheirCallbacks) {
    ask_twice();
    peer.send_raw(encode_all({reply(5, "x"), reply(6, "y")}));
    run_until_order(2);
    EXPECT_THAT(order, ElementsAre("five: reply 2 x", "six: reply 2 y"));
}

TEST_F(AsynRpc, ARequestWithoutCallbackMayBeLostOrAnswered) {
    ASSERT_EQ(zamc_send_rpc_asyn(client, Payload{"a"}, nullptr, nullptr), 0);
    ASSERT_EQ(zamc_send_rpc_asyn(client, Payload{"b"}, nullptr, nullptr), 0);
    ask("asked", &five);
    peer.send_raw(encode_all({reply(2, "to b"), reply(3, "to c")}));
    run_until_order(1);
    EXPECT_THAT(order, ElementsAre("asked: reply 2 to c"));
}

TEST_F(AsynRpc, ACallbackMayAskAgain) {
    five.act = [this](zamc_client *) {
        ask("again", &later);
        return 0;
    };
    ask("asked", &five);
    peer.send_raw(encode_all({reply(1, "x"), reply(2, "y")}));
    run_until_order(2);
    EXPECT_THAT(order, ElementsAre("asked: reply 2 x", "again: reply 2 y"));
}

TEST_F(AsynRpc, ACallbackMayMakeASynchronousCallWithItsOwnReplyStillIntact) {
    zamc_set_message_recv_cb(client, Handler::message, &later);
    const zamc_reply_fn callback = [](zamc_client *owner, const zam_message *message, void *arg) {
        zamc_bytes *answer = nullptr;
        EXPECT_EQ(zamc_send_rpc_sync(owner, Payload{"inner"}, &answer, 10000), 0);
        EXPECT_EQ(take_bytes(answer), "inner answer");
        *static_cast<std::string *>(arg) = {message->data, message->length};
        return 0;
    };
    std::string seen;
    ASSERT_EQ(zamc_send_rpc_asyn(client, Payload{"outer"}, callback, &seen), 0);
    peer.send_raw(encode_all({reply(1, "outer answer"), {Kind::other2, 0, 2, "a"}, reply(2, "inner answer")}));
    run_until_calls(later, 1);
    EXPECT_EQ(seen, "outer answer");
    EXPECT_THAT(later.calls, ElementsAre("message 2 2 a"));
}

TEST_F(AsynRpc, ACallbackMayRunTheClient) {
    five.act = [this](zamc_client *owner) {
        peer.send(reply(6, "y"));
        EXPECT_EQ(zamc_run(owner, 0), 0);
        EXPECT_EQ(order.size(), 2u); // the reply to the other request came meanwhile
        return 0;
    };
    ask_twice();
    peer.send(reply(5, "x"));
    run_until_order(2);
    EXPECT_THAT(order, ElementsAre("five: reply 2 x", "six: reply 2 y"));
}

TEST_F(AsynRpc, ACallbackMayDisconnect) {
    five.act = [](zamc_client *owner) {
        zamc_disconnect(owner);
        return 0;
    };
    ask_twice();
    peer.send_raw(encode_all({reply(5, "x"), reply(6, "y")}));
    run_until_order(2);
    EXPECT_THAT(order, ElementsAre("five: reply 2 x", "six: no reply")); // its connection has gone
    EXPECT_EQ(zamc_run(client, 0), -1);
}

TEST_F(AsynRpc, ACallbackMayConnectAnew) {
    five.act = [this](zamc_client *owner) {
        peer.answer_with(Peer::obliging);
        EXPECT_GE(zamc_connect(owner, peer.url().c_str()), 0);
        return 0;
    };
    ask_twice();
    peer.send_raw(encode_all({reply(5, "x"), reply(6, "y")}));
    run_until_order(2);
    EXPECT_THAT(order, ElementsAre("five: reply 2 x", "six: no reply"));
    EXPECT_EQ(zamc_run(client, 0), 0);
    EXPECT_EQ(peer.connections(), 2);
}

TEST_F(AsynRpc, ACallbackMayFreeTheClient) {
    five.act = [](zamc_client *owner) {
        zamc_client_free(owner);
        return 0;
    };
    ask_twice();
    peer.send(reply(6, "answer"));
    int32_t result = 0;
    while (order.empty())
        result = zamc_run(client, 1000);
    client = nullptr;
    EXPECT_EQ(result, -1);
    EXPECT_THAT(order, ElementsAre("five: no reply")); // nobody else hears of a client that is gone
}

TEST_F(AsynRpc, TheEndOfTheConnectionMakesEveryRequestLostExactlyOnce) {
    ask_twice();
    peer.drop_connection();
    EXPECT_EQ(zamc_run(client, 10000), -1);
    EXPECT_THAT(order, ElementsAre("five: no reply", "six: no reply"));
    EXPECT_EQ(zamc_run(client, 0), -1);
    EXPECT_EQ(order.size(), 2u);
}

TEST_F(AsynRpc, ANewConnectionDoesNotAnswerTheRequestsOfTheOld) {
    ask_twice();
    peer.answer_with(Peer::obliging);
    connect();
    EXPECT_THAT(order, IsEmpty()); // no callback runs outside of zamc_run
    peer.send(reply(6, "of another connection"));
    run_until_order(2);
    EXPECT_EQ(zamc_run(client, 0), 0);
    EXPECT_THAT(order, ElementsAre("five: no reply", "six: no reply"));
}

TEST_F(AsynRpc, ACallbackOfALostRequestMayConnectAndAskAgain) {
    five.act = [this](zamc_client *) {
        peer.answer_with([](const Frame &frame) {
            return frame.payload == "again" ? std::vector{reply(frame.seq, "found")} : Peer::obliging(frame);
        });
        connect();
        ask("again", &later);
        return 0;
    };
    ask("asked", &five);
    peer.drop_connection();
    run_until_order(2);
    EXPECT_THAT(order, ElementsAre("asked: no reply", "again: reply 2 found"));
}

TEST_F(AsynRpc, NullAndInvalidArgumentsAreRefused) {
    char text[] = "x";
    const zamc_bytes negative{2, -1, text};
    const zamc_bytes without_data{2, 1, nullptr};
    EXPECT_EQ(zamc_send_rpc_asyn(nullptr, Payload{"x"}, nullptr, nullptr), -3);
    EXPECT_EQ(zamc_send_rpc_asyn(client, nullptr, nullptr, nullptr), -3);
    EXPECT_EQ(zamc_send_rpc_asyn(client, &negative, nullptr, nullptr), -3);
    EXPECT_EQ(zamc_send_rpc_asyn(client, &without_data, nullptr, nullptr), -3);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(AsynRpc, WithoutMemoryForItsRecordARequestIsNotSent) {
    const Payload payload{"x"};
    heap.fail_at(1);
    EXPECT_EQ(zamc_send_rpc_asyn(client, payload, Handler::replied, &five), -1);
    EXPECT_EQ(log.count(0, "Allocate memory for rpc meta not successful."), 1);
    EXPECT_THAT(sent_so_far(), IsEmpty());
    EXPECT_EQ(client->send_queue.count, 0u);
}

TEST_F(AsynRpc, ARequestThatCannotBeQueuedLeavesNoRecord) {
    zamc_disconnect(client);
    EXPECT_EQ(zamc_send_rpc_asyn(client, Payload{"x"}, Handler::replied, &five), -1);
    EXPECT_EQ(client->send_queue.count, 0u);
    EXPECT_EQ(zamc_run(client, 0), -1);
    EXPECT_THAT(five.calls, IsEmpty());
}

TEST_F(AsynRpc, AReplyWithoutMemoryForItReachesTheCallbackAsNull) {
    ask("asked", &five);
    const std::string bytes = encode(reply(1, "answer"));
    ASSERT_EQ(zam_connector_reentry(client->connector, bytes.data(), static_cast<uint32_t>(bytes.size())), 0);
    zam_message message;
    ASSERT_TRUE(client::next_frame(client, &message));
    heap.fail_at(1);
    EXPECT_TRUE(client::_handle_reply(client, &message));
    EXPECT_THAT(order, ElementsAre("asked: no reply"));
}

// Single frames

class SendMessage : public ConnectedTest {};

TEST_F(SendMessage, ARequestGetsAFreshNumberAndItsReplyIsDropped) {
    EXPECT_EQ(zamc_send_message(client, ZAM_MESSAGE_REQUEST, Payload{"one"}), 0);
    EXPECT_EQ(zamc_send_message(client, ZAM_MESSAGE_REQUEST, Payload{"<two/>", 1}), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(request(1, "one"), request(2, "<two/>", 1)));
    EXPECT_EQ(client->send_queue.count, 0u);
    EXPECT_EQ(zamc_run(client, idle_ms), 0);
}

TEST_F(SendMessage, TheOtherTypesCarryTheNumberZero) {
    EXPECT_EQ(zamc_send_message(client, ZAM_MESSAGE_OTHER_3, Payload{"three"}), 0);
    EXPECT_EQ(zamc_send_message(client, ZAM_MESSAGE_REWAKE, Payload{"five", 1}), 0);
    const auto is = [](Frame wanted) { return [wanted](const Frame &frame) { return frame == wanted; }; };
    EXPECT_TRUE(peer.wait_for(is({Kind::other3, 0, 2, "three"})));
    EXPECT_TRUE(peer.wait_for(is({Kind::rewake, 0, 1, "five"})));
}

TEST_F(SendMessage, AReplyCannotBeSentWhateverThePayload) {
    EXPECT_EQ(zamc_send_message(client, ZAM_MESSAGE_REPLY, Payload{"x"}), -1);
    EXPECT_EQ(zamc_send_message(client, ZAM_MESSAGE_REPLY, nullptr), -1);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(SendMessage, AnUnknownTypeNeedsAPayloadToBeRefusedWithMinusOne) {
    for (const uint32_t type : {2u, 4u, 6u, 4294967295u}) {
        EXPECT_EQ(zamc_send_message(client, type, Payload{"x"}), -1) << type;
        EXPECT_EQ(zamc_send_message(client, type, nullptr), -3) << type;
    }
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(SendMessage, NullAndInvalidArgumentsAreRefused) {
    char text[] = "x";
    const zamc_bytes negative{2, -1, text};
    const zamc_bytes without_data{2, 1, nullptr};
    for (const uint32_t type : {0u, 3u, 5u}) {
        EXPECT_EQ(zamc_send_message(nullptr, type, Payload{"x"}), -3);
        EXPECT_EQ(zamc_send_message(client, type, nullptr), -3);
        EXPECT_EQ(zamc_send_message(client, type, &negative), -3);
        EXPECT_EQ(zamc_send_message(client, type, &without_data), -3);
    }
}

TEST_F(ClientTest, AMessageCannotBeSentWithoutAConnection) {
    for (const uint32_t type : {0u, 3u, 5u})
        EXPECT_EQ(zamc_send_message(client, type, Payload{"x"}), -1);
}

} // namespace
} // namespace zam::test
