// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Subscriber records: their states, and what the client's other files do with them.
#ifndef ZAMC_CLIENT_SUBER_INTERNAL_H
#define ZAMC_CLIENT_SUBER_INTERNAL_H

#include <cstdint>

#include "client/client_internal.h"

namespace zam::client {

enum suber_status : uint32_t {
    suber_pending = 0x001,    // the change has not been sent yet
    suber_sent = 0x002,       // the server has accepted the subscribe or unsubscribe
    suber_activating = 0x004, // an activate was sent, its finish has not arrived
    suber_active = 0x008,
    suber_subscribe = 0x100,   // the record is to be subscribed
    suber_unsubscribe = 0x200, // the record is to be unsubscribed
};

int32_t zam_check_sub_node(const zamc_sub_node *node);
zam_suber *zam_new_suber(const zamc_client *client, const zamc_sub_node *node);
int32_t zam_find_suber(const zam_vector *subers, const zam_suber *wanted);
int32_t zam_add_suber(zamc_client *client, const zamc_sub_node *node);
uint32_t _calc_cfg_sub_mask(const zamc_client *client, uint32_t mask);

// For every record that has a bit of `clear` and, unless `require` is 0, a bit of `require`:
// the first replaces the cleared bits by `set`, the second assigns `value` as the whole status.
void zam_update_subers_status(zam_vector *subers, uint32_t clear, uint32_t require, uint32_t set);
void zam_update_subers_bits(zam_vector *subers, uint32_t clear, uint32_t require, uint32_t value);

inline bool is_config_type(int32_t type) {
    return type == ZAMC_SUB_CONFIG_CHANGE || type == ZAMC_SUB_CONFIG_CHANGE_BRIEF;
}

// Calls visit(record, index) for every record of the vector.
template <typename Visit>
void for_each_suber(const zam_vector *subers, Visit visit) {
    const uint32_t size = zam_vector_size(subers);
    for (uint32_t index = 0; index < size; ++index) {
        if (auto *suber = static_cast<zam_suber *>(zam_vector_get(subers, index))) visit(*suber, index);
    }
}

} // namespace zam::client

#endif
