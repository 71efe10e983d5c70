// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "client_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;

class Heartbeat : public ConnectedTest {
protected:
    void SetUp() override {
        ConnectedTest::SetUp();
        zamc_set_message_recv_cb(client, Handler::message, &handler);
    }
    // A server that does not echo by itself: the test sends the echo where it wants it.
    void silence_peer() {
        peer.answer_with([](const Frame &) { return std::vector<Frame>{}; });
    }
    Handler handler;
};

TEST_F(ClientTest, AHeartbeatWhileUnconnectedFailsWithoutWaiting) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(zamc_send_heartbeat(client), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds{1500}); // half of a wait
}

TEST_F(ClientTest, AHeartbeatOfNullFails) {
    EXPECT_EQ(zamc_send_heartbeat(nullptr), -1);
}

TEST_F(Heartbeat, TheServersEchoIsTheAnswer) {
    EXPECT_EQ(zamc_send_heartbeat(client), 0);
    EXPECT_EQ(zamc_send_heartbeat(client), 0);
    EXPECT_EQ(rewakes_so_far(), 2);
    EXPECT_EQ(peer.received().at(1), rewake());
}

TEST_F(Heartbeat, ItGoesOutInTheClientsEncoding) {
    set_attr<uint32_t>(ZAMC_ATTR_ENCODE, 1);
    EXPECT_EQ(zamc_send_heartbeat(client), 0);
    EXPECT_TRUE(peer.wait_for([](const Frame &frame) { return frame == rewake(1); }));
}

TEST_F(Heartbeat, WhatArrivesBeforeTheEchoIsDispatchedLaterInItsOrder) {
    peer.send_raw(encode_all({{Kind::other2, 0, 2, "a"}, {Kind::other3, 0, 2, "b"}, {Kind::other2, 0, 1, "c"}}));
    EXPECT_EQ(zamc_send_heartbeat(client), 0);
    EXPECT_TRUE(handler.calls.empty());
    EXPECT_EQ(zamc_run(client, 0), 0); // nothing more arrives: the frames have to be found by themselves
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 a", "message 3 2 b", "message 2 1 c"));
}

TEST_F(Heartbeat, WhatWasPutBackComesAheadOfWhatIsReadLater) {
    silence_peer();
    const std::string cut = encode({Kind::other2, 0, 2, "cut in two"});
    peer.send_raw(encode_all({{Kind::other2, 0, 2, "a"}, rewake(), {Kind::other2, 0, 2, "b"}}) + cut.substr(0, 20));
    EXPECT_EQ(zamc_send_heartbeat(client), 0);
    peer.send_raw(cut.substr(20) + encode({Kind::other2, 0, 2, "d"}));
    run_until_calls(handler, 4);
    EXPECT_THAT(handler.calls,
                ElementsAre("message 2 2 a", "message 2 2 b", "message 2 2 cut in two", "message 2 2 d"));
}

TEST_F(Heartbeat, HalfAFrameBehindTheEchoWaitsForItsOtherHalf) {
    silence_peer();
    const std::string cut = encode({Kind::other2, 0, 2, "cut in two"});
    peer.send_raw(encode(rewake()) + cut.substr(0, 7));
    EXPECT_EQ(zamc_send_heartbeat(client), 0);
    EXPECT_EQ(zamc_run(client, 0), 0);
    EXPECT_TRUE(handler.calls.empty());
    peer.send_raw(cut.substr(7));
    run_until_calls(handler, 1);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 cut in two"));
}

TEST_F(Heartbeat, OneHeartbeatAfterAnotherKeepsTheOrder) {
    peer.send_raw(encode({Kind::other2, 0, 2, "a"}));
    EXPECT_EQ(zamc_send_heartbeat(client), 0);
    peer.send_raw(encode({Kind::other2, 0, 2, "b"}));
    EXPECT_EQ(zamc_send_heartbeat(client), 0);
    EXPECT_EQ(zamc_run(client, 0), 0);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 a", "message 2 2 b"));
}

TEST_F(Heartbeat, ARequestThatArrivesMeanwhileIsAnsweredLater) {
    Handler config;
    const zamc_sub_node node = config_sub("/test-main:top/text", 5, 0, &config);
    ASSERT_EQ(zamc_subscribe(client, &node), 0);
    peer.send_raw(encode(request(3, Publication{}.json())));
    EXPECT_EQ(zamc_send_heartbeat(client), 0);
    EXPECT_TRUE(config.calls.empty());
    EXPECT_EQ(zamc_run(client, 0), 0);
    EXPECT_EQ(peer.wait_for_reply(3), reply(3));
}

TEST_F(Heartbeat, TheReplyToAnEarlierRequestIsNotLost) {
    peer.answer_with([](const Frame &frame) {
        if (frame.kind == Kind::request) return std::vector{reply(frame.seq, "answer")};
        return Peer::obliging(frame);
    });
    ASSERT_EQ(zamc_send_rpc_asyn(client, Payload{"question"}, Handler::replied, &handler), 0);
    EXPECT_EQ(zamc_send_heartbeat(client), 0);
    EXPECT_TRUE(handler.calls.empty());
    EXPECT_EQ(zamc_run(client, 0), 0);
    EXPECT_THAT(handler.calls, ElementsAre("reply 2 answer"));
}

TEST_F(Heartbeat, AServerThatClosesInsteadOfEchoingEndsTheWaitAtOnce) {
    peer.answer_with([this](const Frame &) {
        peer.drop_connection();
        return std::vector<Frame>{};
    });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(zamc_send_heartbeat(client), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds{1500});
    EXPECT_EQ(zamc_run(client, 0), -1);
}

TEST_F(Heartbeat, AfterTheServerHasClosedItFailsAtOnce) {
    peer.drop_connection();
    run_until_closed();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(zamc_send_heartbeat(client), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds{1500});
}

TEST_F(Heartbeat, OneInsideAHandlerKeepsTheFramesThatFollow) {
    handler.act = [this](zamc_client *owner) {
        if (handler.calls.size() == 1) {
            EXPECT_EQ(zamc_send_heartbeat(owner), 0);
        }
        return 0;
    };
    peer.send_raw(encode_all({{Kind::other2, 0, 2, "a"}, {Kind::other2, 0, 2, "b"}, {Kind::other2, 0, 2, "c"}}));
    run_until_calls(handler, 3);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 a", "message 2 2 b", "message 2 2 c"));
}

} // namespace
} // namespace zam::test
