// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// Subscribe and unsubscribe: one entry for each record that waits for just that. A record is known to the server by its
// index in the vector, sent as `priv-data` and echoed with every publication.

#include <cinttypes>
#include <cstring>

#include <zamc/logger.h>

#include "platform/bounded.h"
#include "wire/message_build_internal.h"

namespace zam::wire {
namespace {

constexpr uint32_t to_subscribe = 0x101;   // status of a new or changed record
constexpr uint32_t to_unsubscribe = 0x201; // status of a record that is to go
constexpr uint32_t mask_text_size = 256;   // all nine names take 121 bytes

struct subtype_name {
    int32_t type;
    const char *name;
};

// The brief config-change is the client's own distinction: on the wire both are one.
constexpr subtype_name subtype_names[] = {
    {ZAMC_SUB_CONFIG_CHANGE, "config-change"},
    {ZAMC_SUB_STATUS_QUERY, "status-query"},
    {ZAMC_SUB_OPERATION, "operation"},
    {ZAMC_SUB_CONFIG_CHANGE_BRIEF, "config-change"},
};

// What tells the two requests apart.
struct selection {
    uint32_t status;
    bool with_index;
    const char *root;
    const char *container;
    const char *entry;
};

constexpr selection subscribing = {to_subscribe, true, "/orvel-zam-server:subscribe",
                                   "/orvel-zam-server:subscribe/subscriptions",
                                   "/orvel-zam-server:subscribe/.../subscription"};
constexpr selection unsubscribing = {to_unsubscribe, false, "/orvel-zam-server:unsubscribe",
                                     "/orvel-zam-server:unsubscribe/subscriptions",
                                     "/orvel-zam-server:unsubscribe/.../subscription"};

// Writes the names, each with a blank behind it; the length, or -1 when they do not fit.
int32_t _write_bits(char *text, uint32_t mask) {
    uint32_t used = 0;
    for (const filter_bit &bit : filter_bits) {
        if (!(mask & bit.value)) continue;
        const int32_t written = sprintf_s(text + used, mask_text_size - used, "%s ", bit.name);
        if (written < 1) return -1;
        used += static_cast<uint32_t>(written);
    }
    return static_cast<int32_t>(used);
}

bool _add_entry(lyd_node *subscriptions, const zam_suber *record, uint32_t index, const selection &selection) {
    lyd_node *entry = _build_subscription(subscriptions, record);
    if (!is_made(entry != nullptr, selection.entry)) return false;
    if (!selection.with_index) return true;
    const int32_t result = zam_leaf_setf(entry, "priv-data", "%" PRIu64, uint64_t{index});
    return is_made(result == 0, "/orvel-zam-server:subscribe/.../priv-data");
}

lyd_node *_build(const zam_vector *subers, const ly_ctx *ctx, const selection &selection) {
    yang::owned_tree root = new_root(ctx, selection.root);
    if (!root) return nullptr;
    lyd_node *subscriptions = new_container(root.get(), "subscriptions", selection.container);
    if (!subscriptions) return nullptr;
    const uint32_t size = zam_vector_size(subers);
    for (uint32_t i = 0; i < size; ++i) {
        const auto *record = static_cast<const zam_suber *>(zam_vector_get(subers, i));
        if (!record || record->status != selection.status) continue;
        if (!_add_entry(subscriptions, record, i, selection)) return nullptr;
    }
    return root.release();
}

} // namespace

char *_xlate_oper_bits2str(uint32_t mask) {
    runtime::owned_text text{static_cast<char *>(zam_calloc(1, mask_text_size))};
    if (!text) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for bits str unsuccessful.\n");
        return nullptr;
    }
    const int32_t length = _write_bits(text.get(), mask);
    if (length < 1) return nullptr;
    text.get()[length - 1] = '\0';
    return text.release();
}

const char *_xlate_subtype_enum2str(int32_t type) {
    for (const subtype_name &row : subtype_names) {
        if (row.type == type) return row.name;
    }
    return "unknown";
}

int32_t _set_suber_cfg(lyd_node *entry, const zam_suber *record) {
    // The leaf takes 32 unsigned bits, the client's priorities stay below 2^31: a higher one is refused.
    const auto priority = static_cast<int32_t>(record->priority);
    if (!add_number(entry, "priority", priority, "/orvel-zam-server:subscribe/.../priority")) return -1;
    const runtime::owned_text bits{_xlate_oper_bits2str(record->filter_mask)};
    if (!bits) {
        zam_log_printf(ZAM_LOG_WRONG, "Convert filter-mask bits to string failed.\n");
        return -1;
    }
    const leaf_step step{"filter-mask", bits.get(), "/orvel-zam-server:subscribe/.../filter-mask"};
    return add_leaves(entry, {&step, 1}) ? 0 : -1;
}

lyd_node *_build_subscription(lyd_node *subscriptions, const zam_suber *record) {
    lyd_node *entry = zam_lyd_new_list(subscriptions, nullptr, "subscription", nullptr);
    if (!is_made(entry != nullptr, ".../subscription")) return nullptr;
    const leaf_step steps[] = {
        {"target", record->target, ".../subscription/target"},
        {"sub-type", _xlate_subtype_enum2str(record->type), ".../subscription/sub-type"},
    };
    if (!add_leaves(entry, steps)) return nullptr;
    const bool is_config = record->type == ZAMC_SUB_CONFIG_CHANGE || record->type == ZAMC_SUB_CONFIG_CHANGE_BRIEF;
    return !is_config || _set_suber_cfg(entry, record) == 0 ? entry : nullptr;
}

} // namespace zam::wire

using namespace zam::wire;

int32_t zam_xlate_subtype_str2enum(const char *text) {
    if (!text) return -1;
    for (const subtype_name &row : subtype_names) {
        if (strcmp(row.name, text) == 0) return row.type;
    }
    return -1;
}

lyd_node *zam_message_build_subscribe(const zam_vector *subers, const ly_ctx *ctx) {
    return _build(subers, ctx, subscribing);
}

lyd_node *zam_message_build_unsubscribe(const zam_vector *subers, const ly_ctx *ctx) {
    return _build(subers, ctx, unsubscribing);
}
