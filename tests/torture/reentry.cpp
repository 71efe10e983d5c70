// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Handlers and callbacks that use the client that calls them. In each kind of handler each action is done, with each
// result and with nothing or two more requests waiting behind the one being handled; then pairs of actions. Afterwards
// every request of the server has exactly the answers that it is owed, every request of the client has called its
// callback once, the client works on or connects anew, and no block and no descriptor is left.
//
// With ZAMC_PLANT a handler answers for a second time, which the suite has to find.
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>
#include <zamc/client.h>

#include "client/client_fixture.h"
#include "fuzz/fuzz.h"

namespace zam::torture {
namespace {

using namespace test;

enum class Kind { config, brief, status, operation, finish, message, bypass, reply, lost };
constexpr const char *kind_names[] = {"config",  "brief",  "status", "operation", "activation finish",
                                      "message", "bypass", "reply",  "lost reply"};
constexpr uint32_t base_seq = 500; // of the server's requests to the handler
constexpr int behind_count = 2;

struct Tally {
    uint64_t cells = 0;
    uint64_t failures = 0;
};
Tally tally;

class Cell;

struct Action {
    const char *name;
    void (*act)(Cell &cell, zamc_client *client);
};

// One client, one handler called for the first time, and what became of it.
class Cell {
public:
    Cell(Peer &peer, Peer &other, Kind kind, std::vector<const Action *> actions, int32_t result, bool behind)
        : peer_{peer}, other_{other}, kind_{kind}, actions_{std::move(actions)}, result_{result}, behind_{behind} {}

    void run() {
        ++tally.cells;
        const int descriptors = open_descriptors();
        from_ = peer_.received().size();
        set_up();
        if (ok_) provoke();
        if (ok_) after();
        zamc_client_free(client_);
        zamc_client_free(bystander_);
        if (pending_callbacks_ != 0) fail("requests without a callback", pending_callbacks_, 0);
        if (!wait([&] { return open_descriptors() == descriptors; }))
            fail("descriptors", open_descriptors(), descriptors);
    }

    // For actions.
    void expect(const char *what, int64_t got, int64_t wanted) {
        if (got != wanted) fail(what, got, wanted);
    }
    bool connected() const { return connected_; }
    bool freed() const { return client_ == nullptr; }
    int32_t success() const { return connected_ ? 0 : -1; }
    bool busy() const { return kind_ == Kind::finish && connected_ && !renewed_; }
    Peer &peer() { return peer_; }
    Peer &other() { return other_; }

    void dropped() {
        connected_ = false;
        renewed_ = false;
        if (!gone_ && kind_ != Kind::lost) expected_calls_ = calls_; // of those behind, which may have been handled
        gone_ = true;
    }
    void reconnected() { connected_ = renewed_ = true; }
    void freed_itself() {
        dropped();
        pending_callbacks_ = 0; // callbacks of a freed client are not called
        client_ = nullptr;
    }
    void free_bystander() {
        zamc_client_free(bystander_);
        bystander_ = nullptr;
    }
    // An answer that the action has sent for the request being handled.
    void answered() { ++own_answers_; }
    void error(int32_t code) { error_ = code; }
    bool is_request() const { return kind_ != Kind::message && kind_ != Kind::reply && kind_ != Kind::lost; }
    bool is_owed() const { return is_request() && !gone_ && own_answers_ == 0; }
    bool error_waits() const { return error_ != 0; }
    void error_taken() {
        taken_error_ = error_;
        error_ = 0;
    }
    void answered_behind() { ++answered_behind_; }
    void request_sent() { ++pending_callbacks_; }
    void activation_asked() { subscribed_and_activating_ = subscribed_; }
    void subscribed() { subscribed_ = true; }
    // A record that takes part in an activation cannot be changed.
    int32_t changeable() const { return subscribed_and_activating_ ? -1 : 0; }
    // Runs the client; a recorded error goes with the answer to a request that is handled meanwhile.
    void run_inside(zamc_client *client, int32_t timeout_ms) {
        const int before = calls_;
        expect("run", zamc_run(client, timeout_ms), success());
        if (calls_ > before && is_request() && kind_ != Kind::bypass) error_ = 0;
    }
    const char *target() const { return target_; }

    static int32_t replied(zamc_client *, const zam_message *, void *self) {
        --static_cast<Cell *>(self)->pending_callbacks_;
        return 0;
    }
    static int32_t finished(zamc_client *, int32_t, void *self, int32_t) {
        ++static_cast<Cell *>(self)->finishes_;
        return 0;
    }

private:
    template <typename Done>
    bool wait(Done done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{5};
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            usleep(50);
        }
        return true;
    }
    template <typename Done>
    bool run_until(Done done) {
        return wait([&] { return done() || (client_ && zamc_run(client_, 0) != 0) || done() || !client_; });
    }

    void fail(const char *what, int64_t got, int64_t wanted) {
        ok_ = false;
        if (++tally.failures > 20) return;
        std::string all;
        for (const Action *action : actions_)
            all += std::string{" "} + action->name;
        std::printf("%s:%s, result %d%s: %s: %lld, not %lld\n", kind_names[static_cast<int>(kind_)], all.c_str(),
                    result_, behind_ ? ", others behind" : "", what, static_cast<long long>(got),
                    static_cast<long long>(wanted));
    }

    int32_t called() {
        if (++calls_ > 1 || !arranged_) return 0;
        for (const Action *action : actions_)
            if (client_) action->act(*this, client_);
        if (is_owed() && fuzz::planted() && kind_ == Kind::status) {
            const zam_message empty{ZAM_ENCODE_JSON, 0, nullptr};
            zam_send_reply(client_->connector, base_seq, &empty);
        }
        return result_;
    }
    static Cell &self(void *user) { return *static_cast<Cell *>(user); }
    static int32_t on_config(zamc_client *, uint32_t, uint32_t, int32_t, const char *target, void *user) {
        self(user).target_ = target;
        return self(user).called();
    }
    static int32_t on_brief(zamc_client *, uint32_t, uint32_t, const char *target, void *user) {
        self(user).target_ = target;
        return self(user).called();
    }
    static int32_t on_status(zamc_client *, const char *target, void *, zamc_bytes **output, void *user) {
        static constexpr char text[] = R"({"text":"x"})";
        *output = zamc_new_bytes(text, sizeof text - 1, ZAM_ENCODE_JSON);
        const int32_t result = self(user).called();
        self(user).look_at(target);
        return result;
    }
    static int32_t on_operation(zamc_client *, const zamc_bytes *input, zamc_bytes **output, void *user) {
        const int32_t result = self(user).called();
        self(user).look_at(input->data);
        static constexpr char text[] = R"({"test-main:result":"x"})";
        *output = zamc_new_bytes(text, sizeof text - 1, ZAM_ENCODE_JSON);
        return result;
    }
    static int32_t on_finish(zamc_client *, int32_t, void *user, int32_t) { return self(user).called(); }
    static int32_t on_message(zamc_client *, uint32_t type, const zam_message *message, void *user) {
        if (type == ZAM_MESSAGE_REWAKE || type == ZAM_MESSAGE_REPLY) return 0;
        const int32_t result = self(user).called();
        self(user).look_at(message->data);
        return result;
    }
    static int32_t on_reply(zamc_client *, const zam_message *reply, void *user) {
        const int32_t result = self(user).called();
        if (reply) self(user).look_at(reply->data);
        return result;
    }
    // What a handler is handed is valid until it returns: a sanitizer sees when it is not.
    void look_at(const char *text) { seen_ += std::strlen(text); }

    zamc_sub_node node(const char *target, int32_t type) {
        zamc_sub_node made{};
        made.target = target;
        made.type = type;
        made.user = this;
        switch (type) {
        case ZAMC_SUB_CONFIG_CHANGE: made.config = on_config; break;
        case ZAMC_SUB_CONFIG_CHANGE_BRIEF: made.config_brief = on_brief; break;
        case ZAMC_SUB_STATUS_QUERY: made.status = on_status; break;
        default: made.operation = on_operation; break;
        }
        return made;
    }

    void set_up() {
        client_ = zamc_client_new("reentry", ZAM_ENCODE_JSON);
        bystander_ = zamc_client_new("bystander", ZAM_ENCODE_JSON);
        expect("connect", zamc_connect(client_, peer_.url().c_str()) >= 0, true);
        expect("connect", zamc_connect(bystander_, other_.url().c_str()) >= 0, true);
        zamc_set_message_recv_cb(client_, on_message, this);
        for (const int32_t type : {0, 3, 1, 2}) {
            const zamc_sub_node made = node(type == 2 ? "/test-main:run" : "/test-main:top", type);
            expect("subscribe", zamc_subscribe(client_, &made), 0);
        }
        if (kind_ == Kind::finish) return;
        expect("activate", zamc_activate(client_, 0, finished, this), 0);
        peer_.send({test::Kind::request, 1, 2, finish_json});
        if (!run_until([this] { return finishes_ == 1; })) fail("finish", finishes_, 1);
        finishes_ = 0;
    }

    Frame request_of(uint32_t seq) const {
        Publication publication;
        publication.target = "/test-main:top/text";
        switch (kind_) {
        case Kind::brief: publication.priv_data = "1"; break;
        case Kind::status:
            publication.pub_type = "status-query";
            publication.priv_data = "2";
            break;
        case Kind::operation:
            publication.pub_type = "operation";
            publication.target = "/test-main:run";
            publication.priv_data = "3";
            publication.content = R"({"test-main:speed":5})";
            break;
        case Kind::message: return {test::Kind::other2, 0, 2, "hello"};
        default: break;
        }
        return {test::Kind::request, seq, 2, publication.json()};
    }

    // Makes the handler be called for the first time.
    void provoke() {
        arranged_ = true;
        std::string bytes;
        switch (kind_) {
        case Kind::finish:
            expect("activate", zamc_activate(client_, 0, on_finish, this), 0);
            bytes = encode({test::Kind::request, base_seq, 2, finish_json});
            break;
        case Kind::reply:
        case Kind::lost: {
            const Payload payload{kind_ == Kind::lost ? "unanswered" : "answered"};
            expect("request", zamc_send_rpc_asyn(client_, payload, on_reply, this), 0);
            if (kind_ == Kind::lost) zamc_disconnect(client_);
            if (kind_ == Kind::lost) dropped();
            break;
        }
        case Kind::bypass: {
            const uint8_t on = 1;
            expect("bypass", zamc_set_attr(client_, ZAMC_ATTR_RPC_BYPASS, &on, sizeof on), 0);
            [[fallthrough]];
        }
        default: bytes = encode(request_of(base_seq));
        }
        const bool more = behind_ && kind_ != Kind::finish && kind_ != Kind::reply && kind_ != Kind::lost;
        expected_calls_ = more ? 1 + behind_count : 1;
        for (int i = 1; more && i <= behind_count; ++i)
            bytes += encode(request_of(base_seq + static_cast<uint32_t>(i)));
        if (!bytes.empty()) peer_.send_raw(bytes);
        const auto enough = [&] { return calls_ > 0 && calls_ >= expected_calls_; };
        if (!run_until(enough) || calls_ == 0) fail("calls", calls_, expected_calls_);
    }

    // Whether the bytes object is an error with that code.
    static bool is_error(const std::string &payload, uint32_t code) {
        return payload.find("rpc-error") != payload.npos &&
               payload.find("\"" + std::to_string(code) + "\"") != payload.npos;
    }

    void after() {
        if (!client_) return;
        if (!connected_) {
            expect("run without a connection", zamc_run(client_, 0), -1);
            expect("connect again", zamc_connect(client_, peer_.url().c_str()) >= 0, true);
        }
        const uint8_t off = 0;
        expect("bypass", zamc_set_attr(client_, ZAMC_ATTR_RPC_BYPASS, &off, sizeof off), 0);
        const bool later = is_owed() && expects_no_answer_yet();
        if (later) {
            if (error_waits()) error_taken();
            own_answers_ = 1;
            expect("late answer", zamc_reply_asyn(client_, base_seq, nullptr), 0);
        }
        // Its reply comes when the server has got all that was sent before it.
        zamc_bytes *reply = nullptr;
        const Payload payload{"answered sentinel"};
        expect("sentinel", zamc_send_rpc_sync(client_, payload, &reply, 5000), 0);
        zamc_free_bytes(reply);
        // In bypass mode the reply went to the callback for messages, and the request is lost with the connection.
        if (kind_ == Kind::bypass) zamc_disconnect(client_);
        if (!run_until([this] { return pending_callbacks_ == 0; }))
            fail("requests without a callback", pending_callbacks_, 0);
        expect("calls", calls_, expected_calls_);
        check_answers();
    }

    bool expects_no_answer_yet() const {
        if (kind_ == Kind::bypass) return true;
        return result_ == ZAMC_REPLY_LATER && error_ == 0;
    }

    void check_answers() {
        int answers = 0, others = 0;
        uint32_t code = 0;
        if (error_ != 0)
            code = static_cast<uint32_t>(error_);
        else if (result_ != 0 && result_ != ZAMC_REPLY_LATER)
            code = static_cast<uint32_t>(-3);
        const std::vector<Frame> all = peer_.received();
        for (size_t i = from_; i < all.size(); ++i) {
            if (all[i].kind != test::Kind::reply) continue;
            if (all[i].seq == base_seq) {
                ++answers;
                const bool error = all[i].payload.find("rpc-error") != std::string::npos;
                const bool own = own_answers_ > 0;
                if (own ? error != (taken_error_ != 0) ||
                              (error && !is_error(all[i].payload, static_cast<uint32_t>(taken_error_)))
                    : code ? !is_error(all[i].payload, code)
                           : error)
                    fail(("answer " + all[i].payload).c_str(), error, code != 0);
            } else if (all[i].seq > base_seq && all[i].seq <= base_seq + behind_count) {
                ++others;
            }
        }
        const int wanted = !is_request() ? 0 : own_answers_ > 0 ? own_answers_ : gone_ ? 0 : 1;
        expect("answers", answers, wanted);
        // In bypass mode nothing is answered but by the application.
        expect("answers to those behind", others,
               kind_ == Kind::bypass ? answered_behind_
               : is_request()        ? calls_ - 1
                                     : 0);
    }

    Peer &peer_;
    Peer &other_;
    const Kind kind_;
    const std::vector<const Action *> actions_;
    const int32_t result_;
    const bool behind_;

    zamc_client *client_ = nullptr;
    zamc_client *bystander_ = nullptr;
    size_t from_ = 0;
    bool ok_ = true;
    bool arranged_ = false;
    bool connected_ = true; // now
    bool renewed_ = false;  // the connection is another one than that of the request
    bool gone_ = false;     // the connection of the request has ended
    int calls_ = 0;
    int expected_calls_ = 1;
    int finishes_ = 0;
    bool subscribed_ = false; // the records of the action
    bool subscribed_and_activating_ = false;
    int pending_callbacks_ = 0;
    int own_answers_ = 0;
    int answered_behind_ = 0;
    int32_t error_ = 0;
    int32_t taken_error_ = 0;
    const char *target_ = nullptr;
    size_t seen_ = 0;
};

zamc_sub_node spare_node() {
    zamc_sub_node node{};
    node.target = "/test-main:top/sub";
    node.type = ZAMC_SUB_STATUS_QUERY;
    node.status = [](zamc_client *, const char *, void *, zamc_bytes **, void *) { return int32_t{0}; };
    return node;
}

void subscribe_again(Cell &cell, zamc_client *client) {
    // The slots of the records in use stay: their numbers are on the way.
    const zamc_sub_node node = spare_node();
    cell.expect("subscribe", zamc_subscribe(client, &node), cell.changeable());
    zamc_sub_node many = node;
    for (const char *target : {"/test-main:top/a1", "/test-main:top/a2", "/test-main:top/a3", "/test-main:top/a4",
                               "/test-main:top/a5", "/test-main:top/a6", "/test-main:top/a7"}) {
        many.target = target;
        // The list grows under the handler.
        cell.expect("subscribe", zamc_subscribe(client, &many), cell.changeable());
    }
    cell.subscribed();
}

int32_t activate(zamc_client *client) {
    return zamc_activate(client, 0, nullptr, nullptr);
}

constexpr Action actions[] = {
    {"sync",
     [](Cell &cell, zamc_client *client) {
         const Payload payload{"answered"};
         zamc_bytes *reply = nullptr;
         cell.expect("sync", zamc_send_rpc_sync(client, payload, &reply, 5000), cell.success());
         zamc_free_bytes(reply);
     }},
    {"sync-timeout",
     [](Cell &cell, zamc_client *client) {
         const Payload payload{"unanswered"};
         zamc_bytes *reply = nullptr;
         cell.expect("sync", zamc_send_rpc_sync(client, payload, &reply, 1), -1);
         cell.expect("reply", reply != nullptr, 0);
     }},
    {"pull",
     [](Cell &cell, zamc_client *client) {
         zamc_bytes *out = nullptr;
         cell.expect("pull", zamc_pull(client, 0, "/test-main:top", -1, &out), cell.success());
         zamc_free_bytes(out);
     }},
    {"asyn",
     [](Cell &cell, zamc_client *client) {
         const Payload payload{"answered"};
         const int32_t result = zamc_send_rpc_asyn(client, payload, Cell::replied, &cell);
         cell.expect("asyn", result, cell.success());
         if (result == 0) cell.request_sent();
     }},
    {"disconnect",
     [](Cell &cell, zamc_client *client) {
         zamc_disconnect(client);
         cell.dropped();
     }},
    {"reconnect",
     [](Cell &cell, zamc_client *client) {
         cell.dropped();
         const int32_t fd = zamc_connect(client, cell.peer().url().c_str());
         cell.expect("reconnect", fd >= 0, true);
         cell.reconnected();
     }},
    {"reconnect-refused",
     [](Cell &cell, zamc_client *client) {
         cell.expect("reconnect", zamc_connect(client, "unix:///nonexistent/socket"), -1);
         cell.dropped();
     }},
    {"subscribe", subscribe_again},
    {"unsubscribe",
     [](Cell &cell, zamc_client *client) {
         const zamc_sub_node node = spare_node();
         cell.expect("unsubscribe", zamc_unsubscribe(client, &node), cell.changeable());
     }},
    {"unsubscribe-itself",
     [](Cell &cell, zamc_client *client) {
         // One that takes part in an activation cannot be changed.
         for (const int32_t type : {1, 2}) {
             zamc_sub_node node{};
             node.target = type == 2 ? "/test-main:run" : "/test-main:top";
             node.type = type;
             const int32_t result = zamc_unsubscribe(client, &node);
             cell.expect("unsubscribe", result == 0 || result == -1, true);
         }
     }},
    {"activate",
     [](Cell &cell, zamc_client *client) {
         // Another activation may be waiting for its finish, of this action or of the server's.
         const int32_t result = activate(client);
         cell.expect("activate", result, cell.success() != 0 || cell.busy() ? -1 : result);
         if (result == 0) cell.activation_asked();
     }},
    {"deactivate",
     [](Cell &cell, zamc_client *client) {
         const int32_t result = zamc_deactivate(client);
         cell.expect("deactivate", result, cell.success() != 0 || cell.busy() ? -1 : result);
     }},
    {"run", [](Cell &cell, zamc_client *client) { cell.run_inside(client, 0); }},
    {"run-and-wait", [](Cell &cell, zamc_client *client) { cell.run_inside(client, 1); }},
    {"reply",
     [](Cell &cell, zamc_client *client) {
         const uint32_t seq = zamc_request_seq(client);
         cell.expect("seq", seq, cell.is_request() ? base_seq : 0);
         if (!cell.is_owed()) return;
         if (cell.error_waits()) cell.error_taken();
         cell.expect("reply", zamc_reply_asyn(client, seq, nullptr), 0);
         cell.answered();
     }},
    {"reply-oldest",
     [](Cell &cell, zamc_client *client) {
         if (!cell.is_owed()) {
             // One of those behind, if a run has handed it out already.
             if (!cell.error_waits() && zamc_reply_asyn(client, 0, nullptr) == 0) cell.answered_behind();
             return;
         }
         if (cell.error_waits()) cell.error_taken();
         const Payload output{"{}"};
         cell.expect("reply", zamc_reply_asyn(client, 0, output), 0);
         cell.answered();
     }},
    {"free-another", [](Cell &cell, zamc_client *) { cell.free_bystander(); }},
    {"error-twice",
     [](Cell &cell, zamc_client *client) {
         zamc_error_set(client, 11, "first %d", 1);
         zamc_error_set(client, 12, "second %s", "text");
         cell.error(12);
     }},
    {"free-itself",
     [](Cell &cell, zamc_client *client) {
         zamc_client_free(client);
         cell.freed_itself();
     }},
    {"heartbeat",
     [](Cell &cell, zamc_client *client) { cell.expect("heartbeat", zamc_send_heartbeat(client), cell.success()); }},
    {"message",
     [](Cell &cell, zamc_client *client) {
         const Payload payload{"news"};
         cell.expect("message", zamc_send_message(client, 3, payload), cell.success());
         cell.expect("message", zamc_send_message(client, 0, payload), cell.success());
     }},
    {"attribute",
     [](Cell &cell, zamc_client *client) {
         const int32_t deadline = 9;
         const int32_t result = zamc_set_attr(client, ZAMC_ATTR_DEADLINE, &deadline, sizeof deadline);
         cell.expect("attribute", result, 0);
     }},
    {"terminal",
     [](Cell &cell, zamc_client *client) {
         cell.expect("terminal", zamc_cli_printf(client, "%s", "text"), cell.success());
     }},
    {"diff",
     [](Cell &cell, zamc_client *client) {
         zamc_bytes *out = nullptr;
         cell.expect("diff", zamc_diff(client, cell.target() ? cell.target() : "/test-main:top", 0, &out),
                     cell.success());
         zamc_free_bytes(out);
     }},
    {"another-client",
     [](Cell &cell, zamc_client *) {
         zamc_client *client = zamc_client_new("another", ZAM_ENCODE_XML);
         cell.free_bystander();
         cell.expect("connect", zamc_connect(client, cell.other().url().c_str()) >= 0, true);
         cell.expect("run", zamc_run(client, 0), 0);
         zamc_client_free(client);
     }},
};

// The peers answer everything but what says that it has no answer, and a pull like a server that has nothing.
std::vector<Frame> answer(const Frame &frame) {
    if (frame.kind == test::Kind::request && frame.payload == "unanswered") return {};
    return Peer::obliging(frame);
}

class Suite {
public:
    Suite() { renew(); }

    void all_cells() {
        for (int kind = 0; kind <= static_cast<int>(Kind::lost); ++kind)
            for (const Action &action : actions)
                for (const int32_t result : {0, -1, 7, int32_t{ZAMC_REPLY_LATER}})
                    for (const bool behind : {false, true})
                        cell(static_cast<Kind>(kind), {&action}, result, behind);
    }

    void sequences(uint64_t count) {
        std::mt19937 random{17};
        constexpr int32_t results[] = {0, 0, -1, ZAMC_REPLY_LATER};
        for (uint64_t i = 0; i < count; ++i) {
            std::vector<const Action *> chosen(2 + random() % 3);
            for (const Action *&action : chosen)
                action = &actions[random() % std::size(actions)];
            cell(static_cast<Kind>(random() % 9), chosen, results[random() % 4], random() % 2);
        }
    }

private:
    void cell(Kind kind, std::vector<const Action *> chosen, int32_t result, bool behind) {
        // Peers keep all that they get.
        if (tally.cells % 100 == 0) renew();
        const uint64_t before = tally.failures;
        Heap heap;
        Cell{*peer_, *other_, kind, chosen, result, behind}.run();
        if (heap.live() == 0) return;
        if (tally.failures++ == before || tally.failures < 20)
            std::printf("%s: %s: blocks are left:\n%s", kind_names[static_cast<int>(kind)], chosen[0]->name,
                        heap.live_sites().c_str());
    }

    void renew() {
        peer_ = std::make_unique<Peer>();
        other_ = std::make_unique<Peer>();
        peer_->answer_with(answer);
        other_->answer_with(answer);
    }

    std::unique_ptr<Peer> peer_;
    std::unique_ptr<Peer> other_;
};

} // namespace
} // namespace zam::torture

// The one argument is the number of sequences of actions, besides the cells.
int main(int argc, char **argv) {
    using namespace zam;
    const uint64_t sequences = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 30000;
    fuzz::silence_log();
    test::test_context();
    {
        torture::Suite suite;
        suite.all_cells();
        suite.sequences(sequences);
    }
    std::printf("reentry: %" PRIu64 " points, %" PRIu64 " failures\n", torture::tally.cells, torture::tally.failures);
    return torture::tally.failures == 0 ? 0 : 1;
}
