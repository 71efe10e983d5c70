// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The server dies, or falls silent, before, during and after each kind of exchange; and comes back.
#include <csignal>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char interface_list[] = "/ietf-interfaces:interfaces/interface";
constexpr char eth1[] = "/ietf-interfaces:interfaces/interface[name=\"eth1\"]";
constexpr char index_state[] = "/ietf-interfaces:interfaces-state/interface[name=\"eth0\"]/if-index";
constexpr char restart[] = "/ietf-system:system-restart";
constexpr char restart_json[] = R"({"ietf-system:system-restart":{}})";
constexpr char pull_json[] = R"({"orvel-zam-server:pull":{"entity":"/ietf-interfaces:interfaces"}})";
constexpr uint32_t a_minute = 60000; // no test waits for that long
constexpr auto at_once = 2500ms;     // less than any time-out that could be meant

// Stops a server and lets it go on at the end of the scope, unless it was killed meanwhile.
class Freeze {
public:
    explicit Freeze(const Server &server) : server_{server} { EXPECT_EQ(kill(server.pid(), SIGSTOP), 0); }
    ~Freeze() { thaw(); }
    Freeze(const Freeze &) = delete;
    Freeze &operator=(const Freeze &) = delete;
    void thaw() {
        if (server_.pid() > 0) kill(server_.pid(), SIGCONT);
    }

private:
    const Server &server_;
};

// Until something that we sent lies unread at the peer.
bool is_sent(int fd) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    int unread = 0;
    while (std::chrono::steady_clock::now() < deadline) {
        if (ioctl(fd, SIOCOUTQ, &unread) == 0 && unread > 0) return true;
        std::this_thread::yield();
    }
    return false;
}

int next_descriptor() {
    const int fd = dup(STDERR_FILENO);
    close(fd);
    return fd;
}

class Client {
public:
    explicit Client(const Server &server) : server_{server} {
        load_models();
        client_ = zamc_client_new("client", ZAM_ENCODE_JSON);
        time_out(a_minute);
    }
    ~Client() { zamc_client_free(client_); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    int connect() { return fd_ = zamc_connect(client_, server_.url().c_str()); }
    void time_out(uint32_t ms) { EXPECT_EQ(zamc_set_attr(client_, ZAMC_ATTR_SYNC_TIMEOUT, &ms, sizeof ms), 0); }
    int fd() const { return fd_; }
    operator zamc_client *() const { return client_; }

private:
    const Server &server_;
    zamc_client *client_ = nullptr;
    int fd_ = -1;
};

// Every call that waits for the server.

int32_t sync_timeout(zamc_client *client) {
    uint32_t timeout = 0;
    uint32_t length = sizeof timeout;
    EXPECT_EQ(zamc_get_attr(client, ZAMC_ATTR_SYNC_TIMEOUT, &timeout, &length), 0);
    return static_cast<int32_t>(timeout);
}

int32_t sync_rpc(zamc_client *client) {
    zamc_bytes *request = json_bytes(pull_json);
    zamc_bytes *reply = nullptr;
    const int32_t result = zamc_send_rpc_sync(client, request, &reply, sync_timeout(client));
    EXPECT_EQ(reply != nullptr, result == 0);
    zamc_free_bytes(request);
    zamc_free_bytes(reply);
    return result;
}

int32_t pull(zamc_client *client) {
    zamc_bytes *bytes = nullptr;
    const int32_t result = zamc_pull(client, 0, eth1, -1, &bytes);
    EXPECT_EQ(bytes != nullptr, result == 0);
    zamc_free_bytes(bytes);
    return result;
}

int32_t push(zamc_client *client) {
    zamc_bytes *content = json_bytes("pushed");
    const std::string path = std::string{eth1} + "/description";
    const int32_t result = zamc_push(client, path.c_str(), ZAMC_PUSH_MERGE, content);
    zamc_free_bytes(content);
    return result;
}

int32_t notify(zamc_client *client) {
    zamc_bytes *data = json_bytes(R"({"orvel-zam-server:appinfo":{"data":"x"}})");
    const int32_t result = zamc_notify(client, "NETCONF", data);
    zamc_free_bytes(data);
    return result;
}

int32_t locate(zamc_client *client) {
    zamc_bytes *bytes = nullptr;
    const int32_t result = zamc_locate(client, 0, "/radio:radio/preset[name='one']", &bytes);
    zamc_free_bytes(bytes);
    return result;
}

int32_t diff(zamc_client *client) {
    zamc_bytes *bytes = nullptr;
    const int32_t result = zamc_diff(client, "/radio:radio", -1, &bytes);
    EXPECT_EQ(bytes, nullptr) << "nothing is being published";
    zamc_free_bytes(bytes);
    return result;
}

int32_t consistency(zamc_client *client) {
    bool consistent = true;
    const int32_t result = zamc_consistency_check(client, &consistent);
    EXPECT_TRUE(result == 0 || !consistent);
    return result;
}

int32_t activate(zamc_client *client) {
    return zamc_activate(client, 0, nullptr, nullptr);
}

int32_t set_deadline(zamc_client *client) {
    const int32_t deadline = 7;
    return zamc_set_attr(client, ZAMC_ATTR_DEADLINE, &deadline, sizeof deadline);
}

struct Exchange {
    const char *name;
    int32_t (*run)(zamc_client *client);
    int32_t unconnected = -1; // the result without a connection
};

class Death : public testing::TestWithParam<Exchange> {
protected:
    void SetUp() override { ASSERT_GE(client.connect(), 0); }
    std::future<int32_t> begin() {
        return std::async(std::launch::async, [this] { return GetParam().run(client); });
    }
    static bool ends_at_once(const std::future<int32_t> &call) {
        return call.wait_for(at_once) == std::future_status::ready;
    }
    void expect_to_come_back() {
        EXPECT_EQ(zamc_run(client, a_minute), -1);
        EXPECT_LT(zamc_connect(client, server.url().c_str()), 0) << "nobody listens";
        server.start();
        EXPECT_GE(client.connect(), 0);
        EXPECT_EQ(GetParam().run(client), 0);
        EXPECT_EQ(zamc_run(client, 0), 0);
    }

    DescriptorCheck descriptors;
    Server server{{.startup = R"({"ietf-interfaces:interfaces":{"interface":[
                                  {"name":"eth1","type":"iana-if-type:ethernetCsmacd"}]},
                                  "radio:radio":{"preset":[{"name":"one"}]}})",
                   .modules = real_models_and_radio()}};
    Client client{server};
};

// With its own time-out, which no attribute shortens, the heartbeat has a test of silence of its own.
constexpr Exchange heartbeat{"AHeartbeat", zamc_send_heartbeat};
constexpr Exchange exchanges[] = {{"ASynchronousRpc", sync_rpc},
                                  {"APull", pull},
                                  {"APush", push},
                                  {"ADiff", diff},
                                  {"ALocate", locate},
                                  {"ANotification", notify},
                                  {"AConsistencyCheck", consistency},
                                  {"AnActivation", activate},
                                  {"ADeactivation", zamc_deactivate},
                                  {"AnAttribute", set_deadline, 0}};

std::string name_of(const testing::TestParamInfo<Exchange> &given) {
    return given.param.name;
}

class Silence : public Death {};

INSTANTIATE_TEST_SUITE_P(Of, Death, testing::ValuesIn(exchanges), name_of);
INSTANTIATE_TEST_SUITE_P(OfLife, Death, testing::Values(heartbeat), name_of);
INSTANTIATE_TEST_SUITE_P(During, Silence, testing::ValuesIn(exchanges), name_of);

TEST_P(Death, BeforeItMakesItFailAtOnce) {
    server.kill();
    auto call = begin();
    EXPECT_TRUE(ends_at_once(call));
    EXPECT_EQ(call.get(), -1);
    expect_to_come_back();
}

TEST_P(Death, ThatTheClientKnowsOfIsAsGoodAsNoConnection) {
    server.kill();
    EXPECT_EQ(zamc_run(client, a_minute), -1);
    EXPECT_EQ(GetParam().run(client), GetParam().unconnected);
    expect_to_come_back();
}

TEST_P(Death, DuringItEndsItAtOnce) {
    Freeze freeze{server};
    auto call = begin();
    EXPECT_TRUE(is_sent(client.fd()));
    server.kill();
    EXPECT_TRUE(ends_at_once(call)) << "it waits for its time-out";
    EXPECT_EQ(call.get(), -1);
    expect_to_come_back();
}

TEST_P(Death, AfterItIsSeenByTheNextRun) {
    EXPECT_EQ(GetParam().run(client), 0);
    server.kill();
    expect_to_come_back();
}

TEST_P(Silence, EndsItAtItsTimeOutAndTheConnectionGoesOn) {
    constexpr uint32_t time_out = 100;
    client.time_out(time_out);
    Freeze freeze{server};
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(GetParam().run(client), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds{time_out});
    EXPECT_EQ(zamc_run(client, 1), 0) << "silence ends no connection";
    freeze.thaw();
    client.time_out(a_minute);
    EXPECT_EQ(GetParam().run(client), 0) << "the late answer is nobody's";
    EXPECT_EQ(pull(client), 0);
    EXPECT_EQ(zamc_run(client, 0), 0);
}

class Ending : public testing::Test {
protected:
    DescriptorCheck descriptors;
    Server server{{.startup = two_interfaces}};
    Client client{server};
    Journal journal;
};

TEST_F(Ending, AHeartbeatGivesSilenceThreeSeconds) {
    ASSERT_GE(client.connect(), 0);
    Freeze freeze{server};
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(zamc_send_heartbeat(client), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - before, 3s);
    freeze.thaw();
    EXPECT_EQ(zamc_send_heartbeat(client), 0);
}

TEST_F(Ending, DuringTheRegistrationLeavesTheClientUnconnectedAtOnce) {
    const int fd = next_descriptor();
    Freeze freeze{server};
    auto connected = std::async(std::launch::async, [this] { return client.connect(); });
    EXPECT_TRUE(is_sent(fd));
    server.kill();
    EXPECT_EQ(connected.wait_for(at_once), std::future_status::ready);
    EXPECT_EQ(connected.get(), -1);
    EXPECT_EQ(zamc_run(client, 0), -1);
    server.start();
    EXPECT_GE(client.connect(), 0);
}

TEST_F(Ending, SilenceDuringTheRegistrationLeavesTheClientUnconnectedAtItsTimeOut) {
    client.time_out(100);
    Freeze freeze{server};
    EXPECT_EQ(client.connect(), -1);
    freeze.thaw();
    client.time_out(a_minute);
    EXPECT_GE(client.connect(), 0);
    EXPECT_EQ(pull(client), 0);
}

TEST_F(Ending, ARunThatWaitsWithoutLimitEndsWithTheServer) {
    ASSERT_GE(client.connect(), 0);
    auto running = std::async(std::launch::async, [this] { return zamc_run(client, -1); });
    server.kill();
    EXPECT_EQ(running.wait_for(at_once), std::future_status::ready);
    EXPECT_EQ(running.get(), -1);
}

TEST_F(Ending, AServerThatStopsInPeaceEndsTheRunToo) {
    ASSERT_GE(client.connect(), 0);
    EXPECT_EQ(server.stop(), 0);
    EXPECT_EQ(zamc_run(client, a_minute), -1);
    EXPECT_EQ(pull(client), -1);
    server.start();
    EXPECT_GE(client.connect(), 0);
    EXPECT_EQ(pull(client), 0);
}

// Asynchronous requests

struct Replies {
    std::vector<bool> answered;
    static int32_t note(zamc_client *, const zam_message *reply, void *arg) {
        static_cast<Replies *>(arg)->answered.push_back(reply != nullptr);
        return 0;
    }
    int32_t ask(zamc_client *client) {
        zamc_bytes *request = json_bytes(pull_json);
        const int32_t result = zamc_send_rpc_asyn(client, request, note, this);
        zamc_free_bytes(request);
        return result;
    }
};

TEST_F(Ending, BeforeAnAsynchronousRequestItsCallbackLearnsOfIt) {
    ASSERT_GE(client.connect(), 0);
    server.kill();
    Replies replies;
    EXPECT_EQ(replies.ask(client), 0) << "nobody has noticed yet";
    EXPECT_THAT(replies.answered, IsEmpty());
    EXPECT_EQ(zamc_run(client, a_minute), -1);
    EXPECT_THAT(replies.answered, ElementsAre(false));
    EXPECT_EQ(zamc_run(client, a_minute), -1);
    EXPECT_THAT(replies.answered, ElementsAre(false));
}

TEST_F(Ending, DuringAsynchronousRequestsEachCallbackLearnsOfItOnce) {
    ASSERT_GE(client.connect(), 0);
    Replies replies;
    {
        Freeze freeze{server};
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(replies.ask(client), 0);
        EXPECT_TRUE(is_sent(client.fd()));
        server.kill();
    }
    EXPECT_EQ(zamc_run(client, a_minute), -1);
    EXPECT_THAT(replies.answered, ElementsAre(false, false, false));
    server.start();
    EXPECT_GE(client.connect(), 0);
    EXPECT_EQ(replies.ask(client), 0);
    EXPECT_EQ(zamc_send_heartbeat(client), 0);
    EXPECT_EQ(zamc_run(client, 0), 0);
    EXPECT_THAT(replies.answered, ElementsAre(false, false, false, true));
}

TEST_F(Ending, AfterAnAnswerItsCallbackIsNotCalledAgain) {
    ASSERT_GE(client.connect(), 0);
    Replies replies;
    EXPECT_EQ(replies.ask(client), 0);
    EXPECT_EQ(zamc_send_heartbeat(client), 0); // the answer is here, but not handled
    server.kill();
    EXPECT_EQ(zamc_run(client, a_minute), -1);
    EXPECT_THAT(replies.answered, ElementsAre(true));
    EXPECT_EQ(zamc_run(client, a_minute), -1);
    EXPECT_THAT(replies.answered, ElementsAre(true));
}

TEST_F(Ending, SilenceKeepsAnAsynchronousRequestWaiting) {
    ASSERT_GE(client.connect(), 0);
    Replies replies;
    Freeze freeze{server};
    EXPECT_EQ(replies.ask(client), 0);
    EXPECT_EQ(zamc_run(client, 50), 0);
    EXPECT_THAT(replies.answered, IsEmpty());
    freeze.thaw();
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (replies.answered.empty() && std::chrono::steady_clock::now() < deadline)
        EXPECT_EQ(zamc_run(client, 10), 0);
    EXPECT_THAT(replies.answered, ElementsAre(true));
}

TEST_F(Ending, ACallbackThatLearnsOfItMayConnectAnew) {
    ASSERT_GE(client.connect(), 0);
    Replies replies;
    const auto reconnect = [](zamc_client *again, const zam_message *reply, void *arg) {
        EXPECT_EQ(reply, nullptr);
        EXPECT_GE(zamc_connect(again, static_cast<Server *>(arg)->url().c_str()), 0);
        return 0;
    };
    zamc_bytes *request = json_bytes(pull_json);
    {
        Freeze freeze{server};
        EXPECT_EQ(zamc_send_rpc_asyn(client, request, reconnect, &server), 0);
        EXPECT_EQ(replies.ask(client), 0);
        server.kill();
    }
    zamc_free_bytes(request);
    server.start();
    EXPECT_EQ(zamc_run(client, 10), 0) << "there is a connection again";
    EXPECT_THAT(replies.answered, ElementsAre(false));
    EXPECT_EQ(pull(client), 0);
}

// Inside handlers

bool is_active(const Call &call) {
    return call.kind == Call::active;
}
int32_t later(zamc_client *, const Call &, zamc_bytes **) {
    return ZAMC_REPLY_LATER;
}

class EndingInside : public Ending {
protected:
    // Kills the server at its first call, and tries to go on as if nothing had happened.
    Behaviour kills() {
        return [this](zamc_client *own, const Call &, zamc_bytes **output) {
            if (killed.exchange(true)) return 0;
            server.kill();
            EXPECT_EQ(pull(own), -1);
            EXPECT_EQ(push(own), -1);
            if (output) *output = json_bytes("7");
            return 0;
        };
    }
    std::unique_ptr<App> app_with(Subscription subscription) {
        return std::make_unique<App>(server.url(), journal, std::vector{std::move(subscription)},
                                     App::Options{.reconnect = true});
    }
    // Starts the server again and waits for the application, which goes on.
    void expect_the_app_back() {
        const size_t before = journal.calls().size();
        server.start();
        ASSERT_TRUE(journal.wait_for(is_active, before));
    }

    std::atomic<bool> killed = false;
};

TEST_F(EndingInside, AConfigHandlerFailsThePushAndTheApplicationComesBack) {
    auto app = app_with({.target = interface_list, .behaviour = kills()});
    ASSERT_GE(client.connect(), 0);
    EXPECT_EQ(push(client), -1);
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::config; }));
    expect_the_app_back();
    ASSERT_GE(client.connect(), 0);
    EXPECT_EQ(push(client), 0) << "what was not committed is not there";
    EXPECT_FALSE(app->lost());
}

TEST_F(EndingInside, AStatusHandlerFailsThePullAndTheApplicationComesBack) {
    auto app = app_with({.target = index_state, .type = ZAMC_SUB_STATUS_QUERY, .behaviour = kills()});
    ASSERT_GE(client.connect(), 0);
    constexpr char operational[] = "ietf-datastores:operational";
    EXPECT_EQ(zamc_set_attr(client, ZAMC_ATTR_TARGET_DS, operational, sizeof operational), 0);
    zamc_bytes *bytes = nullptr;
    EXPECT_EQ(zamc_pull(client, 0, index_state, -1, &bytes), -1);
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::status; }));
    expect_the_app_back();
    ASSERT_GE(client.connect(), 0);
    EXPECT_EQ(zamc_pull(client, 0, index_state, -1, &bytes), 0);
    zamc_free_bytes(bytes);
}

int32_t call_restart(zamc_client *client) {
    zamc_bytes *request = json_bytes(restart_json);
    zamc_bytes *reply = nullptr;
    const int32_t result = zamc_send_rpc_sync(client, request, &reply, a_minute);
    EXPECT_EQ(reply, nullptr);
    zamc_free_bytes(request);
    zamc_free_bytes(reply);
    return result;
}

TEST_F(EndingInside, AnOperationHandlerFailsTheCallAndTheApplicationComesBack) {
    auto app = app_with({.target = restart, .type = ZAMC_SUB_OPERATION, .behaviour = kills()});
    ASSERT_GE(client.connect(), 0);
    EXPECT_EQ(call_restart(client), -1);
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::operation; }));
    expect_the_app_back();
    ASSERT_GE(client.connect(), 0);
    EXPECT_EQ(call_restart(client), 0);
}

TEST_F(EndingInside, TheReplayIsDoneAgainFromTheStart) {
    App app{
        server.url(), journal, {{.target = interface_list, .behaviour = kills()}}, {.reconnect = true, .replay = true}};
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::config; }));
    const size_t before = journal.calls().size();
    server.start();
    ASSERT_TRUE(journal.wait_for(is_active, before));
    std::vector<std::string> replayed;
    for (const auto &call : journal.calls()) {
        if (call.kind == Call::active) replayed.push_back("active");
        if (call.kind == Call::config && call.list_more) replayed.push_back("first");
        if (call.kind == Call::config && !call.list_more) replayed.push_back("last");
    }
    ASSERT_GE(replayed.size(), 4u); // before the death, one or two
    EXPECT_THAT(std::vector(replayed.end() - 3, replayed.end()), ElementsAre("first", "last", "active"));
}

TEST_F(EndingInside, AnActivationsSubscriptionsAreSentAgainOnTheNextConnection) {
    int told = 0;
    zamc_sub_node node{};
    node.target = interface_list;
    node.priority = 1;
    node.config = [](zamc_client *, uint32_t, uint32_t, int32_t, const char *, void *user) {
        ++*static_cast<int *>(user);
        return 0;
    };
    node.user = &told;
    ASSERT_GE(client.connect(), 0);
    EXPECT_EQ(zamc_subscribe(client, &node), 0);
    {
        Freeze freeze{server};
        auto activation = std::async(std::launch::async, [this] { return activate(client); });
        EXPECT_TRUE(is_sent(client.fd()));
        server.kill();
        EXPECT_EQ(activation.get(), -1);
    }
    server.start();
    ASSERT_GE(client.connect(), 0);
    EXPECT_EQ(activate(client), 0);
    EXPECT_EQ(zamc_send_heartbeat(client), 0);
    EXPECT_EQ(zamc_run(client, 0), 0);
    auto pushed = std::async(std::launch::async, [this] {
        Client pusher{server};
        EXPECT_GE(pusher.connect(), 0);
        return push(pusher);
    });
    while (pushed.wait_for(0s) != std::future_status::ready)
        ASSERT_EQ(zamc_run(client, 10), 0);
    EXPECT_EQ(pushed.get(), 0);
    EXPECT_EQ(told, 1);
}

TEST_F(EndingInside, AnAnswerThatWasPutOffIsOwedNoLonger) {
    App app{server.url(),
            journal,
            {{.target = restart, .type = ZAMC_SUB_OPERATION, .behaviour = later}},
            {.reconnect = true}};
    ASSERT_GE(client.connect(), 0);
    auto call = std::async(std::launch::async, [this] { return call_restart(client); });
    ASSERT_TRUE(journal.wait_for([](const Call &seen) { return seen.kind == Call::operation; }));
    server.kill();
    EXPECT_EQ(call.get(), -1);
    expect_the_app_back();
    EXPECT_EQ(app.on_thread([](zamc_client *own) { return zamc_reply_asyn(own, 0, nullptr); }), -1);
}

TEST_F(EndingInside, SilenceInsideAHandlerIsWaitedForAndTheAnswerStillCounts) {
    App app{server.url(),
            journal,
            {{.target = interface_list, .behaviour = [this](zamc_client *own, const Call &, zamc_bytes **) {
                  const uint32_t time_out = 50;
                  EXPECT_EQ(zamc_set_attr(own, ZAMC_ATTR_SYNC_TIMEOUT, &time_out, sizeof time_out), 0);
                  Freeze freeze{server};
                  EXPECT_EQ(pull(own), -1);
                  return 0;
              }}}};
    ASSERT_GE(client.connect(), 0);
    EXPECT_EQ(push(client), 0);
    EXPECT_FALSE(app.lost());
}

} // namespace
