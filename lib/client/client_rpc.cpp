// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Requests to the server. Each has a number and, from its push until its reply is taken or given up, a record on the
// send queue, in the order of sending.
//
// A synchronous caller pumps the client's own proactor until its reply is there. Whatever else arrives meanwhile is set
// aside and goes back into the input afterwards, in its order; no code of the application runs during such a wait. The
// wait ends with the reply, when a whole time-out passes without any activity, or when the connection closes.
//
// Replies of asynchronous requests come through the dispatcher. The server answers in the order of the requests, so
// whatever is older than the request answered is lost. Records leave the queue before any callback runs, because a
// callback may send, wait, pump, disconnect or free.
#include <algorithm>
#include <string_view>

#include <zamc/logger.h>

#include "client/client_internal.h"
#include "platform/bounded.h"
#include "yang/yang_wrap_internal.h"

namespace zam::client {

namespace {

constexpr std::string_view ok_text{"<ok/>"}; // compared as it stands, in whatever encoding the reply came

uint32_t _gen_send_rpc_seq(zamc_client *client) {
    return client->send_seq++;
}

// Takes the record off whichever list holds it.
void _free_rpc_meta(rpc_meta *meta) {
    if (meta && meta->node.list) zam_dlist_remove(meta->node.list, &meta->node);
    zam_free(meta);
}
using owned_meta = runtime::owned<rpc_meta, _free_rpc_meta>;
using owned_reply = runtime::owned_block<zamc_bytes>;

rpc_meta *_cache_rpc_raw(zamc_client *client, const zam_message *payload, zamc_reply_fn callback, void *arg) {
    owned_meta meta{runtime::mem_new<rpc_meta>()};
    if (!meta) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for rpc meta not successful.\n");
        return nullptr;
    }
    meta->seq = _gen_send_rpc_seq(client);
    meta->callback = callback;
    meta->arg = arg;
    if (zam_message_push(client->connector, ZAM_MESSAGE_REQUEST, meta->seq, payload) != 0) return nullptr;
    zam_dlist_append(&client->send_queue, &meta->node);
    return meta.release();
}

rpc_meta *_send_rpc(zamc_client *client, const zam_message *payload, zamc_reply_fn callback, void *arg) {
    rpc_meta *meta = _cache_rpc_raw(client, payload, callback, arg);
    if (meta) zam_connector_flush(client->connector);
    return meta;
}

rpc_meta *_send_rpc_tree(zamc_client *client, const lyd_node *tree, uint32_t format) {
    uint32_t length = 0;
    const runtime::system_text text{zam_lyd_tree_dump(tree, to_lyd_format(format), &length)};
    if (!text) return nullptr;
    zam_log_printf(ZAM_LOG_DEBUG, "[Client]:%s send RPC:%s.\n", client->name, text.get());
    const zam_message payload{format, length, text.get()};
    return _send_rpc(client, &payload, nullptr, nullptr);
}

// One synchronous wait.
struct reply_wait {
    zamc_client *client;
    uint32_t seq;
    runtime::owned<zam_rw_bytes, zam_rw_bytes_free> aside; // frames for others
    owned_reply reply;
    bool found;
};

// Goes through the input until the reply turns up; what stands behind it stays unread.
void _read_buf(reply_wait *wait) {
    join_input(wait->client);
    zam_message message;
    while (!wait->found && next_frame(wait->client, &message)) {
        if (zam_message_is_reply(&message, wait->seq)) {
            wait->found = true;
            wait->reply.reset(_dup_rpc_reply(message.encoding, message.length, message.data));
        } else if (zam_message_type(&message) != ZAM_MESSAGE_REWAKE) {
            zam_rw_bytes *aside = wait->aside.release();
            _cache_other_msg(&aside, &message);
            wait->aside.reset(aside);
        }
        pop_frame(wait->client, &message);
    }
}

void _drain_events(reply_wait *wait) {
    zam_proactor *proactor = wait->client->proactor;
    while (!wait->found) {
        const runtime::owned<zam_event, zam_event_free> event{zam_event_pop(proactor)};
        if (!event) return;
        if (zam_event_id(event.get()) == EVENT_MESSAGE_RECV) {
            _read_buf(wait);
        } else {
            zam_event_dispatch(proactor, event.get());
        }
    }
}

void _pump(reply_wait *wait, int32_t timeout_ms) {
    zamc_client *client = wait->client;
    idle_wait idle{timeout_ms};
    while (!wait->found && !zam_connector_closed(client->connector)) {
        const uint32_t connection = client->connection;
        zam_trigger *trigger = idle.next(client);
        if (!trigger) {
            zam_log_printf(ZAM_LOG_INFO, "Rpc reply wait is timeout(client name=%s, seq=%u).\n", client->name,
                           wait->seq);
            return;
        }
        _drain_events(wait);
        // The trigger belongs to the connector and goes with it.
        if (client->connection == connection) zam_proactor_done(client->proactor, trigger);
        // Input may come without its event: when memory for the event ran out, or when the server's last words filled
        // the read area to the byte, and only its closing was reported.
        if (client->connector) _read_buf(wait);
    }
}

int32_t _wait_rpc_reply(zamc_client *client, uint32_t seq, zamc_bytes **reply, int32_t timeout_ms) {
    reply_wait wait{client, seq, nullptr, nullptr, false};
    _pump(&wait, timeout_ms);
    if (!zam_connector_closed(client->connector)) {
        put_back(client, wait.aside.get());
        // Its echo wakes the proactor again, and the input gets dispatched.
        if (frame_start_remains(client)) _send_rewake_req(client);
    }
    *reply = wait.reply.release();
    return *reply ? 1 : 0;
}

int32_t _sync_timeout_ms(const zamc_client *client) {
    return static_cast<int32_t>(std::min<uint32_t>(_get_sync_timeout(client), INT32_MAX));
}

// Sends the tree and waits. The reply, or null.
owned_reply _exchange_tree(zamc_client *client, const lyd_node *tree, uint32_t format, bool *sent) {
    const owned_meta meta{_send_rpc_tree(client, tree, format)};
    *sent = meta != nullptr;
    zamc_bytes *reply = nullptr;
    if (meta) _wait_rpc_reply(client, meta->seq, &reply, _sync_timeout_ms(client));
    return owned_reply{reply};
}

bool _is_ok(const zamc_bytes *reply) {
    return reply->length == 0 || ok_text == std::string_view{reply->data, static_cast<uint32_t>(reply->length)};
}

// The data of a pull is taken from the text in JSON, so libyang is spared it: entries of a list stand there without
// what is above them, and over such nodes it takes quadratic time.
yang::owned_tree _parse_rpc_reply(const zamc_bytes *reply) {
    const ly_ctx *ctx = zam_clients_schema_ctx();
    if (!ctx) return nullptr;
    const runtime::owned_text brief{reply->format == ZAM_ENCODE_JSON ? yang::without_pull_data(reply->data) : nullptr};
    const char *text = brief ? brief.get() : reply->data;
    return yang::owned_tree{zam_lyd_parse_op(ctx, text, to_lyd_format(reply->format), LYD_TYPE_REPLY_YANG)};
}

// Calls and frees the records of a list of the caller's own; the last one gets `reply`, the others are lost.
void _call_and_free(zamc_client *client, zam_dlist *records, const zam_message *reply) {
    while (records->head) {
        const owned_meta meta{reinterpret_cast<rpc_meta *>(records->head)};
        zam_dlist_remove(records, &meta->node);
        if (!meta->callback || client->free_wanted) continue;
        meta->callback(client, records->head ? nullptr : reply, meta->arg);
    }
}

// Moves the records of `from` up to `last`, which is one of them, behind those of `to`.
void _move_records(zam_dlist *from, const zam_dlist_node *last, zam_dlist *to) {
    for (bool more = last != nullptr; more;) {
        zam_dlist_node *node = from->head;
        more = node != last;
        zam_dlist_remove(from, node);
        zam_dlist_append(to, node);
    }
}

rpc_meta *_find_rpc_meta(const zam_dlist *queue, uint32_t seq) {
    for (zam_dlist_node *node = queue->head; node; node = node->next) {
        auto *meta = reinterpret_cast<rpc_meta *>(node);
        if (meta->seq == seq) return meta;
    }
    return nullptr;
}

} // namespace

zamc_bytes *_dup_rpc_reply(uint32_t format, uint32_t length, const char *text) {
    zamc_bytes *reply = nullptr;
    if (length <= INT32_MAX) {
        reply = static_cast<zamc_bytes *>(zam_malloc(static_cast<uint32_t>(sizeof(*reply)) + length + 1));
    }
    if (!reply) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for duplicate reply not successful.\n");
        return nullptr;
    }
    auto *data = reinterpret_cast<char *>(reply + 1);
    *reply = {format, static_cast<int32_t>(length), length > 0 ? data : nullptr};
    if (memcpy_s(data, length, text, length) != 0) {
        zam_free(reply);
        return nullptr;
    }
    data[length] = '\0';
    return reply;
}

int32_t _exec_simple_rpc(zamc_client *client, const lyd_node *tree, uint32_t format) {
    bool sent = false;
    const owned_reply reply = _exchange_tree(client, tree, format, &sent);
    return reply && _is_ok(reply.get()) ? 0 : -1;
}

int32_t _exec_complex_rpc(zamc_client *client, const lyd_node *tree, void *out, reply_parser parser, const void *arg) {
    bool sent = false;
    const owned_reply reply = _exchange_tree(client, tree, _get_encode(client), &sent);
    if (!reply) {
        if (sent) zam_log_printf(ZAM_LOG_DEBUG, "[Client]:%s wait rpc reply error.\n", client->name);
        return -1;
    }
    if (_is_ok(reply.get())) {
        zam_log_printf(ZAM_LOG_DEBUG, "[Client]:%s wait rpc reply ok.\n", client->name);
        return 0;
    }
    zam_log_printf(ZAM_LOG_DEBUG, "[Client]:%s wait rpc reply:%s.\n", client->name, reply->data);
    const yang::owned_tree parsed = _parse_rpc_reply(reply.get());
    return parsed && parser ? parser(parsed.get(), reply.get(), out, arg) : -1;
}

bool _handle_reply(zamc_client *client, const zam_message *message) {
    if (_get_rpc_bypass_flag(client)) return false;
    if (zam_get_log_level() >= ZAM_LOG_DEBUG) {
        const log_text text{message->data, message->length};
        zam_log_printf(ZAM_LOG_DEBUG, "[RPC] receive rpc-reply :%s\n", text.chars);
    }
    const rpc_meta *match = _find_rpc_meta(&client->send_queue, zam_message_seq(message));
    if (!match) {
        pop_frame(client, message);
        return true;
    }
    zam_dlist answered;
    zam_dlist_init(&answered);
    _move_records(&client->send_queue, &match->node, &answered);
    const frame reply = take_frame(client, message);
    const bool empty = reply.message.length == 0 || !reply.block;
    _call_and_free(client, &answered, empty ? nullptr : &reply.message);
    return true;
}

// Tells the callbacks of the requests whose connection has ended. One that asks again meanwhile waits for the next
// call.
void call_lost_requests(zamc_client *client) {
    if (client->free_wanted) return;
    zam_dlist lost;
    zam_dlist_init(&lost);
    _move_records(&client->lost_requests, client->lost_requests.tail, &lost);
    _call_and_free(client, &lost, nullptr);
}

int32_t _cache_rewake_req(zamc_client *client) {
    const zam_message empty{_get_encode(client), 0, nullptr};
    return zam_message_push(client->connector, ZAM_MESSAGE_REWAKE, 0, &empty);
}

int32_t _send_rewake_req(zamc_client *client) {
    const int32_t result = _cache_rewake_req(client);
    zam_connector_flush(client->connector);
    return result;
}

// The connection is over: nobody waits for our answers any more, and nobody will answer our requests.
void end_exchanges(zamc_client *client) {
    zam_dlist_free(&client->wait_replies, [](zam_dlist_node *node) { zam_free(reinterpret_cast<rpc_wait *>(node)); });
    _move_records(&client->send_queue, client->send_queue.tail, &client->lost_requests);
}

} // namespace zam::client

using namespace zam;
using namespace zam::client;

int32_t zamc_send_rpc_sync(zamc_client *client, const zamc_bytes *payload, zamc_bytes **reply, int32_t timeout_ms) {
    if (!client || !payload || !reply || !valid_bytes(payload)) return -3;
    *reply = nullptr;
    const zam_message message = to_message(payload);
    const owned_meta meta{_send_rpc(client, &message, nullptr, nullptr)};
    if (!meta) {
        zam_log_printf(ZAM_LOG_WRONG, "send sync rpc not successful.\n");
        return -1;
    }
    zamc_bytes *received = nullptr;
    if (_wait_rpc_reply(client, meta->seq, &received, timeout_ms) == 0) {
        zam_log_printf(ZAM_LOG_WRONG, "wait sync rpc reply not successful.\n");
        return -1;
    }
    owned_reply answer{received};
    if (answer->length > 0) *reply = answer.release();
    return 0;
}

int32_t zamc_send_rpc_asyn(zamc_client *client, const zamc_bytes *payload, zamc_reply_fn callback, void *arg) {
    if (!client || !payload || !valid_bytes(payload)) return -3;
    const zam_message message = to_message(payload);
    return _send_rpc(client, &message, callback, arg) ? 0 : -1;
}

int32_t zamc_send_message(zamc_client *client, uint32_t type, const zamc_bytes *payload) {
    if (!client) return -3;
    if (type == ZAM_MESSAGE_REPLY) return -1; // a reply answers a request: zamc_reply_asyn
    if (!payload || !valid_bytes(payload)) return -3;
    if (type != ZAM_MESSAGE_REQUEST && type != ZAM_MESSAGE_OTHER_3 && type != ZAM_MESSAGE_REWAKE) return -1;
    const uint32_t seq = type == ZAM_MESSAGE_REQUEST ? _gen_send_rpc_seq(client) : 0;
    const zam_message message = to_message(payload);
    const int32_t result = zam_message_push(client->connector, type, seq, &message);
    zam_connector_flush(client->connector);
    return result;
}
