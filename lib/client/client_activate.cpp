// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Activation: what was subscribed and unsubscribed since the last time goes to the server, then the server is asked to
// publish. It confirms with a request of its own, and the client's busy flag holds other activations back until then.

#include <zamc/logger.h>
#include <zamc/message.h>
#include <zamc/utils.h>

#include "client/suber_internal.h"

namespace zam::client {
namespace {

using subscription_builder = lyd_node *(*)(const zam_vector *subers, const ly_ctx *ctx);

// Sends the pending records of one kind, if there are any, and marks them as sent.
int32_t _send_pending(zamc_client *client, zam_vector *subers, subscription_builder build, suber_status kind) {
    const ly_ctx *ctx = zam_clients_schema_ctx();
    if (!ctx) return -1;
    yang::owned_tree request{build(subers, ctx)};
    if (!request) return -1;
    // JSON whatever the client's encoding: the server has to understand it before it knows the client's wishes.
    if (zam_lyd_find_path(request.get(), "subscriptions/subscription") &&
        _exec_simple_rpc(client, request.get(), ZAM_ENCODE_JSON) != 0) {
        return -1;
    }
    zam_update_subers_status(subers, suber_pending, kind, suber_sent);
    return 0;
}

int32_t _exec_sub_unsub(zamc_client *client, zam_vector *subers) {
    if (_send_pending(client, subers, zam_message_build_subscribe, suber_subscribe) != 0) return -1;
    return _send_pending(client, subers, zam_message_build_unsubscribe, suber_unsubscribe);
}

int32_t _send_and_destroy(zamc_client *client, lyd_node *tree) {
    yang::owned_tree request{tree};
    if (!request) return -1;
    return _exec_simple_rpc(client, request.get(), ZAM_ENCODE_JSON);
}

// What the finished activation leaves: removed records gone, the others active.
void _settle_activating(zam_vector *subers) {
    for_each_suber(subers, [subers](zam_suber &suber, uint32_t index) {
        if ((suber.status & suber_activating) == 0) return;
        if ((suber.status & suber_unsubscribe) != 0) {
            zam_vector_remove(subers, index, zam_free);
        } else {
            suber.status = suber_active;
        }
    });
}

} // namespace

void _activate_finish(zamc_client *client, uint32_t seq, const lyd_node *) {
    int32_t result = 0;
    const uint32_t connection = client->connection;
    if (client->activate_callback) result = client->activate_callback(client, 1, client->activate_arg, 0);
    // What the callback has begun to activate on another connection finishes there.
    if (!client->connector || client->connection == connection) {
        _settle_activating(client->subers);
        client->activation_busy = 0;
    }
    _exec_simple_rpc_reply(client, seq, result);
}

void _deactivate_finish(zamc_client *client, uint32_t seq, const lyd_node *) {
    // Still known to the server: the next activation needs no new subscribe request.
    zam_update_subers_bits(client->subers, suber_active, 0, suber_sent | suber_subscribe);
    client->activation_busy = 0;
    _exec_simple_rpc_reply(client, seq, 0);
}

} // namespace zam::client

using namespace zam::client;

int32_t zamc_activate(zamc_client *client, int32_t replay, zamc_activate_fn callback, void *user) {
    if (!client) return -3;
    if (_exec_sub_unsub(client, client->subers) != 0) return -1;
    // Tested only now: changes of subscriptions reach the server also when the activation itself has to wait.
    if (client->activation_busy) {
        zam_log_printf(ZAM_LOG_WRONG, "Client is in activate/deactivate process, please try activate again later.\n");
        return -1;
    }
    const ly_ctx *ctx = zam_clients_schema_ctx();
    if (!ctx) return -1;
    const int32_t result = _send_and_destroy(client, zam_message_build_activate(replay, ctx));
    if (result != 0) return result;
    zam_update_subers_status(client->subers, suber_sent, 0, suber_activating);
    client->activate_callback = callback;
    client->activate_arg = user;
    client->activation_busy = 1;
    return 0;
}

int32_t zamc_deactivate(zamc_client *client) {
    if (!client) return -3;
    if (client->activation_busy) {
        zam_log_printf(ZAM_LOG_WRONG, "Client is in activate/deactivate process, please try deactivate again later.\n");
        return -1;
    }
    const ly_ctx *ctx = zam_clients_schema_ctx();
    if (!ctx) return -1;
    const int32_t result = _send_and_destroy(client, zam_message_build_deactivate(ctx));
    if (result != 0) return result;
    client->activation_busy = 1;
    return 0;
}
