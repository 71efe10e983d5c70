// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// Requests about the session itself: who the client is, when it takes part, whether it is up to date.

#include <zamc/logger.h>

#include "wire/message_build_internal.h"

namespace zam::wire {
namespace {

constexpr uint32_t api_v2 = 1; // any other number means "v1"

bool _add_dependents(lyd_node *attribute, const char *clients) {
    if (!clients || *clients == '\0') return true;
    const leaf_step step{"dependent-clients", clients, "/orvel-zam-server:register/attribute/dependent-clients"};
    return add_leaves(attribute, {&step, 1});
}

bool _add_attributes(lyd_node *attribute, const zam_register_attrs *attrs, const ly_ctx *ctx) {
    const leaf_step version{"api-version", attrs->api_version == api_v2 ? "v2" : "v1",
                            "/orvel-zam-server:register/attribute/api-version"};
    if (!add_leaves(attribute, {&version, 1})) return false;
    if (!add_number(attribute, "deadline", attrs->deadline, "/orvel-zam-server:register/attribute/deadline")) {
        return false;
    }
    const int32_t encode = _new_encode_leaf(attribute, ctx, attrs->encode);
    if (!is_made(encode == 0, "/orvel-zam-server:register/attribute/encode")) return false;
    return _add_dependents(attribute, attrs->dependent_clients);
}

} // namespace

int32_t _new_encode_leaf(lyd_node *attribute, const ly_ctx *ctx, int32_t encode) {
    if (!attribute) return -1;
    const char *name = zam_find_enum_name(zam_schema_find(ctx, attribute->schema, "encode"), encode);
    if (!name) {
        zam_log_printf(ZAM_LOG_WRONG, "Find enum name unsuccessful.\n");
        return -1;
    }
    return zam_lyd_new_leaf(attribute, nullptr, "encode", name) ? 0 : -1;
}

} // namespace zam::wire

using namespace zam::wire;
using zam::yang::owned_tree;

lyd_node *zam_message_build_register(const char *name, const zam_register_attrs *attrs, const ly_ctx *ctx) {
    if (!is_made(attrs != nullptr, "/orvel-zam-server:register/attribute")) return nullptr;
    owned_tree root = new_root(ctx, "/orvel-zam-server:register");
    if (!root) return nullptr;
    const leaf_step step{"name", name, "/orvel-zam-server:register/name"};
    if (!add_leaves(root.get(), {&step, 1})) return nullptr;
    lyd_node *attribute = new_container(root.get(), "attribute", "/orvel-zam-server:register/attribute");
    if (!attribute || !_add_attributes(attribute, attrs, ctx)) return nullptr;
    return root.release();
}

lyd_node *zam_message_build_activate(int32_t replay, const ly_ctx *ctx) {
    owned_tree root = new_root(ctx, "/orvel-zam-server:activate");
    if (!root) return nullptr;
    const leaf_step step{"mode", replay ? "replay" : "direct", "/orvel-zam-server:activate/mode"};
    return add_leaves(root.get(), {&step, 1}) ? root.release() : nullptr;
}

lyd_node *zam_message_build_deactivate(const ly_ctx *ctx) {
    return new_root(ctx, "/orvel-zam-server:deactivate").release();
}

lyd_node *zam_message_build_verify_cfg(const char *name, const ly_ctx *ctx) {
    owned_tree root = new_root(ctx, "/orvel-zam-server:verify-configuration");
    if (!root) return nullptr;
    const leaf_step step{"name", name, "/orvel-zam-server:verify-configuration/name"};
    return add_leaves(root.get(), {&step, 1}) ? root.release() : nullptr;
}
