// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// The steps that all builders share. A builder owns its tree through a guard and gives it away as its last act; each
// step reports its own node, and the steps below it (libyang, the data layer) report what they saw besides.

#include "wire/message_build_internal.h"

#include <cstring>
#include <iterator>

#include <zamc/logger.h>

namespace zam::wire {

bool is_made(bool made, const char *path) {
    if (!made) zam_log_printf(ZAM_LOG_WRONG, "Create node '%s' unsuccessful.\n", path);
    return made;
}

yang::owned_tree new_root(const ly_ctx *ctx, const char *path) {
    yang::owned_tree root{zam_lyd_new_path(nullptr, ctx, path, nullptr)};
    (void)is_made(root != nullptr, path);
    return root;
}

lyd_node *new_container(lyd_node *parent, const char *name, const char *path) {
    lyd_node *container = zam_lyd_new_inner(parent, nullptr, name);
    (void)is_made(container != nullptr, path);
    return container;
}

bool add_leaves(lyd_node *parent, std::span<const leaf_step> steps) {
    for (const leaf_step &step : steps) {
        const bool made = step.value && zam_lyd_new_leaf(parent, nullptr, step.name, step.value);
        if (!is_made(made, step.path)) return false;
    }
    return true;
}

bool add_number(lyd_node *parent, const char *name, int32_t number, const char *path) {
    return is_made(zam_leaf_setf(parent, name, "%d", number) == 0, path);
}

bool add_content(lyd_node *parent, const char *name, uint32_t format, const char *text) {
    if (!text) return zam_lyd_new_any(parent, nullptr, name, nullptr, LYD_ANYDATA_DATATREE) != nullptr;
    if (format == ZAM_ENCODE_JSON) return yang::new_raw_json(parent, nullptr, name, text, false) != nullptr;
    return zam_lyd_new_any(parent, nullptr, name, text, LYD_ANYDATA_XML) != nullptr;
}

} // namespace zam::wire

namespace {

constexpr const char *edit_names[] = {"merge", "replace", "create", "remove", "delete"};

} // namespace

const char *zam_xlate_edit_enum2str(int32_t operation) {
    const auto index = static_cast<uint32_t>(operation);
    return index < std::size(edit_names) ? edit_names[index] : "unknown";
}
