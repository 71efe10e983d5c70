// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The receive path: frames that nobody waits for, handed to the application.
//
//   zamc_run -> proactor -> EVENT_MESSAGE_RECV -> receive pass -> dispatch by frame type -> handler
//
// The application's code runs in here and nowhere else, and it may do anything to the client: send, wait, pump, drop
// the connection, make another, free the client. Therefore
//   - a frame is taken out of the input before its handler runs;
//   - whoever calls a handler reads the client's fields anew afterwards; `connection` tells whether it is the same one;
//   - zamc_client_free inside zamc_run closes the connection at once and the rest when the outermost zamc_run returns.
//
// Each handler of a frame says whether it took the frame. A pass ends where one was left: it would be found again.
#include <array>

#include <zamc/logger.h>

#include "client/client_internal.h"
#include "io/connector_internal.h"
#include "platform/clock.h"

namespace zam::client {

namespace {

// The request whose handler runs, for as long as it runs. Handlers may pump, so requests nest.
struct request_scope {
    zamc_client *client;
    uint32_t seq;
    uint32_t connection;

    request_scope(zamc_client *owner, uint32_t request)
        : client{owner}, seq{owner->request_seq}, connection{owner->request_connection} {
        client->request_seq = request;
        client->request_connection = client->connection;
    }
    ~request_scope() {
        client->request_seq = seq;
        client->request_connection = connection;
    }
    request_scope(const request_scope &) = delete;
    request_scope &operator=(const request_scope &) = delete;
};

using request_handler = void (*)(zamc_client *client, uint32_t seq, lyd_node *tree);

struct request_kind {
    const char *path;
    request_handler handler;
};

constexpr std::array<request_kind, 3> request_kinds{{
    {"/orvel-zam-client:publish", _handle_publish_req},
    {"/orvel-zam-client:notify-activate-finish",
     [](zamc_client *client, uint32_t seq, lyd_node *tree) { _activate_finish(client, seq, tree); }},
    {"/orvel-zam-client:notify-deactivate-finish",
     [](zamc_client *client, uint32_t seq, lyd_node *tree) { _deactivate_finish(client, seq, tree); }},
}};

void _handle_rpc_request(zamc_client *client, uint32_t seq, lyd_node *tree) {
    const lysc_node *schema = zam_lyd_get_schema(tree, nullptr);
    if (!schema) {
        zam_log_printf(ZAM_LOG_WRONG, "RPC get schema unsuccessful.\n");
        record_failure(client, service_failure);
        return;
    }
    // Looked up for each request: loading a module rebuilds the schema nodes of others.
    for (const request_kind &kind : request_kinds) {
        if (zam_lys_find_path(zam_clients_schema_ctx(), nullptr, kind.path, 0) != schema) continue;
        kind.handler(client, seq, tree);
        return;
    }
    const char *module = zam_lyd_get_module_name(tree);
    const char *name = zam_lyd_get_schema_name(tree);
    zam_log_printf(ZAM_LOG_WRONG, "RPC %s:%s is not supported.\n", module ? module : "null", name ? name : "null");
    record_failure(client, message_failure);
}

void _serve(zamc_client *client, uint32_t seq, const frame &request) {
    if (!request.block) {
        record_failure(client, system_failure);
        return;
    }
    const yang::owned_tree tree{zam_lyd_parse_op(zam_clients_schema_ctx(), request.message.data,
                                                 to_lyd_format(request.message.encoding), LYD_TYPE_RPC_YANG)};
    if (!tree) {
        zam_log_printf(ZAM_LOG_WRONG, "Parse rpc from server not successful.\n");
        record_failure(client, message_failure);
        return;
    }
    _handle_rpc_request(client, seq, tree.get());
}

// Sends the error that the handler of the current request left, to the peer that is waiting for it.
void _answer_error(zamc_client *client, uint32_t seq) {
    if (client->error_code == 0) return;
    if (answer_is_due(client)) {
        _send_reply_error(client, seq);
    } else {
        clear_error(client);
    }
}

// Notes that the request is owed an answer. Without memory for the note it gets an error reply at once.
bool _accept_request(zamc_client *client, uint32_t seq) {
    if (_append_rpc_seq(&client->wait_replies, seq) == 0) return true;
    record_failure(client, system_failure);
    _send_reply_error(client, seq);
    return false;
}

bool _handle_rpc(zamc_client *client, const zam_message *message) {
    const uint32_t seq = zam_message_seq(message);
    if (!_accept_request(client, seq)) return false;
    const frame request = take_frame(client, message);
    if (!zam_clients_schema_ctx()) return true;
    const request_scope scope{client, seq};
    _serve(client, seq, request);
    _answer_error(client, seq);
    return true;
}

bool _handle_other_msg(zamc_client *client, const zam_message *message) {
    if (!client->recv_callback) {
        zam_log_printf(ZAM_LOG_WARN, "The client does not set recv message callback.\n");
        pop_frame(client, message);
        return true;
    }
    const uint32_t type = zam_message_type(message);
    const frame taken = take_frame(client, message);
    if (taken.block) client->recv_callback(client, type, &taken.message, client->recv_arg);
    return true;
}

bool _handle_untyped(zamc_client *client, const zam_message *message) {
    zam_log_printf(ZAM_LOG_WRONG, "Receive an error message(seq=%u, %u).\n", zam_message_seq(message), message->length);
    pop_frame(client, message);
    return true;
}

// An echo has done its work by arriving.
bool _handle_rewake(zamc_client *client, const zam_message *message) {
    pop_frame(client, message);
    return true;
}

bool _bypass_request(zamc_client *client, const zam_message *message) {
    const uint32_t seq = zam_message_seq(message);
    if (!_accept_request(client, seq)) return false;
    const frame request = take_frame(client, message);
    const request_scope scope{client, seq};
    if (request.block) {
        client->recv_callback(client, ZAM_MESSAGE_REQUEST, &request.message, client->recv_arg);
    } else {
        record_failure(client, system_failure);
        _answer_error(client, seq);
    }
    return true;
}

bool _proc_bypass_mode(zamc_client *client, const zam_message *message) {
    if (!client->recv_callback) return false;
    switch (zam_message_type(message)) {
    case ZAM_MESSAGE_REQUEST: return _bypass_request(client, message);
    case ZAM_MESSAGE_UNTYPED: pop_frame(client, message); return true;
    default: return _handle_other_msg(client, message);
    }
}

using frame_handler = bool (*)(zamc_client *client, const zam_message *message);

constexpr std::array<frame_handler, 6> frame_handlers{
    _handle_rpc,       // ZAM_MESSAGE_REQUEST
    _handle_reply,     // ZAM_MESSAGE_REPLY
    _handle_other_msg, // ZAM_MESSAGE_OTHER_2
    _handle_other_msg, // ZAM_MESSAGE_OTHER_3
    _handle_untyped,   // ZAM_MESSAGE_UNTYPED
    _handle_rewake,    // ZAM_MESSAGE_REWAKE
};

// True when the frame is consumed.
bool _dispatch_message(zamc_client *client, const zam_message *message) {
    if (_get_rpc_bypass_flag(client)) return _proc_bypass_mode(client, message);
    const uint32_t type = zam_message_type(message);
    const frame_handler handler = type < frame_handlers.size() ? frame_handlers[type] : _handle_untyped;
    if (!handler(client, message)) return false;
    // Its echo starts another pass, should this one not get through the input. One is enough for a pass: one for each
    // frame would come back as a pass as long as this one, and so on.
    if (!client->rewake_asked && frame_start_remains(client)) {
        client->rewake_asked = 1;
        _send_rewake_req(client);
    }
    return true;
}

// Lets the first reply overtake the requests ahead of it: the answer that the application owes may depend on it.
void _proc_db_reply(zamc_client *client) {
    zam_message message;
    if (next_reply(client, &message)) _dispatch_message(client, &message);
}

// One receive pass: all that has arrived, as long as the connection is there to take it from.
void _receive(zamc_client *client) {
    client->rewake_asked = 0;
    while (client->connector) {
        if (client->wait_replies.head) _proc_db_reply(client);
        zam_message message;
        if (!next_frame(client, &message) || !_dispatch_message(client, &message)) break;
    }
}

} // namespace

int32_t _on_message_receive(zam_proactor *, uint32_t, void *para) {
    auto *connector = static_cast<zam_connector *>(para);
    auto *client = static_cast<zamc_client *>(zam_connector_context(connector));
    if (!client) {
        zam_log_printf(ZAM_LOG_INFO, "Fail to get client when recive messsage.\n");
        return -1;
    }
    _receive(client);
    return 0;
}

namespace {

// Handlers that each run the client would handle any number of waiting frames inside each other; from this depth on,
// what has arrived is left to the runs below.
constexpr uint32_t deepest_takeover = 32;

// Whether there is a server to wait for, after the callers of requests that it left unanswered have been told.
bool _is_connected(zamc_client *client) {
    if (zam_connector_closed(client->connector)) end_exchanges(client);
    call_lost_requests(client);
    return !zam_connector_closed(client->connector);
}

void _dispatch_events(zam_proactor *proactor) {
    for (;;) {
        const runtime::owned<zam_event, zam_event_free> event{zam_event_pop(proactor)};
        if (!event) return;
        zam_event_dispatch(proactor, event.get());
    }
}

int32_t _run(zamc_client *client, int32_t timeout_ms) {
    // Frames may be there that nothing will wake us for: those put back by a synchronous call, and those that arrived
    // together with the one whose handler has called us.
    if (_is_connected(client) && client->run_depth <= deepest_takeover) _receive(client);
    idle_wait idle{timeout_ms};
    while (_is_connected(client)) {
        const uint32_t connection = client->connection;
        zam_trigger *trigger = idle.next(client);
        if (!trigger) return 0;
        _dispatch_events(client->proactor);
        // The trigger belongs to the connector that it woke for, and a handler may have dropped that one.
        if (client->connection == connection) zam_proactor_done(client->proactor, trigger);
    }
    return -1;
}

} // namespace

zam_trigger *idle_wait::next(const zamc_client *client) {
    if (!io::is_starved(client->connector)) {
        starved_since_ = -1;
    } else if (starved_since_ < 0) {
        starved_since_ = platform::monotonic_ms();
    } else if (timeout_ms_ >= 0 && platform::monotonic_ms() - starved_since_ >= timeout_ms_) {
        return nullptr;
    }
    return zam_proactor_wait(client->proactor, timeout_ms_);
}

} // namespace zam::client

using namespace zam::client;

int32_t zamc_run(zamc_client *client, int32_t timeout_ms) {
    if (!client) return -3;
    ++client->run_depth;
    const int32_t result = _run(client, timeout_ms);
    --client->run_depth;
    if (client->free_wanted && client->run_depth == 0) destroy_client(client);
    return result;
}

int32_t zamc_set_message_recv_cb(zamc_client *client, zamc_message_recv_fn callback, void *arg) {
    if (!client || !callback) return -1;
    client->recv_callback = callback;
    client->recv_arg = arg;
    return 0;
}
