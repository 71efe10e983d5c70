// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "client/client_ctx_internal.h"
#include "client_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A client with one subscription at slot 0, whose handler does as the test says.
class Replies : public ConnectedTest {
protected:
    void SetUp() override {
        ConnectedTest::SetUp();
        subscribe();
    }
    void subscribe() {
        const zamc_sub_node node = config_sub("/test-main:top/text", 5, 0, &handler);
        ASSERT_EQ(zamc_subscribe(client, &node), 0);
    }
    // Lets requests of these numbers arrive and be handled.
    void publish(const std::vector<uint32_t> &numbers) {
        const size_t before = handler.calls.size();
        std::vector<Frame> frames;
        for (const uint32_t number : numbers)
            frames.push_back(request(number, Publication{}.json()));
        peer.send_raw(encode_all(frames));
        run_until_calls(handler, before + numbers.size());
    }
    void defer() {
        handler.act = [](zamc_client *) { return ZAMC_REPLY_LATER; };
    }

    Handler handler;
};

// The error record

TEST_F(Replies, AHandlersErrorIsTheAnswerWhateverItReturns) {
    for (const int32_t result : {0, -1, 7, 50000}) {
        handler.act = [result](zamc_client *owner) {
            zamc_error_set(owner, 17, "%s of %d", "part", 3);
            return result;
        };
        const auto seq = static_cast<uint32_t>(result + 100);
        publish({seq});
        EXPECT_EQ(peer.wait_for_reply(seq), reply(seq, error_json("17", "part of 3")));
        EXPECT_EQ(client->wait_replies.count, 0u);
    }
}

TEST_F(Replies, ANegativeCodeIsSentAsUnsigned) {
    handler.act = [](zamc_client *owner) {
        zamc_error_set(owner, -3, "own");
        return -1;
    };
    publish({30});
    EXPECT_EQ(peer.wait_for_reply(30), reply(30, error_json("4294967293", "own")));
}

TEST_F(Replies, AnErrorAnswerClearsTheRecord) {
    handler.act = [](zamc_client *owner) {
        zamc_error_set(owner, 17, "once");
        return -1;
    };
    publish({30});
    EXPECT_EQ(client->error_code, 0);
    EXPECT_EQ(client->error_message, nullptr);
    handler.act = [](zamc_client *) { return 0; };
    publish({31});
    EXPECT_EQ(peer.wait_for_reply(31), reply(31));
}

TEST_F(Replies, AnErrorWithoutTextHasNoMessage) {
    handler.act = [](zamc_client *owner) {
        zamc_error_set(owner, 17, nullptr);
        return -1;
    };
    publish({30});
    EXPECT_EQ(
        peer.wait_for_reply(30),
        reply(
            30,
            R"({"ietf-netconf:rpc-error":{"error-type":"application","error-tag":"operation-failed","error-app-tag":"17"}})"));
}

TEST_F(Replies, AnErrorTextIsNoFormatAndSurvivesAsItIs) {
    handler.act = [](zamc_client *owner) {
        zamc_error_set(owner, 17, "%s", "100%s \"sure\" %n <&>");
        return -1;
    };
    publish({30});
    EXPECT_EQ(peer.wait_for_reply(30), reply(30, error_json("17", "100%s \\\"sure\\\" %n <&>")));
}

TEST_F(Replies, AnErrorGoesOutInTheClientsEncoding) {
    ASSERT_EQ(set_attr<uint32_t>(ZAMC_ATTR_ENCODE, 1), 0);
    handler.act = [](zamc_client *) { return -1; };
    publish({30});
    EXPECT_EQ(peer.wait_for_reply(30),
              reply(30,
                    "<rpc-error xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"><error-type>application</error-type>"
                    "<error-tag>operation-failed</error-tag><error-app-tag>4294967293</error-app-tag>"
                    "<error-message>Service process failed</error-message></rpc-error>",
                    1));
}

TEST_F(Replies, SettingAnErrorReplacesTheOneBefore) {
    zamc_error_set(client, 1, "first");
    zamc_error_set(client, 2, "second %d", 2);
    EXPECT_EQ(client->error_code, 2);
    EXPECT_STREQ(client->error_message, "second 2");
    zamc_error_set(client, 3, nullptr);
    EXPECT_EQ(client->error_message, nullptr);
    zamc_error_set(client, 0, nullptr);
    EXPECT_EQ(client->error_code, 0);
    zamc_error_set(nullptr, 1, "nobody");
}

TEST_F(Replies, WithoutMemoryForItsTextAnErrorKeepsItsCode) {
    zamc_error_set(client, 1, "old");
    heap.fail_at(1);
    zamc_error_set(client, 2, "new");
    EXPECT_EQ(client->error_code, 2);
    EXPECT_EQ(client->error_message, nullptr);
}

TEST_F(Replies, AnErrorThatCannotBeBuiltIsForgottenAndNotSent) {
    zamc_error_set(client, 17, "lost");
    ASSERT_EQ(client::_append_rpc_seq(&client->wait_replies, 30), 0);
    ly_ctx *context = std::exchange(client::_clients_ctx()->context, nullptr);
    EXPECT_EQ(client::_send_reply_error(client, 30), -1);
    client::_clients_ctx()->context = context;
    EXPECT_EQ(log.count(3, "Create error reply not successful."), 1);
    EXPECT_EQ(client->error_code, 0);
    EXPECT_EQ(client->error_message, nullptr);
    EXPECT_EQ(client->wait_replies.count, 1u); // still owed
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

// The numbers that are owed an answer

TEST_F(Replies, TheFirstOfANumberIsRemoved) {
    zam_dlist list;
    zam_dlist_init(&list);
    for (const uint32_t seq : {4u, 5u, 6u, 5u, 7u})
        EXPECT_EQ(client::_append_rpc_seq(&list, seq), 0);
    const auto numbers = [&list] {
        std::vector<uint32_t> found;
        for (const zam_dlist_node *node = list.head; node; node = node->next)
            found.push_back(reinterpret_cast<const client::rpc_wait *>(node)->seq);
        return found;
    };
    client::_remove_rpc_seq(&list, 8);
    EXPECT_THAT(numbers(), ElementsAre(4, 5, 6, 5, 7));
    client::_remove_rpc_seq(&list, 5);
    EXPECT_THAT(numbers(), ElementsAre(4, 6, 5, 7));
    for (const uint32_t seq : {7u, 4u, 5u, 6u, 6u})
        client::_remove_rpc_seq(&list, seq);
    EXPECT_THAT(numbers(), IsEmpty());
}

TEST_F(Replies, WithoutMemoryANumberIsNotAdded) {
    heap.fail_at(1);
    EXPECT_EQ(client::_append_rpc_seq(&client->wait_replies, 30), -1);
    EXPECT_EQ(log.count(0, "Malloc for rpc wait node fail."), 1);
    EXPECT_EQ(client->wait_replies.count, 0u);
}

// Answers that come later

TEST_F(Replies, ADeferredRequestIsAnsweredWhenTheApplicationSaysSo) {
    defer();
    publish({30});
    EXPECT_THAT(sent_so_far(), IsEmpty());
    EXPECT_EQ(zamc_reply_asyn(client, 0, nullptr), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30)));
}

TEST_F(Replies, ASecondAnswerIsRefusedWhenNothingElseIsPending) {
    defer();
    publish({30});
    EXPECT_EQ(zamc_reply_asyn(client, 30, nullptr), 0);
    EXPECT_EQ(zamc_reply_asyn(client, 30, nullptr), -1);
    EXPECT_EQ(log.count(3, "Invalid reply message.(msg:null)"), 1);
    EXPECT_EQ(zamc_reply_asyn(client, 0, Payload{R"({"a":1})"}), -1);
    EXPECT_EQ(log.count(3, R"(Invalid reply message.(msg:{"a":1}))"), 1);
    EXPECT_EQ(zamc_reply_asyn(client, 0, Payload{""}), -1);
    EXPECT_EQ(log.count(3, "Invalid reply message.(msg:null)"), 2);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30)));
}

TEST_F(Replies, AHandlerThatAnswersByItselfIsNotAnsweredForAgain) {
    for (const int32_t result : {0, -1, int32_t{ZAMC_REPLY_LATER}}) {
        handler.act = [&](zamc_client *owner) {
            EXPECT_EQ(zamc_reply_asyn(owner, zamc_request_seq(owner), nullptr), 0);
            return result;
        };
        publish({30});
        EXPECT_EQ(client->error_code, 0);
        EXPECT_EQ(client->wait_replies.count, 0u);
    }
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30), reply(30), reply(30)));
}

TEST_F(Replies, DeferredAnswersGoByNumberOrToTheOldest) {
    defer();
    publish({30, 31, 32, 33});
    EXPECT_EQ(zamc_reply_asyn(client, 32, nullptr), 0);
    EXPECT_EQ(zamc_reply_asyn(client, 0, nullptr), 0);
    EXPECT_EQ(zamc_reply_asyn(client, 33, nullptr), 0);
    EXPECT_EQ(zamc_reply_asyn(client, 0, nullptr), 0);
    EXPECT_EQ(zamc_reply_asyn(client, 0, nullptr), -1);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(32), reply(30), reply(33), reply(31)));
}

TEST_F(Replies, ANumberThatIsNotOwedIsAnsweredAllTheSameWhileAnotherIs) {
    defer();
    publish({30});
    EXPECT_EQ(zamc_reply_asyn(client, 99, nullptr), 0);
    EXPECT_EQ(client->wait_replies.count, 1u);
    EXPECT_EQ(zamc_reply_asyn(client, 0, nullptr), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(99), reply(30)));
}

TEST_F(Replies, ADeferredAnswerCarriesItsOutput) {
    defer();
    publish({30, 31});
    EXPECT_EQ(zamc_reply_asyn(client, 30, Payload{R"({"a": 1e3,"b":[]})"}), 0);
    EXPECT_EQ(zamc_reply_asyn(client, 31, Payload{"<text xmlns=\"urn:test:main\">x</text>", 1}), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30, R"({"orvel-zam-client:publish":{"data":{"a": 1e3,"b":[]}}})"),
                                           reply(31,
                                                 std::string{"<publish xmlns=\""} + client_xmlns +
                                                     "\"><data><text xmlns=\"urn:test:main\">x</text></data></publish>",
                                                 1)));
}

TEST_F(Replies, AnEmptyOutputIsAnEmptyData) {
    defer();
    publish({30});
    EXPECT_EQ(zamc_reply_asyn(client, 30, Payload{""}), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30, R"({"orvel-zam-client:publish":{"data":{}}})")));
}

TEST_F(Replies, AnErrorRecordedBeforeADeferredAnswerTakesItsPlace) {
    defer();
    publish({30, 31});
    zamc_error_set(client, 17, "late");
    EXPECT_EQ(zamc_reply_asyn(client, 30, Payload{R"({"a":1})"}), 0);
    EXPECT_EQ(zamc_reply_asyn(client, 31, nullptr), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30, error_json("17", "late")), reply(31)));
}

TEST_F(Replies, OutputThatCannotBeBuiltMakesAnErrorAnswer) {
    defer();
    publish({30, 31});
    EXPECT_EQ(zamc_reply_asyn(client, 30, Payload{"{}", 0}), 0);
    EXPECT_EQ(zamc_reply_asyn(client, 31, Payload{"<a><b></a>", 1}), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30, service_error), reply(31, service_error)));
    EXPECT_EQ(client->wait_replies.count, 0u);
    EXPECT_EQ(client->error_code, 0);
}

TEST_F(Replies, NullAndInvalidArgumentsAreRefused) {
    char text[] = "x";
    const zamc_bytes negative{2, -1, text};
    const zamc_bytes without_data{2, 1, nullptr};
    defer();
    publish({30});
    EXPECT_EQ(zamc_reply_asyn(nullptr, 30, nullptr), -3);
    EXPECT_EQ(zamc_reply_asyn(client, 30, &negative), -3);
    EXPECT_EQ(zamc_reply_asyn(client, 30, &without_data), -3);
    EXPECT_EQ(client->wait_replies.count, 1u);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Replies, AnAnswerWithInputLeftAsksForARewake) {
    Handler other;
    zamc_set_message_recv_cb(client, Handler::message, &other);
    defer();
    publish({30, 31});
    peer.answer_with([](const Frame &) { return std::vector<Frame>{}; });
    peer.send_raw(encode_all({{Kind::other2, 0, 2, "left by the wait"}, reply(1, "answer")}));
    zamc_bytes *bytes = nullptr;
    ASSERT_EQ(zamc_send_rpc_sync(client, Payload{"x"}, &bytes, 10000), 0);
    zamc_free_bytes(bytes);
    const int before = rewakes_so_far();
    EXPECT_EQ(zamc_reply_asyn(client, 30, nullptr), 0);
    EXPECT_EQ(rewakes_so_far(), before + 1);
    peer.send(rewake());
    run_until_calls(other, 1);
    const int after = rewakes_so_far();
    EXPECT_EQ(zamc_reply_asyn(client, 31, nullptr), 0);
    EXPECT_EQ(rewakes_so_far(), after); // nothing is left any more
}

TEST_F(Replies, TheNumberOfARequestIsKnownInItsHandlerOnly) {
    std::vector<uint32_t> seen;
    handler.act = [&](zamc_client *owner) {
        seen.push_back(zamc_request_seq(owner));
        if (seen.size() == 1) {
            peer.send(request(31, Publication{}.json()));
            zamc_run(owner, 0); // another request is handled inside this one
            seen.push_back(zamc_request_seq(owner));
        }
        return 0;
    };
    publish({30});
    EXPECT_THAT(seen, ElementsAre(30, 31, 30));
    EXPECT_EQ(zamc_request_seq(client), 0u);
    EXPECT_EQ(zamc_request_seq(nullptr), 0u);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(31), reply(30)));
}

TEST_F(Replies, AHandlerMayAnswerByItselfAndReturnLater) {
    handler.act = [](zamc_client *owner) {
        EXPECT_EQ(zamc_reply_asyn(owner, zamc_request_seq(owner), nullptr), 0);
        return ZAMC_REPLY_LATER;
    };
    publish({30});
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30)));
}

// Answers and the end of their connection

TEST_F(Replies, AnswersOwedAreDroppedWithTheirConnection) {
    defer();
    publish({30, 31});
    connect();
    EXPECT_EQ(zamc_reply_asyn(client, 30, nullptr), -1);
    EXPECT_EQ(zamc_reply_asyn(client, 0, nullptr), -1);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Replies, AnswersOwedAreDroppedWhenTheServerCloses) {
    defer();
    publish({30});
    peer.drop_connection();
    EXPECT_EQ(zamc_run(client, 10000), -1);
    EXPECT_EQ(zamc_reply_asyn(client, 30, nullptr), -1);
}

TEST_F(Replies, AHandlerThatDisconnectsLeavesNobodyToAnswer) {
    for (const int32_t result : {0, -1, 50000}) {
        handler.act = [result](zamc_client *owner) {
            zamc_disconnect(owner);
            return result;
        };
        publish({30});
        EXPECT_EQ(zamc_run(client, 0), -1);
        EXPECT_EQ(client->wait_replies.count, 0u);
        EXPECT_EQ(client->error_code, 0);
        connect();
    }
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Replies, AHandlerThatConnectsAnewAnswersNothingOnTheNewConnection) {
    for (const int32_t result : {0, -1, 50000}) {
        handler.act = [this, result](zamc_client *owner) {
            EXPECT_GE(zamc_connect(owner, peer.url().c_str()), 0);
            if (result == -1) zamc_error_set(owner, 17, "for nobody");
            return result;
        };
        publish({30});
        EXPECT_EQ(zamc_run(client, 0), 0);
        EXPECT_EQ(client->error_code, 0);
        EXPECT_EQ(zamc_reply_asyn(client, 0, nullptr), -1);
    }
    EXPECT_THAT(sent_so_far(), IsEmpty());
    EXPECT_EQ(peer.connections(), 4);
}

TEST_F(Replies, AHandlerMayFreeTheClient) {
    handler.act = [](zamc_client *owner) {
        zamc_error_set(owner, 17, "for nobody");
        zamc_client_free(owner);
        return -1;
    };
    peer.send_raw(encode_all({request(30, Publication{}.json()), request(31, Publication{}.json())}));
    int32_t result = 0;
    while (handler.calls.empty())
        result = zamc_run(client, 1000);
    client = nullptr;
    EXPECT_EQ(result, -1);
    EXPECT_EQ(handler.calls.size(), 1u);
}

TEST_F(Replies, AHandlerInsideANestedRunMayFreeTheClient) {
    Handler outer;
    outer.act = [this](zamc_client *owner) {
        peer.send(request(30, Publication{}.json()));
        while (handler.calls.empty())
            EXPECT_TRUE(zamc_run(owner, 1000) == -1 || handler.calls.empty());
        return 0;
    };
    handler.act = [](zamc_client *owner) {
        zamc_client_free(owner);
        return 0;
    };
    zamc_set_message_recv_cb(client, Handler::message, &outer);
    peer.send_raw(encode({Kind::other2, 0, 2, "start"}));
    int32_t result = 0;
    while (outer.calls.empty())
        result = zamc_run(client, 1000);
    client = nullptr;
    EXPECT_EQ(result, -1);
    EXPECT_EQ(handler.calls.size(), 1u);
}

} // namespace
} // namespace zam::test
