// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// An application for tests: a client that is pumped by a thread of its own and keeps what it was called with, so that
// the test's thread can be the operator and make synchronous calls with a client of its own.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <zamc/zamc.h>

#include "support/server.h"

namespace zam::test {

using namespace std::chrono_literals;

// One call of a handler.
struct Call {
    enum Kind { config, status, operation, active } kind;
    std::string app; // who was called
    uint32_t mask = 0;
    uint32_t priority = 0;
    bool list_more = false;
    std::string target;
    std::string input;         // of an operation
    uint32_t input_format = 0; // of an operation
    uint32_t seq = 0;          // zamc_request_seq during the call
};

// What a handler does besides being recorded; runs on the application's thread. `output` is for status and operation.
using Behaviour = std::function<int32_t(zamc_client *client, const Call &call, zamc_bytes **output)>;

struct Subscription {
    std::string target;
    int32_t type = ZAMC_SUB_CONFIG_CHANGE;
    uint32_t priority = 100;
    uint32_t mask = 0;
    Behaviour behaviour{}; // agrees when empty
};

// The order in which the handlers of several applications were called.
class Journal {
public:
    void add(Call call);
    std::vector<Call> calls() const;
    // Waits until a call, from `from` on, satisfies the predicate; its index, or none by the deadline.
    std::optional<size_t> wait_for(const std::function<bool(const Call &)> &wanted, size_t from = 0,
                                   std::chrono::milliseconds deadline = 10s);
    void clear();

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Call> calls_;
};

class App {
public:
    struct Options {
        std::string name = "app";
        uint32_t encode = ZAM_ENCODE_JSON;
        bool reconnect = false; // again and again once the connection is lost, with replay
        bool replay = false;
        std::string dependent_clients{};
    };

    // Makes the client, subscribes, connects, activates, and waits until it is active.
    App(std::string url, Journal &journal, std::vector<Subscription> subscriptions, Options options);
    App(std::string url, Journal &journal, std::vector<Subscription> subscriptions)
        : App{std::move(url), journal, std::move(subscriptions), Options{}} {}
    ~App(); // stops the thread and frees the client

    // Runs on the application's thread, between two runs of the client; returns its result.
    template <typename F>
    auto on_thread(F function) -> decltype(function(static_cast<zamc_client *>(nullptr))) {
        std::packaged_task<decltype(function(client_))()> task{[&] { return function(client_); }};
        auto result = task.get_future();
        {
            std::lock_guard guard{mutex_};
            tasks_.push_back([&] { task(); });
        }
        return result.get();
    }

    // Subscribes or unsubscribes further ones and activates; waits for the finish. The activation's result.
    int32_t change_subscriptions(const std::vector<Subscription> &add, const std::vector<Subscription> &remove,
                                 bool replay = false);
    const std::string &name() const { return options_.name; }
    bool lost() const { return lost_; } // zamc_run said -1 since the last connect
    int last_run() const { return last_run_; }
    uint32_t session_id();

private:
    struct Handler; // what a subscription's user pointer leads to

    void run();
    bool connect_and_activate();
    int32_t subscribe(zamc_client *client, const Subscription &subscription, bool add);
    static int32_t on_config(zamc_client *, uint32_t, uint32_t, int32_t, const char *, void *);
    static int32_t on_config_brief(zamc_client *, uint32_t, uint32_t, const char *, void *);
    static int32_t on_status(zamc_client *, const char *, void *, zamc_bytes **, void *);
    static int32_t on_operation(zamc_client *, const zamc_bytes *, zamc_bytes **, void *);
    static int32_t on_active(zamc_client *, int32_t, void *, int32_t);
    int32_t called(zamc_client *client, Call call, Handler &handler, zamc_bytes **output);

    std::string url_;
    Journal &journal_;
    Options options_;
    zamc_client *client_ = nullptr;
    std::deque<Handler> handlers_; // stable addresses
    std::mutex mutex_;
    std::deque<std::function<void()>> tasks_;
    std::atomic<bool> stopping_ = false;
    std::atomic<bool> lost_ = false;
    std::atomic<int> last_run_ = 0;
    std::atomic<int> activations_ = 0;
    std::thread thread_;
};

// A client of the test's own thread.
class Operator {
public:
    explicit Operator(const std::string &url, uint32_t encode = ZAM_ENCODE_JSON, const std::string &name = "operator");
    ~Operator();
    zamc_client *client() const { return client_; }

    int32_t push(const std::string &path, int32_t operation, const std::string &content,
                 uint32_t format = ZAM_ENCODE_JSON);
    // The text, empty when there is no data; fails the test when the pull fails.
    std::string pull(const std::string &path, int32_t depth = -1, int32_t version = 0);
    void datastore(const std::string &name); // "ietf-datastores:running" …
    // A raw request and the raw reply, for errors that the other calls only report as a number.
    std::string exchange(const std::string &payload, uint32_t format = ZAM_ENCODE_JSON);
    // The reply to a push built as the library builds it.
    std::string push_reply(const std::string &path, const std::string &operation, const std::string &content,
                           uint32_t format = ZAM_ENCODE_JSON);

private:
    zamc_client *client_;
};

// Loads the models that the servers have, once in this process: the real ones, and `radio` of this folder.
void load_models();
// The folders of both, for Server::Options::modules; without it a server has the real models.
std::vector<std::string> real_models_and_radio();

// Two interfaces, as a startup file.
extern const char two_interfaces[];
zamc_bytes *json_bytes(const std::string &text);

} // namespace zam::test
