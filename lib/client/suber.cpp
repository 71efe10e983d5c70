// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Subscriptions as the client keeps them.
//
// A record lives in a slot of the client's vector from the first subscribe until the finish of the activation that
// removes it. The slot's index travels to the server as `priv-data` and comes back in each publication, so records
// never move. A record's status tells what the server still has to hear of it:
//
//     subscribe          -> pending | subscribe      unsubscribe          -> pending | unsubscribe
//     request accepted   -> sent | subscribe         request accepted     -> sent | unsubscribe
//     activate accepted  -> activating | subscribe   activate accepted    -> activating | unsubscribe
//     activation finish  -> active                   activation finish    -> record removed
//     deactivation       -> sent | subscribe
//
// A new connection, like a lost one, knows nothing of the old one's subscriptions: every record goes back to
// pending | subscribe, those that were about to be removed included.

#include "client/suber_internal.h"

#include <cstring>

#include <zamc/logger.h>
#include <zamc/path.h>

#include "platform/bounded.h"

namespace zam::client {
namespace {

constexpr uint32_t known_mask = 0x3BF; // bits 0-5 and 7-9; the client has no name for the others
constexpr uint32_t operation_mask = 0xF;
constexpr uint32_t scene_mask = ZAMC_SCENE_NORMAL | ZAMC_SCENE_CFGR | ZAMC_SCENE_ROLLBACK;
constexpr uint32_t first_capacity = 16;

bool _is_handler_type(int32_t type) {
    return type == ZAMC_SUB_STATUS_QUERY || type == ZAMC_SUB_OPERATION;
}

// The one change a second subscription makes to the record of the first: who is called, and with what.
void _update_suber(zam_suber &suber, const zam_suber &renewed) {
    if (is_config_type(suber.type)) {
        suber.config_handler = renewed.config_handler;
    } else {
        suber.status_handler = renewed.status_handler;
    }
    suber.user = renewed.user;
}

bool _is_same(const zam_suber &suber, const zam_suber &wanted) {
    if (suber.type != wanted.type) return false;
    if (is_config_type(suber.type) && (suber.filter_mask != wanted.filter_mask || suber.priority != wanted.priority)) {
        return false;
    }
    return strcmp(suber.target, wanted.target) == 0;
}

bool _refuse_while_activating(const zam_suber &suber) {
    if ((suber.status & suber_activating) == 0) return false;
    zam_log_printf(ZAM_LOG_WRONG, "The suber is waiting to be activated, cannot be modified.\n");
    return true;
}

zam_suber *_found(const zam_vector *subers, int32_t index) {
    return index < 0 ? nullptr : static_cast<zam_suber *>(zam_vector_get(subers, static_cast<uint32_t>(index)));
}

template <typename Change>
void _change_matching(const zam_vector *subers, uint32_t clear, uint32_t require, Change change) {
    for_each_suber(subers, [&](zam_suber &suber, uint32_t) {
        if ((suber.status & clear) == 0) return;
        if (require != 0 && (suber.status & require) == 0) return;
        suber.status = change(suber.status);
    });
}

} // namespace

int32_t zam_check_sub_node(const zamc_sub_node *node) {
    if (is_config_type(node->type)) return (node->filter_mask & ~known_mask) == 0 ? 0 : -1;
    if (_is_handler_type(node->type)) return 0;
    zam_log_printf(ZAM_LOG_WRONG, "The subscriber type is unknown.\n");
    return -1;
}

// A mask without any operation means the client's default operations, one without any scene its default scenes; the
// curb bits are neither.
uint32_t _calc_cfg_sub_mask(const zamc_client *client, uint32_t mask) {
    if ((mask & operation_mask) == 0) mask |= _get_sub_oper(client);
    if ((mask & scene_mask) == 0) mask |= _get_sub_scene(client);
    return mask;
}

zam_suber *zam_new_suber(const zamc_client *client, const zamc_sub_node *node) {
    runtime::owned_text path{zam_format_path(node->target)};
    if (!path) {
        zam_log_printf(ZAM_LOG_WRONG, "Format path not successful, path : %s.\n", node->target ? node->target : "null");
        return nullptr;
    }
    const auto length = static_cast<uint32_t>(strlen(path.get()));
    runtime::owned_block<zam_suber> suber{runtime::mem_new<zam_suber>(length + 1)};
    if (!suber) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for suber not successful.\n");
        return nullptr;
    }
    suber->target = reinterpret_cast<char *>(suber.get() + 1); // the text stands behind the record
    if (strncpy_s(suber->target, length + 1, path.get(), length) != 0) return nullptr;
    suber->type = node->type;
    suber->user = node->user;
    if (is_config_type(node->type)) {
        suber->priority = node->priority;
        suber->filter_mask = _calc_cfg_sub_mask(client, node->filter_mask);
        suber->config_handler = node->config;
    } else {
        suber->status_handler = node->status;
    }
    return suber.release();
}

int32_t zam_find_suber(const zam_vector *subers, const zam_suber *wanted) {
    const uint32_t size = zam_vector_size(subers);
    for (uint32_t index = 0; index < size; ++index) {
        const auto *suber = static_cast<const zam_suber *>(zam_vector_get(subers, index));
        if (suber && _is_same(*suber, *wanted)) return static_cast<int32_t>(index);
    }
    return -1;
}

int32_t zam_add_suber(zamc_client *client, const zamc_sub_node *node) {
    runtime::owned_block<zam_suber> suber{zam_new_suber(client, node)};
    if (!suber) return -3;
    suber->status = suber_pending | suber_subscribe;
    zam_suber *existing = _found(client->subers, zam_find_suber(client->subers, suber.get()));
    if (!existing) {
        if (zam_vector_add(&client->subers, suber.get(), nullptr) != 0) return -2;
        suber.release();
        return 0;
    }
    if (_refuse_while_activating(*existing)) return -1;
    _update_suber(*existing, *suber);
    existing->status = suber->status; // sent again at the next activation, also when active
    return 0;
}

void zam_update_subers_status(zam_vector *subers, uint32_t clear, uint32_t require, uint32_t set) {
    _change_matching(subers, clear, require, [=](uint32_t status) { return (status & ~clear) | set; });
}

void zam_update_subers_bits(zam_vector *subers, uint32_t clear, uint32_t require, uint32_t value) {
    _change_matching(subers, clear, require, [=](uint32_t) { return value; });
}

void zam_reset_subers_bits(zam_vector *subers) {
    for_each_suber(subers, [](zam_suber &suber, uint32_t) { suber.status = suber_pending | suber_subscribe; });
}

} // namespace zam::client

using namespace zam;
using namespace zam::client;

int32_t zamc_subscribe(zamc_client *client, const zamc_sub_node *node) {
    if (!client || !node) return -3;
    if (zam_check_sub_node(node) != 0) return -3;
    if (!client->subers) client->subers = zam_vector_init(first_capacity);
    if (!client->subers) return -2;
    return zam_add_suber(client, node);
}

int32_t zamc_unsubscribe(zamc_client *client, const zamc_sub_node *node) {
    if (!client || !node) return -3;
    if (zam_check_sub_node(node) != 0) return -3;
    runtime::owned_block<zam_suber> wanted{zam_new_suber(client, node)};
    if (!wanted) return -3;
    zam_suber *suber = _found(client->subers, zam_find_suber(client->subers, wanted.get()));
    if (!suber) return 0;
    if (_refuse_while_activating(*suber)) return -1;
    suber->status = suber_pending | suber_unsubscribe; // the slot is kept until the server has heard of it
    return 0;
}
