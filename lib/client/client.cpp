// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The client object: its life, its connection and the registration that opens it, the heartbeat and the consistency
// check.
//
//   created -> connected and registered -> disconnected -> connected again ... -> freed
//
// `connector` is null while disconnected. A server that goes away leaves a closed connector behind, which reads as
// unconnected everywhere and is freed by the next connect, disconnect or free. Whichever way a connection ends, the
// answers owed on it are forgotten and its unanswered requests count as lost.
#include <cstdlib>
#include <unistd.h>

#include <zamc/connector.h>
#include <zamc/logger.h>
#include <zamc/sock_wrap.h>

#include "client/client_internal.h"

namespace zam::client {

namespace {

constexpr uint32_t event_ids = 23;             // EVENT_LISTENER_CLOSE to EVENT_NEW_JOB
constexpr int32_t heartbeat_timeout_ms = 3000; // an echo costs the server nothing but its attention
constexpr int decimal = 10;

// The server has gone. Its activations went with it, so every subscription has to be sent again.
int32_t _on_connector_close(zam_proactor *, uint32_t, void *para) {
    auto *connector = static_cast<zam_connector *>(para);
    auto *client = static_cast<zamc_client *>(zam_connector_context(connector));
    if (client) zam_reset_subers_bits(client->subers);
    return 0;
}

int32_t _parse_register_reply(lyd_node *tree, const zamc_bytes *, void *out, const void *) {
    const char *text = zam_leaf_get_raw(tree, "session-id");
    const auto session = static_cast<uint32_t>(text ? std::strtoul(text, nullptr, decimal) : 0);
    if (session == 0) {
        zam_log_printf(ZAM_LOG_INFO, "Register reply without winId\n");
        return 0; // a server without sessions is welcome
    }
    auto *client = static_cast<zamc_client *>(out);
    return zamc_set_attr_internal(client, ZAMC_ATTR_SESSION_ID, &session, sizeof(session));
}

int32_t _parse_verify_cfg_rsp(lyd_node *tree, const zamc_bytes *, void *out, const void *) {
    const lyd_node *leaf = zam_lyd_find_path(tree, "consistent");
    if (!leaf) return -1;
    *static_cast<bool *>(out) = zam_lyd_get_value(leaf) == 1; // the enumeration's "consistent"
    return 0;
}

bool _create_engine(zamc_client *client) {
    client->proactor = zam_proactor_new();
    if (!client->proactor) return false;
    client->registry = zam_registry_new(event_ids);
    if (!client->registry) return false;
    zam_proactor_registry_set(client->proactor, client->registry);
    zam_event_register(client->registry, EVENT_CONNECT_CLOSE, _on_connector_close);
    zam_event_register(client->registry, EVENT_MESSAGE_RECV, _on_message_receive);
    return true;
}

void _free_engine(zamc_client *client) {
    zam_proactor_free(client->proactor);
    if (!client->registry) return;
    zam_event_unregister(client->registry, EVENT_CONNECT_CLOSE);
    zam_event_unregister(client->registry, EVENT_MESSAGE_RECV);
    zam_registry_free(client->registry);
}

// Ends the connection, if there is one.
void _drop_connection(zamc_client *client) {
    if (!client->connector) return;
    zam_connector_free(client->connector);
    client->connector = nullptr;
    client->input = {};
    ++client->connection;
    end_exchanges(client);
}

bool _open_connection(zamc_client *client, int32_t fd) {
    zam_socket_cloexec(fd);
    zam_socket_block(fd, 0);
    client->connector = zam_connector_new(client->proactor, fd, client);
    if (!client->connector) return false;
    ++client->connection;
    return true;
}

// Takes the frames that have arrived until one is the echo; the others are for later.
bool _find_echo(zamc_client *client, zam_rw_bytes **aside) {
    join_input(client);
    bool found = false;
    zam_message message;
    while (!found && next_frame(client, &message)) {
        found = zam_message_type(&message) == ZAM_MESSAGE_REWAKE;
        if (!found) _cache_other_msg(aside, &message);
        pop_frame(client, &message);
    }
    return found;
}

// The events that the waking queues stay there for the next run, which dispatches what was set aside.
bool _wait_heartbeat_reply(zamc_client *client, zam_rw_bytes **aside) {
    while (!zam_connector_closed(client->connector)) {
        if (!zam_proactor_wait(client->proactor, heartbeat_timeout_ms)) return false;
        if (_find_echo(client, aside)) return true;
    }
    return false;
}

} // namespace

int32_t _exec_register(zamc_client *client) {
    const zam_register_attrs attrs{static_cast<int32_t>(_get_encode(client)), _get_deadline(client),
                                   _get_dep_clients(client), _get_api_version(client)};
    const yang::owned_tree request{zam_message_build_register(client->name, &attrs, zam_clients_schema_ctx())};
    if (!request) return -1;
    zam_log_printf(ZAM_LOG_DEBUG, "Client:%s send register rpc.\n", client->name);
    return _exec_complex_rpc(client, request.get(), client, _parse_register_reply, nullptr);
}

void destroy_client(zamc_client *client) {
    zam_free(client->name);
    zam_free(client->error_message);
    _free_client_attrs(client);
    zam_connector_free(client->connector);
    _free_engine(client);
    zam_vector_free(client->subers, zam_free);
    client->connector = nullptr;
    end_exchanges(client);
    zam_dlist_free(&client->lost_requests, [](zam_dlist_node *node) { zam_free(reinterpret_cast<rpc_meta *>(node)); });
    zam_free(client);
}

} // namespace zam::client

using namespace zam;
using namespace zam::client;

zamc_client *zamc_client_new(const char *name, uint32_t encode) {
    if (zamc_initialize() != 0) return nullptr;
    runtime::owned<zamc_client, zamc_client_free> client{runtime::mem_new<zamc_client>()};
    if (!client) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for client not successful.\n");
        return nullptr;
    }
    zam_dlist_init(&client->send_queue);
    zam_dlist_init(&client->wait_replies);
    zam_dlist_init(&client->lost_requests);
    if (!_create_engine(client.get())) return nullptr;
    client->name = zam_strdup(name ? name : "null");
    if (!client->name) return nullptr;
    if (_init_client_attrs(client.get(), encode) != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Init client attr not successful.\n");
        return nullptr;
    }
    return client.release();
}

void zamc_client_free(zamc_client *client) {
    if (!client) return;
    if (client->run_depth == 0) {
        destroy_client(client);
        return;
    }
    client->free_wanted = 1; // frames and callers below us still use it: zamc_run does the rest
    _drop_connection(client);
}

int32_t zamc_connect(zamc_client *client, const char *url) {
    if (!client || !url) {
        zam_log_printf(ZAM_LOG_WRONG, "zamc connect input null paras.\n");
        return -3;
    }
    if (client->free_wanted) return -1;
    if (client->connector) {
        zam_log_printf(ZAM_LOG_INFO, "Client reconnect to server.\n");
        zamc_disconnect(client);
    }
    const int32_t fd = zam_socket_connect(url);
    if (fd < 0) return -1;
    if (!_open_connection(client, fd)) {
        close(fd);
        return -1;
    }
    if (_exec_register(client) != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "[client]exec_register not successful.\n");
        zamc_disconnect(client);
        return -1;
    }
    zam_reset_subers_bits(client->subers);
    client->activation_busy = 0; // the finish of an activation on the old connection will not come any more
    return fd;
}

void zamc_disconnect(zamc_client *client) {
    if (client) _drop_connection(client);
}

int32_t zamc_send_heartbeat(zamc_client *client) {
    if (!client || _cache_rewake_req(client) != 0) return -1;
    zam_connector_flush(client->connector);
    zam_rw_bytes *frames = nullptr;
    const bool answered = _wait_heartbeat_reply(client, &frames);
    const runtime::owned<zam_rw_bytes, zam_rw_bytes_free> aside{frames};
    put_back(client, aside.get());
    // Nothing more may arrive for a long time: the next run has to find these frames by itself.
    if (frame_start_remains(client)) zam_connector_wake_io(client->connector);
    return answered ? 0 : -1;
}

int32_t zamc_consistency_check(zamc_client *client, bool *consistent) {
    if (!client || !consistent) return -1;
    *consistent = false;
    const ly_ctx *ctx = zam_clients_schema_ctx();
    if (!ctx) return -1;
    const yang::owned_tree request{zam_message_build_verify_cfg(client->name, ctx)};
    if (!request) {
        zam_log_printf(ZAM_LOG_WRONG, "Build verify-configuration rpc not successful.\n");
        return -1;
    }
    return _exec_complex_rpc(client, request.get(), consistent, _parse_verify_cfg_rsp, nullptr);
}
