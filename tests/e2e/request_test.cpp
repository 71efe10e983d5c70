// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Requests of the application: what becomes of them, and of what the server asks meanwhile.
#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr char interfaces[] = "/ietf-interfaces:interfaces";
constexpr char interface_list[] = "/ietf-interfaces:interfaces/interface";
constexpr char eth0[] = "/ietf-interfaces:interfaces/interface[name=\"eth0\"]";
constexpr char eth1[] = "/ietf-interfaces:interfaces/interface[name=\"eth1\"]";
constexpr char eth2[] = "/ietf-interfaces:interfaces/interface[name=\"eth2\"]";
constexpr char set_time[] = "/ietf-system:set-current-datetime";

// One change of three interfaces, so three publications at once.
constexpr char three_entries[] = R"({"interface":[{"name":"eth0","description":"a"},{"name":"eth1","description":"b"},
                                    {"name":"eth2","type":"iana-if-type:ethernetCsmacd"}]})";

std::string set_time_text(uint32_t encode) {
    return encode == ZAM_ENCODE_XML
               ? R"(<set-current-datetime xmlns="urn:ietf:params:xml:ns:yang:ietf-system"><current-datetime>)"
                 "2026-11-20T12:00:00+00:00</current-datetime></set-current-datetime>"
               : R"({"ietf-system:set-current-datetime":{"current-datetime":"2026-11-20T12:00:00+00:00"}})";
}

std::string pull_text(uint32_t encode, const std::string &name) {
    const std::string path = "/ietf-interfaces:interfaces/interface[name='" + name + "']/enabled";
    return encode == ZAM_ENCODE_XML
               ? R"(<pull xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server">)"
                 R"(<datastore xmlns:ds="urn:ietf:params:xml:ns:yang:ietf-datastores">ds:running</datastore><entity>)" +
                     path + "</entity></pull>"
               : R"({"orvel-zam-server:pull":{"datastore":"ietf-datastores:running","entity":")" + path + "\"}}";
}

class Bytes {
public:
    Bytes(const std::string &text, uint32_t format)
        : bytes_{zamc_new_bytes(text.data(), static_cast<int32_t>(text.size()), format)} {}
    ~Bytes() { zamc_free_bytes(bytes_); }
    Bytes(const Bytes &) = delete;
    Bytes &operator=(const Bytes &) = delete;
    operator const zamc_bytes *() const { return bytes_; }

private:
    zamc_bytes *bytes_;
};

// Where the callback of an asynchronous request leaves what it got.
struct Answers {
    std::vector<std::string> lines;

    struct Slot {
        Answers *owner;
        std::string name;
    };
    std::deque<Slot> slots; // stable addresses

    Slot *slot(const std::string &name) { return &slots.emplace_back(Slot{this, name}); }
    static int32_t note(zamc_client *, const zam_message *reply, void *arg) {
        const auto *slot = static_cast<Slot *>(arg);
        slot->owner->lines.push_back(slot->name + ": " + (reply ? std::string(reply->data, reply->length) : "lost"));
        return 0;
    }
};

int32_t ask(zamc_client *client, const std::string &request, uint32_t encode, Answers &answers,
            const std::string &name) {
    return zamc_send_rpc_asyn(client, Bytes{request, encode}, Answers::note, answers.slot(name));
}

bool run_until(zamc_client *client, const std::function<bool()> &done) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!done() && std::chrono::steady_clock::now() < deadline)
        zamc_run(client, 10);
    return done();
}

int32_t later(zamc_client *, const Call &, zamc_bytes **) {
    return ZAMC_REPLY_LATER;
}

bool is_operation(const Call &call) {
    return call.kind == Call::operation;
}

std::vector<std::string> targets(const Journal &journal) {
    std::vector<std::string> found;
    for (const auto &call : journal.calls()) {
        if (call.kind == Call::config) found.push_back(call.target + (call.list_more ? " more" : ""));
    }
    return found;
}

// `helper` carries out an operation when the test says so, and is told of the same changes as others: when its handler
// has run, the server has told them too.
class Request : public testing::TestWithParam<uint32_t> {
protected:
    uint32_t encode() const { return GetParam(); }
    bool xml() const { return encode() == ZAM_ENCODE_XML; }
    void helper_answers() {
        EXPECT_EQ(helper.on_thread([](zamc_client *client) { return zamc_reply_asyn(client, 0, nullptr); }), 0);
    }
    std::future<int32_t> push_three() {
        return std::async(std::launch::async, [this] {
            Operator op{server.url()};
            return op.push(interfaces, ZAMC_PUSH_MERGE, three_entries);
        });
    }
    bool helper_was_told() {
        return helper_journal.wait_for([](const Call &call) { return call.target == eth2; }).has_value();
    }

    DescriptorCheck descriptors;
    Server server{{.startup = two_interfaces}};
    Journal helper_journal;
    App helper{server.url(),
               helper_journal,
               {{.target = set_time, .type = ZAMC_SUB_OPERATION, .behaviour = later}, {.target = interface_list}},
               {.name = "helper"}};
    Journal journal;
};

INSTANTIATE_TEST_SUITE_P(Encodings, Request, testing::Values(ZAM_ENCODE_JSON, ZAM_ENCODE_XML),
                         [](const auto &given) { return given.param == ZAM_ENCODE_XML ? "Xml" : "Json"; });

TEST_P(Request, AsynchronousOnesAreAnsweredInTheirOrder) {
    Operator op{server.url(), encode()};
    Answers answers;
    for (const char *name : {"eth0", "eth1", "eth9"})
        ASSERT_EQ(ask(op.client(), pull_text(encode(), name), encode(), answers, name), 0);
    EXPECT_THAT(answers.lines, IsEmpty()) << "nothing is called outside zamc_run";
    ASSERT_TRUE(run_until(op.client(), [&] { return answers.lines.size() == 3; }));
    EXPECT_THAT(answers.lines[0], HasSubstr(xml() ? "<enabled" : R"("data":{"ietf-interfaces:enabled":true})"));
    EXPECT_THAT(answers.lines[0], HasSubstr("eth0"));
    EXPECT_THAT(answers.lines[1], HasSubstr("eth1"));
    EXPECT_THAT(answers.lines[2], HasSubstr(xml() ? "<data></data>" : R"("data":{})"));
}

TEST_P(Request, AnEarlierOneIsLostOnceALaterOneIsAnswered) {
    Operator op{server.url(), encode()};
    Answers answers;
    ASSERT_EQ(ask(op.client(), set_time_text(encode()), encode(), answers, "slow"), 0);
    ASSERT_TRUE(helper_journal.wait_for(is_operation));
    ASSERT_EQ(ask(op.client(), pull_text(encode(), "eth0"), encode(), answers, "fast"), 0);
    ASSERT_TRUE(run_until(op.client(), [&] { return answers.lines.size() == 2; }));
    EXPECT_EQ(answers.lines[0], "slow: lost");
    EXPECT_THAT(answers.lines[1], testing::StartsWith("fast: "));
    EXPECT_THAT(answers.lines[1], HasSubstr("eth0"));

    helper_answers();
    EXPECT_EQ(zamc_send_heartbeat(op.client()), 0); // the late answer has come by now
    EXPECT_EQ(zamc_run(op.client(), 0), 0);
    EXPECT_THAT(answers.lines, SizeIs(2)) << "a callback is called once";
}

TEST_P(Request, AnAnswerWithoutContentReachesItsCallbackAsNone) {
    Operator op{server.url(), encode()};
    Answers answers;
    ASSERT_EQ(ask(op.client(), set_time_text(encode()), encode(), answers, "empty"), 0);
    ASSERT_TRUE(helper_journal.wait_for(is_operation));
    helper_answers();
    ASSERT_TRUE(run_until(op.client(), [&] { return !answers.lines.empty(); }));
    EXPECT_THAT(answers.lines, ElementsAre("empty: lost"));
}

TEST_P(Request, ASynchronousOneLeavesAnEarlierAsynchronousAnswerForTheNextRun) {
    Operator op{server.url(), encode()};
    Answers answers;
    ASSERT_EQ(ask(op.client(), pull_text(encode(), "eth0"), encode(), answers, "first"), 0);
    EXPECT_NE(op.pull(eth1), "");
    EXPECT_THAT(answers.lines, IsEmpty());
    EXPECT_EQ(zamc_run(op.client(), 0), 0);
    ASSERT_THAT(answers.lines, SizeIs(1));
    EXPECT_THAT(answers.lines[0], HasSubstr("eth0"));
}

TEST_P(Request, PublicationsThatArriveDuringASynchronousOneAreHandledAfterwardsInTheirOrder) {
    App app{server.url(), journal, {{.target = interface_list}}, {.encode = encode()}};
    journal.clear();
    std::vector<std::string> during{"not called"};
    auto call = std::async(std::launch::async, [&] {
        return app.on_thread([&](zamc_client *client) {
            zamc_bytes *reply = nullptr;
            const int32_t result = zamc_send_rpc_sync(client, Bytes{set_time_text(encode()), encode()}, &reply, 20000);
            EXPECT_EQ(reply, nullptr) << "success without output";
            zamc_free_bytes(reply);
            during = targets(journal);
            return result;
        });
    });
    ASSERT_TRUE(helper_journal.wait_for(is_operation));
    auto pushed = push_three();
    ASSERT_TRUE(helper_was_told());
    helper_answers();
    EXPECT_EQ(call.get(), 0);
    EXPECT_EQ(pushed.get(), 0);
    EXPECT_THAT(during, IsEmpty());
    EXPECT_THAT(targets(journal),
                ElementsAre(std::string{eth0} + " more", std::string{eth1} + " more", std::string{eth2}));
}

TEST_P(Request, ASynchronousOneInsideAHandlerLeavesTheNextPublicationsForAfterwards) {
    std::vector<std::string> during;
    int calls = 0;
    App app{server.url(),
            journal,
            {{.target = interface_list,
              .behaviour =
                  [&](zamc_client *client, const Call &, zamc_bytes **) {
                      if (++calls > 1) return int32_t{0};
                      zamc_bytes *reply = nullptr;
                      const int32_t result =
                          zamc_send_rpc_sync(client, Bytes{set_time_text(encode()), encode()}, &reply, 20000);
                      zamc_free_bytes(reply);
                      during = targets(journal);
                      return result;
                  }}},
            {.encode = encode()}};
    auto pushed = push_three();
    ASSERT_TRUE(helper_was_told());
    ASSERT_TRUE(helper_journal.wait_for(is_operation));
    helper_answers();
    EXPECT_EQ(pushed.get(), 0);
    EXPECT_THAT(during, IsEmpty());
    EXPECT_THAT(targets(journal),
                ElementsAre(std::string{eth0} + " more", std::string{eth1} + " more", std::string{eth2}));
}

TEST_P(Request, ARunInsideAHandlerHandlesTheNextPublicationsAtOnce) {
    int calls = 0;
    int inside = 0;
    App app{server.url(),
            journal,
            {{.target = interface_list,
              .behaviour =
                  [&](zamc_client *client, const Call &, zamc_bytes **) {
                      if (++calls > 1) return int32_t{0};
                      EXPECT_TRUE(helper_was_told()); // so all three have been sent to us
                      EXPECT_TRUE(run_until(client, [&] { return calls == 3; }));
                      inside = calls;
                      return int32_t{0};
                  }}},
            {.encode = encode()}};
    auto pushed = push_three();
    EXPECT_EQ(pushed.get(), 0);
    EXPECT_EQ(inside, 3);
    EXPECT_THAT(targets(journal),
                ElementsAre(std::string{eth1} + " more", std::string{eth2}, std::string{eth0} + " more"));
}

TEST_P(Request, ASynchronousOneInsideAReplysCallbackGetsItsAnswer) {
    struct Seen {
        std::string text;
        int32_t result = 1;
    } seen;
    Operator op{server.url(), encode()};
    const auto pull = [](zamc_client *client, const zam_message *, void *arg) {
        auto *found = static_cast<Seen *>(arg);
        zamc_bytes *bytes = nullptr;
        found->result = zamc_pull(client, 0, "/ietf-interfaces:interfaces/interface[name='eth1']/name", -1, &bytes);
        if (bytes) found->text = bytes->data;
        zamc_free_bytes(bytes);
        return 0;
    };
    ASSERT_EQ(zamc_send_rpc_asyn(op.client(), Bytes{pull_text(encode(), "eth0"), encode()}, pull, &seen), 0);
    ASSERT_TRUE(run_until(op.client(), [&] { return seen.result != 1; }));
    EXPECT_EQ(seen.result, 0);
    EXPECT_THAT(seen.text, HasSubstr("eth1"));
}

TEST_P(Request, AHeartbeatLetsPublicationsWaitInTheirOrder) {
    App app{server.url(), journal, {{.target = interface_list}}, {.encode = encode()}};
    journal.clear();
    std::future<int32_t> pushed;
    std::vector<std::string> during{"not called"};
    const int32_t alive = app.on_thread([&](zamc_client *client) {
        pushed = push_three();
        EXPECT_TRUE(helper_was_told());
        const int32_t result = zamc_send_heartbeat(client);
        during = targets(journal);
        return result;
    });
    EXPECT_EQ(alive, 0);
    EXPECT_THAT(during, IsEmpty());
    EXPECT_EQ(pushed.get(), 0);
    EXPECT_THAT(targets(journal),
                ElementsAre(std::string{eth0} + " more", std::string{eth1} + " more", std::string{eth2}));
}

TEST_P(Request, AHeartbeatLetsAnswersWait) {
    Operator op{server.url(), encode()};
    Answers answers;
    ASSERT_EQ(ask(op.client(), pull_text(encode(), "eth0"), encode(), answers, "eth0"), 0);
    EXPECT_EQ(zamc_send_heartbeat(op.client()), 0);
    EXPECT_THAT(answers.lines, IsEmpty());
    EXPECT_EQ(zamc_run(op.client(), 0), 0);
    EXPECT_THAT(answers.lines, SizeIs(1));
}

// Bypass mode: every frame goes to the message callback.

struct Frames {
    std::mutex mutex;
    std::vector<std::pair<uint32_t, std::string>> seen;
    std::function<void(zamc_client *, uint32_t, const std::string &)> act = [](auto...) {};

    static int32_t note(zamc_client *client, uint32_t type, const zam_message *message, void *arg) {
        auto *self = static_cast<Frames *>(arg);
        std::string text{message->data ? message->data : "", message->length};
        {
            std::lock_guard guard{self->mutex};
            self->seen.emplace_back(type, text);
        }
        self->act(client, type, text);
        return 0;
    }
    std::vector<std::string> of_type(uint32_t type) {
        std::lock_guard guard{mutex};
        std::vector<std::string> texts;
        for (const auto &[kind, text] : seen) {
            if (kind == type) texts.push_back(text);
        }
        return texts;
    }
};

int32_t bypass(zamc_client *client, bool on) {
    const uint8_t value = on ? 1 : 0;
    return zamc_set_attr(client, ZAMC_ATTR_RPC_BYPASS, &value, sizeof value);
}

int32_t bypass_to(zamc_client *client, Frames &frames) {
    EXPECT_EQ(zamc_set_message_recv_cb(client, Frames::note, &frames), 0);
    return bypass(client, true);
}

TEST_P(Request, InBypassModePublicationsGoToTheMessageCallbackAndAreAnsweredByIt) {
    Frames frames;
    frames.act = [](zamc_client *client, uint32_t type, const std::string &) {
        if (type != ZAM_MESSAGE_REQUEST) return;
        const uint32_t seq = zamc_request_seq(client);
        EXPECT_NE(seq, 0u);
        EXPECT_EQ(zamc_reply_asyn(client, seq, nullptr), 0);
    };
    App app{server.url(), journal, {{.target = interface_list}}, {.encode = encode()}};
    journal.clear();
    EXPECT_EQ(app.on_thread([&](zamc_client *client) { return bypass_to(client, frames); }), 0);
    EXPECT_EQ(push_three().get(), 0);
    EXPECT_THAT(journal.calls(), IsEmpty());
    const auto requests = frames.of_type(ZAM_MESSAGE_REQUEST);
    ASSERT_THAT(requests, SizeIs(3));
    EXPECT_THAT(requests[0], testing::StartsWith(xml() ? "<publish xmlns=" : R"({"orvel-zam-client:publish":)"));
    EXPECT_THAT(requests[0], HasSubstr("eth0"));
    EXPECT_THAT(requests[1], HasSubstr("eth1"));
    EXPECT_THAT(requests[2], HasSubstr("eth2"));
}

TEST_P(Request, InBypassModeARefusalCarriesCodeAndText) {
    Frames frames;
    frames.act = [](zamc_client *client, uint32_t type, const std::string &) {
        if (type != ZAM_MESSAGE_REQUEST) return;
        zamc_error_set(client, 31, "no %s", "way");
        EXPECT_EQ(zamc_reply_asyn(client, zamc_request_seq(client), nullptr), 0);
    };
    App app{server.url(), journal, {{.target = interface_list}}, {.encode = encode()}};
    EXPECT_EQ(app.on_thread([&](zamc_client *client) { return bypass_to(client, frames); }), 0);
    Operator op{server.url()};
    EXPECT_THAT(op.push_reply(std::string{eth1} + "/description", "merge", "b"),
                testing::AllOf(HasSubstr(R"("error-app-tag":"31")"), HasSubstr("no way")));
}

TEST_P(Request, InBypassModeAnAnswersOutputIsSentAsItIs) {
    const std::string path = "/ietf-interfaces:interfaces-state/interface[name=\"eth0\"]/if-index";
    const std::string output = xml() ? R"(<publish xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-client"><data>)"
                                       R"(<if-index xmlns="urn:ietf:params:xml:ns:yang:ietf-interfaces">7</if-index>)"
                                       "</data></publish>"
                                     : R"({"orvel-zam-client:publish":{"data":{"ietf-interfaces:if-index":7}}})";
    Frames frames;
    frames.act = [&](zamc_client *client, uint32_t type, const std::string &) {
        if (type != ZAM_MESSAGE_REQUEST) return;
        EXPECT_EQ(zamc_reply_asyn(client, zamc_request_seq(client), Bytes{output, encode()}), 0);
    };
    App app{server.url(), journal, {{.target = path, .type = ZAMC_SUB_STATUS_QUERY}}, {.encode = encode()}};
    EXPECT_EQ(app.on_thread([&](zamc_client *client) { return bypass_to(client, frames); }), 0);
    Operator op{server.url()};
    op.datastore("ietf-datastores:operational");
    EXPECT_EQ(op.pull(path), "7");
}

TEST_P(Request, InBypassModeRepliesAndEchoesGoToTheMessageCallbackAndCallbacksWait) {
    Frames frames;
    Operator op{server.url(), encode()};
    ASSERT_EQ(bypass_to(op.client(), frames), 0);
    Answers answers;
    ASSERT_EQ(ask(op.client(), pull_text(encode(), "eth0"), encode(), answers, "eth0"), 0);
    ASSERT_EQ(zamc_send_message(op.client(), ZAM_MESSAGE_REWAKE, Bytes{"", encode()}), 0);
    ASSERT_TRUE(run_until(op.client(), [&] { return !frames.of_type(ZAM_MESSAGE_REWAKE).empty(); }));
    const auto replies = frames.of_type(ZAM_MESSAGE_REPLY);
    ASSERT_THAT(replies, SizeIs(1));
    EXPECT_THAT(replies[0], HasSubstr("eth0"));
    EXPECT_THAT(answers.lines, IsEmpty());

    EXPECT_NE(op.pull(eth1), "") << "synchronous calls go on in bypass mode";
    EXPECT_THAT(frames.of_type(ZAM_MESSAGE_REPLY), SizeIs(1));

    ASSERT_EQ(bypass(op.client(), false), 0);
    ASSERT_EQ(ask(op.client(), pull_text(encode(), "eth1"), encode(), answers, "eth1"), 0);
    ASSERT_TRUE(run_until(op.client(), [&] { return answers.lines.size() == 2; }));
    EXPECT_EQ(answers.lines[0], "eth0: lost") << "its answer went to the message callback";
    EXPECT_THAT(answers.lines[1], HasSubstr("eth1"));
}

TEST_P(Request, InBypassModeWithoutAMessageCallbackFramesWaitUntilTheModeEnds) {
    App app{server.url(), journal, {{.target = interface_list}}, {.encode = encode()}};
    journal.clear();
    EXPECT_EQ(app.on_thread([](zamc_client *client) { return bypass(client, true); }), 0);
    auto pushed = push_three();
    ASSERT_TRUE(helper_was_told());
    EXPECT_EQ(app.on_thread([](zamc_client *client) { return zamc_run(client, 50); }), 0);
    EXPECT_THAT(targets(journal), IsEmpty());
    EXPECT_EQ(app.on_thread([](zamc_client *client) { return bypass(client, false); }), 0);
    EXPECT_EQ(pushed.get(), 0);
    EXPECT_THAT(targets(journal),
                ElementsAre(std::string{eth0} + " more", std::string{eth1} + " more", std::string{eth2}));
}

} // namespace
