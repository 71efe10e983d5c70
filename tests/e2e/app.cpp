// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "e2e/app.h"

#include <cstdlib>

#include <gtest/gtest.h>

namespace zam::test {

const char two_interfaces[] = R"({"ietf-interfaces:interfaces":{"interface":[
  {"name":"eth0","type":"iana-if-type:ethernetCsmacd","enabled":true},
  {"name":"eth1","type":"iana-if-type:ethernetCsmacd","enabled":true}]}})";

std::vector<std::string> real_models_and_radio() {
    return {models_path(), ZAMC_RADIO_PATH};
}

void load_models() {
    static const bool loaded = [] {
        if (zamc_initialize() != 0) return false;
        for (const auto &folder : real_models_and_radio()) {
            if (zamc_load_module(folder.c_str(), nullptr) != 0) return false;
        }
        return true;
    }();
    ASSERT_TRUE(loaded);
}

zamc_bytes *json_bytes(const std::string &text) {
    return zamc_new_bytes(text.data(), static_cast<int32_t>(text.size()), ZAM_ENCODE_JSON);
}

void Journal::add(Call call) {
    {
        std::lock_guard guard{mutex_};
        calls_.push_back(std::move(call));
    }
    changed_.notify_all();
}

std::vector<Call> Journal::calls() const {
    std::lock_guard guard{mutex_};
    return calls_;
}

void Journal::clear() {
    std::lock_guard guard{mutex_};
    calls_.clear();
}

std::optional<size_t> Journal::wait_for(const std::function<bool(const Call &)> &wanted, size_t from,
                                        std::chrono::milliseconds deadline) {
    std::unique_lock lock{mutex_};
    std::optional<size_t> found;
    changed_.wait_for(lock, deadline, [&] {
        for (size_t i = from; i < calls_.size() && !found; ++i) {
            if (wanted(calls_[i])) found = i;
        }
        return found.has_value();
    });
    return found;
}

struct App::Handler {
    App *app;
    Behaviour behaviour;
};

App::App(std::string url, Journal &journal, std::vector<Subscription> subscriptions, Options options)
    : url_{std::move(url)}, journal_{journal}, options_{std::move(options)} {
    load_models();
    client_ = zamc_client_new(options_.name.c_str(), options_.encode);
    if (!options_.dependent_clients.empty()) {
        const auto &names = options_.dependent_clients;
        EXPECT_EQ(zamc_set_attr(client_, ZAMC_ATTR_DEP_CLIENTS, names.c_str(), static_cast<uint32_t>(names.size() + 1)),
                  0);
    }
    for (const auto &subscription : subscriptions)
        EXPECT_EQ(subscribe(client_, subscription, true), 0);
    std::promise<void> active;
    auto is_active = active.get_future();
    thread_ = std::thread{[this, &active] {
        EXPECT_TRUE(connect_and_activate()) << options_.name;
        while (activations_ == 0 && zamc_run(client_, 20) == 0) {
        }
        active.set_value();
        run();
    }};
    EXPECT_EQ(is_active.wait_for(30s), std::future_status::ready) << options_.name << " does not become active";
}

App::~App() {
    stopping_ = true;
    thread_.join();
    zamc_client_free(client_);
}

bool App::connect_and_activate() {
    if (zamc_connect(client_, url_.c_str()) < 0) return false;
    lost_ = false;
    return zamc_activate(client_, options_.replay, on_active, this) == 0;
}

void App::run() {
    while (!stopping_) {
        std::deque<std::function<void()>> tasks;
        {
            std::lock_guard guard{mutex_};
            tasks.swap(tasks_);
        }
        for (const auto &task : tasks)
            task();
        last_run_ = zamc_run(client_, 10);
        if (last_run_ == 0) continue;
        lost_ = true;
        if (options_.reconnect) connect_and_activate();
        if (lost_) std::this_thread::sleep_for(5ms); // nothing to wait on without a connection
    }
}

int32_t App::subscribe(zamc_client *client, const Subscription &subscription, bool add) {
    handlers_.push_back({this, subscription.behaviour});
    zamc_sub_node node{};
    node.target = subscription.target.c_str();
    node.type = subscription.type;
    node.user = &handlers_.back();
    switch (subscription.type) {
    case ZAMC_SUB_STATUS_QUERY: node.status = on_status; break;
    case ZAMC_SUB_OPERATION: node.operation = on_operation; break;
    default:
        node.priority = subscription.priority;
        node.filter_mask = subscription.mask;
        if (subscription.type == ZAMC_SUB_CONFIG_CHANGE) node.config = on_config;
        if (subscription.type == ZAMC_SUB_CONFIG_CHANGE_BRIEF) node.config_brief = on_config_brief;
    }
    return add ? zamc_subscribe(client, &node) : zamc_unsubscribe(client, &node);
}

int32_t App::change_subscriptions(const std::vector<Subscription> &add, const std::vector<Subscription> &remove,
                                  bool replay) {
    const int before = activations_;
    const int32_t result = on_thread([&](zamc_client *client) {
        for (const auto &subscription : add)
            EXPECT_EQ(subscribe(client, subscription, true), 0);
        for (const auto &subscription : remove)
            EXPECT_EQ(subscribe(client, subscription, false), 0);
        return zamc_activate(client, replay, on_active, this);
    });
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (result == 0 && activations_ == before && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(result != 0 || activations_ > before) << "the activation does not finish";
    return result;
}

uint32_t App::session_id() {
    return on_thread([](zamc_client *client) {
        uint32_t id = 0;
        uint32_t length = sizeof id;
        EXPECT_EQ(zamc_get_attr(client, ZAMC_ATTR_SESSION_ID, &id, &length), 0);
        return id;
    });
}

int32_t App::called(zamc_client *client, Call call, Handler &handler, zamc_bytes **output) {
    call.app = options_.name;
    call.seq = zamc_request_seq(client);
    const int32_t result = handler.behaviour ? handler.behaviour(client, call, output) : 0;
    journal_.add(std::move(call)); // after the behaviour: who finds it here finds its effects too
    return result;
}

int32_t App::on_config(zamc_client *client, uint32_t mask, uint32_t priority, int32_t list_more, const char *target,
                       void *user) {
    auto &handler = *static_cast<Handler *>(user);
    EXPECT_TRUE(list_more == 0 || list_more == 1);
    return handler.app->called(client, {Call::config, {}, mask, priority, list_more == 1, target, {}, 0, 0}, handler,
                               nullptr);
}

int32_t App::on_config_brief(zamc_client *client, uint32_t mask, uint32_t priority, const char *target, void *user) {
    auto &handler = *static_cast<Handler *>(user);
    return handler.app->called(client, {Call::config, {}, mask, priority, false, target, {}, 0, 0}, handler, nullptr);
}

int32_t App::on_status(zamc_client *client, const char *target, void *reserved, zamc_bytes **output, void *user) {
    auto &handler = *static_cast<Handler *>(user);
    EXPECT_EQ(reserved, nullptr);
    EXPECT_EQ(*output, nullptr);
    return handler.app->called(client, {Call::status, {}, 0, 0, false, target, {}, 0, 0}, handler, output);
}

int32_t App::on_operation(zamc_client *client, const zamc_bytes *input, zamc_bytes **output, void *user) {
    auto &handler = *static_cast<Handler *>(user);
    EXPECT_EQ(*output, nullptr);
    const std::string text = input->data ? std::string(input->data, static_cast<size_t>(input->length)) : "";
    return handler.app->called(client, {Call::operation, {}, 0, 0, false, {}, text, input->format, 0}, handler, output);
}

int32_t App::on_active(zamc_client *, int32_t finished, void *user, int32_t reserved) {
    auto *app = static_cast<App *>(user);
    EXPECT_EQ(finished, 1);
    EXPECT_EQ(reserved, 0);
    app->journal_.add({Call::active, app->options_.name, 0, 0, false, {}, {}, 0, 0});
    ++app->activations_;
    return 0;
}

Operator::Operator(const std::string &url, uint32_t encode, const std::string &name)
    : client_{(load_models(), zamc_client_new(name.c_str(), encode))} {
    EXPECT_GE(zamc_connect(client_, url.c_str()), 0);
    const uint32_t timeout = 30000;
    EXPECT_EQ(zamc_set_attr(client_, ZAMC_ATTR_SYNC_TIMEOUT, &timeout, sizeof timeout), 0);
}

Operator::~Operator() {
    zamc_client_free(client_);
}

int32_t Operator::push(const std::string &path, int32_t operation, const std::string &content, uint32_t format) {
    zamc_bytes *bytes = zamc_new_bytes(content.data(), static_cast<int32_t>(content.size()), format);
    const int32_t result = zamc_push(client_, path.c_str(), operation, bytes);
    zamc_free_bytes(bytes);
    return result;
}

std::string Operator::pull(const std::string &path, int32_t depth, int32_t version) {
    zamc_bytes *bytes = nullptr;
    EXPECT_EQ(zamc_pull(client_, version, path.c_str(), depth, &bytes), 0) << path;
    const std::string text = bytes ? std::string(bytes->data, static_cast<size_t>(bytes->length)) : "";
    zamc_free_bytes(bytes);
    return text;
}

void Operator::datastore(const std::string &name) {
    EXPECT_EQ(zamc_set_attr(client_, ZAMC_ATTR_TARGET_DS, name.c_str(), static_cast<uint32_t>(name.size() + 1)), 0);
}

std::string Operator::exchange(const std::string &payload, uint32_t format) {
    zamc_bytes *request = zamc_new_bytes(payload.data(), static_cast<int32_t>(payload.size()), format);
    zamc_bytes *reply = nullptr;
    EXPECT_EQ(zamc_send_rpc_sync(client_, request, &reply, 30000), 0);
    const std::string text = reply ? std::string(reply->data, static_cast<size_t>(reply->length)) : "";
    zamc_free_bytes(request);
    zamc_free_bytes(reply);
    return text;
}

std::string Operator::push_reply(const std::string &path, const std::string &operation, const std::string &content,
                                 uint32_t format) {
    zamc_bytes *bytes = zamc_new_bytes(content.data(), static_cast<int32_t>(content.size()), format);
    lyd_node *tree = zam_message_build_push(nullptr, path.c_str(), operation.c_str(), bytes, zam_clients_schema_ctx());
    zamc_free_bytes(bytes);
    EXPECT_NE(tree, nullptr) << path;
    char *text = zam_lyd_tree_dump(tree, static_cast<LYD_FORMAT>(zam_ownfmt2lydfmt(format)), nullptr);
    zam_lyd_tree_destroy(tree);
    const std::string request = text ? text : "";
    std::free(text);
    return exchange(request, format);
}

} // namespace zam::test
