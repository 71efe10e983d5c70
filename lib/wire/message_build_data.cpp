// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// Requests on datastores. Without a datastore each of them means running, also where the schema's default is another.

#include <zamc/logger.h>

#include "wire/message_build_internal.h"

namespace zam::wire {
namespace {

using runtime::owned_text;
using yang::owned_tree;

const char *_datastore_name(const char *datastore) {
    return datastore ? datastore : "ietf-datastores:running";
}

// The schema's range leaves 0 out, so libyang makes no leaf of it; a node of another make carries it, printed as the
// number that it is.
bool _add_zero_depth(lyd_node *root, const ly_ctx *ctx, const char *path) {
    lyd_node *depth = zam_lyd_new_opaq(root, ctx, "depth", "0", root->schema->module->name);
    if (!is_made(depth != nullptr, path)) return false;
    reinterpret_cast<lyd_node_opaq *>(depth)->hints = LYD_VALHINT_DECNUM;
    return true;
}

bool _is_known_format(const zamc_bytes *bytes) {
    return bytes && (bytes->format == ZAM_ENCODE_XML || bytes->format == ZAM_ENCODE_JSON);
}

// JSON content goes as the object that its entity's last node makes of it.
bool _add_push_content(lyd_node *root, const char *entity, const zamc_bytes *content) {
    if (content->format == ZAM_ENCODE_XML) return add_content(root, "content", content->format, content->data);
    const owned_text named{zam_add_name(entity, content->data)};
    return named && add_content(root, "content", content->format, named.get());
}

} // namespace
} // namespace zam::wire

using namespace zam::wire;
using zam::yang::owned_tree;

lyd_node *zam_message_build_pull(const char *datastore, int32_t version, const char *entity, int32_t depth,
                                 const ly_ctx *ctx) {
    owned_tree root = new_root(ctx, "/orvel-zam-server:pull");
    if (!root) return nullptr;
    const leaf_step place[] = {
        {"datastore", _datastore_name(datastore), "/orvel-zam-server:pull/datastore"},
        {"entity", entity, "/orvel-zam-server:pull/entity"},
    };
    if (!add_leaves(root.get(), place)) return nullptr;
    const char *depth_path = "/orvel-zam-server:pull/depth";
    const bool has_depth =
        depth == 0 ? _add_zero_depth(root.get(), ctx, depth_path) : add_number(root.get(), "depth", depth, depth_path);
    if (!has_depth) return nullptr;
    const leaf_step step{"version", version == 1 ? "last" : "current", "/orvel-zam-server:pull/version"};
    return add_leaves(root.get(), {&step, 1}) ? root.release() : nullptr;
}

lyd_node *zam_message_build_push(const char *datastore, const char *entity, const char *operation,
                                 const zamc_bytes *content, const ly_ctx *ctx) {
    owned_tree root = new_root(ctx, "/orvel-zam-server:push");
    if (!root) return nullptr;
    const leaf_step steps[] = {
        {"datastore", _datastore_name(datastore), "/orvel-zam-server:push/datastore"},
        {"entity", entity, "/orvel-zam-server:push/entity"},
        {"operation", operation, "/orvel-zam-server:push/operation"},
    };
    if (!add_leaves(root.get(), steps)) return nullptr;
    if (!_is_known_format(content)) {
        zam_log_printf(ZAM_LOG_WRONG, "The encode type of '/orvel-zam-server:push/content' invalid.\n");
        return nullptr;
    }
    const bool has_content = _add_push_content(root.get(), entity, content);
    return is_made(has_content, "/orvel-zam-server:push/content") ? root.release() : nullptr;
}

lyd_node *zam_message_build_diff(const char *datastore, const char *entity, int32_t depth, const ly_ctx *ctx) {
    owned_tree root = new_root(ctx, "/orvel-zam-server:diff");
    if (!root) return nullptr;
    const leaf_step place[] = {
        {"datastore", _datastore_name(datastore), "/orvel-zam-server:diff/datastore"},
        {"entity", entity, "/orvel-zam-server:diff/entity"},
    };
    if (!add_leaves(root.get(), place)) return nullptr;
    const int32_t levels = depth == 0 ? -1 : depth;
    return add_number(root.get(), "depth", levels, "/orvel-zam-server:diff/depth") ? root.release() : nullptr;
}

lyd_node *zam_message_build_locate(const char *datastore, int32_t version, const char *entity, const ly_ctx *ctx) {
    owned_tree root = new_root(ctx, "/orvel-zam-server:locate");
    if (!root) return nullptr;
    const leaf_step steps[] = {
        {"datastore", _datastore_name(datastore), "/orvel-zam-server:locate/datastore"},
        {"entity", entity, "/orvel-zam-server:locate/entity"},
        {"version", version ? "last" : "current", "/orvel-zam-server:locate/version"},
    };
    return add_leaves(root.get(), steps) ? root.release() : nullptr;
}
