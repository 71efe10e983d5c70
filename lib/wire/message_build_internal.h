// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// What the request builders share: the steps that report the node they could not make, and the translations between
// the client's numbers and the names of the protocol modules.
#ifndef ZAMC_WIRE_MESSAGE_BUILD_INTERNAL_H
#define ZAMC_WIRE_MESSAGE_BUILD_INTERNAL_H

#include <array>
#include <cstdint>
#include <span>

#include <zamc/format.h>
#include <zamc/message.h>
#include <zamc/suber.h>
#include <zamc/utils.h>

#include "yang/yang_internal.h"

namespace zam::wire {

struct filter_bit {
    uint32_t value; // 1 shifted by the bit's position in the schema
    const char *name;
};

// The schema also has scene-smooth at position 10, which no client may subscribe to.
inline constexpr std::array<filter_bit, 9> filter_bits = {{
    {ZAMC_CONFIG_CREATE, "config-create"},
    {ZAMC_CONFIG_DELETE, "config-delete"},
    {ZAMC_CONFIG_UPDATE, "config-update"},
    {ZAMC_CONFIG_MOVE, "config-move"},
    {ZAMC_CURB_DELETE, "curb-delete"},
    {ZAMC_CURB_CREATE, "curb-create"},
    {ZAMC_SCENE_NORMAL, "scene-normal"},
    {ZAMC_SCENE_CFGR, "scene-cfgr"},
    {ZAMC_SCENE_ROLLBACK, "scene-rollback"},
}};

// The names of the set bits, separated by one blank; bits without a row are ignored. Null when no row has its bit set
// or memory is short. Released with zam_free.
char *_xlate_oper_bits2str(uint32_t mask);

// The name of a subscription type, "unknown" for any other number.
const char *_xlate_subtype_enum2str(int32_t type);

// The priority and the filter mask of a config-change subscription; 0, or -1 after a message.
int32_t _set_suber_cfg(lyd_node *entry, const zam_suber *record);

// Adds the subscription of `record` to the container: the new entry, or null after a message. What was made of the
// entry by then stays in the container and goes with its tree.
lyd_node *_build_subscription(lyd_node *subscriptions, const zam_suber *record);

// The leaf `encode` with the name that the schema gives the number; 0, or -1 after a message.
int32_t _new_encode_leaf(lyd_node *attribute, const ly_ctx *ctx, int32_t encode);

// A leaf to make, and the path that stands in the message when it cannot be made.
struct leaf_step {
    const char *name;
    const char *value;
    const char *path;
};

// Logs the node that was not made and passes the result on.
bool is_made(bool made, const char *path);

// The root of a request or notification; empty after a message.
yang::owned_tree new_root(const ly_ctx *ctx, const char *path);

// A container below `parent`; null after a message with `path`.
lyd_node *new_container(lyd_node *parent, const char *name, const char *path);

// One leaf after the other; false after the message of the first that fails. A null value fails.
bool add_leaves(lyd_node *parent, std::span<const leaf_step> steps);

// A leaf with a number; false after a message with `path`.
bool add_number(lyd_node *parent, const char *name, int32_t number, const char *path);

// The input anydata `name` with a text in the format of a bytes object: XML through libyang, JSON byte for byte.
// Without text it is made empty. Without message of its own.
bool add_content(lyd_node *parent, const char *name, uint32_t format, const char *text);

} // namespace zam::wire

#endif
