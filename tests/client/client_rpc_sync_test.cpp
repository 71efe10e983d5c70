// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <atomic>
#include <csignal>

#include <poll.h>
#include <sys/time.h>

#include "client_fixture.h"

namespace zam::test {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int32_t long_ms = 60000; // a wait that ends by its time-out takes far longer than any test may

class SyncRpc : public ConnectedTest {
protected:
    void SetUp() override {
        ConnectedTest::SetUp();
        zamc_set_message_recv_cb(client, Handler::message, &handler);
    }
    void answer(const std::string &payload) {
        peer.answer_with([payload](const Frame &frame) {
            return frame.kind == Kind::request ? std::vector{Peer::reply_to(frame, payload)} : Peer::obliging(frame);
        });
    }
    void answer_nothing() {
        peer.answer_with([](const Frame &) { return std::vector<Frame>{}; });
    }
    int32_t ask(int32_t timeout_ms = long_ms) {
        zamc_bytes *bytes = nullptr;
        const int32_t result = zamc_send_rpc_sync(client, Payload{"question"}, &bytes, timeout_ms);
        got = take_bytes(bytes);
        return result;
    }

    Handler handler;
    std::string got;
};

TEST_F(SyncRpc, TheReplyIsHandedOut) {
    answer("answer");
    zamc_bytes *bytes = nullptr;
    EXPECT_EQ(zamc_send_rpc_sync(client, Payload{"<question/>", 1}, &bytes, long_ms), 0);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(bytes->format, 1u);
    EXPECT_EQ(bytes->length, 6);
    EXPECT_STREQ(bytes->data, "answer");
    zamc_free_bytes(bytes);
    EXPECT_THAT(sent_so_far(), ElementsAre(request(1, "<question/>", 1)));
    EXPECT_EQ(client->send_queue.count, 0u);
}

TEST_F(SyncRpc, AnEmptyReplyIsASuccessWithoutReply) {
    answer("");
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(got, "(null)");
}

TEST_F(SyncRpc, AnOkTextAndAnErrorAreRepliesLikeAnyOther) {
    answer("<ok/>");
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(got, "<ok/>");
    answer(service_error);
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(got, service_error);
}

TEST_F(SyncRpc, ATimeoutOfMinusOneWaitsForTheReply) {
    answer("answer");
    EXPECT_EQ(ask(-1), 0);
    EXPECT_EQ(got, "answer");
}

TEST_F(SyncRpc, LargePayloadsGoBothWays) {
    peer.answer_with([](const Frame &frame) { return std::vector{Peer::reply_to(frame, frame.payload + "!")}; });
    const std::string text(3 << 20, 'z');
    zamc_bytes *bytes = nullptr;
    EXPECT_EQ(zamc_send_rpc_sync(client, Payload{text}, &bytes, long_ms), 0);
    EXPECT_EQ(take_bytes(bytes), text + "!");
}

TEST_F(SyncRpc, NullAndInvalidArgumentsAreRefused) {
    char text[] = "x";
    const zamc_bytes negative{2, -1, text};
    const zamc_bytes without_data{2, 1, nullptr};
    zamc_bytes *bytes = nullptr;
    EXPECT_EQ(zamc_send_rpc_sync(nullptr, Payload{"x"}, &bytes, 0), -3);
    EXPECT_EQ(zamc_send_rpc_sync(client, nullptr, &bytes, 0), -3);
    EXPECT_EQ(zamc_send_rpc_sync(client, Payload{"x"}, nullptr, 0), -3);
    EXPECT_EQ(zamc_send_rpc_sync(client, &negative, &bytes, 0), -3);
    EXPECT_EQ(zamc_send_rpc_sync(client, &without_data, &bytes, 0), -3);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(SyncRpc, WithoutAConnectionItIsNotSent) {
    zamc_disconnect(client);
    zamc_bytes old{};
    zamc_bytes *bytes = &old;
    EXPECT_EQ(zamc_send_rpc_sync(client, Payload{"x"}, &bytes, long_ms), -1);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(log.count(3, "send sync rpc not successful."), 1);
}

TEST_F(SyncRpc, WithoutAReplyItEndsAfterTheTimeout) {
    answer_nothing();
    EXPECT_EQ(ask(20), -1);
    EXPECT_EQ(got, "(null)");
    EXPECT_EQ(log.count(6, "Rpc reply wait is timeout(client name=tester, seq=1)."), 1);
    EXPECT_EQ(log.count(3, "wait sync rpc reply not successful."), 1);
    EXPECT_EQ(client->send_queue.count, 0u);
}

TEST_F(SyncRpc, AReplyThatComesAfterTheTimeoutIsDropped) {
    answer_nothing();
    EXPECT_EQ(ask(0), -1);
    peer.send_raw(encode_all({reply(1, "late"), {Kind::other2, 0, 2, "end"}}));
    run_until_calls(handler, 1);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 end"));
}

TEST_F(SyncRpc, ABusyServerHoldsTheCallerLongerThanTheTimeout) {
    constexpr int32_t timeout_ms = 300;
    peer.answer_with([this](const Frame &frame) -> std::vector<Frame> {
        if (frame.kind != Kind::request) return {};
        for (int i = 0; i < 6; ++i) {
            poll(nullptr, 0, timeout_ms / 5);
            peer.send({Kind::other2, 0, 2, std::to_string(i)});
        }
        return {Peer::reply_to(frame, "answer")};
    });
    EXPECT_EQ(ask(timeout_ms), 0);
    EXPECT_EQ(got, "answer");
    EXPECT_FALSE(log.mentions("timeout"));
}

TEST_F(SyncRpc, AServerThatTakesTheRequestSlowlyIsAliveAsWell) {
    constexpr int32_t timeout_ms = 400;
    const std::string part(65536, 'x');
    peer.answer_with([](const Frame &frame) -> std::vector<Frame> {
        if (frame.kind == Kind::request) return {Peer::reply_to(frame, "answer")};
        poll(nullptr, 0, timeout_ms / 20);
        return {};
    });
    for (int i = 0; i < 40; ++i)
        ASSERT_EQ(zamc_send_message(client, ZAM_MESSAGE_OTHER_3, Payload{part}), 0);
    EXPECT_EQ(ask(timeout_ms), 0);
    EXPECT_EQ(got, "answer");
}

TEST_F(SyncRpc, WakesThatOnlyRepeatThemselvesForWantOfMemoryDoNotKeepTheCaller) {
    const Payload question{"question"};
    peer.answer_with([](const Frame &frame) -> std::vector<Frame> {
        if (frame.payload != "question") return Peer::obliging(frame);
        return {Peer::reply_to(frame, std::string(5000, 'x'))};
    });
    for (uint64_t n = 1; n < 20; ++n) {
        heap.fail_at(n, true);
        zamc_bytes *bytes = nullptr;
        const int32_t result = zamc_send_rpc_sync(client, question, &bytes, 50);
        EXPECT_EQ(result, heap.failed() ? -1 : 0) << n;
        heap.fail_at(0);
        zamc_free_bytes(bytes);
        ASSERT_NO_FATAL_FAILURE(connect());
    }
}

std::atomic<int> signals = 0;

TEST_F(SyncRpc, AWaitThatASignalInterruptsGoesOn) {
    signals = 0;
    struct sigaction action {
    }, old{};
    action.sa_handler = [](int) { ++signals; };
    sigaction(SIGALRM, &action, &old);
    peer.answer_with([](const Frame &frame) {
        for (int i = 0; i < 1000 && signals < 3; ++i)
            poll(nullptr, 0, 10);
        return std::vector{Peer::reply_to(frame, "answer")};
    });
    const itimerval every_ms{{0, 2000}, {0, 2000}};
    const itimerval never{};
    setitimer(ITIMER_REAL, &every_ms, nullptr);
    EXPECT_EQ(ask(), 0);
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &old, nullptr);
    EXPECT_EQ(got, "answer");
    EXPECT_GE(signals, 3);
}

// What arrives meanwhile

TEST_F(SyncRpc, FramesAheadOfTheReplyAreHandledAfterwardsInTheirOrder) {
    const zamc_sub_node node = config_sub("/test-main:top/text", 5, 0, &handler);
    ASSERT_EQ(zamc_subscribe(client, &node), 0);
    answer_nothing();
    peer.send_raw(encode_all({request(30, Publication{}.json()), {Kind::other2, 0, 2, "notice"}, reply(1, "answer")}));
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(got, "answer");
    EXPECT_THAT(handler.calls, IsEmpty()); // no handler runs during the wait
    uint32_t length = 0;
    const char *data = zam_connector_readbuf(client->connector, &length);
    EXPECT_EQ((std::string{data, length}),
              encode_all({request(30, Publication{}.json()), {Kind::other2, 0, 2, "notice"}}));
    EXPECT_TRUE(peer.wait_for([](const Frame &frame) { return frame == rewake(); }));
    peer.send(rewake());
    run_until_calls(handler, 2);
    EXPECT_THAT(handler.calls, ElementsAre("config 129 5 0 /test-main:top/text", "message 2 2 notice"));
    EXPECT_EQ(peer.wait_for_reply(30), reply(30));
}

TEST_F(SyncRpc, TheEchoOfItsRewakeIsEnoughForTheNextRun) {
    peer.send_raw(encode_all({{Kind::other2, 0, 2, "a"}, {Kind::other2, 0, 2, "b"}}));
    answer("answer");
    EXPECT_EQ(ask(), 0);
    run_until_calls(handler, 2);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 a", "message 2 2 b"));
}

TEST_F(SyncRpc, FramesBehindTheReplyStayInTheInputAndAskForARewake) {
    answer_nothing();
    peer.send_raw(encode_all({reply(1, "answer"), {Kind::other2, 0, 2, "a"}}));
    EXPECT_EQ(ask(), 0);
    EXPECT_TRUE(peer.wait_for([](const Frame &frame) { return frame == rewake(); }));
    peer.send(rewake());
    run_until_calls(handler, 1);
}

TEST_F(SyncRpc, FramesSetAsideComeAheadOfThoseBehindTheReply) {
    answer_nothing();
    peer.send_raw(encode_all({{Kind::other2, 0, 2, "a"}, reply(1, "answer"), {Kind::other2, 0, 2, "b"}}) +
                  encode({Kind::other2, 0, 2, "c"}).substr(0, 9));
    EXPECT_EQ(ask(), 0);
    peer.send_raw(encode({Kind::other2, 0, 2, "c"}).substr(9));
    run_until_calls(handler, 3);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 a", "message 2 2 b", "message 2 2 c"));
}

TEST_F(SyncRpc, WithNothingLeftThereIsNoRewake) {
    answer("answer");
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(rewakes_so_far(), 0);
}

TEST_F(SyncRpc, StrayBytesAloneAskForNoRewake) {
    answer_nothing();
    peer.send_raw(encode(reply(1, "answer")) + "stray");
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(got, "answer");
    EXPECT_EQ(rewakes_so_far(), 0);
}

TEST_F(SyncRpc, ARewakeFrameIsDropped) {
    answer_nothing();
    peer.send_raw(encode_all({rewake(), rewake(), reply(1, "answer")}));
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(rewakes_so_far(), 0);
    uint32_t length = 0;
    zam_connector_readbuf(client->connector, &length);
    EXPECT_EQ(length, 0u);
}

TEST_F(SyncRpc, AfterATimeoutTheFramesAreKeptAsWell) {
    answer_nothing();
    peer.send_raw(encode_all({{Kind::other2, 0, 2, "a"}, {Kind::other2, 0, 2, "b"}}));
    EXPECT_EQ(ask(20), -1);
    EXPECT_TRUE(peer.wait_for([](const Frame &frame) { return frame == rewake(); }));
    peer.send(rewake());
    run_until_calls(handler, 2);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 a", "message 2 2 b"));
}

TEST_F(SyncRpc, TheReplyToAnEarlierRequestIsDeliveredAfterwards) {
    peer.answer_with([](const Frame &frame) {
        return frame.kind == Kind::request ? std::vector{reply(frame.seq, "to " + frame.payload)}
                                           : Peer::obliging(frame);
    });
    Handler replied;
    ASSERT_EQ(zamc_send_rpc_asyn(client, Payload{"first"}, Handler::replied, &replied), 0);
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(got, "to question");
    EXPECT_THAT(replied.calls, IsEmpty());
    run_until_calls(replied, 1);
    EXPECT_THAT(replied.calls, ElementsAre("reply 2 to first"));
}

TEST_F(SyncRpc, OneInsideAHandlerLeavesTheFramesThatFollowInTheirOrder) {
    answer("answer");
    handler.act = [this](zamc_client *) {
        if (handler.calls.size() > 2) return 0;
        EXPECT_EQ(ask(), 0);
        EXPECT_EQ(got, "answer");
        return 0;
    };
    peer.send_raw(encode_all(
        {{Kind::other2, 0, 2, "a"}, {Kind::other2, 0, 2, "b"}, {Kind::other2, 0, 2, "c"}, {Kind::other3, 0, 2, "d"}}));
    run_until_calls(handler, 4);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 a", "message 2 2 b", "message 2 2 c", "message 3 2 d"));
}

// The server goes away

TEST_F(SyncRpc, AServerThatClosesDuringTheWaitEndsItAtOnce) {
    const zamc_sub_node node = config_sub("/test-main:top/text", 5, 0, &handler);
    ASSERT_EQ(zamc_subscribe(client, &node), 0);
    suber_at(client, 0)->status = 0x008;
    peer.answer_with([this](const Frame &) {
        peer.drop_connection();
        return std::vector<Frame>{};
    });
    EXPECT_EQ(ask(), -1);
    EXPECT_FALSE(log.mentions("timeout"));
    EXPECT_EQ(log.count(3, "wait sync rpc reply not successful."), 1);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}})); // its closing is handled during the wait
    EXPECT_EQ(zamc_run(client, 0), -1);
}

TEST_F(SyncRpc, AServerThatHasClosedBeforeEndsTheWaitAtOnce) {
    peer.drop_connection();
    connect(); // the peer serves one connection after the other: it has closed the first one by now
    peer.drop_connection();
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(ask(), -1);
    EXPECT_FALSE(log.mentions("timeout"));
}

TEST_F(SyncRpc, AServerThatClosesRightAfterItsReplyIsStillUnderstood) {
    peer.answer_with([this](const Frame &frame) {
        peer.drop_connection();
        return std::vector{Frame{Kind::other2, 0, 2, "unheard"}, Peer::reply_to(frame, "last words")};
    });
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(got, "last words");
    run_until_closed();
    EXPECT_EQ(ask(), -1);
}

// Requests as trees

class TreeRpc : public SyncRpc {
protected:
    Tree deactivate() { return Tree{zam_message_build_deactivate(zam_clients_schema_ctx())}; }
    int32_t simple() { return client::_exec_simple_rpc(client, deactivate().get(), 2); }
    // With a parser that notes what it gets.
    int32_t complex(int32_t result = 0) {
        const client::reply_parser parser = [](lyd_node *tree, const zamc_bytes *raw, void *out, const void *arg) {
            *static_cast<std::string *>(out) = to_json(tree) + " " + std::to_string(raw->format) + " " +
                                               std::string{raw->data, static_cast<size_t>(raw->length)};
            return *static_cast<const int32_t *>(arg);
        };
        return client::_exec_complex_rpc(client, deactivate().get(), &parsed, parser, &result);
    }
    std::string parsed = "(not called)";
    const std::string pull = R"({"orvel-zam-server:pull":{"entity":"/"}})";
};

TEST_F(TreeRpc, ASimpleOneSucceedsWithAnEmptyOrAnOkReplyOnly) {
    answer("");
    EXPECT_EQ(simple(), 0);
    answer("<ok/>");
    EXPECT_EQ(simple(), 0);
    for (const char *text : {"<ok/> ", "<ok />", "{}", "ok", " "}) {
        answer(text);
        EXPECT_EQ(simple(), -1) << text;
    }
    EXPECT_EQ(sent_so_far().at(0), request(1, R"({"orvel-zam-server:deactivate":{}})"));
    EXPECT_EQ(client->send_queue.count, 0u);
}

TEST_F(TreeRpc, ASimpleOneUsesTheTimeoutAttribute) {
    answer_nothing();
    set_attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT, 20);
    EXPECT_EQ(simple(), -1);
    EXPECT_EQ(log.count(6, "Rpc reply wait is timeout(client name=tester, seq=1)."), 1);
    EXPECT_EQ(client->send_queue.count, 0u);
}

TEST_F(TreeRpc, ATimeoutAttributeAboveTheSignedRangeIsALongOne) {
    answer("");
    set_attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT, 4294967295u);
    EXPECT_EQ(simple(), 0);
}

TEST_F(TreeRpc, AComplexOneHandsTheParsedReplyToItsParserAndReturnsItsResult) {
    answer(pull);
    EXPECT_EQ(complex(), 0);
    EXPECT_EQ(parsed, pull + " 2 " + pull);
    EXPECT_EQ(complex(-7), -7);
    EXPECT_TRUE(log.has(7, "[Client]:tester wait rpc reply:" + pull + "."));
}

TEST_F(TreeRpc, AComplexOneWithoutAParserFailsOnAReplyWithText) {
    answer(pull);
    EXPECT_EQ(client::_exec_complex_rpc(client, deactivate().get(), nullptr, nullptr, nullptr), -1);
}

TEST_F(TreeRpc, AComplexOneFailsOnAReplyThatDoesNotParse) {
    for (const std::string &text : {service_error, "{"s, "nonsense"s, "<ok />"s}) {
        answer(text);
        EXPECT_EQ(complex(), -1) << text;
        EXPECT_EQ(parsed, "(not called)");
    }
}

TEST_F(TreeRpc, AComplexOneCallsNoParserForAnEmptyOrAnOkReply) {
    for (const char *text : {"", "<ok/>"}) {
        log.clear();
        answer(text);
        EXPECT_EQ(complex(-1), 0);
        EXPECT_EQ(parsed, "(not called)");
        EXPECT_EQ(log.count(7, "[Client]:tester wait rpc reply ok."), 1);
    }
}

TEST_F(TreeRpc, AComplexOneWithoutReplySaysSo) {
    answer_nothing();
    set_attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT, 20);
    EXPECT_EQ(complex(), -1);
    EXPECT_EQ(log.count(7, "[Client]:tester wait rpc reply error."), 1);
}

TEST_F(TreeRpc, ACopyOfAReplyIsOneTerminatedBlock) {
    heap.reset_count();
    zamc_bytes *copy = client::_dup_rpc_reply(1, 3, "abcdef");
    EXPECT_EQ(heap.allocations(), 1u);
    EXPECT_EQ(copy->format, 1u);
    EXPECT_EQ(copy->length, 3);
    EXPECT_STREQ(copy->data, "abc");
    EXPECT_EQ(static_cast<void *>(copy->data), static_cast<void *>(copy + 1));
    zamc_free_bytes(copy);
}

TEST_F(TreeRpc, ACopyOfAnEmptyReplyHasNoData) {
    zamc_bytes *copy = client::_dup_rpc_reply(2, 0, nullptr);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->length, 0);
    EXPECT_EQ(copy->data, nullptr);
    zamc_free_bytes(copy);
}

TEST_F(TreeRpc, WithoutMemoryForTheCopyThereIsNoReply) {
    heap.fail_at(1);
    EXPECT_EQ(client::_dup_rpc_reply(2, 3, "abc"), nullptr);
    EXPECT_EQ(log.count(0, "Allocate memory for duplicate reply not successful."), 1);
    EXPECT_EQ(client::_dup_rpc_reply(2, 3000000000u, "abc"), nullptr); // no signed length holds this
}

TEST_F(SyncRpc, EachAllocationThatFailsEndsTheCallWithAReplyOrWithout) {
    answer("answer");
    for (uint64_t n = 1;; ++n) {
        const Payload payload{"question"};
        heap.fail_at(n);
        zamc_bytes *bytes = nullptr;
        const int32_t result = zamc_send_rpc_sync(client, payload, &bytes, 200);
        const bool failed = heap.failed();
        heap.fail_at(0);
        EXPECT_EQ(take_bytes(bytes), result == 0 ? "answer" : "(null)");
        EXPECT_EQ(client->send_queue.count, 0u);
        if (!failed) {
            EXPECT_EQ(result, 0);
            break;
        }
        ASSERT_LT(n, 100u);
    }
}

} // namespace
} // namespace zam::test
