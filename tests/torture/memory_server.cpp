// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A client of a real zamd: its life, its data, and changes that an operator, a plain socket without memory hooks,
// pushes while it listens.
#include <chrono>
#include <cstdlib>
#include <cstring>

#include <unistd.h>
#include <zamc/client.h>
#include <zamc/utils.h>
#include <zamc/yang_module.h>

#include "memory.h"
#include "support/files.h"
#include "support/raw_client.h"
#include "support/server.h"

namespace zam::torture {
namespace {

test::Server *server = nullptr;

constexpr const char *interface_path = R"(/ietf-interfaces:interfaces/interface[name="eth0"])";

struct Application {
    Run &run;
    zamc_client *client;
    bool connected = false;
    bool active = false;
    int calls = 0;
    bool looks_around = false;

    Application(Run &owner, uint32_t encode)
        : run{owner}, client{run.object("client", zamc_client_new("app", encode))} {
        const uint32_t patience = 500; // ms: what is lost for want of memory is not waited for
        zamc_set_attr(client, ZAMC_ATTR_SYNC_TIMEOUT, &patience, sizeof patience);
        connected = zamc_connect(client, server->url().c_str()) >= 0;
        run.expect("connect", connected);
    }
    ~Application() { zamc_client_free(client); }

    template <typename Done>
    bool run_until(Done done) {
        // What is lost for want of memory is not waited for.
        const auto begin = std::chrono::steady_clock::now();
        const auto in_time = [&] {
            const auto wait = std::chrono::milliseconds{run.failed() ? 5 : 5000};
            return std::chrono::steady_clock::now() < begin + wait;
        };
        while (!done() && connected && in_time()) {
            if (zamc_run(client, 1) != 0) return false;
        }
        return done();
    }

    void activate() {
        zamc_sub_node node{};
        node.target = "/ietf-interfaces:interfaces/interface";
        node.type = ZAMC_SUB_CONFIG_CHANGE;
        node.filter_mask = 0x8F;
        node.user = this;
        node.config = [](zamc_client *, uint32_t, uint32_t, int32_t, const char *target, void *user) {
            return static_cast<Application *>(user)->changed(target);
        };
        if (run.code("subscribe", zamc_subscribe(client, &node), {-2, -3}) != 0) return;
        const auto finished = [](zamc_client *, int32_t, void *user, int32_t) {
            static_cast<Application *>(user)->active = true;
            return int32_t{0};
        };
        if (run.code("activate", zamc_activate(client, 0, finished, this), {-1, -3}) != 0) return;
        run_until([this] { return active; });
        run.expect("active", active);
    }

    // What a handler asks about the change.
    int32_t changed(const char *target) {
        ++calls;
        if (!looks_around) return 0;
        zamc_bytes *out = nullptr;
        run.code("diff", zamc_diff(client, target, 0, &out), {-1, -3});
        zamc_free_bytes(out);
        run.code("pull", zamc_pull(client, 1, "/ietf-interfaces:interfaces", -1, &out), {-1, -3});
        zamc_free_bytes(out);
        run.code("terminal", zamc_cli_printf(client, "%s", target), {-1, -2});
        return 0;
    }
};

void data(Run &run, uint32_t encode) {
    Application app{run, encode};
    zamc_bytes *out = nullptr;
    run.code("pull", zamc_pull(app.client, 0, "/ietf-interfaces:interfaces", -1, &out), {-1, -3});
    zamc_free_bytes(out);
    const bool json = encode == ZAM_ENCODE_JSON;
    const std::string text =
        json
            ? R"({"name":"eth0","type":"iana-if-type:ethernetCsmacd","description":"d"})"
            : R"(<interface xmlns="urn:ietf:params:xml:ns:yang:ietf-interfaces"><name>eth0</name><type xmlns:t="urn:ietf:params:xml:ns:yang:iana-if-type">t:ethernetCsmacd</type></interface>)";
    zamc_bytes *content = run.object("bytes", zamc_new_bytes(text.data(), static_cast<int32_t>(text.size()), encode));
    if (content) run.code("push", zamc_push(app.client, interface_path, ZAMC_PUSH_MERGE, content), {-1, -3});
    zamc_free_bytes(content);
    zamc_bytes *nothing = run.object("bytes", zamc_new_bytes("", 0, encode));
    if (nothing) run.code("remove", zamc_push(app.client, interface_path, ZAMC_PUSH_REMOVE, nothing), {-1, -3});
    zamc_free_bytes(nothing);
    bool consistent = false;
    run.code("consistency", zamc_consistency_check(app.client, &consistent));
    if (!run.failed()) run.code("heartbeat", zamc_send_heartbeat(app.client)); // it would wait for three seconds
}
void data_json(Run &run) {
    data(run, ZAM_ENCODE_JSON);
}
void data_xml(Run &run) {
    data(run, ZAM_ENCODE_XML);
}

// The operator is there before, and without hooks: only the application runs out of memory.
test::RawClient &operator_client() {
    static auto *const only = [] {
        auto *made = new test::RawClient{server->url()};
        made->enter("operator");
        return made;
    }();
    return *only;
}

void changes(Run &run, uint32_t encode) {
    static uint32_t seq = 100;
    Application app{run, encode};
    app.looks_around = true;
    app.activate();
    if (app.active) {
        const std::string push =
            R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running","entity":"/ietf-interfaces:interfaces/)"
            R"(interface[name=\"eth1\"]","operation":"merge","content":{"interface":{"name":"eth1",)"
            R"("type":"iana-if-type:ethernetCsmacd","description":")" +
            std::to_string(seq) + "\"}}}}";
        operator_client().send(test::Frame{test::Kind::request, ++seq, 2, push});
        app.run_until([&] { return app.calls > 0; });
        zamc_run(app.client, 1);
    }
    zamc_client_free(app.client); // the server goes on without it
    app.client = nullptr;
    if (!app.active) return;
    const auto reply = operator_client().receive();
    run.always("the operator gets an answer", reply.has_value());
}
void changes_json(Run &run) {
    changes(run, ZAM_ENCODE_JSON);
}
void changes_xml(Run &run) {
    changes(run, ZAM_ENCODE_XML);
}

} // namespace

void start_server() {
    if (zamc_load_module(test::models_path().c_str(), nullptr) != 0) std::abort();
    zam_free_module_map(); // it holds blocks from before the hooks
    server = new test::Server;
    operator_client();
}

void stop_server() {
    delete server;
}

std::span<const Scene> server_scenes() {
    static constexpr Scene scenes[] = {
        {"zamd: data in JSON", data_json},
        {"zamd: data in XML", data_xml},
        {"zamd: changes in JSON", changes_json},
        {"zamd: changes in XML", changes_xml},
    };
    return scenes;
}

} // namespace zam::torture
