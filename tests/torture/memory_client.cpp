// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Payloads, documents, and a client with a scripted server: requests of both sides, in JSON and XML.
#include <chrono>
#include <cstring>

#include <unistd.h>
#include <zamc/client.h>

#include "client/client_ctx_internal.h"
#include "client/client_fixture.h"
#include "memory.h"

namespace zam::torture {
namespace {

using test::encode;
using test::Frame;
using test::Kind;
using test::Peer;

zamc_bytes *bytes_of(Run &run, std::string_view text, uint32_t format = ZAM_ENCODE_JSON) {
    return run.object("bytes", zamc_new_bytes(text.data(), static_cast<int32_t>(text.size()), format));
}

void look(Run &run, zamc_doc *doc, const char *leaf) {
    run.object("iter", const_cast<char *>(zamc_iter_doc(doc, ZAMC_DIRECTION_CHILD)));
    zamc_iter_doc(doc, ZAMC_DIRECTION_NEXT);
    zamc_iter_doc(doc, ZAMC_DIRECTION_PREVIOUS);
    zamc_iter_doc(doc, ZAMC_DIRECTION_PARENT);
    char text[20];
    zamc_parse_node(doc, leaf, "%s", text, 20u);
    zamc_node_content(doc, leaf);
    zamc_node_attr(doc, leaf, "operation");
    zamc_node_is_present(doc, leaf);
    zamc_node_is_present(doc, nullptr);
    zamc_free_bytes(zamc_format_node(doc, leaf, ZAM_ENCODE_JSON));
    zamc_free_bytes(zamc_format_node(doc, "/test-main:top", ZAM_ENCODE_XML));
}

void documents(Run &run) {
    for (const uint32_t format : {ZAM_ENCODE_JSON, ZAM_ENCODE_XML}) {
        zamc_doc *doc = run.object("document", zamc_new_doc(format));
        run.code("dir", zamc_change_dir(doc, "/test-main:top"), {-2, -3});
        if (run.code("dir", zamc_change_dir(doc, "sub"), {-2, -3}) == 0)
            run.always("dir", std::string_view{zamc_current_dir(doc)}.ends_with("sub"));
        run.code("dir", zamc_change_dir(doc, "/test-main:top"), {-2, -3});
        const bool json = format == ZAM_ENCODE_JSON;
        run.code("leaf", zamc_new_node(doc, "text", "%s", json ? "x" : "<text>x</text>"), {-1, -2, -3});
        run.code("enum", zamc_new_node(doc, "mode", "%d", 3), {-1, -2, -3});
        run.code("bool", zamc_new_node(doc, "switch", "%d", 1), {-1, -2, -3});
        run.code("container", zamc_new_node(doc, "sub", "%s", json ? R"({"a":"x"})" : "<sub><a>x</a></sub>"),
                 {-1, -2, -3});
        run.code("entry", zamc_new_node(doc, "item[name='a']", nullptr), {-1, -2, -3});
        run.code("delete", zamc_del_node(doc, "item[name='b']"), {-1, -2, -3});
        zamc_bytes *printed = run.object("printed", zamc_format_doc(doc, format));
        look(run, doc, "text");
        if (printed) {
            zamc_doc *again = run.object("parsed", zamc_parse_bytes(printed, "/"));
            look(run, again, "/test-main:top/text");
            zamc_free_doc(again);
        }
        zamc_free_bytes(printed);
        zamc_free_doc(doc);
    }
    zamc_bytes *part = bytes_of(run, R"({"a":"x"})");
    if (part) zamc_free_doc(run.object("part", zamc_parse_bytes(part, "/test-main:top/sub")));
    zamc_free_bytes(part);
}

// Requests are answered with what the modules allow; a publication is asked for by the scene.
std::vector<Frame> answer(const Frame &frame) {
    const auto holds = [&](const char *text) { return frame.payload.find(text) != std::string::npos; };
    if (frame.kind != Kind::request) return Peer::obliging(frame);
    if (holds("zam-server:pull")) {
        if (frame.payload[0] == '<')
            return {Peer::reply_to(
                frame,
                R"(<pull xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server"><data><top xmlns="urn:test:main"><text>x</text></top></data></pull>)")};
        return {Peer::reply_to(frame, R"({"orvel-zam-server:pull":{"data":{"test-main:top":{"text":"x"}}}})")};
    }
    if (holds("zam-server:diff") && frame.payload[0] == '<')
        return {Peer::reply_to(
            frame, R"(<diff xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server"><entity>/</entity>)"
                   R"(<yang-patch><patch-id>1</patch-id><edit><edit-id>1</edit-id><operation>merge</operation>)"
                   R"(<target>/</target><value><top xmlns="urn:test:main"><text>x</text></top></value></edit>)"
                   R"(</yang-patch></diff>)")};
    if (holds("zam-server:diff"))
        return {Peer::reply_to(
            frame,
            R"({"orvel-zam-server:diff":{"entity":"/","yang-patch":{"patch-id":"1","edit":[{"edit-id":"1","operation":"merge","target":"/","value":{"test-main:top":{"text":"x"}}}]}}})")};
    if (holds("zam-server:locate") && frame.payload[0] == '<')
        return {Peer::reply_to(frame, R"(<locate xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server">)"
                                      R"(<prev-entity>/a</prev-entity><post-entity>/b</post-entity></locate>)")};
    if (holds("zam-server:locate"))
        return {Peer::reply_to(frame, R"({"orvel-zam-server:locate":{"prev-entity":"/a","post-entity":"/b"}})")};
    if (holds("verify-configuration"))
        return {Peer::reply_to(frame, R"({"orvel-zam-server:verify-configuration":{"consistent":"consistent"}})")};
    if (holds("refused")) return {Peer::reply_to(frame, test::service_error)};
    return Peer::obliging(frame);
}

// One for all points: its thread uses no hooks.
Peer &server() {
    static Peer *only = nullptr;
    static int uses = 0;
    if (uses++ % 64 == 0) {
        delete only; // peers keep all that they get
        only = new Peer;
        only->answer_with(answer);
    }
    return *only;
}

struct Client {
    Run &run;
    Peer &peer = server();
    int descriptors = test::open_descriptors();
    zamc_client *client;
    bool connected = false;

    explicit Client(Run &owner, uint32_t encode = ZAM_ENCODE_JSON)
        : run{owner}, client{run.object("client", zamc_client_new("tester", encode))} {
        const uint32_t patience = 200; // ms: what is lost for want of memory is not waited for
        zamc_set_attr(client, ZAMC_ATTR_SYNC_TIMEOUT, &patience, sizeof patience);
        const int32_t fd = zamc_connect(client, peer.url().c_str());
        run.always("connect", fd >= -1 || (!client && fd == -3));
        run.expect("connect", fd >= 0);
        connected = fd >= 0;
    }
    ~Client() {
        zamc_client_free(client);
        // The server notices a little later.
        for (int i = 0; i < 2000 && test::open_descriptors() > descriptors; ++i)
            usleep(100);
    }
    template <typename Done>
    void run_until(Done done) {
        // What is lost for want of memory is not waited for.
        const auto begin = std::chrono::steady_clock::now();
        const auto in_time = [&] {
            const auto wait = std::chrono::milliseconds{run.failed() ? 3 : 3000};
            return std::chrono::steady_clock::now() < begin + wait;
        };
        while (!done() && connected && in_time())
            if (zamc_run(client, 0) != 0) return;
    }
};

void attributes(Run &run) {
    Client c{run};
    const int32_t deadline = 9;
    run.code("set", zamc_set_attr(c.client, ZAMC_ATTR_DEADLINE, &deadline, sizeof deadline), {-1, -2, -3});
    run.code("set", zamc_set_attr(c.client, ZAMC_ATTR_DEP_CLIENTS, "a b", 4), {-1, -2, -3});
    run.code("set", zamc_set_attr(c.client, ZAMC_ATTR_TARGET_DS, "ietf-datastores:startup", 24), {-1, -2, -3});
    char text[40] = "";
    uint32_t length = sizeof text;
    run.code("get", zamc_get_attr(c.client, ZAMC_ATTR_TARGET_DS, text, &length), {-1, -2, -3});
    const bool old = std::strcmp(text, "ietf-datastores:running") == 0;
    run.always("the old value or the new", !c.client || old || std::strcmp(text, "ietf-datastores:startup") == 0);
    bool consistent = false;
    run.code("consistency", zamc_consistency_check(c.client, &consistent));
    if (!run.failed()) run.code("heartbeat", zamc_send_heartbeat(c.client)); // it would wait for three seconds
}

void operations(Run &run, uint32_t encode) {
    Client c{run, encode};
    const bool json = encode == ZAM_ENCODE_JSON;
    zamc_bytes *out = nullptr;
    run.code("pull", zamc_pull(c.client, 0, "/test-main:top", -1, &out), {-1, -3});
    zamc_free_bytes(out);
    run.code("pull", zamc_pull(c.client, 0, "/", -1, &out), {-1, -3});
    zamc_free_bytes(out);
    run.code("diff", zamc_diff(c.client, "/test-main:top", 0, &out), {-1, -3});
    zamc_free_bytes(out);
    run.code("locate", zamc_locate(c.client, 0, "/test-main:top/ordered[name='a']", &out), {-1, -3});
    zamc_free_bytes(out);
    zamc_bytes *content = json ? bytes_of(run, R"({"a":"x"})")
                               : bytes_of(run, R"(<sub xmlns="urn:test:main"><a>x</a></sub>)", ZAM_ENCODE_XML);
    if (content) {
        run.code("push", zamc_push(c.client, "/test-main:top/sub", ZAMC_PUSH_MERGE, content), {-1, -3});
        run.code("notify", zamc_notify(c.client, "s", content), {-1, -3});
    }
    zamc_free_bytes(content);
    run.code("terminal", zamc_cli_printf(c.client, "%s", "text"), {-1, -2, -3});
    // What the server refuses is told as an error.
    zamc_bytes *refused = bytes_of(run, "refused");
    if (refused) {
        run.code("refused", zamc_send_rpc_sync(c.client, refused, &out, 1000), {-1, -3});
        zamc_free_bytes(out);
        run.code("message", zamc_send_message(c.client, 3, refused), {-1, -3});
    }
    zamc_free_bytes(refused);
}
void operations_json(Run &run) {
    operations(run, ZAM_ENCODE_JSON);
}
void operations_xml(Run &run) {
    operations(run, ZAM_ENCODE_XML);
}

void asynchronous(Run &run) {
    Client c{run};
    static int called;
    called = 0;
    int sent = 0;
    zamc_bytes *payload = bytes_of(run, "question");
    for (int i = 0; i < 3 && payload; ++i) {
        const auto callback = [](zamc_client *, const zam_message *, void *) { return int32_t{++called}; };
        sent += run.code("request", zamc_send_rpc_asyn(c.client, payload, callback, nullptr), {-1, -3}) == 0;
    }
    zamc_free_bytes(payload);
    c.run_until([&] { return called == sent; });
    zamc_disconnect(c.client);
    zamc_run(c.client, 0);
    run.always("each callback once", called == sent || !c.client);
}

struct Handled {
    int calls = 0;
    int32_t result = 0;
    bool finished = false;
    bool strayed = false; // called for another request than the operation's
};

zamc_sub_node node(const char *target, int32_t type, Handled *handled) {
    zamc_sub_node made{};
    made.target = target;
    made.type = type;
    made.user = handled;
    switch (type) {
    case ZAMC_SUB_CONFIG_CHANGE:
        made.config = [](zamc_client *, uint32_t, uint32_t, int32_t, const char *, void *user) {
            ++static_cast<Handled *>(user)->calls;
            return static_cast<Handled *>(user)->result;
        };
        break;
    case ZAMC_SUB_STATUS_QUERY:
        made.status = [](zamc_client *, const char *, void *, zamc_bytes **out, void *user) {
            ++static_cast<Handled *>(user)->calls;
            *out = zamc_new_bytes(R"({"a":"x"})", 9, ZAM_ENCODE_JSON);
            return static_cast<Handled *>(user)->result;
        };
        break;
    default:
        made.operation = [](zamc_client *client, const zamc_bytes *, zamc_bytes **out, void *user) {
            ++static_cast<Handled *>(user)->calls;
            *out = zamc_new_bytes("<result xmlns=\"urn:test:main\">x</result>", 40, ZAM_ENCODE_XML);
            if (zamc_request_seq(client) != 4) static_cast<Handled *>(user)->strayed = true;
            if (static_cast<Handled *>(user)->result == 1) zamc_error_set(client, 5, "%s", "text");
            return static_cast<Handled *>(user)->result;
        };
    }
    return made;
}

// Subscriptions, their activation, publications of each kind with each result, and their end.
void publications(Run &run, int32_t result) {
    Client c{run};
    Handled handled;
    handled.result = result;
    const zamc_sub_node nodes[] = {node("/test-main:top", ZAMC_SUB_CONFIG_CHANGE, &handled),
                                   node("/test-main:top", ZAMC_SUB_STATUS_QUERY, &handled),
                                   node("/test-main:run", ZAMC_SUB_OPERATION, &handled)};
    bool complete = true;
    for (const zamc_sub_node &one : nodes)
        complete &= run.code("subscribe", zamc_subscribe(c.client, &one), {-2, -3}) == 0;
    const auto finished = [](zamc_client *, int32_t, void *user, int32_t) {
        static_cast<Handled *>(user)->finished = true;
        return int32_t{0};
    };
    if (run.code("activate", zamc_activate(c.client, 1, finished, &handled), {-1, -3}) == 0 && c.connected) {
        c.peer.send({Kind::request, 1, 2, test::finish_json});
        c.run_until([&] { return handled.finished; });
    }
    if (complete && handled.finished) {
        test::Publication publication;
        std::string frames = encode({Kind::request, 2, 2, publication.json()});
        publication.pub_type = "status-query";
        publication.priv_data = "1";
        frames += encode({Kind::request, 3, 2, publication.json()});
        publication.pub_type = "operation";
        publication.priv_data = "2";
        publication.content = R"({"test-main:speed":5})";
        frames += encode({Kind::request, 4, 2, publication.json()});
        publication.priv_data = "77";
        frames += encode({Kind::request, 5, 2, publication.json()});
        frames += encode({Kind::request, 6, 2, "{"});
        c.peer.send_raw(frames);
        c.run_until([&] { return handled.calls == 3; });
        run.expect("publications", handled.calls == 3);
        run.always("number", !handled.strayed);
        zamc_bytes *output = bytes_of(run, R"({"a":"x"})");
        if (result == ZAMC_REPLY_LATER) {
            run.code("answer", zamc_reply_asyn(c.client, 0, nullptr));
            run.code("answer", zamc_reply_asyn(c.client, 3, output));
            zamc_error_set(c.client, 8, "%s", "text");
            run.code("answer", zamc_reply_asyn(c.client, 4, nullptr));
        }
        zamc_free_bytes(output);
        run.code("unsubscribe", zamc_unsubscribe(c.client, &nodes[2]), {-2, -3});
        run.code("activate", zamc_activate(c.client, 0, finished, &handled), {-1, -3});
        run.expect("deactivate before the finish", zamc_deactivate(c.client) == -1);
    }
}
void publications_agreed(Run &run) {
    publications(run, 0);
}
void publications_refused(Run &run) {
    publications(run, 1);
}
void publications_later(Run &run) {
    publications(run, ZAMC_REPLY_LATER);
}

void bypass(Run &run) {
    Client c{run};
    const uint8_t on = 1;
    if (run.code("set", zamc_set_attr(c.client, ZAMC_ATTR_RPC_BYPASS, &on, 1), {-1, -2, -3}) != 0 || !c.connected)
        return;
    static int calls;
    calls = 0;
    const auto callback = [](zamc_client *, uint32_t, const zam_message *, void *) { return int32_t{++calls}; };
    run.code("callback", zamc_set_message_recv_cb(c.client, callback, nullptr));
    c.peer.send_raw(encode({Kind::other2, 0, 2, "x"}) + encode({Kind::request, 9, 2, "{}"}));
    c.run_until([&] { return calls == 2; });
    run.expect("calls", calls == 2);
    zamc_bytes *output = bytes_of(run, "{}");
    if (calls == 2 && output) run.code("answer", zamc_reply_asyn(c.client, 9, output));
    zamc_free_bytes(output);
}

// A synchronous call that meets other frames keeps them.
void kept_frames(Run &run) {
    Client c{run};
    static int calls;
    calls = 0;
    const auto callback = [](zamc_client *, uint32_t, const zam_message *, void *) { return int32_t{++calls}; };
    zamc_set_message_recv_cb(c.client, callback, nullptr);
    if (!c.connected) return;
    for (int i = 0; i < 3; ++i)
        c.peer.send({Kind::other2, 0, 2, std::string(5000, 'x')});
    zamc_bytes *payload = bytes_of(run, "question"), *reply = nullptr;
    if (payload) run.code("request", zamc_send_rpc_sync(c.client, payload, &reply, 1000), {-1});
    zamc_free_bytes(reply);
    zamc_free_bytes(payload);
    if (!run.failed()) run.code("heartbeat", zamc_send_heartbeat(c.client)); // it would wait for three seconds
    c.run_until([&] { return calls == 3; });
    run.expect("calls", calls == 3);
}

// Nobody serves terminals here.
void terminals(Run &run) {
    run.always("terminal", zamc_borrow_tty(1) == -1);
    zamc_return_tty(-1);
    zam_free(run.object("text", zam_strdup("text")));
}

void schema_context(Run &run) {
    ly_ctx *made = run.object("context", client::_build_ctx(client::_builtin_modules()));
    zam_ly_ctx_destroy(made);
    // What the library does itself when a context is made.
    char *text = zam_strdup("once");
    zam_free(run.object("text", text));
}

} // namespace

void start_peer() {
    server();
}

std::span<const Scene> client_scenes() {
    static constexpr Scene scenes[] = {
        {"documents", documents},
        {"attributes", attributes},
        {"operations in JSON", operations_json},
        {"operations in XML", operations_xml},
        {"asynchronous", asynchronous},
        {"publications agreed to", publications_agreed},
        {"publications refused", publications_refused},
        {"publications answered later", publications_later},
        {"bypass", bypass},
        {"kept frames", kept_frames},
        {"terminals", terminals},
        {"schema context", schema_context},
    };
    return scenes;
}

} // namespace zam::torture
