// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The connection dies at every byte of every exchange, in either direction, by an end, a reset, a half-close, silence
// or the server's being killed. Each cell runs one exchange from zamc_connect() on through a proxy that strikes after
// so many bytes. Whatever it hits, each synchronous call returns, at once or at its time-out, each callback runs once
// and none after its client is gone, the client connects again and works, the server serves the others, and no
// descriptor stays behind.
//
// With ZAMC_PLANT the proxy falls silent once where the cell says that it closes, as if the client missed a close.
#include <algorithm>
#include <csignal>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <zamc/zamc.h>

#include "e2e/app.h"
#include "support/raw_client.h"
#include "torture/cells.h"
#include "torture/proxy.h"

namespace zam::torture {
namespace {

using test::Frame;
using test::Kind;
using test::RawClient;
using test::Server;

constexpr uint32_t patient_ms = 5000; // for calls that something else has to end
constexpr uint32_t silent_ms = 30;    // for calls that only their time-out ends
constexpr double at_once_ms = 1000;
constexpr double heartbeat_ms = 3000; // its time-out is the library's
constexpr double grace_ms = 100;

constexpr char interfaces[] = "/ietf-interfaces:interfaces";
constexpr char eth0[] = "/ietf-interfaces:interfaces/interface[name=\"eth0\"]";
constexpr char eth0_text[] = "/ietf-interfaces:interfaces/interface[name=\"eth0\"]/description";
constexpr char preset_one[] = "/radio:radio/preset[name=\"one\"]";
constexpr char index_state[] = "/ietf-interfaces:interfaces-state/interface[name=\"eth0\"]/if-index";
constexpr char restart[] = "/ietf-system:system-restart";
constexpr char startup[] = R"({"ietf-interfaces:interfaces":{"interface":[
  {"name":"eth0","type":"iana-if-type:ethernetCsmacd"}]},"radio:radio":{"preset":[{"name":"one"},{"name":"two"}]}})";

struct Free {
    void operator()(zamc_client *client) const { zamc_client_free(client); }
    void operator()(zamc_bytes *bytes) const { zamc_free_bytes(bytes); }
};
using Bytes = std::unique_ptr<zamc_bytes, Free>;

Bytes bytes_of(const std::string &text, uint32_t format = ZAM_ENCODE_JSON) {
    return Bytes{zamc_new_bytes(text.data(), static_cast<int32_t>(text.size()), format)};
}

// An operator that asks over a connection of its own, which never dies, and waits for its answer later.
class Operator {
public:
    explicit Operator(const std::string &url) : raw_{url} { raw_.enter("operator"); }
    void ask(const std::string &payload) { raw_.send({Kind::request, ++asked_ + first_seq, ZAM_ENCODE_JSON, payload}); }
    bool is_answered() {
        while (answered_ < asked_) {
            const auto frame = raw_.receive(std::chrono::seconds{5});
            if (!frame) return false;
            if (frame->kind == Kind::reply) ++answered_;
        }
        return true;
    }

private:
    static constexpr uint32_t first_seq = 1000000; // above those of RawClient itself
    RawClient raw_;
    uint32_t asked_ = 0;
    uint32_t answered_ = 0;
};

struct Timing {
    double slowest_close = 0;
    double latest_after_timeout = 0;
};

// One client, one exchange, one death.
class Cell {
public:
    Cell(Tally &tally, Timing &timing, std::string name, Plan plan, const std::string &url, Operator *op)
        : tally_{tally}, timing_{timing}, name_{std::move(name)}, plan_{plan}, url_{url}, operator_{op},
          client_{zamc_client_new("victim", ZAM_ENCODE_JSON)} {
        set_timeout(is_silent() ? silent_ms : patient_ms);
    }
    ~Cell() { free(); }
    Cell(const Cell &) = delete;
    Cell &operator=(const Cell &) = delete;

    zamc_client *client() const { return client_.get(); }
    bool is_silent() const { return plan_.death == Death::silence; }
    void ask_operator(const std::string &payload) const { operator_->ask(payload); }

    // A synchronous call: it succeeds or fails, and in time. Its result.
    int32_t call(const char *what, const std::function<int32_t()> &function, double timeout_ms = silent_ms) {
        const auto start = Clock::now();
        const int32_t result = function();
        const double took = ms_since(start);
        expect(result >= 0 || result == -1, std::string{what} + " gives " + std::to_string(result));
        if (is_silent()) {
            timing_.latest_after_timeout = std::max(timing_.latest_after_timeout, took - timeout_ms);
            late_ = !(took <= timeout_ms + grace_ms) || late_;
        } else {
            timing_.slowest_close = std::max(timing_.slowest_close, took);
            expect(took <= at_once_ms, std::string{what} + " took " + std::to_string(took) + " ms");
        }
        return result;
    }

    bool connect() {
        return call("connect", [&] { return zamc_connect(client(), url_.c_str()); }) >= 0;
    }

    // An asynchronous request whose callback has to run once.
    void ask(const std::string &payload) {
        asked_.push_back(std::make_unique<Asked>(this));
        const Bytes request = bytes_of(payload);
        if (zamc_send_rpc_asyn(client(), request.get(), on_reply, asked_.back().get()) != 0) asked_.pop_back();
    }

    // Lets the client work until `done`, the connection's end, or what a silent server is given.
    void run_until(const std::function<bool()> &done) {
        const auto start = Clock::now();
        while (!done() && ms_since(start) < (is_silent() ? silent_ms : patient_ms))
            if (zamc_run(client(), 5) != 0) return;
        if (!is_silent()) expect(done(), "the exchange hangs");
    }
    void run_until_answered() {
        run_until([&] { return answered() == asked_.size(); });
    }

    bool activate(zamc_sub_node node) {
        node.user = this;
        if (zamc_subscribe(client(), &node) != 0) return false;
        if (call("activate", [&] { return zamc_activate(client(), 0, on_active, this); }) != 0) return false;
        run_until([&] { return active_; });
        return active_;
    }
    void run_until_handled() {
        run_until([&] { return handled_; });
    }
    void handled() { handled_ = true; }

    // After the exchange: requests without a reply end with their connection, and the next one works.
    void connect_again(const std::string &url) {
        zamc_disconnect(client());
        zamc_run(client(), 0);
        for (const auto &asked : asked_)
            expect(asked->calls == 1, "a callback ran " + std::to_string(asked->calls) + " times");
        set_timeout(patient_ms);
        expect(zamc_connect(client(), url.c_str()) >= 0, "no second connection");
        zamc_bytes *text = nullptr;
        expect(zamc_pull(client(), 0, eth0, -1, &text) == 0 && text != nullptr, "the second connection does not work");
        zamc_free_bytes(text);
        ask(R"({"orvel-zam-server:deactivate":{}})");
        free();
        expect(asked_.empty() || asked_.back()->calls == 0, "a callback ran for a client that was freed");
    }
    void free() {
        client_.reset();
        freed_ = true;
    }
    bool was_late() const { return late_; }
    void expect(bool holds, const std::string &what) { tally_.expect(holds, name_, what); }

private:
    struct Asked {
        explicit Asked(Cell *its) : cell{its} {}
        Cell *cell;
        int calls = 0;
    };

    size_t answered() const {
        return static_cast<size_t>(
            std::count_if(asked_.begin(), asked_.end(), [](const auto &asked) { return asked->calls > 0; }));
    }
    void set_timeout(uint32_t ms) { zamc_set_attr(client(), ZAMC_ATTR_SYNC_TIMEOUT, &ms, sizeof ms); }

    static int32_t on_reply(zamc_client *, const zam_message *, void *arg) {
        auto &asked = *static_cast<Asked *>(arg);
        ++asked.calls;
        asked.cell->expect(!asked.cell->freed_, "a callback of a freed client");
        asked.cell->expect(asked.calls == 1, "a callback runs again");
        return 0;
    }
    static int32_t on_active(zamc_client *, int32_t, void *arg, int32_t) {
        auto &cell = *static_cast<Cell *>(arg);
        cell.expect(!cell.active_ && !cell.freed_, "the activation finishes twice, or late");
        cell.active_ = true;
        return 0;
    }

    Tally &tally_;
    Timing &timing_;
    std::string name_;
    Plan plan_;
    const std::string &url_;
    Operator *operator_;
    std::unique_ptr<zamc_client, Free> client_;
    std::vector<std::unique_ptr<Asked>> asked_;
    bool active_ = false;
    bool handled_ = false;
    bool freed_ = false;
    bool late_ = false;
};

void pull(Cell &cell, const char *path = interfaces) {
    zamc_bytes *text = nullptr;
    cell.call("pull", [&] { return zamc_pull(cell.client(), 0, path, -1, &text); });
    zamc_free_bytes(text);
}

// Values differ, so that each push changes something.
std::string next_value() {
    static uint32_t value = 100000;
    return "text " + std::to_string(++value);
}

std::string push_request() {
    return R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running","operation":"merge","entity":)"
           R"("/ietf-interfaces:interfaces/interface[name='eth0']/description","content":{"description":")" +
           next_value() + R"("}}})";
}

int32_t on_config(zamc_client *client, uint32_t, uint32_t, int32_t, const char *target, void *arg) {
    auto &cell = *static_cast<Cell *>(arg);
    cell.handled();
    pull(cell, eth0);
    zamc_bytes *text = nullptr;
    cell.call("diff", [&] { return zamc_diff(client, target, -1, &text); });
    zamc_free_bytes(text);
    cell.ask(R"({"orvel-zam-server:pull":{"entity":"/ietf-interfaces:interfaces"}})");
    return 0;
}

int32_t on_config_run(zamc_client *client, uint32_t, uint32_t, int32_t, const char *, void *arg) {
    auto &cell = *static_cast<Cell *>(arg);
    cell.handled();
    cell.ask(R"({"orvel-zam-server:pull":{"entity":"/ietf-interfaces:interfaces"}})");
    cell.run_until_answered(); // inside zamc_run()
    zamc_error_set(client, 7, "not now");
    return -1;
}

int32_t on_status(zamc_client *, const char *, void *, zamc_bytes **output, void *arg) {
    auto &cell = *static_cast<Cell *>(arg);
    cell.handled();
    pull(cell, eth0);
    *output = bytes_of("7").release();
    return 0;
}

int32_t on_operation(zamc_client *, const zamc_bytes *, zamc_bytes **, void *arg) {
    static_cast<Cell *>(arg)->handled();
    return ZAMC_REPLY_LATER;
}

zamc_sub_node config_node(zamc_config_fn handler) {
    zamc_sub_node node{};
    node.target = eth0;
    node.type = ZAMC_SUB_CONFIG_CHANGE;
    node.config = handler;
    return node;
}

void publication(Cell &cell, zamc_config_fn handler) {
    if (!cell.connect() || !cell.activate(config_node(handler))) return;
    cell.ask_operator(push_request());
    cell.run_until_handled();
    cell.run_until_answered();
}

struct Exchange {
    const char *name;
    void (*run)(Cell &);
    bool waits_long = false; // a time-out of the library's own
    uint64_t length[2] = {0, 0};
};

Exchange exchanges[] = {
    {"connect", [](Cell &cell) { cell.connect(); }},
    {"pull",
     [](Cell &cell) {
         if (cell.connect()) pull(cell);
     }},
    {"push",
     [](Cell &cell) {
         if (!cell.connect()) return;
         const Bytes text = bytes_of(next_value());
         cell.call("push", [&] { return zamc_push(cell.client(), eth0_text, ZAMC_PUSH_MERGE, text.get()); });
     }},
    {"push in XML",
     [](Cell &cell) {
         if (!cell.connect()) return;
         const Bytes text = bytes_of(R"(<description xmlns="urn:ietf:params:xml:ns:yang:ietf-interfaces">)" +
                                         next_value() + "</description>",
                                     ZAM_ENCODE_XML);
         cell.call("push", [&] { return zamc_push(cell.client(), eth0_text, ZAMC_PUSH_MERGE, text.get()); });
     }},
    {"locate",
     [](Cell &cell) {
         if (!cell.connect()) return;
         zamc_bytes *text = nullptr;
         cell.call("locate", [&] { return zamc_locate(cell.client(), 0, preset_one, &text); });
         zamc_free_bytes(text);
     }},
    {"notify",
     [](Cell &cell) {
         if (!cell.connect()) return;
         const Bytes text = bytes_of(R"({"a":1})");
         cell.call("notify", [&] { return zamc_notify(cell.client(), "NETCONF", text.get()); });
     }},
    {"request",
     [](Cell &cell) {
         if (!cell.connect()) return;
         const Bytes text = bytes_of(R"({"orvel-zam-server:pull":{"entity":"/"}})");
         zamc_bytes *reply = nullptr;
         cell.call(
             "request", [&] { return zamc_send_rpc_sync(cell.client(), text.get(), &reply, silent_ms * 2); },
             silent_ms * 2);
         cell.expect(reply == nullptr || reply->data != nullptr, "a reply without data");
         zamc_free_bytes(reply);
     }},
    {"attribute",
     [](Cell &cell) {
         if (!cell.connect()) return;
         const int32_t deadline = 5;
         cell.call("attribute",
                   [&] { return zamc_set_attr(cell.client(), ZAMC_ATTR_DEADLINE, &deadline, sizeof deadline); });
     }},
    {"heartbeat",
     [](Cell &cell) {
         if (!cell.connect()) return;
         cell.call(
             "heartbeat", [&] { return zamc_send_heartbeat(cell.client()); }, heartbeat_ms);
     },
     true},
    {"asynchronous",
     [](Cell &cell) {
         if (!cell.connect()) return;
         for (const char *entity : {"/", "/ietf-interfaces:interfaces", "/radio:radio", "/nothing:at-all"})
             cell.ask(std::string{R"({"orvel-zam-server:pull":{"entity":")"} + entity + R"("}})");
         cell.run_until_answered();
     }},
    {"asynchronous, then synchronous",
     [](Cell &cell) {
         if (!cell.connect()) return;
         cell.ask(R"({"orvel-zam-server:pull":{"entity":"/radio:radio"}})");
         pull(cell);
         cell.run_until_answered();
     }},
    {"activation",
     [](Cell &cell) {
         if (!cell.connect() || !cell.activate(config_node(on_config))) return;
         cell.call("deactivate", [&] { return zamc_deactivate(cell.client()); });
     }},
    {"publication with calls in the handler", [](Cell &cell) { publication(cell, on_config); }},
    {"publication with a run in the handler", [](Cell &cell) { publication(cell, on_config_run); }},
    {"status with a call in the handler",
     [](Cell &cell) {
         zamc_sub_node node{};
         node.target = index_state;
         node.type = ZAMC_SUB_STATUS_QUERY;
         node.status = on_status;
         if (!cell.connect() || !cell.activate(node)) return;
         cell.ask_operator(R"({"orvel-zam-server:pull":{"datastore":"ietf-datastores:operational",)"
                           R"("entity":"/ietf-interfaces:interfaces-state"}})");
         cell.run_until_handled();
     }},
    {"operation answered later",
     [](Cell &cell) {
         zamc_sub_node node{};
         node.target = restart;
         node.type = ZAMC_SUB_OPERATION;
         node.operation = on_operation;
         if (!cell.connect() || !cell.activate(node)) return;
         cell.ask_operator(R"({"ietf-system:system-restart":{}})");
         cell.run_until_handled();
         pull(cell, eth0);
         zamc_reply_asyn(cell.client(), 0, nullptr);
         zamc_run(cell.client(), 0);
     }},
};

struct Count {
    const char *name;
    Death death;
    uint64_t cells;
};

class Suite {
public:
    Suite() : server_{options()}, proxy_{server_.dir().path("zamd.sock")} {
        test::load_models();
        zam_log_config(ZAM_LOG_EMERG, zam_log_printf); // lines about deaths are expected and many
        operator_ = std::make_unique<Operator>(server_.url());
        proxy_.on_kill([this] { ::kill(server_.pid(), SIGKILL); });
    }

    void run(uint64_t wanted) {
        uint64_t bytes = 0;
        for (Exchange &exchange : exchanges) {
            run_cell(exchange, {to_client, 0, Death::none}, false);
            exchange.length[to_server] = proxy_.relayed(to_server);
            exchange.length[to_client] = proxy_.relayed(to_client);
            bytes += exchange.length[to_server] + exchange.length[to_client];
        }
        // Silence takes its time-out and a kill a new server: there are fewer of these.
        sweep({"ends", Death::fin, wanted * 3 / 10}, bytes);
        sweep({"resets", Death::rst, wanted * 3 / 10}, bytes);
        sweep({"half-closes", Death::half, wanted * 3 / 10}, bytes);
        sweep({"silences", Death::silence, wanted / 10}, bytes);
        sweep({"kills", Death::kill, wanted / 100}, bytes);
    }

    void report() const {
        for (const Count &count : counts_)
            std::printf("death: %" PRIu64 " %s\n", count.cells, count.name);
        std::printf("death: slowest call on a close %.1f ms, latest after its time-out %.1f ms, %" PRIu64 " of %" PRIu64
                    " cells died before their exchange was over\n",
                    timing_.slowest_close, timing_.latest_after_timeout, reached_, tally_.cells);
        std::printf("death: %" PRIu64 " cells, %" PRIu64 " failures\n", tally_.cells, tally_.failures);
    }
    bool failed() const { return tally_.failures > 0; }

private:
    static Server::Options options() {
        Server::Options options;
        options.startup = startup;
        options.modules = test::real_models_and_radio();
        return options;
    }

    void sweep(Count count, uint64_t bytes) {
        Spread spread{count.cells, bytes};
        count.cells = 0;
        for (const Exchange &exchange : exchanges)
            for (const Direction direction : {to_server, to_client})
                for (uint64_t at = 0; at < exchange.length[direction]; ++at) {
                    if (!spread.takes_next()) continue;
                    if (count.death == Death::silence && exchange.waits_long && at % 16 != 0) continue;
                    ++count.cells;
                    // A cell that is late on a machine that had other work is seen again before it counts.
                    const Plan plan{direction, at, count.death};
                    if (run_cell(exchange, plan, true) && run_cell(exchange, plan, true))
                        tally_.expect(!run_cell(exchange, plan, true), name_of(exchange, plan), "later than its time");
                }
        counts_.push_back(count);
    }

    static std::string name_of(const Exchange &exchange, const Plan &plan) {
        static constexpr const char *deaths[] = {"whole", "end", "reset", "half-close", "silence", "kill"};
        return std::string{exchange.name} + ", " + deaths[static_cast<int>(plan.death)] + " after " +
               std::to_string(plan.bytes) + " bytes to the " + (plan.direction == to_server ? "server" : "client");
    }

    // True when a call was late.
    bool run_cell(const Exchange &exchange, Plan plan, bool counts) {
        const bool tcp = plan.death == Death::rst || plan.bytes % 2 == 0;
        const std::string url = tcp ? proxy_.tcp_url() : proxy_.unix_url();
        const std::string name = name_of(exchange, plan);
        const int descriptors = test::open_descriptors();
        Plan carried_out = plan;
        if (planted() && plan.death == Death::fin && plan.bytes > 0 && !std::exchange(planted_, true))
            carried_out.death = Death::silence;
        proxy_.plan(carried_out);
        Cell cell{tally_, timing_, name, plan, url, operator_.get()};
        exchange.run(cell);
        proxy_.settle(); // the last bytes may have arrived before the stroke that follows them
        reached_ += counts && proxy_.happened();
        if (counts) ++tally_.cells;
        if (plan.death == Death::kill && proxy_.happened()) {
            operator_.reset();
            server_.kill();
            server_.start();
        }
        cell.connect_again(url);
        proxy_.close_all();
        if (!operator_) operator_ = std::make_unique<Operator>(server_.url()); // it went with its server
        tally_.expect(operator_->is_answered(), name, "the server owes the operator an answer");
        tally_.expect(eventually([&] { return test::open_descriptors() == descriptors; }, milliseconds{1000}), name,
                      "descriptors leaked or closed twice");
        return cell.was_late();
    }

    Tally tally_;
    Timing timing_;
    Server server_;
    Proxy proxy_;
    std::unique_ptr<Operator> operator_;
    std::vector<Count> counts_;
    uint64_t reached_ = 0;
    bool planted_ = false;
};

} // namespace
} // namespace zam::torture

// The one argument is the number of cells.
int main(int argc, char **argv) {
    const uint64_t wanted = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 20000;
    zam::torture::Suite suite;
    suite.run(wanted);
    suite.report();
    return suite.failed() || testing::UnitTest::GetInstance()->Failed() ? 1 : 0;
}
