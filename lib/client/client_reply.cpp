// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Answers to requests of the server. A request is owed an answer from the arrival of its frame until one is queued;
// the wait-reply list holds the sequence numbers owed, oldest first. The cache functions queue a frame, the send
// functions also strike the number off the list and flush.
//
// An answer belongs to the connection that its request came on. A handler may have dropped that connection, and even
// made another one on which the number stands for something else, so the answers that follow a handler ask
// answer_is_due first.
//
// The error code and text, recorded by the application or by this library, live until the next error reply is built.
#include <cstdarg>

#include <zamc/logger.h>

#include "client/client_internal.h"
#include "platform/bounded.h"

namespace zam::client {

namespace {

constexpr char error_type[] = "application";
constexpr char error_tag[] = "operation-failed";

// Looks from both ends: what is answered at once stands last, what was put off longest stands first.
rpc_wait *_find_rpc_seq(const zam_dlist *list, uint32_t seq) {
    zam_dlist_node *oldest = list->head;
    zam_dlist_node *newest = list->tail;
    for (uint32_t left = (list->count + 1) / 2; left > 0; --left, oldest = oldest->next, newest = newest->prev) {
        for (zam_dlist_node *node : {oldest, newest}) {
            auto *wait = reinterpret_cast<rpc_wait *>(node);
            if (wait->seq == seq) return wait;
        }
    }
    return nullptr;
}

yang::owned_tree _build_error(const zamc_client *client) {
    char app_tag[16]; // ten digits at most
    if (snprintf_s(app_tag, sizeof(app_tag), sizeof(app_tag) - 1, "%u", static_cast<uint32_t>(client->error_code)) <
        0) {
        return nullptr;
    }
    const char *message = client->error_message;
    return yang::owned_tree{zam_create_error(zam_clients_schema_ctx(), error_type, error_tag, app_tag, nullptr,
                                             message ? "%s" : nullptr, message)};
}

} // namespace

int32_t _append_rpc_seq(zam_dlist *list, uint32_t seq) {
    auto *wait = runtime::mem_new<rpc_wait>();
    if (!wait) {
        zam_log_printf(ZAM_LOG_EMERG, "Malloc for rpc wait node fail.\n");
        return -1;
    }
    wait->seq = seq;
    return zam_dlist_append(list, &wait->node);
}

void _remove_rpc_seq(zam_dlist *list, uint32_t seq) {
    rpc_wait *wait = _find_rpc_seq(list, seq);
    if (!wait) return;
    zam_dlist_remove(list, &wait->node);
    zam_free(wait);
}

void record_failure(zamc_client *client, const rpc_failure &failure) {
    zamc_error_set(client, failure.code, "%s", failure.text);
}

void clear_error(zamc_client *client) {
    client->error_code = 0;
    zam_free(client->error_message);
    client->error_message = nullptr;
}

// Whether the request whose handler has just returned came on the connection that we still have, and was not answered
// by the handler itself.
bool answer_is_due(const zamc_client *client) {
    return client->request_connection == client->connection &&
           _find_rpc_seq(&client->wait_replies, client->request_seq);
}

int32_t _cache_reply_ok(zamc_client *client, uint32_t seq) {
    const zam_message empty{_get_encode(client), 0, nullptr};
    return zam_send_reply(client->connector, seq, &empty);
}

int32_t _send_reply_ok(zamc_client *client, uint32_t seq) {
    const int32_t result = _cache_reply_ok(client, seq);
    _remove_rpc_seq(&client->wait_replies, seq);
    zam_connector_flush(client->connector);
    return result;
}

int32_t _cache_reply_tree(zamc_client *client, const lyd_node *tree, uint32_t format, uint32_t seq) {
    uint32_t length = 0;
    const runtime::system_text text{zam_lyd_tree_dump(tree, to_lyd_format(format), &length)};
    if (!text) return -1;
    const zam_message message{format, length, text.get()};
    return zam_send_reply(client->connector, seq, &message);
}

int32_t _cache_reply_error(zamc_client *client, uint32_t seq) {
    const yang::owned_tree error = _build_error(client);
    if (!error) zam_log_printf(ZAM_LOG_WRONG, "Create error reply not successful.\n");
    clear_error(client);
    return error ? _cache_reply_tree(client, error.get(), _get_encode(client), seq) : -1;
}

int32_t _send_reply_error(zamc_client *client, uint32_t seq) {
    const int32_t result = _cache_reply_error(client, seq);
    if (result != 0) return result;
    _remove_rpc_seq(&client->wait_replies, seq);
    zam_connector_flush(client->connector);
    return 0;
}

void _exec_simple_rpc_reply(zamc_client *client, uint32_t seq, int32_t result) {
    if (client->error_code != 0 || result == ZAMC_REPLY_LATER || !answer_is_due(client)) return;
    if (result == 0) {
        _send_reply_ok(client, seq);
    } else {
        record_failure(client, service_failure);
    }
}

int32_t _cache_reply_output(zamc_client *client, uint32_t seq, const zamc_bytes *output) {
    const bool valid = !output || valid_bytes(output);
    const yang::owned_tree tree{valid ? zam_message_build_publish_output(output, zam_clients_schema_ctx()) : nullptr};
    const uint32_t format = output ? output->format : _get_encode(client);
    if (!tree || _cache_reply_tree(client, tree.get(), format, seq) != 0) {
        record_failure(client, message_failure);
        return -1;
    }
    return 0;
}

void _exec_publish_reply(zamc_client *client, uint32_t seq, int32_t result, const zamc_bytes *output) {
    if (client->error_code != 0 || result == ZAMC_REPLY_LATER || !answer_is_due(client)) return;
    if (result != 0) {
        record_failure(client, service_failure);
        return;
    }
    if (_cache_reply_output(client, seq, output) != 0) return;
    _remove_rpc_seq(&client->wait_replies, seq);
    zam_connector_flush(client->connector);
}

namespace {

// With the bypass on, the application writes the payload itself.
void _cache_reply_bytes(zamc_client *client, uint32_t seq, const zamc_bytes *output) {
    const zam_message message = to_message(output);
    zam_send_reply(client->connector, seq, &message);
}

void _cache_reply(zamc_client *client, uint32_t seq, const zamc_bytes *output) {
    if (client->error_code != 0) {
        _cache_reply_error(client, seq);
    } else if (!output) {
        _cache_reply_ok(client, seq);
    } else if (_get_rpc_bypass_flag(client)) {
        _cache_reply_bytes(client, seq, output);
    } else if (_cache_reply_output(client, seq, output) != 0) {
        record_failure(client, service_failure);
        _cache_reply_error(client, seq);
    }
    _remove_rpc_seq(&client->wait_replies, seq);
}

} // namespace

} // namespace zam::client

using namespace zam;
using namespace zam::client;

int32_t zamc_reply_asyn(zamc_client *client, uint32_t seq, const zamc_bytes *output) {
    if (!client || (output && !valid_bytes(output))) return -3;
    if (!client->wait_replies.head) {
        const bool given = output && output->data;
        const log_text text{given ? output->data : "null", given ? static_cast<uint32_t>(output->length) : 4};
        zam_log_printf(ZAM_LOG_WRONG, "Invalid reply message.(msg:%s)\n", text.chars);
        return -1;
    }
    if (seq == 0) seq = reinterpret_cast<rpc_wait *>(client->wait_replies.head)->seq;
    _cache_reply(client, seq, output);
    if (frame_start_remains(client)) _cache_rewake_req(client);
    zam_connector_flush(client->connector);
    return 0;
}

void zamc_error_set(zamc_client *client, int32_t code, const char *format, ...) {
    if (!client) return;
    clear_error(client);
    client->error_code = code;
    if (!format) return;
    va_list args;
    va_start(args, format);
    char *message = nullptr;
    if (zam_vasprintf(&message, format, args) >= 0) client->error_message = message;
    va_end(args);
}

uint32_t zamc_request_seq(const zamc_client *client) {
    return client ? client->request_seq : 0;
}
