// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What a client leaves behind when it is freed, whatever it was in the middle of: nothing.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <memory>

#include <gmock/gmock.h>

#include "e2e/app.h"
#include "support/heap.h"

namespace {

using namespace zam::test;
using testing::HasSubstr;

constexpr char motto[] = "/radio:radio/motto";
constexpr char preset_list[] = "/radio:radio/preset";
constexpr char one[] = "/radio:radio/preset[name='one']";
constexpr char signal_state[] = "/radio:radio/state/signal";
constexpr char tune[] = "/radio:tune";
constexpr char tune_json[] = R"({"radio:tune":{"frequency":1}})";
constexpr char startup[] = R"({"radio:radio":{"motto":"m","preset":[{"name":"one"},{"name":"two"}]}})";

int32_t later(zamc_client *, const Call &, zamc_bytes **) {
    return ZAMC_REPLY_LATER;
}

struct FreeClient {
    void operator()(zamc_client *client) const { zamc_client_free(client); }
};
using OwnedClient = std::unique_ptr<zamc_client, FreeClient>;

struct FreeBytes {
    void operator()(zamc_bytes *bytes) const { zamc_free_bytes(bytes); }
};
using OwnedBytes = std::unique_ptr<zamc_bytes, FreeBytes>;

// Looks at the change that it is asked about in every way there is.
int32_t look_around(zamc_client *client, const Call &, zamc_bytes **) {
    zamc_bytes *bytes = nullptr;
    EXPECT_EQ(zamc_diff(client, "/radio:radio", -1, &bytes), 0);
    zamc_free_bytes(bytes);
    EXPECT_EQ(zamc_pull(client, 1, "/radio:radio", -1, &bytes), 0);
    zamc_free_bytes(bytes);
    EXPECT_EQ(zamc_locate(client, 0, one, &bytes), 0);
    zamc_free_bytes(bytes);
    EXPECT_EQ(zamc_cli_printf(client, "%s", "I am looking around."), 0);
    zamc_error_set(client, 5, "taken back");
    zamc_error_set(client, 0, nullptr);
    return 0;
}

int32_t must_not_be_called(zamc_client *, const zam_message *, void *) {
    ADD_FAILURE() << "the client is gone";
    return 0;
}

class Resources : public testing::TestWithParam<uint32_t> {
protected:
    void SetUp() override {
        load_models();
        descriptors = open_descriptors();
        heap.emplace();
    }
    void TearDown() override {
        EXPECT_EQ(heap->live(), 0u) << heap->live_sites();
        EXPECT_EQ(open_descriptors(), descriptors);
    }

    OwnedClient connected() {
        OwnedClient client{zamc_client_new("client", GetParam())};
        EXPECT_GE(zamc_connect(client.get(), server.url().c_str()), 0);
        return client;
    }
    static void subscribe(zamc_client *client, zamc_config_fn handler, void *user = nullptr) {
        zamc_sub_node node{};
        node.target = preset_list;
        node.priority = 1;
        node.config = handler;
        node.user = user;
        EXPECT_EQ(zamc_subscribe(client, &node), 0);
    }
    static void activate(zamc_client *client) {
        EXPECT_EQ(zamc_activate(client, 0, nullptr, nullptr), 0);
        EXPECT_EQ(zamc_send_heartbeat(client), 0);
        EXPECT_EQ(zamc_run(client, 0), 0);
    }
    // A push from elsewhere to which somebody has to agree.
    std::future<int32_t> push_meanwhile() {
        return std::async(std::launch::async, [this] {
            Operator op{server.url(), GetParam()};
            return op.push(preset_list, ZAMC_PUSH_MERGE,
                           R"([{"name":"one","frequency":1},{"name":"two","frequency":2}])");
        });
    }
    static void ask(zamc_client *client, const std::string &request, zamc_reply_fn callback = must_not_be_called,
                    void *arg = nullptr) {
        const OwnedBytes bytes{json_bytes(request)};
        EXPECT_EQ(zamc_send_rpc_asyn(client, bytes.get(), callback, arg), 0);
    }

    Server server{{.startup = startup, .modules = real_models_and_radio()}};
    Journal journal;
    int descriptors = 0;
    std::optional<Heap> heap;
};

INSTANTIATE_TEST_SUITE_P(Encodings, Resources, testing::Values(ZAM_ENCODE_JSON, ZAM_ENCODE_XML),
                         [](const auto &given) { return given.param == ZAM_ENCODE_XML ? "Xml" : "Json"; });

TEST_P(Resources, AreLeftByNoClientThatWasNeverConnected) {
    OwnedClient client{zamc_client_new("client", GetParam())};
    subscribe(client.get(), nullptr);
    zamc_error_set(client.get(), 3, "of %s", "no use");
    EXPECT_EQ(zamc_connect(client.get(), "unix:///nowhere/at/all"), -1);
    EXPECT_EQ(zamc_run(client.get(), 0), -1);
}

TEST_P(Resources, AreLeftByNoClientThatTheServerRefused) {
    OwnedClient client{zamc_client_new(std::string(256, 'n').c_str(), GetParam())};
    EXPECT_EQ(zamc_connect(client.get(), server.url().c_str()), -1);
}

TEST_P(Resources, AreLeftByNoSessionThatDidEverything) {
    const bool xml = GetParam() == ZAM_ENCODE_XML;
    const auto answers = [](std::string text, uint32_t format) {
        return [text, format](zamc_client *, const Call &, zamc_bytes **output) {
            *output = zamc_new_bytes(text.data(), static_cast<int32_t>(text.size()), format);
            return 0;
        };
    };
    App app{server.url(),
            journal,
            {{.target = preset_list, .behaviour = look_around},
             {.target = motto, .type = ZAMC_SUB_CONFIG_CHANGE_BRIEF},
             {.target = signal_state,
              .type = ZAMC_SUB_STATUS_QUERY,
              .behaviour = answers(xml ? R"(<signal xmlns="urn:zamc:test:radio">-5</signal>)" : "-5", GetParam())},
             {.target = tune,
              .type = ZAMC_SUB_OPERATION,
              .behaviour = answers(xml ? R"(<song xmlns="urn:zamc:test:radio">la</song>)" : R"({"radio:song":"la"})",
                                   GetParam())}},
            {.encode = GetParam()}};
    Operator op{server.url(), GetParam()};
    EXPECT_EQ(op.push(one, ZAMC_PUSH_MERGE, R"([{"name":"one","frequency":7}])"), 0);
    EXPECT_EQ(op.push(motto, ZAMC_PUSH_MERGE, std::string(60, 'm')), 0);
    EXPECT_EQ(op.push(one, ZAMC_PUSH_CREATE, R"([{"name":"one"}])"), -1);
    EXPECT_THAT(op.pull("/"), HasSubstr("mmmm"));
    EXPECT_THAT(op.exchange(tune_json), HasSubstr("la"));
    EXPECT_THAT(op.exchange("{"), HasSubstr("rpc-error"));
    op.datastore("ietf-datastores:operational");
    EXPECT_THAT(op.pull(signal_state), HasSubstr("-5"));
    EXPECT_EQ(app.change_subscriptions({{.target = "/radio:radio/volume"}}, {{.target = preset_list}}, true), 0);
    EXPECT_EQ(app.change_subscriptions({{.target = "/radio:radio/night"}}, {}, true), 0);
    EXPECT_EQ(app.on_thread([](zamc_client *client) { return zamc_deactivate(client); }), 0);
}

TEST_P(Resources, AreLeftByNoLargePull) {
    Operator op{server.url(), GetParam()};
    std::string entries;
    for (int i = 0; i < 2000; ++i)
        entries += (i ? "," : "") + std::string{R"({"name":"room )"} + std::to_string(i) + R"(","size":1})";
    EXPECT_EQ(op.push("/radio:room", ZAMC_PUSH_MERGE, "[" + entries + "]"), 0);
    EXPECT_THAT(op.pull("/radio:room"), HasSubstr("room 1999"));
    for (int i = 0; i < 3; ++i)
        ask(op.client(), R"({"orvel-zam-server:pull":{"entity":"/radio:room"}})");
    EXPECT_EQ(zamc_send_heartbeat(op.client()), 0); // all of it is in the client's buffer now
}

TEST_P(Resources, AreLeftByNoRequestWithoutAnAnswer) {
    App app{server.url(), journal, {{.target = tune, .type = ZAMC_SUB_OPERATION, .behaviour = later}}};
    const OwnedClient client = connected();
    for (int i = 0; i < 3; ++i)
        ask(client.get(), tune_json);
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::operation; }));
}

TEST_P(Resources, AreLeftByNoAnswerThatWasPutOffForGood) {
    App app{
        server.url(),
        journal,
        {{.target = tune, .type = ZAMC_SUB_OPERATION, .behaviour = later}, {.target = preset_list, .behaviour = later}},
        {.encode = GetParam()}};
    Operator op{server.url()};
    ask(op.client(), tune_json);
    ask(op.client(), tune_json);
    auto pushed = push_meanwhile();
    const auto of_kind = [](Call::Kind kind) { return [=](const Call &call) { return call.kind == kind; }; };
    ASSERT_TRUE(journal.wait_for(of_kind(Call::operation)));
    ASSERT_TRUE(journal.wait_for(of_kind(Call::config)));
    app.on_thread([](zamc_client *client) {
        zamc_error_set(client, 9, "never %s", "told");
        zamc_disconnect(client);
        return 0;
    });
    EXPECT_EQ(pushed.get(), -1);
}

TEST_P(Resources, AreLeftByNoPublicationThatNobodyHandled) {
    std::future<int32_t> pushed;
    {
        const OwnedClient client = connected();
        subscribe(client.get(), [](zamc_client *, uint32_t, uint32_t, int32_t, const char *, void *) {
            ADD_FAILURE() << "nobody runs the client";
            return 0;
        });
        activate(client.get());
        // Another one is told together with it.
        App app{server.url(), journal, {{.target = preset_list, .priority = 1}}};
        pushed = push_meanwhile();
        ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::config; }));
        EXPECT_EQ(zamc_send_heartbeat(client.get()), 0); // read, and put back
    }
    EXPECT_EQ(pushed.get(), -1);
}

TEST_P(Resources, AreLeftByNoActivationWithoutItsFinish) {
    const OwnedClient client = connected();
    subscribe(client.get(), nullptr);
    EXPECT_EQ(zamc_activate(client.get(), 1, nullptr, nullptr), 0);
}

TEST_P(Resources, AreLeftByNothingThatCouldNotBeSent) {
    OwnedClient client = connected();
    EXPECT_EQ(kill(server.pid(), SIGSTOP), 0);
    const std::string large(1 << 20, ' ');
    for (int i = 0; i < 4; ++i)
        ask(client.get(), large + tune_json);
    const OwnedBytes request{json_bytes(tune_json)};
    zamc_bytes *reply = nullptr;
    EXPECT_EQ(zamc_send_rpc_sync(client.get(), request.get(), &reply, 50), -1);
    client.reset();
    EXPECT_EQ(kill(server.pid(), SIGCONT), 0);
}

TEST_P(Resources, AreLeftByNoLateAnswer) {
    const OwnedClient client = connected();
    EXPECT_EQ(kill(server.pid(), SIGSTOP), 0);
    const OwnedBytes request{json_bytes(R"({"orvel-zam-server:pull":{"entity":"/"}})")};
    zamc_bytes *reply = nullptr;
    EXPECT_EQ(zamc_send_rpc_sync(client.get(), request.get(), &reply, 50), -1);
    EXPECT_EQ(kill(server.pid(), SIGCONT), 0);
    EXPECT_EQ(zamc_send_heartbeat(client.get()), 0);
}

TEST_P(Resources, AreLeftByNoConnectionOfMany) {
    const OwnedClient client = connected();
    subscribe(client.get(), nullptr);
    int lost = 0;
    const auto count = [](zamc_client *, const zam_message *reply, void *arg) {
        EXPECT_EQ(reply, nullptr);
        ++*static_cast<int *>(arg);
        return 0;
    };
    for (int i = 0; i < 20; ++i) {
        ask(client.get(), tune_json, count, &lost);
        EXPECT_GE(zamc_connect(client.get(), server.url().c_str()), 0);
        activate(client.get());
        EXPECT_EQ(lost, i + 1);
    }
    EXPECT_EQ(open_descriptors(), descriptors + 2) << "the proactor's and the socket";
    zamc_disconnect(client.get());
    EXPECT_EQ(open_descriptors(), descriptors + 1);
}

// The server dies first.

TEST_P(Resources, AreLeftByNoClientThatHasNotNoticedTheServersDeath) {
    App app{server.url(), journal, {{.target = tune, .type = ZAMC_SUB_OPERATION, .behaviour = later}}};
    const OwnedClient client = connected();
    subscribe(client.get(), nullptr);
    activate(client.get());
    ask(client.get(), tune_json);
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::operation; }));
    server.kill();
    ask(client.get(), tune_json);
}

TEST_P(Resources, AreLeftByNoClientThatHasNoticedTheServersDeath) {
    App app{server.url(),
            journal,
            {{.target = tune, .type = ZAMC_SUB_OPERATION, .behaviour = later}},
            {.encode = GetParam(), .reconnect = true}};
    const OwnedClient client = connected();
    subscribe(client.get(), nullptr);
    EXPECT_EQ(zamc_activate(client.get(), 1, nullptr, nullptr), 0);
    int lost = 0;
    ask(
        client.get(), tune_json,
        [](zamc_client *, const zam_message *reply, void *arg) {
            EXPECT_EQ(reply, nullptr);
            return ++*static_cast<int *>(arg);
        },
        &lost);
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::operation; }));
    server.kill();
    EXPECT_EQ(zamc_run(client.get(), 10000), -1);
    EXPECT_EQ(lost, 1);
    zamc_bytes *bytes = nullptr;
    EXPECT_EQ(zamc_pull(client.get(), 0, "/", -1, &bytes), -1);
    EXPECT_EQ(zamc_connect(client.get(), server.url().c_str()), -1);
}

TEST_P(Resources, AreLeftByNoServerThatDiedInsideAHandler) {
    App app{server.url(),
            journal,
            {{.target = preset_list,
              .behaviour =
                  [this](zamc_client *client, const Call &, zamc_bytes **) {
                      if (server.pid() > 0) server.kill();
                      zamc_error_set(client, 4, "too late");
                      return 1;
                  }}},
            {.encode = GetParam()}};
    EXPECT_EQ(push_meanwhile().get(), -1);
    ASSERT_TRUE(journal.wait_for([](const Call &call) { return call.kind == Call::config; }));
}

// The client is freed inside its own code.

int32_t run_to_the_end(OwnedClient client) {
    zamc_client *owner = client.release(); // its handler frees it
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    int32_t result = 0;
    while (result == 0 && std::chrono::steady_clock::now() < deadline)
        result = zamc_run(owner, 10);
    return result;
}

TEST_P(Resources, AreLeftByNoClientThatItsConfigHandlerFreed) {
    OwnedClient client = connected();
    subscribe(client.get(), [](zamc_client *own, uint32_t, uint32_t, int32_t, const char *, void *) {
        zamc_client_free(own);
        return 0;
    });
    activate(client.get());
    auto pushed = push_meanwhile();
    EXPECT_EQ(run_to_the_end(std::move(client)), -1);
    EXPECT_EQ(pushed.get(), -1);
}

TEST_P(Resources, AreLeftByNoClientThatItsOperationHandlerFreed) {
    OwnedClient client = connected();
    zamc_sub_node node{};
    node.target = tune;
    node.type = ZAMC_SUB_OPERATION;
    node.operation = [](zamc_client *own, const zamc_bytes *, zamc_bytes **output, void *) {
        *output = json_bytes(R"({"radio:song":"swan"})");
        zamc_error_set(own, 1, "and an error");
        zamc_client_free(own);
        return 0;
    };
    EXPECT_EQ(zamc_subscribe(client.get(), &node), 0);
    activate(client.get());
    ask(client.get(), tune_json);
    EXPECT_EQ(run_to_the_end(std::move(client)), -1);
}

TEST_P(Resources, AreLeftByNoClientThatItsActivationFreed) {
    OwnedClient client = connected();
    subscribe(client.get(), nullptr);
    EXPECT_EQ(zamc_activate(
                  client.get(), 0,
                  [](zamc_client *own, int32_t, void *, int32_t) {
                      zamc_client_free(own);
                      return 0;
                  },
                  nullptr),
              0);
    EXPECT_EQ(run_to_the_end(std::move(client)), -1);
}

TEST_P(Resources, AreLeftByNoClientThatAReplyFreed) {
    OwnedClient client = connected();
    ask(client.get(), R"({"orvel-zam-server:pull":{"entity":"/"}})", [](zamc_client *own, const zam_message *, void *) {
        zamc_client_free(own);
        return 0;
    });
    ask(client.get(), tune_json);
    EXPECT_EQ(run_to_the_end(std::move(client)), -1);
}

TEST_P(Resources, AreLeftByNoClientThatTheNewsOfTheServersDeathFreed) {
    OwnedClient client = connected();
    EXPECT_EQ(kill(server.pid(), SIGSTOP), 0);
    ask(client.get(), tune_json, [](zamc_client *own, const zam_message *reply, void *) {
        EXPECT_EQ(reply, nullptr);
        zamc_client_free(own);
        return 0;
    });
    ask(client.get(), tune_json);
    server.kill();
    EXPECT_EQ(run_to_the_end(std::move(client)), -1);
}

TEST_P(Resources, OfTheServerAreGivenBackToo) {
    const auto open_at_server = [this] {
        std::vector<std::string> files;
        for (const auto &entry : std::filesystem::directory_iterator{"/proc/" + std::to_string(server.pid()) + "/fd"}) {
            std::error_code closed_meanwhile;
            files.push_back(std::filesystem::read_symlink(entry.path(), closed_meanwhile).string());
        }
        std::sort(files.begin(), files.end());
        return files;
    };
    const OwnedClient stays = connected(); // so the server has begun its work
    const auto before = open_at_server();
    {
        std::vector<OwnedClient> clients;
        for (int i = 0; i < 10; ++i) {
            clients.push_back(connected());
            subscribe(clients.back().get(), nullptr);
            activate(clients.back().get());
            ask(clients.back().get(), tune_json);
        }
        EXPECT_GE(open_at_server().size(), before.size() + 10);
    }
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (open_at_server() != before && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_EQ(open_at_server(), before);
}

} // namespace
