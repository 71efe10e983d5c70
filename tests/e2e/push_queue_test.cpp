// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Pushes one after the other, reads meanwhile; and the startup datastore.
#include <algorithm>

#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
constexpr char radio[] = R"({"radio:radio":{"motto":"quiet","volume":3}})";
constexpr char motto[] = "/radio:radio/motto";
constexpr char startup[] = "ietf-datastores:startup";

bool is_config(const Call &call) {
    return call.kind == Call::config;
}

class PushQueue : public testing::Test {
protected:
    // An application that answers only when the test says so.
    Subscription patient(const std::string &target = "/radio:radio") {
        return {.target = target,
                .behaviour = [](zamc_client *, const Call &, zamc_bytes **) { return int32_t{ZAMC_REPLY_LATER}; }};
    }
    void answer(App &app, bool agree) {
        app.on_thread([agree](zamc_client *client) {
            if (!agree) zamc_error_set(client, 7, "%s", "not now");
            return zamc_reply_asyn(client, 0, nullptr);
        });
    }
    std::future<int32_t> push_beside(const std::string &path, const std::string &content) {
        return std::async(std::launch::async,
                          [=, this] { return Operator{server.url()}.push(path, ZAMC_PUSH_MERGE, content); });
    }
    size_t config_calls() const {
        const auto calls = journal.calls();
        return static_cast<size_t>(std::count_if(calls.begin(), calls.end(), is_config));
    }

    DescriptorCheck descriptors;
    Server server{{.startup = radio, .modules = real_models_and_radio()}};
    Journal journal;
};

TEST_F(PushQueue, ASecondPushWaitsForTheFirstAndBuildsOnIt) {
    App app{server.url(), journal, {patient()}};
    auto first = push_beside(motto, "first");
    const auto one = journal.wait_for(is_config);
    ASSERT_TRUE(one);
    Operator op{server.url()};
    auto second = push_beside("/radio:radio/volume", "4");
    // A pull that comes after the second push has been read is answered before it: reads do not queue.
    EXPECT_EQ(op.pull(motto), "quiet");
    EXPECT_EQ(op.pull("/radio:radio/volume"), "3");
    EXPECT_EQ(config_calls(), 1u);
    EXPECT_EQ(first.wait_for(0s), std::future_status::timeout);

    answer(app, true);
    EXPECT_EQ(first.get(), 0);
    ASSERT_TRUE(journal.wait_for(is_config, *one + 1));
    EXPECT_EQ(op.pull(motto), "first");
    EXPECT_EQ(op.pull("/radio:radio/volume"), "3");
    EXPECT_EQ(second.wait_for(0s), std::future_status::timeout);
    answer(app, true);
    EXPECT_EQ(second.get(), 0);
    EXPECT_EQ(op.pull("/radio:radio"), R"({"motto":"first","volume":4})");
}

TEST_F(PushQueue, ARefusedPushLeavesTheNextOneToItself) {
    App app{server.url(), journal, {patient()}};
    auto first = push_beside(motto, "first");
    const auto one = journal.wait_for(is_config);
    ASSERT_TRUE(one);
    auto second = push_beside("/radio:radio/volume", "4");
    answer(app, false);
    EXPECT_EQ(first.get(), -1);
    ASSERT_TRUE(journal.wait_for(is_config, *one + 1));
    answer(app, true);
    EXPECT_EQ(second.get(), 0);
    EXPECT_EQ(Operator{server.url()}.pull("/radio:radio"), R"({"motto":"quiet","volume":4})");
}

TEST_F(PushQueue, PushesOfOneConnectionKeepTheirOrder) {
    App app{server.url(), journal, {{.target = motto}}};
    Operator op{server.url()};
    constexpr int many = 50;
    struct Reply {
        std::vector<std::string> texts;
    } replies;
    const auto keep = [](zamc_client *, const zam_message *message, void *user) {
        static_cast<Reply *>(user)->texts.push_back(message ? std::string(message->data, message->length)
                                                            : ""); // an empty reply comes as none
        return int32_t{0};
    };
    for (int i = 0; i < many; ++i) {
        const std::string text = R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running","entity":")" +
                                 std::string{motto} + R"(","content":{"motto":")" + std::to_string(i) + "\"}}}";
        zamc_bytes *request = json_bytes(text);
        EXPECT_EQ(zamc_send_rpc_asyn(op.client(), request, keep, &replies), 0);
        zamc_free_bytes(request);
    }
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (replies.texts.size() < many && std::chrono::steady_clock::now() < deadline)
        ASSERT_EQ(zamc_run(op.client(), 100), 0);
    EXPECT_EQ(replies.texts, std::vector<std::string>(many));
    EXPECT_EQ(config_calls(), size_t{many});
    EXPECT_EQ(op.pull(motto), std::to_string(many - 1));
}

TEST_F(PushQueue, APushThatIsFoundToBeWrongOnlyInItsTurnIsRefusedThen) {
    App app{server.url(), journal, {patient()}};
    auto first = push_beside("/radio:radio/name", "kitchen");
    ASSERT_TRUE(journal.wait_for(is_config));
    auto second = std::async(std::launch::async, [this] {
        return Operator{server.url()}.push("/radio:radio/name", ZAMC_PUSH_CREATE, "bath");
    });
    EXPECT_EQ(second.wait_for(20ms), std::future_status::timeout);
    answer(app, true);
    EXPECT_EQ(first.get(), 0);
    EXPECT_EQ(second.get(), -1);
    EXPECT_EQ(Operator{server.url()}.pull("/radio:radio/name"), "kitchen");
}

TEST_F(PushQueue, APusherThatGoesAwayIsNoReasonToStop) {
    App app{server.url(), journal, {patient()}};
    {
        Operator gone{server.url()};
        zamc_bytes *request = json_bytes(R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running",)"
                                         R"("entity":"/radio:radio/motto","content":{"motto":"legacy"}}})");
        const auto ignore = [](zamc_client *, const zam_message *, void *) { return int32_t{0}; };
        EXPECT_EQ(zamc_send_rpc_asyn(gone.client(), request, ignore, nullptr), 0);
        zamc_free_bytes(request);
        ASSERT_TRUE(journal.wait_for(is_config));
    }
    answer(app, true);
    Operator op{server.url()};
    EXPECT_EQ(op.push("/radio:radio/motto", ZAMC_PUSH_MERGE, "legacy"), 0); // has its turn after it: no change any more
    EXPECT_EQ(op.pull(motto), "legacy");
    EXPECT_EQ(config_calls(), 1u);
}

class Startup : public PushQueue {};

TEST_F(Startup, IsPushedToWithoutAPublicationAndApartFromRunning) {
    App app{server.url(), journal, {{.target = "/radio:radio"}}};
    Operator op{server.url()};
    Operator other{server.url()};
    op.datastore(startup);
    EXPECT_EQ(op.pull("/radio:radio"), R"({"motto":"quiet","volume":3})");
    EXPECT_EQ(op.push(motto, ZAMC_PUSH_MERGE, "next time"), 0);
    EXPECT_EQ(op.pull(motto), "next time");
    EXPECT_EQ(other.pull(motto), "quiet");
    EXPECT_EQ(config_calls(), 0u);
}

TEST_F(Startup, StaysWhenRunningChanges) {
    Operator op{server.url()};
    EXPECT_EQ(op.push(motto, ZAMC_PUSH_MERGE, "now"), 0);
    EXPECT_EQ(op.pull(motto), "now");
    op.datastore(startup);
    EXPECT_EQ(op.pull(motto), "quiet");
}

TEST_F(Startup, TakesEveryOperation) {
    Operator op{server.url()};
    op.datastore(startup);
    EXPECT_EQ(op.push("/radio:radio/name", ZAMC_PUSH_CREATE, "kitchen"), 0);
    EXPECT_EQ(op.push("/radio:radio/name", ZAMC_PUSH_CREATE, "kitchen"), -1);
    EXPECT_EQ(op.push(motto, ZAMC_PUSH_DELETE, ""), 0);
    EXPECT_EQ(op.push(motto, ZAMC_PUSH_DELETE, ""), -1);
    EXPECT_EQ(op.push(motto, ZAMC_PUSH_REMOVE, ""), 0);
    EXPECT_EQ(op.pull("/radio:radio"), R"({"name":"kitchen","volume":3})");
    EXPECT_EQ(op.push("/radio:radio", ZAMC_PUSH_REPLACE, R"({"volume":1})"), 0);
    EXPECT_EQ(op.pull("/radio:radio"), R"({"volume":1})");
}

TEST_F(Startup, IsValidatedToo) {
    Operator op{server.url()};
    op.datastore(startup);
    EXPECT_EQ(op.push("/radio:radio", ZAMC_PUSH_MERGE, R"({"volume":9,"night":true})"), -1);
    EXPECT_EQ(op.pull("/radio:radio"), R"({"motto":"quiet","volume":3})");
}

TEST_F(Startup, WaitsForItsTurnAmongThePushes) {
    App app{server.url(), journal, {patient()}};
    auto first = push_beside(motto, "first");
    ASSERT_TRUE(journal.wait_for(is_config));
    auto second = std::async(std::launch::async, [this] {
        Operator op{server.url()};
        op.datastore(startup);
        return op.push(motto, ZAMC_PUSH_MERGE, "later");
    });
    EXPECT_EQ(second.wait_for(20ms), std::future_status::timeout);
    answer(app, true);
    EXPECT_EQ(first.get(), 0);
    EXPECT_EQ(second.get(), 0);
    Operator op{server.url()};
    EXPECT_EQ(op.pull(motto), "first");
    op.datastore(startup);
    EXPECT_EQ(op.pull(motto), "later");
}

TEST_F(Startup, OperationalIsReadOnly) {
    Operator op{server.url()};
    op.datastore("ietf-datastores:operational");
    EXPECT_EQ(op.push(motto, ZAMC_PUSH_MERGE, "x"), -1);
    EXPECT_EQ(op.pull(motto), "quiet");
}

} // namespace
