// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "client/client_ctx_internal.h"
#include "client_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *busy_activating = "Client is in activate/deactivate process, please try activate again later.";
constexpr const char *busy_deactivating =
    "Client is in activate/deactivate process, please try deactivate again later.";

const std::string activate_direct = R"({"orvel-zam-server:activate":{"mode":"direct"}})";
const std::string activate_replay = R"({"orvel-zam-server:activate":{"mode":"replay"}})";
const std::string deactivate_json = R"({"orvel-zam-server:deactivate":{}})";

std::string entry(const std::string &target, const std::string &priority, const std::string &priv_data = {}) {
    std::string text = R"({"target":")" + target + R"(","sub-type":"config-change","priority":)" + priority +
                       R"(,"filter-mask":"config-create config-delete config-update config-move scene-normal")";
    if (!priv_data.empty()) text += R"(,"priv-data":")" + priv_data + '"';
    return text + "}";
}
std::string subscribe_json(const std::string &entries) {
    return R"({"orvel-zam-server:subscribe":{"subscriptions":{"subscription":[)" + entries + "]}}}";
}
std::string unsubscribe_json(const std::string &entries) {
    return R"({"orvel-zam-server:unsubscribe":{"subscriptions":{"subscription":[)" + entries + "]}}}";
}

class Activate : public ConnectedTest {
protected:
    void subscribe(const char *target, uint32_t priority = 5) {
        const zamc_sub_node node = config_sub(target, priority, 0, &handler);
        ASSERT_EQ(zamc_subscribe(client, &node), 0);
    }
    void unsubscribe(const char *target, uint32_t priority = 5) {
        const zamc_sub_node node = config_sub(target, priority, 0, &handler);
        ASSERT_EQ(zamc_unsubscribe(client, &node), 0);
    }
    int32_t activate(int32_t replay = 0) { return zamc_activate(client, replay, Handler::finish, &handler); }
    // Lets the server report the end; the answer that it gets.
    Frame finish(const std::string &payload = finish_json) {
        const uint32_t seq = next_++;
        peer.send(request(seq, payload));
        std::optional<Frame> answer;
        run_until([&] {
            answer = peer.wait_for([seq](const Frame &frame) { return frame.kind == Kind::reply && frame.seq == seq; },
                                   std::chrono::milliseconds{0});
            return answer.has_value();
        });
        return answer ? Frame{answer->kind, 0, answer->encoding, answer->payload} : Frame{};
    }
    void activate_fully() {
        ASSERT_EQ(activate(), 0);
        ASSERT_EQ(finish(), reply(0));
    }
    // Refuses requests that hold the text.
    void refuse(const std::string &holding) {
        peer.answer_with([holding](const Frame &frame) {
            if (frame.kind == Kind::request && frame.payload.find(holding) != std::string::npos)
                return std::vector{Peer::reply_to(frame, service_error)};
            return Peer::obliging(frame);
        });
    }
    // The payloads of our requests since the last call.
    std::vector<std::string> requests() {
        std::vector<std::string> payloads;
        const std::vector<Frame> frames = sent_so_far();
        for (; seen_ < frames.size(); ++seen_) {
            if (frames[seen_].kind == Kind::request) payloads.push_back(frames[seen_].payload);
        }
        return payloads;
    }

    Handler handler;

private:
    uint32_t next_ = 100;
    size_t seen_ = 0;
};

TEST_F(Activate, SubscriptionsGoOutThenTheActivationAndTheFinishMakesThemActive) {
    subscribe("/test-main:top/text", 5);
    subscribe("/test-main:top/number", 6);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}, {1, 0x101}}));
    EXPECT_EQ(activate(), 0);
    EXPECT_THAT(requests(), ElementsAre(subscribe_json(entry("/test-main:top/text", "5", "0") + "," +
                                                       entry("/test-main:top/number", "6", "1")),
                                        activate_direct));
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x104}, {1, 0x104}}));
    EXPECT_THAT(handler.calls, IsEmpty());
    EXPECT_EQ(finish(), reply(0));
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}, {1, 0x008}}));
    EXPECT_THAT(handler.calls, ElementsAre("finish 1 0"));
    EXPECT_EQ(client->activation_busy, 0);
}

TEST_F(Activate, EveryTypeOfSubscriptionGoesOutUnderItsName) {
    const zamc_sub_node nodes[] = {brief_sub("/test-main:top/text", 5, 0x381, &handler),
                                   status_sub("/test-main:top/reading", &handler),
                                   operation_sub("/test-main:run", &handler)};
    for (const zamc_sub_node &node : nodes)
        ASSERT_EQ(zamc_subscribe(client, &node), 0);
    EXPECT_EQ(activate(), 0);
    EXPECT_THAT(
        requests(),
        ElementsAre(
            subscribe_json(R"({"target":"/test-main:top/text","sub-type":"config-change","priority":5,)"
                           R"("filter-mask":"config-create scene-normal scene-cfgr scene-rollback","priv-data":"0"},)"
                           R"({"target":"/test-main:top/reading","sub-type":"status-query","priv-data":"1"},)"
                           R"({"target":"/test-main:run","sub-type":"operation","priv-data":"2"})"),
            activate_direct));
}

TEST_F(Activate, ReplayIsAskedForByName) {
    EXPECT_EQ(activate(1), 0);
    EXPECT_EQ(finish(), reply(0));
    EXPECT_EQ(activate(-1), 0);
    EXPECT_THAT(requests(), ElementsAre(activate_replay, activate_replay));
}

TEST_F(Activate, WithoutChangesOnlyTheActivationIsSentAndActiveOnesStayActive) {
    subscribe("/test-main:top/text");
    activate_fully();
    requests();
    EXPECT_EQ(activate(), 0);
    EXPECT_THAT(requests(), ElementsAre(activate_direct));
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}}));
    EXPECT_EQ(finish(), reply(0));
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}}));
}

TEST_F(Activate, WhatWasNeverSubscribedIsNotSent) {
    unsubscribe("/test-main:top/text");
    EXPECT_EQ(activate(), 0);
    EXPECT_THAT(requests(), ElementsAre(activate_direct));
}

TEST_F(Activate, ASecondOneBeforeTheFinishStillSendsWhatIsPendingAndThenFails) {
    subscribe("/test-main:top/text");
    EXPECT_EQ(activate(), 0);
    subscribe("/test-main:top/number");
    requests();
    EXPECT_EQ(activate(), -1);
    EXPECT_EQ(log.count(3, busy_activating), 1);
    EXPECT_THAT(requests(), ElementsAre(subscribe_json(entry("/test-main:top/number", "5", "1"))));
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x104}, {1, 0x102}}));
    EXPECT_EQ(finish(), reply(0));
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}, {1, 0x102}}));
    activate_fully();
    EXPECT_THAT(requests(), ElementsAre(activate_direct)); // known to the server by now
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}, {1, 0x008}}));
}

TEST_F(Activate, ARemovedRecordGoesWithTheFinishAndItsSlotIsTakenNext) {
    subscribe("/test-main:top/text");
    subscribe("/test-main:top/number");
    activate_fully();
    unsubscribe("/test-main:top/text");
    requests();
    EXPECT_EQ(activate(), 0);
    EXPECT_THAT(requests(), ElementsAre(unsubscribe_json(entry("/test-main:top/text", "5")), activate_direct));
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x204}, {1, 0x008}}));
    EXPECT_EQ(finish(), reply(0));
    EXPECT_EQ(statuses(client), (Statuses{{1, 0x008}}));
    subscribe("/test-main:top/big");
    EXPECT_EQ(activate(), 0);
    EXPECT_THAT(requests(), ElementsAre(subscribe_json(entry("/test-main:top/big", "5", "0")), activate_direct));
}

TEST_F(Activate, NewOnesGoOutAheadOfRemovedOnes) {
    subscribe("/test-main:top/text");
    activate_fully();
    unsubscribe("/test-main:top/text");
    subscribe("/test-main:top/number");
    requests();
    EXPECT_EQ(activate(), 0);
    EXPECT_THAT(requests(), ElementsAre(subscribe_json(entry("/test-main:top/number", "5", "1")),
                                        unsubscribe_json(entry("/test-main:top/text", "5")), activate_direct));
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x204}, {1, 0x104}}));
}

TEST_F(Activate, AnActiveOneThatIsSubscribedAgainIsSentAgain) {
    subscribe("/test-main:top/text");
    activate_fully();
    subscribe("/test-main:top/text");
    requests();
    activate_fully();
    EXPECT_THAT(requests(), ElementsAre(subscribe_json(entry("/test-main:top/text", "5", "0")), activate_direct));
}

TEST_F(Activate, TheRequestsAreInJsonWhateverTheClientsEncoding) {
    ASSERT_EQ(set_attr<uint32_t>(ZAMC_ATTR_ENCODE, 1), 0);
    subscribe("/test-main:top/text");
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(finish(), reply(0, "", 1));
    unsubscribe("/test-main:top/text");
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(finish(), reply(0, "", 1));
    EXPECT_EQ(zamc_deactivate(client), 0);
    for (const Frame &frame : sent_so_far()) {
        if (frame.kind == Kind::request) {
            EXPECT_EQ(frame.encoding, 2u) << frame.payload;
        }
    }
    EXPECT_EQ(requests().size(), 5u);
}

// Refusals

TEST_F(Activate, ARefusedSubscribeLeavesEverythingPending) {
    subscribe("/test-main:top/text");
    subscribe("/test-main:top/number");
    suber_at(client, 1)->status = 0x201;
    refuse(":subscribe");
    EXPECT_EQ(activate(), -1);
    EXPECT_EQ(requests().size(), 1u);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}, {1, 0x201}}));
    peer.answer_with(Peer::obliging);
    activate_fully();
    EXPECT_EQ(requests().size(), 3u);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}}));
}

TEST_F(Activate, ARefusedUnsubscribeLeavesTheRemovalPending) {
    subscribe("/test-main:top/text");
    subscribe("/test-main:top/number");
    suber_at(client, 1)->status = 0x201;
    refuse(":unsubscribe");
    EXPECT_EQ(activate(), -1);
    EXPECT_EQ(requests().size(), 2u);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x102}, {1, 0x201}}));
}

TEST_F(Activate, ARefusedActivationLeavesTheRecordsSentAndTheClientFree) {
    subscribe("/test-main:top/text");
    subscribe("/test-main:top/number");
    suber_at(client, 1)->status = 0x201;
    refuse(":activate");
    EXPECT_EQ(activate(), -1);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x102}, {1, 0x202}}));
    EXPECT_EQ(client->activation_busy, 0);
    EXPECT_EQ(client->activate_callback, nullptr);
    peer.answer_with(Peer::obliging);
    requests();
    activate_fully();
    EXPECT_THAT(requests(), ElementsAre(activate_direct));
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}}));
}

TEST_F(Activate, NullIsRefused) {
    EXPECT_EQ(zamc_activate(nullptr, 0, nullptr, nullptr), -3);
    EXPECT_EQ(zamc_deactivate(nullptr), -3);
}

TEST_F(Activate, WithoutASchemaContextNothingIsSent) {
    subscribe("/test-main:top/text");
    ly_ctx *context = std::exchange(client::_clients_ctx()->context, nullptr);
    EXPECT_EQ(activate(), -1);
    EXPECT_EQ(zamc_deactivate(client), -1);
    client::_clients_ctx()->context = context;
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}}));
    EXPECT_EQ(client->activation_busy, 0);
}

TEST_F(Activate, APriorityThatTheServerCannotReadIsNotSent) {
    subscribe("/test-main:top/text", 4000000000u);
    EXPECT_EQ(activate(), -1);
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}}));
}

TEST_F(Activate, AServerThatClosesInsteadOfAnsweringEndsItAtOnceWithEverythingPending) {
    subscribe("/test-main:top/text");
    peer.answer_with([this](const Frame &frame) -> std::vector<Frame> {
        if (frame.payload.find(":activate") == std::string::npos) return Peer::obliging(frame);
        peer.drop_connection();
        return {};
    });
    EXPECT_EQ(activate(), -1);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}}));
    EXPECT_EQ(client->activation_busy, 0);
}

// The finish

TEST_F(Activate, AFinishThatComesBeforeTheAnswerCountsAllTheSame) {
    subscribe("/test-main:top/text");
    peer.answer_with([](const Frame &frame) {
        std::vector<Frame> frames = Peer::obliging(frame);
        if (frame.payload == activate_direct) frames.insert(frames.begin(), request(50, finish_json));
        return frames;
    });
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x104}}));
    run_until_calls(handler, 1);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}}));
    EXPECT_EQ(peer.wait_for_reply(50), reply(50));
}

TEST_F(Activate, WithoutAHandlerTheFinishIsAnsweredWithOk) {
    EXPECT_EQ(zamc_activate(client, 0, nullptr, nullptr), 0);
    EXPECT_EQ(finish(), reply(0));
    EXPECT_EQ(client->activation_busy, 0);
}

TEST_F(Activate, AFinishThatNobodyAskedForIsAnsweredWithOk) {
    EXPECT_EQ(finish(), reply(0));
    EXPECT_EQ(finish(deactivate_finish_json), reply(0));
}

TEST_F(Activate, TheHandlersResultIsTheAnswer) {
    handler.act = [](zamc_client *) { return 5; };
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(finish(), reply(0, service_error));
    EXPECT_EQ(client->activation_busy, 0);
    handler.act = [](zamc_client *owner) {
        zamc_error_set(owner, 17, "not ready");
        return 0;
    };
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(finish(), reply(0, error_json("17", "not ready")));
}

TEST_F(Activate, AFinishMayBeAnsweredLater) {
    handler.act = [](zamc_client *) { return ZAMC_REPLY_LATER; };
    subscribe("/test-main:top/text");
    EXPECT_EQ(activate(), 0);
    peer.send(request(50, finish_json));
    run_until_calls(handler, 1);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}}));
    EXPECT_EQ(client->wait_replies.count, 1u);
    EXPECT_EQ(zamc_reply_asyn(client, 0, nullptr), 0);
    EXPECT_EQ(peer.wait_for_reply(50), reply(50));
}

TEST_F(Activate, WhatTheFinishBeginsOnAnotherConnectionIsFinishedThere) {
    handler.act = [&](zamc_client *owner) {
        EXPECT_GE(zamc_connect(owner, peer.url().c_str()), 0);
        EXPECT_EQ(zamc_activate(owner, 0, nullptr, nullptr), 0);
        return 0;
    };
    subscribe("/test-main:top/text");
    EXPECT_EQ(activate(), 0);
    peer.send(request(50, finish_json));
    run_until_calls(handler, 1);
    EXPECT_EQ(client->activation_busy, 1);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x104}}));
    EXPECT_EQ(finish(), reply(0));
    EXPECT_EQ(client->activation_busy, 0);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}}));
}

TEST_F(Activate, TheFinishInXmlIsUnderstood) {
    EXPECT_EQ(activate(), 0);
    peer.send(request(50, std::string{"<notify-activate-finish xmlns=\""} + client_xmlns + "\"/>", 1));
    run_until_calls(handler, 1);
    EXPECT_EQ(peer.wait_for_reply(50), reply(50));
}

TEST_F(Activate, WhileTheFinishIsHandledAnotherActivationHasToWait) {
    int32_t result = 0;
    handler.act = [&](zamc_client *owner) {
        result = zamc_activate(owner, 0, nullptr, nullptr);
        return 0;
    };
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(finish(), reply(0));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(log.count(3, busy_activating), 1);
}

TEST_F(Activate, TheFinishHandlerMaySubscribe) {
    handler.act = [this](zamc_client *) {
        subscribe("/test-main:top/number");
        return 0;
    };
    subscribe("/test-main:top/text");
    activate_fully();
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}, {1, 0x101}}));
}

TEST_F(Activate, TheFinishHandlerMayConnectAnew) {
    handler.act = [this](zamc_client *owner) {
        EXPECT_GE(zamc_connect(owner, peer.url().c_str()), 0);
        return 0;
    };
    subscribe("/test-main:top/text");
    EXPECT_EQ(activate(), 0);
    peer.send(request(50, finish_json));
    run_until_calls(handler, 1);
    EXPECT_EQ(zamc_run(client, 0), 0);
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x101}})); // unknown to the new connection
    EXPECT_EQ(activate(), 0);
}

TEST_F(Activate, TheFinishHandlerMayFreeTheClient) {
    handler.act = [](zamc_client *owner) {
        zamc_client_free(owner);
        return 0;
    };
    subscribe("/test-main:top/text");
    EXPECT_EQ(activate(), 0);
    peer.send(request(50, finish_json));
    int32_t result = 0;
    while (result == 0)
        result = zamc_run(client, 10000);
    client = nullptr;
    EXPECT_THAT(handler.calls, ElementsAre("finish 1 0"));
}

// Deactivation

TEST_F(Activate, ADeactivationTouchesTheRecordsWhenItHasFinished) {
    subscribe("/test-main:top/text");
    subscribe("/test-main:top/number");
    activate_fully();
    subscribe("/test-main:top/big");
    requests();
    EXPECT_EQ(zamc_deactivate(client), 0);
    EXPECT_THAT(requests(), ElementsAre(deactivate_json));
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}, {1, 0x008}, {2, 0x101}}));
    EXPECT_EQ(client->activation_busy, 1);
    EXPECT_EQ(finish(deactivate_finish_json), reply(0));
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x102}, {1, 0x102}, {2, 0x101}}));
    EXPECT_EQ(client->activation_busy, 0);
    EXPECT_EQ(handler.calls.size(), 1u); // the handler hears of activations only
}

TEST_F(Activate, AfterADeactivationTheSubscriptionsNeedNotBeSentAgain) {
    subscribe("/test-main:top/text");
    activate_fully();
    EXPECT_EQ(zamc_deactivate(client), 0);
    EXPECT_EQ(finish(deactivate_finish_json), reply(0));
    requests();
    EXPECT_EQ(activate(), 0);
    EXPECT_THAT(requests(), ElementsAre(activate_direct));
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x104}}));
    EXPECT_EQ(finish(), reply(0));
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}}));
}

TEST_F(Activate, ADeactivationHasToWaitForAnActivationAndTheOtherWayRound) {
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(zamc_deactivate(client), -1);
    EXPECT_EQ(log.count(3, busy_deactivating), 1);
    EXPECT_EQ(finish(), reply(0));
    EXPECT_EQ(zamc_deactivate(client), 0);
    EXPECT_EQ(zamc_deactivate(client), -1);
    EXPECT_EQ(log.count(3, busy_deactivating), 2);
    EXPECT_EQ(activate(), -1);
    EXPECT_EQ(log.count(3, busy_activating), 1);
    EXPECT_THAT(requests(), ElementsAre(activate_direct, deactivate_json));
}

TEST_F(Activate, ARefusedDeactivationLeavesTheClientFree) {
    refuse(":deactivate");
    EXPECT_EQ(zamc_deactivate(client), -1);
    EXPECT_EQ(client->activation_busy, 0);
    EXPECT_EQ(activate(), 0);
}

// A new connection

TEST_F(Activate, OnANewConnectionEverythingIsSubscribedAgainAlsoWhatWasToBeRemoved) {
    subscribe("/test-main:top/text");
    subscribe("/test-main:top/number");
    activate_fully();
    unsubscribe("/test-main:top/number");
    peer.drop_connection();
    run_until_closed();
    connect();
    requests();
    EXPECT_EQ(activate(), 0);
    EXPECT_THAT(requests(), ElementsAre(subscribe_json(entry("/test-main:top/text", "5", "0") + "," +
                                                       entry("/test-main:top/number", "5", "1")),
                                        activate_direct));
}

TEST_F(Activate, EachAllocationThatFailsLeavesRecordsThatCanBeActivatedLater) {
    set_attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT, 200);
    subscribe("/test-main:top/text");
    for (uint64_t n = 1;; ++n) {
        subscribe("/test-main:top/text"); // pending again
        heap.fail_at(n);
        const int32_t result = activate();
        const bool failed = heap.failed();
        heap.fail_at(0);
        EXPECT_EQ(client->activation_busy, result == 0 ? 1 : 0);
        if (result == 0) {
            EXPECT_EQ(finish(), reply(0));
        }
        if (!failed) break;
        ASSERT_LT(n, 1000u);
    }
    EXPECT_EQ(statuses(client), (Statuses{{0, 0x008}}));
}

} // namespace
} // namespace zam::test
