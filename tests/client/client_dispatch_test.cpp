// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <algorithm>
#include <random>

#include "client/client_ctx_internal.h"
#include "client_fixture.h"

namespace zam::test {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

// A client whose handlers for publications and for other frames note their calls in one list.
class Dispatch : public ConnectedTest {
protected:
    void SetUp() override {
        ConnectedTest::SetUp();
        const zamc_sub_node node = config_sub("/test-main:top/text", 5, 0, &handler);
        ASSERT_EQ(zamc_subscribe(client, &node), 0);
    }
    void receive_messages() { ASSERT_EQ(zamc_set_message_recv_cb(client, Handler::message, &handler), 0); }
    static Frame other(std::string payload) { return {Kind::other2, 0, 2, std::move(payload)}; }
    static Frame publish(uint32_t seq, const std::string &target) {
        Publication publication;
        publication.target = target;
        return request(seq, publication.json());
    }
    void arrive(const std::vector<Frame> &frames) { peer.send_raw(encode_all(frames)); }
    void defer() {
        handler.act = [](zamc_client *) { return ZAMC_REPLY_LATER; };
    }
    // Runs a client that its own handlers free.
    int32_t run_to_the_end() {
        int32_t result = 0;
        while (result == 0)
            result = zamc_run(client, 10000);
        client = nullptr;
        return result;
    }

    Handler handler;
};

// The receive pass

TEST_F(Dispatch, AConnectorWithoutAClientEndsThePass) {
    zam_connector_set_context(client->connector, nullptr);
    EXPECT_EQ(client::_on_message_receive(client->proactor, EVENT_MESSAGE_RECV, client->connector), -1);
    zam_connector_set_context(client->connector, client);
    EXPECT_EQ(log.count(6, "Fail to get client when recive messsage."), 1);
}

TEST_F(Dispatch, AClientWithoutAConnectorHasNothingToReceive) {
    zam_connector *connector = std::exchange(client->connector, nullptr);
    EXPECT_EQ(client::_on_message_receive(client->proactor, EVENT_MESSAGE_RECV, connector), 0);
    client->connector = connector;
}

TEST_F(Dispatch, FramesOfTypesTwoAndThreeReachTheMessageCallback) {
    receive_messages();
    arrive({other("two"), {Kind::other3, 0, 1, "<three/>"}, other("")});
    run_until_calls(handler, 3);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 two", "message 3 1 <three/>", "message 2 2 "));
}

TEST_F(Dispatch, WithoutAMessageCallbackTheyAreDropped) {
    arrive({other("two"), {Kind::other3, 0, 2, "three"}, publish(30, "/a")});
    run_until_calls(handler, 1);
    EXPECT_EQ(log.count(4, "The client does not set recv message callback."), 2);
}

TEST_F(Dispatch, AMessageCallbackNeedsAClientAndAFunction) {
    EXPECT_EQ(zamc_set_message_recv_cb(nullptr, Handler::message, nullptr), -1);
    EXPECT_EQ(zamc_set_message_recv_cb(client, nullptr, &handler), -1);
    EXPECT_EQ(client->recv_callback, nullptr);
}

TEST_F(Dispatch, AFrameWithoutTypeIsDroppedWithALine) {
    receive_messages();
    arrive({{Kind::untyped, 77, 2, "12345"}, other("next")});
    run_until_calls(handler, 1);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 next"));
    EXPECT_EQ(log.count(3, "Receive an error message(seq=77, 5)."), 1);
}

TEST_F(Dispatch, ARewakeFrameIsIgnored) {
    receive_messages();
    arrive({rewake(), {Kind::rewake, 9, 1, "payload"}, other("next")});
    run_until_calls(handler, 1);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 next"));
}

TEST_F(Dispatch, AFrameInPiecesIsHandledWhenItIsWhole) {
    receive_messages();
    const std::string bytes = encode(other("whole"));
    for (const char byte : bytes) {
        EXPECT_THAT(handler.calls, IsEmpty());
        peer.send_raw(std::string(1, byte));
        EXPECT_EQ(zamc_run(client, 0), 0);
    }
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 whole"));
}

TEST_F(Dispatch, ManyFramesInOneReadAreAllHandledInTheirOrder) {
    receive_messages();
    std::vector<Frame> frames;
    std::vector<std::string> expected;
    for (int i = 0; i < 5000; ++i) {
        frames.push_back(other(std::to_string(i)));
        expected.push_back("message 2 2 " + std::to_string(i));
    }
    arrive(frames);
    run_until_calls(handler, frames.size());
    EXPECT_EQ(handler.calls, expected);
}

TEST_F(Dispatch, InputThatRemainsAfterAFrameAsksForARewake) {
    receive_messages();
    arrive({other("a"), other("b")});
    run_until_calls(handler, 2);
    EXPECT_TRUE(peer.wait_for([](const Frame &frame) { return frame == rewake(); }));
}

TEST_F(Dispatch, NoInputAndStrayBytesAskForNone) {
    receive_messages();
    arrive({other("a")});
    run_until_calls(handler, 1);
    peer.send_raw(encode(other("b")) + "stray");
    run_until_calls(handler, 2);
    EXPECT_EQ(rewakes_so_far(), 0);
}

// The byte that is left ends the echo and could begin a magic: asking for its sake would bring the next echo, for ever.
TEST_F(Dispatch, WhatAResynchronisationLeavesBehindAsksForNoRewake) {
    receive_messages();
    peer.send_raw(std::string(1, '\0') + encode(other("a")) + encode(rewake()));
    run_until_calls(handler, 1);
    EXPECT_EQ(zamc_run(client, 50), 0);
    EXPECT_LE(rewakes_so_far(), 1);
}

TEST_F(Dispatch, AnAnnouncedPayloadThatNeverComesCostsNoMemory) {
    const std::string header = encode(other("")).substr(0, 12) + "\xFF\xFF\xFF\xFF";
    peer.send_raw(header);
    const uint64_t live = heap.live();
    EXPECT_EQ(zamc_run(client, 0), 0);
    EXPECT_LE(heap.live(), live + 1); // the read buffer at most
}

TEST_F(Dispatch, GarbageNeverCrashes) {
    receive_messages();
    std::mt19937 random{7};
    for (int round = 0; round < 300; ++round) {
        std::string bytes = encode_all({publish(30, "/a"), other("x"), reply(1, "y"), {Kind::untyped, 1, 9, "z"}});
        for (int i = 0; i < 6; ++i)
            bytes[random() % bytes.size()] = static_cast<char>(random());
        peer.send_raw(bytes.substr(random() % 20, random() % bytes.size()));
        zamc_run(client, 0);
        if (round % 10 == 9) {
            ASSERT_NO_FATAL_FAILURE(connect());
        }
    }
}

// Requests

TEST_F(Dispatch, ARequestThatDoesNotParseIsAnsweredWithAMessageError) {
    uint32_t seq = 30;
    for (const std::string &payload :
         {""s, "{}"s, "nonsense"s, "<a/>"s, R"({"orvel-zam-client:unknown":{}})"s,
          R"({"orvel-zam-client:publish":{"unknown":1}})"s, R"({"orvel-zam-client:publish":{"pub-type":7}})"s,
          "{\"orvel-zam-client:pub"s, R"({"orvel-zam-client:notify-activate-finish":{}} trailing)"s, "\0\0"s}) {
        log.clear();
        peer.send(request(seq, payload));
        run_until([&] { return log.count(3, "Parse rpc from server not successful.") == 1; });
        EXPECT_EQ(peer.wait_for_reply(seq), reply(seq, message_error)) << payload;
        ++seq;
    }
    EXPECT_EQ(client->wait_replies.count, 0u);
}

TEST_F(Dispatch, ARequestInAnUnknownEncodingIsAnsweredWithAMessageError) {
    for (const uint32_t encoding : {0u, 3u, 15u}) {
        peer.send({Kind::request, encoding + 30, encoding, Publication{}.json()});
        run_until([&] { return log.count(3, "Parse rpc from server not successful.") == 1; });
        EXPECT_EQ(peer.wait_for_reply(encoding + 30), reply(encoding + 30, message_error));
        log.clear();
    }
    EXPECT_THAT(handler.calls, IsEmpty());
}

TEST_F(Dispatch, ARequestIsReadInItsOwnEncodingAndAnsweredInTheClients) {
    const std::string xml = std::string{"<publish xmlns=\""} + client_xmlns +
                            "\"><pub-type>config-change</pub-type><from-session>9</from-session><publications>"
                            "<publication><target>/a</target><priv-data>0</priv-data><priority>5</priority>"
                            "<modify-type>2</modify-type></publication></publications></publish>";
    peer.send(request(30, xml, 1));
    run_until_calls(handler, 1);
    EXPECT_THAT(handler.calls, ElementsAre("config 2 5 0 /a"));
    EXPECT_EQ(peer.wait_for_reply(30), reply(30));
}

TEST_F(Dispatch, ARequestThatIsNotForClientsIsNotSupported) {
    const std::pair<const char *, const char *> cases[] = {
        {R"({"orvel-zam-client:notify-publish-stage":{"pub-type":"operation","stage":"publish-start"}})",
         "RPC orvel-zam-client:notify-publish-stage is not supported."},
        {R"({"orvel-zam-server:deactivate":{}})", "RPC orvel-zam-server:deactivate is not supported."},
        {R"({"test-main:run":{"speed":1}})", "RPC test-main:run is not supported."},
    };
    uint32_t seq = 30;
    for (const auto &[payload, line] : cases) {
        peer.send(request(seq, payload));
        run_until([&, wanted = line] { return log.has(3, wanted); });
        EXPECT_EQ(peer.wait_for_reply(seq), reply(seq, message_error));
        ++seq;
    }
}

TEST_F(Dispatch, WithoutASchemaContextARequestStaysUnanswered) {
    ly_ctx *context = std::exchange(client::_clients_ctx()->context, nullptr);
    peer.send(publish(30, "/a"));
    run_until([&] { return client->wait_replies.count == 1; });
    client::_clients_ctx()->context = context;
    EXPECT_FALSE(log.has(3, "Parse rpc from server not successful."));
    EXPECT_THAT(handler.calls, IsEmpty());
    EXPECT_THAT(sent_so_far(), IsEmpty());
    EXPECT_EQ(zamc_reply_asyn(client, 0, nullptr), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30)));
}

TEST_F(Dispatch, EachAllocationThatFailsAnswersTheRequestOrLeavesTheClientUsable) {
    bool system = false;
    for (uint64_t n = 1;; ++n) {
        const size_t before = handler.calls.size();
        const std::string bytes = encode(publish(30, "/a"));
        ASSERT_EQ(zam_connector_reentry(client->connector, bytes.data(), static_cast<uint32_t>(bytes.size())), 0);
        heap.fail_at(n);
        client::_on_message_receive(client->proactor, EVENT_MESSAGE_RECV, client->connector);
        const bool failed = heap.failed();
        heap.fail_at(0);
        // A frame whose number could not even be noted stays: the next pass takes it.
        client::_on_message_receive(client->proactor, EVENT_MESSAGE_RECV, client->connector);
        for (const Frame &frame : sent_so_far())
            system |= frame.payload == system_error;
        if (!failed) {
            EXPECT_EQ(handler.calls.size(), before + 1);
            break;
        }
        ASSERT_LT(n, 1000u);
    }
    EXPECT_TRUE(system);
}

// Replies overtake while an answer is owed

class Overtaking : public Dispatch {
protected:
    void SetUp() override {
        Dispatch::SetUp();
        peer.answer_with([](const Frame &) { return std::vector<Frame>{}; });
        ASSERT_EQ(zamc_send_rpc_asyn(client, Payload{"question"}, Handler::replied, &handler), 0); // number 1
        ASSERT_TRUE(peer.wait_for_request("question"));
        receive_messages();
    }
};

TEST_F(Overtaking, WithARequestPendingTheReplyIsDispatchedBeforeTheRequestsAheadOfIt) {
    defer();
    arrive({publish(30, "/pending")});
    run_until_calls(handler, 1);
    arrive({publish(31, "/a"), publish(32, "/b"), reply(1, "answer")});
    run_until_calls(handler, 4);
    EXPECT_THAT(handler.calls,
                ElementsAre("config 129 5 0 /pending", "reply 2 answer", "config 129 5 0 /a", "config 129 5 0 /b"));
}

TEST_F(Overtaking, WithNothingPendingTheOrderOfArrivalHolds) {
    arrive({publish(31, "/a"), publish(32, "/b"), reply(1, "answer")});
    run_until_calls(handler, 3);
    EXPECT_THAT(handler.calls, ElementsAre("config 129 5 0 /a", "config 129 5 0 /b", "reply 2 answer"));
}

TEST_F(Overtaking, ARequestThatIsDeferredLetsTheReplyBehindItPass) {
    defer();
    arrive({publish(31, "/a"), other("b"), publish(32, "/c"), reply(1, "answer"), other("d")});
    run_until_calls(handler, 5);
    EXPECT_THAT(handler.calls, ElementsAre("config 129 5 0 /a", "reply 2 answer", "message 2 2 b", "config 129 5 0 /c",
                                           "message 2 2 d"));
}

TEST_F(Overtaking, SeveralRepliesPassInTheirOrder) {
    Handler second;
    std::vector<std::string> order;
    defer();
    second.act = [&](zamc_client *) {
        order.push_back(second.calls.back() + " after " + std::to_string(handler.calls.size()));
        return 0;
    };
    ASSERT_EQ(zamc_send_rpc_asyn(client, Payload{"more"}, Handler::replied, &second), 0);
    arrive({publish(31, "/a"), publish(32, "/b"), reply(1, "x"), publish(33, "/c"), reply(2, "y")});
    run_until_calls(handler, 4);
    EXPECT_THAT(handler.calls.at(1), "reply 2 x");
    EXPECT_THAT(order.at(0), testing::StartsWith("reply 2 y after "));
    EXPECT_THAT(handler.calls, ElementsAre("config 129 5 0 /a", "reply 2 x", "config 129 5 0 /b", "config 129 5 0 /c"));
}

TEST_F(Overtaking, AReplyThatIsCutWaitsAndPassesLater) {
    defer();
    const std::string bytes = encode(reply(1, "answer"));
    peer.send_raw(encode_all({publish(31, "/a"), publish(32, "/b")}) + bytes.substr(0, 11));
    run_until_calls(handler, 2);
    peer.send_raw(bytes.substr(11) + encode(publish(33, "/c")));
    run_until_calls(handler, 4);
    EXPECT_THAT(handler.calls,
                ElementsAre("config 129 5 0 /a", "config 129 5 0 /b", "reply 2 answer", "config 129 5 0 /c"));
}

TEST_F(Overtaking, TheAnswerMayBeGivenByTheReplyThatOvertook) {
    handler.act = [this](zamc_client *owner) {
        if (handler.calls.back() == "reply 2 answer") {
            EXPECT_EQ(zamc_reply_asyn(owner, 31, nullptr), 0);
        }
        return handler.calls.size() == 1 ? int32_t{ZAMC_REPLY_LATER} : 0;
    };
    arrive({publish(31, "/a"), publish(32, "/b"), reply(1, "answer")});
    run_until_calls(handler, 3);
    EXPECT_THAT(sent_so_far(), ElementsAre(request(1, "question"), reply(31), reply(32)));
}

TEST_F(Overtaking, ACallbackThatDisconnectsEndsThePass) {
    handler.act = [this](zamc_client *owner) {
        if (handler.calls.back() == "reply 2 answer") zamc_disconnect(owner);
        return ZAMC_REPLY_LATER;
    };
    arrive({publish(31, "/a"), publish(32, "/b"), reply(1, "answer")});
    EXPECT_EQ(zamc_run(client, 10000), -1);
    EXPECT_THAT(handler.calls, ElementsAre("config 129 5 0 /a", "reply 2 answer"));
}

TEST_F(Overtaking, ACallbackThatConnectsAnewLeavesNothingOfTheOldInput) {
    peer.answer_with(Peer::obliging);
    handler.act = [this](zamc_client *owner) {
        if (handler.calls.back() == "reply 2 answer") {
            EXPECT_GE(zamc_connect(owner, peer.url().c_str()), 0);
        }
        return ZAMC_REPLY_LATER;
    };
    arrive({publish(31, "/a"), publish(32, "/b"), reply(1, "answer"), other("of the old connection")});
    run_until_calls(handler, 2);
    arrive({other("x"), other("y")});
    run_until_calls(handler, 4);
    EXPECT_THAT(handler.calls, ElementsAre("config 129 5 0 /a", "reply 2 answer", "message 2 2 x", "message 2 2 y"));
}

// Running

TEST_F(Dispatch, ARunOfNullIsRefused) {
    EXPECT_EQ(zamc_run(nullptr, 0), -3);
}

TEST_F(Dispatch, ARunEndsWithZeroAfterAnIdleTimeoutAndWithMinusOneOnceTheServerHasClosed) {
    EXPECT_EQ(zamc_run(client, idle_ms), 0);
    peer.drop_connection();
    EXPECT_EQ(zamc_run(client, 10000), -1);
    EXPECT_EQ(zamc_run(client, 10000), -1);
}

TEST_F(Dispatch, ARunThatHasNoMemoryToReadEndsAfterItsTimeoutAndALaterOneReadsOn) {
    receive_messages();
    peer.send(other(std::string(5000, 'x')));
    for (const int32_t timeout_ms : {0, 1, 50}) {
        heap.fail_at(1, true);
        EXPECT_EQ(zamc_run(client, timeout_ms), 0);
        EXPECT_TRUE(heap.failed());
        heap.fail_at(0);
        EXPECT_THAT(handler.calls, IsEmpty());
    }
    run_until_calls(handler, 1);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 " + std::string(5000, 'x')));
}

TEST_F(Dispatch, WhatTheServerSaidBeforeItClosedIsHandled) {
    receive_messages();
    arrive({other("last words"), publish(30, "/a")});
    peer.drop_connection();
    EXPECT_EQ(zamc_run(client, 10000), -1);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 last words", "config 129 5 0 /a"));
}

TEST_F(Dispatch, AMessageCallbackMayDisconnectAndTheRestIsNotHandled) {
    receive_messages();
    handler.act = [](zamc_client *owner) {
        zamc_disconnect(owner);
        return 0;
    };
    arrive({other("a"), other("b")});
    EXPECT_EQ(zamc_run(client, 10000), -1);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 a"));
}

TEST_F(Dispatch, AMessageCallbackMayConnectAnew) {
    receive_messages();
    handler.act = [this](zamc_client *owner) {
        if (handler.calls.size() == 1) {
            EXPECT_GE(zamc_connect(owner, peer.url().c_str()), 0);
        }
        return 0;
    };
    arrive({other("a"), other("of the old connection")});
    run_until_calls(handler, 1);
    arrive({other("b")});
    run_until_calls(handler, 2);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 a", "message 2 2 b"));
}

TEST_F(Dispatch, AMessageCallbackMayFreeTheClient) {
    receive_messages();
    handler.act = [this](zamc_client *owner) {
        zamc_client_free(owner);
        EXPECT_EQ(zamc_connect(owner, peer.url().c_str()), -1); // until it returns the client is there, but of no use
        return 0;
    };
    arrive({other("a"), other("b")});
    EXPECT_EQ(run_to_the_end(), -1);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 a"));
}

TEST_F(Dispatch, AMessageCallbackMayRunTheClientAgain) {
    receive_messages();
    handler.act = [this](zamc_client *owner) {
        if (handler.calls.size() == 1) {
            arrive({other("b")});
            EXPECT_EQ(zamc_run(owner, 0), 0);
            EXPECT_EQ(handler.calls.size(), 2u);
        }
        return 0;
    };
    arrive({other("a")});
    run_until_calls(handler, 2);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 a", "message 2 2 b"));
}

TEST_F(Dispatch, ARunInsideACallbackHandlesWhatArrivedTogetherWithItsFrame) {
    receive_messages();
    handler.act = [this](zamc_client *owner) {
        if (handler.calls.size() == 1) {
            EXPECT_EQ(zamc_run(owner, 0), 0);
            EXPECT_EQ(handler.calls.size(), 3u);
        }
        return 0;
    };
    arrive({other("a"), publish(30, "/b"), other("c")});
    run_until_calls(handler, 1);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 a", "config 129 5 0 /b", "message 2 2 c"));
    EXPECT_EQ(zamc_run(client, idle_ms), 0);
    EXPECT_EQ(handler.calls.size(), 3u) << "each is handled once";
}

TEST_F(Dispatch, CallbacksThatAllRunTheClientDoNotPileUpOnTheStack) {
    receive_messages();
    int depth = 0;
    int deepest = 0;
    handler.act = [&](zamc_client *owner) {
        deepest = std::max(deepest, ++depth);
        EXPECT_EQ(zamc_run(owner, 0), 0);
        --depth;
        return 0;
    };
    constexpr size_t many = 2000;
    std::vector<Frame> frames;
    std::vector<std::string> expected;
    for (size_t i = 0; i < many; ++i) {
        frames.push_back(other(std::to_string(i)));
        expected.push_back("message 2 2 " + std::to_string(i));
    }
    zamc_bytes *answer = nullptr; // all are there before the first is handled
    peer.answer_with([&](const Frame &frame) {
        auto all = frames;
        all.push_back(Peer::reply_to(frame));
        return frame.kind == Kind::request ? all : std::vector<Frame>{};
    });
    EXPECT_EQ(zamc_send_rpc_sync(client, Payload{"ask"}, &answer, 10000), 0);
    EXPECT_EQ(zamc_run(client, 0), 0);
    EXPECT_EQ(handler.calls, expected);
    EXPECT_EQ(deepest, 32);
}

TEST_F(Dispatch, ARunWithoutPatienceHandlesWhatASynchronousCallPutBack) {
    receive_messages();
    peer.answer_with([](const Frame &frame) {
        if (frame.kind != Kind::request) return std::vector<Frame>{}; // no echo either
        return std::vector<Frame>{other("a"), Peer::reply_to(frame), other("b")};
    });
    zamc_bytes *answer = nullptr;
    EXPECT_EQ(zamc_send_rpc_sync(client, Payload{"ask"}, &answer, 10000), 0);
    EXPECT_THAT(handler.calls, IsEmpty());
    EXPECT_EQ(zamc_run(client, 0), 0);
    EXPECT_THAT(handler.calls, ElementsAre("message 2 2 a", "message 2 2 b"));
}

TEST_F(Dispatch, AnUnansweredPublicationDoesNotHoldUpTheNext) {
    defer();
    arrive({publish(30, "/a"), publish(31, "/b")});
    run_until_calls(handler, 2);
    EXPECT_EQ(client->wait_replies.count, 2u);
}

} // namespace
} // namespace zam::test
