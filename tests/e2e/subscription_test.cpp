// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Subscriptions over their life: filter masks, slots, activation, deactivation, clients that depend on others, and
// attributes that the server is told of.
#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char preset_list[] = "/radio:radio/preset";
constexpr char one[] = "/radio:radio/preset[name=\"one\"]";
constexpr char two[] = "/radio:radio/preset[name=\"two\"]";
constexpr char three[] = "/radio:radio/preset[name=\"three\"]";
constexpr char motto[] = "/radio:radio/motto";
constexpr char volume[] = "/radio:radio/volume";
constexpr char title[] = "/radio:radio/name";
constexpr char tune[] = "/radio:tune";
constexpr char tune_json[] = R"({"radio:tune":{"frequency":1}})";
constexpr char startup[] = R"({"radio:radio":{"motto":"m","preset":[{"name":"one"},{"name":"two"}]}})";

std::string happened(const Call &call) {
    std::string line;
    const auto add = [&](uint32_t bit, const char *name) {
        if (call.mask & bit) line += std::string{name} + " ";
    };
    add(ZAMC_CONFIG_CREATE, "create");
    add(ZAMC_CONFIG_DELETE, "delete");
    add(ZAMC_CONFIG_UPDATE, "update");
    add(ZAMC_CONFIG_MOVE, "move");
    add(ZAMC_SCENE_NORMAL, "normal");
    add(ZAMC_SCENE_CFGR, "replay");
    add(ZAMC_SCENE_ROLLBACK, "rollback");
    return line + call.target;
}

std::vector<std::string> told(const Journal &journal, const std::string &app = "app") {
    std::vector<std::string> lines;
    for (const auto &call : journal.calls()) {
        if (call.kind == Call::config && call.app == app) lines.push_back(happened(call));
    }
    return lines;
}

// Handlers of both types, and every bit of a mask alone, with its fellows and without any.

struct Filter {
    int32_t type;
    uint32_t mask;
};

std::string name_of(const Filter &filter) {
    constexpr std::pair<uint32_t, const char *> bits[] = {
        {ZAMC_CONFIG_CREATE, "Create"}, {ZAMC_CONFIG_DELETE, "Delete"},   {ZAMC_CONFIG_UPDATE, "Update"},
        {ZAMC_CONFIG_MOVE, "Move"},     {ZAMC_CURB_DELETE, "CurbDelete"}, {ZAMC_CURB_CREATE, "CurbCreate"},
        {ZAMC_SCENE_NORMAL, "Normal"},  {ZAMC_SCENE_CFGR, "Replay"},      {ZAMC_SCENE_ROLLBACK, "Rollback"},
    };
    std::string name = filter.type == ZAMC_SUB_CONFIG_CHANGE ? "" : "Brief";
    for (const auto &[bit, word] : bits) {
        if (filter.mask & bit) name += word;
    }
    return filter.mask ? name : name + "Nothing";
}

std::vector<Filter> filters() {
    std::vector<Filter> all;
    for (const int32_t type : {ZAMC_SUB_CONFIG_CHANGE, ZAMC_SUB_CONFIG_CHANGE_BRIEF}) {
        for (const uint32_t mask : {0x0, 0x1, 0x2, 0x4, 0x8, 0x10, 0x20, 0x80, 0x100, 0x200, 0x81, 0x10A, 0x3BF})
            all.push_back({type, mask});
    }
    return all;
}

class Mask : public testing::TestWithParam<Filter> {
protected:
    Subscription subscription() const {
        return {.target = preset_list, .type = GetParam().type, .priority = 7, .mask = GetParam().mask};
    }
    // A mask without operations means all of them, one without scenes the normal scene.
    bool hears_of(uint32_t operation) const {
        const uint32_t mask = GetParam().mask;
        const bool named = (mask & 0xF) == 0 || (mask & operation) != 0;
        const bool normal = (mask & 0x380) == 0 || (mask & ZAMC_SCENE_NORMAL) != 0;
        return named && normal;
    }

    DescriptorCheck descriptors;
    Server server{{.startup = startup, .modules = real_models_and_radio()}};
    Journal journal;
};

INSTANTIATE_TEST_SUITE_P(Filters, Mask, testing::ValuesIn(filters()),
                         [](const auto &given) { return name_of(given.param); });

TEST_P(Mask, ItsOperationsAreToldInTheNormalScene) {
    App app{server.url(), journal, {subscription()}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(three, ZAMC_PUSH_CREATE, R"([{"name":"three"}])"), 0);
    EXPECT_EQ(op.push(std::string{one} + "/frequency", ZAMC_PUSH_MERGE, "88"), 0);
    EXPECT_EQ(op.push(three, ZAMC_PUSH_MERGE, R"([{"@":{"yang:insert":"first"},"name":"three"}])"), 0);
    EXPECT_EQ(op.push(three, ZAMC_PUSH_DELETE, ""), 0);
    std::vector<std::string> expected;
    if (hears_of(ZAMC_CONFIG_CREATE)) expected.push_back(std::string{"create normal "} + three);
    if (hears_of(ZAMC_CONFIG_UPDATE)) expected.push_back(std::string{"update normal "} + one);
    if (hears_of(ZAMC_CONFIG_MOVE)) expected.push_back(std::string{"move normal "} + three);
    if (hears_of(ZAMC_CONFIG_DELETE)) expected.push_back(std::string{"delete normal "} + three);
    EXPECT_EQ(told(journal), expected);
    for (const auto &call : journal.calls()) {
        EXPECT_TRUE(call.kind != Call::config || call.priority == 7u);
    }
}

TEST_P(Mask, AReplayIsToldWhateverItNames) {
    App app{server.url(), journal, {subscription()}, {.replay = true}};
    EXPECT_THAT(told(journal), ElementsAre(std::string{"create replay "} + one, std::string{"create replay "} + two));
}

TEST_P(Mask, ARollbackIsToldToThoseWhoHadBeenAsked) {
    App app{server.url(), journal, {subscription()}};
    App veto{server.url(),
             journal,
             {{.target = preset_list,
               .priority = 8,
               .behaviour = [](zamc_client *, const Call &, zamc_bytes **) { return -1; }}},
             {.name = "veto"}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(three, ZAMC_PUSH_CREATE, R"([{"name":"three"}])"), -1);
    std::vector<std::string> expected;
    if (hears_of(ZAMC_CONFIG_CREATE)) {
        expected = {std::string{"create normal "} + three, std::string{"delete rollback "} + three};
    }
    EXPECT_EQ(told(journal), expected);
}

// Slots: the number that a subscription has on the wire, seen in bypass mode.

struct Numbers {
    std::vector<std::string> seen;

    static int32_t note(zamc_client *client, uint32_t type, const zam_message *message, void *arg) {
        if (type != ZAM_MESSAGE_REQUEST) return 0;
        const std::string text{message->data, message->length};
        const std::string label = R"("priv-data":")";
        const size_t at = text.find(label) + label.size();
        static_cast<Numbers *>(arg)->seen.push_back(text.substr(at, text.find('"', at) - at));
        return zamc_reply_asyn(client, zamc_request_seq(client), nullptr);
    }
};

class Subscribing : public testing::Test {
protected:
    Behaviour note(const std::string &name) {
        return [this, name](zamc_client *, const Call &, zamc_bytes **) {
            std::lock_guard guard{mutex};
            called.push_back(name);
            return 0;
        };
    }
    void change(const char *path, const std::string &value) {
        EXPECT_EQ(Operator{server.url()}.push(path, ZAMC_PUSH_MERGE, value), 0);
    }
    std::vector<std::string> called_by(const char *path, const std::string &value) {
        {
            std::lock_guard guard{mutex};
            called.clear();
        }
        change(path, value);
        std::lock_guard guard{mutex};
        return called;
    }
    // The numbers of the subscriptions that a change is published to.
    std::vector<std::string> numbers_of(App &app, const char *path, const std::string &value) {
        Numbers numbers;
        const auto bypass = [](zamc_client *client, uint8_t on) {
            EXPECT_EQ(zamc_set_attr(client, ZAMC_ATTR_RPC_BYPASS, &on, sizeof on), 0);
        };
        app.on_thread([&](zamc_client *client) {
            bypass(client, 1);
            return zamc_set_message_recv_cb(client, Numbers::note, &numbers);
        });
        change(path, value);
        app.on_thread([&](zamc_client *client) {
            bypass(client, 0);
            return 0;
        });
        return numbers.seen;
    }
    // Until the server's notice that it has stopped has been handled.
    static int32_t deactivate(App &app) {
        return app.on_thread([](zamc_client *client) {
            const int32_t result = zamc_deactivate(client);
            EXPECT_EQ(zamc_send_heartbeat(client), 0);
            EXPECT_EQ(zamc_run(client, 0), 0);
            return result;
        });
    }

    DescriptorCheck descriptors;
    Server server{{.startup = startup, .modules = real_models_and_radio()}};
    Journal journal;
    std::mutex mutex;
    std::vector<std::string> called;
};

TEST_F(Subscribing, AnUnsubscribedOneIsSilentAndTheOthersGoOn) {
    App app{server.url(),
            journal,
            {{.target = motto, .behaviour = note("motto")}, {.target = volume, .behaviour = note("volume")}}};
    EXPECT_EQ(app.change_subscriptions({}, {{.target = motto}}), 0);
    EXPECT_THAT(called_by(motto, "a"), IsEmpty());
    EXPECT_THAT(called_by(volume, "1"), ElementsAre("volume"));
}

TEST_F(Subscribing, OneOfSeveralOnATargetGoesByItsTypePriorityAndMask) {
    App app{server.url(),
            journal,
            {{.target = motto, .priority = 1, .behaviour = note("first")},
             {.target = motto, .priority = 2, .behaviour = note("second")},
             {.target = motto, .type = ZAMC_SUB_CONFIG_CHANGE_BRIEF, .priority = 3, .behaviour = note("brief")},
             {.target = motto, .priority = 4, .mask = ZAMC_CONFIG_UPDATE, .behaviour = note("updates")}}};
    EXPECT_THAT(called_by(motto, "a"), ElementsAre("first", "second", "brief", "updates"));
    EXPECT_EQ(app.change_subscriptions({}, {{.target = motto, .priority = 2}}), 0);
    EXPECT_THAT(called_by(motto, "b"), ElementsAre("first", "brief", "updates"));
    EXPECT_EQ(app.change_subscriptions({}, {{.target = motto, .type = ZAMC_SUB_CONFIG_CHANGE_BRIEF, .priority = 3}}),
              0);
    EXPECT_THAT(called_by(motto, "c"), ElementsAre("first", "updates"));
    EXPECT_EQ(app.change_subscriptions({}, {{.target = motto, .priority = 4}}), 0);
    EXPECT_THAT(called_by(motto, "d"), ElementsAre("first", "updates")) << "that mask is none of ours";
}

TEST_F(Subscribing, TheSlotOfARemovedOneIsUsedAgainAfterItsRemovalIsThrough) {
    App app{server.url(),
            journal,
            {{.target = motto, .behaviour = note("motto")},
             {.target = volume, .behaviour = note("volume")},
             {.target = title, .behaviour = note("title")}}};
    EXPECT_THAT(numbers_of(app, motto, "a"), ElementsAre("0"));
    EXPECT_THAT(numbers_of(app, volume, "1"), ElementsAre("1"));
    EXPECT_THAT(numbers_of(app, title, "x"), ElementsAre("2"));

    EXPECT_EQ(app.change_subscriptions({{.target = preset_list, .behaviour = note("presets")}}, {{.target = volume}}),
              0);
    EXPECT_THAT(numbers_of(app, one, R"([{"name":"one","frequency":1}])"), ElementsAre("3"))
        << "the slot was still in use";
    EXPECT_THAT(numbers_of(app, volume, "2"), IsEmpty());

    EXPECT_EQ(app.change_subscriptions({{.target = "/radio:radio/night", .behaviour = note("night")}}, {}), 0);
    EXPECT_THAT(numbers_of(app, "/radio:radio/night", "true"), ElementsAre("1"));
    EXPECT_THAT(called_by("/radio:radio/night", "false"), ElementsAre("night"));
    EXPECT_THAT(called_by(volume, "3"), IsEmpty());
}

TEST_F(Subscribing, OneOfTheSameKindTakesTheSlotAndTheHandlerOfTheFirst) {
    App app{server.url(), journal, {{.target = title}, {.target = motto, .behaviour = note("old")}}};
    EXPECT_EQ(app.change_subscriptions({{.target = motto, .behaviour = note("new")}}, {}), 0);
    EXPECT_THAT(called_by(motto, "a"), ElementsAre("new"));
    EXPECT_THAT(numbers_of(app, motto, "b"), ElementsAre("1"));
}

TEST_F(Subscribing, RemovingWhatIsNotThereChangesNothing) {
    App app{server.url(), journal, {{.target = motto, .behaviour = note("motto")}}};
    EXPECT_EQ(app.change_subscriptions({}, {{.target = volume}}), 0);
    EXPECT_THAT(called_by(motto, "a"), ElementsAre("motto"));
}

TEST_F(Subscribing, ARemovedOneMayComeBackBeforeTheServerHasHeardOfIt) {
    App app{server.url(), journal, {{.target = motto, .behaviour = note("first")}}};
    app.on_thread([](zamc_client *client) {
        zamc_sub_node node{};
        node.target = motto;
        node.priority = 100;
        EXPECT_EQ(zamc_unsubscribe(client, &node), 0);
        return 0;
    });
    EXPECT_EQ(app.change_subscriptions({{.target = motto, .behaviour = note("again")}}, {}), 0);
    EXPECT_THAT(called_by(motto, "a"), ElementsAre("again"));
    EXPECT_THAT(numbers_of(app, motto, "b"), ElementsAre("0"));
}

TEST_F(Subscribing, UntilAnActivationFinishesItsSubscriptionsStayAndNoOtherBegins) {
    App app{server.url(), journal, {{.target = motto, .behaviour = note("motto")}}};
    app.on_thread([](zamc_client *client) {
        zamc_sub_node node{};
        node.target = volume;
        node.priority = 5;
        node.config = [](zamc_client *, uint32_t, uint32_t, int32_t, const char *, void *) { return 0; };
        EXPECT_EQ(zamc_subscribe(client, &node), 0);
        EXPECT_EQ(zamc_activate(client, 0, nullptr, nullptr), 0);
        EXPECT_EQ(zamc_subscribe(client, &node), -1);
        EXPECT_EQ(zamc_unsubscribe(client, &node), -1);
        EXPECT_EQ(zamc_activate(client, 0, nullptr, nullptr), -1);
        EXPECT_EQ(zamc_deactivate(client), -1);
        EXPECT_EQ(zamc_send_heartbeat(client), 0);
        EXPECT_EQ(zamc_run(client, 0), 0); // the finish
        EXPECT_EQ(zamc_subscribe(client, &node), 0);
        EXPECT_EQ(zamc_unsubscribe(client, &node), 0);
        return 0;
    });
    EXPECT_EQ(app.change_subscriptions({}, {}), 0);
    EXPECT_THAT(called_by(motto, "a"), ElementsAre("motto"));
}

TEST_F(Subscribing, WithoutAnActivationNothingIsTold) {
    App app{server.url(), journal, {{.target = motto, .behaviour = note("motto")}}};
    app.on_thread([](zamc_client *client) {
        zamc_sub_node node{};
        node.target = volume;
        node.priority = 5;
        node.config = [](zamc_client *, uint32_t, uint32_t, int32_t, const char *, void *) {
            ADD_FAILURE() << "it was not activated";
            return 0;
        };
        EXPECT_EQ(zamc_subscribe(client, &node), 0);
        return 0;
    });
    change(volume, "1");
    EXPECT_THAT(called_by(motto, "a"), ElementsAre("motto"));
}

TEST_F(Subscribing, AfterADeactivationNothingIsToldUntilTheNextActivation) {
    App app{server.url(),
            journal,
            {{.target = motto, .behaviour = note("motto")},
             {.target = tune, .type = ZAMC_SUB_OPERATION, .behaviour = note("tune")}}};
    Operator op{server.url()};
    EXPECT_EQ(op.exchange(tune_json), "");
    EXPECT_EQ(deactivate(app), 0);
    EXPECT_THAT(called_by(motto, "a"), IsEmpty());
    EXPECT_THAT(op.exchange(tune_json), HasSubstr("operation-not-supported"));
    EXPECT_EQ(deactivate(app), 0) << "once more is no mistake";

    EXPECT_EQ(app.change_subscriptions({}, {}), 0);
    EXPECT_THAT(called_by(motto, "b"), ElementsAre("motto"));
    EXPECT_EQ(op.exchange(tune_json), "");
    EXPECT_THAT(numbers_of(app, motto, "c"), ElementsAre("0"));
}

TEST_F(Subscribing, AnActivationAfterADeactivationReplaysWhatWasMissed) {
    App app{server.url(), journal, {{.target = motto}}, {.replay = true}};
    EXPECT_THAT(told(journal), ElementsAre(std::string{"create replay "} + motto));
    EXPECT_EQ(deactivate(app), 0);
    change(motto, "missed");
    journal.clear();
    EXPECT_EQ(app.change_subscriptions({}, {}, true), 0);
    EXPECT_THAT(told(journal), ElementsAre(std::string{"create replay "} + motto));
    journal.clear();
    EXPECT_EQ(app.change_subscriptions({}, {}, true), 0);
    EXPECT_THAT(told(journal), IsEmpty()) << "it is active already";
}

TEST_F(Subscribing, SubscriptionsMayChangeWhileDeactivated) {
    App app{server.url(),
            journal,
            {{.target = motto, .behaviour = note("motto")}, {.target = volume, .behaviour = note("volume")}}};
    EXPECT_EQ(deactivate(app), 0);
    EXPECT_EQ(app.change_subscriptions({{.target = title, .behaviour = note("title")}}, {{.target = motto}}), 0);
    EXPECT_THAT(called_by(motto, "a"), IsEmpty());
    EXPECT_THAT(called_by(volume, "1"), ElementsAre("volume"));
    EXPECT_THAT(called_by(title, "x"), ElementsAre("title"));
}

// Attributes that the server is told of

TEST_F(Subscribing, ANewEncodingKeepsTheSubscriptionsActive) {
    App app{server.url(),
            journal,
            {{.target = motto, .behaviour = note("motto")}, {.target = tune, .type = ZAMC_SUB_OPERATION}}};
    const uint32_t session = app.session_id();
    for (const uint32_t encode : {ZAM_ENCODE_XML, ZAM_ENCODE_JSON}) {
        app.on_thread([&](zamc_client *client) {
            EXPECT_EQ(zamc_set_attr(client, ZAMC_ATTR_ENCODE, &encode, sizeof encode), 0);
            return 0;
        });
        journal.clear();
        EXPECT_EQ(Operator{server.url()}.exchange(tune_json), "");
        const auto found = journal.wait_for([](const Call &call) { return call.kind == Call::operation; });
        ASSERT_TRUE(found);
        EXPECT_EQ(journal.calls()[*found].input_format, encode);
        EXPECT_THAT(called_by(motto, "in " + std::to_string(encode)), ElementsAre("motto"));
    }
    EXPECT_EQ(app.session_id(), session);
}

TEST_F(Subscribing, ARefusedAttributeKeepsItsOldValueAndTheSessionGoesOn) {
    App app{server.url(), journal, {{.target = motto, .behaviour = note("motto")}}, {.dependent_clients = "base"}};
    const uint32_t session = app.session_id();
    std::string too_many;
    for (int i = 0; i < 65; ++i)
        too_many += "c" + std::to_string(i) + " ";
    app.on_thread([&](zamc_client *client) {
        EXPECT_EQ(
            zamc_set_attr(client, ZAMC_ATTR_DEP_CLIENTS, too_many.c_str(), static_cast<uint32_t>(too_many.size() + 1)),
            -1);
        char names[16] = {};
        uint32_t length = sizeof names;
        EXPECT_EQ(zamc_get_attr(client, ZAMC_ATTR_DEP_CLIENTS, names, &length), 0);
        EXPECT_STREQ(names, "base");
        const int32_t deadline = 5; // what is registered next is registered with the old value
        EXPECT_EQ(zamc_set_attr(client, ZAMC_ATTR_DEADLINE, &deadline, sizeof deadline), 0);
        return 0;
    });
    EXPECT_EQ(app.session_id(), session);
    EXPECT_THAT(called_by(motto, "a"), ElementsAre("motto"));
}

TEST_F(Subscribing, ANameThatTheServerRefusesLeavesTheClientUnconnected) {
    load_models();
    zamc_client *client = zamc_client_new(std::string(256, 'n').c_str(), ZAM_ENCODE_JSON);
    EXPECT_EQ(zamc_connect(client, server.url().c_str()), -1);
    EXPECT_EQ(zamc_run(client, 0), -1);
    zamc_client_free(client);
}

// Clients that depend on others

// A client of the test's own thread, so that the test decides when it gets on.
class Follower {
public:
    Follower(const std::string &url, Journal &journal, std::string name, std::string dependencies)
        : journal_{journal}, name_{std::move(name)}, client_{zamc_client_new(name_.c_str(), ZAM_ENCODE_JSON)} {
        EXPECT_EQ(zamc_set_attr(client_, ZAMC_ATTR_DEP_CLIENTS, dependencies.c_str(),
                                static_cast<uint32_t>(dependencies.size() + 1)),
                  0);
        zamc_sub_node node{};
        node.target = motto;
        node.priority = 1;
        node.config = on_config;
        node.user = this;
        EXPECT_EQ(zamc_subscribe(client_, &node), 0);
        EXPECT_GE(zamc_connect(client_, url.c_str()), 0);
    }
    ~Follower() { zamc_client_free(client_); }
    Follower(const Follower &) = delete;
    Follower &operator=(const Follower &) = delete;

    void activate(int32_t replay = 1) { EXPECT_EQ(zamc_activate(client_, replay, on_active, this), 0); }
    // Handles all that the server has sent until now.
    bool is_active_by_now() {
        EXPECT_EQ(zamc_send_heartbeat(client_), 0);
        EXPECT_EQ(zamc_run(client_, 0), 0);
        return active_;
    }
    bool becomes_active() {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (!active_ && std::chrono::steady_clock::now() < deadline)
            EXPECT_EQ(zamc_run(client_, 10), 0);
        return active_;
    }
    zamc_client *client() const { return client_; }

private:
    static int32_t on_config(zamc_client *, uint32_t mask, uint32_t, int32_t, const char *target, void *user) {
        auto *self = static_cast<Follower *>(user);
        self->journal_.add({Call::config, self->name_, mask, 0, false, target, {}, 0, 0});
        return 0;
    }
    static int32_t on_active(zamc_client *, int32_t, void *user, int32_t) {
        auto *self = static_cast<Follower *>(user);
        self->journal_.add({Call::active, self->name_, 0, 0, false, {}, {}, 0, 0});
        self->active_ = true;
        return 0;
    }

    Journal &journal_;
    std::string name_;
    zamc_client *client_;
    bool active_ = false;
};

class Dependency : public testing::Test {
protected:
    void SetUp() override { load_models(); }
    std::vector<std::string> who_was_told() const {
        std::vector<std::string> lines;
        for (const auto &call : journal.calls())
            lines.push_back(call.app + (call.kind == Call::active ? " active" : " told"));
        return lines;
    }

    DescriptorCheck descriptors;
    Server server{{.startup = startup, .modules = real_models_and_radio()}};
    Journal journal;
};

TEST_F(Dependency, AClientIsReplayedAfterThoseThatItDependsOn) {
    Follower base{server.url(), journal, "base", ""};
    Follower follower{server.url(), journal, "follower", "base"};
    follower.activate();
    EXPECT_FALSE(follower.is_active_by_now());
    EXPECT_THAT(who_was_told(), IsEmpty());
    base.activate();
    EXPECT_TRUE(base.becomes_active());
    EXPECT_TRUE(follower.becomes_active());
    EXPECT_THAT(who_was_told(), ElementsAre("base told", "base active", "follower told", "follower active"));
}

TEST_F(Dependency, AClientWaitsForEachOfThose) {
    Follower left{server.url(), journal, "left", ""};
    Follower right{server.url(), journal, "right", ""};
    Follower follower{server.url(), journal, "follower", "left right"};
    follower.activate();
    left.activate();
    EXPECT_TRUE(left.becomes_active());
    EXPECT_FALSE(follower.is_active_by_now());
    right.activate();
    EXPECT_TRUE(right.becomes_active());
    EXPECT_TRUE(follower.becomes_active());
}

TEST_F(Dependency, AChainIsReplayedFromItsEnd) {
    Follower first{server.url(), journal, "first", ""};
    Follower second{server.url(), journal, "second", "first"};
    Follower third{server.url(), journal, "third", "second"};
    third.activate();
    second.activate();
    EXPECT_FALSE(second.is_active_by_now());
    first.activate();
    EXPECT_TRUE(first.becomes_active());
    EXPECT_TRUE(second.becomes_active());
    EXPECT_TRUE(third.becomes_active());
    EXPECT_THAT(who_was_told(), ElementsAre("first told", "first active", "second told", "second active", "third told",
                                            "third active"));
}

TEST_F(Dependency, AClientThatIsNotConnectedIsNotWaitedFor) {
    Follower follower{server.url(), journal, "follower", "nobody"};
    follower.activate();
    EXPECT_TRUE(follower.becomes_active());
}

TEST_F(Dependency, AClientThatLeavesIsWaitedForNoLonger) {
    Follower follower{server.url(), journal, "follower", "base"};
    {
        Follower base{server.url(), journal, "base", ""};
        follower.activate();
        EXPECT_FALSE(follower.is_active_by_now());
    }
    EXPECT_TRUE(follower.becomes_active());
    EXPECT_THAT(who_was_told(), ElementsAre("follower told", "follower active"));
}

TEST_F(Dependency, AClientThatIsAwayWithinItsDeadlineIsWaitedFor) {
    Follower base{server.url(), journal, "base", ""};
    const int32_t deadline = 60;
    EXPECT_EQ(zamc_set_attr(base.client(), ZAMC_ATTR_DEADLINE, &deadline, sizeof deadline), 0);
    zamc_disconnect(base.client());
    Follower follower{server.url(), journal, "follower", "base"};
    follower.activate();
    EXPECT_FALSE(follower.is_active_by_now());
    EXPECT_GE(zamc_connect(base.client(), server.url().c_str()), 0);
    base.activate();
    EXPECT_TRUE(base.becomes_active());
    EXPECT_TRUE(follower.becomes_active());
    EXPECT_THAT(who_was_told(), ElementsAre("base told", "base active", "follower told", "follower active"));
}

TEST_F(Dependency, TwoClientsThatDependOnEachOtherDoNotWait) {
    Follower one_of_them{server.url(), journal, "chicken", "egg"};
    Follower the_other{server.url(), journal, "egg", "chicken"};
    one_of_them.activate();
    the_other.activate();
    EXPECT_TRUE(one_of_them.becomes_active());
    EXPECT_TRUE(the_other.becomes_active());
}

TEST_F(Dependency, ADirectActivationWaitsForNobody) {
    Follower base{server.url(), journal, "base", ""};
    Follower follower{server.url(), journal, "follower", "base"};
    follower.activate(0);
    EXPECT_TRUE(follower.becomes_active());
    EXPECT_THAT(who_was_told(), ElementsAre("follower active"));
}

TEST_F(Dependency, AnActivationThatWaitsIsForgottenWithADisconnect) {
    Follower base{server.url(), journal, "base", ""};
    Follower follower{server.url(), journal, "follower", "base"};
    follower.activate();
    zamc_disconnect(follower.client());
    base.activate();
    EXPECT_TRUE(base.becomes_active());
    EXPECT_GE(zamc_connect(follower.client(), server.url().c_str()), 0);
    EXPECT_FALSE(follower.is_active_by_now());
    follower.activate();
    EXPECT_TRUE(follower.becomes_active());
    EXPECT_THAT(who_was_told(), ElementsAre("base told", "base active", "follower told", "follower active"));
}

} // namespace
