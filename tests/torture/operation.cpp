// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// One operation of a client, by its name, for `syscalls` to run with a system call that fails. Between two marks that a
// trace shows lie the operation and the end of all that it made. Exit status: 0, whether it succeeded or not; 3 when a
// descriptor is left over; 4 when it failed although --must was given. With ZAMC_PLANT a pull that fails keeps a
// descriptor, as an error path that forgets one would.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>
#include <zamc/job.h>
#include <zamc/listener.h>
#include <zamc/zamc.h>

#include "torture/cells.h"

namespace zam::torture {
namespace {

constexpr uint32_t timeout_ms = 500; // several in a row stay below what counts as hanging
constexpr char eth0[] = "/ietf-interfaces:interfaces/interface[name=\"eth0\"]";
constexpr char eth0_text[] = "/ietf-interfaces:interfaces/interface[name=\"eth0\"]/description";
constexpr char index_state[] = "/ietf-interfaces:interfaces-state/interface[name=\"eth0\"]/if-index";
constexpr char restart_json[] = R"({"ietf-system:system-restart":{}})";

struct Free {
    void operator()(zamc_client *client) const { zamc_client_free(client); }
    void operator()(zamc_bytes *bytes) const { zamc_free_bytes(bytes); }
    void operator()(zamc_doc *doc) const { zamc_free_doc(doc); }
    void operator()(zam_proactor *proactor) const { zam_proactor_free(proactor); }
    void operator()(zam_registry *registry) const { zam_registry_free(registry); }
};
template <typename T>
using Owned = std::unique_ptr<T, Free>;

std::string url, folder;

Owned<zamc_bytes> bytes_of(const std::string &text, uint32_t format = ZAM_ENCODE_JSON) {
    return Owned<zamc_bytes>{zamc_new_bytes(text.data(), static_cast<int32_t>(text.size()), format)};
}

class Client {
public:
    explicit Client(const char *name = "client") : client_{zamc_client_new(name, ZAM_ENCODE_JSON)} {
        zamc_set_attr(get(), ZAMC_ATTR_SYNC_TIMEOUT, &timeout_ms, sizeof timeout_ms);
    }
    zamc_client *get() const { return client_.get(); }
    bool connect() const { return zamc_connect(get(), url.c_str()) >= 0; }
    // True when it held in time.
    bool run_until(const std::function<bool()> &done) const {
        const auto start = Clock::now();
        while (!done() && ms_since(start) < timeout_ms)
            if (zamc_run(get(), 5) != 0) break;
        return done();
    }
    int32_t pull(const char *path = eth0) const {
        zamc_bytes *text = nullptr;
        const int32_t result = zamc_pull(get(), 0, path, -1, &text);
        zamc_free_bytes(text);
        return result;
    }
    int32_t push(const char *path, int32_t operation, const std::string &text, uint32_t format) const {
        const auto bytes = bytes_of(text, format);
        return zamc_push(get(), path, operation, bytes.get());
    }
    int32_t ask(const std::string &payload, int *answers) const {
        const auto bytes = bytes_of(payload);
        return zamc_send_rpc_asyn(get(), bytes.get(), count_answer, answers);
    }
    // Subscribes, activates, and waits until the server says so.
    bool activate(zamc_sub_node node, bool replay = false) const {
        int active = 0;
        const auto on_active = [](zamc_client *, int32_t, void *user, int32_t) -> int32_t {
            ++*static_cast<int *>(user);
            return 0;
        };
        if (zamc_subscribe(get(), &node) != 0 || zamc_activate(get(), replay, on_active, &active) != 0) return false;
        const bool done = run_until([&] { return active > 0; });
        if (!done) zamc_disconnect(get()); // or the callback's counter would be used later
        return done;
    }

private:
    static int32_t count_answer(zamc_client *, const zam_message *, void *arg) {
        ++*static_cast<int *>(arg);
        return 0;
    }
    Owned<zamc_client> client_;
};

class Connected : public Client {
public:
    explicit Connected(const char *name = "client") : Client{name}, is_connected{connect()} {}
    const bool is_connected;
};

std::string next_value() {
    return "text " + std::to_string(getpid()) + " " +
           std::to_string(Clock::now().time_since_epoch().count()); // so that each push changes something
}

int32_t on_config(zamc_client *client, uint32_t, uint32_t, int32_t, const char *target, void *user) {
    zamc_bytes *text = nullptr;
    zamc_diff(client, target, -1, &text);
    zamc_free_bytes(text);
    zamc_cli_printf(client, "%s\n", target);
    ++*static_cast<int *>(user);
    return 0;
}

int32_t on_status(zamc_client *, const char *, void *, zamc_bytes **output, void *user) {
    *output = bytes_of("7").release();
    ++*static_cast<int *>(user);
    return 0;
}

int32_t on_operation(zamc_client *, const zamc_bytes *, zamc_bytes **, void *user) {
    ++*static_cast<int *>(user);
    return 0;
}

int32_t on_operation_later(zamc_client *, const zamc_bytes *, zamc_bytes **, void *user) {
    ++*static_cast<int *>(user);
    return ZAMC_REPLY_LATER;
}

// An application that is asked because of the operator's request; both are of this process.
bool asked(zamc_sub_node node, const std::string &request, bool replay = false, bool later = false) {
    int calls = 0;
    int answers = 0;
    const Connected app{"app"};
    const Connected op{"operator"};
    node.user = &calls;
    if (!app.activate(node, replay)) return false;
    if (op.ask(request, &answers) != 0) return false;
    const bool called = app.run_until([&] { return calls > 0; });
    if (called && later) {
        app.pull();
        zamc_reply_asyn(app.get(), 0, nullptr);
    }
    const bool answered = op.run_until([&] {
        zamc_run(app.get(), 0);
        return answers > 0;
    });
    zamc_disconnect(op.get()); // the answer may still be due, and its counter goes
    zamc_run(op.get(), 0);
    zamc_disconnect(app.get());
    return called && answered;
}

zamc_sub_node config_node() {
    zamc_sub_node node{};
    node.target = eth0;
    node.type = ZAMC_SUB_CONFIG_CHANGE;
    node.config = on_config;
    return node;
}

std::string push_request() {
    return R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running","entity":)"
           R"("/ietf-interfaces:interfaces/interface[name='eth0']/description","operation":"merge",)"
           R"("content":{"description":")" +
           next_value() + R"("}}})";
}

bool status() {
    zamc_sub_node node{};
    node.target = index_state;
    node.type = ZAMC_SUB_STATUS_QUERY;
    node.status = on_status;
    return asked(node, R"({"orvel-zam-server:pull":{"datastore":"ietf-datastores:operational",)"
                       R"("entity":"/ietf-interfaces:interfaces-state"}})");
}

bool operation(bool later) {
    zamc_sub_node node{};
    node.target = "/ietf-system:system-restart";
    node.type = ZAMC_SUB_OPERATION;
    node.operation = later ? on_operation_later : on_operation;
    return asked(node, restart_json, false, later);
}

bool document() {
    const Owned<zamc_doc> doc{zamc_new_doc(ZAM_ENCODE_JSON)};
    if (zamc_new_node(doc.get(), eth0_text, "%s", "text") != 0) return false;
    const Owned<zamc_bytes> text{zamc_format_doc(doc.get(), ZAM_ENCODE_JSON)};
    if (!text) return false;
    const Owned<zamc_doc> again{zamc_parse_bytes(text.get(), "/")};
    return again != nullptr;
}

// A descriptor fewer than before is opened and closed for the process by stdio.
bool log_file(bool rotates) {
    const std::string path = folder + "/operation-" + std::to_string(getpid());
    if (rotates) {
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0 || ftruncate(fd, 209715200) != 0) return false;
        close(fd);
    }
    zam_open_log_file(path.c_str());
    zam_log_config(ZAM_LOG_DEBUG, zam_write_log_file);
    for (int line = 0; line < 3; ++line)
        zam_write_log_file(ZAM_LOG_INFO, "Line %d.\n", line);
    zam_log_config(ZAM_LOG_EMERG, zam_log_printf);
    zam_close_log_file();
    const bool written = access(path.c_str(), F_OK) == 0;
    unlink(path.c_str());
    for (int number = 0; number <= 2; ++number)
        unlink((path + "_" + std::to_string(number) + ".log").c_str());
    return written;
}

int accepted_fd = -1;

bool listener() {
    const std::string own = "unix://" + folder + "/listener-" + std::to_string(getpid());
    const std::string listen_url = own + ":600";
    accepted_fd = -1;
    const Owned<zam_proactor> proactor{zam_proactor_new()};
    const Owned<zam_registry> registry{zam_registry_new(23)};
    if (!proactor || !registry) return false;
    zam_proactor_registry_set(proactor.get(), registry.get());
    zam_event_register(registry.get(), EVENT_CONNECT_REQ, [](zam_proactor *, uint32_t, void *para) -> int32_t {
        const auto fd = static_cast<int32_t>(reinterpret_cast<intptr_t>(para));
        if (const int one = zam_socket_accept(fd); one >= 0) accepted_fd = one;
        return 0;
    });
    const int fd = zam_socket_listen(listen_url.c_str());
    if (fd < 0) return false;
    zam_socket_block(fd, 0);
    zam_listener *listens = zam_listener_new(proactor.get(), fd);
    if (listens == nullptr) {
        close(fd);
        zam_socket_listen_release(listen_url.c_str());
        return false;
    }
    const int peer = zam_socket_connect(own.c_str());
    const auto start = Clock::now();
    while (accepted_fd < 0 && ms_since(start) < timeout_ms) {
        zam_trigger *trigger = zam_proactor_wait(proactor.get(), 50);
        while (zam_event *event = zam_event_pop(proactor.get())) {
            zam_event_dispatch(proactor.get(), event);
            zam_event_free(event);
        }
        zam_proactor_done(proactor.get(), trigger);
    }
    const bool accepted = accepted_fd >= 0;
    for (const int each : {peer, accepted_fd})
        if (each >= 0) close(each);
    zam_listener_free(listens);
    zam_socket_listen_release(listen_url.c_str());
    return accepted;
}

int jobs_done = 0;

bool jobs(uint32_t threads) {
    jobs_done = 0;
    const Owned<zam_proactor> proactor{zam_proactor_new()};
    const Owned<zam_registry> registry{zam_registry_new(23)};
    if (!proactor || !registry) return false;
    zam_proactor_registry_set(proactor.get(), registry.get());
    if (zam_job_init(proactor.get(), registry.get(), threads) != 0) return false;
    for (int job = 0; job < 3; ++job)
        zam_new_job(nullptr, nullptr, [](void *) { ++jobs_done; });
    const auto start = Clock::now();
    while (jobs_done < 3 && ms_since(start) < timeout_ms) {
        zam_trigger *trigger = zam_proactor_wait(proactor.get(), 50);
        while (zam_event *event = zam_event_pop(proactor.get())) {
            zam_event_dispatch(proactor.get(), event);
            zam_event_free(event);
        }
        zam_proactor_done(proactor.get(), trigger);
    }
    zam_job_exit();
    return jobs_done == 3;
}

struct Operation {
    const char *name;
    bool (*run)();
    bool of_tour; // asks much of a server and little time
};

constexpr Operation operations[] = {
    {"connect", [] { return Connected{}.is_connected; }, true},
    {"connect-refused",
     [] {
         const Client client;
         return zamc_connect(client.get(), ("unix://" + folder + "/nobody").c_str()) == -1;
     },
     false},
    {"reconnect",
     [] {
         const Connected client;
         return client.connect() && client.pull() == 0;
     },
     false},
    {"pull",
     [] {
         const Connected client;
         const bool done = client.pull() == 0;
         if (!done && planted()) static_cast<void>(dup(STDERR_FILENO));
         return done;
     },
     true},
    {"pull-all", [] { return Connected{}.pull("/") == 0; }, false},
    {"push", [] { return Connected{}.push(eth0_text, ZAMC_PUSH_MERGE, next_value(), ZAM_ENCODE_JSON) == 0; }, true},
    {"push-xml",
     [] {
         const std::string text =
             R"(<description xmlns="urn:ietf:params:xml:ns:yang:ietf-interfaces">)" + next_value() + "</description>";
         return Connected{}.push(eth0_text, ZAMC_PUSH_MERGE, text, ZAM_ENCODE_XML) == 0;
     },
     false},
    {"push-large", // more than a socket takes at once
     [] {
         const Connected client;
         return client.push(eth0_text, ZAMC_PUSH_MERGE, std::string(300000, 'x') + next_value(), ZAM_ENCODE_JSON) ==
                    0 &&
                client.pull() == 0 && client.push(eth0_text, ZAMC_PUSH_MERGE, "small", ZAM_ENCODE_JSON) == 0;
     },
     false},
    {"push-document",
     [] {
         const std::string text = R"({"radio:radio":{"name":")" + next_value() + R"("}})";
         return Connected{}.push("/", ZAMC_PUSH_MERGE, text, ZAM_ENCODE_JSON) == 0;
     },
     false},
    {"remove", [] { return Connected{}.push("/radio:radio/motto", ZAMC_PUSH_REMOVE, "", ZAM_ENCODE_JSON) == 0; },
     false},
    {"locate",
     [] {
         const Connected client;
         zamc_bytes *text = nullptr;
         const int32_t result = zamc_locate(client.get(), 0, "/radio:radio/preset[name=\"one\"]", &text);
         zamc_free_bytes(text);
         return result == 0;
     },
     false},
    {"notify",
     [] {
         const Connected client;
         const auto text = bytes_of(R"({"a":1})");
         return zamc_notify(client.get(), "NETCONF", text.get()) == 0;
     },
     false},
    {"heartbeat", [] { return zamc_send_heartbeat(Connected{}.get()) == 0; }, true},
    {"request",
     [] {
         const Connected client;
         const auto request = bytes_of(R"({"orvel-zam-server:pull":{"entity":"/radio:radio"}})");
         zamc_bytes *reply = nullptr;
         const int32_t result = zamc_send_rpc_sync(client.get(), request.get(), &reply, timeout_ms);
         zamc_free_bytes(reply);
         return result == 0;
     },
     false},
    {"asynchronous",
     [] {
         int answers = 0;
         const Connected client;
         for (const char *entity : {"/radio:radio", "/", "/nothing:there"})
             client.ask(std::string{R"({"orvel-zam-server:pull":{"entity":")"} + entity + R"("}})", &answers);
         const bool done = client.run_until([&] { return answers == 3; });
         zamc_disconnect(client.get());
         zamc_run(client.get(), 0);
         return done;
     },
     false},
    {"attributes",
     [] {
         const Connected client;
         const int32_t deadline = 5;
         const uint32_t encode = ZAM_ENCODE_XML;
         return zamc_set_attr(client.get(), ZAMC_ATTR_DEADLINE, &deadline, sizeof deadline) == 0 &&
                zamc_set_attr(client.get(), ZAMC_ATTR_ENCODE, &encode, sizeof encode) == 0 && client.pull() == 0;
     },
     false},
    {"activation",
     [] {
         int calls = 0;
         const Connected client;
         zamc_sub_node node = config_node();
         node.user = &calls;
         return client.activate(node) && zamc_deactivate(client.get()) == 0;
     },
     false},
    {"replay",
     [] {
         int calls = 0;
         const Connected client;
         zamc_sub_node node = config_node();
         node.user = &calls;
         node.filter_mask = ZAMC_CONFIG_CREATE | ZAMC_SCENE_CFGR;
         return client.activate(node, true) && calls > 0;
     },
     false},
    {"publication", [] { return asked(config_node(), push_request()); }, true},
    {"status", status, true},
    {"operation", [] { return operation(false); }, true},
    {"operation-later", [] { return operation(true); }, false},
    {"bypass",
     [] {
         const Connected client;
         int frames = 0;
         const uint8_t on = 1;
         const auto count = [](zamc_client *, uint32_t, const zam_message *, void *arg) -> int32_t {
             ++*static_cast<int *>(arg);
             return 0;
         };
         const auto request = bytes_of(R"({"orvel-zam-server:pull":{"entity":"/radio:radio"}})");
         return zamc_set_attr(client.get(), ZAMC_ATTR_RPC_BYPASS, &on, sizeof on) == 0 &&
                zamc_set_message_recv_cb(client.get(), count, &frames) == 0 &&
                zamc_send_message(client.get(), 0, request.get()) == 0 && client.run_until([&] { return frames > 0; });
     },
     false},
    {"document", document, false},
    {"modules", [] { return zamc_load_module(ZAMC_MODELS_PATH, nullptr) == 0; }, false},
    {"log-file", [] { return log_file(false); }, false},
    {"log-rotation", [] { return log_file(true); }, false},
    {"listener", listener, false},
    {"jobs", [] { return jobs(0); }, false},
    {"jobs-in-threads", [] { return jobs(2); }, false},
    {"terminal",
     [] {
         const int fd = zamc_borrow_tty(4000000000);
         zamc_return_tty(fd);
         return fd == -1;
     },
     false},
};

// Without opening any.
int descriptors() {
    int count = 0;
    for (int fd = 0; fd < 256; ++fd)
        count += fcntl(fd, F_GETFD) >= 0;
    return count;
}

bool tour() {
    bool done = true;
    for (const Operation &each : operations)
        if (each.of_tour) done = each.run() && done;
    return done;
}

// What the first log line and the first use of the local time open for the whole process.
bool prepare(const std::string &name) {
    zam_log_config(ZAM_LOG_EMERG, zam_log_printf);
    zam_free(zam_get_local_time());
    if (zamc_initialize() != 0) return false;
    return name == "modules" ||
           (zamc_load_module(ZAMC_MODELS_PATH, nullptr) == 0 && zamc_load_module(ZAMC_RADIO_PATH, nullptr) == 0);
}

int run(const std::string &name, bool must) {
    const int before = descriptors();
    static_cast<void>(access("/zamc-begin", F_OK));
    bool known = name == "tour";
    bool done = known && tour();
    for (const Operation &each : operations)
        if (name == each.name) {
            known = true;
            done = each.run();
        }
    static_cast<void>(access("/zamc-end", F_OK));
    if (!known) return 2;
    if (descriptors() != before) return 3;
    return must && !done ? 4 : 0;
}

} // namespace
} // namespace zam::torture

int main(int argc, char **argv) {
    using namespace zam::torture;
    const std::string name = argc > 1 ? argv[1] : "";
    if (name == "--list") {
        for (const Operation &each : operations)
            std::puts(each.name);
        return 0;
    }
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s --list | NAME URL FOLDER [--must]\n", argv[0]);
        return 2;
    }
    url = argv[2];
    folder = argv[3];
    if (!prepare(name)) {
        std::fprintf(stderr, "the models cannot be loaded\n");
        return 2;
    }
    return run(name, argc > 4);
}
