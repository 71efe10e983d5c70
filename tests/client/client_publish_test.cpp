// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "client_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// One subscription of each type: slot 0 config-change, 1 status-query, 2 operation, 3 config-change without list-more.
class Publish : public ConnectedTest {
protected:
    void SetUp() override {
        ConnectedTest::SetUp();
        for (const zamc_sub_node &node :
             {config_sub("/test-main:top/text", 5, 0, &handler), status_sub("/test-main:top/reading", &handler),
              operation_sub("/test-main:run", &handler), brief_sub("/test-main:top/number", 6, 0, &handler)}) {
            ASSERT_EQ(zamc_subscribe(client, &node), 0);
        }
    }

    static Publication status() {
        Publication publication;
        publication.pub_type = "status-query";
        publication.target = "/test-main:top/reading[1]";
        publication.priv_data = "1";
        publication.priority = publication.modify_type = publication.scene = {};
        return publication;
    }
    static Publication operation(const std::string &content) {
        Publication publication = status();
        publication.pub_type = "operation";
        publication.target = "/test-main:run";
        publication.priv_data = "2";
        publication.content = content;
        return publication;
    }
    // The answer to a publication.
    Frame ask(const Publication &publication) { return ask(publication.json()); }
    Frame ask(const std::string &payload, uint32_t encoding = 2) {
        const uint32_t seq = next_++;
        peer.send(request(seq, payload, encoding));
        std::optional<Frame> answer;
        run_until([&] {
            answer = peer.wait_for([seq](const Frame &frame) { return frame.kind == Kind::reply && frame.seq == seq; },
                                   std::chrono::milliseconds{0});
            return answer.has_value();
        });
        return answer ? Frame{answer->kind, 0, answer->encoding, answer->payload} : Frame{};
    }
    // One that must stay without an answer: the next one is answered, and nothing else was.
    void expect_no_answer(const std::string &payload) {
        const uint32_t seq = next_++;
        peer.send(request(seq, payload));
        EXPECT_EQ(ask(finish_json), reply(0));
        for (const Frame &frame : sent_so_far())
            EXPECT_NE(frame.seq, seq);
        EXPECT_EQ(client->wait_replies.count, 1u);
    }
    // What a config-change handler is told of a publication.
    std::string told(const std::string &scene, const std::string &modify_type) {
        Publication publication;
        publication.scene = scene;
        publication.modify_type = modify_type;
        EXPECT_EQ(ask(publication), reply(0));
        return handler.calls.back();
    }

    Handler handler;

private:
    uint32_t next_ = 100;
};

// Changes of the configuration

TEST_F(Publish, AConfigChangeReachesItsHandlerAndIsAnswered) {
    EXPECT_EQ(ask(Publication{}), reply(0));
    EXPECT_THAT(handler.calls, ElementsAre("config 129 5 0 /test-main:top/text"));
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_PEER_SESSION_ID), 9u);
    EXPECT_EQ(client->wait_replies.count, 0u);
}

TEST_F(Publish, AConfigChangeReachesAHandlerWithoutListMore) {
    Publication publication;
    publication.priv_data = "3";
    publication.list_more = "true";
    EXPECT_EQ(ask(publication), reply(0));
    EXPECT_THAT(handler.calls, ElementsAre("brief 129 5 /test-main:top/text"));
}

TEST_F(Publish, TheMaskJoinsSceneAndModifyType) {
    EXPECT_EQ(told("normal", "1"), "config 129 5 0 /test-main:top/text");
    EXPECT_EQ(told("replay", "1"), "config 257 5 0 /test-main:top/text");
    EXPECT_EQ(told("rollback", "2"), "config 514 5 0 /test-main:top/text");
    EXPECT_EQ(told("normal", "15"), "config 143 5 0 /test-main:top/text");
    EXPECT_EQ(told("normal", "8"), "config 136 5 0 /test-main:top/text");
}

TEST_F(Publish, ASceneOfReplayWithoutModifyTypeIsAnUpdate) {
    EXPECT_EQ(told("replay", "0"), "config 260 5 0 /test-main:top/text"); // 0x104
}

TEST_F(Publish, WithoutASceneOnlyTheOperationBitsCount) {
    EXPECT_EQ(told("", "18"), "config 2 5 0 /test-main:top/text"); // of 0x12 only 0x2
    EXPECT_EQ(told("", "4294967280"), "config 4 5 0 /test-main:top/text");
}

TEST_F(Publish, ListMoreIsOneOnlyWhenItIsTrue) {
    Publication publication;
    for (const auto &[text, flag] : {std::pair{"true", "1"}, {"false", "0"}, {"", "0"}}) {
        publication.list_more = text;
        EXPECT_EQ(ask(publication), reply(0));
        EXPECT_EQ(handler.calls.back(), std::string{"config 129 5 "} + flag + " /test-main:top/text");
    }
}

TEST_F(Publish, ThePriorityMayTakeAllItsBits) {
    Publication publication;
    publication.priority = "4294967295";
    EXPECT_EQ(ask(publication), reply(0));
    EXPECT_EQ(handler.calls.back(), "config 129 4294967295 0 /test-main:top/text");
}

TEST_F(Publish, OnlyTheFirstPublicationCounts) {
    const std::string payload =
        R"({"orvel-zam-client:publish":{"pub-type":"config-change","from-session":9,"publications":{"publication":[)"
        R"({"target":"/first","priv-data":"0","priority":1,"modify-type":1},)"
        R"({"target":"/second","priv-data":"3","priority":2,"modify-type":2}]}}})";
    EXPECT_EQ(ask(payload), reply(0));
    EXPECT_THAT(handler.calls, ElementsAre("config 1 1 0 /first"));
}

TEST_F(Publish, AnyFailureOfAHandlerIsReportedAsOne) {
    for (const int32_t result : {1, -1, -4, 49999, 50001}) {
        handler.act = [result](zamc_client *) { return result; };
        EXPECT_EQ(ask(Publication{}), reply(0, service_error)) << result;
        EXPECT_EQ(ask(status()), reply(0, service_error)) << result;
        EXPECT_EQ(ask(operation("{}")), reply(0, service_error)) << result;
    }
    EXPECT_EQ(client->error_code, 0);
}

TEST_F(Publish, AConfigChangeThatLacksSomethingIsAMessageError) {
    for (std::string Publication::*member : {&Publication::target, &Publication::modify_type, &Publication::priority}) {
        Publication publication;
        publication.*member = {};
        EXPECT_EQ(ask(publication), reply(0, message_error));
    }
    EXPECT_THAT(handler.calls, IsEmpty());
}

TEST_F(Publish, APublicationOfNothingIsAMessageError) {
    for (const char *type : {"config-change", "status-query", "operation"}) {
        Publication publication;
        publication.pub_type = type;
        publication.empty = true;
        EXPECT_EQ(ask(publication), reply(0, message_error)) << type;
    }
    EXPECT_EQ(ask(R"({"orvel-zam-client:publish":{"pub-type":"config-change","from-session":9}})"),
              reply(0, message_error));
}

// The subscriber

TEST_F(Publish, AnIndexBeyondTheSubscriptionsIsNotProcessed) {
    for (const char *index : {"4", "16", "4294967295", "18446744073709551615"}) {
        for (Publication publication : {Publication{}, status(), operation("{}")}) {
            publication.priv_data = index;
            log.clear();
            EXPECT_EQ(ask(publication), reply(0, unprocessed_error));
            EXPECT_EQ(log.count(3, std::string{"Get suber not successful by index ("} + index + ")."), 1);
        }
    }
    EXPECT_THAT(handler.calls, IsEmpty());
}

TEST_F(Publish, ASubscriberOfAnotherTypeDoesNotProcessIt) {
    const std::pair<Publication, std::vector<const char *>> cases[] = {
        {Publication{}, {"1", "2"}}, {status(), {"0", "2", "3"}}, {operation("{}"), {"0", "1", "3"}}};
    suber_at(client, 1)->config_handler = suber_at(client, 2)->config_handler = Handler::config; // the type decides
    log.clear();
    for (auto [publication, others] : cases) {
        for (const char *index : others) {
            publication.priv_data = index;
            EXPECT_EQ(ask(publication), reply(0, unprocessed_error));
        }
    }
    for (const auto &line : log.lines())
        EXPECT_NE(line.level, 3) << line.text; // nothing is logged for a mismatch
    EXPECT_THAT(handler.calls, IsEmpty());
}

TEST_F(Publish, TheIndexIsCutToThirtyTwoBits) {
    Publication publication;
    publication.priv_data = "4294967299"; // 2^32 + 3
    EXPECT_EQ(ask(publication), reply(0));
    EXPECT_THAT(handler.calls, ElementsAre("brief 129 5 /test-main:top/text"));
    publication.priv_data = "4294967304";
    EXPECT_EQ(ask(publication), reply(0, unprocessed_error));
    EXPECT_EQ(log.count(3, "Get suber not successful by index (4294967304)."), 1); // the whole value
}

TEST_F(Publish, WithoutAnIndexItIsNotProcessed) {
    for (Publication publication : {Publication{}, status(), operation("{}")}) {
        publication.priv_data = {};
        log.clear();
        EXPECT_EQ(ask(publication), reply(0, unprocessed_error));
        EXPECT_EQ(log.count(3, "Get publication's 'priv-data' node not successful."), 1);
    }
}

TEST_F(Publish, WithoutAnySubscriptionItIsNotProcessed) {
    zam_vector *subers = std::exchange(client->subers, nullptr);
    EXPECT_EQ(ask(Publication{}), reply(0, unprocessed_error));
    client->subers = subers;
    EXPECT_EQ(log.count(3, "Get suber not successful by index (0)."), 1);
}

TEST_F(Publish, ASubscriptionWithoutHandlerDoesNotProcessIt) {
    for (uint32_t i = 0; i < 4; ++i) {
        suber_at(client, i)->config_handler = nullptr;
        if (i == 1 || i == 2) suber_at(client, i)->status_handler = nullptr;
    }
    Publication brief;
    brief.priv_data = "3";
    for (const Publication &publication : {Publication{}, brief, status(), operation("{}")})
        EXPECT_EQ(ask(publication), reply(0, unprocessed_error));
}

TEST_F(Publish, AHandlerMayUnsubscribeItself) {
    handler.act = [this](zamc_client *owner) {
        const zamc_sub_node node = config_sub("/test-main:top/text", 5, 0, &handler);
        EXPECT_EQ(zamc_unsubscribe(owner, &node), 0);
        return 0;
    };
    EXPECT_EQ(ask(Publication{}), reply(0));
    EXPECT_EQ(statuses(client)[0], 0x201u);
}

TEST_F(Publish, AHandlerMayMakeSynchronousCalls) {
    handler.act = [](zamc_client *owner) {
        zamc_bytes *bytes = nullptr;
        EXPECT_EQ(zamc_diff(owner, "/test-main:top", 0, &bytes), 0);
        EXPECT_EQ(bytes, nullptr);
        return 0;
    };
    EXPECT_EQ(ask(Publication{}), reply(0));
}

// The session behind it

TEST_F(Publish, WithoutFromSessionThePublicationGoesOn) {
    Publication publication;
    publication.from_session = {};
    EXPECT_EQ(ask(publication), reply(0));
    EXPECT_EQ(log.count(3, "Rpc get from-session leaf not successful."), 1);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_PEER_SESSION_ID), 0u);
    EXPECT_EQ(handler.calls.size(), 1u);
}

TEST_F(Publish, TheLargestSessionIsKept) {
    Publication publication;
    publication.from_session = "4294967295";
    EXPECT_EQ(ask(publication), reply(0));
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_PEER_SESSION_ID), 4294967295u);
}

TEST_F(Publish, WithoutATypeItStaysUnanswered) {
    Publication publication;
    publication.pub_type = {};
    expect_no_answer(publication.json());
    EXPECT_EQ(log.count(3, "Unknown publish type 'null'."), 1);
    EXPECT_THAT(handler.calls, IsEmpty());
}

// Status queries

TEST_F(Publish, AStatusQueryIsAnsweredWithTheHandlersOutput) {
    handler.output = R"({"at": 1,"unknown":[1,"\"x\\"]})";
    EXPECT_EQ(ask(status()), reply(0, R"({"orvel-zam-client:publish":{"data":{"at": 1,"unknown":[1,"\"x\\"]}}})"));
    EXPECT_THAT(handler.calls, ElementsAre("status /test-main:top/reading[1]"));
    EXPECT_EQ(client->wait_replies.count, 0u);
}

TEST_F(Publish, AStatusAnswerGoesOutInTheFormatOfItsOutput) {
    handler.output = "<at>1</at>";
    handler.output_format = 1;
    EXPECT_EQ(ask(status()),
              reply(0, std::string{"<publish xmlns=\""} + client_xmlns + "\"><data><at>1</at></data></publish>", 1));
}

TEST_F(Publish, AStatusQueryWithoutOutputIsAnsweredWithEmptyData) {
    EXPECT_EQ(ask(status()), reply(0, R"({"orvel-zam-client:publish":{"data":{}}})"));
    ASSERT_EQ(set_attr<uint32_t>(ZAMC_ATTR_ENCODE, 1), 0);
    EXPECT_EQ(ask(status()), reply(0, std::string{"<publish xmlns=\""} + client_xmlns + "\"><data/></publish>", 1));
}

TEST_F(Publish, OutputThatCannotBeBuiltIsAMessageError) {
    handler.output = "x";
    for (const uint32_t format : {0u, 1u, 3u}) {
        handler.output_format = format;
        EXPECT_EQ(ask(status()), reply(0, message_error)) << format;
        EXPECT_EQ(ask(operation("{}")), reply(0, message_error)) << format;
    }
    EXPECT_EQ(client->wait_replies.count, 0u);
}

TEST_F(Publish, AnErrorWinsOverAnOutputThatWasMadeAllTheSame) {
    handler.output = R"({"a":1})";
    handler.act = [](zamc_client *owner) {
        zamc_error_set(owner, 17, "no");
        return 0;
    };
    EXPECT_EQ(ask(status()), reply(0, error_json("17", "no")));
    EXPECT_EQ(ask(operation("{}")), reply(0, error_json("17", "no")));
}

TEST_F(Publish, AStatusQueryWithoutTargetIsAMessageError) {
    Publication publication = status();
    publication.target = {};
    EXPECT_EQ(ask(publication), reply(0, message_error));
    EXPECT_THAT(handler.calls, IsEmpty());
}

TEST_F(Publish, ADeferredStatusQueryIsAnsweredLaterAndItsOutputFreed) {
    handler.output = R"({"dropped":1})";
    handler.act = [](zamc_client *) { return ZAMC_REPLY_LATER; };
    peer.send(request(30, status().json()));
    run_until_calls(handler, 1);
    EXPECT_THAT(sent_so_far(), IsEmpty());
    EXPECT_EQ(zamc_reply_asyn(client, 30, Payload{R"({"later":1})"}), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30, R"({"orvel-zam-client:publish":{"data":{"later":1}}})")));
}

// Operations

TEST_F(Publish, AnOperationGetsItsInputAndAnswersWithItsOutput) {
    handler.output = R"({"result":"fine"})";
    EXPECT_EQ(ask(operation(R"({"test-main:run":{"speed":3}})")),
              reply(0, R"({"orvel-zam-client:publish":{"data":{"result":"fine"}}})"));
    EXPECT_THAT(handler.calls, ElementsAre(R"(operation 2 {"test-main:run":{"speed":3}})"));
}

TEST_F(Publish, AnOperationInXmlIsHandedOutInTheClientsEncoding) {
    ASSERT_EQ(set_attr<uint32_t>(ZAMC_ATTR_ENCODE, 1), 0);
    const std::string run = R"(<run xmlns="urn:test:main"><speed>3</speed></run>)";
    const std::string payload = std::string{"<publish xmlns=\""} + client_xmlns +
                                "\"><pub-type>operation</pub-type><from-session>9</from-session><publications>"
                                "<publication><target>/test-main:run</target><priv-data>2</priv-data><content>" +
                                run + "</content></publication></publications></publish>";
    EXPECT_EQ(ask(payload, 1), reply(0, std::string{"<publish xmlns=\""} + client_xmlns + "\"><data/></publish>", 1));
    EXPECT_THAT(handler.calls, ElementsAre("operation 1 " + run));
}

TEST_F(Publish, AnInputOfUnknownNodesIsHandedOutAsItCame) {
    EXPECT_EQ(ask(operation(R"({"other:run":{"name":"q\"w\\e","sub":{"a":"b"}}})")),
              reply(0, R"({"orvel-zam-client:publish":{"data":{}}})"));
    EXPECT_THAT(handler.calls, ElementsAre(R"(operation 2 {"other:run":{"name":"q\"w\\e","sub":{"a":"b"}}})"));
}

TEST_F(Publish, AnOperationWithEmptyContentIsHandledLikeAnyOther) {
    EXPECT_EQ(ask(operation("{}")), reply(0, R"({"orvel-zam-client:publish":{"data":{}}})"));
    EXPECT_THAT(handler.calls, ElementsAre("operation 2 {}"));
    ASSERT_EQ(set_attr<uint32_t>(ZAMC_ATTR_ENCODE, 1), 0);
    EXPECT_EQ(ask(operation("{}")).payload, std::string{"<publish xmlns=\""} + client_xmlns + "\"><data/></publish>");
    EXPECT_THAT(handler.calls, ElementsAre("operation 2 {}", "operation 1 "));
}

TEST_F(Publish, AnOperationWithoutContentIsAMessageError) {
    EXPECT_EQ(ask(operation("")), reply(0, message_error));
    EXPECT_THAT(handler.calls, IsEmpty());
}

TEST_F(Publish, ADeferredOperationIsAnsweredLater) {
    handler.act = [](zamc_client *) { return ZAMC_REPLY_LATER; };
    peer.send(request(30, operation("{}").json()));
    run_until_calls(handler, 1);
    EXPECT_EQ(zamc_reply_asyn(client, 0, nullptr), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(reply(30)));
}

TEST_F(Publish, EachAllocationThatFailsIsAnsweredWithAnErrorOrTheResult) {
    set_attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT, 200);
    handler.output = R"({"result":"fine"})";
    for (const Publication &publication : {status(), operation(R"({"test-main:run":{"speed":3}})")}) {
        for (uint64_t n = 1;; ++n) {
            const std::string bytes = encode(request(30, publication.json()));
            ASSERT_EQ(zam_connector_reentry(client->connector, bytes.data(), static_cast<uint32_t>(bytes.size())), 0);
            heap.fail_at(n);
            client::_on_message_receive(client->proactor, EVENT_MESSAGE_RECV, client->connector);
            const bool failed = heap.failed();
            heap.fail_at(0);
            client::_on_message_receive(client->proactor, EVENT_MESSAGE_RECV, client->connector);
            if (!failed) break;
            ASSERT_LT(n, 1000u);
        }
    }
    EXPECT_GE(log.count(3, "Rpc set peer session attr not successful(-2)."), 1);
}

} // namespace
} // namespace zam::test
