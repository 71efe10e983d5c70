// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "client_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A client in bypass mode: all that arrives goes to the message callback.
class Bypass : public ConnectedTest {
protected:
    void SetUp() override {
        ConnectedTest::SetUp();
        ASSERT_EQ(set_attr<uint8_t>(ZAMC_ATTR_RPC_BYPASS, 1), 0);
    }
    void receive_messages() { ASSERT_EQ(zamc_set_message_recv_cb(client, Handler::message, &handler), 0); }
    Handler handler;
};

TEST_F(Bypass, ARequestReachesTheCallbackAndStaysPendingUntilItIsAnswered) {
    receive_messages();
    peer.send(request(30, "not even JSON"));
    run_until_calls(handler, 1);
    EXPECT_THAT(handler.calls, ElementsAre("message 0 2 not even JSON"));
    EXPECT_EQ(client->wait_replies.count, 1u);
    EXPECT_THAT(sent_so_far(), IsEmpty());
    EXPECT_EQ(zamc_reply_asyn(client, 0, Payload{"neither is this", 1}), 0);
    EXPECT_EQ(client->wait_replies.count, 0u);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30, "neither is this", 1)));
}

TEST_F(Bypass, AnAnswerWithoutOutputIsEmpty) {
    receive_messages();
    peer.send(request(30, "x"));
    run_until_calls(handler, 1);
    EXPECT_EQ(zamc_reply_asyn(client, 30, nullptr), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30)));
}

TEST_F(Bypass, ARecordedErrorIsSentInPlaceOfTheOutput) {
    receive_messages();
    peer.send(request(30, "x"));
    run_until_calls(handler, 1);
    zamc_error_set(client, 17, "no");
    EXPECT_EQ(zamc_reply_asyn(client, 30, Payload{"x"}), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30, error_json("17", "no"))));
}

TEST_F(Bypass, TheCallbackMayAnswerAtOnce) {
    receive_messages();
    handler.act = [](zamc_client *owner) {
        const uint32_t seq = zamc_request_seq(owner); // none for the echo of a rewake
        if (seq != 0) {
            EXPECT_EQ(zamc_reply_asyn(owner, seq, Payload{"done"}), 0);
        }
        return 0;
    };
    peer.send_raw(encode_all({request(30, "a"), request(31, "b")}));
    run_until([this] { return client->wait_replies.count == 0 && handler.calls.size() >= 2; });
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30, "done"), reply(31, "done")));
}

TEST_F(Bypass, EveryTypeReachesTheCallback) {
    receive_messages();
    peer.send_raw(encode_all(
        {reply(5, "one"), {Kind::other2, 0, 1, "two"}, {Kind::other3, 0, 2, "three"}, {Kind::rewake, 0, 2, "five"}}));
    run_until_calls(handler, 4);
    EXPECT_THAT(handler.calls,
                ElementsAre("message 1 2 one", "message 2 1 two", "message 3 2 three", "message 5 2 five"));
    EXPECT_EQ(client->wait_replies.count, 0u);
}

TEST_F(Bypass, AFrameWithoutTypeIsDropped) {
    receive_messages();
    peer.send_raw(encode_all({{Kind::untyped, 0, 2, "four"}, {Kind::other2, 0, 2, "two"}}));
    run_until_calls(handler, 1);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 two"));
}

TEST_F(Bypass, TheReplyToARequestOfOursGoesToTheMessageCallback) {
    receive_messages();
    Handler replied;
    ASSERT_EQ(zamc_send_rpc_asyn(client, Payload{"x"}, Handler::replied, &replied), 0);
    run_until_calls(handler, 1);
    EXPECT_THAT(handler.calls, ElementsAre("message 1 2 "));
    EXPECT_THAT(replied.calls, IsEmpty());
}

TEST_F(Bypass, ASynchronousCallStillGetsItsReply) {
    receive_messages();
    peer.answer_with([](const Frame &frame) { return std::vector{Peer::reply_to(frame, "answer")}; });
    zamc_bytes *bytes = nullptr;
    EXPECT_EQ(zamc_send_rpc_sync(client, Payload{"x"}, &bytes, 10000), 0);
    EXPECT_EQ(take_bytes(bytes), "answer");
    EXPECT_THAT(handler.calls, IsEmpty());
}

TEST_F(Bypass, WithoutACallbackFramesAreLeftUntouchedAndTheRunIsIdle) {
    const std::string bytes = encode_all({request(30, "a"), {Kind::other2, 0, 2, "b"}});
    peer.send_raw(bytes);
    EXPECT_EQ(zamc_run(client, 0), 0);
    EXPECT_EQ(client->wait_replies.count, 0u);
    uint32_t length = 0;
    const char *data = zam_connector_readbuf(client->connector, &length);
    EXPECT_EQ((std::string{data, length}), bytes);
    receive_messages();
    peer.send({Kind::other3, 0, 2, "c"});
    run_until_calls(handler, 3);
    EXPECT_THAT(handler.calls, ElementsAre("message 0 2 a", "message 2 2 b", "message 3 2 c"));
}

TEST_F(Bypass, SwitchingItOffInTheCallbackHoldsFromTheNextFrameOn) {
    receive_messages();
    handler.act = [this](zamc_client *) {
        EXPECT_EQ(set_attr<uint8_t>(ZAMC_ATTR_RPC_BYPASS, 0), 0);
        return 0;
    };
    peer.send_raw(encode_all({{Kind::other2, 0, 2, "a"}, request(30, "nonsense")}));
    run_until_calls(handler, 1);
    run_until([this] { return log.has(3, "Parse rpc from server not successful."); });
    EXPECT_EQ(peer.wait_for_reply(30), reply(30, message_error));
}

TEST_F(Bypass, WithoutMemoryForItsNumberARequestIsAnsweredWithASystemError) {
    receive_messages();
    const std::string bytes = encode(request(30, "x"));
    for (uint64_t n = 1; n < 20; ++n) {
        ASSERT_EQ(zam_connector_reentry(client->connector, bytes.data(), static_cast<uint32_t>(bytes.size())), 0);
        heap.fail_at(n);
        client::_on_message_receive(client->proactor, EVENT_MESSAGE_RECV, client->connector);
        heap.fail_at(0);
        uint32_t length = 0;
        zam_connector_readbuf(client->connector, &length);
        zam_connector_consume(client->connector, length);
    }
    EXPECT_GE(log.count(0, "Malloc for rpc wait node fail."), 1);
    EXPECT_THAT(sent_so_far(), testing::Contains(reply(30, system_error)));
}

TEST_F(Bypass, TheCallbackMayFreeTheClient) {
    receive_messages();
    handler.act = [](zamc_client *owner) {
        zamc_client_free(owner);
        return 0;
    };
    peer.send_raw(encode_all({request(30, "a"), request(31, "b")}));
    int32_t result = 0;
    while (result == 0)
        result = zamc_run(client, 10000);
    client = nullptr;
    EXPECT_THAT(handler.calls, ElementsAre("message 0 2 a"));
}

} // namespace
} // namespace zam::test
